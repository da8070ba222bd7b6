// convert_fp.cpp - vorn_vector_convert_fp_dydi: a column of fixed-dimension
// vectors from one element type to another, with each row's norm on request.
//
// vorn_vector_convert_fp_dydi(res, norms, src, bad_rows, ctx)
//   src, res   element types from their enc_ctx: 1 float, 2 double, 5 int8
//              (any other on either side returns 2).  Float and double
//              elements are in the order-preserving form unless the column
//              has VORN_NATIVE_FP.  `data` holds src->size rows of the
//              source's vec_dim elements end to end; the result's rows are
//              written end to end at res->data the same way.
//   norms      null, or the address of a pointer to one double per row written.
//   bad_rows   null, or a bit vector of rows that failed.
// Elements: int8 and float widen exactly; double narrows to float, and a
// float with an all-ones exponent fails the row; to int8 a value (narrowed
// to float from double) below -128.0f or above 127.0f fails the row, else it
// rounds half away from zero.  A NaN passes the range test and converts as
// the processor converts it.  Like types in like forms are one block copy
// (row by row when norms are asked for, each row decoded for its norm).
// A failed row with bad_rows: its bit is set, the row's output is given
// back, no norm is written, and the next row takes its place.  Without
// bad_rows the call returns 22.
// Norm: the squares of the result elements (floats squared in float, int8
// as integers, doubles in double) summed in one double accumulator in
// element order; an infinite or NaN sum returns 4 at once; below 0.0 gives
// 0.0, else the root.
// The number of rows written is stored in res->num_ones and, with a
// context, in ctx->num_ones.
#include <array>

#include "frame/fast_copy.h"
#include "vector/elem_forms.h"
#include "vector/vector_entries.h"

namespace vorn::vec {
namespace {

enum : ub8 { kDone = 0, kUnsupported = 2, kNormOverflow = 4, kRowFailed = 22 };

// One element from S to R: false when the row fails.
template <Form S, Form R>
VORN_INLINE bool convert_elem(const void *src, ub8 i, void *dst, ub8 o, double *sq) {
    const elem_t<S> v = read_elem<S>(src, i);
    if constexpr (is_int8(R)) {
        if constexpr (is_int8(S)) {
            write_elem<R>(dst, o, v);
            *sq = static_cast<double>(v * v);
        } else {
            const float f = static_cast<float>(v);
            if (f < -128.0f || f > 127.0f) return false;
            const int q = static_cast<int>(std::round(f));
            write_elem<R>(dst, o, q);
            *sq = static_cast<double>(q * q);
        }
    } else if constexpr (is_float(R)) {
        const float f = static_cast<float>(v);
        if constexpr (is_double(S))
            if (exp_all_ones(f)) return false;
        write_elem<R>(dst, o, f);
        *sq = static_cast<double>(f * f);
    } else {
        const double d = static_cast<double>(v);
        write_elem<R>(dst, o, d);
        *sq = d * d;
    }
    return true;
}

template <Form S, Form R>
ub8 convert_rows(vorn_vec *res, double *norms, const vorn_vec *src, ub8 *bad_rows, ub4 *written) {
    const ub4 dim = src->enc_ctx->vec_dim, rows = src->size;
    const ub8 row_elems = dim;
    ub4 out = 0;
    if constexpr (S == R) {
        if (norms == nullptr) {
            fast_copy(res->data, src->data, ub8{rows} * row_elems * elem_bytes(S));
            *written = rows;
            return kDone;
        }
    }
    for (ub4 r = 0; r < rows; ++r) {
        const ub8 in_at = ub8{r} * row_elems, out_at = ub8{out} * row_elems;
        double sum = 0.0;
        bool ok = true;
        if constexpr (S == R) {
            fast_copy(static_cast<ub1 *>(res->data) + out_at * elem_bytes(R),
                      static_cast<const ub1 *>(src->data) + in_at * elem_bytes(S), row_elems * elem_bytes(S));
            for (ub8 i = 0; i < row_elems; ++i) {
                const auto v = read_elem<S>(src->data, in_at + i);
                sum += static_cast<double>(v * v);
            }
        } else {
            for (ub8 i = 0; i < row_elems; ++i) {
                double sq;
                if (!convert_elem<S, R>(src->data, in_at + i, res->data, out_at + i, &sq)) {
                    ok = false;
                    break;
                }
                sum += sq;
            }
        }
        if (!ok) {
            if (bad_rows == nullptr) {
                *written = out;
                return kRowFailed;
            }
            bad_rows[r >> 6] |= ub8{1} << (r & 63);
            continue;
        }
        if (norms != nullptr) {
            if (finish_norm(sum, &norms[out]) != 0) {
                *written = out;
                return kNormOverflow;
            }
        }
        ++out;
    }
    *written = out;
    return kDone;
}

using ConvertFn = ub8 (*)(vorn_vec *, double *, const vorn_vec *, ub8 *, ub4 *);

template <ub4... I>
constexpr auto make_convert_table(std::integer_sequence<ub4, I...>) {
    return std::array<ConvertFn, sizeof...(I)>{&convert_rows<form_at(I / kForms), form_at(I % kForms)>...};
}
constexpr auto kConvert = make_convert_table(std::make_integer_sequence<ub4, kForms * kForms>{});

bool column_form(const vorn_enc_ctx *e, Form *f) {
    return form_of(e->elem_type, !VORN_ENC_CTX_FLAG(e, VORN_NATIVE_FP), f);
}

}  // namespace
}  // namespace vorn::vec

extern "C" ub8 vorn_vector_convert_fp_dydi(vorn_vec *res, double **norms, vorn_vec *src, ub8 *bad_rows,
                                           vorn_kernel_ctx *ctx) {
    using namespace vorn::vec;
    Form s, r;
    if (!column_form(src->enc_ctx, &s) || !column_form(res->enc_ctx, &r)) return kUnsupported;
    ub4 written = 0;
    const ub8 code = kConvert[static_cast<ub4>(s) * kForms + static_cast<ub4>(r)](
        res, norms != nullptr ? *norms : nullptr, src, bad_rows, &written);
    res->num_ones = written;
    if (ctx != nullptr) ctx->num_ones = written;
    return code;
}
