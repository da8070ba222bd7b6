// parse.cpp - vorn_vector_parse_dydi: vector texts such as "[1.5, -2, 3e4]"
// into the bodies of a vector column, with each row's norm on request.
//
// What the entry reads:
//   res->enc_ctx->elem_type   result elements: 1 float, 2 double, 5 int8
//   res->enc_ctx->vec_dim     elements per row; 0: each row its own count,
//                             written as a ub2 per row into res->data2
//   res->enc_ctx->flags       VORN_NATIVE_FP: native elements, else the
//                             order-preserving form
//   src->enc_ctx->elem_type_ext  characters: 0 bytes, 1 big-endian 16-bit
//                             units (a row's length is in bytes)
//   src->enc_ctx->flags       VORN_PTR_LEN: src->size rows, addresses in
//                             src->data (ub8 each), ub2 lengths in src->data2;
//                             clear: one row, its text at src->data and its
//                             length in src->enc_ctx->max_len
// Output: the elements of the rows that parse, end to end from res->data;
// norms (when given) and row lengths (flexible rows) one per such row, in
// the same order.  A failed row leaves nothing behind: the next row is
// written where it began.  bad_rows, when given, gets the bit of each failed
// source row set; other bits are left as they are.  The number of rows that
// parsed is stored in kctx->num_ones (when kctx is given) and res->num_ones.
// A flexible row holds at most 65,535 elements, the most its ub2 length can
// say; one more is refused as a row over its dimension count.
#include <emmintrin.h>

#include <cmath>

#include "frame/entries.h"
#include "vector/value_format.h"

namespace {

using namespace vorn;

constexpr ub4 kFlexLimit = 0xFFFF;

// A row's text: units of one byte, or big-endian 16-bit units.
template <int Form>
struct Text {
    const ub1 *p;
    ub4 n;  // units
    VORN_INLINE ub4 at(ub4 k) const {
        if constexpr (Form == 0) return p[k];
        else return load_be16(p + 2 * ub8(k));
    }
};

VORN_INLINE bool is_digit(ub4 c) { return c - '0' < 10; }

// Leading blanks: byte steps up to a 16-byte boundary, then 16 bytes at a
// time while a whole block lies inside the row, then byte steps.
template <int Form>
VORN_INLINE ub4 skip_leading_blanks(const Text<Form> &t) {
    ub4 k = 0;
    if constexpr (Form == 0) {
        while (k < t.n && (reinterpret_cast<std::uintptr_t>(t.p + k) & 15) != 0) {
            if (t.p[k] != ' ') return k;
            ++k;
        }
        const __m128i blank = _mm_set1_epi8(' ');
        while (t.n - k >= 16) {
            const __m128i v = _mm_load_si128(reinterpret_cast<const __m128i *>(t.p + k));
            const ub4 same = ub4(_mm_movemask_epi8(_mm_cmpeq_epi8(v, blank)));
            if (same != 0xFFFF) return k + ub4(__builtin_ctz(~same));
            k += 16;
        }
    } else {
        const __m128i blank = _mm_set1_epi16(short(0x2000));  // ' ' as it lies in memory
        while (t.n - k >= 8) {
            const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i *>(t.p + 2 * ub8(k)));
            const ub4 same = ub4(_mm_movemask_epi8(_mm_cmpeq_epi16(v, blank)));
            if (same != 0xFFFF) return k + ub4(__builtin_ctz(~same)) / 2;
            k += 8;
        }
    }
    while (k < t.n && t.at(k) == ' ') ++k;
    return k;
}

template <int Form>
VORN_INLINE ub4 skip_blanks(const Text<Form> &t, ub4 k) {
    while (k < t.n && t.at(k) == ' ') ++k;
    return k;
}

struct Output {
    ub1 *data;
    ub4 type;  // 1 float, 2 double, 5 int8
    bool native;
};

VORN_INLINE void store_element(const Output &o, ub8 pos, double v, sb1 i8) {
    if (o.type == VORN_VTYPE_FLOAT) {
        const ub4 bits = std::bit_cast<ub4>(float(v));
        store<ub4>(o.data + 4 * pos, o.native ? bits : vec::order_encode32(bits));
    } else if (o.type == VORN_VTYPE_DOUBLE) {
        const ub8 bits = std::bit_cast<ub8>(v);
        store<ub8>(o.data + 8 * pos, o.native ? bits : vec::order_encode64(bits));
    } else {
        o.data[pos] = ub1(i8);
    }
}

VORN_INLINE bool all_ones_exponent(double v) {
    return (std::bit_cast<ub8>(v) & 0x7FF0000000000000ull) == 0x7FF0000000000000ull;
}
VORN_INLINE bool all_ones_exponent(float v) {
    return (std::bit_cast<ub4>(v) & 0x7F800000u) == 0x7F800000u;
}

struct RowResult {
    ub4 code;   // 0, 20, 21, 22
    ub4 count;  // elements stored
    double sum; // sum of squares
};

// Parses one row, storing its elements from output position pos.
template <int Form>
RowResult parse_row(const Text<Form> &t, const Output &o, ub8 pos, ub4 dims) {
    RowResult r{VORN_VEC_SYNTAX, 0, 0.0};
    const ub4 limit = dims ? dims : kFlexLimit;
    ub4 k = skip_leading_blanks(t);
    if (k == t.n || t.at(k) != '[') return r;
    ++k;
    for (;;) {
        k = skip_blanks(t, k);
        if (k == t.n) return r;
        bool negative = false;
        if (t.at(k) == '-' || t.at(k) == '+') {
            negative = t.at(k) == '-';
            if (++k == t.n) return r;
        }
        double v = 0.0;
        bool digits = false;
        while (k < t.n && is_digit(t.at(k))) {
            v = v * 10.0 + double(t.at(k) - '0');
            digits = true;
            ++k;
        }
        if (k < t.n && t.at(k) == '.') {
            ++k;
            double scale = 10.0;
            while (k < t.n && is_digit(t.at(k))) {
                v += double(t.at(k) - '0') / scale;
                scale *= 10.0;
                digits = true;
                ++k;
            }
        }
        bool exponent_bad = false;
        if (k < t.n && (t.at(k) & 0xDF) == 69) {
            if (++k == t.n) return r;
            bool exponent_negative = false;
            if (t.at(k) == '-' || t.at(k) == '+') {
                exponent_negative = t.at(k) == '-';
                if (++k == t.n) return r;
            }
            ub4 e = 0;
            bool exponent_digits = false;
            while (k < t.n && is_digit(t.at(k))) {
                e = e * 10u + (t.at(k) - '0');
                exponent_digits = true;
                ++k;
            }
            if (exponent_digits) {
                const sb4 exponent = sb4(exponent_negative ? 0u - e : e);
                v = v * std::pow(10.0, double(exponent));
            } else {
                exponent_bad = true;
            }
        }
        k = skip_blanks(t, k);
        if (k == t.n) return r;
        const ub4 follow = t.at(k);
        if (negative) v = -v;
        if ((follow != ',' && follow != ']') || !digits || exponent_bad ||
            (o.type == VORN_VTYPE_FLOAT && all_ones_exponent(float(v)))) {
            r.code = VORN_VEC_BAD_NUMBER;
            return r;
        }
        if (r.count == limit) {
            r.code = VORN_VEC_TOO_MANY;
            return r;
        }
        sb1 i8 = 0;
        if (o.type == VORN_VTYPE_INT8) {
            if (v < -128.0 || v > 127.0) {
                r.code = VORN_VEC_BAD_NUMBER;
                return r;
            }
            const double rounded = std::round(v);
            // A NaN passes the range test; the truncating conversion gives
            // the processor's answer for it instead of undefined behaviour.
            i8 = sb1(_mm_cvttsd_si32(_mm_set_sd(rounded)));
            r.sum += rounded * rounded;
        } else {
            r.sum += v * v;
        }
        store_element(o, pos + r.count, v, i8);
        ++r.count;
        ++k;  // the ',' or ']'
        if (follow == ']') {
            if (dims && r.count != dims) return r;
            k = skip_blanks(t, k);
            if (k != t.n) return r;
            r.code = 0;
            return r;
        }
    }
}

template <int Form>
ub8 parse_rows(vorn_vec *res, double **norms, vorn_vec *src, ub8 *bad_rows, vorn_kernel_ctx *kctx,
               const Output &o, ub4 dims) {
    const bool per_row = VORN_ENC_CTX_FLAG(src->enc_ctx, VORN_PTR_LEN);
    const ub4 rows = per_row ? src->size : 1;
    ub2 *lengths = static_cast<ub2 *>(res->data2);
    ub8 pos = 0;
    ub4 done = 0;
    ub8 code = 0;
    for (ub4 row = 0; row < rows; ++row) {
        Text<Form> t;
        ub4 bytes;
        if (per_row) {
            t.p = reinterpret_cast<const ub1 *>(static_cast<const ub8 *>(src->data)[row]);
            bytes = static_cast<const ub2 *>(src->data2)[row];
        } else {
            t.p = static_cast<const ub1 *>(src->data);
            bytes = src->enc_ctx->max_len;
        }
        t.n = Form == 0 ? bytes : bytes / 2;
        const RowResult r = parse_row<Form>(t, o, pos, dims);
        if (r.code != 0) {
            if (bad_rows == nullptr || r.code == VORN_VEC_TOO_MANY) {
                code = r.code;
                break;
            }
            bad_rows[row >> 6] |= ub8(1) << (row & 63);
            continue;
        }
        if (all_ones_exponent(r.sum)) {
            code = VORN_VEC_NORM_OVERFLOW;
            break;
        }
        if (norms != nullptr) (*norms)[done] = vorn::vec::guarded_sqrt(r.sum);
        if (dims == 0) lengths[done] = ub2(r.count);
        pos += r.count;
        ++done;
    }
    res->num_ones = done;
    if (kctx != nullptr) kctx->num_ones = done;
    return code;
}

}  // namespace

extern "C" {

ub8 vorn_vector_parse_dydi(vorn_vec *res, double **norms, vorn_vec *src, ub8 *bad_rows,
                           vorn_kernel_ctx *kctx) {
    const vorn_enc_ctx *re = res->enc_ctx, *se = src->enc_ctx;
    if (re == nullptr || se == nullptr) return 2;
    const ub4 type = re->elem_type;
    if (type != VORN_VTYPE_FLOAT && type != VORN_VTYPE_DOUBLE && type != VORN_VTYPE_INT8) return 2;
    const ub4 form = se->elem_type_ext;
    if (form > 1) return 2;
    const ub4 dims = re->vec_dim;
    if (dims == 0 && res->data2 == nullptr) return 2;
    const Output o{static_cast<ub1 *>(res->data), type, VORN_ENC_CTX_FLAG(re, VORN_NATIVE_FP)};
    return form == 0 ? parse_rows<0>(res, norms, src, bad_rows, kctx, o, dims)
                     : parse_rows<1>(res, norms, src, bad_rows, kctx, o, dims);
}

}  // extern "C"
