// row_walk.h - the row walk that the vector drivers share: which rows of a
// column a call visits, in what order, and where the context's row cursor
// stands afterwards.
//
// The selection, by priority:
//   1. ctx->bv_aux: its set bits from bit ctx->row_pos on, taken 256 at a
//      time through the word-form iterator.  Afterwards row_pos is the last
//      row taken plus 1 (unchanged when no bit was taken).
//   2. ctx->ones_vec: its entries from index ctx->row_pos on (of
//      ones_vec_size).  row_pos advances by the rows done.
//   3. every row from row_pos on.  row_pos advances by the rows done.
// At most `capacity` rows are done.  Without a context every row from 0 on
// is walked and no cursor is kept.
//
// The visitor sees (output index, row, next row): output indexes count the
// rows done from 0, and `next row` is the row that follows in the walk (the
// row itself for the last one), for prefetching.  A visitor that returns
// non-zero ends the walk: row_pos then stands at that row (at its entry of
// ones_vec), so a caller resumes with it, and the code is returned.
#pragma once

#include <algorithm>

#include "frame/entries.h"

namespace vorn::vec {

inline constexpr ub4 kWalkBatch = 256;

// The pointer of row r of a vector column: with VORN_VEC_COLUMN `data` is an
// array of row pointers, without it `data` is the one value, whatever r.
VORN_INLINE const void *row_pointer(const vorn_vec *v, ub4 r) {
    if (VORN_ENC_CTX_FLAG(v->enc_ctx, VORN_VEC_COLUMN)) return static_cast<const void *const *>(v->data)[r];
    return v->data;
}

// Prefetches the row pointers of a batch: the column's pointer array.
VORN_INLINE void prefetch_row_pointers(const vorn_vec *v, const ub4 *rows, ub4 n) {
    if (!VORN_ENC_CTX_FLAG(v->enc_ctx, VORN_VEC_COLUMN)) return;
    const auto *ptrs = static_cast<const void *const *>(v->data);
    for (ub4 k = 0; k < n; k += 8) __builtin_prefetch(ptrs + rows[k]);
}

template <class Visit>
VORN_INLINE ub8 visit_batch(const ub4 *rows, ub4 n, ub8 out, Visit &visit, ub4 *failed_at) {
    for (ub4 k = 0; k < n; ++k) {
        const ub4 next = rows[k + 1 < n ? k + 1 : k];
        if (const ub8 code = visit(out + k, rows[k], next); code != 0) {
            *failed_at = k;
            return code;
        }
    }
    return 0;
}

// Walks the rows of a column of `rows` rows a batch at a time:
// `batch(rows, n, out, &failed_at)` handles the n rows of a batch, whose
// first output index is `out`, and returns non-zero with failed_at set to
// stop at that row.  *walked receives the rows done (those before a
// failing one).
template <class Batch>
ub8 walk_batches(vorn_kernel_ctx *ctx, ub4 rows, ub8 capacity, Batch &&batch_fn, ub8 *walked) {
    ub4 batch[kWalkBatch];
    ub8 &done = *walked;
    done = 0;
    ub4 failed_at = 0;
    if (ctx != nullptr && ctx->bv_aux != nullptr) {
        vorn_bv_iter it;
        vorn_lbiwv_ictx_ini2_dydi(&it, ctx->bv_aux, rows, 0, ctx->row_pos);
        while (done < capacity) {
            const ub4 want = static_cast<ub4>(std::min<ub8>(kWalkBatch, capacity - done));
            const ub4 n = vorn_lbiwvones_dydi(&it, batch, want);
            if (n == 0) break;
            if (const ub8 code = batch_fn(batch, n, done, &failed_at); code != 0) {
                ctx->row_pos = batch[failed_at];
                done += failed_at;
                return code;
            }
            done += n;
            ctx->row_pos = batch[n - 1] + 1;
        }
        return 0;
    }
    if (ctx != nullptr && ctx->ones_vec != nullptr) {
        const ub4 from = ctx->row_pos;
        const ub8 left = ctx->ones_vec_size > from ? ctx->ones_vec_size - from : 0;
        const ub8 total = std::min(left, capacity);
        while (done < total) {
            const ub4 n = static_cast<ub4>(std::min<ub8>(kWalkBatch, total - done));
            const ub4 *list = ctx->ones_vec + from + done;
            if (const ub8 code = batch_fn(list, n, done, &failed_at); code != 0) {
                ctx->row_pos = static_cast<ub4>(from + done + failed_at);
                done += failed_at;
                return code;
            }
            done += n;
            ctx->row_pos = static_cast<ub4>(from + done);
        }
        return 0;
    }
    const ub4 from = ctx != nullptr ? ctx->row_pos : 0;
    const ub8 total = std::min<ub8>(rows > from ? rows - from : 0, capacity);
    while (done < total) {
        const ub4 n = static_cast<ub4>(std::min<ub8>(kWalkBatch, total - done));
        for (ub4 k = 0; k < n; ++k) batch[k] = static_cast<ub4>(from + done + k);
        if (const ub8 code = batch_fn(batch, n, done, &failed_at); code != 0) {
            if (ctx != nullptr) ctx->row_pos = batch[failed_at];
            done += failed_at;
            return code;
        }
        done += n;
        if (ctx != nullptr) ctx->row_pos = static_cast<ub4>(from + done);
    }
    return 0;
}

// A walk with no selection in the context takes every row from the cursor
// on, up to the capacity: one run of consecutive rows, which a walk may
// take straight from the column's pointer array, with no list of row
// numbers between.  dense_run gives the run (false when the context has a
// selection); end_dense_run then leaves the cursor and the count as
// walk_batches would.
struct DenseRun {
    ub4 from;
    ub4 count;
};
VORN_INLINE bool dense_run(const vorn_kernel_ctx *ctx, ub4 rows, ub8 capacity, DenseRun *run) {
    if (ctx != nullptr && (ctx->bv_aux != nullptr || ctx->ones_vec != nullptr)) return false;
    const ub4 from = ctx != nullptr ? ctx->row_pos : 0;
    run->from = from;
    run->count = static_cast<ub4>(std::min<ub8>(rows > from ? rows - from : 0, capacity));
    return true;
}
VORN_INLINE ub8 end_dense_run(vorn_kernel_ctx *ctx, const DenseRun &run, ub8 *walked) {
    *walked = run.count;
    if (ctx != nullptr) ctx->row_pos = run.from + run.count;
    return 0;
}

// Walks the rows one at a time: `on_batch(rows, n)` sees each batch before
// its rows are visited.
template <class OnBatch, class Visit>
ub8 walk_rows(vorn_kernel_ctx *ctx, ub4 rows, ub8 capacity, OnBatch &&on_batch, Visit &&visit, ub8 *walked) {
    return walk_batches(
        ctx, rows, capacity,
        [&](const ub4 *list, ub4 n, ub8 out, ub4 *failed_at) -> ub8 {
            on_batch(list, n);
            return visit_batch(list, n, out, visit, failed_at);
        },
        walked);
}

}  // namespace vorn::vec
