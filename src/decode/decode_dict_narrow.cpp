// decode_dict_narrow.cpp - vorn_decode_dict_<w>bit for widths 1 to 10.
#include "decode/decode_dict.h"

namespace vorn {

#define VORN_DECODE_DICT(W) template ub8 decode_dict<W>(vorn_vec *, vorn_vec *, vorn_kernel_ctx *);
VORN_DECODE_DICT(1)
VORN_DECODE_DICT(2)
VORN_DECODE_DICT(3)
VORN_DECODE_DICT(4)
VORN_DECODE_DICT(5)
VORN_DECODE_DICT(6)
VORN_DECODE_DICT(7)
VORN_DECODE_DICT(8)
VORN_DECODE_DICT(9)
VORN_DECODE_DICT(10)
#undef VORN_DECODE_DICT

}  // namespace vorn
