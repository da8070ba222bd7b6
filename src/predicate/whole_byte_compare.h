// whole_byte_compare.h - the compare of big-endian values on whole bytes: the
// fixed-width kernels of 8, 16, 32 and 64 bits with their _tz forms, and the
// dictionary kernels of the same widths with their _null forms, whose text is
// the same but for the names in their strings.  It is the `scan` and `test`
// that vorn::compare_frame runs.
//
// A row is an unsigned big-endian number of Elem bytes at i * Elem.  In the
// 32- and 64-bit kernels Elem may be shorter than the lane (3 bytes in 32-bit
// lanes; 5, 6, 7 in 64-bit lanes): the element is then read as the upper
// bytes of a lane-wide number whose low bytes are zero, and the literal is cut
// the same way, so the order is that of the elements.
//
// Blocks are 128 bytes of full-width rows: 128 rows of 8 bits, 64 of 16, 32
// of 32, 16 of 64, and the same row counts for a short element.  For the
// orders each lane is byte-swapped by one shuffle and its sign bit flipped by
// an addition; eq and ne compare full-width lanes in the stored order against
// a literal left in the stored order.  A short element always goes through
// its shuffle, which also drops the bytes of the next row; the block's last
// vector is loaded so that it ends at the block's end, with a shuffle of its
// own, so that no block reads past its own bytes.  The lane masks of 16 rows
// are packed to bytes and taken by movemask, one bit per row.
//
// A scan of a column larger than the last-level cache keeps nothing of its
// result in the cache, so the 8- and 16-bit kernels, whose results are an
// eighth and a sixteenth of the column, then write them with non-temporal
// stores and save the reads for ownership of those lines.
//
// The tail behind the last block is scalar, two rows per step: the row's
// bytes are loaded lane-wide and swapped, as in the selective path's row
// test.  For a short element this reads lane - Elem bytes past the row, so
// the column needs that many readable bytes behind its end.
//
// Second::null is the rule of the nullable dictionary columns: a row whose
// value is 0 never matches, in every form.  Second::tz_stream and tz_const
// compare the pair (value, tz) lexically: value first, the tz of the row from
// its stream at data2, or with VORN_TZ_CONST the byte at data2 for all rows.
//
// The orders take one compare per lane: the rows they admit are an interval
// [lo, hi] of numbers (lt is [0, a - 1], gt_le is [a + 1, b], and so on), and
// x lies in it when x - lo, wrapping, is below the interval's size.  The
// subtraction of lo rides on the sign flip's addition, so a range costs what
// a single order costs.  The lanes are tested for lying above the interval
// (x - lo >= size, a greater-than whose first operand is the lane itself, so
// no register is copied) and the block's words are complemented once each.
// An empty interval tests against the lane's signed maximum and is not
// complemented; the whole range of numbers, whose size does not fit a lane,
// is the complement of that.  The null rule raises lo to 1.  A constant tz
// only decides whether each end admits its own literal (for ge: a when
// t >= u, else a + 1), so with VORN_TZ_CONST the orders are intervals too and
// the loop reads no tz.
// With a tz stream the value lanes are compared for order and for equality,
// packed to bytes, and joined with the rows' tz compares there.
#pragma once

#include "frame/compare_frame.h"
#include "predicate/compare_rule.h"
#include "predicate/lanes.h"
#include "predicate/tz_stream.h"

namespace vorn {

enum class Second : ub1 { none, null, tz_stream, tz_const };

template <ub4 Bits, ub4 Elem, Cmp C, Second S>
class WholeByteCompare {
    static constexpr ub4 kLane = Bits / 8;
    static_assert(kLane == 1 || kLane == 2 || kLane == 4 || kLane == 8);
    static_assert(Elem == kLane || (kLane == 4 && Elem == 3) || (kLane == 8 && Elem >= 5 && Elem <= 7));
    static_assert(Elem == kLane || S != Second::null, "dictionary codes are always whole lanes");

    using L = lanes::Lane<kLane>;
    using T = typename L::T;
    using V = lanes::V;
    using Tz = TzStream<(Bits >= 16 ? Bits / 16 : 1)>;  // 1, 2, 4 bits per row

    static constexpr ub4 kRows = 128 / kLane;            // rows per block
    static constexpr ub4 kGroups = 8 / kLane;            // groups of 16 rows per block
    static constexpr ub4 kBlockBytes = kRows * Elem;
    static constexpr ub4 kResultBytes = kRows / 8;       // result bytes per block
    static constexpr ub4 kWords = (kGroups + 3) / 4;     // 64-bit words those fill
    static constexpr bool kMayStream = kResultBytes >= 8;  // whole words per block
    static constexpr ub8 kStreamingColumnBytes = ub8{32} << 20;
    static constexpr CompareRule kRule = compare_rule(C);
    static constexpr bool kTwo = kRule.join != Join::single;
    static constexpr bool kTz = S == Second::tz_stream || S == Second::tz_const;
    static constexpr bool kOrder = needs_order(C);
    static constexpr bool kShort = Elem != kLane;
    static constexpr bool kStoredOrder = !kOrder && !kShort;
    static constexpr bool kInterval = kOrder && S != Second::tz_stream;
    // eq of a nullable column: a row equal to a nonzero literal is not null,
    // so the lanes are compared as in the plain form, and a literal 0 keeps
    // no row of the block.
    static constexpr bool kNullEq = S == Second::null && C == Cmp::eq;
    static_assert(!kTz || kLane > 1, "the 8-bit kernels have no tz");

    // The upper Elem bytes of a lane-wide big-endian load.
    static constexpr T kCut = static_cast<T>(~T{0} << (8 * (kLane - Elem)));
    static constexpr T kSign = lanes::kSignBit<T>;

    // Shuffles of a block: the swap of full lanes; for a short element the
    // vectors 0..6 at k * kStride, and the last vector loaded at kLastAt.
    static constexpr ub4 kStride = 16 / kLane * Elem;
    static constexpr ub4 kLastAt = kBlockBytes - 16;
    static constexpr lanes::Shuffle kSwap = lanes::element_shuffle<kLane>(kLane, 0);
    static constexpr lanes::Shuffle kElements = lanes::element_shuffle<kLane>(Elem, 0);
    static constexpr lanes::Shuffle kLastElements = lanes::element_shuffle<kLane>(Elem, 7 * kStride - kLastAt);

public:
    WholeByteCompare(const vorn_vec *src, const void *const *low, const void *const *high) {
        a_ = literal_value(low[0]);
        va_ = literal_lanes(low[0], a_);
        if constexpr (kTwo) {
            b_ = literal_value(high[0]);
            vb_ = literal_lanes(high[0], b_);
        }
        if constexpr (kTz) {
            tz_ = static_cast<const ub1 *>(src->data2);
            u_ = *static_cast<const ub1 *>(low[1]);
            if constexpr (kTwo) v_ = *static_cast<const ub1 *>(high[1]);
            if constexpr (S == Second::tz_stream) {
                tza_ = Tz::lane_literal(u_);
                if constexpr (kTwo) tzb_ = Tz::lane_literal(v_);
            } else {
                const ub1 t = tz_[0];
                tza_ = all_or_none(holds<kRule.first>(t, u_));
                if constexpr (kTwo) tzb_ = all_or_none(holds<kRule.second>(t, v_));
            }
        }
        if constexpr (kOrder) bias_ = L::splat(kSign);
        if constexpr (kInterval) set_interval();  // after the tz, which it may read
        else if constexpr (kRule.complement) flip_ = ~ub8{0};
        if constexpr (kNullEq) keep_ = a_ != 0 ? ~ub8{0} : 0;
    }

    // Rows 0..n-1 into out; returns their count.  Leaves (n + 63) / 64 words
    // defined with no bit set at n or beyond.  Out of line: kernels that
    // differ only in their names call the one copy.
    VORN_NOINLINE ub8 scan(ub8 *out, const ub1 *stream, ub4 n) const {
        ub1 *result = reinterpret_cast<ub1 *>(out);
        const ub8 blocks = n / kRows;
        ub8 count;
        if (kMayStream && ub8{n} * Elem >= kStreamingColumnBytes) {
            count = whole_blocks<true>(out, stream, blocks);
            _mm_sfence();
        } else {
            count = whole_blocks<false>(out, stream, blocks);
        }
        const ub8 done = blocks * kResultBytes;
        std::memset(result + done, 0, words_for_bits(n) * 8 - done);
        // The tail starts on a block boundary, so a pair never straddles a word.
        ub8 row = blocks * kRows;
        for (; row + 2 <= n; row += 2) {
            const ub8 first = test_row(stream, row), second = test_row(stream, row + 1);
            out[row >> 6] |= (first | second << 1) << (row & 63);
            count += first + second;
        }
        if (row < n) {
            const ub8 hit = test_row(stream, row);
            out[row >> 6] |= hit << (row & 63);
            count += hit;
        }
        return count;
    }

    // The whole blocks; returns their count.
    template <bool NonTemporal>
    VORN_INLINE ub8 whole_blocks(ub8 *out, const ub1 *stream, ub8 blocks) const {
        ub1 *result = reinterpret_cast<ub1 *>(out);
        ub8 count = 0;
        const ub1 *p = stream;
        // A copy whose address never escapes: its vectors stay in registers,
        // where the result's byte stores would make the compiler reload them.
        const WholeByteCompare self = *this;
        for (ub8 b = 0; b < blocks; ++b, p += kBlockBytes) {
            ub8 words[kWords];
            self.block(p, b, words);
            if constexpr (NonTemporal) {
                for (ub4 w = 0; w < kWords; ++w)
                    _mm_stream_si64(reinterpret_cast<long long *>(out + b * kWords + w), static_cast<long long>(words[w]));
            } else {
                std::memcpy(result + b * kResultBytes, words, kResultBytes);
            }
            for (ub4 w = 0; w < kWords; ++w) count += static_cast<ub8>(_mm_popcnt_u64(words[w]));
        }
        return count;
    }

    // One row, for the selective path.
    bool test(const ub1 *stream, ub4 row) const { return test_row(stream, row); }

private:
    static VORN_INLINE T literal_value(const void *p) {
        if constexpr (kLane == 1) return *static_cast<const ub1 *>(p);
        else return static_cast<T>(bswap(load<T>(p)) & kCut);
    }
    static VORN_INLINE V literal_lanes(const void *p, T value) {
        if constexpr (kStoredOrder) return L::splat(load<T>(p));
        else if constexpr (kOrder) return L::splat(static_cast<T>(value + kSign));
        else return L::splat(value);
    }
    static VORN_INLINE V all_or_none(bool b) { return b ? _mm_set1_epi8(-1) : _mm_setzero_si128(); }

    // The order as the interval [lo, hi]: lanes get x - lo + sign from the
    // bias, and match where that is below size + sign.
    VORN_INLINE void set_interval() {
        constexpr bool kLower = C == Cmp::gt || C == Cmp::ge || kTwo;  // bounded below by a
        constexpr bool kUpper = C == Cmp::lt || C == Cmp::le || kTwo;  // bounded above by a, or b
        constexpr bool kLowerTie = C == Cmp::ge || C == Cmp::ge_lt || C == Cmp::ge_le;
        constexpr bool kUpperTie = C == Cmp::le || C == Cmp::gt_le || C == Cmp::ge_le;
        const T upper = kTwo ? b_ : a_;
        bool lower_tie = kLowerTie, upper_tie = kUpperTie;  // each end admits its literal
        if constexpr (S == Second::tz_const) {
            const ub1 t = tz_[0], upper_tz = kTwo ? v_ : u_;
            lower_tie = kLowerTie ? t >= u_ : t > u_;
            upper_tie = kUpperTie ? t <= upper_tz : t < upper_tz;
        }
        bool empty = false;
        T lo = 0, hi = static_cast<T>(~T{0});
        if constexpr (kLower) {
            empty = !lower_tie && a_ == static_cast<T>(~T{0});
            lo = lower_tie ? a_ : static_cast<T>(a_ + 1);
        }
        if constexpr (kUpper) {
            empty = empty || (!upper_tie && upper == 0);
            hi = upper_tie ? upper : static_cast<T>(upper - 1);
        }
        if constexpr (S == Second::null) lo = lo == 0 ? T{1} : lo;
        empty = empty || lo > hi;
        const T size = empty ? T{0} : static_cast<T>(hi - lo + 1);  // 0 also for every number
        const T offset = empty ? T{0} : lo;
        bias_ = L::splat(static_cast<T>(kSign - offset));
        // Above the interval: x - lo + sign > size + sign - 1, signed.  Size 0
        // (none, or every number) tests against the signed maximum: never above.
        limit_ = L::splat(static_cast<T>(size == 0 ? kSign - 1 : size + kSign - 1));
        flip_ = empty ? 0 : ~ub8{0};
    }

    VORN_INLINE T row_value(const ub1 *stream, ub8 row) const {
        const ub1 *p = stream + row * Elem;
        if constexpr (kLane == 1) return *p;
        else return static_cast<T>(bswap(load<T>(p)) & kCut);
    }

    VORN_INLINE ub8 test_row(const ub1 *stream, ub8 row) const {
        const T x = row_value(stream, row);
        bool first, second = false;
        if constexpr (kTz) {
            const ub1 t = S == Second::tz_const ? tz_[0] : Tz::read(tz_, row);
            first = pair_holds<kRule.first>(x, t, a_, u_);
            if constexpr (kTwo) second = pair_holds<kRule.second>(x, t, b_, v_);
        } else {
            first = holds<kRule.first>(x, a_);
            if constexpr (kTwo) second = holds<kRule.second>(x, b_);
        }
        bool match = join<kRule.join>(first, second) != kRule.complement;
        if constexpr (S == Second::null) match = match && x != 0;
        return match;
    }

    // Vector K of the block at p, in lane form: left-aligned native numbers,
    // sign-flipped for the orders; for eq and ne of full lanes the bytes as
    // stored.
    template <ub4 K>
    VORN_INLINE V vector_lanes(const ub1 *p) const {
        V x;
        if constexpr (!kShort) {
            x = lanes::load(p + 16 * K);
            if constexpr (kOrder && kLane > 1) x = _mm_shuffle_epi8(x, lanes::control(kSwap));
        } else if constexpr (K < 7) {
            x = _mm_shuffle_epi8(lanes::load(p + K * kStride), lanes::control(kElements));
        } else {
            x = _mm_shuffle_epi8(lanes::load(p + kLastAt), lanes::control(kLastElements));
        }
        if constexpr (kOrder) x = L::add(x, bias_);
        return x;
    }

    // The lane masks of 16 rows (group G) under f, packed to one byte per row.
    template <ub4 G, class F>
    static VORN_INLINE V group_rows(const V *x, F f) {
        V m[kLane];
        for (ub4 j = 0; j < kLane; ++j) m[j] = f(x[G * kLane + j]);
        return lanes::pack_rows<kLane>(m);
    }

    // The form's mask of one lane vector: an order by its interval; eq and ne
    // by equality, with a constant tz's relation or the null rule.
    VORN_INLINE V lane_mask(V x) const {
        if constexpr (kInterval) {
            return L::gt(x, limit_);  // above the interval; complemented per word
        } else {
            static_assert(!kOrder && !kTwo);
            V m = L::eq(x, va_);
            if constexpr (S == Second::tz_const) m = _mm_and_si128(m, tza_);
            if constexpr (S == Second::null && !kNullEq) {
                const V zero = L::eq(x, _mm_setzero_si128());
                static_assert(kRule.complement, "ne: neither the literal nor null");
                m = _mm_or_si128(m, zero);
            }
            return m;
        }
    }

    // The pair relation R of 16 rows (group G) to a literal end: the value's
    // relation, or value equal and the tz relation t (a byte mask).
    template <Rel R, ub4 G>
    VORN_INLINE V pair_rows(const V *x, V literal, V t) const {
        const V equal = group_rows<G>(x, [&](V v) { return L::eq(v, literal); });
        if constexpr (R == Rel::eq) {
            return _mm_and_si128(equal, t);
        } else {
            const V order = group_rows<G>(x, [&](V v) { return holds_lanes<R, L>(v, literal); });
            return _mm_or_si128(order, _mm_and_si128(equal, t));
        }
    }

    // Block b at p: its result bits in words, the low kResultBytes of them.
    VORN_INLINE void block(const ub1 *p, ub8 b, ub8 *words) const {
        V x[8];
        lanes::unroll<8>([&](auto k) { x[k] = vector_lanes<k>(p); });
        V tz_bytes = _mm_setzero_si128();
        if constexpr (S == Second::tz_stream) tz_bytes = _mm_loadl_epi64(reinterpret_cast<const V *>(tz_ + b * 8));
        for (ub4 w = 0; w < kWords; ++w) words[w] = 0;
        lanes::unroll<kGroups>([&](auto g) {
            V rows;
            if constexpr (S != Second::tz_stream) {
                rows = group_rows<g>(x, [&](V v) { return lane_mask(v); });
            } else {
                const V fields = Tz::group_fields(tz_bytes, g);
                const V ta = holds_lanes<kRule.first, lanes::Lane<1>>(fields, tza_);
                V tb = ta;
                if constexpr (kTwo) tb = holds_lanes<kRule.second, lanes::Lane<1>>(fields, tzb_);
                const V first = pair_rows<kRule.first, g>(x, va_, ta);
                V second = first;
                if constexpr (kTwo) second = pair_rows<kRule.second, g>(x, vb_, tb);
                rows = join<kRule.join>(first, second);
            }
            words[g / 4] |= ub8{lanes::row_bits(rows)} << (16 * (g % 4));
        });
        for (ub4 w = 0; w < kWords; ++w) {
            words[w] ^= flip_ & kWordBits;
            if constexpr (kNullEq) words[w] &= keep_;
        }
    }

    // The bits of a result word that a block fills: 16 per group.
    static constexpr ub8 kWordBits = kGroups >= 4 ? ~ub8{0} : (ub8{1} << (16 * kGroups)) - 1;

    T a_{}, b_{};           // the literals as native numbers, cut to the element
    V va_{}, vb_{};         // the literals in lane form
    V bias_{};              // added to every lane: the sign flip, less lo for an interval
    V limit_{};             // an interval's size + sign - 1: lanes above it are outside
    ub8 flip_ = 0;          // all ones where a block's words are complemented
    ub8 keep_ = ~ub8{0};    // kNullEq: all ones unless the literal is 0
    const ub1 *tz_ = nullptr;
    ub1 u_ = 0, v_ = 0;     // the literals' tz
    V tza_{}, tzb_{};       // tz_stream: the tz literals per field; tz_const: the tz relation of eq
};

}  // namespace vorn
