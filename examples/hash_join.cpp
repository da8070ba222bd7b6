// hash_join.cpp - a C++ host of a hash join on the host kit (vorn_kit.h):
// customers (the build side) joined with orders (the probe side) on an
// 8-byte customer id.  The library hashes both key columns with the kit's
// hash callback, lays out a table, builds it and probes it four ways:
//   mode 0  inner join: every (order, customer) pair, through a small output
//           buffer that the host empties and hands back on code 15;
//   mode 1  the number of pairs;
//   mode 5  semi join: each order that has a customer, once;
//   mode 7  anti join: a bit per order, cleared where a customer matches.
// Every answer is checked against a plain std::unordered_multimap join.
// Build: c++ -std=c++17 hash_join.cpp -rdynamic $(pkg-config --cflags --libs vorn_kit) -ldl
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <set>
#include <unordered_map>
#include <utility>
#include <vector>

#include "vorn_kit.h"

#ifndef VORN_LIBRARY
#define VORN_LIBRARY nullptr
#endif

extern "C" void vornhost_raise_internal(void *, ub8, const char *message, ...) {
    std::fprintf(stderr, "library raised: %s\n", message);
    std::exit(3);
}

namespace {

const vorn_specialized_ctx *lib;

// A code of the probe's own: the output is full; empty it and call again
// with the same kernel context (nothing is lost or repeated).
constexpr ub8 kProbeOutputFull = 15;

[[noreturn]] void fail(const char *what, ub8 rc) {
    std::fprintf(stderr, "%s: %llu, %s (%s)\n", what, (unsigned long long)rc, vorn_kit_rc_name(rc),
                 vorn_kit_rc_text(rc));
    std::exit(1);
}

// The pages of a table: the host's to allocate.  Region 0 is mapped whole
// before the build; overflow buckets come from the growth callback.
struct Pages {
    std::vector<ub1 *> table[3];  // each region's page table
    std::vector<void *> owned;

    void map(vorn_kv_region &r, std::vector<ub1 *> &pages, ub8 page) {
        if (pages.size() <= page) pages.resize(page + 1, nullptr);
        if (!pages[page]) {
            const size_t bytes = ((size_t{1} << r.page_bits) * r.unit_bits / 8 + 63) & ~size_t{63};
            owned.push_back(std::aligned_alloc(64, bytes));
            pages[page] = static_cast<ub1 *>(std::memset(owned.back(), 0, bytes));  // empty buckets
        }
        r.pages = pages.data();  // the library reads it afresh after each grant
        if (r.mapped <= page) r.mapped = static_cast<ub4>(page + 1);
    }
    ~Pages() {
        for (void *p : owned) std::free(p);
    }
};
Pages pages;
vorn_kv table;

// grow(region, units, &id): `units` consecutive units that stay in one page,
// from a bump counter kept in the region's host word.
ub8 grow(vorn_kv_region *region, ub8 units, ub8 *id, ...) {
    const ub8 per_page = ub8{1} << region->page_bits;
    ub8 first = region->host_word16;
    if ((first & (per_page - 1)) + units > per_page) first = (first | (per_page - 1)) + 1;
    *id = first;
    region->host_word16 = first + units;
    pages.map(*region, pages.table[region - table.regions], first >> region->page_bits);
    return 0;
}

// A column of 8-byte keys and its hash column: vorn_hash_dydi with the
// kit's callback and one seed for every row.
struct Keys {
    std::vector<ub8> keys, hashes;
    vorn_enc_ctx key_enc{}, hash_enc{};
    vorn_vec key_vec{}, hash_vec{};

    explicit Keys(std::vector<ub8> k) : keys(std::move(k)), hashes(keys.size()) {
        key_enc.flags = VORN_FIXED, key_enc.bit_width = 64;
        key_vec.data = keys.data(), key_vec.size = static_cast<ub4>(keys.size()), key_vec.enc_ctx = &key_enc;
        hash_enc.flags = VORN_ALIGNED, hash_enc.width_code = 22;  // 64-bit hashes
        hash_vec.data = hashes.data(), hash_vec.size = key_vec.size, hash_vec.enc_ctx = &hash_enc;
        ub8 seed = 0;
        vorn_enc_ctx seed_enc{};
        seed_enc.flags = VORN_ALIGNED;
        vorn_vec seeds{}, res{};
        seeds.data = &seed, seeds.size = 1, seeds.enc_ctx = &seed_enc;
        res.data = hashes.data();
        const ub8 rc = lib->vorn_hash_dydi(&res, &key_vec, &seeds, vorn_kit_hash, nullptr);
        if (rc != VORN_RC_OK) fail("hash", rc);
    }
};

using Pairs = std::multiset<std::pair<ub8, ub8>>;  // (order row, customer row)

// Probes every order in `mode` with room for `room` output rows a call,
// taking the rows out and calling again while the library answers 15.
ub8 probe(Keys &orders, ub4 mode, ub4 room, Pairs *pairs, ub8 *bits) {
    std::vector<ub8> order_rows(room), customer_rows(room);
    vorn_enc_ctx autorid{};
    autorid.flags = VORN_AUTORID;  // an order's identity is its row number
    vorn_vec identities{};
    identities.enc_ctx = &autorid;
    vorn_kernel_ctx kctx{};
    ub8 stats[2] = {}, total = 0, rc;
    do {
        vorn_vec rows_out{}, values_out{};
        rows_out.data = order_rows.data(), rows_out.size = room;
        values_out.data = customer_rows.data(), values_out.size = room, values_out.res_bv = bits;
        rc = lib->vorn_probe_kv_dydi(&rows_out, &values_out, &orders.hash_vec, &identities, &orders.key_vec, &table,
                                     mode, &kctx, stats);
        if (rc != VORN_RC_OK && rc != kProbeOutputFull) fail("probe", rc);
        total += rows_out.size;  // rows written, or the count of a counting mode
        for (ub4 i = 0; pairs && i < rows_out.size; ++i) pairs->insert({order_rows[i], customer_rows[i]});
    } while (rc == kProbeOutputFull);
    return total;
}

}  // namespace

int main(int argc, char **argv) {
    char error[256];
    lib = vorn_kit_open(argc > 1 ? argv[1] : VORN_LIBRARY, nullptr, error, sizeof error);
    if (!lib) return std::fprintf(stderr, "%s\n", error), 1;

    // 3000 customers with ids 0 to 2499 (some ids twice), 20000 orders of
    // ids 0 to 2999 (some without a customer).
    std::vector<ub8> customer_ids(3000), order_ids(20000);
    for (ub8 i = 0; i < customer_ids.size(); ++i) customer_ids[i] = i * 7919 % 2500;
    for (ub8 i = 0; i < order_ids.size(); ++i) order_ids[i] = i * 104729 % 3000;
    Keys customers(customer_ids), orders(order_ids);

    // The table: 8-byte keys with 8-byte values (the customer's row), keys
    // stored in the buckets.  The layout says how many pages of what size.
    table.flags = VORN_KV_FLAGS(VORN_KV_K8V8, VORN_KV_FORM_KEYS);
    const ub8 n = customer_ids.size();
    ub8 rc = lib->vorn_layout_kv_dydi(n, n, &table.flags, &table, 0, 0, 1u << 30, 50, 0);
    if (rc != VORN_RC_OK) fail("layout", rc);
    for (ub8 p = 0; p < table.regions[0].page_count; ++p) pages.map(table.regions[0], pages.table[0], p);

    // Build: the value of a row is base_rid + its row number.
    vorn_enc_ctx autorid{};
    autorid.flags = VORN_AUTORID;
    vorn_vec values{};
    values.enc_ctx = &autorid, values.size = static_cast<ub4>(n);
    vorn_kernel_ctx kctx{};
    ub8 status[2];
    rc = lib->vorn_create_add_kv_dydi(&table, &customers.hash_vec, &values, &customers.key_vec, -1, &kctx, grow,
                                      status);
    if (rc != VORN_RC_OK) fail("build", rc);  // grow() never refuses, so one call adds every row

    // Probe.  The output room must hold a bucket's entries at least.
    Pairs inner;
    probe(orders, 0, 64, &inner, nullptr);
    const ub8 count = probe(orders, 1, 64, nullptr, nullptr);
    Pairs semi;
    probe(orders, 5, 64, &semi, nullptr);
    std::vector<ub8> unmatched(vorn_kit_bv_words(order_ids.size()), ~ub8{0});
    probe(orders, 7, 64, nullptr, unmatched.data());

    // The same join by a plain multimap.
    std::unordered_multimap<ub8, ub8> by_id;
    for (ub8 c = 0; c < n; ++c) by_id.insert({customer_ids[c], c});
    Pairs want;
    ub8 want_semi = 0, anti = 0, anti_agrees = 1;
    for (ub8 o = 0; o < order_ids.size(); ++o) {
        auto [first, last] = by_id.equal_range(order_ids[o]);
        for (auto it = first; it != last; ++it) want.insert({o, it->second});
        want_semi += first != last;
        anti += first == last;
        anti_agrees &= ((unmatched[o / 64] >> (o % 64)) & 1) == (first == last);
    }
    bool semi_agrees = semi.size() == want_semi;
    for (auto &[o, c] : semi) semi_agrees &= customer_ids[c] == order_ids[o];

    std::printf("inner join: %zu pairs (count mode: %llu); semi join: %zu orders; anti join: %llu orders\n",
                inner.size(), (unsigned long long)count, semi.size(), (unsigned long long)anti);
    if (inner != want || count != want.size() || !semi_agrees || !anti_agrees)
        return std::fprintf(stderr, "the library and the plain join differ\n"), 1;
    std::printf("all answers agree with a plain join\n");
    return 0;
}
