// dict_bit1.cpp - the one scan that all twenty 1-bit compares share.
#include "predicate/dict_bit1.h"

#include <emmintrin.h>

#include "frame/entries.h"

namespace vorn::dict {
namespace {

// Reverses the bits of every byte: adjacent bits, then pairs, then nibbles.
VORN_INLINE __m128i reverse_byte_bits(__m128i v) {
    const __m128i m1 = _mm_set1_epi8(0x55), m2 = _mm_set1_epi8(0x33), m4 = _mm_set1_epi8(0x0f);
    v = _mm_or_si128(_mm_and_si128(_mm_srli_epi64(v, 1), m1), _mm_slli_epi64(_mm_and_si128(v, m1), 1));
    v = _mm_or_si128(_mm_and_si128(_mm_srli_epi64(v, 2), m2), _mm_slli_epi64(_mm_and_si128(v, m2), 2));
    v = _mm_or_si128(_mm_and_si128(_mm_srli_epi64(v, 4), m4), _mm_slli_epi64(_mm_and_si128(v, m4), 4));
    return v;
}

// The rows of code 1: blocks of 128 rows (16 bytes) reversed, the words
// behind the last block cleared, the last rows by the reference read.
void rows_of_code_one(ub8 *out, const ub1 *stream, ub4 n) {
    const ub8 blocks = n / 128;
    for (ub8 b = 0; b < blocks; ++b) {
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i *>(stream + 16 * b));
        _mm_storeu_si128(reinterpret_cast<__m128i *>(out + 2 * b), reverse_byte_bits(v));
    }
    std::memset(out + 2 * blocks, 0, (words_for_bits(n) - 2 * blocks) * 8);
    for (ub8 i = blocks * 128; i < n; ++i)
        if (read_code_at<1>(stream, i)) out[i >> 6] |= ub8{1} << (i & 63);
}

// Clears the bits at n and beyond in the last word.
void clear_behind(ub8 *out, ub4 n) {
    if (n & 63) out[n >> 6] &= (ub8{1} << (n & 63)) - 1;
}

}  // namespace

ub8 bit1_scan(ub8 *out, const ub1 *stream, ub4 n, Bit1Outcome outcome) {
    const ub8 words = words_for_bits(n);
    ub4 count = 0;
    switch (outcome) {
        case Bit1Outcome::none:
            std::memset(out, 0, words * 8);
            return 0;
        case Bit1Outcome::all:
            std::memset(out, 0xff, words * 8);
            clear_behind(out, n);
            return n;
        case Bit1Outcome::stream:
            rows_of_code_one(out, stream, n);
            vorn_lbiwvand_dydi(out, &count, out, out, n);
            return count;
        case Bit1Outcome::complement:
            rows_of_code_one(out, stream, n);
            vorn_lbiwvnot_dydi(out, &count, out, n);
            clear_behind(out, n);
            return count;
    }
    return 0;
}

}  // namespace vorn::dict
