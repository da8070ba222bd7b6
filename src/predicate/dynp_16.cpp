// dynp_16.cpp - the 16-bit dynamic-prefix compares: ten forms, one translation unit.
#include "predicate/dynp_compare.h"

template struct vorn::dynp::Instances<2, false>;
