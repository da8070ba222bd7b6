// whole_byte_8bit.cpp - the 8-bit compares: vorn_<c>_fixed_8bit and its _tz
// form (the same compare under its own name), vorn_<c>_dict_8bit and its
// _null form.
#include "predicate/whole_byte_kernels.h"

VORN_INSTANTIATE_WHOLE_BYTE(fixed, 8, false)
VORN_INSTANTIATE_WHOLE_BYTE(fixed, 8, true)
VORN_INSTANTIATE_WHOLE_BYTE(dict_whole_byte, 8, false)
VORN_INSTANTIATE_WHOLE_BYTE(dict_whole_byte, 8, true)
