// The Bloom filter kernels of 32-bit hashes.
#include "bloom/bloom_entries.h"
#include "bloom/bloom_kernel.h"

using vorn::bloom::bloom_kernel;

extern "C" {

ub8 vorn_bloom_hash32(vorn_vec *res, vorn_vec *src, vorn_vec *filter, vorn_kernel_ctx *kctx, ub1) {
    return bloom_kernel<4, false, false>(res, src, filter, kctx);
}
ub8 vorn_bloom_hash32_selective(vorn_vec *res, vorn_vec *src, vorn_vec *filter, vorn_kernel_ctx *kctx, ub1) {
    return bloom_kernel<4, false, true>(res, src, filter, kctx);
}
ub8 vorn_2bit_bloom_hash32(vorn_vec *res, vorn_vec *src, vorn_vec *filter, vorn_kernel_ctx *kctx, ub1) {
    return bloom_kernel<4, true, false>(res, src, filter, kctx);
}
ub8 vorn_2bit_bloom_hash32_selective(vorn_vec *res, vorn_vec *src, vorn_vec *filter, vorn_kernel_ctx *kctx, ub1) {
    return bloom_kernel<4, true, true>(res, src, filter, kctx);
}

}  // extern "C"
