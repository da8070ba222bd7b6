// fixed_tz_64bit.cpp - the 64-bit compares of the pair (value, tz):
// vorn_<c>_fixed_64bit_tz, and vorn_<c>_fixed_64bit_tz_selective for the range forms.
#include "predicate/whole_byte_kernels.h"

VORN_INSTANTIATE_WHOLE_BYTE(fixed, 64, true)
