// dynp_32.cpp - the 32-bit dynamic-prefix compares: ten forms, one translation unit.
#include "predicate/dynp_compare.h"

template struct vorn::dynp::Instances<4, false>;
