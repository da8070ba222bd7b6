// unpack_w6_10.cpp - vorn_decode_unpack_dict_<w>bit for widths 6, 7, 8, 9, 10.
#include "decode/unpack.h"

VORN_INSTANTIATE_UNPACK(6)
VORN_INSTANTIATE_UNPACK(7)
VORN_INSTANTIATE_UNPACK(8)
VORN_INSTANTIATE_UNPACK(9)
VORN_INSTANTIATE_UNPACK(10)
