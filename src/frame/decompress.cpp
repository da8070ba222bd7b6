#include "frame/decompress.h"

#include "frame/fail.h"

namespace vorn {

const ub1 *decompress_column(const vorn_vec *src, const vorn_kernel_ctx *kctx,
                             const char *vec1_decomp_name, const char *failed_message) {
    vorn_host_services *host = kctx->host;
    void *buffer = host->alloc(host->env, host->heap, src->decomp_size, vec1_decomp_name, 8, 16,
                               src->alloc_tag);
    *src->decomp_slot = buffer;
    const vorn_lomp_ctx lomp = {host->env, host->heap, host->work_alloc, host->work_free,
                                (host->decoder_flags & 0x30) != 0 ? 1u : 0u};
    ub4 out_length = 0;
    if (host->lomp_decode(&lomp, static_cast<const ub1 *>(src->data), static_cast<ub1 *>(buffer),
                          &out_length, src->decomp_size) != 0)
        raise_internal(host, failed_message);
    return static_cast<const ub1 *>(buffer);
}

}  // namespace vorn
