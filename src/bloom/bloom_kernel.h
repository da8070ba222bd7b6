// bloom_kernel.h - the Bloom filter test, one template over the hash width,
// the bits tested, the filter's form and the row walk.
//
// All rows, start_row .. size-1:
//   lead-in  rows one at a time up to the next multiple of 8, so that the
//            blocks write whole bytes of the result;
//   blocks   16 rows: the swapped hash words by shuffle, the filter offsets
//            and bit numbers by vector, the filter bytes fetched one lane at
//            a time into a register, each tested against its bit through
//            vorn_bit_possible, 16 result bits ORed in as one ub2.  The hash
//            stream is prefetched 640 and 704 bytes ahead, non-temporally:
//            it is read once, and the cache is the filter's;
//   tail     the rest one at a time.
// A selection walks the rows of bv_aux with the bit-vector iterator, in
// batches, and tests each by the scalar rule.
// The kernel sets bits and clears none.  It counts the passing rows and
// keeps the first and the last.
#pragma once

#include <nmmintrin.h>

#include <utility>

#include "bloom/bloom_rule.h"
#include "frame/entries.h"

namespace vorn::bloom {

inline constexpr ub4 kNoRow = VORN_BLOOM_NO_ROW;
inline constexpr ub4 kPrefetchNear = 640, kPrefetchFar = 704;
inline constexpr ub4 kSelectionBatch = 64;

struct Tally {
    ub4 count = 0, first = kNoRow, last = kNoRow;
    VORN_INLINE void add_row(ub8 row) {
        ++count;
        last = static_cast<ub4>(row);
        if (first == kNoRow) first = static_cast<ub4>(row);
    }
    VORN_INLINE void add_block(ub8 row, ub4 passed) {
        if (!passed) return;
        count += static_cast<ub4>(__builtin_popcount(passed));
        last = static_cast<ub4>(row + 31 - static_cast<ub4>(__builtin_clz(passed)));
        if (first == kNoRow) first = static_cast<ub4>(row + static_cast<ub4>(__builtin_ctz(passed)));
    }
};

VORN_INLINE __m128i vec(const std::array<ub1, 16> &t) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i *>(t.data()));
}

template <bool Paged, bool TwoBit>
VORN_INLINE void test_row(const Filter &f, ub4 h, ub8 row, ub1 *bits, Tally &t) {
    if (passes<Paged, TwoBit>(f, h)) {
        bits[row >> 3] = static_cast<ub1>(bits[row >> 3] | (1u << (row & 7)));
        t.add_row(row);
    }
}

// The filter registers of a call.
struct FilterVec {
    __m128i mask, bit_mask, second_mask, page_shift, word_bits, seven;
    explicit FilterVec(const Filter &f)
        : mask(_mm_set1_epi32(static_cast<int>(f.mask))),
          bit_mask(_mm_set1_epi32(static_cast<int>(f.bit_mask))),
          second_mask(_mm_set1_epi32(static_cast<int>(f.second_mask))),
          page_shift(_mm_cvtsi32_si128(static_cast<int>(f.page_shift))),
          word_bits(_mm_set1_epi32(~63)),
          seven(_mm_set1_epi32(7)) {}
};

// Lane values of four hash words: the filter bit numbers (within the page
// when paged) into *bitno, the page numbers into *page.  Two-bit lanes come
// in pairs [h, h, h', h']: the first of a pair tests b1, the second b2.
template <bool Paged, bool TwoBit>
VORN_INLINE void lane_bits(const FilterVec &v, __m128i h, __m128i *bitno, __m128i *page) {
    const __m128i a = _mm_and_si128(h, v.mask);
    __m128i b1 = a;
    if constexpr (Paged) {
        *page = _mm_srl_epi32(a, v.page_shift);
        b1 = _mm_and_si128(a, v.bit_mask);
    }
    if constexpr (!TwoBit) {
        *bitno = b1;
    } else {
        const __m128i second = _mm_and_si128(_mm_srli_epi32(h, 26), v.second_mask);
        const __m128i b2 = _mm_or_si128(_mm_and_si128(b1, v.word_bits), second);
        *bitno = _mm_blend_epi16(b1, b2, 0xCC);
    }
}

// The filter bytes of 16 lanes, one scalar load each, into one register.
template <bool Paged, std::size_t... I>
VORN_INLINE __m128i fetch_bytes(const Filter &f, const ub4 *offset, const ub4 *page, std::index_sequence<I...>) {
    __m128i g = _mm_setzero_si128();
    if constexpr (Paged) ((g = _mm_insert_epi8(g, f.pages[page[I]][offset[I]], I)), ...);
    else ((g = _mm_insert_epi8(g, f.bytes[offset[I]], I)), ...);
    return g;
}

// 16 lanes of bit numbers (four registers) to a register of lanes whose
// byte is 0 when the filter bit is clear, in the lanes' order.
template <bool Paged>
VORN_INLINE __m128i test_lanes(const Filter &f, const FilterVec &v, const __m128i *bitno, const __m128i *page) {
    alignas(16) ub4 offset[16];
    alignas(16) ub4 pages[16];
    for (ub4 j = 0; j < 4; ++j) {
        _mm_store_si128(reinterpret_cast<__m128i *>(offset) + j, _mm_srli_epi32(bitno[j], 3));
        if constexpr (Paged) _mm_store_si128(reinterpret_cast<__m128i *>(pages) + j, page[j]);
    }
    const __m128i bytes = fetch_bytes<Paged>(f, offset, pages, std::make_index_sequence<16>());
    const __m128i low = _mm_packus_epi32(_mm_and_si128(bitno[0], v.seven), _mm_and_si128(bitno[1], v.seven));
    const __m128i high = _mm_packus_epi32(_mm_and_si128(bitno[2], v.seven), _mm_and_si128(bitno[3], v.seven));
    const __m128i bit = _mm_shuffle_epi8(vec(vorn_bit_possible), _mm_packus_epi16(low, high));
    return _mm_and_si128(bytes, bit);
}

// 16 rows from `row`; returns their pass bits, row r + k in bit k.
template <ub4 HashBytes, bool Paged, bool TwoBit>
VORN_INLINE ub4 test_block(const Filter &f, const FilterVec &v, const ub1 *hashes, ub8 row) {
    const ub1 *at = hashes + row * HashBytes;
    _mm_prefetch(reinterpret_cast<const char *>(at) + kPrefetchNear, _MM_HINT_NTA);
    _mm_prefetch(reinterpret_cast<const char *>(at) + kPrefetchFar, _MM_HINT_NTA);
    const auto *in = reinterpret_cast<const __m128i *>(at);
    const __m128i zero = _mm_setzero_si128();

    // Two-bit: eight registers of lanes [h, h, h', h'], rows 2k and 2k + 1.
    // One-bit: four registers of rows 4j + (0, 2, 1, 3).
    __m128i hw[8];
    if constexpr (HashBytes == 8) {
        const __m128i dup = vec(vorn_dup_bswapped_hi32);
        for (ub4 k = 0; k < 8; ++k) hw[k] = _mm_shuffle_epi8(_mm_loadu_si128(in + k), dup);
        if constexpr (!TwoBit)
            for (ub4 j = 0; j < 4; ++j) hw[j] = _mm_blend_epi16(hw[2 * j], hw[2 * j + 1], 0xCC);
    } else if constexpr (TwoBit) {
        const __m128i lo = vec(vorn_dup_bswapped_lo64), hi = vec(vorn_dup_bswapped_hi64);
        for (ub4 j = 0; j < 4; ++j) {
            const __m128i x = _mm_loadu_si128(in + j);
            hw[2 * j] = _mm_shuffle_epi8(x, lo);
            hw[2 * j + 1] = _mm_shuffle_epi8(x, hi);
        }
    } else {
        const __m128i order = vec(vorn_bswapped_02_13);
        for (ub4 j = 0; j < 4; ++j) hw[j] = _mm_shuffle_epi8(_mm_loadu_si128(in + j), order);
    }

    if constexpr (!TwoBit) {
        __m128i bitno[4], page[4];
        for (ub4 j = 0; j < 4; ++j) lane_bits<Paged, false>(v, hw[j], &bitno[j], &page[j]);
        const __m128i clear = _mm_cmpeq_epi8(test_lanes<Paged>(f, v, bitno, page), zero);
        const __m128i rows = _mm_shuffle_epi8(clear, vec(vorn_bloom_reorder_16));
        return ~static_cast<ub4>(_mm_movemask_epi8(rows)) & 0xffffu;
    } else {
        __m128i bitno[8], page[8];
        for (ub4 k = 0; k < 8; ++k) lane_bits<Paged, true>(v, hw[k], &bitno[k], &page[k]);
        // A row passes when both bytes of its 16-bit lane are non-zero.
        __m128i both[2];
        for (ub4 half = 0; half < 2; ++half) {
            const __m128i clear = _mm_cmpeq_epi8(test_lanes<Paged>(f, v, bitno + 4 * half, page + 4 * half), zero);
            both[half] = _mm_cmpeq_epi16(clear, zero);
        }
        return static_cast<ub4>(_mm_movemask_epi8(_mm_packs_epi16(both[0], both[1])));
    }
}

template <ub4 HashBytes, bool Paged, bool TwoBit>
VORN_INLINE Tally test_all_rows(const Filter &f, const ub1 *hashes, ub1 *bits, ub8 start, ub8 end) {
    Tally t;
    ub8 row = start;
    const ub8 lead_end = (start + 7) & ~ub8{7};
    for (; row < end && row < lead_end; ++row)
        test_row<Paged, TwoBit>(f, hash_word<HashBytes>(hashes, row), row, bits, t);

    const FilterVec v(f);
    for (; row + 16 <= end; row += 16) {
        const ub4 passed = test_block<HashBytes, Paged, TwoBit>(f, v, hashes, row);
        if (passed) {
            ub1 *out = bits + (row >> 3);
            store<ub2>(out, static_cast<ub2>(load<ub2>(out) | passed));
            t.add_block(row, passed);
        }
    }

    for (; row < end; ++row) test_row<Paged, TwoBit>(f, hash_word<HashBytes>(hashes, row), row, bits, t);
    return t;
}

template <ub4 HashBytes, bool Paged, bool TwoBit>
VORN_INLINE Tally test_selected_rows(const Filter &f, const ub1 *hashes, ub1 *bits, const ub8 *selection,
                                     ub8 start, ub8 end) {
    Tally t;
    vorn_bv_iter it;
    vorn_lbiwv_ictx_ini2_dydi(&it, selection, end, 0, start);
    ub4 rows[kSelectionBatch];
    for (;;) {
        const ub4 got = vorn_lbiwvones_dydi(&it, rows, kSelectionBatch);
        for (ub4 k = 0; k < got; ++k)
            test_row<Paged, TwoBit>(f, hash_word<HashBytes>(hashes, rows[k]), rows[k], bits, t);
        if (got < kSelectionBatch) break;
    }
    return t;
}

// One of the eight kernels: the refusal, the walk by the filter's form, the
// results.
template <ub4 HashBytes, bool TwoBit, bool Selective>
VORN_INLINE ub8 bloom_kernel(vorn_vec *res, vorn_vec *src, vorn_vec *filter, vorn_kernel_ctx *kctx) {
    if (!VORN_ENC_CTX_FLAG(src->enc_ctx, VORN_ALIGNED)) return 2;
    const Filter f = Filter::of(filter);
    const ub1 *hashes = static_cast<const ub1 *>(src->data);
    ub1 *bits = reinterpret_cast<ub1 *>(res->res_bv);
    const ub8 start = kctx ? kctx->start_row : 0;
    const ub8 end = src->size;
    Tally t;
    if (start < end) {
        const bool paged = filter->enc_ctx->bloom_paged != 0;
        if constexpr (Selective) {
            t = paged ? test_selected_rows<HashBytes, true, TwoBit>(f, hashes, bits, kctx->bv_aux, start, end)
                      : test_selected_rows<HashBytes, false, TwoBit>(f, hashes, bits, kctx->bv_aux, start, end);
        } else {
            t = paged ? test_all_rows<HashBytes, true, TwoBit>(f, hashes, bits, start, end)
                      : test_all_rows<HashBytes, false, TwoBit>(f, hashes, bits, start, end);
        }
    }
    res->num_ones = t.count;
    store<ub4>(res->data, t.first);
    store<ub4>(static_cast<ub1 *>(res->data) + 4, t.last);
    return t.count ? 0 : 1;
}

}  // namespace vorn::bloom
