// whole_byte_32bit.cpp - the 32-bit compares without a tz: vorn_<c>_fixed_32bit,
// vorn_<c>_dict_32bit and its _null form.
#include "predicate/whole_byte_kernels.h"

VORN_INSTANTIATE_WHOLE_BYTE(fixed, 32, false)
VORN_INSTANTIATE_WHOLE_BYTE(dict_whole_byte, 32, false)
VORN_INSTANTIATE_WHOLE_BYTE(dict_whole_byte, 32, true)
