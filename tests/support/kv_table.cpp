#include "support/kv_table.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "host/library.h"

namespace vorntest {
namespace {

std::vector<KvTable *> &live_tables() {
    static std::vector<KvTable *> list;
    return list;
}

}  // namespace

KvTable::KvTable(ub4 flags, ub8 distinct_estimate, ub8 row_count, ub4 page_hint, ub4 idx_min_units,
                 ub4 fill_min_units, ub4 fill_percent, ub4 force_ptr, bool map_primary) {
    kv.flags = flags;
    layout_code = vornhost::library().ctx->vorn_layout_kv_dydi(distinct_estimate, row_count, &kv.flags, &kv,
                                                               page_hint, idx_min_units, fill_min_units,
                                                               fill_percent, force_ptr);
    for (ub4 r = 0; r < 3; ++r) ensure_table(r, kv.regions[r].page_count + 1);
    if (map_primary && layout_code == 0) {
        for (ub8 p = 0; p < kv.regions[0].page_count; ++p) map_page(0, p);
    }
    live_tables().push_back(this);
}

KvTable::~KvTable() {
    auto &list = live_tables();
    list.erase(std::find(list.begin(), list.end(), this));
    for (void *p : owned_) std::free(p);
}

void KvTable::ensure_table(ub4 region, ub8 pages) {
    if (tables_[region].size() < pages) tables_[region].resize(pages, nullptr);
    kv.regions[region].pages = tables_[region].data();
}

ub8 KvTable::unit_bytes(ub4 region) const {
    const ub8 bits = kv.regions[region].unit_bits;
    return bits < 8 ? 1 : bits / 8;
}

ub8 KvTable::page_bytes(ub4 region) const {
    const vorn_kv_region &r = kv.regions[region];
    return std::max<ub8>(64, ((ub8{1} << r.page_bits) * r.unit_bits + 7) / 8);
}

bool KvTable::mapped(ub4 region, ub8 page) const {
    return page < kv.regions[region].mapped && page < tables_[region].size() && tables_[region][page] != nullptr;
}

void KvTable::map_page(ub4 region, ub8 page) {
    ensure_table(region, page + 1);
    if (tables_[region][page] == nullptr) {
        const ub8 bytes = (page_bytes(region) + 63) & ~ub8{63};
        void *mem = std::aligned_alloc(64, bytes);
        std::memset(mem, 0, bytes);
        owned_.push_back(mem);
        tables_[region][page] = static_cast<ub1 *>(mem);
    }
    kv.regions[region].mapped = std::max<ub4>(kv.regions[region].mapped, static_cast<ub4>(page + 1));
}

ub1 *KvTable::unit(ub4 region, ub8 id) const {
    const vorn_kv_region &r = kv.regions[region];
    return tables_[region][id >> r.page_bits] + (id & ((ub8{1} << r.page_bits) - 1)) * unit_bytes(region);
}

ub8 KvTable::grow(vorn_kv_region *region, ub8 units, ub8 *id, ...) {
    for (KvTable *t : live_tables()) {
        for (ub4 r = 0; r < 3; ++r) {
            if (region != &t->kv.regions[r]) continue;
            const ub8 per_page = ub8{1} << region->page_bits;
            ub8 first = t->next_[r];
            if ((first & (per_page - 1)) + units > per_page) first = (first | (per_page - 1)) + 1;
            *id = first;
            const ub8 ordinal = t->requests++;
            const ub8 page = first >> region->page_bits;
            bool refused = t->refuse.erase(ordinal) != 0;
            if (!refused && t->refuse_unmapped && !t->mapped(r, page)) refused = true;
            t->log.push_back({r, units, first, refused});
            if (refused) return t->refusal_code;
            if (!t->mapped(r, page)) t->map_page(r, page);
            t->next_[r] = first + units;
            return 0;
        }
    }
    std::abort();
}

}  // namespace vorntest
