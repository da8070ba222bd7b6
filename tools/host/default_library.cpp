// default_library.cpp - the library of this build tree, for the in-tree hosts
// (tests, benchmarks, the reference host); not part of the installed kit.
#include <cstdio>
#include <cstdlib>

#include "host/library.h"

namespace vornhost {

const Library &library() {
    static Library lib;
    static bool opened = false;
    if (!opened) {
        if (!lib.open(std::getenv("VORN_LIB") ? nullptr : VORN_LIB_PATH)) {
            std::fprintf(stderr, "cannot open the library: %s\n", lib.error.c_str());
            std::abort();
        }
        opened = true;
    }
    return lib;
}

}  // namespace vornhost
