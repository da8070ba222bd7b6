// whole_byte_64bit.cpp - the 64-bit compares without a tz: vorn_<c>_fixed_64bit,
// vorn_<c>_dict_64bit and its _null form.
#include "predicate/whole_byte_kernels.h"

VORN_INSTANTIATE_WHOLE_BYTE(fixed, 64, false)
VORN_INSTANTIATE_WHOLE_BYTE(dict_whole_byte, 64, false)
VORN_INSTANTIATE_WHOLE_BYTE(dict_whole_byte, 64, true)
