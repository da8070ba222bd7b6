// Gather: 16M random row ids out of paged row stores far larger than the
// caches, beside a plain loop that computes the page and slot and copies,
// without prefetch, and the streaming read of the store.
//
//   fixed8   a fixed-stride store of 1 GiB: 16M rows of 64 bytes in 16
//            pages; one 8-byte column per id into a VORN_FIXED result.
//            The fixed loops do not prefetch; the extra row
//            fixed8/scalar_prefetch is the plain loop with a prefetch 32
//            rows ahead, to show what a prefetch would change there.
//   refs     a ten-byte reference store of 16M rows in 16 pages (160 MiB)
//            whose references point at 8-byte values (128 MiB); values
//            copied into a VORN_LV_SEP result.  The kernel keeps the
//            reference lines of 32 rows in flight, and the values of 16.
//
// Bytes are those of the store (rows, or references and values), and the
// bandwidth row reads them once from end to end.
#include <xmmintrin.h>

#include <memory>

#include "support/bench_support.h"

namespace {

using namespace vornbench;

constexpr ub4 kIds = 16u << 20;
constexpr ub4 kLowBit = 20;  // 2^20 slots a page
constexpr ub4 kPages = kIds >> kLowBit;
constexpr ub4 kStride = 64;

struct Ids {
    std::vector<ub8> ids;
    vorn_enc_ctx enc{};
    vorn_vec vec{};
    Ids() : ids(kIds) {
        for (auto &id : ids) id = rng()() % kIds;  // page << 20 | slot
        enc.flags = VORN_FIXED;
        enc.bit_width = 64;
        vec.enc_ctx = &enc;
        vec.data = ids.data();
        vec.size = kIds;
    }
};

Ids &ids() {
    static Ids i;
    return i;
}

struct FixedStore {
    Bytes rows;
    std::vector<const ub1 *> pages;
    ub1 lens[1] = {8}, offsets[1] = {8};
    vorn_gather_spec spec{};
    Bytes out;
    vorn_enc_ctx out_enc{};
    FixedStore() : rows(ub8{kIds} * kStride), out(8 * ub8{kIds}) {
        for (ub8 i = 0; i < ub8{kIds} * kStride / 8; ++i) std::memcpy(rows.data() + 8 * i, &i, 8);
        for (ub4 p = 0; p < kPages; ++p) pages.push_back(rows.data() + (ub8{p} << kLowBit) * kStride);
        spec.flags = VORN_STORE_FIXED;
        spec.num_cols = 1;
        spec.row_stride = kStride;
        spec.col_lens = lens;
        spec.col_offsets = offsets;
        spec.high_bit = 63;
        spec.low_bit = kLowBit;
        spec.data_pages = pages.data();
        out_enc.flags = VORN_FIXED;
        out_enc.bit_width = 64;
    }
};

FixedStore &fixed_store() {
    static FixedStore s;
    return s;
}

struct RefStore {
    Bytes refs, values;
    std::vector<const ub1 *> pages;
    vorn_gather_spec spec{};
    Bytes out, out_lens;
    vorn_enc_ctx out_enc{};
    RefStore() : refs(10 * ub8{kIds}), values(8 * ub8{kIds}), out(8 * ub8{kIds}), out_lens(2 * ub8{kIds}) {
        for (ub8 i = 0; i < kIds; ++i) {
            std::memcpy(values.data() + 8 * i, &i, 8);
            const ub2 len = 8;
            const ub8 address = reinterpret_cast<ub8>(values.data() + 8 * i);
            std::memcpy(refs.data() + 10 * i, &len, 2);
            std::memcpy(refs.data() + 10 * i + 2, &address, 8);
        }
        for (ub4 p = 0; p < kPages; ++p) pages.push_back(refs.data() + 10 * (ub8{p} << kLowBit));
        spec.flags = VORN_STORE_REFS | VORN_STORE_ONE_COL;
        spec.num_cols = 1;
        spec.high_bit = 63;
        spec.low_bit = kLowBit;
        spec.ref_pages = pages.data();
        out_enc.flags = VORN_LV_SEP;
    }
};

RefStore &ref_store() {
    static RefStore s;
    return s;
}

constexpr ub8 kSlotMask = (ub8{1} << kLowBit) - 1;

void gather_kernel(benchmark::State &state, bool refs) {
    Ids &i = ids();
    vorn_vec res{};
    const vorn_gather_spec *spec;
    if (refs) {
        RefStore &s = ref_store();
        res.enc_ctx = &s.out_enc;
        res.data = s.out.data();
        res.data2 = s.out_lens.data();
        spec = &s.spec;
    } else {
        FixedStore &s = fixed_store();
        res.enc_ctx = &s.out_enc;
        res.data = s.out.data();
        spec = &s.spec;
    }
    for (auto _ : state) {
        vorn_kernel_ctx k{};
        res.byte_capacity = 8 * ub8{kIds};
        benchmark::DoNotOptimize(ctx().vorn_gather_dydi(&res, &i.vec, spec, &k));
        benchmark::ClobberMemory();
    }
    set_rates(state, kIds, refs ? 18.0 * kIds : double(kStride) * kIds);
}

// The plain loop: page and slot, copy, next.
template <bool kPrefetch>
VORN_SCALAR void scalar_fixed(ub1 *out, const ub8 *id, const ub1 *const *pages, ub4 n) {
    for (ub4 r = 0; r < n; ++r) {
        if constexpr (kPrefetch) {
            if (r + 32 < n) {
                const ub8 a = id[r + 32];
                _mm_prefetch(reinterpret_cast<const char *>(pages[a >> kLowBit] + (a & kSlotMask) * kStride + 8),
                             _MM_HINT_T0);
            }
        }
        const ub8 x = id[r];
        std::memcpy(out + 8 * ub8{r}, pages[x >> kLowBit] + (x & kSlotMask) * kStride + 8, 8);
    }
}

VORN_SCALAR void scalar_refs(ub1 *out, ub2 *lens, const ub8 *id, const ub1 *const *pages, ub4 n) {
    ub8 at = 0;
    for (ub4 r = 0; r < n; ++r) {
        const ub8 x = id[r];
        const ub1 *ref = pages[x >> kLowBit] + 10 * (x & kSlotMask);
        ub2 len;
        ub8 address;
        std::memcpy(&len, ref, 2);
        std::memcpy(&address, ref + 2, 8);
        std::memcpy(out + at, reinterpret_cast<const void *>(address), len);
        lens[r] = len;
        at += len;
    }
}

void gather_scalar(benchmark::State &state, bool refs, bool prefetch) {
    Ids &i = ids();
    for (auto _ : state) {
        if (refs) {
            RefStore &s = ref_store();
            scalar_refs(s.out.data(), reinterpret_cast<ub2 *>(s.out_lens.data()), i.ids.data(), s.pages.data(), kIds);
        } else {
            FixedStore &s = fixed_store();
            if (prefetch) scalar_fixed<true>(s.out.data(), i.ids.data(), s.pages.data(), kIds);
            else scalar_fixed<false>(s.out.data(), i.ids.data(), s.pages.data(), kIds);
        }
        benchmark::ClobberMemory();
    }
    set_rates(state, kIds, refs ? 18.0 * kIds : double(kStride) * kIds);
}

void register_all() {
    register_group(
        "gather/fixed8", [](benchmark::State &st) { gather_kernel(st, false); },
        [](benchmark::State &st) { gather_scalar(st, false, false); },
        [](benchmark::State &st) {
            FixedStore &s = fixed_store();
            bandwidth(st, s.rows.data(), ub8{kIds} * kStride, kIds);
        });
    register_row("gather/fixed8", "scalar_prefetch", [](benchmark::State &st) { gather_scalar(st, false, true); })
        ->Iterations(3);
    register_group(
        "gather/refs", [](benchmark::State &st) { gather_kernel(st, true); },
        [](benchmark::State &st) { gather_scalar(st, true, false); },
        [](benchmark::State &st) {
            RefStore &s = ref_store();
            // References then values: the store's 18 bytes a row.
            st.counters.clear();
            for (auto _ : st) {
                benchmark::DoNotOptimize(stream_read(s.refs.data(), 10 * ub8{kIds}));
                benchmark::DoNotOptimize(stream_read(s.values.data(), 8 * ub8{kIds}));
            }
            set_rates(st, kIds, 18.0 * kIds);
        });
}

const bool registered = (register_all(), true);

}  // namespace

VORN_BENCH_MAIN()
