// bloom_entries.h - the eight Bloom filter kernels and the entry that picks
// one.  All take the entry's arguments and return its codes.
#pragma once

#include "frame/base.h"

extern "C" {

VORN_INTERNAL ub8 vorn_bloom_dydi(vorn_vec *res, vorn_vec *src, vorn_vec *filter, vorn_kernel_ctx *kctx, ub1 mode);

#define VORN_BLOOM_KERNEL(name) \
    VORN_INTERNAL ub8 name(vorn_vec *res, vorn_vec *src, vorn_vec *filter, vorn_kernel_ctx *kctx, ub1 mode);
VORN_BLOOM_KERNEL(vorn_bloom_hash64)
VORN_BLOOM_KERNEL(vorn_bloom_hash64_selective)
VORN_BLOOM_KERNEL(vorn_2bit_bloom_hash64)
VORN_BLOOM_KERNEL(vorn_2bit_bloom_hash64_selective)
VORN_BLOOM_KERNEL(vorn_bloom_hash32)
VORN_BLOOM_KERNEL(vorn_bloom_hash32_selective)
VORN_BLOOM_KERNEL(vorn_2bit_bloom_hash32)
VORN_BLOOM_KERNEL(vorn_2bit_bloom_hash32_selective)
#undef VORN_BLOOM_KERNEL

}  // extern "C"
