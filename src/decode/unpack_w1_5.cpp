// unpack_w1_5.cpp - vorn_decode_unpack_dict_<w>bit for widths 1, 2, 3, 4, 5.
#include "decode/unpack.h"

VORN_INSTANTIATE_UNPACK(1)
VORN_INSTANTIATE_UNPACK(2)
VORN_INSTANTIATE_UNPACK(3)
VORN_INSTANTIATE_UNPACK(4)
VORN_INSTANTIATE_UNPACK(5)
