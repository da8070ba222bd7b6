// The Bloom filter kernels of 64-bit hashes.
#include "bloom/bloom_entries.h"
#include "bloom/bloom_kernel.h"

using vorn::bloom::bloom_kernel;

extern "C" {

ub8 vorn_bloom_hash64(vorn_vec *res, vorn_vec *src, vorn_vec *filter, vorn_kernel_ctx *kctx, ub1) {
    return bloom_kernel<8, false, false>(res, src, filter, kctx);
}
ub8 vorn_bloom_hash64_selective(vorn_vec *res, vorn_vec *src, vorn_vec *filter, vorn_kernel_ctx *kctx, ub1) {
    return bloom_kernel<8, false, true>(res, src, filter, kctx);
}
ub8 vorn_2bit_bloom_hash64(vorn_vec *res, vorn_vec *src, vorn_vec *filter, vorn_kernel_ctx *kctx, ub1) {
    return bloom_kernel<8, true, false>(res, src, filter, kctx);
}
ub8 vorn_2bit_bloom_hash64_selective(vorn_vec *res, vorn_vec *src, vorn_vec *filter, vorn_kernel_ctx *kctx, ub1) {
    return bloom_kernel<8, true, true>(res, src, filter, kctx);
}

}  // extern "C"
