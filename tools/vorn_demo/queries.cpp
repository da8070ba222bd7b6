#include "vorn_demo/queries.h"
#include "vorn_demo/groups.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>

namespace demo {
namespace {

using Bits = std::vector<ub8>;

// Per-unit bit vectors, with slack words behind: the run expansion writes
// whole words at byte addresses.
std::vector<Bits> unit_bits(const Table &t) {
    std::vector<Bits> v(t.units);
    for (ub4 u = 0; u < t.units; ++u) v[u].assign(t.unit_size(u) / 64 + 3, 0);
    return v;
}

// Each path of a query runs this often, and the best time counts: the
// first run pays for page faults and cold caches that a server's steady
// state does not see.
constexpr int kRuns = 3;

ub8 words_of(ub4 rows) { return (rows + 63) / 64; }

bool bit(const Bits &b, ub8 i) { return (b[i >> 6] >> (i & 63)) & 1; }
void set(Bits &b, ub8 i) { b[i >> 6] |= ub8{1} << (i & 63); }

vorn_vec packed_unit(const Table &t, const PackedColumn &c, ub4 u) {
    vorn_vec v{};
    v.data = const_cast<ub1 *>(c.stream.data()) + static_cast<ub8>(t.unit_first(u)) * c.width / 8;
    v.enc_ctx = &c.enc;
    v.size = t.unit_size(u);
    return v;
}

vorn_vec fixed_unit(const Table &t, const Bytes &b, const vorn_enc_ctx &enc, ub4 u) {
    vorn_vec v{};
    v.data = const_cast<ub1 *>(b.data()) + static_cast<ub8>(t.unit_first(u)) * (enc.bit_width / 8);
    v.enc_ctx = &enc;
    v.size = t.unit_size(u);
    return v;
}

vorn_vec result(Bits &b, ub4 rows) {
    vorn_vec v{};
    v.res_bv = b.data();
    v.size = rows;
    return v;
}

// The scalar evaluation of a predicate query: per unit, the rows' bits and
// their count, cleared before each timed run.
struct RowModel {
    std::vector<Bits> bits;
    std::vector<ub8> counts;
    explicit RowModel(const Table &t) : bits(unit_bits(t)), counts(t.units) {}
    void clear(ub4 u) {
        counts[u] = 0;
        std::fill(bits[u].begin(), bits[u].end(), 0);
    }
    void mark(ub4 u, ub8 row) { set(bits[u], row), ++counts[u]; }
};

const ub8 *visible_of(const Table &t, ub4 u) { return t.visible.data() + t.unit_first(u) / 64; }

// Compares the library's bit vectors with the scalar ones, unit by unit.
bool same_bits(const Table &t, const std::vector<Bits> &a, const std::vector<Bits> &b, std::string &why) {
    for (ub4 u = 0; u < t.units; ++u) {
        const ub4 rows = t.unit_size(u);
        for (ub8 w = 0; w < words_of(rows); ++w) {
            ub8 x = a[u][w], y = b[u][w];
            if (w == words_of(rows) - 1 && rows % 64) {
                const ub8 mask = (ub8{1} << (rows % 64)) - 1;
                x &= mask, y &= mask;
            }
            if (x != y) {
                const ub8 row = t.unit_first(u) + w * 64 + __builtin_ctzll(x ^ y);
                char buf[128];
                std::snprintf(buf, sizeof buf, "row %llu: library %d, scalar %d",
                              static_cast<unsigned long long>(row), static_cast<int>((x >> (row % 64)) & 1),
                              static_cast<int>((y >> (row % 64)) & 1));
                why = buf;
                return false;
            }
        }
    }
    return true;
}

ub8 total(const std::vector<ub8> &counts) {
    ub8 s = 0;
    for (ub8 c : counts) s += c;
    return s;
}

class Plan {
public:
    Plan(Scan &scan, Table &t) : scan_(scan), t_(t) {}

    // The kernels the plan calls; a library that lacks one cannot run it.
    std::vector<ub4> kernels() const {
        return {VORN_DISPATCH_INDEX(t_.city.enc.kernel_group, VORN_OP_GE_LT, 0),
                VORN_DISPATCH_INDEX(t_.channel_lomp_enc.kernel_group, VORN_OP_GE_LE, 0),
                VORN_DISPATCH_INDEX(t_.amount_enc.kernel_group, VORN_OP_LT, 0),
                VORN_DISPATCH_INDEX(t_.category.enc.kernel_group, VORN_OP_NE, 1),
                VORN_DISPATCH_INDEX(t_.city.enc.kernel_group, VORN_OP_MINMAX, 0),
                VORN_DISPATCH_INDEX(t_.city.enc.kernel_group, VORN_OP_DECODE, 0),
                VORN_DISPATCH_INDEX(t_.status[0].enc.kernel_group, VORN_OP_EQ, 0),
                xlate_index(),
                VORN_DISPATCH_INDEX(6 * 4 + VORN_ENC_SPECIAL, VORN_OP_BURST, 0)};
    }

    std::vector<Outcome> run() {
        std::string missing;
        for (ub4 index : kernels())
            if (!scan_.ctx().dispatch_table[index].cmp) missing += " " + std::to_string(index);
        if (!missing.empty()) {
            Outcome o;
            o.title = "the plan cannot run";
            o.ok = false;
            o.mismatch = "the library serves no kernel at dispatch index" + missing;
            return {o};
        }
        range_predicate();
        compressed_range();
        second_predicate();
        nullable_with_filter_and_selection();
        min_max();
        decode();
        translate();
        run_length();
        return out_;
    }

private:
    ub4 city_code(const char *name) const {
        const auto &s = t_.cities.symbols;
        return static_cast<ub4>(std::lower_bound(s.begin(), s.end(), std::string(name)) - s.begin());
    }

    // Q1: a range of the sorted dictionary, compared on the packed codes.
    void range_predicate() {
        Outcome o;
        o.title = "Q1 range predicate";
        lo_ = city_code("Da");
        hi_ = city_code("Ha");
        o.question = "city >= 'Da' and city < 'Ha': codes " + std::to_string(lo_) + " to " +
                     std::to_string(hi_ - 1) + " of 2,000, 11-bit packed";
        q1_ = unit_bits(t_);
        std::vector<ub8> counts(t_.units);
        const ub4 index = VORN_DISPATCH_INDEX(t_.city.enc.kernel_group, VORN_OP_GE_LT, 0);
        o.library_seconds = scan_.best_of(kRuns, t_.units, [&](Worker &w, ub4 u) {
            vorn_vec src = packed_unit(t_, t_.city, u), res = result(q1_[u], src.size);
            vorn_kernel_ctx k = w.kctx();
            scan_.range(w, index, &res, &src, &lo_, &hi_, &k, src.size);
            counts[u] = res.num_ones;
        });
        RowModel model(t_);
        o.scalar_seconds = scalar_run(model, [&](ub4 u) {
            const ub1 *s = static_cast<const ub1 *>(packed_unit(t_, t_.city, u).data);
            for (ub4 i = 0, n = t_.unit_size(u); i < n; ++i) {
                const ub4 c = code_at(s, 11, i);
                if (c >= lo_ && c < hi_) model.mark(u, i);
            }
        });
        finish_bits(o, q1_, model, counts);
    }

    // A range predicate on a column the store keeps compressed: the first
    // kernel that meets a unit decompresses it into the unit's cache cell,
    // and every later scan of the unit finds the cell filled.
    void compressed_range() {
        const auto &names = t_.channels;
        const ub4 lo = static_cast<ub4>(std::find(names.begin(), names.end(), "outlet") - names.begin());
        const ub4 hi = static_cast<ub4>(std::find(names.begin(), names.end(), "store") - names.begin());
        RowModel model(t_);
        const double scalar_seconds = scalar_run(model, [&](ub4 u) {
            const ub1 *s = static_cast<const ub1 *>(packed_unit(t_, t_.channel, u).data);
            for (ub4 i = 0, n = t_.unit_size(u); i < n; ++i)
                if (s[i] >= lo && s[i] <= hi) model.mark(u, i);
        });
        ub8 packed = 0, compressed = 0;
        for (const CompressedUnit &c : t_.channel_lomp) packed += c.plain_bytes, compressed += c.stream.size();
        for (int pass = 0; pass < 2; ++pass) {
            Outcome o;
            o.title = pass == 0 ? "Q1b compressed column, first scan" : "Q1b compressed column, again";
            o.question = pass == 0 ? "channel between 'outlet' and 'store' (8-bit codes stored compressed, " +
                                         commas(compressed) + " bytes for " + commas(packed) +
                                         "): each unit decompressed once into its cache cell"
                                   : "the same predicate; every cache cell already filled, no decode";
            std::vector<Bits> bits = unit_bits(t_);
            std::vector<ub8> counts(t_.units);
            std::vector<ub8> decodes(scan_.threads());
            const ub4 index = VORN_DISPATCH_INDEX(t_.channel_lomp_enc.kernel_group, VORN_OP_GE_LE, 0);
            const ub1 lo_literal = static_cast<ub1>(lo), hi_literal = static_cast<ub1>(hi);
            auto scan = [&](Worker &w, ub4 u) {
                CompressedUnit &c = t_.channel_lomp[u];
                vorn_vec src{}, res = result(bits[u], t_.unit_size(u));
                src.data = c.stream.data();
                src.enc_ctx = &t_.channel_lomp_enc;
                src.size = t_.unit_size(u);
                src.decomp_size = c.plain_bytes;
                src.decomp_slot = &c.cell;
                src.alloc_tag = u;
                vorn_kernel_ctx k = w.kctx();
                const ub4 before = w.host.decode_calls;
                scan_.range(w, index, &res, &src, &lo_literal, &hi_literal, &k, src.size);
                decodes[w.id] += w.host.decode_calls - before;
                counts[u] = res.num_ones;
            };
            // The first scan pays for the decompression, once: it runs once.
            o.library_seconds = pass == 0 ? scan_.for_units(t_.units, scan) : scan_.best_of(kRuns, t_.units, scan);
            o.scalar_seconds = scalar_seconds;
            if (pass == 0)
                o.slow_because = "this scan decompresses every unit first, while the scalar loop reads the plain "
                                 "stream; the scans after it find the cache cells filled";
            const ub8 decoded = total(decodes);
            finish_bits(o, bits, model, counts, ", " + std::to_string(decoded) + " unit decodes");
            if (decoded != (pass == 0 ? t_.units : 0)) {
                out_.back().ok = false;
                out_.back().mismatch = std::to_string(decoded) + " decodes in this scan";
            }
        }
    }

    // Q2: a second predicate on a fixed-width column, combined with Q1 by
    // the bit-vector AND.
    void second_predicate() {
        Outcome o;
        o.title = "Q2 second predicate, AND";
        const ub4 limit = 250000, limit_be = __builtin_bswap32(limit);
        o.question = "Q1 and amount < 250,000: fixed-width big-endian 32-bit, combined by vorn_lbiwvand";
        q2_ = unit_bits(t_);
        std::vector<Bits> amount = unit_bits(t_);
        std::vector<ub8> counts(t_.units);
        const ub4 index = VORN_DISPATCH_INDEX(t_.amount_enc.kernel_group, VORN_OP_LT, 0);
        o.library_seconds = scan_.best_of(kRuns, t_.units, [&](Worker &w, ub4 u) {
            vorn_vec src = fixed_unit(t_, t_.amount, t_.amount_enc, u), res = result(amount[u], src.size);
            vorn_kernel_ctx k = w.kctx();
            scan_.compare(w, index, &res, &src, &limit_be, &k, src.size);
            ub4 count = 0;
            scan_.ctx().vorn_lbiwvand_dydi(q2_[u].data(), &count, q1_[u].data(), amount[u].data(), src.size);
            counts[u] = count;
        });
        RowModel model(t_);
        o.scalar_seconds = scalar_run(model, [&](ub4 u) {
            const ub1 *city = static_cast<const ub1 *>(packed_unit(t_, t_.city, u).data);
            const ub1 *amt = static_cast<const ub1 *>(fixed_unit(t_, t_.amount, t_.amount_enc, u).data);
            for (ub4 i = 0, n = t_.unit_size(u); i < n; ++i) {
                const ub4 c = code_at(city, 11, i);
                if (c >= lo_ && c < hi_ && be32_at(amt + 4 * i) < limit) model.mark(u, i);
            }
        });
        finish_bits(o, q2_, model, counts);
    }

    // Q3: a nullable column, only over the rows Q2 selected (the selective
    // path) and only where the row is visible (filter_bv).
    void nullable_with_filter_and_selection() {
        Outcome o;
        o.title = "Q3 null-aware, filter, selection";
        const ub4 seven = 7;
        o.question = "category <> 7 (nulls never match) over Q2's rows, visible rows only";
        q3_ = unit_bits(t_);
        std::vector<ub8> counts(t_.units);
        const ub4 index = VORN_DISPATCH_INDEX(t_.category.enc.kernel_group, VORN_OP_NE, 1);
        o.library_seconds = scan_.best_of(kRuns, t_.units, [&](Worker &w, ub4 u) {
            vorn_vec src = packed_unit(t_, t_.category, u), res = result(q3_[u], src.size);
            src.filter_bv = visible_of(t_, u);
            vorn_kernel_ctx k = w.kctx();
            k.bv_aux = q2_[u].data();
            k.flags = VORN_CTX_SELECTIVE;
            scan_.compare(w, index, &res, &src, &seven, &k, src.size);
            counts[u] = res.num_ones;
        });
        RowModel model(t_);
        o.scalar_seconds = scalar_run(model, [&](ub4 u) {
            const ub1 *cat = static_cast<const ub1 *>(packed_unit(t_, t_.category, u).data);
            const ub8 *vis = visible_of(t_, u);
            for (ub4 i = 0, n = t_.unit_size(u); i < n; ++i) {
                if (!bit(q2_[u], i) || !((vis[i >> 6] >> (i & 63)) & 1)) continue;
                const ub4 c = code_at(cat, 6, i);
                if (c != 0 && c != seven) model.mark(u, i);
            }
        });
        q3_counts_ = counts;
        finish_bits(o, q3_, model, counts);
    }

    // Q4: the smallest and largest city code among Q3's rows.
    void min_max() {
        Outcome o;
        o.title = "Q4 min/max of the selected codes";
        o.question = "min(city), max(city) over Q3's rows, on the codes";
        std::vector<ub4> mins(t_.units, ~0u), maxs(t_.units, 0);
        const ub4 index = VORN_DISPATCH_INDEX(t_.city.enc.kernel_group, VORN_OP_MINMAX, 0);
        o.library_seconds = scan_.best_of(kRuns, t_.units, [&](Worker &w, ub4 u) {
            vorn_vec src = packed_unit(t_, t_.city, u), res{};
            ub4 mm[2] = {~0u, 0};
            res.data = mm;
            vorn_kernel_ctx k = w.kctx();
            k.bv_aux = q3_[u].data();
            if (scan_.minmax(w, index, &res, &src, &k, 0, src.size) == 0) mins[u] = mm[0], maxs[u] = mm[1];
        });
        std::vector<ub4> model_min(t_.units, ~0u), model_max(t_.units, 0);
        o.scalar_seconds = scan_.best_of(kRuns, t_.units, [&](Worker &, ub4 u) {
            const ub1 *city = static_cast<const ub1 *>(packed_unit(t_, t_.city, u).data);
            for (ub4 i = 0, n = t_.unit_size(u); i < n; ++i) {
                if (!bit(q3_[u], i)) continue;
                const ub4 c = code_at(city, 11, i);
                model_min[u] = std::min(model_min[u], c);
                model_max[u] = std::max(model_max[u], c);
            }
        });
        const ub4 lo = *std::min_element(mins.begin(), mins.end());
        const ub4 hi = *std::max_element(maxs.begin(), maxs.end());
        o.ok = mins == model_min && maxs == model_max;
        if (!o.ok) o.mismatch = "per-unit minima or maxima differ";
        o.rows = static_cast<double>(t_.rows);
        o.answer = lo == ~0u ? "no rows" : "min code " + std::to_string(lo) + " '" + t_.cities.symbols[lo] +
                                               "', max code " + std::to_string(hi) + " '" + t_.cities.symbols[hi] + "'";
        out_.push_back(o);
    }

    // Q5: the selected rows decoded to their city names, without a copy.
    void decode() {
        Outcome o;
        o.title = "Q5 decode to symbols";
        o.question = "city of Q3's rows: pointer and length into the dictionary per row, no byte copied";
        // The output arrays are the host's, made before the scan.
        struct Output {
            std::vector<ub4> rows;
            std::vector<ub8> ptrs;
            std::vector<ub2> lens, flags;
            void make(ub8 n) { rows.resize(n), ptrs.resize(n), lens.resize(n), flags.resize(n); }
        };
        std::vector<Output> outs(t_.units), model(t_.units);
        for (ub4 u = 0; u < t_.units; ++u) outs[u].make(q3_counts_[u]), model[u].make(q3_counts_[u]);
        const ub4 index = VORN_DISPATCH_INDEX(t_.city.enc.kernel_group, VORN_OP_DECODE, 0);
        o.library_seconds = scan_.best_of(kRuns, t_.units, [&](Worker &w, ub4 u) {
            Output &out = outs[u];
            const ub4 n = static_cast<ub4>(out.rows.size());
            if (n == 0) return;
            vorn_bv_iter it;
            scan_.ctx().vorn_lbiwv_ictx_ini2_dydi(&it, q3_[u].data(), t_.unit_size(u), 0, 0);
            scan_.ctx().vorn_lbiwvones_dydi(&it, out.rows.data(), n);
            vorn_vec src = packed_unit(t_, t_.city, u), res{};
            res.data = out.ptrs.data();
            res.data2 = out.lens.data();
            res.data3 = out.flags.data();
            vorn_kernel_ctx k = w.kctx();
            k.ones_vec = out.rows.data();
            k.ones_vec_size = n;
            scan_.decode(w, index, &res, &src, &k, n);
        });
        o.scalar_seconds = scan_.best_of(kRuns, t_.units, [&](Worker &, ub4 u) {
            const ub1 *city = static_cast<const ub1 *>(packed_unit(t_, t_.city, u).data);
            const ub1 *base = t_.cities.bytes.data();
            Output &out = model[u];
            ub8 j = 0;
            for (ub4 i = 0, n = t_.unit_size(u); i < n; ++i) {
                if (!bit(q3_[u], i)) continue;
                const ub4 c = code_at(city, 11, i);
                const ub4 off = __builtin_bswap32(t_.cities.offsets[c]);
                const ub4 len = (__builtin_bswap32(t_.cities.offsets[c + 1]) - off) & 0xffff;
                out.rows[j] = i;
                out.ptrs[j] = reinterpret_cast<ub8>(base + off);
                out.lens[j] = static_cast<ub2>(len);
                out.flags[j++] = len == 0 ? 2 : 0;
            }
        });
        ub8 decoded = 0;
        o.ok = true;
        for (ub4 u = 0; u < t_.units; ++u) {
            decoded += outs[u].rows.size();
            if (outs[u].rows != model[u].rows || outs[u].ptrs != model[u].ptrs || outs[u].lens != model[u].lens ||
                outs[u].flags != model[u].flags)
                o.ok = false;
        }
        if (!o.ok) o.mismatch = "a decoded pointer, length or flag differs from the dictionary";
        o.rows = static_cast<double>(decoded);
        std::string sample;
        for (ub4 u = 0; u < t_.units && sample.size() < 60; ++u)
            for (std::size_t j = 0; j < outs[u].rows.size() && j < 4; ++j)
                sample += (sample.empty() ? "" : ", ") +
                          std::string(reinterpret_cast<const char *>(outs[u].ptrs[j]), outs[u].lens[j]);
        o.answer = commas(decoded) + " rows: " + sample + ", ...";
        out_.push_back(o);
    }

    static ub4 xlate_index() {
        return VORN_DISPATCH_INDEX(2 /* ub1 entries, no layout suffix */ * 4 + VORN_XLATE_SIM, VORN_OP_XLATE, 1);
    }

    // Q6: the store numbers of Q3's rows carried through a translation table
    // to region numbers; a closed store has no mapping and drops its row.
    void translate() {
        Outcome o;
        o.title = "Q6 translation";
        o.question = "region of the store of Q3's rows: 5,000 store numbers through a ub1 table, 5% unmapped";
        std::vector<Bits> bits = unit_bits(t_);
        std::vector<std::vector<ub1>> regions(t_.units);
        std::vector<ub8> counts(t_.units);
        vorn_xlate_table table{};
        table.table = t_.store_region.data();
        for (ub4 u = 0; u < t_.units; ++u) regions[u].resize(t_.unit_size(u));
        o.library_seconds = scan_.best_of(kRuns, t_.units, [&](Worker &w, ub4 u) {
            vorn_vec src = fixed_unit(t_, t_.store, t_.store_enc, u), res = result(bits[u], src.size);
            vorn_xlate_ctx x{};
            x.low_code = 0;
            x.high_code = 4999;
            x.out = regions[u].data();
            x.first_kept = x.last_kept = VORN_XLATE_NO_ROW;
            vorn_kernel_ctx k = w.kctx();
            k.bv_aux = q3_[u].data();
            k.xlate_ctx = &x;
            scan_.xlate(w, xlate_index(), &res, &src, &table, &k, src.size);
            counts[u] = x.kept;
        });
        std::vector<char> unit_ok(t_.units, 1);
        std::vector<ub8> model_counts(t_.units);
        std::vector<std::vector<ub8>> per_region(t_.units, std::vector<ub8>(12));
        o.scalar_seconds = scan_.best_of(kRuns, t_.units, [&](Worker &, ub4 u) {
            model_counts[u] = 0;
            std::fill(per_region[u].begin(), per_region[u].end(), 0);
            const ub1 *store = static_cast<const ub1 *>(fixed_unit(t_, t_.store, t_.store_enc, u).data);
            for (ub4 i = 0, n = t_.unit_size(u); i < n; ++i) {
                const ub1 region = bit(q3_[u], i) ? t_.store_region[be32_at(store + 4 * i)] : 255;
                if (region != 255) ++model_counts[u], ++per_region[u][region];
                if (regions[u][i] != region || bit(bits[u], i) != (region != 255)) unit_ok[u] = 0;
            }
        });
        o.rows = static_cast<double>(t_.rows);
        o.ok = std::all_of(unit_ok.begin(), unit_ok.end(), [](char c) { return c != 0; }) &&
               total(counts) == total(model_counts);
        if (!o.ok) o.mismatch = "a translated value, a row bit or the kept count differs";
        ub8 top = 0, top_count = 0;
        for (ub8 r = 0; r < 12; ++r) {
            ub8 c = 0;
            for (const auto &pr : per_region) c += pr[r];
            if (c > top_count) top = r, top_count = c;
        }
        o.answer = commas(total(counts)) + " rows kept; busiest region " + std::to_string(top) + " with " +
                   commas(top_count) + " rows";
        out_.push_back(o);
    }

    // Q7: a run-length column, compared once per run; the host's rle_expand
    // spreads the run bits over the rows with the burst kernel.
    void run_length() {
        Outcome o;
        o.title = "Q7 run-length column";
        const ub4 three = 3;
        o.question = "status = 3: 4-bit codes in runs of 1 to 255 rows, expanded by the burst kernel";
        std::vector<Bits> bits = unit_bits(t_);
        std::vector<ub8> counts(t_.units);
        o.library_seconds = scan_.best_of(kRuns, t_.units, [&](Worker &w, ub4 u) {
            RleUnit &r = t_.status[u];
            vorn_vec src{}, res = result(bits[u], t_.unit_size(u));
            src.data = r.codes.data();
            src.enc_ctx = &r.enc;
            src.size = t_.unit_size(u);
            vorn_kernel_ctx k = w.kctx();
            const ub4 index = VORN_DISPATCH_INDEX(r.enc.kernel_group, VORN_OP_EQ, 0);
            scan_.compare(w, index, &res, &src, &three, &k, src.size);
            counts[u] = res.num_ones;
        });
        RowModel model(t_);
        ub8 runs = 0;
        o.scalar_seconds = scalar_run(model, [&](ub4 u) {
            const RleUnit &r = t_.status[u];
            ub8 row = 0;
            for (ub4 i = 0; i < r.runs; ++i) {
                const ub4 len = r.lengths.data()[i];
                if (code_at(r.codes.data(), 4, i) == three)
                    for (ub4 k = 0; k < len; ++k) model.mark(u, row + k);
                row += len;
            }
        });
        for (const RleUnit &r : t_.status) runs += r.runs;
        finish_bits(o, bits, model, counts, " in " + commas(runs) + " runs");
    }

    // The scalar path of a predicate query: eval(u) marks unit u's rows in a
    // cleared model; the best of kRuns runs on all threads counts.
    template <class Eval>
    double scalar_run(RowModel &model, Eval eval) {
        return scan_.best_of(kRuns, t_.units, [&](Worker &, ub4 u) {
            model.clear(u);
            eval(u);
        });
    }

    // The end of a predicate query over all rows: the library's bits and
    // count against the scalar ones, and the count as the answer.
    void finish_bits(Outcome &o, const std::vector<Bits> &library, const RowModel &model,
                     const std::vector<ub8> &counts, const std::string &more = "") {
        o.rows = static_cast<double>(t_.rows);
        o.ok = same_bits(t_, library, model.bits, o.mismatch) && total(counts) == total(model.counts);
        o.answer = commas(total(counts)) + " rows" + more;
        out_.push_back(o);
    }

    Scan &scan_;
    Table &t_;
    ub4 lo_ = 0, hi_ = 0;
    std::vector<ub8> q3_counts_;
    std::vector<Bits> q1_, q2_, q3_;
    std::vector<Outcome> out_;
};

}  // namespace

std::vector<Outcome> run_queries(Scan &scan, Table &table) { return Plan(scan, table).run(); }

}  // namespace demo
