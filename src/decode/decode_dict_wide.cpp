// decode_dict_wide.cpp - vorn_decode_dict_<w>bit for widths 11 to 20, 24
// and 32.
#include "decode/decode_dict.h"

namespace vorn {

#define VORN_DECODE_DICT(W) template ub8 decode_dict<W>(vorn_vec *, vorn_vec *, vorn_kernel_ctx *);
VORN_DECODE_DICT(11)
VORN_DECODE_DICT(12)
VORN_DECODE_DICT(13)
VORN_DECODE_DICT(14)
VORN_DECODE_DICT(15)
VORN_DECODE_DICT(16)
VORN_DECODE_DICT(17)
VORN_DECODE_DICT(18)
VORN_DECODE_DICT(19)
VORN_DECODE_DICT(20)
VORN_DECODE_DICT(24)
VORN_DECODE_DICT(32)
#undef VORN_DECODE_DICT

}  // namespace vorn
