// dict_model.h - the test's own account of the dictionary compares: how a
// host calls one (index, literal form, shape), and what it must answer, row
// by row from the codes the column was built from.
#pragma once

#include <cstring>
#include <vector>

#include "support/test_host.h"

namespace vorntest::dict {

inline ub8 top_code(unsigned w) { return w == 64 ? ~ub8{0} : (ub8{1} << w) - 1; }

inline ub4 dict_index(unsigned w, unsigned op, bool null) { return kernel_index(w, VORN_ENC_DICT, op, null); }

// True when the table holds the width's kernels (all twenty or none).
inline bool served(unsigned w) {
    unsigned present = 0;
    for (unsigned op = 0; op < 10; ++op)
        for (bool null : {false, true}) present += kernel(dict_index(w, op, null)).cmp != nullptr;
    EXPECT_TRUE(present == 0 || present == 20) << "width " << w << " has " << present << " of 20 kernels";
    return present == 20;
}

// A literal in the form of its width: one byte for 8; big-endian 2, 4, 8
// bytes for 16, 32, 64; a native ub4 for every other width.
struct Literal {
    alignas(8) ub1 bytes[8] = {};
    Literal(unsigned w, ub8 value) {
        const unsigned n = w == 8 ? 1 : w == 16 ? 2 : w == 32 ? 4 : w == 64 ? 8 : 0;
        if (n == 0) {
            const ub4 v = static_cast<ub4>(value);
            std::memcpy(bytes, &v, 4);
        } else {
            for (unsigned k = 0; k < n; ++k) bytes[k] = static_cast<ub1>(value >> (8 * (n - 1 - k)));
        }
    }
};

// Calls the kernel of (w, op, null) as a host does, through the table.
inline ub8 call_dict(unsigned w, unsigned op, bool null, vorn_vec *res, vorn_vec *src, ub8 a, ub8 b,
                     vorn_kernel_ctx *kctx) {
    const Literal la(w, a), lb(w, b);
    const void *low[1] = {la.bytes}, *high[1] = {lb.bytes};
    const vorn_kernel &k = kernel(dict_index(w, op, null));
    return is_range_op(op) ? k.range(res, src, low, high, kctx) : k.cmp(res, src, low, kctx);
}

// A literal as the code it stands for: on a 1-bit column a nonzero literal
// is code 1; on the other widths a literal is compared as the number it is.
inline ub8 as_code(unsigned w, ub8 literal) { return w == 1 ? literal != 0 : literal; }

// The answer for one code: unsigned compare; in _null forms code 0 never
// matches.
inline bool model_row(unsigned op, bool null, ub8 code, ub8 a, ub8 b) {
    return !(null && code == 0) && compare_model(op, code, a, b);
}

struct Expected {
    std::vector<bool> bits;
    ub8 count = 0;
};

// The rows the kernel must leave: the compare, ANDed with filter and aux.
inline Expected model(unsigned w, const std::vector<ub8> &codes, unsigned op, bool null, ub8 a, ub8 b,
                      const ub8 *filter = nullptr, const ub8 *aux = nullptr) {
    a = as_code(w, a);
    b = as_code(w, b);
    Expected e;
    e.bits.resize(codes.size());
    for (std::size_t i = 0; i < codes.size(); ++i) {
        bool hit = model_row(op, null, codes[i], a, b);
        if (filter) hit = hit && vornhost::test_bit(filter, i);
        if (aux) hit = hit && vornhost::test_bit(aux, i);
        e.bits[i] = hit;
        e.count += hit;
    }
    return e;
}

}  // namespace vorntest::dict
