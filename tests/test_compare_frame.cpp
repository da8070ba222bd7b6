// The compare frame and the decompression site, through a test-only compare
// of byte equality that records which rows it was asked about: the full and
// selective paths, the filter and selection ANDs, the run-length hand-over,
// the cache cell of a compressed column, the raise and its text.  (The
// frame's paths end to end over real kernels - no kernel context, run-length
// expansion by the host's burst, compressed selective calls - are the
// fixed-width compare test's modes.)
#include <gtest/gtest.h>

#include <set>

#include "support/byte_equals.h"
#include "support/test_host.h"

namespace {

using namespace vorntest;

std::unique_ptr<Column> byte_column(const std::vector<ub8> &values) { return fixed_column(values, 1, 8); }

std::vector<ub8> random_bytes(std::mt19937_64 &rng, std::size_t n, ub8 range) {
    std::vector<ub8> v(n);
    for (auto &x : v) x = rng() % range;
    return v;
}

struct Expect {
    std::vector<bool> bits;
    ub8 count = 0;
};

Expect model(const std::vector<ub8> &values, ub1 literal, const ub8 *filter, const ub8 *aux) {
    Expect e;
    for (std::size_t i = 0; i < values.size(); ++i) {
        bool b = values[i] == literal;
        if (filter) b = b && vornhost::test_bit(filter, i);
        if (aux) b = b && vornhost::test_bit(aux, i);
        e.bits.push_back(b);
        e.count += b;
    }
    return e;
}

void expect_result(const Result &res, const Expect &e, ub8 code) {
    for (std::size_t i = 0; i < e.bits.size(); ++i) ASSERT_EQ(res.bit(i), e.bits[i]) << "row " << i;
    EXPECT_TRUE(res.clear_behind(e.bits.size()));
    EXPECT_EQ(res.vec.num_ones, e.count);
    EXPECT_EQ(code, e.count == 0 ? 1u : 0u);
}

TEST(CompareFrame, FullPathWithFiltersAndSelection) {
    std::mt19937_64 rng(1);
    TestHost host;
    for (ub4 n : {0u, 1u, 63u, 64u, 65u, 130u, 1000u}) {
        const auto values = random_bytes(rng, n, 3);
        // Mode 4 and 5: the selective flag without bv_aux takes the full path.
        for (int mode = 0; mode < 6; ++mode) {
            auto col = byte_column(values);
            const auto filter = random_bits(rng, n, 0.6), aux = random_bits(rng, n, 0.6);
            if (mode & 1) col->vec.filter_bv = filter.data();
            vorn_kernel_ctx k = host.kctx();
            k.done_flags = VORN_DONE_DECODED;  // an earlier kernel's flag stays
            if (mode & 2) k.bv_aux = aux.data();
            if (mode & 4) k.flags = VORN_CTX_SELECTIVE;
            Result res(n);
            const ub8 code = vorn::compare_frame(&res.vec, &col->vec, ByteEquals{1}, &k);
            expect_result(res, model(values, 1, mode & 1 ? filter.data() : nullptr, mode & 2 ? aux.data() : nullptr), code);
            EXPECT_EQ(k.done_flags, VORN_DONE_DECODED | (mode & 2 ? VORN_DONE_BV_AUX : 0u)) << "mode " << mode;
            EXPECT_TRUE(res.guard_intact());
        }
    }
}

TEST(CompareFrame, SelectivePathVisitsOnlySelectedRows) {
    std::mt19937_64 rng(2);
    TestHost host;
    for (ub4 n : {1u, 7u, 8u, 9u, 64u, 100u, 777u}) {
        for (double density : {0.0, 0.05, 0.5, 1.0}) {
            const auto values = random_bytes(rng, n, 2);
            auto col = byte_column(values);
            const auto aux = random_bits(rng, n, density), filter = random_bits(rng, n, 0.7);
            col->vec.filter_bv = filter.data();
            std::set<ub4> tested;
            ByteEquals cmp{1, &tested};
            vorn_kernel_ctx k = host.kctx();
            k.bv_aux = aux.data();
            k.flags = VORN_CTX_SELECTIVE;
            Result res(n);
            const ub8 code = vorn::compare_frame(&res.vec, &col->vec, cmp, &k);
            expect_result(res, model(values, 1, filter.data(), aux.data()), code);
            EXPECT_EQ(k.done_flags, VORN_DONE_BV_AUX);
            std::set<ub4> selected;
            for (ub4 i = 0; i < n; ++i)
                if (vornhost::test_bit(aux.data(), i)) selected.insert(i);
            EXPECT_EQ(tested, selected) << "n " << n << " density " << density;
        }
    }
}

TEST(CompareFrame, OnesBehindTheLastRowOfTheSelectionAndFilterCountForNothing) {
    TestHost host;
    for (ub4 n : {1u, 63u, 70u, 130u}) {
        auto col = byte_column(std::vector<ub8>(n, 1));
        std::vector<ub8> aux(n / 64 + 2, ~0ull), filter(n / 64 + 2, ~0ull);
        col->vec.filter_bv = filter.data();
        for (bool selective : {false, true}) {
            vorn_kernel_ctx k = host.kctx();
            k.bv_aux = aux.data();
            k.flags = selective ? VORN_CTX_SELECTIVE : 0;
            Result res(n);
            EXPECT_EQ(vorn::compare_frame(&res.vec, &col->vec, ByteEquals{1}, &k), 0u);
            EXPECT_EQ(res.vec.num_ones, n) << "n " << n << (selective ? " selective" : "");
            EXPECT_TRUE(res.clear_behind(n));
        }
    }
}

// ---- Run-length columns ------------------------------------------------------

struct ExpandProbe {
    static inline vorn_host_services *host;
    static inline vorn_kernel_ctx seen;
    static inline ub8 seen_bits;
    static ub8 expand(vorn_host_services *h, vorn_vec *res, vorn_vec *src, vorn_kernel_ctx *runs) {
        host = h;
        seen = *runs;
        seen_bits = runs->bv_aux[0];
        res->num_ones = 12345;
        return 77;
    }
};

TEST(CompareFrame, RunLengthColumnComparesRunsAndHandsOverToTheHost) {
    TestHost host;
    auto col = byte_column({5, 1, 1, 9, 1, 1});  // one code per run
    col->make_rle({3, 0, 10, 2, 1, 4}, 8, ExpandProbe::expand);
    // On a run-length column the filter and the selection have a bit per run.
    const std::vector<ub8> filter = {0b011111}, aux = {0b101110};
    col->vec.filter_bv = filter.data();
    vorn_kernel_ctx k = host.kctx();
    k.bv_aux = aux.data();
    Result res(col->vec.size);
    EXPECT_EQ(vorn::compare_frame(&res.vec, &col->vec, ByteEquals{1}, &k), 77u);
    EXPECT_EQ(ExpandProbe::host, &host.services);
    EXPECT_EQ(ExpandProbe::seen.bv_aux, col->rle_bv.data());
    EXPECT_EQ(ExpandProbe::seen_bits, 0b000110u);  // runs 1, 2, 4, 5 match; the ANDs leave 1, 2
    EXPECT_EQ(ExpandProbe::seen.num_ones, 2u);      // the count after the ANDs
    EXPECT_EQ(ExpandProbe::seen.host, nullptr);
    EXPECT_EQ(ExpandProbe::seen.flags, 0u);
    EXPECT_EQ(res.vec.num_ones, 12345u);  // the callback's count stands
}

// ---- Compressed columns --------------------------------------------------------

TEST(DecompressionSite, DecodesOnceAndCachesInTheCell) {
    TestHost host;
    host.use_copying_decoder();
    auto col = byte_column({1, 2, 1, 1});
    col->compress_by_copy();
    vorn_kernel_ctx k = host.kctx();
    Result res(4);
    EXPECT_EQ(vorn::compare_frame(&res.vec, &col->vec, ByteEquals{1}, &k), 0u);
    EXPECT_EQ(res.vec.num_ones, 3u);
    ASSERT_EQ(host.allocs.size(), 1u);
    EXPECT_EQ(host.allocs[0].name, "vorn_test_compare: vec1_decomp");
    EXPECT_EQ(host.allocs[0].bytes, 4u);
    EXPECT_EQ(host.allocs[0].eight, 8u);
    EXPECT_EQ(host.allocs[0].sixteen, 16u);
    EXPECT_EQ(host.allocs[0].tag, 0x7a6u);
    EXPECT_EQ(host.decode_calls, 1u);
    EXPECT_NE(col->cell, nullptr);

    // A second kernel finds the cell filled: no allocation, no decode.
    Result again(4);
    EXPECT_EQ(vorn::compare_frame(&again.vec, &col->vec, ByteEquals{2}, &k), 0u);
    EXPECT_EQ(again.vec.num_ones, 1u);
    EXPECT_EQ(host.allocs.size(), 1u);
    EXPECT_EQ(host.decode_calls, 1u);
}

struct DecoderProbe {
    static inline vorn_lomp_ctx seen;
    static inline ub4 capacity;
    static inline void **cell;          // the column's cache cell
    static inline bool cell_held_out;   // the cell held the buffer when the decode ran
    static ub8 fail(const vorn_lomp_ctx *ctx, const ub1 *, ub1 *out, ub4 *out_length, ub4 cap) {
        seen = *ctx;
        capacity = cap;
        cell_held_out = cell && *cell == out;
        EXPECT_EQ(*out_length, 0u);
        std::memset(out, 1, cap);  // what the host finds after the raise
        return 24;
    }
};

TEST(DecompressionSite, AFailedDecodeRaisesAndTheKernelGoesOn) {
    TestHost host;
    host.decoder = DecoderProbe::fail;
    host.services.decoder_flags = 0x20;
    auto col = byte_column({0, 0, 0});
    col->compress_by_copy();
    DecoderProbe::cell = &col->cell;
    vorn_kernel_ctx k = host.kctx();
    Result res(3);
    clear_raised();
    EXPECT_EQ(vorn::compare_frame(&res.vec, &col->vec, ByteEquals{1}, &k), 0u);
    EXPECT_EQ(res.vec.num_ones, 3u);  // the buffer as the decoder left it
    ASSERT_EQ(raised().size(), 1u);
    EXPECT_EQ(raised()[0].message, "vorn_test_compare: vorn_lomp_decode failed");
    EXPECT_EQ(raised()[0].env, host.services.env);
    EXPECT_EQ(raised()[0].error_context, TestHost::kErrorContext);
    EXPECT_EQ(DecoderProbe::seen.env, host.services.env);
    EXPECT_EQ(DecoderProbe::seen.heap, host.services.heap);
    EXPECT_EQ(DecoderProbe::seen.work_alloc, host.services.work_alloc);
    EXPECT_EQ(DecoderProbe::seen.work_free, host.services.work_free);
    EXPECT_EQ(DecoderProbe::seen.decoder_flag, 1u);
    EXPECT_EQ(DecoderProbe::capacity, 3u);
    EXPECT_TRUE(DecoderProbe::cell_held_out);  // alloc, cell, decode: the cell is filled first
    for (ub1 flags : {ub1{0x10}, ub1{0x08}}) {
        col->cell = nullptr;
        host.services.decoder_flags = flags;
        vorn::compare_frame(&res.vec, &col->vec, ByteEquals{1}, &k);
        EXPECT_EQ(DecoderProbe::seen.decoder_flag, flags == 0x10 ? 1u : 0u);
    }
    clear_raised();
}

}  // namespace
