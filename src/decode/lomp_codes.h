// lomp_codes.h - the code loop of the compressed-stream decoder: m codes of
// w bits, each replaced by its symbol of up to 8 bytes.  One template for
// the widths 0 to 10; the width is a template parameter.
//
// Two phases.  Blocks of 32 codes (4*w stream bytes) run without a branch
// per code: each code writes its whole 8-byte symbol slot at the cursor and
// moves the cursor by the symbol's length, so the next store overwrites the
// surplus.  There are m/32 - 1 blocks when m > 32, else none, which leaves
// 32 to 63 codes to the tail, one by one, each copying exactly its length.
//
// Beyond the stream format, two guards keep a corrupt stream inside the
// memory it was given, at no cost to a valid one: a code at or above the
// symbol count is read as the last symbol (the working arrays have no more
// slots), and no byte is written at or behind `capacity`: a stream that
// would go there stops, and the count returned is then larger than the
// capacity, so the caller's size comparison fails.  A length above 8 moves
// the cursor by that length but writes only the slot's 8 bytes.
#pragma once

#include <smmintrin.h>
#include <tmmintrin.h>

#include "decode/lomp_tables.h"

namespace vorn {

// Everything the code loop reads besides the code stream.
struct LompSymbols {
    const ub8 *slots;   // symbol i's bytes in slot i
    const ub1 *lens;    // symbol i's length
    ub4 last;           // symbol count - 1: the largest code served
};

// The output cursor.  `pos` never passes `capacity`.
struct LompOut {
    ub1 *out;
    ub8 pos;
    ub8 capacity;
};

inline constexpr ub4 kLompBlockCodes = 32;
// How far a block may move the cursor at most: 32 lengths of 15.  Its
// stores end before that, so a block with this much room takes no care.
inline constexpr ub8 kLompBlockReach = kLompBlockCodes * 15;

VORN_INLINE ub4 lomp_blocks(ub4 m) { return m <= kLompBlockCodes ? 0 : m / kLompBlockCodes - 1; }

VORN_INLINE void lomp_prefetch(const void *p) {
    _mm_prefetch(static_cast<const char *>(p), _MM_HINT_T0);
}

// One code of a block with room to spare: the whole slot, no test.
VORN_INLINE void lomp_put_fast(LompOut &o, const LompSymbols &s, ub4 code) {
    store<ub8>(o.out + o.pos, s.slots[code]);
    o.pos += s.lens[code];
}

// One code of a block near the end of the buffer.  False: it does not fit.
VORN_INLINE bool lomp_put_careful(LompOut &o, const LompSymbols &s, ub4 code) {
    const ub4 len = s.lens[code];
    if (o.pos + len > o.capacity) return false;
    const ub8 room = o.capacity - o.pos;
    const ub8 slot = s.slots[code];
    std::memcpy(o.out + o.pos, &slot, room < 8 ? room : 8);
    o.pos += len;
    return true;
}

// One tail code: exactly its bytes, by pairs and a last odd byte.
VORN_INLINE bool lomp_put_exact(LompOut &o, const LompSymbols &s, ub4 code) {
    const ub4 len = s.lens[code];
    if (o.pos + len > o.capacity) return false;
    const ub1 *slot = reinterpret_cast<const ub1 *>(s.slots + code);
    ub1 *dst = o.out + o.pos;
    const ub4 bytes = len < 8 ? len : 8;
    ub4 k = 0;
    for (; k + 2 <= bytes; k += 2) store<ub2>(dst + k, load<ub2>(slot + k));
    if (k < bytes) dst[k] = slot[k];
    o.pos += len;
    return true;
}

// The lane shift done as a multiply and one shift for all lanes: the masked
// field moved up to the lane's top (by 16 - w - shift), then down by 16 - w.
constexpr LompLaneRow lomp_lane_multipliers(ub4 w) {
    const LompLaneRow shift = lomp_block_rows(w).shift;
    LompLaneRow m{};
    for (ub4 k = 0; k < 8; ++k) m[k] = static_cast<ub2>(1u << (16 - w - shift[k]));
    return m;
}

// Eight codes of a group, one per 16-bit lane, from the 16 bytes at `p`.
template <ub4 W>
VORN_INLINE __m128i lomp_group_codes(const ub1 *p, __m128i last) {
    static_assert(W >= kLompFirstRowWidth && W != 8 && W <= kLompMaxWidth);
    constexpr LompBlockRows rows = lomp_block_rows(W);
    constexpr LompLaneRow mul = lomp_lane_multipliers(W);
    const __m128i shuffle = _mm_loadu_si128(reinterpret_cast<const __m128i *>(rows.shuffle.data()));
    const __m128i mask = _mm_loadu_si128(reinterpret_cast<const __m128i *>(rows.and_mask.data()));
    const __m128i shift = _mm_loadu_si128(reinterpret_cast<const __m128i *>(mul.data()));
    __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i *>(p));
    v = _mm_and_si128(_mm_shuffle_epi8(v, shuffle), mask);
    v = _mm_srli_epi16(_mm_mullo_epi16(v, shift), 16 - W);
    return _mm_min_epu16(v, last);
}

// Widths 1 and 2 take their rows from before the tables (see lomp_tables.h)
// and shift each lane as a 32-bit shift does, by the row's value modulo 32.
template <ub4 W>
VORN_INLINE void lomp_rowless_codes(const ub1 *p, ub4 last, ub2 (&codes)[8]) {
    constexpr LompBlockRows rows = lomp_block_rows(W);
    const __m128i shuffle = _mm_loadu_si128(reinterpret_cast<const __m128i *>(rows.shuffle.data()));
    const __m128i mask = _mm_loadu_si128(reinterpret_cast<const __m128i *>(rows.and_mask.data()));
    const __m128i v = _mm_and_si128(_mm_shuffle_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i *>(p)), shuffle), mask);
    ub2 lanes[8];
    _mm_storeu_si128(reinterpret_cast<__m128i *>(lanes), v);
    for (ub4 k = 0; k < 8; ++k) {
        const ub4 code = static_cast<ub4>(lanes[k]) >> (rows.shift[k] & 31);
        codes[k] = static_cast<ub2>(code < last ? code : last);
    }
}

// The 32 codes of the block at `p`, handed to put(code) in order.
template <ub4 W, class Put>
VORN_INLINE void lomp_block(const ub1 *p, ub4 last, Put &&put) {
    if constexpr (W == 0) {
        for (ub4 k = 0; k < kLompBlockCodes; ++k) put(0);
    } else if constexpr (W == 8) {
        // Whole bytes: 32 of them, no table.
        const __m128i lastv = _mm_set1_epi8(static_cast<char>(last));
        for (ub4 h = 0; h < 2; ++h) {
            const __m128i v = _mm_min_epu8(_mm_loadu_si128(reinterpret_cast<const __m128i *>(p + 16 * h)), lastv);
            const ub8 q[2] = {static_cast<ub8>(_mm_cvtsi128_si64(v)), static_cast<ub8>(_mm_extract_epi64(v, 1))};
            for (ub8 word : q)
                for (ub4 k = 0; k < 8; ++k) put(static_cast<ub4>(word >> (8 * k)) & 0xff);
        }
    } else if constexpr (W < kLompFirstRowWidth) {
        for (ub4 g = 0; g < 4; ++g) {
            ub2 codes[8];
            lomp_rowless_codes<W>(p + g * W, last, codes);
            for (ub4 k = 0; k < 8; ++k) put(codes[k]);
        }
    } else {
        const __m128i lastv = _mm_set1_epi16(static_cast<short>(last));
        for (ub4 g = 0; g < 4; ++g) {
            const __m128i v = lomp_group_codes<W>(p + g * W, lastv);
            const ub8 q[2] = {static_cast<ub8>(_mm_cvtsi128_si64(v)), static_cast<ub8>(_mm_extract_epi64(v, 1))};
            for (ub8 word : q)
                for (ub4 k = 0; k < 4; ++k) put(static_cast<ub4>(word >> (16 * k)) & 0xffff);
        }
    }
}

// The count to return when the stream does not fit: beyond the capacity.
VORN_INLINE ub4 lomp_overflow(const LompOut &o) {
    return o.capacity >= 0xffffffffu ? 0xffffffffu : static_cast<ub4>(o.capacity + 1);
}

// Decodes m codes of width W at `codes` into o.out and returns the bytes
// written, cut to 32 bits (or, for a stream that does not fit, a count above
// the capacity).
template <ub4 W>
VORN_INLINE ub4 lomp_decode_codes(const ub1 *codes, ub4 m, const LompSymbols &s, LompOut o) {
    static_assert(W <= kLompMaxWidth);
    const ub4 blocks = lomp_blocks(m);
    const ub1 *p = codes;
    for (ub4 b = 0; b < blocks; ++b, p += 4 * W) {
        lomp_prefetch(p + 512);
        lomp_prefetch(o.out + o.pos + 512);
        if (VORN_LIKELY(o.capacity - o.pos >= kLompBlockReach)) {
            lomp_block<W>(p, s.last, [&](ub4 code) { lomp_put_fast(o, s, code); });
        } else {
            bool fits = true;
            lomp_block<W>(p, s.last, [&](ub4 code) { fits = fits && lomp_put_careful(o, s, code); });
            if (!fits) return lomp_overflow(o);
        }
    }
    // Tail: a 16-bit big-endian read at the current byte, shifted down by
    // 16 - w - p for the bit position p within the byte.  p + w never passes
    // 16: p < 8 for w <= 9, and p is even for w = 10.
    ub4 bit = 0;
    for (ub4 i = blocks * kLompBlockCodes; i < m; ++i) {
        ub4 code;
        if constexpr (W == 0) {
            code = 0;
        } else if constexpr (W == 8) {
            code = *p++;
        } else {
            code = (static_cast<ub4>(load_be16(p)) >> (16 - W - bit)) & ((1u << W) - 1);
            bit += W;
            p += bit >> 3;
            bit &= 7;
        }
        if (code > s.last) code = s.last;
        if (!lomp_put_exact(o, s, code)) return lomp_overflow(o);
    }
    return static_cast<ub4>(o.pos);
}

}  // namespace vorn

// The decoders of widths 8, 9 and 10, under their own names.  Arguments: the
// code stream, the code count, the symbol slots, the lengths, the output;
// then the output's capacity and the symbol count, which keep a corrupt
// stream within the buffers (two arguments beyond the plain decoder's five,
// on purpose: these routines are internal, and the guard needs them).
// Result: the bytes written, cut to 32 bits.
extern "C" {
VORN_INTERNAL ub4 lomp_decode_dict_8_bit(const ub1 *codes, ub4 m, const ub8 *slots, const ub1 *lens,
                                         ub1 *out, ub4 capacity, ub4 symbols);
VORN_INTERNAL ub4 lomp_decode_dict_9_bit(const ub1 *codes, ub4 m, const ub8 *slots, const ub1 *lens,
                                         ub1 *out, ub4 capacity, ub4 symbols);
VORN_INTERNAL ub4 lomp_decode_dict_10_bit(const ub1 *codes, ub4 m, const ub8 *slots, const ub1 *lens,
                                          ub1 *out, ub4 capacity, ub4 symbols);
}
