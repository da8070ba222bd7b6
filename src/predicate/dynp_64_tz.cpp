// dynp_64_tz.cpp - the _tz forms of the 64-bit dynamic-prefix compares: ten forms, one translation unit.
#include "predicate/dynp_compare.h"

template struct vorn::dynp::Instances<8, true>;
