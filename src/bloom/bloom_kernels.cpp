// The eight Bloom filter kernels: one template, bloom_kernel<hash bytes,
// two bits, selective>, named once for each hash width below.
#include "bloom/bloom_entries.h"
#include "bloom/bloom_kernel.h"

using vorn::bloom::bloom_kernel;

// The four forms of one hash width: one or two bits a hash, every row or
// the rows of a selection.
#define VORN_BLOOM_FORMS(bits)                                                                                \
    ub8 vorn_bloom_hash##bits(vorn_vec *res, vorn_vec *src, vorn_vec *filter, vorn_kernel_ctx *kctx, ub1) {   \
        return bloom_kernel<bits / 8, false, false>(res, src, filter, kctx);                                  \
    }                                                                                                          \
    ub8 vorn_bloom_hash##bits##_selective(vorn_vec *res, vorn_vec *src, vorn_vec *filter, vorn_kernel_ctx *kctx, \
                                          ub1) {                                                               \
        return bloom_kernel<bits / 8, false, true>(res, src, filter, kctx);                                   \
    }                                                                                                          \
    ub8 vorn_2bit_bloom_hash##bits(vorn_vec *res, vorn_vec *src, vorn_vec *filter, vorn_kernel_ctx *kctx, ub1) { \
        return bloom_kernel<bits / 8, true, false>(res, src, filter, kctx);                                   \
    }                                                                                                          \
    ub8 vorn_2bit_bloom_hash##bits##_selective(vorn_vec *res, vorn_vec *src, vorn_vec *filter,                 \
                                               vorn_kernel_ctx *kctx, ub1) {                                   \
        return bloom_kernel<bits / 8, true, true>(res, src, filter, kctx);                                    \
    }

extern "C" {
VORN_BLOOM_FORMS(64)
VORN_BLOOM_FORMS(32)
}  // extern "C"

#undef VORN_BLOOM_FORMS
