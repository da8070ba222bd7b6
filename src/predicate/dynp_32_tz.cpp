// dynp_32_tz.cpp - the _tz forms of the 32-bit dynamic-prefix compares: ten forms, one translation unit.
#include "predicate/dynp_compare.h"

template struct vorn::dynp::Instances<4, true>;
