// join.cpp - Q8 and Q9: hash joins of a fact table with a dimension table,
// run as a server's join operator runs them, through the library's slots:
//
//   hash      the join keys into 64-bit hashes (vorn_hash_dydi); a key of two
//             columns hashes the second with the first's hashes as seeds
//   bloom     a filter the host sets from the dimension's hashes drops the
//             fact rows that cannot find a partner (vorn_bloom_dydi)
//   partition both sides by the hash bits that pick a table segment
//             (vorn_partition_dydi), so that each thread builds its own
//             segments and probes partitions that fit its cache
//   build     one segment per partition on the threads (vorn_layout_kv_dydi,
//             vorn_create_add_kv_dydi); the table's value is the dimension row
//   probe     the surviving fact rows (vorn_probe_kv_dydi)
//   gather    the dimension's columns of each pair out of a row store that
//             the transposes built (vorn_transpose_fixed_dydi,
//             vorn_gather_cols_dydi); the key gathered checks the match
//   scan      Q9: the dimension rows no fact matched (vorn_mut_kv_scan_dydi)
//
// The scalar evaluation is a loop over the fact rows with an
// std::unordered_map of the dimension's keys; absl::flat_hash_map does the
// same loop as the peer when the demo was built with it.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <random>
#include <string_view>
#include <unordered_map>

#include "host/hash_callback.h"
#include "vorn_demo/groups.h"

#if VORN_HAVE_ABSL
#include "absl/container/flat_hash_map.h"
#endif

namespace demo {
namespace {

constexpr ub4 kChunk = 1u << 20;   // rows of one hashing, filtering and partitioning step
constexpr ub4 kStorePageBits = 16; // rows of a row-store page, log2
constexpr ub4 kProbeRoom = 1u << 16;

// Item names of variable length, unique: 1-3 capitals, '-', the number in base 36.
std::string item_name(ub8 i) {
    static const char digits[] = "0123456789abcdefghijklmnopqrstuvwxyz";
    std::string s(1 + mix64(i) % 3, 'A');
    for (std::size_t k = 0; k < s.size(); ++k) s[k] = static_cast<char>('A' + (mix64(i + 7 * k) >> 40) % 26);
    s += '-';
    std::string n;
    do n += digits[i % 36], i /= 36;
    while (i);
    return s + std::string(n.rbegin(), n.rend());
}

struct Strings {  // one string column, addresses and lengths apart
    std::vector<ub8> ptrs;
    std::vector<ub2> lens;
    std::string_view at(ub8 i) const { return {reinterpret_cast<const char *>(ptrs[i]), lens[i]}; }
};

struct Data {
    ub8 dim_rows = 0, fact_rows = 0;
    std::vector<std::string> items;      // the item name pool: 2 per dimension row
    std::vector<ub4> dim_key, dim_region, dim_price;
    Strings dim_item;                    // dimension row i is item i
    std::vector<ub4> fact_key;
    Strings fact_item;
};

ub4 key_of(ub8 i) { return static_cast<ub4>(i * 2654435761u) ^ 0x5bd1e995u; }  // a bijection: unique keys

Data generate(ub8 fact_rows, ub8 seed) {
    Data d;
    d.fact_rows = fact_rows;
    d.dim_rows = std::max<ub8>(fact_rows / 10, 16);
    for (ub8 i = 0; i < 2 * d.dim_rows; ++i) d.items.push_back(item_name(i));
    std::mt19937_64 rng(seed);
    for (ub8 i = 0; i < d.dim_rows; ++i) {
        d.dim_key.push_back(key_of(i));
        d.dim_region.push_back(static_cast<ub4>(rng() % 12));
        d.dim_price.push_back(static_cast<ub4>(100 + rng() % 100000));
        d.dim_item.ptrs.push_back(reinterpret_cast<ub8>(d.items[i].data()));
        d.dim_item.lens.push_back(static_cast<ub2>(d.items[i].size()));
    }
    // 70% of the facts name a dimension row, 90% of those with its item; the
    // others name keys and items no dimension row has.
    d.fact_key.resize(fact_rows);
    d.fact_item.ptrs.resize(fact_rows);
    d.fact_item.lens.resize(fact_rows);
    for (ub8 j = 0; j < fact_rows; ++j) {
        const ub8 r = rng();
        const ub8 row = (r >> 8) % d.dim_rows;
        const bool hit = r % 10 < 7;
        d.fact_key[j] = key_of(hit ? row : d.dim_rows + row);
        const ub8 item = hit && (r >> 4) % 10 != 0 ? row : (r >> 40) % (2 * d.dim_rows);
        d.fact_item.ptrs[j] = reinterpret_cast<ub8>(d.items[item].data());
        d.fact_item.lens[j] = static_cast<ub2>(d.items[item].size());
    }
    return d;
}

// The order-free summary of a join's answer, library and scalar alike.
struct Answer {
    ub8 pairs = 0, pair_mix = 0, price_sum = 0;
    ub8 unmatched = 0, unmatched_mix = 0;  // Q9: dimension rows without a partner
    void add(const Answer &o) {
        pairs += o.pairs, pair_mix += o.pair_mix, price_sum += o.price_sum;
        unmatched += o.unmatched, unmatched_mix += o.unmatched_mix;
    }
    bool operator==(const Answer &) const = default;
};

ub8 pair_mix(ub8 fact, ub8 dim) { return mix64(fact << 32 | dim); }

// ---- the host's side of a key-value table ---------------------------------------

// Pages come from the host: region 0 all at once, overflow buckets on
// demand through the growth callback, which threads building different
// segments share, hence the lock.
struct HostTable {
    vorn_kv kv{};
    ub8 layout_code = 0;
    std::vector<ub1 *> pages[3];
    std::vector<void *> owned;
    ub8 next_unit[3] = {};
    std::mutex grow_lock;

    HostTable(const vorn_specialized_ctx &c, ub4 flags, ub8 rows) {
        auto layout = [&](ub4 page_hint) {
            kv = vorn_kv{};
            kv.flags = flags;
            layout_code = c.vorn_layout_kv_dydi(rows, rows, &kv.flags, &kv, page_hint, 0, 1u << 30, 50, 1);
        };
        layout(0);
        // At most 64 segments: larger pages instead, so that a partition
        // holds enough rows to be worth a thread's call.
        if (layout_code == 0 && kv.regions[0].segment_bits > 6)
            layout(kv.regions[0].page_bits + kv.regions[0].segment_bits - 6 + 6);
        for (ub4 r = 0; r < 3; ++r) {
            pages[r].assign(r == 0 ? kv.regions[0].page_count : 1u << 16, nullptr);
            kv.regions[r].pages = pages[r].data();
            kv.regions[r].host_word16 = reinterpret_cast<ub8>(this);
        }
        for (ub4 p = 0; p < kv.regions[0].page_count; ++p) pages[0][p] = page(0);
        kv.regions[0].mapped = kv.regions[0].page_count;
    }
    ~HostTable() {
        for (void *p : owned) std::free(p);
    }
    ub4 segments() const { return 1u << kv.regions[0].segment_bits; }
    ub8 page_bytes(ub4 r) const {
        const ub8 bits = (ub8{1} << kv.regions[r].page_bits) * kv.regions[r].unit_bits;
        return std::max<ub8>(64, (bits / 8 + 63) & ~ub8{63});
    }
    ub1 *page(ub4 r) {
        void *m = std::aligned_alloc(64, page_bytes(r));
        std::memset(m, 0, page_bytes(r));
        owned.push_back(m);
        return static_cast<ub1 *>(m);
    }

    // The growth callback: `units` consecutive units that stay in one page.
    static ub8 grow(vorn_kv_region *region, ub8 units, ub8 *id, ...) {
        HostTable &t = *reinterpret_cast<HostTable *>(region->host_word16);
        const ub4 r = static_cast<ub4>(region - t.kv.regions);
        std::lock_guard<std::mutex> hold(t.grow_lock);
        const ub8 per_page = ub8{1} << region->page_bits;
        ub8 first = t.next_unit[r];
        if ((first & (per_page - 1)) + units > per_page) first = (first | (per_page - 1)) + 1;
        const ub8 page = first >> region->page_bits;
        if (page >= t.pages[r].size()) return 7;  // the page table is full: refuse
        if (t.pages[r][page] == nullptr) t.pages[r][page] = t.page(r);
        region->mapped = std::max<ub4>(region->mapped, static_cast<ub4>(page + 1));
        t.next_unit[r] = first + units;
        *id = first;
        return 0;
    }
};

// ---- the dimension's row store ----------------------------------------------------

// Fixed rows of key, region and price, pages of 2^16 rows, filled column by
// column by the fixed transpose.
struct RowStore {
    static constexpr ub1 kLens[3] = {4, 4, 4}, kOffsets[3] = {0, 4, 8};
    std::vector<std::vector<ub1>> data;
    std::vector<const ub1 *> data_pages;
    vorn_gather_spec spec{};

    void build(Scan &scan, const Data &d) {
        const ub8 pages = (d.dim_rows >> kStorePageBits) + 1;
        data.assign(pages, {});
        data_pages.assign(pages, nullptr);
        const std::vector<ub4> *cols[3] = {&d.dim_key, &d.dim_region, &d.dim_price};
        scan.for_units(static_cast<ub4>(pages), [&](Worker &w, ub4 p) {
            const ub8 first = ub8{p} << kStorePageBits, n = std::min<ub8>(d.dim_rows - first, 1u << kStorePageBits);
            data[p].resize(n * 12 + 1);
            data_pages[p] = data[p].data();
            std::vector<ub1 *> cursors(p + 1);
            vorn_transpose_spec t{};
            t.flags = VORN_STORE_FIXED;
            t.num_cols = 3;
            t.row_stride = 12;
            t.col_lens = kLens;
            t.col_offsets = kOffsets;
            t.data_cursors = cursors.data();
            for (ub4 c = 0; c < 3; ++c) {
                cursors[p] = data[p].data();
                vorn_enc_ctx enc{};
                enc.flags = VORN_FIXED;
                enc.bit_width = 32;
                vorn_vec src{};
                src.enc_ctx = &enc;
                src.data = const_cast<ub4 *>(cols[c]->data() + first);
                src.size = static_cast<ub4>(n);
                scan.slot(w, "vorn_transpose_fixed_dydi", n, [&] {
                    return scan.ctx().vorn_transpose_fixed_dydi(&t, &src, c, static_cast<sb4>(p), nullptr);
                });
            }
        });
        spec.flags = VORN_STORE_FIXED;
        spec.num_cols = 3;
        spec.row_stride = 12;
        spec.col_lens = kLens;
        spec.col_offsets = kOffsets;
        spec.high_bit = 63;
        spec.low_bit = kStorePageBits;
        spec.data_pages = data_pages.data();
    }
};

// ---- the library's join --------------------------------------------------------------

enum class Key { integer, integer_and_item };

// One side's partitions: per chunk and partition, {row id, hash} records.
struct Partitions {
    ub4 count = 0;
    std::vector<std::vector<std::vector<ub8>>> records;  // [chunk][partition], 2 words a record
};

class LibraryJoin {
public:
    LibraryJoin(Scan &scan, const Data &d, const RowStore &store, Key key, ub4 mode)
        : scan_(scan), c_(scan.ctx()), d_(d), store_(store), key_(key), mode_(mode) {}

    Answer run(ub8 &dropped, ub8 &false_candidates) {
        std::vector<ub8> dim_hash(d_.dim_rows), fact_hash(d_.fact_rows);
        hash_rows(d_.dim_key, d_.dim_item, dim_hash);
        hash_rows(d_.fact_key, d_.fact_item, fact_hash);
        const ub4 kind = key_ == Key::integer ? VORN_KV_K4V4 : VORN_KV_K12V4;
        HostTable table(c_, VORN_KV_FLAGS(kind, VORN_KV_FORM_KEYS), d_.dim_rows);
        if (table.layout_code != 0) return fail("layout " + std::to_string(table.layout_code));
        const ub4 segments = table.segments();
        parts_ = std::max<ub4>(segments, 2);
        low_bit_ = table.kv.regions[0].page_bits;

        // The dimension side: every row, its row number as its id.
        Partitions dim = partition(dim_hash, nullptr);
        // The fact side: the rows that pass the filter.
        std::vector<ub8> filter = bloom_filter(dim_hash);
        std::vector<ub8> kept;
        Partitions fact = partition(fact_hash, &filter, &kept);
        dropped = d_.fact_rows - sum(kept);

        scan_.for_units(segments, [&](Worker &w, ub4 s) {
            for (ub4 p = s; p < parts_; p += segments) build(w, table, dim, p, s);
        });
        std::vector<Answer> answers(parts_);
        std::vector<ub8> falses(parts_);
        scan_.for_units(parts_, [&](Worker &w, ub4 p) { answers[p] = probe(w, table, fact, p, falses[p]); });
        Answer a;
        for (const Answer &x : answers) a.add(x);
        false_candidates = sum(falses);
        if (mode_ == 9) {
            std::vector<Answer> alone(segments);
            scan_.for_units(segments, [&](Worker &w, ub4 s) { alone[s] = unmatched(w, table, s); });
            for (const Answer &x : alone) a.add(x);
        }
        return error_.empty() ? a : Answer{};
    }
    const std::string &error() const { return error_; }

private:
    static ub8 sum(const std::vector<ub8> &v) {
        ub8 s = 0;
        for (ub8 x : v) s += x;
        return s;
    }
    Answer fail(const std::string &why) {
        std::lock_guard<std::mutex> hold(error_lock_);
        if (error_.empty()) error_ = why;
        return {};
    }
    ub4 chunks(ub8 rows) const { return static_cast<ub4>((rows + kChunk - 1) / kChunk); }

    // The key's hashes, chunk by chunk on the threads; the item column is
    // hashed with the key's hashes as its seeds.
    void hash_rows(const std::vector<ub4> &keys, const Strings &items, std::vector<ub8> &out) {
        scan_.for_units(chunks(keys.size()), [&](Worker &w, ub4 u) {
            const ub8 first = ub8{u} * kChunk, n = std::min<ub8>(keys.size() - first, kChunk);
            vorn_enc_ctx key_enc{}, seed_enc{}, item_enc{};
            key_enc.flags = VORN_FIXED;
            key_enc.bit_width = 32;
            seed_enc.flags = VORN_ALIGNED;
            seed_enc.bit_width = 64;
            item_enc.flags = VORN_PTR_LEN;
            ub8 zero = 0;
            vorn_vec res{}, src{}, seeds{};
            res.data = out.data() + first;
            src.enc_ctx = &key_enc;
            src.data = const_cast<ub4 *>(keys.data() + first);
            src.size = static_cast<ub4>(n);
            seeds.enc_ctx = &seed_enc;
            seeds.data = &zero;
            seeds.size = 1;
            auto call = [&] { return c_.vorn_hash_dydi(&res, &src, &seeds, vornhost::xxh3_hash, nullptr); };
            if (scan_.slot(w, "vorn_hash_dydi", n, call) != 0) fail("hash");
            if (key_ != Key::integer_and_item) return;
            seeds.data = out.data() + first;
            seeds.size = static_cast<ub4>(n);
            src.enc_ctx = &item_enc;
            src.data = const_cast<ub8 *>(items.ptrs.data() + first);
            src.data2 = const_cast<ub2 *>(items.lens.data() + first);
            if (scan_.slot(w, "vorn_hash_dydi", n, call) != 0) fail("hash of the items");
        });
    }

    // The host's filter: about 16 bits per dimension row, two bits per
    // hash in one 64-bit word, set by the rule the kernel tests.
    std::vector<ub8> bloom_filter(const std::vector<ub8> &dim_hash) {
        ub8 bits = 4096;
        while (bits < 16 * d_.dim_rows) bits *= 2;
        filter_mask_ = static_cast<ub4>(bits - 1);
        std::vector<ub8> f(bits / 64);
        for (ub8 h : dim_hash) {
            const ub4 word = static_cast<ub4>(__builtin_bswap64(h));  // the hash word the kernel reads
            const ub4 b1 = word & filter_mask_, b2 = (b1 & ~63u) | ((word >> 26) & filter_mask_);
            f[b1 >> 6] |= ub8{1} << (b1 & 63);
            f[b2 >> 6] |= ub8{1} << (b2 & 63);
        }
        return f;
    }

    // Rows into partitions by the hash bits above the bucket bits.  With a
    // filter, a chunk's rows are first tested and only the passing ones are
    // partitioned, their row ids listed.
    Partitions partition(const std::vector<ub8> &hashes, const std::vector<ub8> *filter,
                         std::vector<ub8> *kept = nullptr) {
        Partitions out;
        out.count = parts_;
        const ub4 units = chunks(hashes.size());
        out.records.assign(units, std::vector<std::vector<ub8>>(parts_));
        if (kept) kept->assign(units, 0);
        ub4 part_bits = 0;
        while ((1u << part_bits) < parts_) ++part_bits;
        scan_.for_units(units, [&](Worker &w, ub4 u) {
            const ub8 first = ub8{u} * kChunk, n = std::min<ub8>(hashes.size() - first, kChunk);
            vorn_enc_ctx hash_enc{}, rid_enc{};
            hash_enc.flags = VORN_ALIGNED;
            hash_enc.bit_width = 64;
            vorn_vec hv{}, rids{};
            hv.enc_ctx = &hash_enc;
            rids.enc_ctx = &rid_enc;
            std::vector<ub8> kept_hash, kept_rid;
            if (filter) {
                // The filter test, then the passing rows listed by the bit iterator.
                std::vector<ub8> pass(n / 64 + 2);
                vorn_enc_ctx fenc{};
                fenc.bloom_mask = filter_mask_;
                vorn_vec res{}, fv{};
                ub4 first_last[2];
                res.res_bv = pass.data();
                res.data = first_last;
                hv.data = const_cast<ub8 *>(hashes.data() + first);
                hv.size = static_cast<ub4>(n);
                fv.enc_ctx = &fenc;
                fv.res_bv = const_cast<ub8 *>(filter->data());
                vorn_kernel_ctx k = w.kctx();
                const ub8 code = scan_.slot(w, "vorn_bloom_dydi", n, [&] { return c_.vorn_bloom_dydi(&res, &hv, &fv, &k, 2); });
                if (code > 1) fail("bloom " + std::to_string(code));
                std::vector<ub4> rows(res.num_ones + 1);
                vorn_bv_iter it;
                c_.vorn_lbiwv_ictx_ini2_dydi(&it, pass.data(), n, 0, 0);
                const ub4 got = c_.vorn_lbiwvones_dydi(&it, rows.data(), res.num_ones);
                kept_hash.resize(got);
                kept_rid.resize(got);
                for (ub4 i = 0; i < got; ++i) kept_hash[i] = hashes[first + rows[i]], kept_rid[i] = first + rows[i];
                (*kept)[u] = got;
                hv.data = kept_hash.data();
                hv.size = got;
                rids.data = kept_rid.data();
            } else {
                hv.data = const_cast<ub8 *>(hashes.data() + first);
                hv.size = static_cast<ub4>(n);
                rid_enc.flags = VORN_AUTORID;
                rids.base_rid = first;
            }
            // Buffers a quarter above the even share; a full one is doubled.
            auto &bufs = out.records[u];
            std::vector<ub1 *> cursors(parts_), limits(parts_);
            const ub8 each = 2 * (hv.size / parts_ + hv.size / parts_ / 4 + 16);
            for (ub4 p = 0; p < parts_; ++p) {
                bufs[p].resize(each);
                cursors[p] = reinterpret_cast<ub1 *>(bufs[p].data());
                limits[p] = reinterpret_cast<ub1 *>(bufs[p].data() + each);
            }
            vorn_partition_ctrl ctrl{VORN_PART_RID | VORN_PART_HASH, static_cast<ub1>(low_bit_ + part_bits - 1),
                                     static_cast<ub1>(low_bit_), 0, cursors.data(), limits.data()};
            vorn_kernel_ctx k{};
            for (;;) {
                const ub8 code = scan_.slot(w, "vorn_partition_dydi", hv.size - k.row_pos,
                                            [&] { return c_.vorn_partition_dydi(&ctrl, &hv, &rids, nullptr, nullptr, &k); });
                if (code == 0) break;
                if (code != 6) return void(fail("partition " + std::to_string(code)));
                const ub4 p = static_cast<ub4>(k.stop_row);
                const ub8 used = (cursors[p] - reinterpret_cast<ub1 *>(bufs[p].data())) / 8;
                bufs[p].resize(bufs[p].size() * 2);
                cursors[p] = reinterpret_cast<ub1 *>(bufs[p].data() + used);
                limits[p] = reinterpret_cast<ub1 *>(bufs[p].data() + bufs[p].size());
            }
            for (ub4 p = 0; p < parts_; ++p) bufs[p].resize((cursors[p] - reinterpret_cast<ub1 *>(bufs[p].data())) / 8);
        });
        return out;
    }

    // A partition's columns as the table calls take them: hashes, keys and ids.
    struct Columns {
        std::vector<ub8> hashes, ids;
        std::vector<ub4> keys, values;
        Strings items;
        vorn_enc_ctx hash_enc{}, key_enc{}, id_enc{};
        vorn_vec hash_vec{}, key_vec{}, id_vec{};
    };
    void columns(const Partitions &parts, ub4 p, bool dimension, Columns &c) const {
        std::size_t rows = 0;
        for (const auto &chunk : parts.records) rows += chunk[p].size() / 2;
        c.hashes.reserve(rows), c.ids.reserve(rows), c.keys.reserve(rows);
        if (dimension) c.values.reserve(rows);
        for (const auto &chunk : parts.records) {
            const auto &r = chunk[p];
            for (std::size_t i = 0; i < r.size(); i += 2) {
                const ub8 rid = r[i];
                c.hashes.push_back(r[i + 1]);
                c.ids.push_back(rid);
                if (dimension) c.values.push_back(static_cast<ub4>(rid));
                c.keys.push_back(dimension ? d_.dim_key[rid] : d_.fact_key[rid]);
                if (key_ == Key::integer_and_item) {
                    const Strings &s = dimension ? d_.dim_item : d_.fact_item;
                    c.items.ptrs.push_back(s.ptrs[rid]);
                    c.items.lens.push_back(s.lens[rid]);
                }
            }
        }
        const ub4 n = static_cast<ub4>(c.hashes.size());
        c.hash_enc.flags = VORN_ALIGNED;
        c.hash_enc.width_code = 22;
        c.hash_enc.bit_width = 64;
        c.hash_vec = vorn_vec{};
        c.hash_vec.enc_ctx = &c.hash_enc;
        c.hash_vec.data = c.hashes.data();
        c.hash_vec.size = n;
        c.key_vec = vorn_vec{};
        c.key_vec.enc_ctx = &c.key_enc;
        c.key_vec.size = n;
        if (key_ == Key::integer) {
            c.key_enc.flags = VORN_FIXED;
            c.key_enc.bit_width = 32;
            c.key_vec.data = c.keys.data();
        } else {
            c.key_enc.flags = VORN_PTR_LEN;
            c.key_vec.data = c.items.ptrs.data();
            c.key_vec.data2 = c.items.lens.data();
        }
        // The dimension's values are its row numbers; a probe row's identity
        // is its place in the partition, which finds its key and row id in
        // these arrays rather than across the whole fact table.
        c.id_vec = vorn_vec{};
        c.id_vec.enc_ctx = &c.id_enc;
        c.id_vec.size = n;
        if (dimension) c.id_vec.data = c.values.data();
        else c.id_enc.flags = VORN_AUTORID;
    }

    void build(Worker &w, HostTable &t, const Partitions &dim, ub4 p, ub4 segment) {
        Columns c;
        columns(dim, p, true, c);
        vorn_kernel_ctx k{};
        ub8 status[2] = {};
        const ub8 code = scan_.slot(w, "vorn_create_add_kv_dydi", c.hashes.size(), [&] {
            return c_.vorn_create_add_kv_dydi(&t.kv, &c.hash_vec, &c.id_vec, &c.key_vec, segment, &k,
                                              HostTable::grow, status);
        });
        if (code != 0) fail("build " + std::to_string(code));
    }

    // The partition's fact rows probed; each candidate's dimension row
    // gathered (key and price) and its key checked, as the table may hold
    // items that only agree in their slot, and no integer key.
    Answer probe(Worker &w, HostTable &t, const Partitions &fact, ub4 p, ub8 &falses) {
        Columns c;
        columns(fact, p, false, c);
        Answer a;
        std::vector<ub8> rows_out(kProbeRoom);
        std::vector<ub4> values_out(kProbeRoom);
        std::vector<ub1> gathered(8 * ub8{kProbeRoom});
        vorn_kernel_ctx k{};
        ub8 stats[2] = {};
        for (;;) {
            vorn_vec ro{}, vo{};
            ro.data = rows_out.data();
            ro.size = kProbeRoom;
            vo.data = values_out.data();
            vo.size = kProbeRoom;
            const ub8 code = scan_.slot(w, "vorn_probe_kv_dydi", c.hashes.size() - k.row_pos, [&] {
                return c_.vorn_probe_kv_dydi(&ro, &vo, &c.hash_vec, &c.id_vec, &c.key_vec, &t.kv, mode_, &k, stats);
            });
            if (code != 0 && code != 15) return fail("probe " + std::to_string(code));
            // The dimension's key and price of each pair, by row id.
            vorn_enc_ctx id_enc{}, out_enc{};
            id_enc.flags = VORN_FIXED;
            id_enc.bit_width = 32;
            out_enc.flags = VORN_FIXED;
            vorn_vec ids{}, res{};
            ids.enc_ctx = &id_enc;
            ids.data = values_out.data();
            ids.size = ro.size;
            res.enc_ctx = &out_enc;
            res.data = gathered.data();
            res.byte_capacity = 8 * ro.size;
            static const ub2 wanted[2] = {0, 2};
            vorn_kernel_ctx gk = w.kctx();
            const ub8 gcode = scan_.slot(w, "vorn_gather_cols_dydi", ro.size, [&] {
                return c_.vorn_gather_cols_dydi(&res, &ids, wanted, 2, &store_.spec, &gk);
            });
            if (gcode != 0) return fail("gather " + std::to_string(gcode));
            for (ub4 i = 0; i < ro.size; ++i) {
                ub4 key, price;
                std::memcpy(&key, gathered.data() + 8 * i, 4);
                std::memcpy(&price, gathered.data() + 8 * i + 4, 4);
                const ub8 at = rows_out[i], fact_row = c.ids[at];
                if (key != c.keys[at] ||
                    (key_ == Key::integer_and_item && c.items.at(at) != d_.dim_item.at(values_out[i]))) {
                    ++falses;
                    continue;
                }
                ++a.pairs;
                a.pair_mix += pair_mix(fact_row, values_out[i]);
                a.price_sum += price;
            }
            if (code == 0) return a;
        }
    }

    // Q9's second half: the segment's dimension rows that no probe marked.
    Answer unmatched(Worker &w, HostTable &t, ub4 segment) {
        Answer a;
        std::vector<ub4> out(kProbeRoom);
        vorn_kernel_ctx k{};
        k.stop_row = segment;
        for (;;) {
            vorn_vec o{};
            o.data = out.data();
            o.size = kProbeRoom;
            const auto start = std::chrono::steady_clock::now();
            const ub8 code = c_.vorn_mut_kv_scan_dydi(&o, &t.kv, 3, &k, segment + 1);
            Scan::note_slot(w, "vorn_mut_kv_scan_dydi", 1, o.size,
                            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
            if (code != 0 && code != 16) return fail("scan " + std::to_string(code));
            for (ub4 i = 0; i < o.size; ++i) ++a.unmatched, a.unmatched_mix += mix64(out[i]);
            if (code == 0) return a;
        }
    }

    Scan &scan_;
    const vorn_specialized_ctx &c_;
    const Data &d_;
    const RowStore &store_;
    Key key_;
    ub4 mode_;
    ub4 parts_ = 2, low_bit_ = 0, filter_mask_ = 0;
    std::mutex error_lock_;
    std::string error_;
};

// ---- the scalar evaluation and the peer ------------------------------------------------

// The same answer by a plain loop over the fact rows with a map of the
// dimension's keys; Map is std::unordered_map or absl::flat_hash_map.
template <class Map>
Answer scalar_join(Scan &scan, const Data &d, Key key, bool outer) {
    Map rows;
    rows.reserve(d.dim_rows);
    for (ub8 i = 0; i < d.dim_rows; ++i) rows.emplace(d.dim_key[i], static_cast<ub4>(i));
    const ub4 units = static_cast<ub4>((d.fact_rows + kChunk - 1) / kChunk);
    std::vector<Answer> part(units);
    std::vector<std::vector<char>> matched(scan.threads());
    if (outer)
        for (auto &m : matched) m.assign(d.dim_rows, 0);
    scan.for_units(units, [&](Worker &w, ub4 u) {
        Answer &a = part[u];
        for (ub8 j = ub8{u} * kChunk, end = std::min<ub8>(d.fact_rows, j + kChunk); j < end; ++j) {
            const auto it = rows.find(d.fact_key[j]);
            if (it == rows.end()) continue;
            const ub4 r = it->second;
            if (key == Key::integer_and_item && d.fact_item.at(j) != d.dim_item.at(r)) continue;
            ++a.pairs;
            a.pair_mix += pair_mix(j, r);
            a.price_sum += d.dim_price[r];
            if (outer) matched[w.id][r] = 1;
        }
    });
    Answer a;
    for (const Answer &x : part) a.add(x);
    if (outer) {
        for (ub8 r = 0; r < d.dim_rows; ++r) {
            bool any = false;
            for (const auto &m : matched) any = any || m[r];
            if (!any) ++a.unmatched, a.unmatched_mix += mix64(r);
        }
    }
    return a;
}

Outcome join_query(Scan &scan, const Data &d, const RowStore &store, Key key, bool outer) {
    Outcome o;
    const bool item = key == Key::integer_and_item;
    o.title = outer ? "Q9 outer hash join" : item ? "Q8 hash join, two-column key" : "Q8 hash join, integer key";
    o.question = std::string(outer ? "every dimension row with its facts or alone: probe mode 9 marks, the table scan "
                                     "lists the unmarked"
                                   : item ? "fact.key = dim.key and fact.item = dim.item (item hashed with the key's "
                                            "hashes as seeds, 3-11 byte strings in 12-byte slots)"
                                          : "fact.key = dim.key: ub4 keys") +
                 ", " + commas(d.fact_rows) + " x " + commas(d.dim_rows) + " rows";
    ub8 dropped = 0, falses = 0;
    Answer got;
    std::string error;
    o.library_seconds = timed_once([&] {
        LibraryJoin j(scan, d, store, key, outer ? 9 : 0);
        got = j.run(dropped, falses);
        error = j.error();
    });
    Answer want;
    using StdMap = std::unordered_map<ub4, ub4>;
    o.scalar_seconds = timed_once([&] { want = scalar_join<StdMap>(scan, d, key, outer); });
#if VORN_HAVE_ABSL
    Answer peer;
    o.peer_name = "absl::flat_hash_map";
    o.peer_seconds = timed_once([&] { peer = scalar_join<absl::flat_hash_map<ub4, ub4>>(scan, d, key, outer); });
    if (!(peer == want)) o.ok = false, o.mismatch = "the peer's answer differs from the scalar one";
#endif
    o.rows = static_cast<double>(d.fact_rows);
    if (!error.empty()) o.ok = false, o.mismatch = "a kernel refused: " + error;
    else if (!(got == want))
        o.ok = false, o.mismatch = "pairs " + std::to_string(got.pairs) + " vs " + std::to_string(want.pairs) +
                                   ", or their checksums or the unmatched rows differ";
    o.answer = commas(got.pairs) + " pairs, sum(price) " + commas(got.price_sum) + "; filter dropped " +
               commas(dropped) + " fact rows";
    if (item) o.answer += ", " + commas(falses) + " slot-only candidates rejected by the gathered key";
    if (outer) o.answer += "; " + commas(got.unmatched) + " dimension rows without a partner";
    o.slow_because = "the library path runs the whole operator (hash, filter, partition, build, probe, gather) "
                     "and moves the rows through partition records and per-partition columns, where the scalar "
                     "loop builds one map and probes it in place";
    return o;
}

}  // namespace

std::vector<Outcome> run_joins(Scan &scan, ub8 fact_rows, ub8 seed) {
    const Data d = generate(fact_rows, seed);
    RowStore store;
    store.build(scan, d);
    return {join_query(scan, d, store, Key::integer, false), join_query(scan, d, store, Key::integer_and_item, false),
            join_query(scan, d, store, Key::integer, true)};
}

}  // namespace demo
