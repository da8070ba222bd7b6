// arith_flex.cpp - the flexible drivers of vorn_vector_arith_dydi: rows that
// are stored values with their own headers, each row's kernel picked from
// the forms its headers name.
//
// Per row, in walk order (row_walk.h: bit vector, row list or every row from
// the cursor, at most res->size rows):
//   1. The headers are read as lvector_to_header_basic reads them: magic
//      0xDB, version up to 3, a bit of 0x12 in the flags; the format byte
//      gives the type (float, double, int8; others have no kernel), a clear
//      0x08 flag the C form (int8 has one form), 0x20 a sparse body.
//   2. Paired and single rows need the same dimension count on both sides.
//   3. The kernel is the one of the operation for (left form, right form or
//      the scalar's, result form), with the norm when `norms` is given; the
//      forms of the last row are remembered, so a column of one form
//      dispatches once.
//   4. The kernel writes the body, then the driver writes the header.
// A row fails on a refused header, differing dimensions, no kernel (a
// sparse body, float16, bfloat16, bits, a result narrower than an operand),
// a value too long for its ub2 length, or a kernel return of 4 or 5.  Such a
// row is not returned as an error: it loses its bit in bv_aux when the walk
// runs over one, its length (when res->data2 is given) is 0, its header and
// norm are not written (a kernel that failed may have stored part of the
// body), and the walk goes on with the next row and the next result place.
//
// The result value of a row: magic 0xDB, version 0, reserved 0, flags 0x02
// with 0x08 for a native body (VORN_NATIVE_FP on the result, and always for
// int8), the format byte of the result's elem_type, the row's dimension
// count big-endian; the 8-byte field at offset 9 holds the row's norm when
// norms are asked (as a native double, or in the order-preserving form when
// the result's floats are), zero bytes otherwise; the body at the offset the
// header implies (17; 24 for a native float or double body).  When
// res->data2 is given it receives each result row's length in bytes as a
// ub2, so the result is also a VORN_PTR_LEN column of stored values.
#include <cmath>

#include "vector/arith_drivers.h"
#include "vector/arith_kernel.h"
#include "vector/row_walk.h"

namespace vorn::vec {
namespace {

enum class FlexShape { Paired, Single, Scalar };

// One row's header as the kernels need it.
struct RowForm {
    ub4 code;  // 4 * type + C + 2 * sparse: the operand's field of the dispatch key
    ub4 dims;
    ub4 body_off;
};

// The library's type of a format byte, for the types with arithmetic
// kernels; 0 (no kernel) for every other format.
constexpr ub4 arith_type_of_format(ub4 format) {
    return format == VORN_LV_FLOAT ? kTypeFloat
           : format == VORN_LV_DOUBLE ? kTypeDouble
           : format == VORN_LV_INT8   ? kTypeInt8
                                      : 0;
}
constexpr ub4 format_of_type(ub4 type) {
    return type == kTypeFloat ? VORN_LV_FLOAT : type == kTypeDouble ? VORN_LV_DOUBLE : VORN_LV_INT8;
}
constexpr ub4 operand_code(ub4 type, ub4 c, ub4 sparse) { return 4 * type + c + 2 * sparse; }

VORN_INLINE bool read_row(const void *value, RowForm *f) {
    const auto *b = static_cast<const ub1 *>(value);
    if (b[0] != VORN_LV_MAGIC || b[1] > VORN_LV_MAX_VERSION || (b[3] & VORN_LV_USABLE_MASK) == 0) return false;
    const ub4 flags = b[3], format = b[4], type = arith_type_of_format(format);
    const ub4 c = type != kTypeInt8 && (flags & VORN_LV_NATIVE) == 0 ? 1 : 0;
    f->code = operand_code(type, c, (flags & VORN_LV_SPARSE) != 0 ? 1 : 0);
    f->dims = load_be32(b + 5);
    f->body_off = body_offset(flags, format);
    return true;
}

// What every row of the call shares: the result's form and the kernel of
// the last pair of operand forms seen.
struct FlexPlan {
    ub4 op;
    ub4 wnorm;
    ub4 res_type, res_c;
    ub1 res_flags, res_format;
    ub4 res_body_off, res_elem_bytes;
    ub4 last_key = ~0u;
    vorn_vector_arith_fn last_kernel = nullptr;

    vorn_vector_arith_fn kernel(ub4 a, ub4 b, ub4 scalar) {
        const ub4 key = a * 36 + b;
        if (key != last_key) {
            last_key = key;
            last_kernel = vorn_vector_arith_dispatch(op, a / 4, a & 1, (a >> 1) & 1, b / 4, b & 1, (b >> 1) & 1,
                                                     res_type, res_c, 0, scalar, wnorm);
        }
        return last_kernel;
    }
};

bool arith_type(ub4 type) { return type == kTypeFloat || type == kTypeDouble || type == kTypeInt8; }

template <FlexShape Shape>
ub8 walk_flex(vorn_vec *res, double *norms, vorn_vec *left, vorn_vec *right, ub4 op, vorn_kernel_ctx *ctx) {
    constexpr bool kScalar = Shape == FlexShape::Scalar, kSingle = Shape == FlexShape::Single;
    const vorn_enc_ctx *oe = res->enc_ctx;
    FlexPlan plan;
    plan.op = op;
    plan.wnorm = norms != nullptr ? 1 : 0;
    plan.res_type = oe->elem_type;
    plan.res_c = plan.res_type != kTypeInt8 && !VORN_ENC_CTX_FLAG(oe, VORN_NATIVE_FP) ? 1 : 0;
    plan.res_flags = static_cast<ub1>(0x02 | (plan.res_c ? 0 : VORN_LV_NATIVE));
    plan.res_format = static_cast<ub1>(format_of_type(plan.res_type));
    plan.res_body_off = body_offset(plan.res_flags, plan.res_format);
    plan.res_elem_bytes = plan.res_type == kTypeDouble ? 8 : plan.res_type == kTypeFloat ? 4 : 1;

    // The operand that is the same for every row: the scalar's form, or the
    // single left value's header (a refused one fails every row).
    const void *scalar = kScalar ? right->data : nullptr;
    RowForm fixed{};
    bool fixed_ok = true;
    if constexpr (kScalar) {
        const vorn_enc_ctx *re = right->enc_ctx;
        fixed.code = operand_code(re->elem_type, re->elem_type != kTypeInt8 && !VORN_ENC_CTX_FLAG(re, VORN_NATIVE_FP), 0);
    } else if constexpr (kSingle) {
        fixed_ok = read_row(row_pointer(left, 0), &fixed);
    }

    void *const *out_rows = static_cast<void *const *>(res->data);
    ub2 *lengths = static_cast<ub2 *>(res->data2);
    ub8 *selection = ctx != nullptr ? const_cast<ub8 *>(ctx->bv_aux) : nullptr;
    vorn_vec *walked_col = kSingle ? right : left;

    auto fail = [&](ub8 k, ub4 r) {
        if (selection != nullptr) selection[r >> 6] &= ~(ub8{1} << (r & 63));
        if (lengths != nullptr) lengths[k] = 0;
    };

    ub8 done = 0;
    const ub8 code = walk_rows(
        ctx, walked_col->size, res->size,
        [&](const ub4 *rows, ub4 n) {
            if (!kSingle) prefetch_row_pointers(left, rows, n);
            if (!kScalar) prefetch_row_pointers(right, rows, n);
        },
        [&](ub8 k, ub4 r, ub4 next) -> ub8 {
            if (!kSingle) __builtin_prefetch(row_pointer(left, next));
            if (!kScalar) __builtin_prefetch(row_pointer(right, next));
            const ub1 *lv = static_cast<const ub1 *>(row_pointer(left, kSingle ? 0 : r));
            const ub1 *rv = kScalar ? nullptr : static_cast<const ub1 *>(row_pointer(right, r));
            RowForm a, b;
            if constexpr (kSingle) {
                a = fixed;
                if (!fixed_ok || !read_row(rv, &b)) return fail(k, r), 0;
            } else if constexpr (kScalar) {
                b = fixed;
                if (!read_row(lv, &a)) return fail(k, r), 0;
            } else {
                if (!read_row(lv, &a) || !read_row(rv, &b)) return fail(k, r), 0;
            }
            if (!kScalar && a.dims != b.dims) return fail(k, r), 0;
            const ub8 bytes = plan.res_body_off + ub8{a.dims} * plan.res_elem_bytes;
            if (lengths != nullptr && bytes > 0xFFFF) return fail(k, r), 0;
            const vorn_vector_arith_fn kernel = plan.kernel(a.code, b.code, kScalar ? 1 : 0);
            if (kernel == nullptr) return fail(k, r), 0;
            ub1 *out = static_cast<ub1 *>(out_rows[k]);
            double norm = 0.0;
            if (kernel(a.dims, lv + a.body_off, kScalar ? scalar : rv + b.body_off, out + plan.res_body_off,
                       &norm) != 0)
                return fail(k, r), 0;
            out[0] = VORN_LV_MAGIC;
            out[1] = 0;
            out[2] = 0;
            out[3] = plan.res_flags;
            out[4] = plan.res_format;
            store<ub4>(out + 5, bswap(a.dims));
            const ub8 field = norms == nullptr ? 0
                              : plan.res_c     ? order_encode64(std::bit_cast<ub8>(norm))
                                               : std::bit_cast<ub8>(norm);
            store<ub8>(out + 9, field);
            if (norms != nullptr) norms[k] = norm;
            if (lengths != nullptr) lengths[k] = static_cast<ub2>(bytes);
            return 0;
        },
        &done);
    res->num_ones = static_cast<ub4>(done);
    return code;
}

}  // namespace

// The types the flexible drivers can serve at all: a result or a scalar of
// another type fails every row, so the entry refuses the call instead.
bool flex_types_served(const vorn_vec *res, const vorn_vec *scalar) {
    return arith_type(res->enc_ctx->elem_type) && (scalar == nullptr || arith_type(scalar->enc_ctx->elem_type));
}

}  // namespace vorn::vec

extern "C" {

ub8 vorn_vector_arith_vec_paired_flex(vorn_vec *res, double *norms, vorn_vec *left, vorn_vec *right, ub4 op,
                                      vorn_kernel_ctx *ctx) {
    return vorn::vec::walk_flex<vorn::vec::FlexShape::Paired>(res, norms, left, right, op, ctx);
}

ub8 vorn_vector_arith_vec_single_flex(vorn_vec *res, double *norms, vorn_vec *left, vorn_vec *right, ub4 op,
                                      vorn_kernel_ctx *ctx) {
    return vorn::vec::walk_flex<vorn::vec::FlexShape::Single>(res, norms, left, right, op, ctx);
}

ub8 vorn_vector_arith_scalar_flex(vorn_vec *res, double *norms, vorn_vec *left, vorn_vec *right, ub4 op,
                                  vorn_kernel_ctx *ctx) {
    return vorn::vec::walk_flex<vorn::vec::FlexShape::Scalar>(res, norms, left, right, op, ctx);
}

}  // extern "C"
