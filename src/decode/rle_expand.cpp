// rle_expand.cpp - the six expansion functions: one template over the width
// of a stored length and the output element.
#include "decode/rle_expand.h"

#include <nmmintrin.h>

#include "decode/run_lengths.h"

namespace vorn {
namespace {

template <class E>
VORN_INLINE __m128i splat(E v) {
    if constexpr (sizeof(E) == 2)
        return _mm_set1_epi16(static_cast<short>(v));
    else
        return _mm_set1_epi32(static_cast<int>(v));
}

// n copies of v from out on; nothing is written behind out + n.
template <class E>
VORN_INLINE void fill(E *out, E v, ub4 n) {
    if constexpr (sizeof(E) == 1) {
        std::memset(out, v, n);
    } else {
        E *end = out + n;
        while (out < end && (reinterpret_cast<uintptr_t>(out) & 15) != 0) *out++ = v;
        const __m128i x = splat(v);
        constexpr ub4 kPer = 16 / sizeof(E);
        while (end - out >= static_cast<std::ptrdiff_t>(kPer)) {
            _mm_store_si128(reinterpret_cast<__m128i *>(out), x);
            out += kPer;
        }
        while (out < end) *out++ = v;
    }
}

template <ub4 LenBytes, class E>
void expand(vorn_vec *res, const vorn_vec *src, const ub1 *cursor, ub4 first_len, ub4 trim) {
    E *out = static_cast<E *>(res->data);
    const E *values = static_cast<const E *>(src->data);
    const ub4 n = src->size;
    if (n == 0) return;
    ub4 len = first_len;
    for (ub4 r = 0; r + 1 < n; ++r) {
        const E v = values[r];  // before the fill, which may cover it
        fill(out, v, len);
        out += len;
        len = runs::length<LenBytes>(cursor, r + 1);
    }
    fill(out, values[n - 1], len - trim);
}

}  // namespace
}  // namespace vorn

extern "C" {

void vorn_rle8_expand_ub1(vorn_vec *res, const vorn_vec *src, const ub1 *cursor, ub4 first_len, ub4 trim) {
    vorn::expand<1, ub1>(res, src, cursor, first_len, trim);
}
void vorn_rle8_expand_ub2(vorn_vec *res, const vorn_vec *src, const ub1 *cursor, ub4 first_len, ub4 trim) {
    vorn::expand<1, ub2>(res, src, cursor, first_len, trim);
}
void vorn_rle8_expand_ub4(vorn_vec *res, const vorn_vec *src, const ub1 *cursor, ub4 first_len, ub4 trim) {
    vorn::expand<1, ub4>(res, src, cursor, first_len, trim);
}
void vorn_rle16_expand_ub1(vorn_vec *res, const vorn_vec *src, const ub1 *cursor, ub4 first_len, ub4 trim) {
    vorn::expand<2, ub1>(res, src, cursor, first_len, trim);
}
void vorn_rle16_expand_ub2(vorn_vec *res, const vorn_vec *src, const ub1 *cursor, ub4 first_len, ub4 trim) {
    vorn::expand<2, ub2>(res, src, cursor, first_len, trim);
}
void vorn_rle16_expand_ub4(vorn_vec *res, const vorn_vec *src, const ub1 *cursor, ub4 first_len, ub4 trim) {
    vorn::expand<2, ub4>(res, src, cursor, first_len, trim);
}

}  // extern "C"
