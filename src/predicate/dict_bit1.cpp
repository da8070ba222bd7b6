// dict_bit1.cpp - the one scan that all twenty 1-bit compares share: the
// stream with each byte's bits reversed, or its complement, counted as it
// is stored.
#include "predicate/dict_bit1.h"

#include <nmmintrin.h>

#include <array>
#include <cstdint>

#include "frame/entries.h"
#include "predicate/lanes.h"

namespace vorn::dict {
namespace {

// The bits of a nibble in reverse order, for n = 0..15, as shuffle rows: the
// low nibble of a byte goes to the high one reversed, and the other way.
// The complement's rows give each half complemented, so that the OR of the
// two halves is the complemented byte.
constexpr ub1 reversed_nibble(ub4 n) {
    return static_cast<ub1>((n & 1) << 3 | (n & 2) << 1 | (n & 4) >> 1 | (n & 8) >> 3);
}
constexpr std::array<ub1, 16> nibble_table(ub4 shift, bool complement) {
    std::array<ub1, 16> t{};
    for (ub4 n = 0; n < 16; ++n)
        t[n] = static_cast<ub1>(((complement ? 15 - reversed_nibble(n) : reversed_nibble(n))) << shift);
    return t;
}
alignas(16) constexpr std::array<ub1, 16> kLowToHigh[2] = {nibble_table(4, false), nibble_table(4, true)};
alignas(16) constexpr std::array<ub1, 16> kHighToLow[2] = {nibble_table(0, false), nibble_table(0, true)};

// Beyond this many result bytes the result cannot stay in the cache
// anyway: the stores bypass it, which spares the reads for ownership.
constexpr ub8 kStreamingBytes = ub8{1} << 20;

// Reverses the bits of every byte, complemented or not, by two nibble
// lookups.
template <bool Complement>
struct ByteReversal {
    __m128i low_to_high, high_to_low;
    ByteReversal()
        : low_to_high(_mm_load_si128(reinterpret_cast<const __m128i *>(kLowToHigh[Complement].data()))),
          high_to_low(_mm_load_si128(reinterpret_cast<const __m128i *>(kHighToLow[Complement].data()))) {}
    VORN_INLINE __m128i operator()(__m128i v) const { return lanes::nibble_lookup(v, high_to_low, low_to_high); }
};

// The set bits of the 8 bytes at p.  Written as the instruction itself so
// that the compiler does not clear the destination before each one: that
// guard is for cores whose popcnt waits on its destination's old value, and
// this loop is bound by the instructions it issues: the two clears a block
// cost it a tenth of its rate.  On such cores the unrolled loop below still
// leaves those chains short.
VORN_INLINE ub8 popcount_at(const ub1 *p) {
    ub8 r;
    asm("popcnt %1, %0" : "=r"(r) : "m"(*reinterpret_cast<const ub1(*)[8]>(p)));
    return r;
}

// The rows of code 1, or with Complement of code 0, of `blocks` blocks of
// 128 rows (16 bytes each): reversed, stored, and counted in one pass.  The
// count is that of the stream's own bits, which reversal keeps; the
// complement's is the rest of the rows.  Streaming stores need a result
// aligned to 16 bytes.
template <bool Complement, bool Streaming>
VORN_INLINE void one_block(const ByteReversal<Complement> &reverse, ub8 *out, const ub1 *p, ub8 &ones0, ub8 &ones1) {
    const __m128i v = reverse(_mm_loadu_si128(reinterpret_cast<const __m128i *>(p)));
    if constexpr (Streaming)
        _mm_stream_si128(reinterpret_cast<__m128i *>(out), v);
    else
        _mm_storeu_si128(reinterpret_cast<__m128i *>(out), v);
    ones0 += popcount_at(p);
    ones1 += popcount_at(p + 8);
}

// Four blocks a turn, with no prefetch instruction: the loop reads one
// forward stream, which the hardware prefetcher follows, and in cache every
// instruction issued counts.  The column and the result advance alike, so
// one offset addresses both.
template <bool Complement, bool Streaming>
ub8 blocks_of_rows(ub8 *out, const ub1 *stream, ub8 blocks) {
    const ByteReversal<Complement> reverse;
    ub8 ones0 = 0, ones1 = 0;
    ub1 *const result = reinterpret_cast<ub1 *>(out);
    const ub8 unrolled = 16 * (blocks & ~ub8{3});
    for (ub8 at = 0; at != unrolled; at += 64) {
        one_block<Complement, Streaming>(reverse, reinterpret_cast<ub8 *>(result + at), stream + at, ones0, ones1);
        one_block<Complement, Streaming>(reverse, reinterpret_cast<ub8 *>(result + at + 16), stream + at + 16, ones0, ones1);
        one_block<Complement, Streaming>(reverse, reinterpret_cast<ub8 *>(result + at + 32), stream + at + 32, ones0, ones1);
        one_block<Complement, Streaming>(reverse, reinterpret_cast<ub8 *>(result + at + 48), stream + at + 48, ones0, ones1);
    }
    for (ub8 at = unrolled; at != 16 * blocks; at += 16)
        one_block<Complement, Streaming>(reverse, reinterpret_cast<ub8 *>(result + at), stream + at, ones0, ones1);
    const ub8 ones = ones0 + ones1;
    return Complement ? 128 * blocks - ones : ones;
}

// The rows of code 1 (code 0 with Complement) for n rows: whole blocks, the
// words behind them cleared, the last rows by the reference read.
template <bool Complement>
ub8 rows_of_code(ub8 *out, const ub1 *stream, ub4 n) {
    const ub8 blocks = n / 128;
    ub8 count = 0;
    if (blocks * 16 >= kStreamingBytes && (reinterpret_cast<std::uintptr_t>(out) & 15) == 0) {
        count += blocks_of_rows<Complement, true>(out, stream, blocks);
        _mm_sfence();
    } else {
        count += blocks_of_rows<Complement, false>(out, stream, blocks);
    }
    std::memset(out + 2 * blocks, 0, (words_for_bits(n) - 2 * blocks) * 8);
    for (ub8 i = blocks * 128; i < n; ++i)
        if (read_code_at<1>(stream, i) != Complement) out[i >> 6] |= ub8{1} << (i & 63), ++count;
    return count;
}

// Clears the bits at n and beyond in the last word.
void clear_behind(ub8 *out, ub4 n) {
    if (n & 63) out[n >> 6] &= (ub8{1} << (n & 63)) - 1;
}

}  // namespace

ub8 bit1_scan(ub8 *out, const ub1 *stream, ub4 n, Bit1Outcome outcome) {
    const ub8 words = words_for_bits(n);
    switch (outcome) {
        case Bit1Outcome::none:
            std::memset(out, 0, words * 8);
            return 0;
        case Bit1Outcome::all:
            std::memset(out, 0xff, words * 8);
            clear_behind(out, n);
            return n;
        case Bit1Outcome::stream: return rows_of_code<false>(out, stream, n);
        case Bit1Outcome::complement: return rows_of_code<true>(out, stream, n);
    }
    return 0;
}

}  // namespace vorn::dict
