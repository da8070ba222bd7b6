// dict_lanes.h - the block compare of packed dictionary codes, one template
// for the three lane sizes (8, 16 and 32 bits), for every width that needs a
// shuffle and a mask.
//
// A block is eight 16-byte vectors: 128, 64 or 32 rows by lane size, whose
// result is two 64-bit words, one word or one 32-bit half.  Each vector is
// loaded at the byte where its first code starts, shuffled so that lane j
// holds the bytes of code j, and ANDed with the lane masks: code j then
// stands in its lane shifted left by s_j.  The literal was shifted by the
// same s_j once per call, so no shift runs in the loop.
//
// eq and ne compare the lanes for equality.  Every order form matches an
// interval of codes [lo, hi], known once the literals are, and is one signed
// greater-than per vector, its bits complemented per block where the test is
// the interval's complement:
//   lt, le (hi only)   not (x > hi)
//   gt, ge (lo only)   x > lo - 1
//   the range forms    not ((x - lo) mod 2^L > hi - lo), unsigned
// The first two need the lanes' sign bit flipped where a lane mask reaches
// it, which turns unsigned order into signed order; the third subtracts lo
// and flips in one addition.  The literal is always the right operand of the
// compare, so the loop copies no register.
//
// Literals outside the code range are native ub4 numbers like any other:
// the interval is cut to [0, M], M = 2^w - 1, before it is shifted into the
// lanes, and an empty interval tests nothing against the lane's signed
// maximum.  eq with a literal above M equals that maximum, which no masked
// lane holds (no mask covers all of a lane's low bits).
//
// The _null forms.  Code 0 is null and never matches.  For the order forms
// that is lo >= 1, so lt and le become range tests and the rest keep their
// cost; eq with literal 0 equals nothing; only ne needs a second compare,
// with zero.  The rows come out as "code != 0 and the compare" gives them.
//
// Where the codes are whole bytes in their lanes (width 24) the shuffle's
// zeros clear all but the code, and no AND runs.  Blocks of 32-bit lanes go
// two at a time, one result word, one store and one count for 64 rows.
// The loops leave reading ahead to the hardware: software prefetches 640 and
// 704 bytes ahead of each block measured 3 to 30 per cent slower on a column
// far out of cache, and no faster in cache.
//
// The last whole block is compared from a copy on the stack: its vectors
// would otherwise read up to 15 bytes behind it, and nothing is read behind
// the last whole block.  The rows behind it go one by one by the reference
// read.
#pragma once

#include <nmmintrin.h>

#include <utility>

#include "predicate/dict_rows.h"
#include "predicate/lanes.h"
#include "predicate/dict_tables.h"

namespace vorn::dict {

// The geometry of width W's blocks.
template <ub4 W>
struct Shape {
    static constexpr ub4 kLaneBits = dict_lane_bits(W);
    static constexpr ub4 kLanes = 128 / kLaneBits;  // codes per vector
    static constexpr ub4 kRows = 8 * kLanes;         // rows per block: 128, 64, 32
    static constexpr ub4 kBlockBytes = kRows * W / 8;
    static constexpr ub4 kOutBytes = kRows / 8;
    // Vector k is loaded at the byte where its first code starts.
    static constexpr ub4 offset(ub4 k) { return k * kLanes * W / 8; }
    // Two patterns of lanes alternate where a vector's codes are not a whole
    // number of bytes (32-bit lanes of an odd width); else one serves all.
    static constexpr ub4 kHalves = (kLanes * W) % 8 != 0 ? 2 : 1;
    static constexpr ub4 kTopCode = (ub4{1} << W) - 1;
    static constexpr ub4 kSignBit = ub4{1} << (kLaneBits - 1);
    static constexpr ub4 kSignedMax = kSignBit - 1;
    static constexpr ub4 shift(ub4 half, ub4 lane) { return dict_lane(vorn_shift_masks, W, half * kLanes + lane); }
    // Some lane's mask reaches its top bit: order compares need the flip.
    static constexpr bool reaches_top() {
        for (ub4 j = 0; j < 2 * kLanes; ++j)
            if (dict_lane(vorn_and_masks, W, j) & kSignBit) return true;
        return false;
    }
    static constexpr bool kReachesTop = reaches_top();
    // The AND keeps a lane's code bits; it does nothing where every lane
    // byte the shuffle fills is all code (the codes are whole bytes in
    // their lanes, as at width 24): the shuffle's zeros already clear the
    // rest.
    static constexpr bool needs_and() {
        for (ub4 j = 0; j < 2 * kLanes * (kLaneBits / 8); ++j)
            if (vorn_shuffle_masks[W - 1][j] != 0x80 && vorn_and_masks[W - 1][j] != 0xff) return true;
        return false;
    }
    static constexpr bool kNeedsAnd = needs_and();

    static_assert(kLaneBits != 8 || W == 2 || W == 4, "8-bit lanes serve widths 2 and 4");
    static_assert(kBlockBytes * 8 == kRows * W, "a block is whole bytes");
    static_assert(offset(7) + 16 <= 2 * kBlockBytes, "only the last whole block needs its copy");
};

// How a form's lanes are tested.
enum class LaneTest : ub1 {
    equal,          // x == A: eq, and ne complemented
    equal_or_zero,  // x == A or x == 0, complemented: ne of the _null forms
    upper,          // not (x > hi): lt and le, whose lo is 0
    lower,          // x > lo - 1: gt and ge, whose hi is M
    interval,       // not (x - lo > hi - lo), unsigned: the range forms, and
                    // lt and le of the _null forms, whose lo is 1
};

template <Cmp C, bool Null>
constexpr LaneTest lane_test() {
    switch (C) {
        case Cmp::eq: return LaneTest::equal;
        case Cmp::ne: return Null ? LaneTest::equal_or_zero : LaneTest::equal;
        case Cmp::lt:
        case Cmp::le: return Null ? LaneTest::interval : LaneTest::upper;
        case Cmp::gt:
        case Cmp::ge: return LaneTest::lower;
        default: return LaneTest::interval;
    }
}

// The codes a form matches: [lo, hi] cut to [0, M]; empty when hi < lo.
struct CodeInterval {
    sb8 lo, hi;
    bool empty() const { return hi < lo; }
};

template <Cmp C, bool Null>
constexpr CodeInterval code_interval(ub4 a, ub4 b, ub4 top) {
    sb8 lo = 0, hi = top;
    switch (C) {
        case Cmp::lt: hi = sb8{a} - 1; break;
        case Cmp::le: hi = a; break;
        case Cmp::gt: lo = sb8{a} + 1; break;
        case Cmp::ge: lo = a; break;
        case Cmp::gt_lt: lo = sb8{a} + 1, hi = sb8{b} - 1; break;
        case Cmp::gt_le: lo = sb8{a} + 1, hi = b; break;
        case Cmp::ge_lt: lo = a, hi = sb8{b} - 1; break;
        case Cmp::ge_le: lo = a, hi = b; break;
        default: break;
    }
    if (Null && lo < 1) lo = 1;
    if (hi > sb8{top}) hi = top;
    return {lo, hi};
}

// A literal in lane terms: a code 0..M shifted into each lane, or kAboveAll,
// the lane's signed maximum, which no lane test reaches or equals.
inline constexpr ub8 kAboveAll = ~ub8{0};

template <ub4 W, Cmp C, bool Null>
class LaneCompare {
    using S = Shape<W>;
    using Ops = lanes::Lane<S::kLaneBits / 8>;
    using T = typename Ops::T;
    static constexpr ub4 H = S::kHalves;
    static constexpr LaneTest kTest = lane_test<C, Null>();
    static constexpr bool kOneEnd = kTest == LaneTest::upper || kTest == LaneTest::lower;
    static constexpr bool kFlipped = kOneEnd && S::kReachesTop;

    __m128i shuffle_[H], mask_[H], literal_[H], offset_[H];
    ub8 invert_ = 0;  // all ones where the block's bits are complemented
    ub4 a_, b_;

    static VORN_INLINE __m128i table_half(const DictTable &t, ub4 h) {
        return _mm_loadu_si128(reinterpret_cast<const __m128i *>(t[W - 1].data() + 16 * h));
    }
    // The lanes of half h: `code` shifted by each lane's s, sign-flipped
    // if `flip`; or the signed maximum.
    static VORN_INLINE __m128i literal_lanes(ub8 code, ub4 h, bool flip) {
        alignas(16) T v[S::kLanes];
        for (ub4 i = 0; i < S::kLanes; ++i) {
            const ub4 lane = code == kAboveAll ? S::kSignedMax
                                               : (static_cast<ub4>(code) << S::shift(h, i)) ^ (flip ? S::kSignBit : 0);
            v[i] = static_cast<T>(lane);
        }
        return _mm_load_si128(reinterpret_cast<const __m128i *>(v));
    }
    // The addition of the interval test: the sign bit less lo shifted.
    static VORN_INLINE __m128i offset_lanes(ub8 lo, ub4 h) {
        alignas(16) T v[S::kLanes];
        for (ub4 i = 0; i < S::kLanes; ++i)
            v[i] = static_cast<T>(S::kSignBit - (static_cast<ub4>(lo) << S::shift(h, i)));
        return _mm_load_si128(reinterpret_cast<const __m128i *>(v));
    }

    // The literal of the lane test and whether its answer is complemented.
    struct Plan {
        ub8 literal, lo;
        bool invert;
    };
    static Plan plan(ub4 a, ub4 b) {
        if constexpr (kTest == LaneTest::equal || kTest == LaneTest::equal_or_zero) {
            const bool never = a > S::kTopCode || (Null && C == Cmp::eq && a == 0);
            return {never ? kAboveAll : a, 0, C == Cmp::ne};
        } else {
            const CodeInterval r = code_interval<C, Null>(a, b, S::kTopCode);
            if (r.empty()) return {kAboveAll, 0, false};                 // x > max: never
            if constexpr (kTest == LaneTest::upper) return {static_cast<ub8>(r.hi), 0, true};
            if constexpr (kTest == LaneTest::lower) {
                if (r.lo == 0) return {kAboveAll, 0, true};             // not (x > max): always
                return {static_cast<ub8>(r.lo - 1), 0, false};
            }
            return {static_cast<ub8>(r.hi - r.lo), static_cast<ub8>(r.lo), true};
        }
    }

public:
    using Text = KernelText<kernel_name<dispatch_index(width_code(W), VORN_ENC_DICT, static_cast<ub4>(C), Null)>()>;

    LaneCompare(ub4 a, ub4 b) : a_(a), b_(b) {
        const Plan p = plan(a, b);
        invert_ = p.invert ? ~ub8{0} : 0;
        for (ub4 h = 0; h < H; ++h) {
            shuffle_[h] = table_half(vorn_shuffle_masks, h);
            mask_[h] = table_half(vorn_and_masks, h);
            literal_[h] = literal_lanes(p.literal, h, kFlipped || kTest == LaneTest::interval);
            if constexpr (kTest == LaneTest::interval) offset_[h] = offset_lanes(p.lo, h);
        }
    }

    // The lanes of one vector that pass the lane test: all ones or zeros.
    VORN_INLINE __m128i lanes(__m128i v, ub4 h) const {
        const __m128i y = _mm_shuffle_epi8(v, shuffle_[h]);
        const __m128i x = S::kNeedsAnd ? _mm_and_si128(y, mask_[h]) : y;
        if constexpr (kTest == LaneTest::equal) return Ops::eq(x, literal_[h]);
        if constexpr (kTest == LaneTest::equal_or_zero)
            return _mm_or_si128(Ops::eq(x, literal_[h]), Ops::eq(x, _mm_setzero_si128()));
        if constexpr (kTest == LaneTest::interval) return Ops::gt(Ops::add(x, offset_[h]), literal_[h]);
        return Ops::gt(kFlipped ? _mm_xor_si128(x, Ops::sign()) : x, literal_[h]);
    }

    // One block at p: its bits stored at o, in row order; returns their count.
    VORN_INLINE ub8 block(const ub1 *p, ub1 *o) const {
        __m128i m[8];
        block_lanes(p, m);
        auto bits = [](__m128i v) { return static_cast<ub8>(static_cast<ub4>(_mm_movemask_epi8(v))); };
        if constexpr (S::kLaneBits == 8) {
            ub8 w0 = bits(m[0]) | bits(m[1]) << 16 | bits(m[2]) << 32 | bits(m[3]) << 48;
            ub8 w1 = bits(m[4]) | bits(m[5]) << 16 | bits(m[6]) << 32 | bits(m[7]) << 48;
            w0 ^= invert_, w1 ^= invert_;
            store(o, w0);
            store(o + 8, w1);
            return _mm_popcnt_u64(w0) + _mm_popcnt_u64(w1);
        } else if constexpr (S::kLaneBits == 16) {
            ub8 w = bits(_mm_packs_epi16(m[0], m[1])) | bits(_mm_packs_epi16(m[2], m[3])) << 16 |
                    bits(_mm_packs_epi16(m[4], m[5])) << 32 | bits(_mm_packs_epi16(m[6], m[7])) << 48;
            w ^= invert_;
            store(o, w);
            return _mm_popcnt_u64(w);
        } else {
            const ub4 w = half_bits(m) ^ static_cast<ub4>(invert_);
            store(o, w);
            return _mm_popcnt_u32(w);
        }
    }

    // The 32 bits of the lane masks m[0..7] of 32-bit lanes, uncomplemented.
    static VORN_INLINE ub4 half_bits(const __m128i *m) {
        auto bits = [](__m128i v) { return static_cast<ub4>(_mm_movemask_epi8(v)); };
        if constexpr (kTest == LaneTest::interval) {
            // The range forms: the first 16 rows by packing (two rounds)
            // and one byte mask, the other 16 by the float sign masks of
            // their four vectors, which spares the shuffle unit half the
            // packs.  The other forms are faster all packed.
            const __m128i lo = _mm_packs_epi16(_mm_packs_epi32(m[0], m[1]), _mm_packs_epi32(m[2], m[3]));
            auto quad = [](__m128i v) { return static_cast<ub4>(_mm_movemask_ps(_mm_castsi128_ps(v))); };
            return bits(lo) | (quad(m[4]) | quad(m[5]) << 4 | quad(m[6]) << 8 | quad(m[7]) << 12) << 16;
        } else {
            const __m128i lo = _mm_packs_epi16(_mm_packs_epi32(m[0], m[1]), _mm_packs_epi32(m[2], m[3]));
            const __m128i hi = _mm_packs_epi16(_mm_packs_epi32(m[4], m[5]), _mm_packs_epi32(m[6], m[7]));
            return bits(lo) | bits(hi) << 16;
        }
    }

    // The lane masks of the eight vectors of the block at p.
    VORN_INLINE void block_lanes(const ub1 *p, __m128i *m) const {
        [&]<ub4... K>(std::integer_sequence<ub4, K...>) {
            ((m[K] = lanes(_mm_loadu_si128(reinterpret_cast<const __m128i *>(p + S::offset(K))), K % H)), ...);
        }(std::make_integer_sequence<ub4, 8>{});
    }

    // Two blocks of 32 rows at p: one result word, stored at o; returns
    // its count.  One store and one count serve 64 rows.
    VORN_INLINE ub8 block_pair(const ub1 *p, ub1 *o) const {
        __m128i m[8];
        block_lanes(p, m);
        const ub8 lo = half_bits(m);
        block_lanes(p + S::kBlockBytes, m);
        const ub8 w = (lo | ub8{half_bits(m)} << 32) ^ invert_;
        store(o, w);
        return _mm_popcnt_u64(w);
    }

    // All n rows: whole blocks, the clearing behind them, the tail.  A copy
    // on the stack, which no store to out can alias, keeps the lane vectors
    // in registers through the loop.
    ub8 scan(ub8 *out, const ub1 *stream, ub4 n) const {
        const LaneCompare k = *this;
        return k.scan_here(out, stream, n);
    }

    VORN_INLINE ub8 scan_here(ub8 *out, const ub1 *stream, ub4 n) const {
        const ub8 blocks = n / S::kRows;
        ub1 *o = reinterpret_cast<ub1 *>(out);
        ub8 count = 0;
        if (blocks) {
            const ub1 *p = stream;
            ub8 b = 1;
            if constexpr (S::kLaneBits == 32) {
                for (; b + 1 < blocks; b += 2, p += 2 * S::kBlockBytes, o += 2 * S::kOutBytes) {
                    count += block_pair(p, o);
                }
            }
            for (; b < blocks; ++b, p += S::kBlockBytes, o += S::kOutBytes) {
                count += block(p, o);
            }
            alignas(16) ub1 last[S::kBlockBytes + 16] = {};
            std::memcpy(last, p, S::kBlockBytes);
            count += block(last, o);
            o += S::kOutBytes;
        }
        std::memset(o, 0, words_for_bits(n) * 8 - blocks * S::kOutBytes);
        return count + scalar_rows<W, C, Null>(out, stream, blocks * S::kRows, n, a_, b_);
    }

    // One row of a selection, by the reference read and the plain literal.
    VORN_INLINE bool test(const ub1 *stream, ub4 row) const {
        return row_matches<C, Null>(static_cast<ub4>(read_code<W>(stream, row)), a_, b_);
    }
};

}  // namespace vorn::dict
