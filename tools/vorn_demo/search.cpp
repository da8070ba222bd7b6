// search.cpp - Q10: similarity search over an embedding column that the
// store keeps as text, "[12.25, -3.5, ...]", as a user inserted it.
//
//   parse    the texts into float vectors with their norms (vorn_vector_parse_dydi)
//   top 10   the rows nearest a query by cosine distance and by squared
//            euclid (vorn_vector_topk_dydi), each thread over its share of
//            the rows, the shares' lists merged by the host
//   int8     the same on an int8 copy made by the conversion kernel
//            (vorn_vector_convert_fp_dydi), a quarter of the bytes
//
// The scalar evaluation parses with strtof and computes every distance in
// double; FAISS's flat indexes search the same floats as the peer.  The
// check: the library's distances agree with the scalar ones of the same
// rows, and its ten are the ten best up to ties within rounding.
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <random>

#include "vorn_demo/groups.h"

#if VORN_HAVE_FAISS
#include <faiss/IndexFlat.h>
#endif

namespace demo {
namespace {

constexpr ub4 kDim = 64;
constexpr ub4 kTop = 10;
constexpr ub4 kChunk = 1u << 14;  // rows of one parse call

struct Embeddings {
    ub8 rows = 0;
    std::string text;            // every row's text, end to end
    std::vector<ub8> ptrs;       // each row's text: address and length
    std::vector<ub2> lens;
    std::vector<float> query;    // the query, already a vector
};

// Elements are multiples of 0.25 in [-100, 100]: exact in float, so every
// correct parser gives the same vectors, and in int8 range.
Embeddings generate(ub8 rows, ub8 seed) {
    Embeddings e;
    e.rows = rows;
    std::mt19937_64 rng(seed ^ 0xe1be);
    std::vector<ub8> offsets;
    for (ub8 r = 0; r < rows; ++r) {
        offsets.push_back(e.text.size());
        e.text += '[';
        for (ub4 k = 0; k < kDim; ++k) {
            const int q = static_cast<int>(rng() % 801) - 400;  // quarters
            if (k) e.text += ", ";
            if (q < 0) e.text += '-';
            e.text += std::to_string(std::abs(q) / 4);
            static const char *const fractions[] = {"", ".25", ".5", ".75"};
            e.text += fractions[std::abs(q) % 4];
        }
        e.text += ']';
    }
    offsets.push_back(e.text.size());
    for (ub8 r = 0; r < rows; ++r) {
        e.ptrs.push_back(reinterpret_cast<ub8>(e.text.data() + offsets[r]));
        e.lens.push_back(static_cast<ub2>(offsets[r + 1] - offsets[r]));
    }
    for (ub4 k = 0; k < kDim; ++k) e.query.push_back(static_cast<float>(static_cast<int>(rng() % 801) - 400) / 4);
    return e;
}

struct Hit {
    ub4 row;
    double distance;
};

// ---- the library's path --------------------------------------------------------------

struct Column {  // a vector column as the kernels take it: one address per row
    vorn_enc_ctx enc{};
    std::vector<const void *> rows;
};

Column column_of(const void *base, ub8 rows, ub4 elem_bytes, ub1 type) {
    Column c;
    c.enc.flags = VORN_VEC_COLUMN | VORN_NATIVE_FP;
    c.enc.elem_type = type;
    c.enc.vec_dim = kDim;
    for (ub8 r = 0; r < rows; ++r) c.rows.push_back(static_cast<const ub1 *>(base) + r * kDim * elem_bytes);
    return c;
}

// The ten nearest rows: one top-K call per thread over its half of the
// rows, then the two lists merged.
std::vector<Hit> library_top(Scan &scan, const Column &col, const void *query, ub4 metric, std::string &error) {
    const ub8 rows = col.rows.size();
    const ub4 shares = scan.threads();
    std::vector<std::vector<Hit>> found(shares);
    std::vector<ub8> codes(shares);
    scan.for_units(shares, [&](Worker &w, ub4 s) {
        const ub8 first = rows * s / shares, end = rows * (s + 1) / shares;
        if (first == end) return;
        vorn_vec right{}, left{}, res{};
        right.enc_ctx = &col.enc;
        right.data = const_cast<const void **>(col.rows.data() + first);
        right.size = static_cast<ub4>(end - first);
        left.enc_ctx = &col.enc;
        left.data = &query;
        left.size = 1;
        vorn_enc_ctx res_enc{};
        res_enc.flags = VORN_NATIVE_FP;
        std::vector<vorn_topk_entry> top(kTop);
        res.enc_ctx = &res_enc;
        res.data = top.data();
        res.size = kTop;
        const ub8 code = scan.slot(w, "vorn_vector_topk_dydi", end - first, [&] {
            return scan.ctx().vorn_vector_topk_dydi(&res, &right, &left, metric, 0, nullptr, nullptr);
        });
        codes[s] = code;
        for (ub4 i = 0; i < res.size; ++i) found[s].push_back({static_cast<ub4>(first + top[i].row), top[i].distance});
    });
    for (ub8 code : codes)
        if (code != 0) error = "top-K returned " + std::to_string(code);
    std::vector<Hit> all;
    for (const auto &f : found) all.insert(all.end(), f.begin(), f.end());
    std::stable_sort(all.begin(), all.end(), [](const Hit &a, const Hit &b) { return a.distance < b.distance; });
    if (all.size() > kTop) all.resize(kTop);
    return all;
}

// ---- the scalar path --------------------------------------------------------------

template <class T>
double distance(const T *a, const T *b, ub4 metric) {
    double dot = 0, na = 0, nb = 0, sq = 0;
    for (ub4 k = 0; k < kDim; ++k) {
        const double x = a[k], y = b[k];
        dot += x * y, na += x * x, nb += y * y, sq += (x - y) * (x - y);
    }
    if (metric == VORN_METRIC_EUCLID_SQUARED) return sq;
    return na == 0 || nb == 0 ? 1.0 : 1.0 - dot / (std::sqrt(na) * std::sqrt(nb));
}

template <class T>
std::vector<Hit> scalar_top(Scan &scan, const std::vector<T> &data, const T *query, ub4 metric,
                            std::vector<double> &all_distances) {
    const ub8 rows = data.size() / kDim;
    all_distances.resize(rows);
    scan.for_units(static_cast<ub4>((rows + kChunk - 1) / kChunk), [&](Worker &, ub4 u) {
        for (ub8 r = ub8{u} * kChunk, end = std::min<ub8>(rows, r + kChunk); r < end; ++r)
            all_distances[r] = distance(data.data() + r * kDim, query, metric);
    });
    std::vector<Hit> hits;
    for (ub8 r = 0; r < rows; ++r) hits.push_back({static_cast<ub4>(r), all_distances[r]});
    const std::size_t k = std::min<std::size_t>(kTop, hits.size());
    std::partial_sort(hits.begin(), hits.begin() + k, hits.end(),
                      [](const Hit &a, const Hit &b) { return a.distance < b.distance || (a.distance == b.distance && a.row < b.row); });
    hits.resize(k);
    return hits;
}

bool close(double a, double b) { return std::fabs(a - b) <= 1e-5 * std::max(1.0, std::fabs(b)); }

// The library's ten against the scalar ones: each distance right for its
// row, and as good as the scalar ten, rank by rank.
bool same_top(const std::vector<Hit> &got, const std::vector<Hit> &want, const std::vector<double> &all,
              std::string &why) {
    if (got.size() != want.size()) return why = "a list of " + std::to_string(got.size()), false;
    for (std::size_t i = 0; i < got.size(); ++i) {
        if (!close(got[i].distance, all[got[i].row]) || !close(got[i].distance, want[i].distance)) {
            why = "rank " + std::to_string(i) + ": row " + std::to_string(got[i].row) + " at " +
                  std::to_string(got[i].distance) + ", scalar row " + std::to_string(want[i].row) + " at " +
                  std::to_string(want[i].distance);
            return false;
        }
    }
    return true;
}

std::string rows_of(const std::vector<Hit> &hits) {
    std::string s;
    for (std::size_t i = 0; i < hits.size() && i < 4; ++i) {
        char buf[64];
        std::snprintf(buf, sizeof buf, "%s%u (%.4g)", i ? ", " : "", hits[i].row, hits[i].distance);
        s += buf;
    }
    return s + (hits.size() > 4 ? ", ..." : "");
}

class Search {
public:
    Search(Scan &scan, ub8 rows, ub8 seed) : scan_(scan), e_(generate(rows, seed)) {}

    std::vector<Outcome> run() {
        parse();
        top("Q10 top 10, cosine", VORN_METRIC_COSINE_DISTANCE, false);
        top("Q10 top 10, squared euclid", VORN_METRIC_EUCLID_SQUARED, false);
        to_int8();
        top("Q10 top 10 on int8, cosine", VORN_METRIC_COSINE_DISTANCE, true);
        top("Q10 top 10 on int8, squared euclid", VORN_METRIC_EUCLID_SQUARED, true);
        return out_;
    }

private:
    // What an encoding record says of a vector column: flags, element
    // type and dimension.
    struct Shape {
        ub4 flags;
        ub1 elem_type;
        ub4 vec_dim;
    };

    // The source and result records of one call on a chunk of rows; the
    // call sets their shapes and data.
    struct ChunkRecords {
        vorn_enc_ctx src_enc{}, res_enc{};
        vorn_vec src{}, res{};
        explicit ChunkRecords(ub8 n) {
            src.enc_ctx = &src_enc;
            src.size = static_cast<ub4>(n);
            res.enc_ctx = &res_enc;
        }
        void shape(Shape from, Shape to) {
            set(src_enc, from);
            set(res_enc, to);
        }
        static void set(vorn_enc_ctx &e, Shape s) {
            e.flags = s.flags;
            e.elem_type = s.elem_type;
            e.vec_dim = s.vec_dim;
        }
    };

    ub4 chunks() const { return static_cast<ub4>((e_.rows + kChunk - 1) / kChunk); }

    // call(worker, records, first row, rows) on every chunk, on the threads;
    // `rows` sums what the calls that returned 0 report done.
    template <class Call>
    double by_chunks(ub8 &rows, Call call) {
        std::vector<ub4> done(chunks());
        const double seconds = scan_.for_units(chunks(), [&](Worker &w, ub4 u) {
            const ub8 first = ub8{u} * kChunk, n = std::min<ub8>(e_.rows - first, kChunk);
            ChunkRecords r(n);
            done[u] = call(w, r, first, n) == 0 ? r.res.num_ones : 0;
        });
        rows = 0;
        for (ub4 d : done) rows += d;
        return seconds;
    }

    // The texts into floats and norms, chunk by chunk on the threads.
    void parse() {
        Outcome o;
        o.title = "Q10 parse embeddings";
        o.question = commas(e_.rows) + " texts of " + std::to_string(kDim) + " numbers, " + commas(e_.text.size()) +
                     " bytes, into float vectors with their norms";
        floats_.assign(e_.rows * kDim, 0);
        norms_.assign(e_.rows, 0);
        ub8 rows = 0;
        o.library_seconds = by_chunks(rows, [&](Worker &w, ChunkRecords &r, ub8 first, ub8 n) {
            r.shape({VORN_PTR_LEN, 0, 0}, {VORN_NATIVE_FP, VORN_VTYPE_FLOAT, kDim});
            r.src.data = e_.ptrs.data() + first;
            r.src.data2 = e_.lens.data() + first;
            r.res.data = floats_.data() + first * kDim;
            double *norms = norms_.data() + first;
            return scan_.slot(w, "vorn_vector_parse_dydi", n, [&] {
                return scan_.ctx().vorn_vector_parse_dydi(&r.res, &norms, &r.src, nullptr, nullptr);
            });
        });
        std::vector<float> model(e_.rows * kDim);
        std::vector<double> model_norms(e_.rows);
        o.scalar_seconds = scan_.for_units(chunks(), [&](Worker &, ub4 u) {
            for (ub8 r = ub8{u} * kChunk, end = std::min<ub8>(e_.rows, r + kChunk); r < end; ++r) {
                const char *p = reinterpret_cast<const char *>(e_.ptrs[r]) + 1;
                double sum = 0;
                for (ub4 k = 0; k < kDim; ++k) {
                    char *next;
                    const float v = std::strtof(p, &next);
                    model[r * kDim + k] = v;
                    sum += static_cast<double>(v) * v;
                    p = next + 1;  // behind the comma
                }
                model_norms[r] = std::sqrt(sum);
            }
        });
        o.rows = static_cast<double>(e_.rows);
        o.ok = rows == e_.rows && model == floats_;
        for (ub8 r = 0; o.ok && r < e_.rows; ++r)
            if (!close(norms_[r], model_norms[r])) o.ok = false;
        if (!o.ok) o.mismatch = "a parsed element or norm differs from strtof's (" + commas(rows) + " rows parsed)";
        double mean = 0;
        for (double n : norms_) mean += n / static_cast<double>(e_.rows);
        char buf[64];
        std::snprintf(buf, sizeof buf, "%.2f", mean);
        o.answer = commas(rows) + " vectors, mean norm " + buf;
        out_.push_back(o);
    }

    // The int8 copy, one conversion call per chunk.
    void to_int8() {
        Outcome o;
        o.title = "Q10 int8 copy";
        o.question = "the float vectors converted to int8, rounded half away from zero";
        int8_.assign(e_.rows * kDim, 0);
        ub8 rows = 0;
        o.library_seconds = by_chunks(rows, [&](Worker &w, ChunkRecords &r, ub8 first, ub8 n) {
            r.shape({VORN_NATIVE_FP, VORN_VTYPE_FLOAT, kDim}, {0, VORN_VTYPE_INT8, kDim});
            r.src.data = floats_.data() + first * kDim;
            r.res.data = int8_.data() + first * kDim;
            return scan_.slot(w, "vorn_vector_convert_fp_dydi", n, [&] {
                return scan_.ctx().vorn_vector_convert_fp_dydi(&r.res, nullptr, &r.src, nullptr, nullptr);
            });
        });
        std::vector<signed char> model(int8_.size());
        o.scalar_seconds = timed_once([&] {
            for (std::size_t i = 0; i < model.size(); ++i) model[i] = static_cast<signed char>(std::round(floats_[i]));
        });
        o.rows = static_cast<double>(e_.rows);
        o.ok = rows == e_.rows && model == int8_;
        if (!o.ok) o.mismatch = "an int8 element differs from the rounded float";
        o.slow_because = "the conversion tests every element's range and narrows it through float, where the "
                         "scalar loop only rounds";
        o.answer = commas(rows) + " vectors, " + commas(int8_.size()) + " bytes";
        for (ub4 k = 0; k < kDim; ++k) query8_.push_back(static_cast<signed char>(std::round(e_.query[k])));
        out_.push_back(o);
    }

    void top(const char *title, ub4 metric, bool int8) {
        Outcome o;
        o.title = title;
        o.question = std::string("the 10 of ") + commas(e_.rows) + (int8 ? " int8" : " float") + " vectors nearest the query by " +
                     (metric == VORN_METRIC_EUCLID_SQUARED ? "squared euclid" : "cosine distance");
        std::vector<Hit> got, want;
        std::vector<double> all;
        std::string error;
        if (int8) {
            const Column col = column_of(int8_.data(), e_.rows, 1, VORN_VTYPE_INT8);
            o.library_seconds = timed_once([&] { got = library_top(scan_, col, query8_.data(), metric, error); });
            o.scalar_seconds = timed_once([&] { want = scalar_top(scan_, int8_, query8_.data(), metric, all); });
        } else {
            const Column col = column_of(floats_.data(), e_.rows, 4, VORN_VTYPE_FLOAT);
            o.library_seconds = timed_once([&] { got = library_top(scan_, col, e_.query.data(), metric, error); });
            o.scalar_seconds = timed_once([&] { want = scalar_top(scan_, floats_, e_.query.data(), metric, all); });
            peer(o, metric, want);
        }
        o.rows = static_cast<double>(e_.rows);
        if (!error.empty()) o.ok = false, o.mismatch = error;
        else o.ok = same_top(got, want, all, o.mismatch);
        o.answer = "rows " + rows_of(got);
        if (metric != VORN_METRIC_EUCLID_SQUARED)
            o.slow_because = "the cosine kernel computes both norms of every row again; the norms of the parse "
                             "are not handed to it";
        out_.push_back(o);
    }

    // FAISS's flat index on the same floats: inner product over normalised
    // copies for the cosine, L2 (squared) for euclid.  Filling the index is
    // its build, as a server keeps it: only the search is timed.
    void peer(Outcome &o, ub4 metric, const std::vector<Hit> &want) {
#if VORN_HAVE_FAISS
        std::vector<float> distances(kTop);
        std::vector<faiss::Index::idx_t> labels(kTop);
        o.peer_name = "FAISS flat index, search only";
        const bool cosine = metric != VORN_METRIC_EUCLID_SQUARED;
        std::vector<float> data(floats_), q(e_.query);
        if (cosine) {
            for (ub8 r = 0; r < e_.rows; ++r)
                for (ub4 k = 0; k < kDim; ++k) data[r * kDim + k] /= norms_[r] > 0 ? static_cast<float>(norms_[r]) : 1.0f;
            double qn = 0;
            for (float x : q) qn += static_cast<double>(x) * x;
            for (float &x : q) x /= static_cast<float>(std::sqrt(qn));
        }
        faiss::IndexFlatL2 l2(kDim);
        faiss::IndexFlatIP ip(kDim);
        faiss::IndexFlat &index = cosine ? static_cast<faiss::IndexFlat &>(ip) : l2;
        index.add(static_cast<faiss::Index::idx_t>(e_.rows), data.data());
        o.peer_seconds = timed_once([&] { index.search(1, q.data(), kTop, distances.data(), labels.data()); });
        const double nearest = cosine ? 1.0 - distances[0] : distances[0];
        if (!want.empty() && labels[0] != static_cast<faiss::Index::idx_t>(want[0].row) &&
            std::fabs(nearest - want[0].distance) > 1e-3 * std::max(1.0, want[0].distance)) {
            o.ok = false;
            o.mismatch = "FAISS's nearest row differs from the scalar one";
        }
#else
        (void)o, (void)metric, (void)want;
#endif
    }

    Scan &scan_;
    Embeddings e_;
    std::vector<float> floats_;
    std::vector<double> norms_;
    std::vector<signed char> int8_, query8_;
    std::vector<Outcome> out_;
};

}  // namespace

std::vector<Outcome> run_search(Scan &scan, ub8 rows, ub8 seed) { return Search(scan, rows, seed).run(); }

}  // namespace demo
