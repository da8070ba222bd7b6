// Small setters shared by the kv, bloom and hash tests: one line to point a
// vector at its data and its encoding, in place of five field assignments.
#pragma once

#include "vorn.h"

namespace vorntest {

// `enc` gets the flags and bit width; `vec` the data, row count and `enc`.
inline vorn_vec &column_vec(vorn_vec &vec, vorn_enc_ctx &enc, const void *data, ub8 rows, ub4 flags,
                            ub4 bit_width = 0) {
    enc.flags = flags;
    enc.bit_width = bit_width;
    vec.enc_ctx = &enc;
    vec.data = const_cast<void *>(data);
    vec.size = static_cast<ub4>(rows);
    return vec;
}

// Row numbers from `base_rid` in place of a column.
inline vorn_vec &autorid_vec(vorn_vec &vec, vorn_enc_ctx &enc, ub8 base_rid, ub8 rows = 0) {
    column_vec(vec, enc, nullptr, rows, VORN_AUTORID);
    vec.base_rid = static_cast<ub4>(base_rid);
    return vec;
}

}  // namespace vorntest
