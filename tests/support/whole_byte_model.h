// whole_byte_model.h - the scalar model of the compares on whole-byte values,
// written from their meaning and not from the kernels' means: a row is the
// big-endian number of its bytes, a literal the number of its first bytes,
// and a form is a condition on the three-way order of the row against each
// literal.  With a second key the order is that of the pair (value, tz).
#pragma once

#include <gtest/gtest.h>

#include <vector>

#include "support/test_host.h"

namespace vorntest {

// The big-endian number of `bytes` bytes at p.
inline ub8 be_number(const ub1 *p, unsigned bytes) {
    ub8 v = 0;
    for (unsigned k = 0; k < bytes; ++k) v = v << 8 | p[k];
    return v;
}

// -1, 0, 1: x against a, then t against u when the values are equal.
inline int pair_order(ub8 x, unsigned t, ub8 a, unsigned u) {
    if (x != a) return x < a ? -1 : 1;
    if (t != u) return t < u ? -1 : 1;
    return 0;
}

// Form `op` (0..9) given the orders of the row against the first literal
// (oa) and against the second (ob).
inline bool form_holds(unsigned op, int oa, int ob) {
    switch (op) {
        case VORN_OP_EQ: return oa == 0;
        case VORN_OP_LT: return oa < 0;
        case VORN_OP_GT: return oa > 0;
        case VORN_OP_LE: return oa <= 0;
        case VORN_OP_GE: return oa >= 0;
        case VORN_OP_NE: return oa != 0;
        case VORN_OP_GT_LT: return oa > 0 && ob < 0;
        case VORN_OP_GT_LE: return oa > 0 && ob <= 0;
        case VORN_OP_GE_LT: return oa >= 0 && ob < 0;
        case VORN_OP_GE_LE: return oa >= 0 && ob <= 0;
    }
    return false;
}

// The tz of row i in a stream of `bits` bits per row, big-endian bit order.
inline unsigned tz_of(const ub1 *stream, unsigned bits, ub8 i) {
    const ub8 bit = i * bits;
    return (stream[bit >> 3] >> (8 - bits - (bit & 7))) & ((1u << bits) - 1);
}

// A stream of `bits` bits per row holding `tz`.
inline Bytes tz_stream(const std::vector<unsigned> &tz, unsigned bits) {
    Bytes out((tz.size() * bits + 7) / 8);
    for (std::size_t i = 0; i < tz.size(); ++i) {
        const ub8 bit = i * bits;
        out.data()[bit >> 3] |= static_cast<ub1>(tz[i] << (8 - bits - (bit & 7)));
    }
    return out;
}

// What the kernel must leave, after filter_bv and bv_aux (either may be null).
struct Expected {
    std::vector<bool> bits;
    ub8 count = 0;
};

inline Expected restrict_rows(const std::vector<bool> &match, const ub8 *filter, const ub8 *aux) {
    Expected e;
    for (std::size_t i = 0; i < match.size(); ++i) {
        const bool b = match[i] && (!filter || vornhost::test_bit(filter, i)) && (!aux || vornhost::test_bit(aux, i));
        e.bits.push_back(b);
        e.count += b;
    }
    return e;
}

// Expands per-run bits to rows by the run lengths.
inline Expected expand_runs(const Expected &runs, const std::vector<ub4> &lengths) {
    Expected e;
    for (std::size_t r = 0; r < lengths.size(); ++r)
        for (ub4 k = 0; k < lengths[r]; ++k) {
            e.bits.push_back(runs.bits[r]);
            e.count += runs.bits[r];
        }
    return e;
}

// How a kernel is called: with or without filter_bv, bv_aux, the selective
// flag, a compressed column, a kernel context.
enum class Mode { plain, filter, aux, selective, selective_filter, compressed, compressed_selective, no_kctx };
inline constexpr Mode kModes[] = {Mode::plain,      Mode::filter,     Mode::aux,
                                  Mode::selective,  Mode::selective_filter, Mode::compressed,
                                  Mode::compressed_selective, Mode::no_kctx};
inline bool has_filter(Mode m) { return m == Mode::filter || m == Mode::selective_filter; }
inline bool is_selective(Mode m) {
    return m == Mode::selective || m == Mode::selective_filter || m == Mode::compressed_selective;
}
inline bool has_aux(Mode m) { return m == Mode::aux || is_selective(m); }
inline bool is_compressed(Mode m) { return m == Mode::compressed || m == Mode::compressed_selective; }

// One call's set-up for a mode: the column's filter and compressed stream,
// the selection, and the kernel context the call takes.  Not movable: the
// context points at the host.
struct ModeRun {
    Mode mode;
    TestHost host;
    std::vector<ub8> filter, aux;
    vorn_kernel_ctx k;

    ModeRun(Mode m, Column &col, ub4 rows, std::mt19937_64 &rng)
        : mode(m), filter(random_bits(rng, rows, 0.7)), aux(random_bits(rng, rows, 0.6)), k(host.kctx()) {
        if (has_filter(m)) col.vec.filter_bv = filter.data();
        if (is_compressed(m)) {
            host.use_copying_decoder();
            col.compress_by_copy();
        }
        if (has_aux(m)) k.bv_aux = aux.data();
        if (is_selective(m)) k.flags = VORN_CTX_SELECTIVE;
    }
    ModeRun(const ModeRun &) = delete;

    vorn_kernel_ctx *kctx() { return mode == Mode::no_kctx ? nullptr : &k; }
    // The rows the kernel must leave of those that match.
    Expected expect(const std::vector<bool> &match) const {
        return restrict_rows(match, has_filter(mode) ? filter.data() : nullptr, has_aux(mode) ? aux.data() : nullptr);
    }
    // After the call: the selection flag, and one allocation for a compressed column.
    void check_after(const std::string &kernel) const {
        EXPECT_EQ(k.done_flags, has_aux(mode) ? VORN_DONE_BV_AUX : 0u);
        if (is_compressed(mode)) {
            ASSERT_EQ(host.allocs.size(), 1u);
            EXPECT_EQ(host.allocs[0].name, kernel + ": vec1_decomp");
            EXPECT_EQ(host.decode_calls, 1u);
        }
    }
};

// Result bits, count, code, the bits behind the end and the guard words.
inline ::testing::AssertionResult matches(const Result &res, const Expected &e, ub8 code) {
    for (std::size_t i = 0; i < e.bits.size(); ++i)
        if (res.bit(i) != e.bits[i])
            return ::testing::AssertionFailure() << "row " << i << " is " << res.bit(i) << ", expected " << e.bits[i];
    if (!res.clear_behind(e.bits.size())) return ::testing::AssertionFailure() << "bits set behind row " << e.bits.size();
    if (res.vec.num_ones != e.count)
        return ::testing::AssertionFailure() << "num_ones " << res.vec.num_ones << ", expected " << e.count;
    if (code != (e.count == 0 ? 1u : 0u)) return ::testing::AssertionFailure() << "code " << code << " for count " << e.count;
    if (!res.guard_intact()) return ::testing::AssertionFailure() << "guard words overwritten";
    return ::testing::AssertionSuccess();
}

}  // namespace vorntest
