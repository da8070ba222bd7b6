// dict_bit2.h - the compares of 2-bit codes by their truth table.  A 2-bit
// code has four values, so once the literals are known every form is a
// table of four answers, and a nibble of the stream (two codes) a table of
// sixteen: two nibble lookups give a byte's four rows, no lane compare.
//
// A byte holds rows 4i..4i+3 from its top bits down.  The high nibble's
// table gives rows 4i and 4i+1 as bits 0 and 1, the low nibble's rows 4i+2
// and 4i+3 as bits 2 and 3; a multiply-add of byte pairs by 1 and 16 puts
// two bytes' rows into one result byte, and a pack makes the 16 bytes of a
// block of 128 rows.  The answers come from the row rule itself, so the
// bits are those of the row-by-row compare for any literal, also one above
// the code range.
#pragma once

#include <nmmintrin.h>

#include "predicate/dict_rows.h"
#include "predicate/lanes.h"

namespace vorn::dict {

template <Cmp C, bool Null>
class Bit2Compare {
    __m128i high_rows_, low_rows_;
    ub4 a_, b_;

    VORN_INLINE __m128i rows_of_bytes(__m128i v) const {
        const __m128i nibble = _mm_set1_epi8(0x0f);
        const __m128i lo = _mm_and_si128(v, nibble), hi = _mm_and_si128(_mm_srli_epi16(v, 4), nibble);
        return _mm_or_si128(_mm_shuffle_epi8(high_rows_, hi), _mm_shuffle_epi8(low_rows_, lo));
    }

    // 128 rows from 32 bytes at p: 16 result bytes at o; returns the count.
    VORN_INLINE ub8 block(const ub1 *p, ub1 *o) const {
        const __m128i pair = _mm_set1_epi16(0x1001);  // even byte times 1, odd byte times 16
        const __m128i r0 = rows_of_bytes(_mm_loadu_si128(reinterpret_cast<const __m128i *>(p)));
        const __m128i r1 = rows_of_bytes(_mm_loadu_si128(reinterpret_cast<const __m128i *>(p + 16)));
        const __m128i bits = _mm_packus_epi16(_mm_maddubs_epi16(r0, pair), _mm_maddubs_epi16(r1, pair));
        _mm_storeu_si128(reinterpret_cast<__m128i *>(o), bits);
        return _mm_popcnt_u64(static_cast<ub8>(_mm_cvtsi128_si64(bits))) +
               _mm_popcnt_u64(static_cast<ub8>(_mm_extract_epi64(bits, 1)));
    }

    VORN_INLINE ub8 scan_here(ub8 *out, const ub1 *stream, ub4 n) const {
        const ub8 blocks = n / 128;
        ub1 *o = reinterpret_cast<ub1 *>(out);
        ub8 count = 0;
        for (ub8 b = 0; b < blocks; ++b) count += block(stream + 32 * b, o + 16 * b);
        std::memset(o + 16 * blocks, 0, words_for_bits(n) * 8 - 16 * blocks);
        return count + scalar_rows<2, C, Null>(out, stream, blocks * 128, n, a_, b_);
    }

public:
    using Text = KernelText<kernel_name<dispatch_index(width_code(2), VORN_ENC_DICT, static_cast<ub4>(C), Null)>()>;

    Bit2Compare(ub4 a, ub4 b) : a_(a), b_(b) {
        ub1 answer[4];
        for (ub4 code = 0; code < 4; ++code) answer[code] = row_matches<C, Null>(code, a, b) ? 1 : 0;
        alignas(16) ub1 high[16], low[16];
        for (ub4 nib = 0; nib < 16; ++nib) {
            high[nib] = static_cast<ub1>(answer[nib >> 2] | answer[nib & 3] << 1);
            low[nib] = static_cast<ub1>(answer[nib >> 2] << 2 | answer[nib & 3] << 3);
        }
        high_rows_ = _mm_load_si128(reinterpret_cast<const __m128i *>(high));
        low_rows_ = _mm_load_si128(reinterpret_cast<const __m128i *>(low));
    }

    // All n rows: whole blocks, the words behind them cleared, the tail by
    // the reference read.  A copy on the stack, which no store to out can
    // alias, keeps the tables in registers.
    ub8 scan(ub8 *out, const ub1 *stream, ub4 n) const {
        const Bit2Compare k = *this;
        return k.scan_here(out, stream, n);
    }

    VORN_INLINE bool test(const ub1 *stream, ub4 row) const {
        return row_matches<C, Null>(static_cast<ub4>(read_code<2>(stream, row)), a_, b_);
    }
};

}  // namespace vorn::dict
