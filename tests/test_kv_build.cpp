// The build entry, vorn_create_add_kv_dydi, reached through the context as a
// host reaches it: the member it picks for each form, kind and input shape,
// the staging of keys into slots (variable-length and fixed-width keys, keys
// as long as a slot and longer, empty keys), key_bits, its refusals, and
// resumption after refused requests across staging blocks.
#include <gtest/gtest.h>

#include <random>
#include <string>

#include "frame/base.h"
#include "support/kv_model.h"
#include "support/kv_table.h"
#include "support/test_host.h"

namespace {

using vorntest::KvEntry;
using vorntest::KvRow;
using vorntest::KvTable;

// The vectors of one call and the model's rows.
struct Build {
    std::vector<KvRow> rows;
    std::vector<ub1> hash_data, key_data, key_data2, val_data;
    std::vector<std::string> key_strings;
    vorn_enc_ctx hash_enc{}, key_enc{}, val_enc{};
    vorn_vec hash_vec{}, key_vec{}, val_vec{};
    bool with_keys = false, with_values = false;

    Build() = default;
    Build(const Build &) = delete;
    void wire() {
        hash_vec.data = hash_data.data();
        hash_vec.enc_ctx = &hash_enc;
        key_vec.data = key_data.data();
        key_vec.data2 = key_data2.data();
        key_vec.enc_ctx = &key_enc;
        val_vec.data = val_data.data();
        val_vec.enc_ctx = &val_enc;
    }
    ub8 run(KvTable &t, vorn_kernel_ctx &ctx, ub8 *status, sb8 segment = -1) {
        wire();
        return vorntest::ctx().vorn_create_add_kv_dydi(&t.kv, &hash_vec, with_values ? &val_vec : nullptr,
                                                       with_keys ? &key_vec : nullptr, segment, &ctx,
                                                       KvTable::grow, status);
    }
};

template <class T>
void append(std::vector<ub1> &v, T x) {
    const ub1 *p = reinterpret_cast<const ub1 *>(&x);
    v.insert(v.end(), p, p + sizeof x);
}

ub8 tag_of(ub8 h, ub4 key_bytes, bool hash32) {
    ub8 t = hash32 ? (key_bytes == 2 ? (h >> 16) & 0xffff : h) : (key_bytes == 2 ? (h >> 32) & 0xffff : h >> 32);
    return t == 0 ? 1 : t;
}

std::array<ub1, 12> slot_of(const std::string &key, ub4 slot) {
    std::array<ub1, 12> out{};
    if (key.size() >= slot) {
        out[0] = 255;
    } else {
        out[0] = static_cast<ub1>(key.size());
        std::memcpy(out.data() + 1, key.data(), key.size());
    }
    return out;
}

ub8 random_hash(std::mt19937_64 &rng, bool hash32) {
    ub8 h = rng();
    if (rng() % 5 == 0) h &= 0xffff0000ffffffffull;  // zero tags of 2 bytes
    if (rng() % 7 == 0) h &= 0xffffffffull;          // zero tags of 4 bytes
    if (rng() % 3 == 0) h = (h & ~ub8{0xffff}) | (rng() % 4);  // long chains
    if (hash32) h &= 0xffffffffu;
    return h;
}

// Values: row numbers from base_rid, or a payload of the kind's width.
void add_values(Build &b, std::mt19937_64 &rng, ub8 n, ub4 value_bytes, bool autorid) {
    b.with_values = true;
    b.val_enc.flags = autorid ? VORN_AUTORID : VORN_FIXED;
    b.val_vec.base_rid = static_cast<ub4>(rng() % 10000);
    b.val_vec.size = static_cast<ub4>(n);
    for (ub8 i = 0; i < n; ++i) {
        const ub8 v = autorid ? b.val_vec.base_rid + i : rng();
        if (!autorid) {
            if (value_bytes == 4) append<ub4>(b.val_data, static_cast<ub4>(v));
            else append<ub8>(b.val_data, v);
        }
        b.rows[i].entry.value = value_bytes == 4 ? v & 0xffffffffu : v;
    }
}

// A column of hashes, 64 or 32 bits.
void add_hashes(Build &b, std::mt19937_64 &rng, ub8 n, bool hash32) {
    b.hash_enc.flags = VORN_ALIGNED;
    b.hash_enc.width_code = hash32 ? 21 : 22;
    b.hash_vec.size = static_cast<ub4>(n);
    b.rows.resize(n);
    for (ub8 i = 0; i < n; ++i) {
        const ub8 h = random_hash(rng, hash32);
        b.rows[i].hash = h;
        if (hash32) append<ub4>(b.hash_data, static_cast<ub4>(h));
        else append<ub8>(b.hash_data, h);
    }
}

void expect_built(const KvTable &t, const Build &b, sb8 segment = -1) {
    const vorntest::KvWalk walk = vorntest::walk_buckets(t);
    EXPECT_EQ(walk.overflow_not_full, 0u);
    const vorntest::KvChains want = vorntest::model_chains(t.kv, b.rows, segment);
    ASSERT_EQ(walk.chains.size(), want.size());
    for (const auto &[where, list] : want) {
        auto it = walk.chains.find(where);
        ASSERT_NE(it, walk.chains.end());
        ASSERT_TRUE(it->second == list) << "bucket " << where;
    }
}

std::unique_ptr<KvTable> table(ub4 kind, ub4 form, bool ptr, ub8 rows) {
    return std::make_unique<KvTable>(VORN_KV_FLAGS(kind, form), rows, rows, 0, 0, 1u << 30, 50, ptr ? 1 : 0);
}

// Builds b's rows into a new table in one call and checks the table
// against the model; the table is returned for further calls.
std::unique_ptr<KvTable> build_whole(Build &b, ub4 kind, ub4 form, bool ptr, ub8 n) {
    auto t = table(kind, form, ptr, n);
    vorn_kernel_ctx ctx{};
    ub8 status[2];
    EXPECT_EQ(b.run(*t, ctx, status), 0u);
    EXPECT_EQ(ctx.row_pos, b.rows.size());
    expect_built(*t, b);
    return t;
}

const ub4 kValueKinds[] = {VORN_KV_K4V4, VORN_KV_K4V8, VORN_KV_K6V4, VORN_KV_K6V8,
                           VORN_KV_K8V4, VORN_KV_K8V8, VORN_KV_K10V4, VORN_KV_K12V4};
const ub4 kKeyKinds[] = {VORN_KV_K4, VORN_KV_K6, VORN_KV_K8, VORN_KV_K12};

// ---- Form 0: hash tags ----------------------------------------------------------------
TEST(KvBuild, TagsFromHashColumnsAndRecords) {
    std::mt19937_64 rng(21);
    for (ub4 kind : {VORN_KV_K2V4, VORN_KV_K2V8, VORN_KV_K4V4, VORN_KV_K4V8}) {
        const vorntest::KvShape s = vorntest::kv_shape(kind);
        for (bool ptr : {false, true}) {
            for (int shape = 0; shape < 5; ++shape) {  // 64-bit, 32-bit; autorid, payload; {rid, hash}
                SCOPED_TRACE(testing::Message() << "kind " << kind << " ptr " << ptr << " shape " << shape);
                const ub8 n = 1 + rng() % 900;
                Build b;
                if (shape < 4) {
                    const bool hash32 = shape >= 2;
                    add_hashes(b, rng, n, hash32);
                    add_values(b, rng, n, s.value_bytes, shape % 2 == 0);
                    for (KvRow &r : b.rows) {
                        const ub8 t = tag_of(r.hash, s.key_bytes, hash32);
                        std::memcpy(r.entry.key.data(), &t, s.key_bytes);
                    }
                } else {
                    b.hash_enc.flags = 0x21u << 24;
                    b.hash_vec.size = static_cast<ub4>(n);
                    b.rows.resize(n);
                    for (ub8 i = 0; i < n; ++i) {
                        const ub8 rid = rng(), h = random_hash(rng, false);
                        append<ub8>(b.hash_data, rid);
                        append<ub8>(b.hash_data, h);
                        b.rows[i].hash = h;
                        const ub8 t = tag_of(h, s.key_bytes, false);
                        std::memcpy(b.rows[i].entry.key.data(), &t, s.key_bytes);
                        b.rows[i].entry.value = s.value_bytes == 4 ? rid & 0xffffffffu : rid;
                    }
                }
                build_whole(b, kind, 0, ptr, n);
            }
        }
    }
}

TEST(KvBuild, RefusedInputs) {
    std::mt19937_64 rng(22);
    Build b;
    add_hashes(b, rng, 10, false);
    add_values(b, rng, 10, 4, true);
    vorn_kernel_ctx ctx{};
    ub8 status[2];
    // Form 0 wants an aligned hash column of width code 22 or 21.
    auto t = table(VORN_KV_K4V4, 0, false, 10);
    b.hash_enc.flags = 0;
    EXPECT_EQ(b.run(*t, ctx, status), 2u);
    b.hash_enc.flags = VORN_ALIGNED;
    b.hash_enc.width_code = 15;
    EXPECT_EQ(b.run(*t, ctx, status), 2u);
    // A key-only kind has no tag member.
    auto k4 = table(VORN_KV_K4, 0, false, 10);
    b.hash_enc.width_code = 22;
    EXPECT_EQ(b.run(*k4, ctx, status), 2u);
    // A value kind without a value column.
    b.with_values = false;
    EXPECT_EQ(b.run(*t, ctx, status), 2u);
    b.hash_enc.width_code = 21;
    EXPECT_EQ(b.run(*t, ctx, status), 2u);
    b.hash_enc.width_code = 22;
    b.with_values = true;
    // A form above 5.
    t->kv.flags = VORN_KV_FLAGS(VORN_KV_K4V4, 6);
    EXPECT_EQ(b.run(*t, ctx, status), 2u);
    // Form 3 without key_vec: 0x21 records do not make keys.
    auto f3 = table(VORN_KV_K4V4, 3, false, 10);
    b.hash_enc.flags = 0x21u << 24;
    EXPECT_EQ(b.run(*f3, ctx, status), 2u);
    EXPECT_EQ(ctx.row_pos, 0u);
    for (ub8 i = 0; i < 64 * 64 / 64; ++i) EXPECT_EQ(t->page(0, 0)[i], 0u);
    // row_pos at or past the end: 0 at once, row_pos kept.
    b.hash_enc.flags = VORN_ALIGNED;
    ctx.row_pos = 12;
    EXPECT_EQ(b.run(*t, ctx, status), 0u);
    EXPECT_EQ(ctx.row_pos, 12u);
}

// ---- Form 3: key bytes ---------------------------------------------------------------
enum class KeyLayout { len_ptr, ptr_len, fixed };

// Keys of random lengths 0 to slot + 3 (or fixed width w), staged.
void add_keys(Build &b, std::mt19937_64 &rng, ub8 n, ub4 slot, KeyLayout layout, ub4 fixed_width) {
    b.with_keys = true;
    b.key_vec.size = static_cast<ub4>(n);
    b.key_strings.resize(n);
    for (ub8 i = 0; i < n; ++i) {
        const ub4 len = layout == KeyLayout::fixed ? fixed_width : static_cast<ub4>(rng() % (slot + 4));
        std::string k;
        for (ub4 j = 0; j < len; ++j) k.push_back(static_cast<char>(rng() % 3 == 0 ? rng() : 'a' + j));
        b.key_strings[i] = k;
    }
    if (layout == KeyLayout::fixed) {
        b.key_enc.flags = VORN_FIXED;
        b.key_enc.bit_width = fixed_width * 8;
        for (ub8 i = 0; i < n; ++i) {
            b.key_data.insert(b.key_data.end(), b.key_strings[i].begin(), b.key_strings[i].end());
            std::array<ub1, 12> slotted{};
            std::memcpy(slotted.data(), b.key_strings[i].data(), fixed_width);
            b.rows[i].entry.key = slotted;
        }
        return;
    }
    b.key_enc.flags = layout == KeyLayout::len_ptr ? VORN_LEN_PTR : VORN_PTR_LEN;
    for (ub8 i = 0; i < n; ++i) {
        const ub8 address = reinterpret_cast<ub8>(b.key_strings[i].data());
        const ub2 len = static_cast<ub2>(b.key_strings[i].size());
        if (layout == KeyLayout::len_ptr) {
            append<ub2>(b.key_data, len);
            append<ub8>(b.key_data, address);
        } else {
            append<ub8>(b.key_data, address);
            append<ub2>(b.key_data2, len);
        }
        b.rows[i].entry.key = slot_of(b.key_strings[i], slot);
    }
}

TEST(KvBuild, StagedKeysIntoEverySlotKind) {
    std::mt19937_64 rng(23);
    std::vector<ub4> kinds(std::begin(kValueKinds), std::end(kValueKinds));
    kinds.insert(kinds.end(), std::begin(kKeyKinds), std::end(kKeyKinds));
    for (ub4 kind : kinds) {
        const vorntest::KvShape s = vorntest::kv_shape(kind);
        for (KeyLayout layout : {KeyLayout::len_ptr, KeyLayout::ptr_len, KeyLayout::fixed}) {
            for (bool hash32 : {false, true}) {
                if (hash32 && layout != KeyLayout::fixed) continue;
                const bool ptr = rng() % 2;
                const ub8 n = rng() % 3 == 0 ? 2048 + 1 + rng() % 100 : 1 + rng() % 500;
                const ub4 width = 1 + static_cast<ub4>(rng() % s.key_bytes);
                SCOPED_TRACE(testing::Message() << "kind " << kind << " layout " << static_cast<int>(layout)
                                                << " hash32 " << hash32 << " width " << width << " rows " << n);
                Build b;
                add_hashes(b, rng, n, hash32);
                if (s.value_bytes) add_values(b, rng, n, s.value_bytes, rng() % 2);
                add_keys(b, rng, n, s.key_bytes, layout, width);
                build_whole(b, kind, 3, ptr, n);
            }
        }
    }
}

TEST(KvBuild, SlotEdgeKeys) {
    // Length 0, 3 (stored whole) and 4, 9 (stored as 255) in a 4-byte slot.
    Build b;
    const std::vector<std::string> keys = {"", "", "abc", "abcd", "abcdefghi"};
    b.hash_enc.flags = VORN_ALIGNED;
    b.hash_enc.width_code = 22;
    b.hash_vec.size = 5;
    b.rows.resize(5);
    b.key_strings = keys;
    b.with_keys = true;
    b.key_enc.flags = VORN_PTR_LEN;
    b.key_vec.size = 5;
    for (ub8 i = 0; i < 5; ++i) {
        append<ub8>(b.hash_data, 7);  // one bucket
        append<ub8>(b.key_data, reinterpret_cast<ub8>(b.key_strings[i].data()));
        append<ub2>(b.key_data2, static_cast<ub2>(keys[i].size()));
    }
    auto t = table(VORN_KV_K4, 3, false, 5);
    vorn_kernel_ctx ctx{};
    ub8 status[2];
    ASSERT_EQ(b.run(*t, ctx, status), 0u);
    const ub1 *bucket = t->page(0, 0) + 7 * 64;
    EXPECT_EQ(vorn::load<ub4>(bucket) & 15, 5u);
    const ub4 want[] = {0, 0, 0x63626103, 0xff, 0xff};
    for (ub4 i = 0; i < 5; ++i) EXPECT_EQ(vorn::load<ub4>(bucket + 4 + 4 * i), want[i]) << i;
}

TEST(KvBuild, RecordFormsAndKeyBits) {
    std::mt19937_64 rng(24);
    // 0x24 {key, hash} into k4 and k8; 0x25 {key, hash, value} into value kinds.
    for (ub4 kind : {VORN_KV_K4, VORN_KV_K8, VORN_KV_K4V4, VORN_KV_K4V8, VORN_KV_K8V4, VORN_KV_K8V8}) {
        const vorntest::KvShape s = vorntest::kv_shape(kind);
        const ub8 n = 300;
        Build b;
        b.hash_enc.flags = (s.value_bytes ? 0x25u : 0x24u) << 24;
        b.hash_vec.size = n;
        b.rows.resize(n);
        for (ub8 i = 0; i < n; ++i) {
            ub8 key = rng() % 50, h = random_hash(rng, false), v = rng();
            append<ub8>(b.hash_data, key);
            append<ub8>(b.hash_data, h);
            if (s.value_bytes) append<ub8>(b.hash_data, v);
            b.rows[i].hash = h;
            std::memcpy(b.rows[i].entry.key.data(), &key, s.key_bytes);
            b.rows[i].entry.value = s.value_bytes == 4 ? v & 0xffffffffu : (s.value_bytes ? v : 0);
        }
        b.with_keys = true;  // a key column only for key_bits
        b.key_enc.bit_width = 8 * s.key_bytes;
        auto t = table(kind, 1, rng() % 2, n);
        vorn_kernel_ctx ctx{};
        ub8 status[2];
        ASSERT_EQ(b.run(*t, ctx, status), 0u);
        EXPECT_EQ(t->kv.key_bits, 8u * s.key_bytes);
        expect_built(*t, b);
        // A second add with another width: 2, key_bits as it was.
        b.key_enc.bit_width = 24;
        ctx.row_pos = 0;
        EXPECT_EQ(b.run(*t, ctx, status), 2u);
        EXPECT_EQ(t->kv.key_bits, 8u * s.key_bytes);
        EXPECT_EQ(ctx.row_pos, 0u);
    }
}

// ---- Form 2: dictionary codes -------------------------------------------------------
TEST(KvBuild, CodesFromRecordsAndColumns) {
    std::mt19937_64 rng(25);
    for (ub4 kind : {VORN_KV_K4, VORN_KV_K4V4, VORN_KV_K4V8}) {
        const vorntest::KvShape s = vorntest::kv_shape(kind);
        for (int shape = 0; shape < 4; ++shape) {
            SCOPED_TRACE(testing::Message() << "kind " << kind << " shape " << shape);
            const ub8 n = 1 + rng() % 700;
            Build b;
            b.rows.resize(n);
            b.hash_vec.size = n;
            const bool records = shape >= 2;
            const bool cached = shape % 2 == 1;
            if (records) {
                const ub4 key_kind = s.value_bytes ? (cached ? 0x13 : 0x23) : (cached ? 0x12 : 0x22);
                b.hash_enc.flags = key_kind << 24;
                for (ub8 i = 0; i < n; ++i) {
                    const ub4 code = static_cast<ub4>(rng() % 100);
                    const ub8 h = random_hash(rng, cached), v = rng();
                    if (key_kind == 0x22) { append<ub4>(b.hash_data, code); append<ub4>(b.hash_data, 0); append<ub8>(b.hash_data, h); }
                    if (key_kind == 0x12) { append<ub4>(b.hash_data, code); append<ub4>(b.hash_data, static_cast<ub4>(h)); }
                    if (key_kind == 0x23) { append<ub8>(b.hash_data, v); append<ub4>(b.hash_data, code); append<ub4>(b.hash_data, 0); append<ub8>(b.hash_data, h); }
                    if (key_kind == 0x13) { append<ub4>(b.hash_data, code); append<ub4>(b.hash_data, static_cast<ub4>(h)); append<ub8>(b.hash_data, v); }
                    b.rows[i].hash = h;
                    std::memcpy(b.rows[i].entry.key.data(), &code, 4);
                    b.rows[i].entry.value = s.value_bytes == 4 ? v & 0xffffffffu : (s.value_bytes ? v : 0);
                }
            } else {
                add_hashes(b, rng, n, cached);
                if (s.value_bytes) add_values(b, rng, n, s.value_bytes, rng() % 2);
                b.with_keys = true;
                b.key_enc.flags = VORN_KEY32;
                b.key_vec.size = n;
                for (ub8 i = 0; i < n; ++i) {
                    const ub4 code = static_cast<ub4>(rng() % 100);
                    append<ub4>(b.key_data, code);
                    std::memcpy(b.rows[i].entry.key.data(), &code, 4);
                }
            }
            auto t = build_whole(b, kind, 2, rng() % 2, n);
            if (!records) {
                b.key_enc.flags = VORN_FIXED;
                vorn_kernel_ctx ctx{};
                ub8 status[2];
                EXPECT_EQ(b.run(*t, ctx, status), 2u);
            }
        }
    }
}

// ---- Form 3: records with keys by address ---------------------------------------------
TEST(KvBuild, LengthAddressRecords) {
    std::mt19937_64 rng(26);
    std::vector<ub4> kinds(std::begin(kValueKinds), std::end(kValueKinds));
    kinds.insert(kinds.end(), std::begin(kKeyKinds), std::end(kKeyKinds));
    for (ub4 kind : kinds) {
        const vorntest::KvShape s = vorntest::kv_shape(kind);
        const ub8 n = 1 + rng() % 600;
        Build b;
        b.rows.resize(n);
        b.hash_vec.size = n;
        b.key_strings.resize(n);
        b.hash_enc.flags = (s.value_bytes ? 0x29u : 0x28u) << 24;
        for (ub8 i = 0; i < n; ++i) {
            b.key_strings[i] = std::string(rng() % (s.key_bytes + 3), static_cast<char>('a' + rng() % 3));
        }
        for (ub8 i = 0; i < n; ++i) {
            const ub8 h = random_hash(rng, false), rid = rng();
            const ub8 address = reinterpret_cast<ub8>(b.key_strings[i].data());
            const ub2 len = static_cast<ub2>(b.key_strings[i].size());
            if (s.value_bytes) {
                append<ub8>(b.hash_data, rid);
                append<ub8>(b.hash_data, h);
                append<ub8>(b.hash_data, address);
                append<ub2>(b.hash_data, len);
                append<ub2>(b.hash_data, 0); append<ub4>(b.hash_data, 0);
            } else {
                append<ub8>(b.hash_data, address);
                append<ub2>(b.hash_data, len);
                append<ub2>(b.hash_data, 0); append<ub4>(b.hash_data, 0);
                append<ub8>(b.hash_data, h);
            }
            b.rows[i].hash = h;
            b.rows[i].entry.key = slot_of(b.key_strings[i], s.key_bytes);
            b.rows[i].entry.value = s.value_bytes == 4 ? rid & 0xffffffffu : (s.value_bytes ? rid : 0);
        }
        build_whole(b, kind, 3, rng() % 2, n);  // no key_vec needed
    }
}

// ---- Resumption across staging blocks ----------------------------------------------------
TEST(KvBuild, RefusalsResumeAcrossStagingBlocks) {
    std::mt19937_64 rng(27);
    for (bool ptr : {false, true}) {
        const ub8 n = 6000;
        Build b;
        add_hashes(b, rng, n, false);
        for (ub8 i = 0; i < n; ++i) b.rows[i].hash = b.rows[i].hash % 700;  // chains of about nine rows
        b.hash_data.clear();
        for (ub8 i = 0; i < n; ++i) append<ub8>(b.hash_data, b.rows[i].hash);
        add_values(b, rng, n, 4, false);
        add_keys(b, rng, n, 4, KeyLayout::len_ptr, 0);
        auto t = table(VORN_KV_K4V4, 3, ptr, n);
        for (ub8 r = 0; r < 2000; ++r)
            if (rng() % 3 == 0) t->refuse.insert(r);
        vorn_kernel_ctx ctx{};
        ub8 status[2];
        ub4 stops = 0;
        // The model of which rows ask for an overflow bucket.
        const ub4 e = ptr ? 6 : 7;
        std::map<ub8, ub8> counts;
        std::vector<ub8> asking;
        for (ub8 i = 0; i < n; ++i) {
            ub8 &c = counts[b.rows[i].hash & 0xfff];
            if (c != 0 && c % e == 0) asking.push_back(i);
            ++c;
        }
        for (;;) {
            const ub8 code = b.run(*t, ctx, status);
            if (code == 0) break;
            ++stops;
            ASSERT_EQ(code, t->refusal_code);
            ub8 granted = 0;
            for (const auto &rq : t->log) granted += rq.refused ? 0 : 1;
            ASSERT_EQ(ctx.row_pos, asking[granted]);
            ASSERT_EQ(status[0], 1u);
            ASSERT_EQ(status[1], t->log.back().id >> 12);
        }
        EXPECT_GT(stops, 20u);
        EXPECT_EQ(ctx.row_pos, n);
        expect_built(*t, b);
    }
}

TEST(KvBuild, FixedSegment) {
    std::mt19937_64 rng(28);
    const ub8 n = 3000;
    Build b;
    add_hashes(b, rng, n, false);
    add_values(b, rng, n, 8, true);
    for (KvRow &r : b.rows) {
        const ub8 t = tag_of(r.hash, 4, false);
        std::memcpy(r.entry.key.data(), &t, 4);
    }
    auto t = std::make_unique<KvTable>(VORN_KV_FLAGS(VORN_KV_K4V8, 0), 100000, 100000);
    ASSERT_GE(t->kv.regions[0].segment_bits, 2u);
    vorn_kernel_ctx ctx{};
    ub8 status[2];
    ASSERT_EQ(b.run(*t, ctx, status, 2), 0u);
    expect_built(*t, b, 2);
}

TEST(KvBuildDeathTest, Assertions) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    std::mt19937_64 rng(29);
    Build b;
    add_hashes(b, rng, 40, false);
    add_values(b, rng, 40, 4, true);
    auto t = table(VORN_KV_K4V4, 0, false, 40);
    vorn_kernel_ctx ctx{};
    ub8 status[2];
    const sb8 segments = static_cast<sb8>(1) << t->kv.regions[0].segment_bits;
    EXPECT_DEATH(b.run(*t, ctx, status, segments), "vornc_x86.*segment_id");
    // A 5-byte fixed key into a k4 table.
    Build f;
    add_hashes(f, rng, 40, false);
    add_keys(f, rng, 40, 4, KeyLayout::fixed, 5);
    auto k4 = table(VORN_KV_K4, 3, false, 40);
    EXPECT_DEATH(f.run(*k4, ctx, status), "vornc_x86.*src_elem_bytes < DEST_ELEM_BYTES");
}

}  // namespace
