// The three transposes against models of this test's own: references of
// every source layout; fixed columns of every loop, at every source
// alignment and around the 16-byte steps, with the bytes between columns
// left alone; every convert store byte for byte, in one call and resumed
// under small rooms; the refusals, the edge cases and the block assertion.
#include <gtest/gtest.h>

#include "support/row_store.h"

namespace {

using namespace vorntest;

// ---- Reference transpose -----------------------------------------------------------

TEST(TransposeReference, EveryLayoutGivesLengthAndAddressOfItsValues) {
    std::mt19937_64 rng(911);
    for (ub4 layout : kSourceLayouts) {
        for (ub4 n : {0u, 1u, 7u, 64u}) {
            std::vector<Value> values;
            const std::size_t width = 1 + rng() % 8;
            for (ub4 i = 0; i < n; ++i)
                values.push_back(layout == VORN_FIXED ? random_bytes(rng, width) : random_length_value(rng, 20));
            auto src = value_column(values, layout);
            const ub4 cols = 3, col = static_cast<ub4>(rng() % cols);
            Bytes table(10 * cols * n + 10);
            std::memset(table.data(), 0xee, 10 * cols * n + 10);
            ub1 *tables[] = {nullptr, table.data()};
            vorn_transpose_spec spec{};
            spec.flags = VORN_STORE_REFS;
            spec.num_cols = cols;
            spec.ref_tables = tables;
            ASSERT_EQ(ctx().vorn_transpose_reference_dydi(&spec, &src->vec, col | 0xabc0000u, 1, nullptr), 0u);
            for (ub4 i = 0; i < n; ++i) {
                for (ub4 c = 0; c < cols; ++c) {
                    const ub1 *ref = table.data() + 10 * (i * cols + c);
                    if (c != col) {
                        EXPECT_EQ(ref[0], 0xee);
                        continue;
                    }
                    EXPECT_EQ(get_ub2(ref), values[i].size());
                    EXPECT_EQ(reinterpret_cast<const ub1 *>(get_ub8(ref + 2)), src->where[i]) << layout_name(layout);
                }
            }
            EXPECT_EQ(table.data()[10 * cols * n], 0xee);
        }
    }
}

// ---- Fixed transpose -----------------------------------------------------------------

struct FixedTarget {
    std::vector<ub1> lens, offs;
    Bytes block;
    ub1 *cursor[2];
    vorn_transpose_spec spec{};
    FixedTarget(ub4 rows, ub1 len, ub2 stride, ub1 offset) : lens{1, len}, offs{0, offset}, block(stride * rows + 1) {
        std::memset(block.data(), 0x5c, stride * ub8{rows} + 1);
        cursor[0] = nullptr;
        cursor[1] = block.data();
        spec.flags = VORN_STORE_FIXED;
        spec.num_cols = 2;
        spec.row_stride = stride;
        spec.col_lens = lens.data();
        spec.col_offsets = offs.data();
        spec.data_cursors = cursor;
    }
    // Row i's column bytes are value i; every other byte is as it was.
    void expect(const std::vector<Value> &values, ub2 stride, const std::string &what) const {
        const ub8 len = lens[1];
        for (ub8 at = 0; at < stride * ub8{values.size()} + 1; ++at) {
            const ub8 row = at / stride, in_row = at % stride;
            const bool ours = row < values.size() && in_row >= offs[1] && in_row < offs[1] + len;
            const ub1 want = ours ? values[row][in_row - offs[1]] : 0x5c;
            if (block.data()[at] != want) {
                ADD_FAILURE() << what << ": byte " << at;
                return;
            }
        }
    }
};

TEST(TransposeFixed, EveryWidthAtEveryAlignmentAndLength) {
    std::mt19937_64 rng(912);
    for (ub1 len : {1, 2, 4, 8, 3, 5, 16}) {
        for (ub4 n : {0u, 1u, 15u, 16u, 17u, 31u, 33u, 64u, 100u}) {
            for (ub4 misalign : {0u, 1u, 3u, 8u}) {
                std::vector<Value> values;
                Bytes raw(len * ub8{n} + 16);
                for (ub4 i = 0; i < n; ++i) {
                    values.push_back(random_bytes(rng, len));
                    std::memcpy(raw.data() + misalign + len * i, values.back().data(), len);
                }
                RawColumn src(VORN_FIXED, 8u * len, raw.data() + misalign, n);
                const ub2 stride = static_cast<ub2>(len + 1 + rng() % 40);
                FixedTarget target(n, len, stride, static_cast<ub1>(rng() % (stride - len + 1)));
                ASSERT_EQ(ctx().vorn_transpose_fixed_dydi(&target.spec, &src.vec, 1, 1, nullptr), 0u);
                target.expect(values, stride,
                              "len " + std::to_string(len) + " n " + std::to_string(n) + " misalign " +
                                  std::to_string(misalign));
            }
        }
    }
}

TEST(TransposeFixed, DictionaryCodesWriteTheirValues) {
    std::mt19937_64 rng(913);
    for (ub1 len : {4, 8}) {
        std::vector<ub8> table(50);
        for (auto &v : table) v = rng();
        std::vector<ub4> table4(table.begin(), table.end());
        const ub4 n = 77;
        std::vector<ub4> codes(n);
        std::vector<Value> values;
        for (auto &c : codes) {
            c = static_cast<ub4>(rng() % table.size());
            Value v(len);
            if (len == 4) std::memcpy(v.data(), &table4[c], 4);
            else std::memcpy(v.data(), &table[c], 8);
            values.push_back(v);
        }
        RawColumn src(VORN_CODE_ARRAY | VORN_CODE_VALUES, 32, codes.data(), n);
        src.enc.code_values = len == 4 ? static_cast<const void *>(table4.data()) : table.data();
        FixedTarget target(n, len, 24, 5);
        ASSERT_EQ(ctx().vorn_transpose_fixed_dydi(&target.spec, &src.vec, 1, 1, nullptr), 0u);
        target.expect(values, 24, "dictionary " + std::to_string(len));
    }
}

TEST(TransposeFixedDeathTest, ABlockBelowZeroStopsOnTheAssertion) {
    RawColumn src(VORN_FIXED, 32, nullptr, 0);
    FixedTarget target(1, 4, 8, 0);
    EXPECT_DEATH(ctx().vorn_transpose_fixed_dydi(&target.spec, &src.vec, 1, -1, nullptr),
                 "vornc_x86:[0-9]+: vorn_transpose_fixed_fixed_4: Assertion `FALSE' failed");
    target.lens[1] = 3;
    EXPECT_DEATH(ctx().vorn_transpose_fixed_dydi(&target.spec, &src.vec, 1, -1, nullptr),
                 "vorn_transpose_fixed_fixed: Assertion `FALSE' failed");
}

// ---- Convert ------------------------------------------------------------------------

// The store a convert of rows 0..n-1 leaves in an empty block: its bytes,
// its references as (length, offset in the bytes) and its offsets.
struct StoreModel {
    Value bytes;
    std::vector<std::pair<ub8, ub8>> refs;
    std::vector<ub4> offsets;
    std::vector<ub8> row_starts;  // the bytes before each row
};

StoreModel store_model(const Table &t, ub4 flags) {
    const bool refs = flags & VORN_STORE_REFS, one = refs && (flags & VORN_STORE_ONE_COL);
    const bool fields = refs && (one || (flags & VORN_STORE_LEN_FIELDS));
    const bool offsets = (flags & VORN_STORE_OFFSETS) && !one && !(refs && (flags & VORN_STORE_LEN_FIELDS));
    StoreModel m;
    if (offsets && t.rows) m.offsets.push_back(0);
    for (ub4 r = 0; r < t.rows; ++r) {
        const ub8 row_start = m.bytes.size();
        m.row_starts.push_back(row_start);
        for (const auto &c : t.cols) {
            const Value &v = c.values[r];
            if (fields) m.bytes.push_back(static_cast<ub1>(v.size())), m.bytes.push_back(static_cast<ub1>(v.size() >> 8));
            const ub8 at = m.bytes.size();
            m.bytes.insert(m.bytes.end(), v.begin(), v.end());
            if (refs && !one) m.refs.push_back({v.size(), at});
            if (offsets) m.offsets.push_back(static_cast<ub4>(m.bytes.size()));
        }
        if (one) m.refs.push_back({m.bytes.size() - row_start, row_start});
    }
    return m;
}

// What block 0 of a store holds, read back in the model's terms.
StoreModel read_block(const VarStore &s, const StoreModel &shape) {
    StoreModel m;
    const ub1 *base = s.data[0].data();
    m.bytes.assign(base, static_cast<const ub1 *>(s.data_cursors[0]));
    for (const ub1 *r = s.refs[0].data(); r < s.ref_cursors[0]; r += 10)
        m.refs.push_back({get_ub2(r), static_cast<ub8>(reinterpret_cast<const ub1 *>(get_ub8(r + 2)) - base)});
    if (!shape.offsets.empty())
        for (const ub4 *o = reinterpret_cast<const ub4 *>(s.offsets[0].data()); o < s.offset_cursors[0]; ++o)
            m.offsets.push_back(*o);
    return m;
}

void expect_same_store(const StoreModel &got, const StoreModel &want) {
    EXPECT_TRUE(got.bytes == want.bytes);
    EXPECT_TRUE(got.refs == want.refs);
    EXPECT_TRUE(got.offsets == want.offsets);
}

constexpr ub4 kConvertStores[] = {VORN_STORE_REFS | VORN_STORE_ONE_COL, VORN_STORE_REFS | VORN_STORE_LEN_FIELDS,
                                  VORN_STORE_REFS | VORN_STORE_OFFSETS, VORN_STORE_REFS, VORN_STORE_OFFSETS};

TEST(TransposeConvert, EveryStoreInOneCallAndResumedUnderSmallRooms) {
    std::mt19937_64 rng(914);
    for (ub4 flags : kConvertStores) {
        for (int round = 0; round < 12; ++round) {
            const ub4 rows = static_cast<ub4>(rng() % 120), cols = 1 + static_cast<ub4>(rng() % 4);
            const Table t = random_table(rng, rows, cols);
            const StoreModel want = store_model(t, flags);
            SCOPED_TRACE("store " + std::to_string(flags) + " rows " + std::to_string(rows));

            auto one = reference_store(t, flags, 64);
            ASSERT_TRUE(convert_blocks(*one, t));
            expect_same_store(read_block(*one, want), want);
            if (rows == 0) continue;

            // The host makes a little room after each 18 and calls again.
            auto resumed = reference_store(t, flags, 64);
            ub1 *const end = resumed->data_limits[0];
            resumed->data_limits[0] = resumed->data[0].data() + rng() % 8;
            TestHost host;
            vorn_kernel_ctx k = host.kctx();
            ub4 first = 0, calls = 0;
            for (;;) {
                const ub8 code = ctx().vorn_transpose_convert_dydi(&resumed->tspec, resumed->ref_table_ptrs.data(), 0,
                                                                   0, first, rows - 1, &k);
                ++calls;
                ASSERT_TRUE(code == 0 || code == 18) << code;
                if (code == 0) break;
                // The block stands as before the row that did not fit.
                const StoreModel part = read_block(*resumed, want);
                const ub8 done_values = ub8{k.row_pos} * cols;
                const ub8 done_refs = flags & VORN_STORE_ONE_COL ? k.row_pos : done_values;
                EXPECT_EQ(part.bytes.size(), want.row_starts[k.row_pos]) << "row " << k.row_pos;
                EXPECT_EQ(part.refs.size(), want.refs.empty() ? 0 : done_refs);
                EXPECT_EQ(part.offsets.size(), want.offsets.empty() ? 0 : (k.row_pos ? done_values + 1 : 0));
                first = k.row_pos;
                resumed->data_limits[0] = std::min(end, resumed->data_limits[0] + 1 + rng() % 30);
                ASSERT_LT(calls, 100000);
            }
            EXPECT_EQ(k.row_pos, rows);
            expect_same_store(read_block(*resumed, want), want);
        }
    }
}

// One row of 5 bytes: a block of exactly 5 takes it, of 4 keeps nothing.
TEST(TransposeConvert, ARowThatJustFitsTakesTheLastByte) {
    Table t;
    t.rows = 1;
    t.cols = {{VORN_LV_SEP, {Value(2, 7)}}, {VORN_LV_SEP, {Value(3, 9)}}};
    for (ub4 flags : {ub4{VORN_STORE_REFS}, ub4{VORN_STORE_OFFSETS}}) {
        auto fits = reference_store(t, flags, 64);
        EXPECT_EQ(fits->data_limits[0] - fits->data[0].data(), 5);
        ASSERT_TRUE(convert_blocks(*fits, t));
        EXPECT_EQ(fits->data_cursors[0], fits->data_limits[0]);

        auto short_block = reference_store(t, flags, 64);
        short_block->data_limits[0] -= 1;
        TestHost host;
        vorn_kernel_ctx k = host.kctx();
        k.row_pos = 77;
        const auto tables = short_block->ref_table_ptrs.data();
        EXPECT_EQ(ctx().vorn_transpose_convert_dydi(&short_block->tspec, tables, 0, 0, 0, 0, &k), 18u);
        EXPECT_EQ(k.row_pos, 0u);
        EXPECT_EQ(short_block->data_cursors[0], short_block->data[0].data());
        EXPECT_EQ(short_block->ref_cursors[0], short_block->refs[0].data());
        EXPECT_EQ(reinterpret_cast<ub1 *>(short_block->offset_cursors[0]), short_block->offsets[0].data());
    }
}

// A random two-column table in a store of block 0 and the context of the
// convert calls on it.
struct ConvertCase {
    Table t;
    std::unique_ptr<VarStore> s;
    TestHost host;
    vorn_kernel_ctx k = host.kctx();
    ConvertCase(ub8 seed, ub4 rows, ub4 flags) {
        std::mt19937_64 rng(seed);
        t = random_table(rng, rows, 2);
        s = reference_store(t, flags, 64);
    }
    ub8 convert(ub4 first, ub4 last) {
        return ctx().vorn_transpose_convert_dydi(&s->tspec, s->ref_table_ptrs.data(), 0, 0, first, last, &k);
    }
};

// A call that goes on from row 1 takes the last offset behind the cursor.
TEST(TransposeConvert, LaterCallsContinueTheOffsets) {
    ConvertCase c(915, 30, VORN_STORE_OFFSETS);
    for (ub4 first : {0u, 1u, 11u}) {
        const ub4 last = first == 0 ? 0 : first == 1 ? 10 : 29;
        ASSERT_EQ(c.convert(first, last), 0u);
        EXPECT_EQ(c.k.row_pos, last + 1);
    }
    const StoreModel want = store_model(c.t, VORN_STORE_OFFSETS);
    EXPECT_TRUE(read_block(*c.s, want).offsets == want.offsets);
}

// Every transpose refuses the stores and layouts it has no loop for, and
// writes nothing then.
TEST(Transpose, EmptyRangesAndRefusals) {
    ConvertCase c(916, 4, VORN_STORE_REFS);
    auto &s = c.s;
    EXPECT_EQ(c.convert(3, 2), 0u);
    EXPECT_EQ(c.k.row_pos, 3u);
    EXPECT_EQ(s->data_cursors[0], s->data[0].data());
    s->tspec.flags = VORN_STORE_FIXED | VORN_STORE_ONE_COL;
    EXPECT_EQ(c.convert(0, 3), 2u);
    EXPECT_EQ(s->data_cursors[0], s->data[0].data());

    // An empty source writes no reference; an offset store or a packed
    // source has no reference loop.
    auto empty = value_column({}, VORN_LV_SEP);
    s->tspec.flags = VORN_STORE_REFS;
    std::memset(s->ref_tables[0].data(), 0x33, 10);
    EXPECT_EQ(ctx().vorn_transpose_reference_dydi(&s->tspec, &empty->vec, 0, 0, nullptr), 0u);
    auto packed = value_column({{1, 2}}, VORN_LV);
    packed->enc.flags = VORN_PACKED;
    EXPECT_EQ(ctx().vorn_transpose_reference_dydi(&s->tspec, &packed->vec, 0, 0, nullptr), 2u);
    s->tspec.flags = VORN_STORE_OFFSETS;
    auto lv = value_column({{1, 2}}, VORN_LV);
    EXPECT_EQ(ctx().vorn_transpose_reference_dydi(&s->tspec, &lv->vec, 0, 0, nullptr), 2u);
    EXPECT_EQ(s->ref_tables[0].data()[0], 0x33);

    // The fixed transpose: a store other than fixed rows, a code array
    // without its values.
    FixedTarget target(1, 4, 8, 0);
    const ub4 code = 0;
    RawColumn fixed(VORN_FIXED, 32, &code, 1), codes(VORN_CODE_ARRAY, 32, &code, 1);
    EXPECT_EQ(ctx().vorn_transpose_fixed_dydi(&target.spec, &codes.vec, 1, 1, nullptr), 2u);
    target.spec.flags = VORN_STORE_REFS;
    EXPECT_EQ(ctx().vorn_transpose_fixed_dydi(&target.spec, &fixed.vec, 1, 1, nullptr), 2u);
    target.expect({}, 8, "refused");
}

}  // namespace
