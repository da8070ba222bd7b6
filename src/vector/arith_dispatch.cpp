// arith_dispatch.cpp - vorn_vector_arith_dispatch: from the operation and
// the three operands' descriptions to one of the 1,104 arithmetic kernels.
// The key is formed as the host forms it and read back field by field, so
// that descriptions which meet at one key meet at one kernel.
#include "vector/arith_kernel.h"

namespace vorn::vec {
namespace {

constexpr ub4 operand_code(ub4 type, ub4 c, ub4 sparse) { return 4 * type + c + 2 * sparse; }

// One operand's field of the key (0 to 35) as a form; false for a sparse
// operand, an int8 with the C bit, or a type without kernels.
bool key_form(ub4 code, Form *f) {
    const ub4 type = code / 4, c = code & 1, sparse = (code >> 1) & 1;
    if (sparse != 0 || (type == kTypeInt8 && c != 0)) return false;
    return form_of(type, c != 0, f);
}

const ArithOpTable *const kTables[kArithOps] = {&kArithAdd, &kArithSub, &kArithMul, &kArithDiv};

}  // namespace
}  // namespace vorn::vec

extern "C" {

ub4 vorn_vector_arith_key(ub4 op, ub4 type_a, ub4 c_a, ub4 sparse_a, ub4 type_b, ub4 c_b, ub4 sparse_b,
                          ub4 type_r, ub4 c_r, ub4 sparse_r, ub4 scalar, ub4 wnorm) {
    using vorn::vec::operand_code;
    ub4 key = op * 36 + operand_code(type_a, c_a, sparse_a);
    key = key * 36 + operand_code(type_b, c_b, sparse_b);
    key = key * 36 + operand_code(type_r, c_r, sparse_r);
    return (key * 2 + scalar) * 2 + wnorm;
}

vorn_vector_arith_fn vorn_vector_arith_dispatch(ub4 op, ub4 type_a, ub4 c_a, ub4 sparse_a, ub4 type_b, ub4 c_b,
                                                ub4 sparse_b, ub4 type_r, ub4 c_r, ub4 sparse_r, ub4 scalar,
                                                ub4 wnorm) {
    using namespace vorn::vec;
    ub4 key = vorn_vector_arith_key(op, type_a, c_a, sparse_a, type_b, c_b, sparse_b, type_r, c_r, sparse_r,
                                    scalar, wnorm);
    const ub4 shape = key % kArithShapes;
    key /= kArithShapes;
    Form a, b, r;
    if (!key_form(key % 36, &r) || !key_form(key / 36 % 36, &b) || !key_form(key / (36 * 36) % 36, &a))
        return nullptr;
    const ub4 code = key / (36 * 36 * 36);
    if (code < kFirstArithCode || code >= kFirstArithCode + kArithOps) return nullptr;
    return kTables[code - kFirstArithCode]->at(a, b, r, shape);
}

}  // extern "C"
