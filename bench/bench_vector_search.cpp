// Vector search: one query against 1M rows of 128 dimensions, the distance
// of every row then the 10 nearest, through vorn_vector_topk_dydi, for
//   - float rows, squared euclid (metric 2),
//   - int8 rows, squared euclid,
//   - 128-bit bitmsb0 rows, hamming (metric 8),
// beside a plain loop with the kernels' summation order and a partial sort
// (scalar), a streaming read of the rows (bandwidth) and, when the build
// found it, FAISS's flat index on the same data (kernel_faiss: IndexFlatL2
// over the floats, and over the int8 values as floats; IndexBinaryFlat for
// the bits), one thread.  Before timing, each group checks that all paths
// find the same 10 rows, ties aside.  The float group also times the
// search over 1024 rows at a time, in L2 (kernel_in_cache).  Plus vector
// arithmetic: a paired add of float rows into float rows with norms,
// beside a plain loop.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>
#include <numeric>

#include "support/bench_support.h"

#ifdef VORN_HAVE_FAISS
#include <faiss/IndexBinaryFlat.h>
#include <faiss/IndexFlat.h>
#include <omp.h>
#endif

namespace {

using namespace vornbench;

constexpr ub4 kRows = 1u << 20;
constexpr ub4 kDim = 128;
constexpr ub4 kK = 10;
constexpr ub4 kCacheRows = 1024;  // 512 KiB of float rows: in L2

enum Elem { kF32, kI8, kBits };

ub4 row_bytes(Elem e) { return e == kF32 ? kDim * 4 : e == kI8 ? kDim : kDim / 8; }

// One column of rows end to end, row pointers into it, and one query.
struct Data {
    Elem elem;
    std::vector<ub1> rows;
    std::vector<const void *> ptrs;
    std::vector<ub1> query;
    std::vector<float> as_float;  // the int8 rows widened, for FAISS
    vorn_enc_ctx enc{}, qenc{}, renc{};
    const void *qptr = nullptr;

    explicit Data(Elem e) : elem(e), rows(std::size_t(kRows) * row_bytes(e)), ptrs(kRows), query(row_bytes(e)) {
        auto &g = rng();
        if (e == kF32) {
            std::uniform_real_distribution<float> u(0.0f, 1.0f);
            for (std::size_t i = 0; i < std::size_t(kRows) * kDim; ++i) {
                const float v = u(g);
                std::memcpy(&rows[4 * i], &v, 4);
            }
            for (ub4 i = 0; i < kDim; ++i) {
                const float v = u(g);
                std::memcpy(&query[4 * i], &v, 4);
            }
        } else {
            for (auto &b : rows) b = static_cast<ub1>(g());
            for (auto &b : query) b = static_cast<ub1>(g());
        }
        for (ub4 r = 0; r < kRows; ++r) ptrs[r] = rows.data() + std::size_t(r) * row_bytes(e);
        const ub1 type = e == kF32 ? 1 : e == kI8 ? 5 : 6;
        enc.elem_type = qenc.elem_type = type;
        enc.vec_dim = qenc.vec_dim = kDim;
        enc.flags = qenc.flags = VORN_NATIVE_FP | VORN_VEC_COLUMN;
        renc.flags = VORN_NATIVE_FP;
        qptr = query.data();
    }
};

Data &data(Elem e) {
    static std::unique_ptr<Data> d[3];
    if (!d[e]) d[e] = std::make_unique<Data>(e);
    return *d[e];
}

std::vector<ub4> library_topk(Data &d, ub4 rows_in = kRows) {
    vorn_vec right{}, left{}, res{};
    right.enc_ctx = &d.enc;
    right.data = d.ptrs.data();
    right.size = rows_in;
    left.enc_ctx = &d.qenc;
    left.data = &d.qptr;
    left.size = 1;
    vorn_topk_entry out[kK];
    res.enc_ctx = &d.renc;
    res.data = out;
    res.size = kK;
    const ub8 metric = d.elem == kBits ? 8 : 2;
    if (ctx().vorn_vector_topk_dydi(&res, &right, &left, metric, 0, nullptr, nullptr) != 0) std::abort();
    std::vector<ub4> rows;
    for (ub4 i = 0; i < res.size; ++i) rows.push_back(out[i].row);
    return rows;
}

// The plain loop: each row's distance with the kernels' summation order,
// then a partial sort of the row numbers.
VORN_SCALAR double plain_distance(const Data &d, ub4 r) {
    const ub1 *row = static_cast<const ub1 *>(d.ptrs[r]);
    if (d.elem == kBits) {
        unsigned n = 0;
        for (ub4 i = 0; i < kDim / 8; ++i) n += __builtin_popcount(row[i] ^ d.query[i]);
        return n;
    }
    double s = 0.0;
    for (ub4 i = 0; i < kDim; ++i) {
        float a, b;
        if (d.elem == kF32) {
            std::memcpy(&a, d.query.data() + 4 * i, 4);
            std::memcpy(&b, row + 4 * i, 4);
        } else {
            a = static_cast<float>(static_cast<sb1>(d.query[i]));
            b = static_cast<float>(static_cast<sb1>(row[i]));
        }
        const float diff = b - a;
        s += static_cast<double>(diff * diff);
    }
    return s;
}

std::vector<ub4> plain_topk(const Data &d, std::vector<double> &dist, std::vector<ub4> &order) {
    for (ub4 r = 0; r < kRows; ++r) dist[r] = plain_distance(d, r);
    std::iota(order.begin(), order.end(), 0u);
    std::partial_sort(order.begin(), order.begin() + kK, order.end(),
                      [&](ub4 a, ub4 b) { return dist[a] < dist[b] || (dist[a] == dist[b] && a < b); });
    return std::vector<ub4>(order.begin(), order.begin() + kK);
}

#ifdef VORN_HAVE_FAISS
struct Faiss {
    std::unique_ptr<faiss::IndexFlatL2> flat;
    std::unique_ptr<faiss::IndexBinaryFlat> binary;
    std::vector<float> query;
    explicit Faiss(Data &d) {
        omp_set_num_threads(1);
        if (d.elem == kBits) {
            binary = std::make_unique<faiss::IndexBinaryFlat>(kDim);
            binary->add(kRows, d.rows.data());
            return;
        }
        flat = std::make_unique<faiss::IndexFlatL2>(kDim);
        if (d.elem == kF32) {
            flat->add(kRows, reinterpret_cast<const float *>(d.rows.data()));
            query.assign(reinterpret_cast<const float *>(d.query.data()),
                         reinterpret_cast<const float *>(d.query.data()) + kDim);
        } else {
            std::vector<float> f(std::size_t(kRows) * kDim);
            for (std::size_t i = 0; i < f.size(); ++i) f[i] = static_cast<sb1>(d.rows[i]);
            flat->add(kRows, f.data());
            for (ub4 i = 0; i < kDim; ++i) query.push_back(static_cast<sb1>(d.query[i]));
        }
    }
    std::vector<ub4> search(const Data &d) {
        faiss::Index::idx_t labels[kK];
        std::vector<ub4> rows;
        if (binary) {
            int32_t dist[kK];
            binary->search(1, d.query.data(), kK, dist, labels);
        } else {
            float dist[kK];
            flat->search(1, query.data(), kK, dist, labels);
        }
        for (ub4 i = 0; i < kK; ++i) rows.push_back(static_cast<ub4>(labels[i]));
        return rows;
    }
};
#endif

// Same rows from two paths, ties aside: each row one path has and the
// other lacks must lie at the other's cut distance.
void compare_rows(const char *what, const Data &d, std::vector<ub4> a, std::vector<ub4> b) {
    std::vector<double> da, db;
    for (ub4 r : a) da.push_back(plain_distance(d, r));
    for (ub4 r : b) db.push_back(plain_distance(d, r));
    const double cut = std::max(*std::max_element(da.begin(), da.end()), *std::max_element(db.begin(), db.end()));
    std::sort(a.begin(), a.end());
    std::sort(b.begin(), b.end());
    std::vector<ub4> diff;
    std::set_symmetric_difference(a.begin(), a.end(), b.begin(), b.end(), std::back_inserter(diff));
    for (ub4 r : diff)
        if (plain_distance(d, r) != cut) {
            std::fprintf(stderr, "%s: top-10 rows differ at row %u\n", what, r);
            std::abort();
        }
}

void register_search(const char *group, Elem e) {
    Data &d = data(e);
    auto scratch_dist = std::make_shared<std::vector<double>>(kRows);
    auto scratch_order = std::make_shared<std::vector<ub4>>(kRows);
    const auto lib = library_topk(d);
    compare_rows(group, d, lib, plain_topk(d, *scratch_dist, *scratch_order));
#ifdef VORN_HAVE_FAISS
    auto faiss = std::make_shared<Faiss>(d);
    compare_rows(group, d, lib, faiss->search(d));
#endif
    const double bytes = double(kRows) * row_bytes(e);
    register_group(
        group,
        [&d, bytes](benchmark::State &state) {
            for (auto _ : state) benchmark::DoNotOptimize(library_topk(d));
            set_rates(state, kRows, bytes);
        },
        [&d, bytes, scratch_dist, scratch_order](benchmark::State &state) {
            for (auto _ : state) benchmark::DoNotOptimize(plain_topk(d, *scratch_dist, *scratch_order));
            set_rates(state, kRows, bytes);
        },
        [&d, bytes](benchmark::State &state) { bandwidth(state, d.rows.data(), d.rows.size(), kRows); });
    // The same search over the first kCacheRows rows, kRows / kCacheRows
    // times: the same number of distances with the rows in L2, so its time
    // against kernel's is what the memory stalls cost the search.
    if (e == kF32)
        register_row(group, "kernel_in_cache", [&d, bytes](benchmark::State &state) {
            for (auto _ : state)
                for (ub4 rep = 0; rep < kRows / kCacheRows; ++rep) benchmark::DoNotOptimize(library_topk(d, kCacheRows));
            set_rates(state, kRows, bytes);
        });
#ifdef VORN_HAVE_FAISS
    register_row(group, "kernel_faiss", [&d, bytes, faiss](benchmark::State &state) {
        for (auto _ : state) benchmark::DoNotOptimize(faiss->search(d));
        set_rates(state, kRows, bytes);
    });
#endif
}

// ---- Arithmetic --------------------------------------------------------------

constexpr ub4 kArithRows = 256;  // three arrays of 128 KiB: in cache

struct ArithData {
    std::vector<float> a, b, out;
    std::vector<const void *> pa, pb;
    std::vector<void *> po;
    std::vector<double> norms;
    vorn_enc_ctx enc{};
    ArithData()
        : a(std::size_t(kArithRows) * kDim), b(a.size()), out(a.size()), pa(kArithRows), pb(kArithRows),
          po(kArithRows), norms(kArithRows) {
        std::uniform_real_distribution<float> u(-1.0f, 1.0f);
        for (auto &x : a) x = u(rng());
        for (auto &x : b) x = u(rng());
        for (ub4 r = 0; r < kArithRows; ++r) {
            pa[r] = &a[std::size_t(r) * kDim];
            pb[r] = &b[std::size_t(r) * kDim];
            po[r] = &out[std::size_t(r) * kDim];
        }
        enc.elem_type = 1;
        enc.vec_dim = kDim;
        enc.flags = VORN_NATIVE_FP | VORN_VEC_COLUMN;
    }
};

VORN_SCALAR void plain_add(ArithData &d) {
    for (ub4 r = 0; r < kArithRows; ++r) {
        const float *x = &d.a[std::size_t(r) * kDim], *y = &d.b[std::size_t(r) * kDim];
        float *o = &d.out[std::size_t(r) * kDim];
        double s = 0.0;
        for (ub4 i = 0; i < kDim; ++i) {
            const float v = x[i] + y[i];
            if (std::isinf(v) || std::isnan(v)) std::abort();
            o[i] = v;
            s += static_cast<double>(v * v);
        }
        d.norms[r] = std::sqrt(s);
    }
}

void register_arith() {
    static ArithData d;
    const double bytes = double(kArithRows) * kDim * 4;  // one operand's rows
    register_group(
        "arith_add_float_float_float_vec_wnorm",
        [bytes](benchmark::State &state) {
            vorn_vec l{}, r{}, o{};
            l.enc_ctx = r.enc_ctx = o.enc_ctx = &d.enc;
            l.data = d.pa.data();
            r.data = d.pb.data();
            o.data = d.po.data();
            l.size = r.size = o.size = kArithRows;
            double *np = d.norms.data();
            for (auto _ : state)
                if (ctx().vorn_vector_arith_dydi(&o, &np, &l, &r, 19, nullptr, nullptr) != 0) std::abort();
            set_rates(state, kArithRows, bytes);
        },
        [bytes](benchmark::State &state) {
            for (auto _ : state) plain_add(d);
            set_rates(state, kArithRows, bytes);
        },
        [bytes](benchmark::State &state) { bandwidth(state, d.a.data(), d.a.size() * 4, kArithRows); });
}

const bool registered = [] {
    register_search("topk10_float128_euclid2", kF32);
    register_search("topk10_int8x128_euclid2", kI8);
    register_search("topk10_bits128_hamming", kBits);
    register_arith();
    return true;
}();

}  // namespace

VORN_BENCH_MAIN()
