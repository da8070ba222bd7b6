// unpack.cpp - the compaction table of the unpacking decoders.
#include "decode/unpack.h"

extern "C" {
alignas(16) constinit const std::array<ub1, 256> vorn_unpack_sel4x32_masks = vorn::unpack::build_sel4x32_masks();
}
