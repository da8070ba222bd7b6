// kv_probe_call.h - the vectors of one probe call as every probe function
// reads them: where the identities of the probe rows come from, the output
// capacity, and the running output count that becomes the size on return.
//
// - rows_out->data: ub8 identities; values_out->data: values in the kind's
//   width (ub8 occurrences for acnt).  The capacity is rows_out->size
//   (values_out->size without rows_out); on return that field holds the
//   rows written by this call, or the total of a counting mode.
// - Modes 7, 10, 11: the bit vector is values_out->res_bv and its base
//   values_out->base_rid.
// - rows: VORN_AUTORID gives base_rid + row; otherwise ub8 identities in
//   data.  Absent: row numbers from 0.
#pragma once

#include "kv/kv_build.h"

namespace vorn::kv {

struct ProbeCall {
    vorn_vec *rows_out, *values_out, *hash_vec, *rows, *key_vec;
    const vorn_kv *kv;
    vorn_kernel_ctx *ctx;
    ub8 *stats;
    ub8 written = 0;

    vorn_vec *size_vec() const { return rows_out != nullptr ? rows_out : values_out; }
    ub8 capacity() const {
        const vorn_vec *sv = size_vec();
        return sv != nullptr ? sv->size : 0;
    }
    bool autorid() const { return rows == nullptr || is_autorid(rows); }
    // Identities of rows from `first` on: a payload array, or null and a base.
    const ub8 *payload(ub8 first) const {
        return autorid() ? nullptr : static_cast<const ub8 *>(rows->data) + first;
    }
    ub8 base_rid(ub8 first) const { return autorid() ? (rows != nullptr ? rows->base_rid : 0) + first : 0; }
    ub8 *rows_data() const { return rows_out != nullptr ? static_cast<ub8 *>(rows_out->data) : nullptr; }
    void *values_data() const { return values_out != nullptr ? values_out->data : nullptr; }
    ub8 *bv() const { return values_out != nullptr ? values_out->res_bv : nullptr; }
    ub8 bv_base() const { return values_out != nullptr ? values_out->base_rid : 0; }
    ub8 finish(ub8 code) {
        if (vorn_vec *sv = size_vec()) sv->size = static_cast<ub4>(written);
        return code;
    }
};

}  // namespace vorn::kv
