// fixed_tz_32bit.cpp - the 32-bit compares of the pair (value, tz):
// vorn_<c>_fixed_32bit_tz, and vorn_<c>_fixed_32bit_tz_selective for the range forms.
#include "predicate/whole_byte_kernels.h"

VORN_INSTANTIATE_WHOLE_BYTE(fixed, 32, true)
