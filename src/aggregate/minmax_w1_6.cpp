// minmax_w1_6.cpp - vorn_minmax_dict_<w>bit and its _null form for widths 1, 2, 3, 4, 5, 6.
#include "aggregate/minmax.h"

VORN_INSTANTIATE_MINMAX(1)
VORN_INSTANTIATE_MINMAX(2)
VORN_INSTANTIATE_MINMAX(3)
VORN_INSTANTIATE_MINMAX(4)
VORN_INSTANTIATE_MINMAX(5)
VORN_INSTANTIATE_MINMAX(6)
