// test_partition.cpp - vorn_partition_dydi against a scalar model of every
// record shape.  The model gives each row its hash and its record bytes,
// with the bytes a record leaves as they were marked; a partition's expected
// contents are its rows' records in row order.  The harness plays the host:
// it gives every partition a buffer at a random offset, filled with a fill
// byte and followed by guard bytes, and on code 6 takes the full buffer's
// records out and gives a new one.  What the partitions collect over all
// calls must equal the model, byte for byte, with the unwritten bytes still
// holding the fill.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "support/test_host.h"
#include "support/value_columns.h"

namespace vorntest {
namespace {

constexpr ub1 kFill = 0xee;
constexpr int kUnwritten = -1;

// ---- The model ---------------------------------------------------------------------

struct ModelRow {
    ub8 hash;
    std::vector<int> bytes;
    ModelRow &u8(ub8 v) { return raw(&v, 8); }
    ModelRow &u4(ub4 v) { return raw(&v, 4); }
    ModelRow &u2(ub2 v) { return raw(&v, 2); }
    ModelRow &gap(int n) {
        bytes.insert(bytes.end(), n, kUnwritten);
        return *this;
    }
    ModelRow &raw(const void *p, std::size_t n) {
        for (std::size_t i = 0; i < n; ++i) bytes.push_back(static_cast<const ub1 *>(p)[i]);
        return *this;
    }
};

struct Bits {
    ub1 high, low;
    ub8 parts() const { return ub8{1} << (high + 1 - low); }
    ub8 part(ub8 h) const {
        const ub8 mask = high == 63 ? ~ub8{0} : (ub8{2} << high) - 1;
        return (h & mask) >> low;
    }
};

std::vector<ub8> random_words(std::mt19937_64 &rng, ub8 n) {
    std::vector<ub8> w(n);
    for (auto &x : w) x = rng();
    return w;
}

// A column's storage and its vector: `size` rows, or as many as the words hold.
struct Col {
    vorn_enc_ctx enc{};
    vorn_vec vec{};
    std::vector<ub8> words;
    std::unique_ptr<ValueColumn> values;
};
using ColPtr = std::shared_ptr<Col>;

ColPtr words_column(std::vector<ub8> words, ub4 flags, ub4 bit_width, ub8 size = ~ub8{0}) {
    auto c = std::make_shared<Col>();
    c->words = std::move(words);
    c->enc.flags = flags;
    c->enc.bit_width = bit_width;
    c->vec.enc_ctx = &c->enc;
    c->vec.data = c->words.data();
    c->vec.size = static_cast<ub4>(~size ? size : c->words.size() * 64 / (bit_width ? bit_width : 64));
    return c;
}
ColPtr hashes64(const std::vector<ub8> &h) { return words_column(h, VORN_ALIGNED, 64); }
ColPtr hashes32(const std::vector<ub4> &h) {
    std::vector<ub8> w((h.size() + 1) / 2);
    if (!h.empty()) std::memcpy(w.data(), h.data(), 4 * h.size());
    return words_column(w, VORN_ALIGNED, 32, h.size());
}
ColPtr from_values(std::unique_ptr<ValueColumn> v) {
    auto c = std::make_shared<Col>();
    c->values = std::move(v);
    return c;
}
vorn_vec *vec_of(const ColPtr &c) { return c ? (c->values ? &c->values->vec : &c->vec) : nullptr; }

// Row ids: numbered from base_rid, or stored.
struct Rids {
    ColPtr col;
    std::vector<ub8> ids;
};
Rids random_rids(std::mt19937_64 &rng, ub8 n) {
    Rids r;
    if (rng() & 1) {
        const ub4 base = static_cast<ub4>(rng() % 100000);
        r.col = words_column({}, VORN_AUTORID, 64, n);
        r.col->vec.base_rid = base;
        for (ub8 i = 0; i < n; ++i) r.ids.push_back(base + i);
    } else {
        for (ub8 i = 0; i < n; ++i) r.ids.push_back(rng());
        r.col = words_column(r.ids, VORN_FIXED, 64);
    }
    return r;
}

// Keys of a layout, and their values for the model.
struct Keys {
    ColPtr col;
    std::vector<Value> values;
    std::vector<const ub1 *> where;
};
Keys random_keys(std::mt19937_64 &rng, ub4 layout, ub8 n, std::size_t fixed = 0) {
    Keys k;
    if (!fixed) fixed = 1 + rng() % 12;
    for (ub8 i = 0; i < n; ++i)
        k.values.push_back(layout == VORN_FIXED ? random_value(rng, fixed, fixed) : random_value(rng, 30));
    auto v = value_column(k.values, layout);
    if (layout == VORN_FIXED) v->enc.bit_width = static_cast<ub4>(8 * fixed);
    k.where = v->where;
    k.col = from_values(std::move(v));
    return k;
}

// One partition call's inputs and what the model expects of it.
struct Scenario {
    std::string name;
    ub4 flags = 0;
    ub4 payload_bytes = 0;
    ColPtr src, second, third;
    std::vector<ModelRow> rows;
    std::vector<ColPtr> keep;
};

// A new scenario at the end of `out`.
Scenario &add(std::vector<Scenario> &out, std::string name, ub4 flags) {
    return out.emplace_back(Scenario{std::move(name), flags});
}

// The source forms of the shapes that hash keys: five layouts, or hashes.
const ub4 kKeyForms[] = {VORN_FIXED, VORN_LV_SEP, VORN_LV, VORN_PTR_LEN, VORN_LEN_PTR, VORN_ALIGNED};

// Hashes of the source rows: keys hashed with seed 0, or a hash column.
ColPtr key_source(std::mt19937_64 &rng, ub4 form, ub8 n, std::vector<ub8> &h) {
    h.clear();
    if (form == VORN_ALIGNED) {
        for (ub8 i = 0; i < n; ++i) h.push_back(rng());
        return hashes64(h);
    }
    Keys k = random_keys(rng, form, n);
    for (ub8 i = 0; i < n; ++i) h.push_back(host_hash(k.where[i], k.values[i].size(), 0));
    return k.col;
}

const char *form_name(ub4 f) { return f == VORN_ALIGNED ? "HASHES" : layout_name(f); }

// ---- Scenarios of every record shape ---------------------------------------------

// A hash column with a third column present.
std::vector<Scenario> hashed_scenarios(std::mt19937_64 &rng, ub8 n) {
    std::vector<Scenario> out;
    for (int with_rid = 0; with_rid < 2; ++with_rid) {
        const ub4 rid = with_rid ? VORN_PART_RID : 0;
        // References from a third column of three layouts.
        for (ub4 layout : {VORN_FIXED, VORN_PTR_LEN, VORN_LEN_PTR}) {
            Scenario &s = add(out, std::string("ref ") + layout_name(layout) + (with_rid ? " rid" : ""),
                              VORN_PART_HASH | VORN_PART_REF | rid);
            const std::vector<ub8> h = random_words(rng, n);
            Rids r = random_rids(rng, n);
            Keys k = random_keys(rng, layout, n);
            s.src = hashes64(h), s.second = r.col, s.third = k.col;
            for (ub8 i = 0; i < n; ++i) {
                ModelRow m{h[i], {}};
                const ub8 address = reinterpret_cast<ub8>(k.where[i]);
                const ub2 len = static_cast<ub2>(k.values[i].size());
                if (with_rid) m.u8(r.ids[i]).u8(h[i]).u8(address).u2(len).gap(6);
                else m.u8(address).u2(len).gap(6).u8(h[i]);
                s.rows.push_back(m);
            }
        }
        // A ub4 value beside a hash of 8 or 4 bytes.
        for (int wide = 0; wide < 2; ++wide) {
            Scenario &s = add(out, std::string("value32 hash") + (wide ? "8" : "4") + (with_rid ? " rid" : ""),
                              VORN_PART_HASH | VORN_PART_VALUE32 | rid);
            std::vector<ub8> h(n);
            std::vector<ub4> h4(n), v(n);
            for (ub8 i = 0; i < n; ++i) {
                h4[i] = static_cast<ub4>(rng());
                h[i] = wide ? rng() : h4[i];  // a 4-byte hash picks by its own bits
                v[i] = static_cast<ub4>(rng());
            }
            Rids r = random_rids(rng, n);
            s.src = wide ? hashes64(h) : hashes32(h4);
            s.second = r.col;
            s.third = hashes32(v);
            s.third->enc.flags = VORN_FIXED;
            for (ub8 i = 0; i < n; ++i) {
                ModelRow m{h[i], {}};
                if (wide) {
                    if (with_rid) m.u8(r.ids[i]);
                    m.u4(v[i]).gap(4).u8(h[i]);
                } else {
                    m.u4(v[i]).u4(h4[i]);
                    if (with_rid) m.u8(r.ids[i]);
                }
                s.rows.push_back(m);
            }
        }
        // A payload of 4 or 8 bytes widened to ub8.
        for (ub4 width : {4u, 8u}) {
            Scenario &s = add(out, "payload" + std::to_string(width) + (with_rid ? " rid" : ""),
                              VORN_PART_HASH | VORN_PART_PAYLOAD | rid);
            const std::vector<ub8> h = random_words(rng, n);
            Rids r = random_rids(rng, n);
            Keys k = random_keys(rng, VORN_FIXED, n, width);
            s.src = hashes64(h), s.second = r.col, s.third = k.col;
            for (ub8 i = 0; i < n; ++i) {
                ub8 p = 0;
                std::memcpy(&p, k.values[i].data(), width);
                ModelRow m{h[i], {}};
                m.u8(p).u8(h[i]);
                if (with_rid) m.u8(r.ids[i]);
                s.rows.push_back(m);
            }
        }
    }
    // {row id, hash} and {hash}.
    for (int with_rid = 0; with_rid < 2; ++with_rid) {
        Scenario &s = add(out, with_rid ? "hashed rid" : "hash only", VORN_PART_HASH | (with_rid ? VORN_PART_RID : 0));
        const std::vector<ub8> h = random_words(rng, n);
        Rids r = random_rids(rng, n);
        s.src = hashes64(h), s.second = r.col, s.third = hashes64(h);
        for (ub8 i = 0; i < n; ++i) {
            ModelRow m{h[i], {}};
            if (with_rid) m.u8(r.ids[i]);
            s.rows.push_back(m.u8(h[i]));
        }
    }
    return out;
}

std::vector<Scenario> key32_scenarios(std::mt19937_64 &rng, ub8 n) {
    std::vector<Scenario> out;
    for (int with_rid = 0; with_rid < 2; ++with_rid) {
        Scenario &s = add(out, with_rid ? "key32 rid" : "key32", VORN_PART_VALUE32 | (with_rid ? VORN_PART_RID : 0));
        std::vector<ub4> keys(n);
        for (auto &x : keys) x = static_cast<ub4>(rng());
        Rids r = random_rids(rng, n);
        s.src = hashes32(keys);
        s.src->enc.flags = VORN_KEY32;
        s.second = r.col;
        for (ub8 i = 0; i < n; ++i) {
            ModelRow m{keys[i], {}};
            m.u4(keys[i]);
            if (with_rid) m.gap(4).u8(r.ids[i]);
            s.rows.push_back(m);
        }
    }
    return out;
}

std::vector<Scenario> rid_hash_scenarios(std::mt19937_64 &rng, ub8 n) {
    std::vector<Scenario> out;
    for (ub4 form : kKeyForms) {
        Scenario &s = add(out, std::string("rid hash over ") + form_name(form), VORN_PART_RID | VORN_PART_HASH);
        std::vector<ub8> h;
        s.src = key_source(rng, form, n, h);
        Rids r = random_rids(rng, n);
        s.second = r.col;
        for (ub8 i = 0; i < n; ++i) s.rows.push_back(ModelRow{h[i], {}}.u8(r.ids[i]).u8(h[i]));
    }
    // Finished records of key kind 0x21, copied as they are.
    Scenario &s = add(out, "rid hash records", VORN_PART_RID | VORN_PART_HASH);
    const std::vector<ub8> words = random_words(rng, 2 * n);
    s.src = words_column(words, VORN_KEY_KIND_FLAGS(VORN_KEY_KIND_RIDHASH), 128, n);
    for (ub8 i = 0; i < n; ++i) s.rows.push_back(ModelRow{words[2 * i + 1], {}}.u8(words[2 * i]).u8(words[2 * i + 1]));
    return out;
}

std::vector<Scenario> payload_scenarios(std::mt19937_64 &rng, ub8 n) {
    std::vector<Scenario> out;
    for (ub4 form : kKeyForms) {
        // The self-describing record, with a payload of each layout.
        for (ub4 payload : kValueLayouts) {
            Scenario &s = add(out, std::string("var ") + form_name(form) + " " + layout_name(payload),
                              VORN_PART_VAR | VORN_PART_HASH);
            std::vector<ub8> h;
            s.src = key_source(rng, form, n, h);
            Keys p = random_keys(rng, payload, n);
            s.second = p.col;
            for (ub8 i = 0; i < n; ++i) {
                const std::size_t len = p.values[i].size();
                s.rows.push_back(ModelRow{h[i], {}}.u2(static_cast<ub2>(len + 8)).u8(h[i]).raw(p.where[i], len));
            }
        }
        // {hash, payload_bytes} from a fixed payload column.
        Scenario &s = add(out, std::string("hash payload ") + form_name(form), VORN_PART_PAYLOAD | VORN_PART_HASH);
        const ub4 width = 1 + static_cast<ub4>(rng() % 20);
        s.payload_bytes = static_cast<ub4>(rng() % (width + 1));
        std::vector<ub8> h;
        s.src = key_source(rng, form, n, h);
        Keys p = random_keys(rng, VORN_FIXED, n, width);
        s.second = p.col;
        for (ub8 i = 0; i < n; ++i) s.rows.push_back(ModelRow{h[i], {}}.u8(h[i]).raw(p.where[i], s.payload_bytes));
    }
    return out;
}

// ---- The host side -------------------------------------------------------------------

struct Buffer {
    std::vector<ub1> store;
    ub1 *start, *limit;
};

class Host {
public:
    // Buffers of random capacities from min_capacity up to max_capacity, or,
    // with `exact`, each exactly the size of what the scenario puts into it.
    Host(Bits bits, std::mt19937_64 &rng, std::size_t max_capacity, const Scenario *exact = nullptr,
         std::size_t min_capacity = 0)
        : bits_(bits), rng_(rng), min_capacity_(min_capacity), max_capacity_(max_capacity), buffers_(bits.parts()),
          cursors_(bits.parts()), limits_(bits.parts()), collected_(bits.parts()) {
        std::vector<std::size_t> need(bits.parts());
        if (exact)
            for (const ModelRow &r : exact->rows) need[bits.part(r.hash)] += r.bytes.size();
        for (ub8 p = 0; p < bits.parts(); ++p) give(p, exact ? need[p] : random_capacity());
    }

    std::size_t random_capacity() { return min_capacity_ + rng_() % (max_capacity_ - min_capacity_ + 1); }

    // A buffer of `capacity` bytes at a random offset from a line, then guards.
    void give(ub8 p, std::size_t capacity) {
        Buffer &b = buffers_[p];
        const std::size_t offset = rng_() % 64;
        b.store.assign(capacity + offset + 128, kFill);
        auto at = (reinterpret_cast<std::uintptr_t>(b.store.data()) + 63) & ~std::uintptr_t{63};
        b.start = reinterpret_cast<ub1 *>(at) + offset;
        b.limit = b.start + capacity;
        cursors_[p] = b.start;
        limits_[p] = b.limit;
    }

    // Takes partition p's records out; the bytes behind them must be as given.
    void take(ub8 p) {
        Buffer &b = buffers_[p];
        ub1 *c = cursors_[p];
        ASSERT_GE(c, b.start);
        ASSERT_LE(c, b.limit);
        collected_[p].insert(collected_[p].end(), b.start, c);
        const ub1 *end = b.store.data() + b.store.size();
        const ub1 *q = std::find_if(static_cast<const ub1 *>(c), end, [](ub1 x) { return x != kFill; });
        ASSERT_EQ(q, end) << "partition " << p << " written at " << (q - c) << " behind its cursor";
    }

    vorn_partition_ctrl ctrl(const Scenario &s) {
        vorn_partition_ctrl c{};
        c.flags = s.flags;
        c.high_bit = bits_.high;
        c.low_bit = bits_.low;
        c.payload_bytes = s.payload_bytes;
        c.cursors = cursors_.data();
        c.limits = limits_.data();
        return c;
    }

    // Calls until 0, refilling the partition that stops.  Returns the calls.
    int run(const Scenario &s, vorn_hash_fn fn, vorn_kernel_ctx &k) {
        vorn_partition_ctrl c = ctrl(s);
        int calls = 0;
        for (;;) {
            ++calls;
            const ub8 code = ctx().vorn_partition_dydi(&c, vec_of(s.src), vec_of(s.second), vec_of(s.third), fn, &k);
            if (code == 0) break;
            EXPECT_EQ(code, 6u);
            if (code != 6) return calls;
            const ub8 p = k.stop_row;
            EXPECT_LT(p, bits_.parts());
            EXPECT_LT(k.row_pos, s.rows.size());
            if (p >= bits_.parts() || k.row_pos >= s.rows.size()) return calls;
            const std::size_t need = s.rows[k.row_pos].bytes.size();
            EXPECT_EQ(bits_.part(s.rows[k.row_pos].hash), p);
            EXPECT_LT(static_cast<std::size_t>(limits_[p] - cursors_[p]), need);
            take(p);
            give(p, need + random_capacity());
        }
        EXPECT_EQ(k.row_pos, s.rows.size());
        for (ub8 p = 0; p < bits_.parts(); ++p) take(p);
        return calls;
    }

    // Every partition holds its rows' records in row order.
    void check(const Scenario &s) const {
        std::vector<std::vector<int>> want(bits_.parts());
        for (const ModelRow &r : s.rows) {
            auto &w = want[bits_.part(r.hash)];
            w.insert(w.end(), r.bytes.begin(), r.bytes.end());
        }
        for (ub8 p = 0; p < bits_.parts(); ++p) {
            ASSERT_EQ(collected_[p].size(), want[p].size()) << "partition " << p;
            for (std::size_t i = 0; i < want[p].size(); ++i) {
                const int expect = want[p][i] == kUnwritten ? kFill : want[p][i];
                if (collected_[p][i] != expect) {
                    ASSERT_EQ(collected_[p][i], expect) << "partition " << p << " byte " << i;
                }
            }
        }
    }

    const std::vector<ub1> &collected(ub8 p) const { return collected_[p]; }
    ub1 **cursors() { return cursors_.data(); }

private:
    Bits bits_;
    std::mt19937_64 &rng_;
    std::size_t min_capacity_, max_capacity_;
    std::vector<Buffer> buffers_;
    std::vector<ub1 *> cursors_, limits_;
    std::vector<std::vector<ub1>> collected_;
};

Bits random_bits(std::mt19937_64 &rng, unsigned part_bits) {
    if (part_bits == 0) {
        const ub1 low = static_cast<ub1>(1 + rng() % 63);
        return {static_cast<ub1>(low - 1), low};
    }
    const ub1 low = static_cast<ub1>(rng() % (65 - part_bits));
    return {static_cast<ub1>(low + part_bits - 1), low};
}

// Runs a scenario in one pass with room for everything, and resumed with
// small buffers; both must give the model's partitions.
void check_scenario(const Scenario &s, Bits bits, std::mt19937_64 &rng, std::size_t small) {
    SCOPED_TRACE(testing::Message() << s.name << " rows " << s.rows.size() << " bits " << int{bits.high}
                                    << ".." << int{bits.low});
    {
        Host host(bits, rng, 0, &s);
        vorn_kernel_ctx k{};
        EXPECT_EQ(host.run(s, host_hash, k), 1);
        host.check(s);
    }
    {
        Host host(bits, rng, small);
        vorn_kernel_ctx k{};
        host.run(s, host_hash, k);
        host.check(s);
    }
}

using Maker = std::vector<Scenario> (*)(std::mt19937_64 &, ub8);

void check_all(Maker make, unsigned seed) {
    std::mt19937_64 rng(seed);
    for (ub8 n : {ub8{0}, ub8{1}, ub8{9}, ub8{1023}, ub8{1025}, ub8{2100}}) {
        for (unsigned part_bits : {0u, 1u, 4u, 8u}) {
            const Bits bits = random_bits(rng, part_bits);
            for (const Scenario &s : make(rng, n)) check_scenario(s, bits, rng, n < 100 ? 40 : 200);
        }
    }
}

// ---- Every record shape against the model --------------------------------------------

TEST(Partition, HashColumnWithThirdColumn) { check_all(hashed_scenarios, 21); }
TEST(Partition, NativeKey32) { check_all(key32_scenarios, 22); }
TEST(Partition, RowIdAndHash) { check_all(rid_hash_scenarios, 23); }
TEST(Partition, VariableAndPayloadRecords) { check_all(payload_scenarios, 24); }

// 4096 partitions and the top bit, and a partition number from the top.
TEST(Partition, WideFanOutAndHighBit63) {
    std::mt19937_64 rng(25);
    for (Bits bits : {Bits{63, 52}, Bits{63, 63}, Bits{11, 0}, Bits{40, 29}}) {
        for (const Scenario &s : rid_hash_scenarios(rng, 3000)) check_scenario(s, bits, rng, 64);
        for (const Scenario &s : hashed_scenarios(rng, 700)) check_scenario(s, bits, rng, 64);
    }
}

// ---- Resumption ------------------------------------------------------------------------

// Buffers of half to one and a half times a fair share: the first call
// places long stretches while every partition has room for many rows, and
// then stops on some partition; each refill gives about a fair share again.
TEST(Partition, StretchesUntilAPartitionFills) {
    std::mt19937_64 rng(26);
    for (unsigned part_bits : {0u, 1u, 4u, 8u}) {
        const Bits bits = random_bits(rng, part_bits);
        std::vector<Scenario> all = rid_hash_scenarios(rng, 3000);
        for (Scenario &s : hashed_scenarios(rng, 3000)) all.push_back(std::move(s));
        for (const Scenario &s : all) {
            SCOPED_TRACE(testing::Message() << s.name << " bits " << int{bits.high} << ".." << int{bits.low});
            std::size_t bytes = 0;
            for (const ModelRow &r : s.rows) bytes += r.bytes.size();
            const std::size_t fair = bytes >> part_bits;
            Host host(bits, rng, fair * 3 / 2, nullptr, fair / 2);
            vorn_kernel_ctx k{};
            host.run(s, host_hash, k);
            host.check(s);
        }
    }
}

// The host's hash of an 8-byte key is the key itself here, so the test
// chooses each row's partition.
ub8 key_is_hash(const void *p, ub8, ub8) {
    ub8 v;
    std::memcpy(&v, p, 8);
    return v;
}

TEST(Partition, FullPartitionAtBlockEdges) {
    // 3000 rows, all in partition 0 of two.
    std::vector<Value> keys(3000, Value(8, 0));
    for (std::size_t i = 0; i < keys.size(); ++i) keys[i][1] = static_cast<ub1>(i);
    auto col = value_column(keys, VORN_FIXED);
    auto rids = words_column({}, VORN_AUTORID, 64);
    rids->vec.base_rid = 1000;
    std::vector<ub1> a(16 * 1023 + 8, kFill), b(16 + 15, kFill), c(16 * 3000, kFill);
    ub1 *cursors[2] = {a.data(), c.data()};
    ub1 *limits[2] = {a.data() + 16 * 1023, c.data() + c.size()};
    vorn_partition_ctrl ctrl{VORN_PART_RID | VORN_PART_HASH, 0, 0, 0, cursors, limits};
    vorn_kernel_ctx k{};
    auto call = [&] { return ctx().vorn_partition_dydi(&ctrl, &col->vec, &rids->vec, nullptr, key_is_hash, &k); };
    // Room for 1023 records: stops on the last row of the first block.
    ASSERT_EQ(call(), 6u);
    EXPECT_EQ(k.row_pos, 1023u);
    EXPECT_EQ(k.stop_row, 0u);
    EXPECT_EQ(cursors[0], a.data() + 16 * 1023);
    EXPECT_EQ(a[16 * 1023], kFill);
    // One byte short of a record: nothing moves.
    cursors[0] = b.data();
    limits[0] = b.data() + 15;
    ASSERT_EQ(call(), 6u);
    EXPECT_EQ(k.row_pos, 1023u);
    EXPECT_EQ(cursors[0], b.data());
    EXPECT_EQ(b[0], kFill);
    // Exactly one record: row 1023 goes in, and the first row of the next
    // block stops.
    limits[0] = b.data() + 16;
    ASSERT_EQ(call(), 6u);
    EXPECT_EQ(k.row_pos, 1024u);
    ub8 rec[2];
    std::memcpy(rec, b.data(), 16);
    EXPECT_EQ(rec[0], 1000u + 1023u);
    EXPECT_EQ(rec[1], key_is_hash(keys[1023].data(), 8, 0));
    EXPECT_EQ(b[16], kFill);
    // Room for the rest.
    cursors[0] = c.data();
    limits[0] = c.data() + c.size();
    ASSERT_EQ(call(), 0u);
    EXPECT_EQ(k.row_pos, 3000u);
    EXPECT_EQ(cursors[0], c.data() + 16 * (3000 - 1024));
    for (ub8 i = 1024; i < 3000; ++i) {
        std::memcpy(rec, c.data() + 16 * (i - 1024), 16);
        ASSERT_EQ(rec[0], 1000u + i);
    }
    // Called again at the end: 0 at once.
    ASSERT_EQ(call(), 0u);
    k.row_pos = 5000;
    ASSERT_EQ(call(), 0u);
    EXPECT_EQ(k.row_pos, 3000u);
}

// Walked layouts report their byte positions: on a stop the position of the
// row that failed, at the end the column's end.
TEST(Partition, BytePositionsOfWalkedLayouts) {
    std::mt19937_64 rng(27);
    std::vector<Value> keys, payloads;
    for (int i = 0; i < 50; ++i) keys.push_back(random_value(rng, 9)), payloads.push_back(random_value(rng, 7));
    auto src = value_column(keys, VORN_LV);
    auto pay = value_column(payloads, VORN_LV_SEP);
    std::vector<ub1> buf(4000, kFill);
    ub1 *cursors[2] = {buf.data(), buf.data() + 2000};
    ub1 *limits[2] = {buf.data() + 2000, buf.data() + 4000};
    vorn_partition_ctrl ctrl{VORN_PART_VAR | VORN_PART_HASH, 0, 0, 0, cursors, limits};
    vorn_kernel_ctx k{};
    // Stop at row 30 by giving its partition no room.
    const ub8 h30 = host_hash(keys[30].data(), keys[30].size(), 0);
    std::size_t used[2] = {0, 0};
    for (int i = 0; i < 30; ++i) used[host_hash(keys[i].data(), keys[i].size(), 0) & 1] += payloads[i].size() + 10;
    limits[h30 & 1] = cursors[h30 & 1] + used[h30 & 1];
    ASSERT_EQ(ctx().vorn_partition_dydi(&ctrl, &src->vec, &pay->vec, nullptr, host_hash, &k), 6u);
    EXPECT_EQ(k.row_pos, 30u);
    EXPECT_EQ(k.stop_row, h30 & 1);
    EXPECT_EQ(k.byte_pos, static_cast<ub8>(src->where[30] - 2 - src->data.data()));
    EXPECT_EQ(k.payload_byte_pos, static_cast<ub8>(pay->where[30] - pay->data.data()));
    limits[h30 & 1] = buf.data() + (h30 & 1 ? 4000 : 2000);
    ASSERT_EQ(ctx().vorn_partition_dydi(&ctrl, &src->vec, &pay->vec, nullptr, host_hash, &k), 0u);
    EXPECT_EQ(k.byte_pos, src->data.size());
    EXPECT_EQ(k.payload_byte_pos, pay->data.size());
}

// Records that begin with their hash split again on other bits, without
// the hash callback, each copied whole.
TEST(Partition, RepartitionOfVariableRecords) {
    std::mt19937_64 rng(28);
    for (ub8 n : {ub8{0}, ub8{1}, ub8{700}}) {
        // First pass: partition 0 of 2 by bit 0 collects a run of records.
        std::vector<Scenario> first = payload_scenarios(rng, n);
        const Scenario &s = first[1];
        ASSERT_EQ(s.name, "var FIXED LV");
        ASSERT_EQ(s.flags, VORN_PART_VAR | VORN_PART_HASH);
        const Bits one{0, 1};  // a single partition
        Host pass1(one, rng, 0, &s);
        vorn_kernel_ctx k1{};
        pass1.run(s, host_hash, k1);
        const std::vector<ub1> &records = pass1.collected(0);
        // Second pass over those records as a VORN_ALIGNED | VORN_LV column.
        Scenario re;
        re.name = "repartition";
        re.flags = VORN_PART_VAR | VORN_PART_HASH;
        std::vector<ub8> words(records.size() / 8 + 2);
        if (!records.empty()) std::memcpy(words.data(), records.data(), records.size());
        re.src = words_column(std::move(words), VORN_ALIGNED | VORN_LV, 0, n);
        re.rows = s.rows;
        for (unsigned bits : {0u, 3u, 9u}) {
            auto never = [](const void *, ub8, ub8) -> ub8 {
                ADD_FAILURE() << "the re-partition does not hash";
                return 0;
            };
            const Bits b = random_bits(rng, bits);
            for (std::size_t small : {std::size_t{0}, std::size_t{60}}) {
                Host host(b, rng, small, small ? nullptr : &re);
                vorn_kernel_ctx k{};
                host.run(re, never, k);
                host.check(re);
                EXPECT_EQ(k.byte_pos, records.size());
            }
        }
    }
}

// ---- Refusals ----------------------------------------------------------------------------

TEST(Partition, UnsupportedCombinationsWriteNothing) {
    std::mt19937_64 rng(30);
    const ub8 n = 20;
    const std::vector<ub8> h = random_words(rng, n);
    auto hashes = hashes64(h);
    Rids rids = random_rids(rng, n);
    Keys keys = random_keys(rng, VORN_LV, n);
    Keys fixed2 = random_keys(rng, VORN_FIXED, n, 2);
    Keys fixed8 = random_keys(rng, VORN_FIXED, n, 8);
    auto packed = words_column(std::vector<ub8>(4), VORN_PACKED, 8, n);
    auto hash16 = words_column(std::vector<ub8>(8), VORN_ALIGNED, 16, n);
    auto key32 = hashes32(std::vector<ub4>(n, 1));
    key32->enc.flags = VORN_KEY32;
    auto wrong_kind = words_column(std::vector<ub8>(2 * n), VORN_KEY_KIND_FLAGS(0x22), 128, n);
    struct Refusal {
        const char *why;
        ub4 flags;
        ColPtr src, second, third;
    };
    const Refusal cases[] = {
        {"reference from an LV third", VORN_PART_HASH | VORN_PART_REF, hashes, rids.col, keys.col},
        {"value32 with a 2-byte hash", VORN_PART_HASH | VORN_PART_VALUE32, hash16, rids.col, fixed8.col},
        {"payload of 2 bytes", VORN_PART_HASH | VORN_PART_PAYLOAD, hashes, rids.col, fixed2.col},
        {"payload not fixed", VORN_PART_HASH | VORN_PART_PAYLOAD | VORN_PART_RID, hashes, rids.col, keys.col},
        {"no hash bit with a third", VORN_PART_RID, hashes, rids.col, fixed8.col},
        {"key32 with the hash bit only", VORN_PART_HASH, key32, rids.col, nullptr},
        {"rid hash over packed codes", VORN_PART_RID | VORN_PART_HASH, packed, rids.col, nullptr},
        {"rid hash over another key kind", VORN_PART_RID | VORN_PART_HASH, wrong_kind, rids.col, nullptr},
        {"variable with bit 16", VORN_PART_VAR | VORN_PART_HASH | VORN_PART_NO_COPY, keys.col, fixed8.col, nullptr},
        {"hash payload with bit 16", VORN_PART_PAYLOAD | VORN_PART_HASH | VORN_PART_NO_COPY, keys.col, fixed8.col, nullptr},
        {"hash payload, payload not fixed", VORN_PART_PAYLOAD | VORN_PART_HASH, keys.col, keys.col, nullptr},
        {"variable over packed codes", VORN_PART_VAR | VORN_PART_HASH, packed, keys.col, nullptr},
        {"variable, payload of no layout", VORN_PART_VAR | VORN_PART_HASH, keys.col, packed, nullptr},
        {"hash bit alone over keys", VORN_PART_HASH, keys.col, nullptr, nullptr},
        {"no flags", 0, keys.col, rids.col, nullptr},
    };
    for (const Refusal &r : cases) {
        SCOPED_TRACE(r.why);
        Host host(Bits{3, 0}, rng, 64);
        Scenario s;
        s.flags = r.flags;
        vorn_partition_ctrl ctrl = host.ctrl(s);
        std::vector<ub1 *> before(host.cursors(), host.cursors() + 16);
        vorn_kernel_ctx k{};
        k.row_pos = 3;
        auto never = [](const void *, ub8, ub8) -> ub8 {
            ADD_FAILURE() << "a refused call hashes nothing";
            return 0;
        };
        EXPECT_EQ(ctx().vorn_partition_dydi(&ctrl, vec_of(r.src), vec_of(r.second), vec_of(r.third), never, &k), 2u);
        EXPECT_EQ(k.row_pos, 3u);
        for (ub8 p = 0; p < 16; ++p) {
            EXPECT_EQ(host.cursors()[p], before[p]);
            host.take(p);
        }
    }
}

}  // namespace
}  // namespace vorntest
