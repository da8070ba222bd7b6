// burst.cpp - run bits to row bits: the four vorn_burst_rle_* kernels.
//
// Rows of a run are set by read-modify-write of the unaligned 64-bit word at
// the run's first byte, shifted by the row's bit in that byte: up to 56 bits
// a write, so that a run of at most 56 rows costs one write whatever its
// alignment.  A longer run first writes 56 ones (len - 1) / 56 times, each
// 7 bytes further on, and its remainder of 1 to 56 bits last.  Clearing
// does the same with exclusive-or, on rows known to be set.
#include "decode/burst.h"

#include <nmmintrin.h>

#include "decode/burst_entries.h"
#include "decode/packed_lanes.h"
#include "decode/run_lengths.h"
#include "frame/entries.h"
#include "frame/fail.h"

namespace vorn::burst {
namespace {

constexpr ub8 kOnes56 = (ub8{1} << 56) - 1;

// Clear = false: set len rows from row p; Clear = true: flip them, which
// clears rows that are set.
template <bool Clear>
VORN_INLINE void write_run(ub8 *bv, ub8 p, ub8 len) {
    if (len == 0) return;  // and touch no byte: p may be the row count
    ub1 *at = reinterpret_cast<ub1 *>(bv) + (p >> 3);
    const ub4 shift = static_cast<ub4>(p & 7);
    while (len > 56) {
        const ub8 w = load<ub8>(at);
        store<ub8>(at, Clear ? w ^ (kOnes56 << shift) : w | (kOnes56 << shift));
        at += 7;
        len -= 56;
    }
    const ub8 m = ((ub8{1} << len) - 1) << shift;
    const ub8 w = load<ub8>(at);
    store<ub8>(at, Clear ? w ^ m : w | m);
}

VORN_INLINE void zero_rows(ub8 *bv, ub4 rows) { std::memset(bv, 0, words_for_bits(rows) * 8); }
VORN_INLINE void fill_rows(ub8 *bv, ub4 rows) { std::memset(bv, 0xff, words_for_bits(rows) * 8); }

// After a fill with ones: the bits behind the last row go back to 0.
VORN_INLINE void clear_behind(ub8 *bv, ub4 rows) {
    if (rows & 63) bv[rows >> 6] &= (ub8{1} << (rows & 63)) - 1;
}

// Sum of the lengths of runs [from, to), eight at a time by vector.
template <ub4 LenBytes>
VORN_INLINE ub8 sum_lengths(const ub1 *lens, ub8 from, ub8 to) {
    __m128i acc = _mm_setzero_si128();
    const __m128i zero = _mm_setzero_si128();
    if constexpr (LenBytes == 1) {
        for (; to - from >= 8; from += 8)
            acc = _mm_add_epi64(acc, _mm_sad_epu8(_mm_loadl_epi64(reinterpret_cast<const __m128i *>(lens + from)), zero));
    } else {
        // Big-endian: the high byte of each length is at the even address,
        // the low byte of its 16-bit lane.  Sum high bytes * 256 + low bytes.
        const __m128i low_bytes = _mm_set1_epi16(0x00ff);
        __m128i high = _mm_setzero_si128();
        for (; to - from >= 8; from += 8) {
            const __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i *>(lens + 2 * from));
            high = _mm_add_epi64(high, _mm_sad_epu8(_mm_and_si128(x, low_bytes), zero));
            acc = _mm_add_epi64(acc, _mm_sad_epu8(_mm_srli_epi16(x, 8), zero));
        }
        acc = _mm_add_epi64(acc, _mm_slli_epi64(high, 8));
    }
    ub8 s = static_cast<ub8>(_mm_cvtsi128_si64(acc)) + static_cast<ub8>(_mm_extract_epi64(acc, 1));
    for (; from < to; ++from) s += runs::length<LenBytes>(lens, from);
    return s;
}

// Sparse and near-full: walk the ones (or, Clear, the zeros) of the run bit
// vector, and find each run's row by summing the lengths since the last.
template <ub4 LenBytes, bool Clear>
ub8 walk(ub8 *bv, const ub8 *run_bv, const ub1 *lens, ub4 runs) {
    vorn_bv_iter it;
    vorn_lbiwv_ictx_ini2_dydi(&it, run_bv, runs, Clear ? 1 : 0, 0);
    ub8 row = 0, next_run = 0, rows = 0;
    for (;;) {
        const ub8 r = Clear ? vorn_lbiwviter_clr_dydi(&it) : vorn_lbiwviter_dydi(&it);
        if (r == VORN_LBIWV_END) break;
        row += sum_lengths<LenBytes>(lens, next_run, r);
        const ub4 len = runs::length<LenBytes>(lens, r);
        write_run<Clear>(bv, row, len);
        rows += len;
        row += len;
        next_run = r + 1;
    }
    return rows;
}

// Exclusive prefix sums of a block's 64 lengths: start[i] is the row of run
// i from the block's first row.  Returns the block's total.
//   ub1 lengths: 16-bit lanes (64 * 255 fits), eight groups of eight, each
//   group summed in its lanes and added to the previous group's last lane,
//   which a byte shuffle broadcasts.
//   ub2 lengths: byte-swapped into 32-bit lanes, sixteen groups of four.
template <ub4 LenBytes>
struct BlockPrefix;

template <>
struct BlockPrefix<1> {
    using Start = ub2;
    static VORN_INLINE ub4 build(const ub1 *lens, Start *start) {
        const __m128i last_lane = _mm_set1_epi16(0x0f0e);
        __m128i carry = _mm_setzero_si128();
        lanes::static_for<8>([&](auto k) {
            const __m128i x = _mm_cvtepu8_epi16(_mm_loadl_epi64(reinterpret_cast<const __m128i *>(lens + 8 * k)));
            __m128i s = _mm_add_epi16(x, _mm_slli_si128(x, 2));
            s = _mm_add_epi16(s, _mm_slli_si128(s, 4));
            s = _mm_add_epi16(s, _mm_slli_si128(s, 8));
            s = _mm_add_epi16(s, carry);
            _mm_store_si128(reinterpret_cast<__m128i *>(start + 8 * k), _mm_sub_epi16(s, x));
            carry = _mm_shuffle_epi8(s, last_lane);
        });
        return static_cast<ub4>(_mm_extract_epi16(carry, 0));
    }
};

// Byte shuffle of four big-endian ub2 into four native ub4.
constexpr std::array<ub1, 16> kSwapToLanes32 = [] {
    std::array<ub1, 16> m{};
    for (ub4 k = 0; k < 4; ++k) {
        m[4 * k] = static_cast<ub1>(2 * k + 1);
        m[4 * k + 1] = static_cast<ub1>(2 * k);
        m[4 * k + 2] = 0x80;
        m[4 * k + 3] = 0x80;
    }
    return m;
}();

template <>
struct BlockPrefix<2> {
    using Start = ub4;
    static VORN_INLINE ub4 build(const ub1 *lens, Start *start) {
        const __m128i swap = _mm_loadu_si128(reinterpret_cast<const __m128i *>(kSwapToLanes32.data()));
        __m128i carry = _mm_setzero_si128();
        lanes::static_for<16>([&](auto k) {
            const __m128i x =
                _mm_shuffle_epi8(_mm_loadl_epi64(reinterpret_cast<const __m128i *>(lens + 8 * k)), swap);
            __m128i s = _mm_add_epi32(x, _mm_slli_si128(x, 4));
            s = _mm_add_epi32(s, _mm_slli_si128(s, 8));
            s = _mm_add_epi32(s, carry);
            _mm_store_si128(reinterpret_cast<__m128i *>(start + 4 * k), _mm_sub_epi32(s, x));
            carry = _mm_shuffle_epi32(s, 0xff);
        });
        return static_cast<ub4>(_mm_cvtsi128_si32(carry));
    }
};

// Middle paths: blocks of 64 runs, one word of the run bit vector a block.
// Clear = false takes the ones onto zeroed rows, Clear = true the zeros off
// rows that are all set.  Returns the rows written.
template <ub4 LenBytes, bool Clear>
ub8 blocks(ub8 *bv, const ub8 *run_bv, const ub1 *lens, ub4 runs) {
    using P = BlockPrefix<LenBytes>;
    alignas(16) typename P::Start start[64];
    ub8 base = 0, rows = 0;
    const ub4 full = runs / 64;
    for (ub4 b = 0; b < full; ++b) {
        const ub1 *block = lens + static_cast<ub8>(b) * 64 * LenBytes;
        const ub4 total = P::build(block, start);
        for (ub8 word = Clear ? ~run_bv[b] : run_bv[b]; word != 0; word &= word - 1) {
            const ub4 i = static_cast<ub4>(__builtin_ctzll(word));
            const ub4 len = runs::length<LenBytes>(block, i);
            write_run<Clear>(bv, base + start[i], len);
            rows += len;
        }
        base += total;
    }
    // The last partial block: the low runs % 64 bits of its word, and the
    // prefix sums one at a time.
    if (const ub4 rest = runs & 63) {
        const ub1 *block = lens + static_cast<ub8>(full) * 64 * LenBytes;
        ub8 word = (Clear ? ~run_bv[full] : run_bv[full]) & ((ub8{1} << rest) - 1);
        for (ub4 i = 0; word != 0; ++i, word >>= 1) {
            const ub4 len = runs::length<LenBytes>(block, i);
            if (word & 1) {
                write_run<Clear>(bv, base, len);
                rows += len;
            }
            base += len;
        }
    }
    return rows;
}

}  // namespace

template <ub4 LenBytes>
ub8 expand_by_lengths(ub8 *bv, const ub8 *run_bv, ub8 ones, const vorn_enc_ctx *enc, ub4 rows) {
    const ub1 *lens = static_cast<const ub1 *>(enc->rle_lens);
    const ub4 runs = enc->rle_runs;
    switch (choose_path(ones, runs)) {
        case Path::sparse:
            zero_rows(bv, rows);
            return walk<LenBytes, false>(bv, run_bv, lens, runs);
        case Path::near_full: {
            fill_rows(bv, rows);
            const ub8 cleared = walk<LenBytes, true>(bv, run_bv, lens, runs);
            clear_behind(bv, rows);
            return rows - cleared;
        }
        case Path::middle_low:
            zero_rows(bv, rows);
            return blocks<LenBytes, false>(bv, run_bv, lens, runs);
        case Path::middle_high: {
            fill_rows(bv, rows);
            const ub8 cleared = blocks<LenBytes, true>(bv, run_bv, lens, runs);
            clear_behind(bv, rows);
            return rows - cleared;
        }
    }
    return 0;
}

template ub8 expand_by_lengths<1>(ub8 *, const ub8 *, ub8, const vorn_enc_ctx *, ub4);
template ub8 expand_by_lengths<2>(ub8 *, const ub8 *, ub8, const vorn_enc_ctx *, ub4);

ub8 expand_by_cla(ub8 *bv, const ub8 *run_bv, ub8 ones, const vorn_enc_ctx *enc, ub4 rows) {
    const ub1 *cla = static_cast<const ub1 *>(enc->rle_cla);
    const ub4 runs = enc->rle_runs;
    const bool take_ones = ones <= runs / 2;
    if (take_ones)
        zero_rows(bv, rows);
    else
        fill_rows(bv, rows);
    vorn_bv_iter it;
    vorn_lbiwv_ictx_ini2_dydi(&it, run_bv, runs, take_ones ? 0 : 1, 0);
    ub8 written = 0;
    for (;;) {
        const ub8 r = take_ones ? vorn_lbiwviter_dydi(&it) : vorn_lbiwviter_clr_dydi(&it);
        if (r == VORN_LBIWV_END) break;
        const ub4 first = load_be32(cla + 4 * r), end = load_be32(cla + 4 * (r + 1));
        if (take_ones)
            write_run<false>(bv, first, end - first);
        else
            write_run<true>(bv, first, end - first);
        written += end - first;
    }
    if (take_ones) return written;
    clear_behind(bv, rows);
    return rows - written;
}

}  // namespace vorn::burst

namespace vorn {

template <ub4 LenBits, bool Cla>
ub8 burst_rle(vorn_vec *res, vorn_vec *src, vorn_kernel_ctx *kctx) {
    using Text = KernelText<kernel_name<burst_index(LenBits, Cla)>()>;
    VORN_ASSERT(VORN_ENC_CTX_FLAG(VORN_VEC_ENC_CTX(src), VORN_RLE), Text::name.s);
    ub8 *const vorn_bv_res = res->res_bv;
    const ub8 *const vorn_bv_aux = kctx->bv_aux;
    VORN_ASSERT(vorn_bv_res != vorn_bv_aux, Text::name.s);
    const ub8 rows =
        Cla ? burst::expand_by_cla(vorn_bv_res, vorn_bv_aux, kctx->num_ones, src->enc_ctx, res->size)
            : burst::expand_by_lengths<LenBits / 8>(vorn_bv_res, vorn_bv_aux, kctx->num_ones, src->enc_ctx,
                                                     res->size);
    res->num_ones = static_cast<ub4>(rows);
    return rows == 0 ? 1 : 0;
}

template ub8 burst_rle<8, false>(vorn_vec *, vorn_vec *, vorn_kernel_ctx *);
template ub8 burst_rle<8, true>(vorn_vec *, vorn_vec *, vorn_kernel_ctx *);
template ub8 burst_rle<16, false>(vorn_vec *, vorn_vec *, vorn_kernel_ctx *);
template ub8 burst_rle<16, true>(vorn_vec *, vorn_vec *, vorn_kernel_ctx *);

}  // namespace vorn
