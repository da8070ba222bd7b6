// rle_expand.h - expansion of run values to row values, for the unpacking
// decoders.
//
// vorn_rle<L>_expand_ub<E>(res, src, cursor, first_len, trim): src->data
// holds src->size run values in native elements of E bytes, res->data is
// the output, cursor points at the first run's own entry of rle_lens (ub1
// for rle8, big-endian ub2 for rle16).  The first run gets first_len
// elements instead of its stored length, since a stretch may begin inside a
// run; the last run gets its length less `trim`.  With one run the fill is
// first_len - trim.
//
// The expansion runs in place from the front: the run values may lie inside
// the output, behind the rows they fill, as long as every fill ends at or
// before the next run's value.  So each run's value is read before its
// fill.  ub1 fills by memset; ub2 and ub4 by 16-byte stores of the repeated
// value after a scalar lead-in to a 16-byte boundary, with a scalar tail.
#pragma once

#include "frame/base.h"

extern "C" {

VORN_INTERNAL void vorn_rle8_expand_ub1(vorn_vec *res, const vorn_vec *src, const ub1 *cursor, ub4 first_len,
                                        ub4 trim);
VORN_INTERNAL void vorn_rle8_expand_ub2(vorn_vec *res, const vorn_vec *src, const ub1 *cursor, ub4 first_len,
                                        ub4 trim);
VORN_INTERNAL void vorn_rle8_expand_ub4(vorn_vec *res, const vorn_vec *src, const ub1 *cursor, ub4 first_len,
                                        ub4 trim);
VORN_INTERNAL void vorn_rle16_expand_ub1(vorn_vec *res, const vorn_vec *src, const ub1 *cursor, ub4 first_len,
                                         ub4 trim);
VORN_INTERNAL void vorn_rle16_expand_ub2(vorn_vec *res, const vorn_vec *src, const ub1 *cursor, ub4 first_len,
                                         ub4 trim);
VORN_INTERNAL void vorn_rle16_expand_ub4(vorn_vec *res, const vorn_vec *src, const ub1 *cursor, ub4 first_len,
                                         ub4 trim);

}  // extern "C"
