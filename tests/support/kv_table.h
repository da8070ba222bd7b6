// kv_table.h - a key-value table as a test host keeps it: the header, the
// page tables of its regions and the pages, with the growth callback.  The
// callback hands out units from a bump pointer per region, never letting a
// block straddle a page, maps pages on demand, and can be told to refuse
// chosen requests (by their ordinal) or every request whose page is not
// mapped yet, as a host that maps between calls does.
#pragma once

#include <set>
#include <vector>

#include "vorn.h"

namespace vorntest {

struct KvTable {
    vorn_kv kv{};  // first member: the callback finds its table from a region

    // Layout through the library's slot; maps every page of region 0 when
    // `map_primary` (bucket tables need all; array tables may map later).
    KvTable(ub4 flags, ub8 distinct_estimate, ub8 row_count, ub4 page_hint = 0, ub4 idx_min_units = 0,
            ub4 fill_min_units = 1u << 30, ub4 fill_percent = 50, ub4 force_ptr = 0, bool map_primary = true);
    ~KvTable();
    KvTable(const KvTable &) = delete;
    KvTable &operator=(const KvTable &) = delete;

    ub8 layout_code = 0;

    // The callback to hand to the build.
    static ub8 grow(vorn_kv_region *region, ub8 units, ub8 *id, ...);

    // Refusals: the ordinals (from 0) of requests to refuse once each, and
    // the code they return.  With refuse_unmapped, a request whose page is
    // not mapped is refused until map_page() maps it.
    std::set<ub8> refuse;
    bool refuse_unmapped = false;
    ub8 refusal_code = 7;
    ub8 requests = 0;  // requests seen, refused ones included
    struct Request {
        ub4 region;
        ub8 units;
        ub8 id;
        bool refused;
    };
    std::vector<Request> log;

    void map_page(ub4 region, ub8 page);
    bool mapped(ub4 region, ub8 page) const;
    ub8 page_bytes(ub4 region) const;
    ub8 unit_bytes(ub4 region) const;
    ub1 *page(ub4 region, ub8 page) const { return tables_[region][page]; }
    ub8 units_used(ub4 region) const { return next_[region]; }
    // Address of unit `id` of a region.
    ub1 *unit(ub4 region, ub8 id) const;

private:
    std::vector<ub1 *> tables_[3];
    std::vector<void *> owned_;
    ub8 next_[3] = {};
    void ensure_table(ub4 region, ub8 pages);
};

}  // namespace vorntest
