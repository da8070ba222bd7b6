// byte_equals.h - a test-only compare for the compare frame: one-byte codes
// equal to a literal, optionally recording which rows the selective path
// asked about.  Its kernel name is "vorn_test_compare".
#pragma once

#include <cstring>
#include <set>

#include "frame/compare_frame.h"

namespace vorntest {

struct ByteEquals {
    using Text = vorn::KernelText<vorn::Str("vorn_test_compare")>;
    ub1 literal;
    mutable std::set<ub4> *tested = nullptr;

    ub8 scan(ub8 *out, const ub1 *stream, ub4 n) const {
        std::memset(out, 0, (n + 63) / 64 * 8);
        ub8 count = 0;
        for (ub4 i = 0; i < n; ++i)
            if (stream[i] == literal) out[i >> 6] |= ub8{1} << (i & 63), ++count;
        return count;
    }
    bool test(const ub1 *stream, ub4 row) const {
        if (tested) tested->insert(row);
        return stream[row] == literal;
    }
};

}  // namespace vorntest
