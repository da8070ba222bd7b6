// kv_host_table.h - the host side of a key-value table in the table
// benchmarks: pages from two arenas, as a host of large join tables takes
// them, and an allocator that gives a peer hash map the same kind of pages.
//
// A host of a 512 MiB join table maps it on 2 MiB pages: with 4 KiB pages
// every random bucket access is a TLB miss as well as a cache miss.  Where
// transparent huge pages are `madvise` only, the arenas are 2 MiB aligned
// and advised before their first touch.  The peer map's allocator does the
// same, so both sides of a comparison pay the same page walks.
#pragma once

#include <sys/mman.h>

#include <cstdlib>
#include <cstring>
#include <new>
#include <vector>

#include "host/library.h"
#include "vorn.h"

namespace vornbench {

inline constexpr ub8 kHugePage = ub8{2} << 20;

// `bytes` zeroed bytes, 2 MiB aligned and advised for huge pages.
inline void *huge_zeroed(ub8 bytes) {
    bytes = (bytes + kHugePage - 1) & ~(kHugePage - 1);
    void *p = std::aligned_alloc(kHugePage, bytes);
    if (p == nullptr) return nullptr;
    madvise(p, bytes, MADV_HUGEPAGE);
    std::memset(p, 0, bytes);
    return p;
}

// A table laid out for `rows` rows whose pages come from two arenas:
// region 0 mapped whole, overflow buckets (64-byte units) handed out in
// order by the grow callback.
struct HostTable {
    vorn_kv kv{};
    std::vector<ub1 *> pages0, pages1;
    ub1 *arena0 = nullptr, *arena1 = nullptr;
    ub8 bytes0 = 0, bytes1 = 0, next1 = 0;

    // fill_min_units: from how many overflow buckets the layout links the
    // table by address with prefetch (the layout's own choice of link).
    HostTable(ub4 kind, ub4 form, bool ptr, ub8 rows, ub4 fill_min_units = 1u << 30) {
        kv.flags = VORN_KV_FLAGS(kind, form);
        const vorn_specialized_ctx &c = *vornhost::library().ctx;
        c.vorn_layout_kv_dydi(rows, rows, &kv.flags, &kv, 0, 0, fill_min_units, 50, ptr ? 1 : 0);
        const vorn_kv_region &r0 = kv.regions[0];
        const ub8 page0 = ub8{64} << r0.page_bits;
        bytes0 = page0 * r0.page_count;
        arena0 = static_cast<ub1 *>(huge_zeroed(bytes0));
        for (ub8 p = 0; p < r0.page_count; ++p) pages0.push_back(arena0 + p * page0);
        kv.regions[0].pages = pages0.data();
        kv.regions[0].mapped = r0.page_count;
        const ub8 page1 = ub8{64} << kv.regions[1].page_bits;
        const ub8 count1 = kv.regions[1].page_count + 1;
        bytes1 = page1 * count1;
        arena1 = static_cast<ub1 *>(huge_zeroed(bytes1));
        for (ub8 p = 0; p < count1; ++p) pages1.push_back(arena1 + p * page1);
        kv.regions[1].pages = pages1.data();
        kv.regions[1].mapped = static_cast<ub4>(count1);
        current() = this;
    }
    HostTable(const HostTable &) = delete;
    HostTable &operator=(const HostTable &) = delete;
    ~HostTable() {
        std::free(arena0);
        std::free(arena1);
    }
    // Empties the table for another build, as a host hands out zeroed
    // pages: region 0 whole, and the overflow buckets handed out so far.
    void clear() {
        std::memset(arena0, 0, bytes0);
        std::memset(arena1, 0, next1 * 64);
        next1 = 0;
    }
    // The table whose arena the grow callback serves: the last one made,
    // or the one a benchmark names before a build.
    static HostTable *&current() {
        static HostTable *t = nullptr;
        return t;
    }
    static ub8 grow(vorn_kv_region *, ub8 units, ub8 *id, ...) {
        *id = current()->next1;
        current()->next1 += units;
        return 0;
    }
};

// An allocator for a peer hash map: its large arrays on advised 2 MiB
// pages like the tables', small ones from malloc.
template <class T>
struct HugePageAllocator {
    using value_type = T;
    HugePageAllocator() = default;
    template <class U>
    HugePageAllocator(const HugePageAllocator<U> &) {}
    T *allocate(std::size_t n) {
        const std::size_t bytes = n * sizeof(T);
        void *p = nullptr;
        if (bytes >= kHugePage) {
            const std::size_t rounded = (bytes + kHugePage - 1) & ~(kHugePage - 1);
            p = std::aligned_alloc(kHugePage, rounded);
            if (p != nullptr) madvise(p, rounded, MADV_HUGEPAGE);
        } else {
            p = std::malloc(bytes);
        }
        if (p == nullptr) std::abort();
        return static_cast<T *>(p);
    }
    void deallocate(T *p, std::size_t) { std::free(p); }
    template <class U>
    bool operator==(const HugePageAllocator<U> &) const { return true; }
};

}  // namespace vornbench
