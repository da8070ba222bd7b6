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
// Order compares use the signed compares of the lanes.  Where a lane mask
// reaches the lane's top bit, both sides are flipped in that bit first (an
// XOR with the sign bit), which turns unsigned order into signed order.
//
// Literals outside the code range.  Literals are native ub4 and may exceed
// the top code M = 2^w - 1; the lanes then cannot hold them shifted.  They
// are brought into range once per call so that the blocks give what the
// unsigned compare gives: a literal tested as "x > A" is cut to M (nothing
// is above M), and one tested as "x < A" or "x == A" above M becomes the
// lane's signed maximum, which is above every masked lane and equal to none
// (no mask covers all the lane's low bits).
//
// The _null forms.  Code 0 is null and must never match.  Rather than a
// compare with zero per vector, the literals carry the rule wherever they
// can: a strict lower bound (gt, gt_lt, gt_le) never admits 0; an inclusive
// lower bound a (ge, ge_lt, ge_le) becomes max(a, 1); eq with literal 0 gets
// the never-equal literal.  lt and le have no lower bound, so their lanes are
// biased: the code c is read as c - 1, modulo the lane, which takes null to
// the top of the lane above every code, and the literal is lowered to match.
// The bias is one addition that replaces the sign flip.  Only ne needs the
// second compare, with zero.  The rows come out exactly as "code != 0 and
// the compare" gives them.
//
// The last whole block is compared from a copy on the stack: its vectors
// would otherwise read up to 15 bytes behind it, and nothing is read behind
// the last whole block.  The rows behind it go one by one by the reference
// read.
#pragma once

#include <nmmintrin.h>

#include <utility>

#include "predicate/dict_rows.h"
#include "predicate/dict_tables.h"

namespace vorn::dict {

template <ub4 L>
struct LaneOps;

template <>
struct LaneOps<8> {
    using T = ub1;
    static VORN_INLINE __m128i eq(__m128i a, __m128i b) { return _mm_cmpeq_epi8(a, b); }
    static VORN_INLINE __m128i gt(__m128i a, __m128i b) { return _mm_cmpgt_epi8(a, b); }
    static VORN_INLINE __m128i add(__m128i a, __m128i b) { return _mm_add_epi8(a, b); }
    static VORN_INLINE __m128i sign() { return _mm_set1_epi8(static_cast<char>(0x80)); }
};
template <>
struct LaneOps<16> {
    using T = ub2;
    static VORN_INLINE __m128i eq(__m128i a, __m128i b) { return _mm_cmpeq_epi16(a, b); }
    static VORN_INLINE __m128i gt(__m128i a, __m128i b) { return _mm_cmpgt_epi16(a, b); }
    static VORN_INLINE __m128i add(__m128i a, __m128i b) { return _mm_add_epi16(a, b); }
    static VORN_INLINE __m128i sign() { return _mm_set1_epi16(static_cast<short>(0x8000)); }
};
template <>
struct LaneOps<32> {
    using T = ub4;
    static VORN_INLINE __m128i eq(__m128i a, __m128i b) { return _mm_cmpeq_epi32(a, b); }
    static VORN_INLINE __m128i gt(__m128i a, __m128i b) { return _mm_cmpgt_epi32(a, b); }
    static VORN_INLINE __m128i add(__m128i a, __m128i b) { return _mm_add_epi32(a, b); }
    static VORN_INLINE __m128i sign() { return _mm_set1_epi32(static_cast<int>(0x80000000u)); }
};

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

    static_assert(kLaneBits != 8 || W == 2 || W == 4, "8-bit lanes serve widths 2 and 4");
    static_assert(kBlockBytes * 8 == kRows * W, "a block is whole bytes");
    static_assert(offset(7) + 16 <= 2 * kBlockBytes, "only the last whole block needs its copy");
};

// A literal in lane terms: a code 0..M, or kAboveAll for the lane's signed
// maximum.
inline constexpr ub8 kAboveAll = ~ub8{0};

template <ub4 W, Cmp C, bool Null>
class LaneCompare {
    using S = Shape<W>;
    using Ops = LaneOps<S::kLaneBits>;
    using T = typename Ops::T;
    static constexpr ub4 H = S::kHalves;

    static constexpr bool kEquality = C == Cmp::eq || C == Cmp::ne;
    static constexpr bool kBiased = Null && (C == Cmp::lt || C == Cmp::le);
    static constexpr bool kFlipped = kBiased || (!kEquality && S::kReachesTop);
    // Forms whose lane test is the opposite of the answer: the block's bits
    // are complemented before they are stored.
    static constexpr bool kInverted =
        C == Cmp::ne || C == Cmp::ge || C == Cmp::ge_le || (C == Cmp::le && !Null);
    static constexpr bool kHasHigh = is_range(C);
    static constexpr bool kComparesZero = Null && C == Cmp::ne;

    __m128i shuffle_[H], mask_[H], low_[H], high_[H], bias_[H];
    ub4 a_, b_;

    // Literal a tested as "x > A": nothing is above the top code.
    static constexpr ub8 above(ub4 a) { return a < S::kTopCode ? a : S::kTopCode; }
    // Literal a tested as "x < A" or "x == A".
    static constexpr ub8 below(ub4 a) { return a <= S::kTopCode ? ub8{a} : kAboveAll; }

    static VORN_INLINE __m128i table_half(const DictTable &t, ub4 h) {
        return _mm_loadu_si128(reinterpret_cast<const __m128i *>(t[W - 1].data() + 16 * h));
    }
    // The lanes of half h holding `code` shifted by each lane's s.
    static VORN_INLINE __m128i literal_lanes(ub8 code, ub4 h) {
        alignas(16) T v[S::kLanes];
        for (ub4 i = 0; i < S::kLanes; ++i) {
            const ub4 lane = code == kAboveAll ? S::kSignedMax
                                               : (static_cast<ub4>(code) << S::shift(h, i)) ^ (kFlipped ? S::kSignBit : 0);
            v[i] = static_cast<T>(lane);
        }
        return _mm_load_si128(reinterpret_cast<const __m128i *>(v));
    }
    // The bias of the null lt and le lanes: minus one code, plus the flip.
    static VORN_INLINE __m128i bias_lanes(ub4 h) {
        alignas(16) T v[S::kLanes];
        for (ub4 i = 0; i < S::kLanes; ++i) v[i] = static_cast<T>(S::kSignBit - (ub4{1} << S::shift(h, i)));
        return _mm_load_si128(reinterpret_cast<const __m128i *>(v));
    }

    // The first and second literal as the lane test reads them.
    static constexpr ub8 lane_low(ub4 a) {
        const ub4 lower = Null && a == 0 ? 1 : a;  // inclusive lower bounds skip null
        switch (C) {
            case Cmp::eq: return Null && a == 0 ? kAboveAll : below(a);
            case Cmp::ne: return below(a);
            case Cmp::lt: return kBiased ? (a == 0 ? 0 : above(a - 1)) : below(a);  // biased: x <= a - 1
            case Cmp::le: return above(a);  // x > A complemented, or biased x < A
            case Cmp::gt: return above(a);
            case Cmp::ge: return below(lower);
            case Cmp::gt_lt: return above(a);
            case Cmp::gt_le: return above(a);
            case Cmp::ge_lt: return below(lower);
            case Cmp::ge_le: return below(lower);
        }
        return 0;
    }
    static constexpr ub8 lane_high(ub4 b) {
        return C == Cmp::gt_lt || C == Cmp::ge_lt ? below(b) : above(b);
    }

public:
    using Text = KernelText<kernel_name<dispatch_index(width_code(W), VORN_ENC_DICT, static_cast<ub4>(C), Null)>()>;

    LaneCompare(ub4 a, ub4 b) : a_(a), b_(b) {
        for (ub4 h = 0; h < H; ++h) {
            shuffle_[h] = table_half(vorn_shuffle_masks, h);
            mask_[h] = table_half(vorn_and_masks, h);
            low_[h] = literal_lanes(lane_low(a), h);
            if constexpr (kHasHigh) high_[h] = literal_lanes(lane_high(b), h);
            if constexpr (kBiased) bias_[h] = bias_lanes(h);
        }
    }

    // The lanes of one vector that match: all ones or all zeros per lane.
    VORN_INLINE __m128i lanes(__m128i v, ub4 h) const {
        __m128i x = _mm_and_si128(_mm_shuffle_epi8(v, shuffle_[h]), mask_[h]);
        if constexpr (kComparesZero) return _mm_or_si128(Ops::eq(x, low_[h]), Ops::eq(x, _mm_setzero_si128()));
        if constexpr (kBiased) x = Ops::add(x, bias_[h]);
        else if constexpr (kFlipped) x = _mm_xor_si128(x, Ops::sign());
        const __m128i a = low_[h];
        if constexpr (C == Cmp::eq) return Ops::eq(x, a);
        else if constexpr (C == Cmp::ne) return Ops::eq(x, a);
        else if constexpr (C == Cmp::lt) return Ops::gt(a, x);
        else if constexpr (C == Cmp::le) return kBiased ? Ops::gt(a, x) : Ops::gt(x, a);
        else if constexpr (C == Cmp::gt) return Ops::gt(x, a);
        else if constexpr (C == Cmp::ge) return Ops::gt(a, x);
        else if constexpr (C == Cmp::gt_lt) return _mm_and_si128(Ops::gt(x, a), Ops::gt(high_[h], x));
        else if constexpr (C == Cmp::gt_le) return _mm_andnot_si128(Ops::gt(x, high_[h]), Ops::gt(x, a));
        else if constexpr (C == Cmp::ge_lt) return _mm_andnot_si128(Ops::gt(a, x), Ops::gt(high_[h], x));
        else return _mm_or_si128(Ops::gt(a, x), Ops::gt(x, high_[h]));
    }

    // One block at p: its bits stored at o, in row order; returns their count.
    VORN_INLINE ub8 block(const ub1 *p, ub1 *o) const {
        __m128i m[8];
        [&]<ub4... K>(std::integer_sequence<ub4, K...>) {
            ((m[K] = lanes(_mm_loadu_si128(reinterpret_cast<const __m128i *>(p + S::offset(K))), K % H)), ...);
        }(std::make_integer_sequence<ub4, 8>{});
        auto bits = [](__m128i v) { return static_cast<ub8>(static_cast<ub4>(_mm_movemask_epi8(v))); };
        if constexpr (S::kLaneBits == 8) {
            ub8 w0 = bits(m[0]) | bits(m[1]) << 16 | bits(m[2]) << 32 | bits(m[3]) << 48;
            ub8 w1 = bits(m[4]) | bits(m[5]) << 16 | bits(m[6]) << 32 | bits(m[7]) << 48;
            if constexpr (kInverted) w0 = ~w0, w1 = ~w1;
            store(o, w0);
            store(o + 8, w1);
            return _mm_popcnt_u64(w0) + _mm_popcnt_u64(w1);
        } else if constexpr (S::kLaneBits == 16) {
            ub8 w = bits(_mm_packs_epi16(m[0], m[1])) | bits(_mm_packs_epi16(m[2], m[3])) << 16 |
                    bits(_mm_packs_epi16(m[4], m[5])) << 32 | bits(_mm_packs_epi16(m[6], m[7])) << 48;
            if constexpr (kInverted) w = ~w;
            store(o, w);
            return _mm_popcnt_u64(w);
        } else {
            const __m128i lo = _mm_packs_epi16(_mm_packs_epi32(m[0], m[1]), _mm_packs_epi32(m[2], m[3]));
            const __m128i hi = _mm_packs_epi16(_mm_packs_epi32(m[4], m[5]), _mm_packs_epi32(m[6], m[7]));
            ub4 w = static_cast<ub4>(bits(lo) | bits(hi) << 16);
            if constexpr (kInverted) w = ~w;
            store(o, w);
            return _mm_popcnt_u32(w);
        }
    }

    // All n rows: whole blocks, the clearing behind them, the tail.
    ub8 scan(ub8 *out, const ub1 *stream, ub4 n) const {
        const ub8 blocks = n / S::kRows;
        ub1 *o = reinterpret_cast<ub1 *>(out);
        ub8 count = 0;
        if (blocks) {
            const ub1 *p = stream;
            for (ub8 b = 1; b < blocks; ++b, p += S::kBlockBytes, o += S::kOutBytes) {
                _mm_prefetch(reinterpret_cast<const char *>(p + 640), _MM_HINT_T0);
                _mm_prefetch(reinterpret_cast<const char *>(p + 704), _MM_HINT_T0);
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
