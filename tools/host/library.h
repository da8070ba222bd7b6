// library.h - opening the library as a server does: dlopen, the one symbol,
// the context record and its dispatch table.
#pragma once

#include <string>

#include "vorn.h"

namespace vornhost {

struct Library {
    void *handle = nullptr;
    const vorn_specialized_ctx *ctx = nullptr;
    const vorn_kernel *table = nullptr;
    std::string path;
    std::string error;

    // Opens `path`, or $VORN_LIB, or "librvtlsse42.so" by the loader's
    // search path.  Calls
    // vorn_init_sharedlib_dydi once.  False with `error` set on failure.
    bool open(const char *path = nullptr);
    void close();

    const vorn_kernel &kernel(ub4 index) const { return table[index]; }
};

// The process's library, opened on first use; aborts with a message if it
// cannot be opened.  Opens $VORN_LIB or the library this tree built
// (default_library.cpp, linked by the in-tree hosts only).
const Library &library();

// The decoder of the library opened last: the host services' lomp_decode
// forwards to it when they have no decoder of their own.
inline vorn_lomp_decode_fn last_opened_decoder = nullptr;

}  // namespace vornhost
