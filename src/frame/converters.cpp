// converters.cpp - the width and type converters of the dispatch scheme, the
// cumulative length builders of run-length columns, and vorn_null.
#include <nmmintrin.h>

#include "frame/dispatch_scheme.h"
#include "frame/entries.h"
#include "frame/fail.h"

namespace {

// res[0] = 0, res[i] = res[i - 1] + src[i - 1], big-endian, i up to src_len.
template <class Len>
ub4 build_cla(ub4 *res, ub4 res_len, const Len *src, ub4 src_len, const char *function) {
    if (!(res_len >= (src_len + 1))) vorn::assert_fail("res_len >= (src_len + 1)", __LINE__, function);
    ub4 sum = 0;
    res[0] = 0;
    for (ub4 i = 0; i < src_len; ++i) {
        sum += vorn::bswap(vorn::load<Len>(src + i));
        res[i + 1] = vorn::bswap(sum);
    }
    return src_len + 1;
}

}  // namespace

extern "C" {

ub4 vorn_convert_width(ub4 bits) {
    const ub4 code = vorn::width_code(bits);
    if (code == vorn::kNoWidth) vorn::assert_fail("0", __LINE__, "vorn_convert_width");
    return code;
}

ub4 vorn_xlate_convert_width(sb4 elem_size, ub4 form) {
    ub4 elem;
    switch (elem_size) {
        case -1: elem = static_cast<ub4>(vorn::XlateElem::bit); break;
        case -4: elem = static_cast<ub4>(vorn::XlateElem::nib); break;
        case 1: elem = static_cast<ub4>(vorn::XlateElem::ub1); break;
        case 2: elem = static_cast<ub4>(vorn::XlateElem::ub2); break;
        case 4: elem = static_cast<ub4>(vorn::XlateElem::ub4); break;
        default: vorn::assert_fail("0", __LINE__, "vorn_xlate_convert_width");
    }
    return form * 8 + elem;
}

ub4 vorn_xlate_convert_type(ub4 kind) {
    if (kind >= 1 && kind <= 3) return kind - 1;
    vorn::assert_fail("0", __LINE__, "vorn_xlate_convert_type");
}

ub4 vorn_build_cla_1_ub1(ub4 *res, ub4 res_len, const ub1 *src, ub4 src_len) {
    return build_cla(res, res_len, src, src_len, "vorn_build_cla_1_ub1");
}

ub4 vorn_build_cla_1_ub2(ub4 *res, ub4 res_len, const ub2 *src, ub4 src_len) {
    return build_cla(res, res_len, src, src_len, "vorn_build_cla_1_ub2");
}

// The complement of src's bit vector into res's: blocks of 128 rows, then
// whole words; the last word is complemented whole, so the bits behind the
// last row come out set.
ub8 vorn_null(void *, vorn_vec *res, const vorn_vec *src, void *) {
    VORN_ASSERT(VORN_VEC_SIZE(src) == VORN_VEC_SIZE(res), "vorn_null");
    const ub8 words = vorn::words_for_bits(src->size);
    const ub8 *in = src->res_bv;
    ub8 *out = res->res_bv;
    const __m128i ones = _mm_set1_epi32(-1);
    ub8 i = 0;
    for (; i + 2 <= words; i += 2) {
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i *>(in + i));
        _mm_storeu_si128(reinterpret_cast<__m128i *>(out + i), _mm_xor_si128(v, ones));
    }
    for (; i < words; ++i) out[i] = ~in[i];
    return 0;
}

}  // extern "C"
