// two_column_entries.cpp - the entries that work on two columns or on a
// selection: not served yet, they write nothing and return 2.
#include "frame/entries.h"

extern "C" {

ub8 vorn_eq_stream_dydi(vorn_vec *, vorn_vec *, vorn_vec *, vorn_kernel_ctx *) { return 2; }

ub8 vorn_selective_dydi(vorn_vec *, vorn_vec *, vorn_kernel_ctx *) { return 2; }

ub8 vorn_lookup_and_compare_dydi(vorn_vec *, vorn_vec *, const ub4 *const *, const ub4 *const *,
                                 const ub4 *const *, const ub1 *const *, vorn_kernel_ctx *) {
    return 2;
}

}  // extern "C"
