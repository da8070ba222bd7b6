// minmax_w13_16.cpp - vorn_minmax_dict_<w>bit and its _null form for widths 13, 14, 15, 16.
#include "aggregate/minmax.h"

VORN_INSTANTIATE_MINMAX(13)
VORN_INSTANTIATE_MINMAX(14)
VORN_INSTANTIATE_MINMAX(15)
VORN_INSTANTIATE_MINMAX(16)
