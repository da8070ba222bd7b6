// distance_walk.h - the row walks shared by the distance and top-K drivers:
// uniform columns (one kernel for every row, the query decoded once) and
// flexible columns (each row a stored value with its own header).  Each
// walk hands (output index, row, distance) to a sink.
#pragma once

#include <cmath>
#include <type_traits>

#include "vector/dbv_names.h"
#include "vector/euclid_rows.h"
#include "vector/row_walk.h"
#include "vector/value_format.h"
#include "vector/vector_entries.h"

namespace vorn::vec {

inline constexpr ub4 kFlexMask = VORN_VEC_COLUMN | VORN_VEC_FLEX;

VORN_INLINE bool flex_column(const vorn_enc_ctx *e) { return (e->flags & kFlexMask) == kFlexMask; }
VORN_INLINE bool c_column(const vorn_enc_ctx *e) { return !VORN_ENC_CTX_FLAG(e, VORN_NATIVE_FP); }

// Decodes the elements of a C-form query body into native form in scratch,
// for the single uniform driver: a sparse body's count and positions are
// copied as they are and its values land at the first 8-byte aligned
// address behind them; dense elements land at the first 8-byte aligned
// address of scratch.  Returns the body the kernel is to read, or the
// query itself when its type has no C form.
const void *decode_query(const void *query, ub4 type, bool sparse, ub4 dim, void *scratch);

// The walk's batch hook: prefetches the row pointers of a batch in the right
// column and, for a paired walk, in the left.
template <bool Single>
VORN_INLINE auto batch_prefetch(const vorn_vec *right, const vorn_vec *left) {
    return [right, left](const ub4 *rows, ub4 n) {
        prefetch_row_pointers(right, rows, n);
        if (!Single) prefetch_row_pointers(left, rows, n);
    };
}

// Walks uniform rows: distance of row r against the query (single) or of
// left row r against right row r (paired).  A non-zero kernel return ends
// the walk and is returned.
template <bool Single, class Sink>
ub8 walk_unif(vorn_vec *right, vorn_vec *left, vorn_dbv_fn kernel, ub4 metric, const void *query,
              vorn_kernel_ctx *ctx, ub8 capacity, Sink &&sink, ub8 *walked) {
    const ub4 dim = right->enc_ctx->vec_dim;
    return walk_rows(
        ctx, right->size, capacity,
        batch_prefetch<Single>(right, left),
        [&](ub8 k, ub4 r, ub4 next) -> ub8 {
            __builtin_prefetch(row_pointer(right, next));
            if (!Single) __builtin_prefetch(row_pointer(left, next));
            double d;
            const ub8 code = kernel(dim, Single ? query : row_pointer(left, r), row_pointer(right, r), metric, &d);
            if (code != 0) return code;
            sink(k, r, d);
            return 0;
        },
        walked);
}

// A sink that can name a cut: a distance at or above it would be refused,
// so a walk need not hand it over (a NaN cut refuses nothing).  The top-K
// sink has one; the distance driver's sink takes every row.
template <class Sink>
concept CutSink = requires(const Sink &s) { s.cut(); };

// Rows ahead of the one computed whose first line is prefetched where a
// walk does not spread its prefetches through the arithmetic (as float
// rows do, euclid_rows.h): int8 and bit rows, and the first rows of each
// batch of a selection over float rows.
// Rows of a column need not lie in sequence, so the hardware's stream
// prefetch cannot find the next row by itself, but once a row's first line
// is read it follows the rest of the row.  Prefetching every line of a
// group's rows in one burst cost 1 to 3 ns a row in cache and won nothing
// out of it.  Two groups of eight rows ahead is about a memory latency.
inline constexpr ub4 kRowsAhead = 16;

// The pointer array of a column, or null for a single value (row_pointer).
VORN_INLINE const void *const *row_pointers(const vorn_vec *v) {
    return VORN_ENC_CTX_FLAG(v->enc_ctx, VORN_VEC_COLUMN) ? static_cast<const void *const *>(v->data) : nullptr;
}
VORN_INLINE const void *row_at(const void *const *ptrs, const void *one, ub4 r) {
    return ptrs != nullptr ? ptrs[r] : one;
}

// Hands the n distances of a group to the sink in walk order, hand(j)
// offering the j-th; with a cut, only those below it (or NaN) are handed
// over: one compare of each pair against one reading of the cut.
template <class Sink, class Hand>
VORN_INLINE void deliver(const Sink &sink, const double *d, ub4 n, Hand &&hand) {
    using S = std::remove_cvref_t<Sink>;
    if constexpr (CutSink<S>) {
        const __m128d c = _mm_set1_pd(sink.cut());
        ub4 below = 0;
        for (ub4 p = 0; p < kEuclidRows / 2; ++p)
            below |= ub4(_mm_movemask_pd(_mm_cmpnge_pd(_mm_load_pd(d + 2 * p), c))) << (2 * p);
        below &= (1u << n) - 1;
        for (; below != 0; below &= below - 1) hand(ub4(__builtin_ctz(below)));
    } else {
        for (ub4 j = 0; j < n; ++j) hand(j);
    }
}

// The single-query walk of squared euclid over float or int8 rows, eight
// rows at a time (euclid_rows.h: float rows side by side, int8 rows in
// exact integer sums); results reach the sink in walk order, so
// the sink cannot tell this walk from walk_unif's.  The query is widened to
// floats on the stack.  A walk over every row from the cursor reads the
// eight row pointers of a group straight from the column's array; a
// selection's rows are gathered into a group first, and a group may then
// span two batches of the walk.
template <bool Int8, class Sink>
ub8 walk_euclid8(vorn_vec *right, const void *query, ub4 metric, vorn_kernel_ctx *ctx, ub8 capacity, Sink &&sink,
                 ub8 *walked) {
    const ub4 dim = right->enc_ctx->vec_dim;
    // The query: 16-bit integers for int8 rows, floats for float rows.
    alignas(16) sb2 qw[Int8 ? kEuclidMaxDim : 8];
    alignas(16) float q[Int8 ? 4 : kEuclidMaxDim];
    if constexpr (Int8) {
        for (ub4 i = 0; i < dim; ++i) qw[i] = static_cast<const sb1 *>(query)[i];
    } else {
        for (ub4 i = 0; i < dim; ++i) q[i] = static_cast<const float *>(query)[i];
    }
    const void *const *col = row_pointers(right);
    const void *one = right->data;
    alignas(16) double d[kEuclidRows];
    auto distances = [&](const void *const *rows8, const void *const *ahead) {
        if constexpr (Int8) int8_euclid_rows8(qw, rows8, dim, d);
        else euclid_rows8(q, rows8, dim, d, ahead);
        if (metric == VORN_METRIC_EUCLID)
            for (ub4 j = 0; j < kEuclidRows; ++j) d[j] = guarded_sqrt(d[j]);
    };
    const void *ptrs[kEuclidRows];
    DenseRun run;
    if (col != nullptr && dense_run(ctx, right->size, capacity, &run)) {
        const void *const *p = col + run.from;
        const ub4 n = run.count;
        // Float rows of twelve elements or more prefetch the rows
        // kGroupsAhead groups on inside the arithmetic (euclid_rows.h);
        // other rows have the first line of the row kRowsAhead on
        // prefetched.
        const bool spread = !Int8 && dim >= 12;
        const ub4 lead = spread ? kGroupsAhead * kEuclidRows : kRowsAhead;
        for (ub4 i = 0; i < n && i < lead; ++i) __builtin_prefetch(p[i]);
        ub4 i = 0;
        for (; i + kEuclidRows <= n; i += kEuclidRows) {
            const bool room = i + lead + kEuclidRows <= n;
            if (!spread && room)
                for (ub4 j = 0; j < kEuclidRows; ++j) __builtin_prefetch(p[i + lead + j]);
            distances(p + i, spread && room ? p + i + lead : nullptr);
            deliver(sink, d, kEuclidRows, [&](ub4 j) { sink(i + j, run.from + i + j, d[j]); });
        }
        if (i < n) {
            const ub4 left = n - i;
            for (ub4 j = 0; j < kEuclidRows; ++j) ptrs[j] = p[i + (j < left ? j : 0)];
            distances(ptrs, nullptr);
            deliver(sink, d, left, [&](ub4 j) { sink(i + j, run.from + i + j, d[j]); });
        }
        return end_dense_run(ctx, run, walked);
    }
    ub8 ks[kEuclidRows];
    ub4 rs[kEuclidRows];
    ub4 n = 0;
    const void *ahead[kEuclidRows];
    auto flush = [&](ub4 count, const void *const *pf) {
        for (ub4 j = count; j < kEuclidRows; ++j) ptrs[j] = ptrs[0];
        distances(ptrs, pf);
        deliver(sink, d, count, [&](ub4 j) { sink(ks[j], rs[j], d[j]); });
    };
    // A selection's groups prefetch as a run's do when the rows
    // kGroupsAhead groups on are in the same batch; the first rows of a
    // batch have their first lines prefetched.
    const bool spread = !Int8 && dim >= 12;
    const ub4 lead = spread ? kGroupsAhead * kEuclidRows : kRowsAhead;
    auto prefetch_row = [&](ub4 r) { __builtin_prefetch(row_at(col, one, r)); };
    const ub8 code = walk_batches(
        ctx, right->size, capacity,
        [&](const ub4 *rows, ub4 count, ub8 out, ub4 *) -> ub8 {
            prefetch_row_pointers(right, rows, count);
            for (ub4 i = 0; i < count && i < lead; ++i) prefetch_row(rows[i]);
            for (ub4 i = 0; i < count; ++i) {
                if (!spread && i + lead < count) prefetch_row(rows[i + lead]);
                ptrs[n] = row_at(col, one, rows[i]);
                ks[n] = out + i;
                rs[n] = rows[i];
                if (++n == kEuclidRows) {
                    // The group ends at i; the one kGroupsAhead groups on
                    // starts at i + 1 + lead - kEuclidRows.
                    const bool room = spread && i + lead < count;
                    if (room)
                        for (ub4 j = 0; j < kEuclidRows; ++j)
                            ahead[j] = row_at(col, one, rows[i + 1 + lead - kEuclidRows + j]);
                    flush(n, room ? ahead : nullptr);
                    n = 0;
                }
            }
            return 0;
        },
        walked);
    if (n != 0) flush(n, nullptr);
    return code;
}

// The count of set bits of row ^ query over `bytes` bytes; Words > 0 fixes
// the length at Words 8-byte words.
template <ub4 Words>
VORN_INLINE ub8 hamming_count(const ub1 *row, const ub1 *q, ub8 words, ub8 bytes) {
    ub8 n = 0;
    if constexpr (Words > 0) {
        for (ub4 w = 0; w < Words; ++w) n += ub8(__builtin_popcountll(load<ub8>(row + 8 * w) ^ load<ub8>(q + 8 * w)));
    } else {
        for (ub8 w = 0; w < words; ++w) n += ub8(__builtin_popcountll(load<ub8>(row + 8 * w) ^ load<ub8>(q + 8 * w)));
        for (ub8 b = words * 8; b < bytes; ++b) n += ub8(__builtin_popcount(ub4(row[b] ^ q[b])));
    }
    return n;
}

// The cut of a sink as a count: a count at or above it is refused, and
// without a cut (or a NaN one) no count is.
template <class Sink>
VORN_INLINE ub8 count_cut(const Sink &sink) {
    if constexpr (CutSink<std::remove_cvref_t<Sink>>) {
        const double c = sink.cut();
        return std::isnan(c) ? ~ub8{0} : static_cast<ub8>(c);
    } else {
        return ~ub8{0};
    }
}

// The single-query walk of hamming over bit vectors, the count inlined:
// the rows are short (a 128-bit row is two words), so the call of a kernel
// per row would cost more than its count.  Counts are whole numbers, so the
// sink's cut is tested as a count.
template <ub4 Words, class Sink>
ub8 walk_hamming_bits(vorn_vec *right, const void *query, vorn_kernel_ctx *ctx, ub8 capacity, Sink &&sink,
                      ub8 *walked) {
    const ub8 bytes = (ub8{right->enc_ctx->vec_dim} + 7) >> 3, words = bytes >> 3;
    const auto *q = static_cast<const ub1 *>(query);
    const void *const *col = row_pointers(right);
    const void *one = right->data;
    ub8 cut = count_cut(sink);
    DenseRun run;
    if (col != nullptr && dense_run(ctx, right->size, capacity, &run)) {
        const void *const *p = col + run.from;
        const ub4 n = run.count;
        for (ub4 i = 0; i < n && i < kRowsAhead; ++i) __builtin_prefetch(p[i]);
        for (ub4 i = 0; i < n; ++i) {
            if (i + kRowsAhead < n) __builtin_prefetch(p[i + kRowsAhead]);
            const ub8 count = hamming_count<Words>(static_cast<const ub1 *>(p[i]), q, words, bytes);
            if (count >= cut) continue;
            sink(i, run.from + i, double(count));
            cut = count_cut(sink);
        }
        return end_dense_run(ctx, run, walked);
    }
    return walk_batches(
        ctx, right->size, capacity,
        [&](const ub4 *rows, ub4 count, ub8 out, ub4 *) -> ub8 {
            prefetch_row_pointers(right, rows, count);
            for (ub4 i = 0; i < count && i < kRowsAhead; ++i) __builtin_prefetch(row_at(col, one, rows[i]));
            for (ub4 i = 0; i < count; ++i) {
                if (i + kRowsAhead < count) __builtin_prefetch(row_at(col, one, rows[i + kRowsAhead]));
                const auto *row = static_cast<const ub1 *>(row_at(col, one, rows[i]));
                const ub8 n = hamming_count<Words>(row, q, words, bytes);
                if (n >= cut) continue;
                sink(out + i, rows[i], double(n));
                cut = count_cut(sink);
            }
            return 0;
        },
        walked);
}

// The single-query walk: eight rows at a time where the kernel is squared
// euclid over native float or int8 rows, the count inlined for hamming of
// bit vectors, else one kernel call a row.
template <class Sink>
ub8 walk_single_unif(vorn_vec *right, vorn_vec *left, vorn_dbv_fn kernel, ub4 metric, const void *query,
                     vorn_kernel_ctx *ctx, ub8 capacity, Sink &&sink, ub8 *walked) {
    if (kernel == &vorn_dbv_hamming_bitmsb0_bitmsb0) {
        if (right->enc_ctx->vec_dim == 128) return walk_hamming_bits<2>(right, query, ctx, capacity, sink, walked);
        return walk_hamming_bits<0>(right, query, ctx, capacity, sink, walked);
    }
    if (right->enc_ctx->vec_dim <= kEuclidMaxDim) {
        if (kernel == &vorn_dbv_euclid_float_float)
            return walk_euclid8<false>(right, query, metric, ctx, capacity, sink, walked);
        if (kernel == &vorn_dbv_euclid_int8_int8)
            return walk_euclid8<true>(right, query, metric, ctx, capacity, sink, walked);
    }
    return walk_unif<true>(right, left, kernel, metric, query, ctx, capacity, sink, walked);
}

// One stored value's header, read as lvector_to_header_basic reads it:
// false for a value that the kernels refuse.
struct FlexValue {
    ub4 type, c, sparse, dims, body_off;
};
VORN_INLINE bool read_flex(const void *value, FlexValue *v) {
    const auto *b = static_cast<const ub1 *>(value);
    if (b[0] != VORN_LV_MAGIC || b[1] > VORN_LV_MAX_VERSION || (b[3] & VORN_LV_USABLE_MASK) == 0) return false;
    const ub4 flags = b[3], format = b[4];
    v->type = vorn_dbv_lvtype2vorn(format);
    v->c = (flags & VORN_LV_NATIVE) == 0 ? 1 : 0;
    v->sparse = (flags & VORN_LV_SPARSE) != 0 ? 1 : 0;
    v->dims = load_be32(b + 5);
    v->body_off = body_offset(flags, format);
    return true;
}

// Walks flexible rows: each pair of values has its headers read and its
// kernel picked.  A faulty row (a refused header, differing dimensions, no
// kernel, a non-zero kernel return) gets no distance and, when the walk runs
// over bv_aux, loses its bit there; the walk goes on.
template <bool Single, class Sink>
ub8 walk_flex(vorn_vec *right, vorn_vec *left, ub4 metric, vorn_kernel_ctx *ctx, ub8 capacity, Sink &&sink,
              ub8 *walked) {
    ub8 *selection = ctx != nullptr ? const_cast<ub8 *>(ctx->bv_aux) : nullptr;
    return walk_rows(
        ctx, right->size, capacity,
        batch_prefetch<Single>(right, left),
        [&](ub8 k, ub4 r, ub4 next) -> ub8 {
            __builtin_prefetch(row_pointer(right, next));
            const auto *lv = static_cast<const ub1 *>(row_pointer(left, Single ? 0 : r));
            const auto *rv = static_cast<const ub1 *>(row_pointer(right, r));
            FlexValue a, b;
            double d;
            bool ok = read_flex(lv, &a) && read_flex(rv, &b) && a.dims == b.dims;
            if (ok) {
                const vorn_dbv_fn kernel =
                    vorn_vector_pick_metric_dydi(metric, a.type, a.c, a.sparse, b.type, b.c, b.sparse);
                ok = kernel != nullptr && kernel(a.dims, lv + a.body_off, rv + b.body_off, metric, &d) == 0;
            }
            if (ok) sink(k, r, d);
            else if (selection != nullptr) selection[r >> 6] &= ~(ub8{1} << (r & 63));
            return 0;
        },
        walked);
}

// The shape check and the kernel pick of both entries.
struct DistancePlan {
    bool paired;
    bool flex;
    vorn_dbv_fn kernel;
    ub4 metric;
};
ub8 plan_distance(vorn_vec *right, vorn_vec *left, ub8 metric, ub8 forms, void *scratch, DistancePlan *plan);

// The query body of a single uniform call: decoded into scratch as above
// when it runs against more than one row, in C form, with scratch present.
const void *single_query(const vorn_vec *right, const vorn_vec *left, void *scratch, ub4 left_sparse);

// Rewrites n result doubles in the order-preserving form.
void doubles_to_c(double *d, ub8 n);

}  // namespace vorn::vec
