// host_services.h - a host's side of vorn_host_services: an environment whose
// word 71 is the error context, an arena behind alloc, working arrays behind
// work_alloc and work_free, and the library's own decoder in lomp_decode.
// Every callback is recorded, so that a caller can see who asked for what.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "vorn.h"

namespace vornhost {

// Memory handed out stays until the arena goes.  Every block is 16-byte
// aligned and has 64 readable, writable bytes behind it.
class Arena {
public:
    void *allocate(std::size_t bytes);
    void clear() { blocks_.clear(); }

private:
    std::vector<std::unique_ptr<ub8[]>> blocks_;
};

struct AllocRecord {
    std::string name;
    ub8 bytes;
    ub4 eight, sixteen;  // the constants of alloc, or 8 and 0 of work_alloc
    ub8 tag;
};

struct HostServices {
    // The environment handed to the library is this object; its word 71 is
    // the error context that the raise carries back.
    ub8 env_words[80] = {};
    vorn_host_services services{};
    Arena arena;
    std::vector<AllocRecord> allocs;       // alloc calls
    std::vector<AllocRecord> work_allocs;  // work_alloc calls
    std::vector<std::string> work_frees;   // names of the arrays released
    ub4 decode_calls = 0;
    vorn_lomp_decode_fn decoder = nullptr;  // what lomp_decode forwards to

    static constexpr ub8 kErrorContext = 0x5eed0071;

    HostServices();
    HostServices(const HostServices &) = delete;
    HostServices &operator=(const HostServices &) = delete;

    static HostServices *from_env(void *env) { return static_cast<HostServices *>(env); }

private:
    struct WorkBlock {
        std::string name;
        std::unique_ptr<ub1[]> memory;
    };
    std::vector<WorkBlock> work_blocks_;
    friend void *host_work_alloc(void *, ub8, const char *, ub4, ub4, void **);
    friend void host_work_free(void *, void *, void *);
};


}  // namespace vornhost
