/* The host header compiles as C11 and lays out the context record as the
 * library does: 88 words, the slots from word 15 to word 87. */
#include <stddef.h>

#include "vorn.h"

_Static_assert(offsetof(vorn_specialized_ctx, dispatch_table) == 14 * 8, "word 14");
_Static_assert(offsetof(vorn_specialized_ctx, vorn_init_sharedlib_dydi) == 15 * 8, "word 15");
_Static_assert(offsetof(vorn_specialized_ctx, vorn_lbiwvpopcnt_dydi) == 34 * 8, "word 34");
_Static_assert(offsetof(vorn_specialized_ctx, vorn_lomp_decode_dydi) == 76 * 8, "word 76");
_Static_assert(offsetof(vorn_specialized_ctx, vorn_vector_arith_dydi) == 87 * 8, "word 87");

/* A host's call of a compare, as a C host writes it. */
ub8 vorn_header_c11_call(const vorn_specialized_ctx *ctx, vorn_vec *res, vorn_vec *src,
                         const void *const *literals, vorn_kernel_ctx *kctx) {
    const ub4 index = VORN_DISPATCH_INDEX(VORN_VEC_ENC_CTX(src)->kernel_group, VORN_OP_EQ, 0);
    if (VORN_ENC_CTX_FLAG(VORN_VEC_ENC_CTX(src), VORN_RLE)) return 2;
    return ctx->dispatch_table[index].cmp(res, src, literals, kctx);
}
