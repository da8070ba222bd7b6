// whole_byte_16bit.cpp - the 16-bit compares without a tz: vorn_<c>_fixed_16bit,
// vorn_<c>_dict_16bit and its _null form.
#include "predicate/whole_byte_kernels.h"

VORN_INSTANTIATE_WHOLE_BYTE(fixed, 16, false)
VORN_INSTANTIATE_WHOLE_BYTE(dict_whole_byte, 16, false)
VORN_INSTANTIATE_WHOLE_BYTE(dict_whole_byte, 16, true)
