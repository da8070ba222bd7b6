// topk_entry.cpp - vorn_vector_topk_dydi: the K rows of a vector column
// nearest to a query (or to their paired rows), as (row, distance) entries
// sorted best first.
//
// vorn_vector_topk_dydi(res, right, left, metric, forms, ctx, scratch)
// takes its arguments, shape checks and kernel pick as
// vorn_vector_distance_dydi does (codes 2 and 24 alike), and walks the same
// selection with the same cursor, but every row left is walked: K bounds the
// heap, not the scan.  K is res->size on entry, at least 1; res->data is an
// array of K vorn_topk_entry, which holds the heap (topk_heap.h) while the
// rows run.  On return res->size is the number of entries filled, sorted
// ascending with NaN distances last by row; the distances are rewritten in
// the order-preserving form unless res has VORN_NATIVE_FP (a result without
// enc_ctx stays native), the rows stay native.  A non-zero kernel return of
// a uniform column ends the walk and is returned as it stands, unsorted.
// Flexible rows with a fault take no place in the heap.
#include <limits>

#include "vector/distance_walk.h"
#include "vector/topk_heap.h"

namespace vorn::vec {
namespace {

constexpr ub8 kNoCap = std::numeric_limits<ub8>::max();

ub8 finish_topk(vorn_vec *res, TopKHeap &heap, ub8 code) {
    if (code != 0) return code;
    res->size = heap.size;
    heap.sort();
    if (res->enc_ctx != nullptr && !VORN_ENC_CTX_FLAG(res->enc_ctx, VORN_NATIVE_FP))
        for (ub4 i = 0; i < heap.size; ++i)
            store<ub8>(&heap.h[i].distance, order_encode64(std::bit_cast<ub8>(heap.h[i].distance)));
    return 0;
}

TopKHeap heap_of(vorn_vec *res) { return TopKHeap{static_cast<vorn_topk_entry *>(res->data), res->size, 0}; }

}  // namespace
}  // namespace vorn::vec

extern "C" {

using namespace vorn::vec;

ub8 vorn_dbv_single_unif_topk(vorn_vec *res, vorn_vec *right, vorn_vec *left, vorn_dbv_fn kernel, ub4 metric,
                              vorn_kernel_ctx *ctx, void *scratch, ub4 left_sparse) {
    TopKHeap heap = heap_of(res);
    const void *query = single_query(right, left, scratch, left_sparse);
    ub8 walked;
    const ub8 code = walk_single_unif(
        right, left, kernel, metric, query, ctx, kNoCap, TopKSink{heap}, &walked);
    return finish_topk(res, heap, code);
}

ub8 vorn_dbv_paired_unif_topk(vorn_vec *res, vorn_vec *right, vorn_vec *left, vorn_dbv_fn kernel, ub4 metric,
                              vorn_kernel_ctx *ctx) {
    TopKHeap heap = heap_of(res);
    ub8 walked;
    const ub8 code = walk_unif<false>(
        right, left, kernel, metric, nullptr, ctx, kNoCap, [&heap](ub8, ub4 r, double d) { heap.offer(r, d); },
        &walked);
    return finish_topk(res, heap, code);
}

ub8 vorn_vector_topk_dydi(vorn_vec *res, vorn_vec *right, vorn_vec *left, ub8 metric, ub8 forms,
                          vorn_kernel_ctx *ctx, void *scratch) {
    DistancePlan plan;
    if (const ub8 code = plan_distance(right, left, metric, forms, scratch, &plan); code != 0) return code;
    if (plan.flex) {
        TopKHeap heap = heap_of(res);
        auto sink = [&heap](ub8, ub4 r, double d) { heap.offer(r, d); };
        ub8 walked;
        const ub8 code = plan.paired ? walk_flex<false>(right, left, plan.metric, ctx, kNoCap, sink, &walked)
                                     : walk_flex<true>(right, left, plan.metric, ctx, kNoCap, sink, &walked);
        return finish_topk(res, heap, code);
    }
    if (plan.paired) return vorn_dbv_paired_unif_topk(res, right, left, plan.kernel, plan.metric, ctx);
    return vorn_dbv_single_unif_topk(res, right, left, plan.kernel, plan.metric, ctx, scratch, (forms >> 1) & 3);
}

}  // extern "C"
