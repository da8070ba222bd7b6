// Decode with unpack: every width and element size against a scalar model
// for each form of selection, on plain, compressed and run-length columns;
// resumed runs of many small calls against one call, starting at every row
// of a run; the in-place expansion functions on their own; the messages.
#include <gtest/gtest.h>

#include <algorithm>

#include "decode/rle_expand.h"
#include "support/guarded_stream.h"
#include "support/kernel_checks_b.h"

namespace {

using namespace vorntest;

constexpr const auto &kWidths = kPackedWidths;

ub4 unpack_index(unsigned w) { return kernel_index(w, VORN_ENC_DICT, VORN_OP_DECODE_UNPACK); }

std::string kernel_name(unsigned w) { return "vorn_decode_unpack_dict_" + std::to_string(w) + "bit"; }

unsigned element_bytes(unsigned w, bool wide) { return wide || w > 16 ? 4 : w > 8 ? 2 : 1; }

// The output array: `cap` elements and guard bytes behind them.
struct Out {
    static constexpr ub1 kGuard = 0xa7;
    std::vector<ub8> store;
    ub4 cap;
    unsigned esize;
    Out(ub4 capacity, unsigned element) : store((capacity * element + 128) / 8 + 1), cap(capacity), esize(element) {
        std::memset(store.data(), kGuard, store.size() * 8);
    }
    ub1 *data() { return reinterpret_cast<ub1 *>(store.data()); }
    ub8 at(ub4 i) const {
        const ub1 *p = reinterpret_cast<const ub1 *>(store.data()) + static_cast<std::size_t>(i) * esize;
        ub8 v = 0;
        std::memcpy(&v, p, esize);  // native order, zero-extended
        return v;
    }
    bool guard_intact() const {
        const ub1 *p = reinterpret_cast<const ub1 *>(store.data());
        for (std::size_t i = static_cast<std::size_t>(cap) * esize; i < store.size() * 8; ++i)
            if (p[i] != kGuard) return false;
        return true;
    }
};

using Source = CodeSource;

Source make_source(std::mt19937_64 &rng, unsigned w, Storage storage, bool compressed, ub4 approx_rows,
                   bool zero_runs = true) {
    return code_source(rng, w, storage, compressed, approx_rows, [&](std::size_t n) { return random_codes(rng, n, w); },
                       zero_runs);
}

// ---- The model ---------------------------------------------------------------

struct Expect {
    std::vector<ub8> out;
    ub4 row_pos;
};

Expect model(const std::vector<ub8> &rows, const Selection &s, ub4 start, ub4 room) {
    Expect e{{}, start};
    const ub4 size = static_cast<ub4>(rows.size());
    switch (s.kind) {
        case Sel::none:
            for (ub4 r = start; r < size && e.out.size() < room; ++r) e.out.push_back(rows[r]);
            e.row_pos = start + static_cast<ub4>(e.out.size());
            break;
        case Sel::dense:
        case Sel::selective: {
            if (room == 0) break;
            ub4 last = 0;
            for (ub4 r = start; r < size && e.out.size() < room; ++r)
                if (vornhost::test_bit(s.aux.data(), r)) e.out.push_back(rows[r]), last = r;
            e.row_pos = e.out.size() == room ? last + 1 : size;
            break;
        }
        case Sel::list:
            for (ub4 r : s.list) e.out.push_back(rows[r]);
            e.row_pos = s.list.empty() ? 0 : s.list.back() + 1;
            break;
    }
    return e;
}

struct Got {
    ub8 code;
    ub4 num_ones;
};

Got call(vorn_kernel_ctx &k, Source &src, Out &out, unsigned w) {
    vorn_vec res{};
    res.data = out.data();
    res.size = out.cap;
    res.num_ones = 0xdead;
    const ub8 code = kernel(unpack_index(w)).decode(&res, &src.col->vec, &k);
    return {code, res.num_ones};
}

void expect_output(const Out &out, const Got &g, const std::vector<ub8> &want, ub4 from, const std::string &what) {
    ASSERT_EQ(g.num_ones, want.size() - from) << what;
    EXPECT_EQ(g.code, want.size() == from ? 1u : 0u) << what;
    for (std::size_t i = from; i < want.size(); ++i)
        ASSERT_EQ(out.at(static_cast<ub4>(i - from)), want[i]) << what << " element " << i - from;
    EXPECT_TRUE(out.guard_intact()) << what;
}

// ---- One call ------------------------------------------------------------------

TEST(Unpack, EveryWidthElementSelectionAndStorageAgreesWithTheModel) {
    std::mt19937_64 rng(21);
    TestHost host;
    for (unsigned w : kWidths) {
        for (bool wide : {false, true}) {
            if (w > 16 && wide) continue;  // always ub4
            for (Storage layout : kStorages) {
                for (bool compressed : {false, true}) {
                    for (Sel kind : {Sel::none, Sel::dense, Sel::selective, Sel::list}) {
                        for (ub4 n : {1u, 64u, 65u, 333u, 2500u}) {
                            Source src = make_source(rng, w, layout, compressed, n);
                            const ub4 size = src.col->vec.size;
                            const double density = std::uniform_real_distribution<double>(0, 1)(rng);
                            const Selection sel = make_selection(rng, kind, size, density, true);
                            // From row 0, a random row, or the end (nothing to give).
                            const ub4 start = rng() % 2 ? static_cast<ub4>(rng() % (size + 1)) : 0;
                            // Room for everything, or for a part.
                            const ub4 room = rng() % 3 ? size + 5 : 1 + static_cast<ub4>(rng() % (size + 1));
                            vorn_kernel_ctx k = host.kctx();
                            if (wide) k.flags |= VORN_CTX_UNPACK_UB4;
                            apply(k, sel);
                            k.row_pos = kind == Sel::list ? 0 : start;
                            const Expect e = model(src.rows, sel, kind == Sel::list ? 0 : start, room);
                            Out out(kind == Sel::list ? static_cast<ub4>(sel.list.size()) : room,
                                    element_bytes(w, wide));
                            const Got g = call(k, src, out, w);
                            SCOPED_TRACE(testing::Message() << kernel_name(w) << (wide ? " ub4" : "") << " layout "
                                         << int(layout) << (compressed ? " compressed " : " ") << sel_name(kind)
                                         << " rows " << size << " start " << start << " room " << room);
                            expect_output(out, g, e.out, 0, "");
                            EXPECT_EQ(k.row_pos, e.row_pos);
                            EXPECT_TRUE(k.done_flags & VORN_DONE_UNPACK_SEL);
                        }
                    }
                }
            }
        }
    }
}

// ---- Resumed runs ---------------------------------------------------------------

// Calls the kernel with `room_of(call)` elements at a time until it returns
// 1, and returns everything it produced.  On run-length columns, after each
// call the lengths of the runs before the one in byte_pos are overwritten:
// a resumed call must not read them again; they are put back at the end.
template <class RoomOf>
std::vector<ub8> unpack_in_pieces(TestHost &host, Source &src, const Selection &sel, unsigned w, bool wide,
                                  RoomOf room_of, bool poison_behind) {
    std::vector<ub8> all;
    vorn_kernel_ctx k = host.kctx();
    if (wide) k.flags |= VORN_CTX_UNPACK_UB4;
    apply(k, sel);
    ub1 *lens = src.col->lens.data();
    const std::vector<ub1> saved(lens, lens + src.col->lens.size());
    const unsigned len_bytes = src.col->enc.rle_len_bits / 8;
    for (int calls = 0;; ++calls) {
        if (calls > 10000000) {
            ADD_FAILURE() << "the kernel never returned 1";
            break;
        }
        Out out(room_of(calls), element_bytes(w, wide));
        const Got g = call(k, src, out, w);
        EXPECT_TRUE(out.guard_intact());
        for (ub4 i = 0; i < g.num_ones; ++i) all.push_back(out.at(i));
        if (g.code == 1) break;
        if (poison_behind) {
            const ub4 run = static_cast<ub4>(k.byte_pos);
            std::memset(lens, 0xee, static_cast<std::size_t>(run) * len_bytes);
        }
    }
    std::copy(saved.begin(), saved.end(), lens);
    return all;
}

TEST(Unpack, ManySmallCallsGiveWhatOneCallGives) {
    std::mt19937_64 rng(22);
    TestHost host;
    for (unsigned w : {1u, 3u, 8u, 11u, 16u, 17u, 24u, 32u}) {
        for (Storage layout : kStorages) {
            for (Sel kind : {Sel::none, Sel::dense, Sel::selective}) {
                for (bool wide : {false, true}) {
                    Source src = make_source(rng, w, layout, rng() % 2 == 0, 700);
                    const double density = kind == Sel::none ? 1.0 : rng() % 2 ? 0.6 : 1.0;
                    const Selection sel = make_selection(rng, kind, src.col->vec.size, density, true);
                    const std::vector<ub8> want = model(src.rows, sel, 0, ~0u).out;
                    const bool runs = layout != Storage::plain;
                    // Rooms from `low` to `low + spread - 1`: every start with one row a
                    // call, then two, then three; random rooms; and rooms about one
                    // block, since a block may run only with 64 elements of room.
                    const std::pair<ub4, ub4> rooms[] = {{1, 1}, {2, 1}, {3, 1}, {1, 150}, {58, 12}};
                    for (const auto &[low, spread] : rooms) {
                        const auto got = unpack_in_pieces(
                            host, src, sel, w, wide, [&](int) { return low + static_cast<ub4>(rng() % spread); }, runs);
                        ASSERT_EQ(got, want) << kernel_name(w) << " " << sel_name(kind) << " layout "
                                             << static_cast<int>(layout) << " rooms " << low << " + " << spread;
                    }
                }
            }
        }
    }
}

// The stream with exactly the three readable bytes behind it that the
// reference read may touch, and a page of no access behind them.
TEST(Unpack, BlocksReadNothingBehindTheStreamsThreeSpareBytes) {
    std::mt19937_64 rng(28);
    TestHost host;
    for (unsigned w : kWidths) {
        for (ub4 n : {64u, 100u, 128u, 191u, 192u, 257u, 1000u}) {
            for (Sel kind : {Sel::none, Sel::dense}) {
                Source src = make_source(rng, w, Storage::plain, false, n);
                const GuardedStream exact(src.col->data, (static_cast<std::size_t>(n) * w + 7) / 8 + 3);
                src.col->vec.data = exact.data();
                const Selection sel = make_selection(rng, kind, n, 0.9, true);
                vorn_kernel_ctx k = host.kctx();
                apply(k, sel);
                Out out(n, element_bytes(w, false));
                const Got g = call(k, src, out, w);
                expect_output(out, g, model(src.rows, sel, 0, n).out, 0, kernel_name(w) + " exact stream");
            }
        }
    }
}

// ---- Run-length edge cases ----------------------------------------------------------

struct RunColumn {
    Source src;
    RunColumn(const std::vector<ub8> &codes, const std::vector<ub4> &lengths, unsigned w, unsigned bits = 8) {
        src.col = packed_column(codes, w);
        src.col->make_rle(lengths, bits);
        src.rows = rows_of_runs(codes, lengths);
    }
};

// A stretch from row_pos: inside one run it fills from the run's one code;
// begun inside a run it takes only that run's remaining rows.  byte_pos
// keeps the run (low half) and the row where it ends (high half).
TEST(Unpack, AStretchFromInsideARun) {
    TestHost host;
    struct Case {
        unsigned len_bits;
        ub4 row_pos, room;
        std::vector<ub8> want;
        ub4 next_row, run, run_end;
    };
    const Case cases[] = {{8, 5, 4, {9, 9, 9, 9}, 9, 1, 13}, {16, 11, 100, {9, 9, 2, 2, 2, 2, 2}, 18, 2, 18}};
    for (const Case &c : cases) {
        RunColumn col({4, 9, 2}, {3, 10, 5}, 7, c.len_bits);
        vorn_kernel_ctx k = host.kctx();
        k.row_pos = c.row_pos;
        Out out(c.room, 1);
        const Got g = call(k, col.src, out, 7);
        std::vector<ub8> all(c.row_pos, 0);  // expect_output skips the rows before row_pos
        all.insert(all.end(), c.want.begin(), c.want.end());
        expect_output(out, g, all, c.row_pos, "from row " + std::to_string(c.row_pos));
        EXPECT_EQ(k.row_pos, c.next_row);
        EXPECT_EQ(static_cast<ub4>(k.byte_pos), c.run);
        EXPECT_EQ(static_cast<ub4>(k.byte_pos >> 32), c.run_end);
    }
}

// A caller that moves row_pos back without clearing byte_pos: the walk
// starts over from run 0 rather than from the later run.
TEST(Unpack, RowPosMovedBackBeforeTheRecordedRun) {
    std::mt19937_64 rng(27);
    TestHost host;
    for (Sel kind : {Sel::none, Sel::dense}) {
        Source src = make_source(rng, 6, Storage::rle8, false, 2000, false);
        const ub4 size = src.col->vec.size;
        const Selection sel = make_selection(rng, kind, size, 0.7, true);
        vorn_kernel_ctx k = host.kctx();
        apply(k, sel);
        k.row_pos = size / 2;
        Out first(size, 1);
        call(k, src, first, 6);
        ASSERT_NE(static_cast<ub4>(k.byte_pos >> 32), 0u);
        for (ub4 back : {1u, size / 3, size - 1}) {
            k.row_pos = back;
            Out out(40, 1);
            const Got g = call(k, src, out, 6);
            const Expect e = model(src.rows, sel, back, 40);
            expect_output(out, g, e.out, 0, std::string(sel_name(kind)) + " back to " + std::to_string(back));
            k.row_pos = size;  // and far ahead again before the next rewind
            call(k, src, out, 6);
        }
    }
}

// A list of rows on a run-length column fills at most the room of each
// call and goes on where the last call stopped, inside a run or not.
TEST(Unpack, ListedRowsOfRunsStopAtTheRoomAndResume) {
    std::mt19937_64 rng(29);
    TestHost host;
    for (unsigned w : kWidths) {
        for (Storage layout : {Storage::rle8, Storage::rle16}) {
            const bool wide = w <= 16 && rng() % 2;
            Source src = make_source(rng, w, layout, rng() % 4 == 0, 400);
            const double density = rng() % 2 ? 0.05 : 0.7;
            const Selection sel = make_selection(rng, Sel::list, src.col->vec.size, density, true);
            const std::vector<ub8> want = model(src.rows, sel, 0, ~0u).out;
            for (ub4 spread : {1u, 3u, 20u}) {
                const auto got = unpack_in_pieces(
                    host, src, sel, w, wide, [&](int) { return 1 + static_cast<ub4>(rng() % spread); }, true);
                ASSERT_EQ(got, want) << kernel_name(w) << (wide ? " ub4" : "") << " layout "
                                     << static_cast<int>(layout) << " rooms up to " << spread;
            }
        }
    }
}

TEST(Unpack, AnEmptyOnesVecOnRunsIsRaised) {
    TestHost host;
    RunColumn c({1, 2}, {3, 4}, 8);
    ub4 none[1] = {0};
    vorn_kernel_ctx k = host.kctx();
    k.ones_vec = none;
    k.ones_vec_size = 0;
    Out out(4, 1);
    clear_raised();
    const Got g = call(k, c.src, out, 8);
    EXPECT_EQ(g.code, 1u);
    EXPECT_EQ(g.num_ones, 0u);
    expect_one_raise("vorn_decode_unpack_dict_8bit: [rle] ones_vec size is zero");
}

TEST(Unpack, ACompressedColumnIsDecodedOnceUnderTheKernelsName) {
    std::mt19937_64 rng(24);
    TestHost host;
    Source src = make_source(rng, 13, Storage::plain, true, 500);
    for (int round = 0; round < 2; ++round) {
        vorn_kernel_ctx k = host.kctx();
        Out out(500, 2);
        const Got g = call(k, src, out, 13);
        expect_output(out, g, src.rows, 0, "round " + std::to_string(round));
    }
    expect_decoded_once(host, kernel_name(13));

    // A decoder that fails is reported under the kernel's name.
    host.decoder = failing_decode;
    Source other = make_source(rng, 20, Storage::rle16, true, 50);
    vorn_kernel_ctx k = host.kctx();
    Out out(500, 4);
    clear_raised();
    call(k, other, out, 20);
    expect_one_raise("vorn_decode_unpack_dict_20bit: vorn_lomp_decode failed");
}

// ---- The expansion functions, white-box ------------------------------------------

using ExpandFn = void (*)(vorn_vec *, const vorn_vec *, const ub1 *, ub4, ub4);

struct Expansion {
    const char *name;
    ExpandFn fn;
    unsigned len_bytes, esize;
};

const Expansion kExpansions[] = {
    {"rle8_ub1", vorn_rle8_expand_ub1, 1, 1},   {"rle8_ub2", vorn_rle8_expand_ub2, 1, 2},
    {"rle8_ub4", vorn_rle8_expand_ub4, 1, 4},   {"rle16_ub1", vorn_rle16_expand_ub1, 2, 1},
    {"rle16_ub2", vorn_rle16_expand_ub2, 2, 2}, {"rle16_ub4", vorn_rle16_expand_ub4, 2, 4},
};

std::vector<ub1> stored_lengths(const std::vector<ub4> &lengths, unsigned len_bytes) {
    std::vector<ub1> v;
    for (ub4 l : lengths) {
        if (len_bytes == 2) v.push_back(static_cast<ub1>(l >> 8));
        v.push_back(static_cast<ub1>(l));
    }
    return v;
}

void put(ub1 *p, unsigned esize, ub8 v) { std::memcpy(p, &v, esize); }
ub8 get(const ub1 *p, unsigned esize) {
    ub8 v = 0;
    std::memcpy(&v, p, esize);
    return v;
}

// Random runs for an expansion: their values, stored lengths, the rows of
// the first run that remain (first) and the rows cut from the last (trim),
// and the elements that must come out.  In place, the last element already
// holds the last value and the trim leaves it unwritten: trim is 1 to the
// last run's length and one element fewer is cut.
struct RunCase {
    std::vector<ub8> values, want;
    std::vector<ub1> lens;
    ub4 first, trim;
    RunCase(std::mt19937_64 &rng, const Expansion &x, ub4 max_runs, bool in_place) {
        const ub4 runs = 1 + static_cast<ub4>(rng() % max_runs);
        auto lengths = random_lengths(rng, runs, x.len_bytes * 8, !in_place);
        lengths[0] = std::max<ub4>(lengths[0], 1);
        lengths.back() = std::max<ub4>(lengths.back(), 1);
        first = 1 + static_cast<ub4>(rng() % lengths[0]);
        const ub4 last_len = runs == 1 ? first : lengths.back();
        trim = in_place ? 1 + static_cast<ub4>(rng() % last_len) : static_cast<ub4>(rng() % (last_len + 1));
        values.resize(runs);
        for (ub4 r = 0; r < runs; ++r) {
            values[r] = rng() & ((ub8{1} << (8 * x.esize)) - 1);
            ub4 n = r == 0 ? first : lengths[r];
            if (r + 1 == runs) n -= in_place ? trim - 1 : trim;
            want.insert(want.end(), n, values[r]);
        }
        lens = stored_lengths(lengths, x.len_bytes);
    }
    // Calls the expansion with the values at `codes` into `out`.
    void expand(const Expansion &x, ub1 *out, const ub1 *codes) const {
        vorn_vec res{}, src{};
        res.data = out;
        src.data = const_cast<ub1 *>(codes);
        src.size = static_cast<ub4>(values.size());
        x.fn(&res, &src, lens.data(), first, trim);
    }
};

// Into a separate array at every offset from a 16-byte boundary, and in
// place as the unpacking decoders use them: the values stand at the end of
// the output and are expanded from the front.  Nothing behind the rows is
// written.
TEST(RunExpansion, FillsEachRunWithItsValueApartAndInPlace) {
    std::mt19937_64 rng(25);
    for (const Expansion &x : kExpansions) {
        for (int trial = 0; trial < 600; ++trial) {
            const bool in_place = trial & 1;
            const RunCase c(rng, x, in_place ? 30 : 20, in_place);
            const std::size_t rows = c.want.size(), runs = c.values.size();
            const ub4 shift = in_place ? 0 : static_cast<ub4>(rng() % 16) / x.esize;
            std::vector<ub1> buffer((rows + shift + 16) * x.esize + 16, 0xc3), apart(runs * x.esize);
            ub1 *out = buffer.data() + shift * x.esize;
            ub1 *codes = in_place ? out + (rows - runs) * x.esize : apart.data();
            for (std::size_t r = 0; r < runs; ++r) put(codes + r * x.esize, x.esize, c.values[r]);
            c.expand(x, out, codes);
            for (std::size_t i = 0; i < rows; ++i)
                ASSERT_EQ(get(out + i * x.esize, x.esize), c.want[i]) << x.name << " element " << i;
            for (std::size_t i = rows * x.esize; out + i < buffer.data() + buffer.size(); ++i)
                ASSERT_EQ(out[i], 0xc3) << x.name << " wrote behind its rows";
        }
    }
}

}  // namespace
