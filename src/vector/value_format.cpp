// value_format.cpp - the header of a stored vector value and the mapping of
// its format byte to the library's element types.
#include "vector/value_format.h"

extern "C" {

sb4 lvector_to_header_basic(const void *value, vorn_lvector_header *header) {
    const auto *v = static_cast<const ub1 *>(value);
    if (v[0] != VORN_LV_MAGIC) return VORN_LV_BAD_MAGIC;
    if (v[1] > VORN_LV_MAX_VERSION) return VORN_LV_BAD_VERSION;
    const ub1 flags = v[3];
    if ((flags & VORN_LV_USABLE_MASK) == 0) return VORN_LV_UNUSABLE;
    const ub1 format = v[4];
    header->format = format;
    header->body_off = ub1(vorn::vec::body_offset(flags, format));
    header->second_off = (flags & VORN_LV_FIELD_MASK) ? ub1(VORN_LV_HEADER_BYTES) : ub1(0);
    header->flags = ub1(flags & VORN_LV_KEPT_MASK);
    header->dims = vorn::load_be32(v + 5);
    return 0;
}

ub4 vorn_dbv_lvtype2vorn(ub4 format) {
    switch (format) {
        case VORN_LV_FLOAT16: return VORN_VTYPE_FLOAT16;
        case VORN_LV_FLOAT: return VORN_VTYPE_FLOAT;
        case VORN_LV_DOUBLE: return VORN_VTYPE_DOUBLE;
        case VORN_LV_INT8: return VORN_VTYPE_INT8;
        case VORN_LV_BITMSB0: return VORN_VTYPE_BITMSB0;
        case VORN_LV_BFLOAT16: return VORN_VTYPE_BFLOAT16;
        default: return 0;
    }
}

}  // extern "C"
