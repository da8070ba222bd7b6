// The build entry, vorn_create_add_kv_dydi, reached through the context as a
// host reaches it: the member it picks for each form, kind and input shape,
// the staging of keys into slots (variable-length and fixed-width keys, keys
// as long as a slot and longer, empty keys), key_bits, its refusals, and
// resumption after refused requests across staging blocks.
#include <gtest/gtest.h>

#include <random>
#include <string>

#include "frame/base.h"
#include "support/kv_rows_a.h"
#include "support/test_host.h"

namespace {

using vorntest::KvInput;
using vorntest::KvSkew;
using vorntest::KvTable;
using vorntest::kv_put;
using vorntest::make_kv_input;

// The vectors of one call over an input's arrays, and the model's rows.
struct Build {
    KvInput in;
    std::vector<ub1> key_data, key_data2;
    std::vector<std::string> key_strings;
    vorn_enc_ctx hash_enc{}, key_enc{}, val_enc{};
    vorn_vec hash_vec{}, key_vec{}, val_vec{};
    bool with_keys = false, with_values = false;

    explicit Build(KvInput input) : in(std::move(input)) {}
    Build(const Build &) = delete;
    ub8 run(KvTable &t, vorn_kernel_ctx &ctx, ub8 *status, sb8 segment = -1) {
        hash_vec.enc_ctx = &hash_enc;
        key_vec.enc_ctx = &key_enc;
        val_vec.enc_ctx = &val_enc;
        hash_vec.size = key_vec.size = val_vec.size = static_cast<ub4>(in.rows.size());
        return vorntest::ctx().vorn_create_add_kv_dydi(&t.kv, &hash_vec, with_values ? &val_vec : nullptr,
                                                       with_keys ? &key_vec : nullptr, segment, &ctx,
                                                       KvTable::grow, status);
    }
    // Records of the kind byte `kind` (its layout is the input's).
    void records(ub4 kind) {
        hash_enc.flags = kind << 24;
        hash_vec.data = in.records.data();
    }
    // An aligned column of 64- or 32-bit hashes.
    void hashes(bool hash32) {
        hash_enc.flags = VORN_ALIGNED;
        hash_enc.width_code = hash32 ? 21 : 22;
        hash_vec.data = hash32 ? static_cast<void *>(in.hashes32.data()) : in.hashes64.data();
    }
    // Values: row numbers from base_rid, or a payload of the kind's width.
    void values(ub4 value_bytes, bool autorid) {
        with_values = true;
        val_enc.flags = autorid ? VORN_AUTORID : VORN_FIXED;
        val_vec.base_rid = static_cast<ub4>(in.base_rid);
        val_vec.data = in.payload.data();
        vorntest::kv_take_values(in, value_bytes, autorid);
    }
    void code_keys() {
        with_keys = true;
        key_enc.flags = VORN_KEY32;
        key_vec.data = in.codes.data();
    }
};

KvSkew any_skew(std::mt19937_64 &rng) { return static_cast<KvSkew>(rng() % 3); }

std::array<ub1, 12> slot_of(const std::string &key, ub4 slot) {
    std::array<ub1, 12> out{};
    out[0] = key.size() >= slot ? 255 : static_cast<ub1>(key.size());
    if (key.size() < slot) std::memcpy(out.data() + 1, key.data(), key.size());
    return out;
}

std::unique_ptr<KvTable> table(ub4 kind, ub4 form, bool ptr, ub8 rows) {
    return std::make_unique<KvTable>(VORN_KV_FLAGS(kind, form), rows, rows, 0, 0, 1u << 30, 50, ptr ? 1 : 0);
}

// Builds b's rows into a new table in one call and checks the table
// against the model; the table is returned for further calls.
std::unique_ptr<KvTable> build_whole(Build &b, ub4 kind, ub4 form, bool ptr) {
    auto t = table(kind, form, ptr, b.in.rows.size());
    vorn_kernel_ctx ctx{};
    ub8 status[2];
    EXPECT_EQ(b.run(*t, ctx, status), 0u);
    EXPECT_EQ(ctx.row_pos, b.in.rows.size());
    vorntest::expect_kv_table(*t, b.in.rows, -1);
    return t;
}

const ub4 kSlotKinds[] = {VORN_KV_K4V4, VORN_KV_K4V8, VORN_KV_K6V4, VORN_KV_K6V8, VORN_KV_K8V4, VORN_KV_K8V8,
                          VORN_KV_K10V4, VORN_KV_K12V4, VORN_KV_K4, VORN_KV_K6, VORN_KV_K8, VORN_KV_K12};

// ---- Form 0: hash tags ----------------------------------------------------------------
// 64- and 32-bit hash columns with row numbers or a payload, and {rid, hash} records.
TEST(KvBuild, TagsFromHashColumnsAndRecords) {
    std::mt19937_64 rng(21);
    for (ub4 kind : {VORN_KV_K2V4, VORN_KV_K2V8, VORN_KV_K4V4, VORN_KV_K4V8}) {
        const vorntest::KvShape s = vorntest::kv_shape(kind);
        for (bool ptr : {false, true})
            for (int shape = 0; shape < 5; ++shape) {
                SCOPED_TRACE(testing::Message() << "kind " << kind << " ptr " << ptr << " shape " << shape);
                const bool hash32 = shape == 2 || shape == 3;
                const char *input = shape == 4 ? "ridhash" : hash32 ? "hash32value_payload" : "fixed_hash64_payload";
                Build b(make_kv_input(input, kind, 1 + rng() % 900, rng, any_skew(rng)));
                if (shape == 4) {
                    b.records(0x21);
                } else {
                    b.hashes(hash32);
                    b.values(s.value_bytes, shape % 2 == 0);
                    vorntest::kv_set_tags(b.in.rows, s.key_bytes, hash32);
                }
                build_whole(b, kind, 0, ptr);
            }
    }
}

TEST(KvBuild, RefusedInputs) {
    std::mt19937_64 rng(22);
    Build b(make_kv_input("fixed_hash64", VORN_KV_K4V4, 10, rng, KvSkew::none));
    b.hashes(false);
    b.values(4, true);
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
    for (ub8 i = 0; i < 64; ++i) EXPECT_EQ(t->page(0, 0)[i], 0u);
    // row_pos at or past the end: 0 at once, row_pos kept.
    b.hash_enc.flags = VORN_ALIGNED;
    ctx.row_pos = 12;
    EXPECT_EQ(b.run(*t, ctx, status), 0u);
    EXPECT_EQ(ctx.row_pos, 12u);
}

// ---- Form 3: key bytes ---------------------------------------------------------------
enum class KeyLayout { len_ptr, ptr_len, fixed };

// Keys of random lengths 0 to slot + 3 (or fixed width w), staged.
void add_keys(Build &b, std::mt19937_64 &rng, ub4 slot, KeyLayout layout, ub4 fixed_width) {
    const ub8 n = b.in.rows.size();
    b.with_keys = true;
    b.key_strings.resize(n);
    for (std::string &k : b.key_strings) {
        const ub4 len = layout == KeyLayout::fixed ? fixed_width : static_cast<ub4>(rng() % (slot + 4));
        for (ub4 j = 0; j < len; ++j) k.push_back(static_cast<char>(rng() % 3 == 0 ? rng() : 'a' + j));
    }
    b.key_enc.flags = layout == KeyLayout::fixed ? VORN_FIXED : layout == KeyLayout::len_ptr ? VORN_LEN_PTR : VORN_PTR_LEN;
    b.key_enc.bit_width = fixed_width * 8;
    b.key_data.assign(n * 10, 0);
    b.key_data2.assign(n * 2, 0);
    for (ub8 i = 0; i < n; ++i) {
        const std::string &k = b.key_strings[i];
        const ub8 address = reinterpret_cast<ub8>(k.data());
        b.in.rows[i].entry.key = slot_of(k, slot);
        if (layout == KeyLayout::fixed) {
            b.in.rows[i].entry.key = {};
            std::memcpy(b.in.rows[i].entry.key.data(), k.data(), fixed_width);
            std::memcpy(b.key_data.data() + i * fixed_width, k.data(), fixed_width);
        } else if (layout == KeyLayout::len_ptr) {
            kv_put<ub2>(b.key_data, i * 10, static_cast<ub2>(k.size()));
            kv_put<ub8>(b.key_data, i * 10 + 2, address);
        } else {
            kv_put<ub8>(b.key_data, i * 8, address);
            kv_put<ub2>(b.key_data2, i * 2, static_cast<ub2>(k.size()));
        }
    }
    b.key_vec.data = b.key_data.data();
    b.key_vec.data2 = b.key_data2.data();
}

TEST(KvBuild, StagedKeysIntoEverySlotKind) {
    std::mt19937_64 rng(23);
    for (ub4 kind : kSlotKinds) {
        const vorntest::KvShape s = vorntest::kv_shape(kind);
        for (KeyLayout layout : {KeyLayout::len_ptr, KeyLayout::ptr_len, KeyLayout::fixed})
            for (bool hash32 : {false, true}) {
                if (hash32 && layout != KeyLayout::fixed) continue;
                const bool ptr = rng() % 2;
                const ub8 n = rng() % 3 == 0 ? 2048 + 1 + rng() % 100 : 1 + rng() % 500;
                const ub4 width = 1 + static_cast<ub4>(rng() % s.key_bytes);
                SCOPED_TRACE(testing::Message() << "kind " << kind << " layout " << static_cast<int>(layout)
                                                << " hash32 " << hash32 << " width " << width << " rows " << n);
                Build b(make_kv_input(hash32 ? "fixed_hash32" : "fixed_hash64", kind, n, rng, any_skew(rng)));
                b.hashes(hash32);
                if (s.value_bytes) b.values(s.value_bytes, rng() % 2);
                add_keys(b, rng, s.key_bytes, layout, width);
                build_whole(b, kind, 3, ptr);
            }
    }
}

TEST(KvBuild, SlotEdgeKeys) {
    // Length 0, 3 (stored whole) and 4, 9 (stored as 255) in a 4-byte slot.
    std::mt19937_64 rng(0);
    Build b(make_kv_input("fixed_hash64", VORN_KV_K4, 5, rng, KvSkew::none));
    b.in.hashes64.assign(5, 7);  // one bucket
    b.hashes(false);
    add_keys(b, rng, 4, KeyLayout::ptr_len, 0);
    const std::string keys[] = {"", "", "abc", "abcd", "abcdefghi"};
    for (ub8 i = 0; i < 5; ++i) {
        b.key_strings[i] = keys[i];
        kv_put<ub8>(b.key_data, i * 8, reinterpret_cast<ub8>(b.key_strings[i].data()));
        kv_put<ub2>(b.key_data2, i * 2, static_cast<ub2>(keys[i].size()));
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

// 0x24 {key, hash} into key kinds, 0x25 {key, hash, value} into value kinds.
TEST(KvBuild, RecordFormsAndKeyBits) {
    std::mt19937_64 rng(24);
    for (ub4 kind : {VORN_KV_K4, VORN_KV_K8, VORN_KV_K4V4, VORN_KV_K4V8, VORN_KV_K8V4, VORN_KV_K8V8}) {
        const vorntest::KvShape s = vorntest::kv_shape(kind);
        Build b(make_kv_input(s.value_bytes ? "ridfixedhash" : "fixedhash", kind, 300, rng, any_skew(rng)));
        b.records(s.value_bytes ? 0x25 : 0x24);
        b.with_keys = true;  // a key column only for key_bits
        b.key_enc.bit_width = 8 * s.key_bytes;
        auto t = table(kind, 1, rng() % 2, 300);
        vorn_kernel_ctx ctx{};
        ub8 status[2];
        ASSERT_EQ(b.run(*t, ctx, status), 0u);
        EXPECT_EQ(t->kv.key_bits, 8u * s.key_bytes);
        vorntest::expect_kv_table(*t, b.in.rows, -1);
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
        const ub4 V = vorntest::kv_shape(kind).value_bytes;
        // Columns of 64- and 32-bit hashes, then records {code, hash} and {code, hash32}
        // (with a rid or payload for value kinds).
        const char *inputs[] = {"gd_hash64", "gd_hash32", V ? "ridgdhash" : "gdhash", V ? "ridgdcachedhash" : "gdcachedhash"};
        const ub4 record_kinds[] = {0, 0, V ? 0x23u : 0x22u, V ? 0x13u : 0x12u};
        for (int shape = 0; shape < 4; ++shape) {
            SCOPED_TRACE(testing::Message() << "kind " << kind << " shape " << shape);
            Build b(make_kv_input(inputs[shape], kind, 1 + rng() % 700, rng, any_skew(rng)));
            if (shape >= 2) {
                b.records(record_kinds[shape]);
            } else {
                b.hashes(shape == 1);
                if (V) b.values(V, rng() % 2);
                b.code_keys();
            }
            auto t = build_whole(b, kind, 2, rng() % 2);
            if (shape < 2) {
                b.key_enc.flags = VORN_FIXED;
                vorn_kernel_ctx ctx{};
                ub8 status[2];
                EXPECT_EQ(b.run(*t, ctx, status), 2u);
            }
        }
    }
}

// ---- Form 3: records with keys by address ---------------------------------------------
// 0x28 {address, length, hash}, 0x29 {rid, hash, address, length}: no key_vec needed.
TEST(KvBuild, LengthAddressRecords) {
    std::mt19937_64 rng(26);
    for (ub4 kind : kSlotKinds) {
        const vorntest::KvShape s = vorntest::kv_shape(kind);
        const ub8 n = 1 + rng() % 600;
        Build b(make_kv_input("fixed_hash64", kind, n, rng, any_skew(rng)));
        const ub4 bytes = s.value_bytes ? 32 : 24, at_hash = s.value_bytes ? 8 : 16, at_key = s.value_bytes ? 16 : 0;
        b.in.records.assign(n * bytes, 0);
        b.key_strings.resize(n);
        for (std::string &k : b.key_strings) k = std::string(rng() % (s.key_bytes + 3), static_cast<char>('a' + rng() % 3));
        for (ub8 i = 0; i < n; ++i) {
            kv_put<ub8>(b.in.records, i * bytes, b.in.pays[i]);
            kv_put<ub8>(b.in.records, i * bytes + at_hash, b.in.rows[i].hash);
            kv_put<ub8>(b.in.records, i * bytes + at_key, reinterpret_cast<ub8>(b.key_strings[i].data()));
            kv_put<ub2>(b.in.records, i * bytes + at_key + 8, static_cast<ub2>(b.key_strings[i].size()));
            b.in.rows[i].entry.key = slot_of(b.key_strings[i], s.key_bytes);
        }
        vorntest::kv_take_values(b.in, s.value_bytes, false);
        b.records(s.value_bytes ? 0x29 : 0x28);
        build_whole(b, kind, 3, rng() % 2);
    }
}

// ---- Resumption across staging blocks ----------------------------------------------------
TEST(KvBuild, RefusalsResumeAcrossStagingBlocks) {
    std::mt19937_64 rng(27);
    for (bool ptr : {false, true}) {
        const ub8 n = 6000;
        Build b(make_kv_input("fixed_hash64", VORN_KV_K4V4, n, rng, KvSkew::none));
        for (ub8 i = 0; i < n; ++i) b.in.rows[i].hash = b.in.hashes64[i] %= 700;  // chains of about nine rows
        b.hashes(false);
        b.values(4, false);
        add_keys(b, rng, 4, KeyLayout::len_ptr, 0);
        auto t = table(VORN_KV_K4V4, 3, ptr, n);
        for (ub8 r = 0; r < 2000; ++r)
            if (rng() % 3 == 0) t->refuse.insert(r);
        vorn_kernel_ctx ctx{};
        const auto asking = vorntest::kv_requesting_rows(t->kv, b.in.rows, -1);
        const ub4 stops = vorntest::kv_add_through_refusals(
            *t, asking, [&](ub8 *status) {
                const ub8 code = b.run(*t, ctx, status);
                return std::pair(code, ub8{ctx.row_pos});
            });
        EXPECT_GT(stops, 20u);
        EXPECT_EQ(ctx.row_pos, n);
        vorntest::expect_kv_table(*t, b.in.rows, -1);
    }
}

TEST(KvBuild, FixedSegment) {
    std::mt19937_64 rng(28);
    Build b(make_kv_input("fixed_hash64", VORN_KV_K4V8, 3000, rng, KvSkew::none));
    b.hashes(false);
    b.values(8, true);
    vorntest::kv_set_tags(b.in.rows, 4, false);
    auto t = std::make_unique<KvTable>(VORN_KV_FLAGS(VORN_KV_K4V8, 0), 100000, 100000);
    ASSERT_GE(t->kv.regions[0].segment_bits, 2u);
    vorn_kernel_ctx ctx{};
    ub8 status[2];
    ASSERT_EQ(b.run(*t, ctx, status, 2), 0u);
    vorntest::expect_kv_table(*t, b.in.rows, 2);
}

TEST(KvBuildDeathTest, Assertions) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    std::mt19937_64 rng(29);
    Build b(make_kv_input("fixed_hash64", VORN_KV_K4V4, 40, rng, KvSkew::none));
    b.hashes(false);
    b.values(4, true);
    auto t = table(VORN_KV_K4V4, 0, false, 40);
    vorn_kernel_ctx ctx{};
    ub8 status[2];
    const sb8 segments = static_cast<sb8>(1) << t->kv.regions[0].segment_bits;
    EXPECT_DEATH(b.run(*t, ctx, status, segments), "vornc_x86.*segment_id");
    // A 5-byte fixed key into a k4 table.
    Build f(make_kv_input("fixed_hash64", VORN_KV_K4, 40, rng, KvSkew::none));
    f.hashes(false);
    add_keys(f, rng, 4, KeyLayout::fixed, 5);
    auto k4 = table(VORN_KV_K4, 3, false, 40);
    EXPECT_DEATH(f.run(*k4, ctx, status), "vornc_x86.*src_elem_bytes < DEST_ELEM_BYTES");
}

}  // namespace
