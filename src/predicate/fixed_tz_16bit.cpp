// fixed_tz_16bit.cpp - the 16-bit compares of the pair (value, tz):
// vorn_<c>_fixed_16bit_tz
#include "predicate/whole_byte_kernels.h"

VORN_INSTANTIATE_WHOLE_BYTE(fixed, 16, true)
