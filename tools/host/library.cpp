#include "host/library.h"

#include <dlfcn.h>

#include <cstdlib>
#include <cstring>

namespace vornhost {

bool Library::open(const char *p) {
    const char *env = std::getenv("VORN_LIB");
    path = p ? p : env ? env : "librvtlsse42.so";
    handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!handle) {
        error = dlerror();
        return false;
    }
    ctx = static_cast<const vorn_specialized_ctx *>(dlsym(handle, "vorn_global_specialized_ctx"));
    if (!ctx) {
        error = "no vorn_global_specialized_ctx in " + path;
        return false;
    }
    table = ctx->dispatch_table;
    last_opened_decoder = ctx->vorn_lomp_decode_dydi;
    const ub4 cpu_words[3] = {0, 0, 0};
    ctx->vorn_init_sharedlib_dydi(nullptr, cpu_words);
    return true;
}

void Library::close() {
    if (handle) dlclose(handle);
    handle = nullptr;
    ctx = nullptr;
    table = nullptr;
}

}  // namespace vornhost
