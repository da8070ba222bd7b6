// dict_nibble_table.h - the compares of 2- and 4-bit codes by their truth
// table.  Such a code has four or sixteen values, so once the literals are
// known every form is a table of that many answers, and a nibble of the
// stream (two 2-bit codes or one 4-bit code) indexes a table of its rows'
// answers: two nibble lookups give a byte's rows, no lane compare.
//
// A byte holds its rows from its top bits down.  The high nibble's table
// gives the first rows of the byte as its low bits, the low nibble's table
// the rest above them: four bits a byte for width 2, two for width 4.
// Multiply-adds join neighbouring bytes (by 1 and 16 for width 2; by 1 and
// 4, then 1 and 16 for width 4) into whole result bytes, and packs make the
// 16 bytes of a block of 128 rows.  The answers come from the row rule
// itself, so the bits are those of the row-by-row compare for any literal,
// also one above the code range.
#pragma once

#include <nmmintrin.h>

#include "predicate/dict_rows.h"
#include "predicate/lanes.h"

namespace vorn::dict {

constexpr bool is_nibble_table_width(ub4 w) { return w == 2 || w == 4; }

template <ub4 W, Cmp C, bool Null>
class NibbleTableCompare {
    static_assert(is_nibble_table_width(W));
    static constexpr ub4 kCodesPerNibble = 4 / W;
    static constexpr ub4 kBlockBytes = 128 * W / 8;  // 32 or 64: two or four vectors

    __m128i high_rows_, low_rows_;
    ub4 a_, b_;

    // The answers of a byte's rows in its low 8 / W bits, for 16 bytes.
    VORN_INLINE __m128i rows_of_bytes(const ub1 *p) const {
        return lanes::nibble_lookup(_mm_loadu_si128(reinterpret_cast<const __m128i *>(p)), high_rows_, low_rows_);
    }

    // 128 rows from the block at p: 16 result bytes at o; returns the count.
    VORN_INLINE ub8 block(const ub1 *p, ub1 *o) const {
        __m128i bits;
        if constexpr (W == 2) {
            const __m128i pair = _mm_set1_epi16(0x1001);  // even byte times 1, odd byte times 16
            bits = _mm_packus_epi16(_mm_maddubs_epi16(rows_of_bytes(p), pair),
                                    _mm_maddubs_epi16(rows_of_bytes(p + 16), pair));
        } else {
            const __m128i pair = _mm_set1_epi16(0x0401), quad = _mm_set1_epi32(0x00100001);
            auto bytes_of_four = [&](const ub1 *q) {  // 32-bit lanes of 8 rows each
                return _mm_madd_epi16(_mm_maddubs_epi16(rows_of_bytes(q), pair), quad);
            };
            bits = _mm_packus_epi16(_mm_packs_epi32(bytes_of_four(p), bytes_of_four(p + 16)),
                                    _mm_packs_epi32(bytes_of_four(p + 32), bytes_of_four(p + 48)));
        }
        _mm_storeu_si128(reinterpret_cast<__m128i *>(o), bits);
        return _mm_popcnt_u64(static_cast<ub8>(_mm_cvtsi128_si64(bits))) +
               _mm_popcnt_u64(static_cast<ub8>(_mm_extract_epi64(bits, 1)));
    }

    VORN_INLINE ub8 scan_here(ub8 *out, const ub1 *stream, ub4 n) const {
        const ub8 blocks = n / 128;
        ub1 *o = reinterpret_cast<ub1 *>(out);
        ub8 count = 0;
        for (ub8 b = 0; b < blocks; ++b) count += block(stream + kBlockBytes * b, o + 16 * b);
        std::memset(o + 16 * blocks, 0, words_for_bits(n) * 8 - 16 * blocks);
        return count + scalar_rows<W, C, Null>(out, stream, blocks * 128, n, a_, b_);
    }

public:
    using Text = KernelText<kernel_name<dispatch_index(width_code(W), VORN_ENC_DICT, static_cast<ub4>(C), Null)>()>;

    NibbleTableCompare(ub4 a, ub4 b) : a_(a), b_(b) {
        ub1 answer[16];
        for (ub4 code = 0; code < (1u << W); ++code) answer[code] = row_matches<C, Null>(code, a, b) ? 1 : 0;
        alignas(16) ub1 high[16], low[16];
        for (ub4 nib = 0; nib < 16; ++nib) {
            high[nib] = low[nib] = 0;
            for (ub4 k = 0; k < kCodesPerNibble; ++k) {  // code k of the nibble, from its top bits
                const ub1 hit = answer[(nib >> (4 - W * (k + 1))) & ((1u << W) - 1)];
                high[nib] = static_cast<ub1>(high[nib] | hit << k);
                low[nib] = static_cast<ub1>(low[nib] | hit << (k + kCodesPerNibble));
            }
        }
        high_rows_ = _mm_load_si128(reinterpret_cast<const __m128i *>(high));
        low_rows_ = _mm_load_si128(reinterpret_cast<const __m128i *>(low));
    }

    // All n rows: whole blocks, the words behind them cleared, the tail by
    // the reference read.  A copy on the stack, which no store to out can
    // alias, keeps the tables in registers.
    ub8 scan(ub8 *out, const ub1 *stream, ub4 n) const {
        const NibbleTableCompare k = *this;
        return k.scan_here(out, stream, n);
    }

    VORN_INLINE bool test(const ub1 *stream, ub4 row) const {
        return row_matches<C, Null>(static_cast<ub4>(read_code<W>(stream, row)), a_, b_);
    }
};

}  // namespace vorn::dict
