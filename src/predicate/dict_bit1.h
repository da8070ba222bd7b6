// dict_bit1.h - the compares of 1-bit codes.  A code is a bit, so nothing is
// compared: row i's code is bit i of the stream in big-endian bit order, and
// a result is little-endian within its byte, so the stream with each byte's
// bits reversed is the set of rows whose code is 1.  What the form makes of
// it depends only on its answers for code 0 and code 1, known once the
// literals are: no row, the rows of code 1 (the stream), the rows of code 0
// (its complement), or every row.
//
// The literal decides the outcome, and a 1-bit literal is only zero or not:
// a nonzero literal stands for code 1.  So eq with a nonzero literal gives
// the stream and with 0 the complement; lt with a nonzero literal the
// complement and with 0 nothing; gt_lt can match no row.  The selective path
// compares each row with the same literals, so both paths agree.  In the
// _null forms code 0 never matches, so only "nothing" and "the stream" occur.
#pragma once

#include "predicate/dict_rows.h"

namespace vorn::dict {

enum class Bit1Outcome : ub1 { none, stream, complement, all };

// Writes the outcome for n rows into out: (n + 63) / 64 words, no bit at n
// or beyond set.  The stream and its complement are counted in the pass
// that writes them.  Returns the count.
VORN_INTERNAL ub8 bit1_scan(ub8 *out, const ub1 *stream, ub4 n, Bit1Outcome outcome);

template <Cmp C, bool Null>
class Bit1Compare {
    ub4 a_, b_;

public:
    using Text = KernelText<kernel_name<dispatch_index(width_code(1), VORN_ENC_DICT, static_cast<ub4>(C), Null)>()>;

    Bit1Compare(ub4 a, ub4 b) : a_(a != 0), b_(b != 0) {}

    Bit1Outcome outcome() const {
        const bool zero = row_matches<C, Null>(0, a_, b_), one = row_matches<C, Null>(1, a_, b_);
        return zero ? (one ? Bit1Outcome::all : Bit1Outcome::complement)
                    : (one ? Bit1Outcome::stream : Bit1Outcome::none);
    }
    ub8 scan(ub8 *out, const ub1 *stream, ub4 n) const { return bit1_scan(out, stream, n, outcome()); }
    VORN_INLINE bool test(const ub1 *stream, ub4 row) const {
        return row_matches<C, Null>(read_code<1>(stream, row), a_, b_);
    }
};

}  // namespace vorn::dict
