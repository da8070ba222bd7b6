// elem_forms.h - the five element forms of the arithmetic and conversion
// kernels (float, Cfloat, double, Cdouble, int8), their traits, and the
// reading and writing of one element in its form.  The C forms are the
// store's order-preserving byte images; the codec itself lives with the
// value format.
#pragma once

#include <bit>
#include <cmath>

#include "frame/base.h"
#include "vector/value_format.h"

namespace vorn::vec {

// Library element type codes of the vector columns.
inline constexpr ub4 kTypeFloat = VORN_VTYPE_FLOAT;
inline constexpr ub4 kTypeDouble = VORN_VTYPE_DOUBLE;
inline constexpr ub4 kTypeInt8 = VORN_VTYPE_INT8;

enum class Form : ub1 { Float, CFloat, Double, CDouble, Int8 };
inline constexpr ub4 kForms = 5;

inline constexpr Form form_at(ub4 i) { return static_cast<Form>(i); }
inline constexpr bool is_double(Form f) { return f == Form::Double || f == Form::CDouble; }
inline constexpr bool is_float(Form f) { return f == Form::Float || f == Form::CFloat; }
inline constexpr bool is_int8(Form f) { return f == Form::Int8; }
inline constexpr bool is_c(Form f) { return f == Form::CFloat || f == Form::CDouble; }
inline constexpr ub4 elem_bytes(Form f) { return is_double(f) ? 8 : is_float(f) ? 4 : 1; }
inline constexpr ub4 type_code(Form f) {
    return is_double(f) ? kTypeDouble : is_float(f) ? kTypeFloat : kTypeInt8;
}
inline constexpr const char *form_name(Form f) {
    constexpr const char *names[] = {"float", "Cfloat", "double", "Cdouble", "int8"};
    return names[static_cast<ub4>(f)];
}

// The form of a column by its type code and C indicator; false for a type
// these kernels do not take.  int8 has one form whatever the indicator says.
inline bool form_of(ub4 type, bool c, Form *out) {
    switch (type) {
        case kTypeFloat: *out = c ? Form::CFloat : Form::Float; return true;
        case kTypeDouble: *out = c ? Form::CDouble : Form::Double; return true;
        case kTypeInt8: *out = Form::Int8; return true;
        default: return false;
    }
}

// The value type an element of a form reads as: float, double, or the
// signed byte widened to int.
template <Form F>
using elem_t = std::conditional_t<is_double(F), double, std::conditional_t<is_float(F), float, int>>;

// Element i of an array in form F, decoded.
template <Form F>
VORN_INLINE elem_t<F> read_elem(const void *p, ub8 i) {
    const ub1 *b = static_cast<const ub1 *>(p) + i * elem_bytes(F);
    if constexpr (F == Form::Float) return load<float>(b);
    else if constexpr (F == Form::Double) return load<double>(b);
    else if constexpr (F == Form::CFloat) return std::bit_cast<float>(order_decode<ub4>(load<ub4>(b)));
    else if constexpr (F == Form::CDouble) return std::bit_cast<double>(order_decode<ub8>(load<ub8>(b)));
    else return static_cast<sb1>(*b);
}

// Writes element i of an array in form F from a value of its element type.
template <Form F>
VORN_INLINE void write_elem(void *p, ub8 i, elem_t<F> v) {
    ub1 *b = static_cast<ub1 *>(p) + i * elem_bytes(F);
    if constexpr (F == Form::Float || F == Form::Double) store(b, v);
    else if constexpr (F == Form::CFloat) store<ub4>(b, order_encode32(std::bit_cast<ub4>(v)));
    else if constexpr (F == Form::CDouble) store<ub8>(b, order_encode64(std::bit_cast<ub8>(v)));
    else *b = static_cast<ub1>(static_cast<sb1>(v));
}

// True when the exponent field is all ones: an infinity or a NaN.
VORN_INLINE bool exp_all_ones(float v) { return (std::bit_cast<ub4>(v) & 0x7f800000u) == 0x7f800000u; }
VORN_INLINE bool exp_all_ones(double v) {
    return (std::bit_cast<ub8>(v) & 0x7ff0000000000000ull) == 0x7ff0000000000000ull;
}

// A finished sum of squares as a norm: 4 when the sum is infinite or NaN,
// else 0 with the root (0.0 for a sum below 0.0) in *norm.
VORN_INLINE ub8 finish_norm(double sum, double *norm) {
    if (exp_all_ones(sum)) return 4;
    *norm = sum < 0.0 ? 0.0 : std::sqrt(sum);
    return 0;
}

}  // namespace vorn::vec
