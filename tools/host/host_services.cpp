#include "host/host_services.h"

#include "host/library.h"

#include <cstdio>
#include <cstdlib>

namespace vornhost {

void *Arena::allocate(std::size_t bytes) {
    blocks_.emplace_back(new ub8[(bytes + 64 + 7) / 8]());
    return blocks_.back().get();
}

static void *host_alloc(void *env, void *, ub8 bytes, const char *name, ub4 eight, ub4 sixteen,
                        ub8 tag) {
    HostServices *h = HostServices::from_env(env);
    h->allocs.push_back({name, bytes, eight, sixteen, tag});
    return h->arena.allocate(bytes);
}

void *host_work_alloc(void *handle, ub8 bytes, const char *name, ub4 eight, ub4 zero,
                      void **release_handle) {
    HostServices *h = HostServices::from_env(handle);
    h->work_allocs.push_back({name, bytes, eight, zero, 0});
    h->work_blocks_.push_back({name, std::unique_ptr<ub1[]>(new ub1[bytes + 64]())});
    *release_handle = reinterpret_cast<void *>(h->work_blocks_.size());
    return h->work_blocks_.back().memory.get();
}

void host_work_free(void *handle, void *memory, void *release_handle) {
    HostServices *h = HostServices::from_env(handle);
    const auto index = reinterpret_cast<std::size_t>(release_handle) - 1;
    if (index < h->work_blocks_.size() && h->work_blocks_[index].memory.get() == memory) {
        h->work_frees.push_back(h->work_blocks_[index].name);
        h->work_blocks_[index].memory.reset();
    } else {
        h->work_frees.push_back("<unknown block>");
    }
}

static ub8 host_lomp_decode(const vorn_lomp_ctx *ctx, const ub1 *stream, ub1 *out, ub4 *out_length,
                            ub4 capacity) {
    HostServices *h = HostServices::from_env(ctx->env);
    ++h->decode_calls;
    const vorn_lomp_decode_fn decode = h->decoder ? h->decoder : last_opened_decoder;
    if (!decode) {
        std::fprintf(stderr, "host services: lomp_decode called before a library was opened\n");
        std::abort();
    }
    return decode(ctx, stream, out, out_length, capacity);
}

HostServices::HostServices() {
    env_words[VORN_ENV_ERROR_CONTEXT_WORD] = kErrorContext;
    services.env = this;
    services.heap = &arena;
    services.alloc = host_alloc;
    services.work_alloc = host_work_alloc;
    services.work_free = host_work_free;
    services.lomp_decode = host_lomp_decode;
    services.decoder_flags = 0;
}

}  // namespace vornhost
