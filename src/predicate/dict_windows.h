// dict_windows.h - the block compare of the packed widths whose codes may
// touch three bytes and still fit in 16 bits: 11, 13, 14 and 15.
//
// Eight codes of such a width are a whole number of bytes (w of them), so
// one 16-byte load at byte k * w holds the eight codes of vector k, and a
// code lives in 16-bit lanes, eight to a vector, where 32-bit lanes would
// hold only four.  Code j starts at bit r = (j * w) & 7 of byte
// b = (j * w) >> 3 and may reach byte b + 2.  A lane is built from two byte
// windows, in one of two ways; the window of byte b + 2 is taken from a
// second load one byte on, which costs less than copying the first (a
// shuffle overwrites its operand) and leaves the loop no register moves:
//
//   equality   (shuffle(x, A) & mA) | (shuffle(x, B) & mB): bytes b and
//              b + 1 in the low and high byte, and the code's bits of byte
//              b + 2 ORed into the low byte, where they fall on bits that
//              byte b does not use (its code bits are its low 8 - r, those
//              of byte b + 2 its top r + w - 16, and w <= 16).  The lane
//              is the code's bits rearranged, not the code; the literal is
//              rearranged the same way once per call, and equality of the
//              lanes is equality of the codes.
//   order      the 16 bits that start at the code's first bit: bytes b,
//              b + 1 as a big-endian number times 2^r (low half of the
//              product) ORed with byte b + 2 in the high byte times 2^r
//              (high half), which is byte b + 2 shifted right by 8 - r.
//              The code is the lane's top w bits, the rest belongs to the
//              following codes, so the codes [lo, hi] are the lanes
//              [lo << (16 - w), hi << (16 - w) | low ones]: one addition of
//              a bias and one signed compare, as the interval test of the
//              other lanes (dict_lanes.h).  The multipliers stand in for
//              the per-lane shift that this processor level lacks.
//
// Blocks are 64 rows, 8w bytes, one 64-bit result word, with no software
// read-ahead (as for the other lanes: it measured slower out of cache).
// The last whole block and a last half block of 32 rows are compared from
// a copy (with 16 bytes to spare for the second loads), and the rows
// behind them go by the reference read.
// The tables are computed by the compiler from the rule above.
#pragma once

#include <nmmintrin.h>

#include <array>

#include "predicate/dict_lanes.h"

namespace vorn::dict {

// Widths whose codes need three bytes but fit in 16-bit lanes.
constexpr bool is_window_width(ub4 w) { return w == 11 || w == 13 || w == 14 || w == 15; }

namespace window_rule {

inline constexpr ub4 kWidths[] = {11, 13, 14, 15};

constexpr ub4 first_byte(ub4 w, ub4 j) { return (j * w) >> 3; }
constexpr ub4 start_bit(ub4 w, ub4 j) { return (j * w) & 7; }
// The code's bits in byte b + 1 and in byte b + 2.
constexpr ub4 second_mask(ub4 w, ub4 j) {
    const ub4 r = start_bit(w, j);
    return r + w >= 16 ? 0xff : (0xffu << (16 - r - w)) & 0xff;
}
constexpr ub4 third_mask(ub4 w, ub4 j) {
    const ub4 r = start_bit(w, j);
    return r + w > 16 ? (0xffu << (24 - r - w)) & 0xff : 0;
}

// One row of 16 bytes a table, per width: eight 16-bit lanes, low byte
// first.
using Row = std::array<ub1, 16>;
struct Tables {
    Row eq_first, eq_first_mask, eq_third, eq_third_mask;  // equality
    Row order_pair, order_third, order_scale;              // order
};

constexpr Tables tables_of(ub4 w) {
    Tables t{};
    for (ub4 j = 0; j < 8; ++j) {
        const ub4 b = first_byte(w, j), r = start_bit(w, j), lo = 2 * j, hi = 2 * j + 1;
        t.eq_first[lo] = static_cast<ub1>(b), t.eq_first[hi] = static_cast<ub1>(b + 1);
        t.eq_first_mask[lo] = static_cast<ub1>(0xffu >> r), t.eq_first_mask[hi] = static_cast<ub1>(second_mask(w, j));
        const bool third = third_mask(w, j) != 0;
        t.eq_third[lo] = static_cast<ub1>(third ? b + 1 : 0x80), t.eq_third[hi] = 0x80;
        t.eq_third_mask[lo] = static_cast<ub1>(third_mask(w, j)), t.eq_third_mask[hi] = 0;
        t.order_pair[lo] = static_cast<ub1>(b + 1), t.order_pair[hi] = static_cast<ub1>(b);
        t.order_third[lo] = 0x80, t.order_third[hi] = static_cast<ub1>(b + 1);
        t.order_scale[lo] = static_cast<ub1>(1u << r), t.order_scale[hi] = 0;
    }
    return t;
}

// Every byte read lies inside the one 16-byte load, and the bits of bytes
// b and b + 2 never meet in the low byte of an equality lane.
constexpr bool windows_hold_their_codes() {
    for (ub4 w : kWidths) {
        if ((8 * w) % 8 != 0 || w > 15) return false;
        for (ub4 j = 0; j < 8; ++j) {
            if (first_byte(w, j) + 2 >= 16) return false;
            if (((0xffu >> start_bit(w, j)) & third_mask(w, j)) != 0) return false;
        }
    }
    return true;
}
static_assert(windows_hold_their_codes());

}  // namespace window_rule

// The lane tables of width w, one row each.
template <ub4 W>
inline constexpr window_rule::Tables vorn_window_tables = window_rule::tables_of(W);

template <ub4 W, Cmp C, bool Null>
class WindowCompare {
    static_assert(is_window_width(W));
    static constexpr ub4 kRows = 64, kBlockBytes = 8 * W, kTopCode = (ub4{1} << W) - 1;
    static constexpr ub4 kJunk = 16 - W;  // bits of the following codes in an order lane
    static constexpr LaneTest kTest = lane_test<C, Null>();
    static constexpr bool kEquality = kTest == LaneTest::equal || kTest == LaneTest::equal_or_zero;
    static constexpr const window_rule::Tables &kT = vorn_window_tables<W>;

    __m128i first_, first_mask_, third_, third_mask_, literal_, offset_;
    ub8 invert_ = 0;
    ub4 a_, b_;

    static VORN_INLINE __m128i row(const window_rule::Row &r) {
        return _mm_loadu_si128(reinterpret_cast<const __m128i *>(r.data()));
    }
    // The literal code c rearranged as the equality lanes hold it, or all
    // ones, which no lane holds (a lane keeps w < 16 of its bits).
    static __m128i equality_literal(ub4 c, bool never) {
        alignas(16) ub2 v[8];
        for (ub4 j = 0; j < 8; ++j) {
            const ub4 r = window_rule::start_bit(W, j);
            const ub4 bytes = c << (24 - r - W);  // the code's three bytes, as the stream holds them
            const ub4 b0 = bytes >> 16, b1 = (bytes >> 8) & 0xff, b2 = bytes & 0xff;
            const ub4 first = ((b1 << 8) | b0) & (kT.eq_first_mask[2 * j] | ub4{kT.eq_first_mask[2 * j + 1]} << 8);
            v[j] = static_cast<ub2>(never ? 0xffff : first | (b2 & kT.eq_third_mask[2 * j]));
        }
        return _mm_load_si128(reinterpret_cast<const __m128i *>(v));
    }

public:
    using Text = KernelText<kernel_name<dispatch_index(width_code(W), VORN_ENC_DICT, static_cast<ub4>(C), Null)>()>;

    WindowCompare(ub4 a, ub4 b) : a_(a), b_(b) {
        if constexpr (kEquality) {
            first_ = row(kT.eq_first), first_mask_ = row(kT.eq_first_mask);
            third_ = row(kT.eq_third), third_mask_ = row(kT.eq_third_mask);
            const bool never = a > kTopCode || (Null && C == Cmp::eq && a == 0);
            literal_ = equality_literal(a, never);
            offset_ = _mm_setzero_si128();
            invert_ = C == Cmp::ne ? ~ub8{0} : 0;
        } else {
            // Every order form is the interval test on the 16-bit lanes.
            first_ = row(kT.order_pair), third_ = row(kT.order_third), first_mask_ = row(kT.order_scale);
            third_mask_ = _mm_setzero_si128();
            const CodeInterval r = code_interval<C, Null>(a, b, kTopCode);
            if (r.empty()) {
                literal_ = _mm_set1_epi16(0x7fff), offset_ = _mm_setzero_si128();  // x > max: never
            } else {
                const ub4 lo = static_cast<ub4>(r.lo) << kJunk;
                const ub4 hi = static_cast<ub4>(r.hi) << kJunk | ((ub4{1} << kJunk) - 1);
                offset_ = _mm_set1_epi16(static_cast<short>(0x8000 - lo));
                literal_ = _mm_set1_epi16(static_cast<short>((hi - lo) ^ 0x8000));
                invert_ = ~ub8{0};
            }
        }
    }

    static VORN_INLINE __m128i load16(const ub1 *q) { return _mm_loadu_si128(reinterpret_cast<const __m128i *>(q)); }

    // The lanes of the vector of eight codes at q that pass the lane test:
    // all ones or zeros.  The third byte's window reads a second load one
    // byte on: a load costs less than the register copy that a second
    // shuffle of one load needs (the shuffle overwrites its operand).
    VORN_INLINE __m128i lanes(const ub1 *q) const {
        const __m128i v = load16(q), u = load16(q + 1);
        if constexpr (kEquality) {
            const __m128i x = _mm_or_si128(_mm_and_si128(_mm_shuffle_epi8(v, first_), first_mask_),
                                           _mm_and_si128(_mm_shuffle_epi8(u, third_), third_mask_));
            const __m128i e = _mm_cmpeq_epi16(x, literal_);
            if constexpr (kTest == LaneTest::equal_or_zero) return _mm_or_si128(e, _mm_cmpeq_epi16(x, _mm_setzero_si128()));
            return e;
        } else {
            const __m128i x = _mm_or_si128(_mm_mullo_epi16(_mm_shuffle_epi8(v, first_), first_mask_),
                                           _mm_mulhi_epu16(_mm_shuffle_epi8(u, third_), first_mask_));
            return _mm_cmpgt_epi16(_mm_add_epi16(x, offset_), literal_);
        }
    }

    // The bits of the 16 rows of vectors k and k + 1 of the block at p.
    VORN_INLINE ub8 pair_bits(const ub1 *p, ub4 k) const {
        const __m128i x = lanes(p + k * W);
        const __m128i y = lanes(p + (k + 1) * W);
        return static_cast<ub4>(_mm_movemask_epi8(_mm_packs_epi16(x, y)));
    }

    // The result word of the block at p.
    VORN_INLINE ub8 block(const ub1 *p) const {
        const ub8 w = pair_bits(p, 0) | pair_bits(p, 2) << 16 | pair_bits(p, 4) << 32 | pair_bits(p, 6) << 48;
        if constexpr (kEquality && C != Cmp::ne) return w;  // never complemented
        return w ^ invert_;
    }

    // Whole blocks; then, where 32 rows or more remain, their half block
    // (4w bytes, which other widths take as a whole block of 32 rows) from
    // a copy, so that nothing behind it is read; the rest row by row.
    ub8 scan(ub8 *out, const ub1 *stream, ub4 n) const {
        // A copy on the stack, which no store to out can alias, keeps the
        // lane vectors in registers through the loop.
        const WindowCompare k = *this;
        return k.scan_here(out, stream, n);
    }

    VORN_INLINE ub8 scan_here(ub8 *out, const ub1 *stream, ub4 n) const {
        const ub8 blocks = n / kRows;
        const bool half = n % kRows >= kRows / 2;
        ub8 count = 0;
        const ub1 *p = stream;
        if (blocks) {
            for (ub8 b = 1; b < blocks; ++b, p += kBlockBytes) {
                const ub8 w = block(p);
                store(out + b - 1, w);
                count += _mm_popcnt_u64(w);
            }
            alignas(16) ub1 last[kBlockBytes + 16] = {};
            std::memcpy(last, p, kBlockBytes);
            const ub8 w = block(last);
            store(out + blocks - 1, w);
            count += _mm_popcnt_u64(w);
            p += kBlockBytes;
        }
        std::memset(out + blocks, 0, (words_for_bits(n) - blocks) * 8);
        if (half) {
            alignas(16) ub1 last[kBlockBytes + 16] = {};
            std::memcpy(last, p, kBlockBytes / 2);
            const ub8 w = block(last) & 0xffffffffu;
            out[blocks] = w;
            count += _mm_popcnt_u64(w);
        }
        return count + scalar_rows<W, C, Null>(out, stream, blocks * kRows + (half ? kRows / 2 : 0), n, a_, b_);
    }

    VORN_INLINE bool test(const ub1 *stream, ub4 row) const {
        return row_matches<C, Null>(static_cast<ub4>(read_code<W>(stream, row)), a_, b_);
    }
};

}  // namespace vorn::dict
