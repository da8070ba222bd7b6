// dynp_tables.cpp - the consumed-length and shuffle tables of the
// dynamic-prefix kernels, computed by the compiler from their rule.
#include "predicate/dynp_tables.h"

extern "C" {

constinit const vorn::dynp::LengthTable vorn_length_consumed_dynp_maxwidth2 = vorn::dynp::build_lengths<2>();
constinit const vorn::dynp::LengthTable vorn_length_consumed_dynp_maxwidth4 = vorn::dynp::build_lengths<4>();
constinit const vorn::dynp::LengthTable vorn_length_consumed_dynp_maxwidth8 = vorn::dynp::build_lengths<8>();

alignas(16) constinit const vorn::dynp::ShuffleTable vorn_shuffle_masks_dynp_maxwidth2 =
    vorn::dynp::build_shuffles<2>();
alignas(16) constinit const vorn::dynp::ShuffleTable vorn_shuffle_masks_dynp_maxwidth4 =
    vorn::dynp::build_shuffles<4>();
alignas(16) constinit const vorn::dynp::ShuffleTable vorn_shuffle_masks_dynp_maxwidth8 =
    vorn::dynp::build_shuffles<8>();

}  // extern "C"
