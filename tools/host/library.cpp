#include "host/library.h"

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace vornhost {

bool Library::open(const char *p) {
    const char *env = std::getenv("VORN_LIB");
    path = p ? p : env ? env : VORN_LIB_PATH;
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

const Library &library() {
    static Library lib;
    static bool opened = false;
    if (!opened) {
        if (!lib.open()) {
            std::fprintf(stderr, "cannot open the library: %s\n", lib.error.c_str());
            std::abort();
        }
        opened = true;
    }
    return lib;
}

}  // namespace vornhost
