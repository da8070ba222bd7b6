// dynp_64.cpp - the 64-bit dynamic-prefix compares: ten forms, one translation unit.
#include "predicate/dynp_compare.h"

template struct vorn::dynp::Instances<8, false>;
