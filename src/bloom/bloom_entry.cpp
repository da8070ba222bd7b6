// vorn_bloom_dydi and the tables of the 16-row block.
#include "bloom/bloom_entries.h"
#include "bloom/bloom_rule.h"

extern "C" {

using vorn::bloom::lane_shuffle;

constinit const std::array<ub1, 16> vorn_dup_bswapped_hi32 = lane_shuffle(8, {0, 0, 1, 1});
constinit const std::array<ub1, 16> vorn_bswapped_02_13 = lane_shuffle(4, {0, 2, 1, 3});
constinit const std::array<ub1, 16> vorn_dup_bswapped_lo64 = lane_shuffle(4, {0, 0, 1, 1});
constinit const std::array<ub1, 16> vorn_dup_bswapped_hi64 = lane_shuffle(4, {2, 2, 3, 3});

constinit const std::array<ub1, 16> vorn_bit_possible = [] {
    std::array<ub1, 16> t{};
    for (ub4 i = 0; i < 16; ++i) t[i] = static_cast<ub1>(1u << (i & 7));
    return t;
}();

// Swaps the middle two of every four bytes.
constinit const std::array<ub1, 16> vorn_bloom_reorder_16 = [] {
    std::array<ub1, 16> t{};
    for (ub4 i = 0; i < 16; ++i) t[i] = static_cast<ub1>((i & ~3u) | ((i & 1) << 1) | ((i >> 1) & 1));
    return t;
}();

// 32-bit hashes when the low byte of bit_width says 32; one bit for mode 1,
// two for any other mode; the selective form when there is a selection.
ub8 vorn_bloom_dydi(vorn_vec *res, vorn_vec *src, vorn_vec *filter, vorn_kernel_ctx *kctx, ub1 mode) {
    const bool hash32 = (src->enc_ctx->bit_width & 0xff) == 32;
    const bool one_bit = mode == VORN_BLOOM_ONE_BIT;
    const bool selective = kctx && kctx->bv_aux;
    using Kernel = ub8 (*)(vorn_vec *, vorn_vec *, vorn_vec *, vorn_kernel_ctx *, ub1);
    static constexpr Kernel kernels[2][2][2] = {
        {{vorn_2bit_bloom_hash64, vorn_2bit_bloom_hash64_selective}, {vorn_bloom_hash64, vorn_bloom_hash64_selective}},
        {{vorn_2bit_bloom_hash32, vorn_2bit_bloom_hash32_selective}, {vorn_bloom_hash32, vorn_bloom_hash32_selective}},
    };
    return kernels[hash32][one_bit][selective](res, src, filter, kctx, mode);
}

}  // extern "C"
