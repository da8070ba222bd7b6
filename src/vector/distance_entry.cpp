// distance_entry.cpp - vorn_vector_distance_dydi and its four drivers.
//
// vorn_vector_distance_dydi(res, right, left, metric, forms, ctx, scratch)
// computes one distance per selected row between the right column and the
// left one: paired (row i with row i) when the row counts are equal, else
// single (the left's one vector, the query, against every right row).
//   - shape: a left count other than 1 must equal the right count and the
//     left must carry VORN_VEC_COLUMN; a right count other than 1 needs
//     VORN_VEC_COLUMN on the right.  Otherwise 2.
//   - flexibility: VORN_VEC_COLUMN with VORN_VEC_FLEX on one side and not
//     the other gives 24; on both, the flexible drivers run.
//   - uniform columns: the kernel is picked once from the descriptors'
//     types and forms (forms: left sparse in bits 1-2, right in bits 3-4);
//     none gives 24.  A single call against more than one row with scratch
//     decodes a C-form query into scratch once and runs the native kernel.
// Results: res->data receives one double per row done, in walk order, up
// to res->size of them (row_walk.h has the selection and the cursor).  They
// are rewritten in the order-preserving form unless res has VORN_NATIVE_FP
// (a result without enc_ctx stays native).  res->num_ones receives the
// number of rows done.  Flexible rows with a fault get no result (their
// place is skipped) and lose their bit in bv_aux when the walk runs over it.
#include "frame/fast_copy.h"
#include "vector/distance_walk.h"

namespace vorn::vec {

const void *decode_query(const void *query, ub4 type, bool sparse, ub4 dim, void *scratch) {
    if (type != VORN_VTYPE_FLOAT && type != VORN_VTYPE_DOUBLE && type != VORN_VTYPE_FLOAT16 &&
        type != VORN_VTYPE_BFLOAT16)
        return query;
    const ub1 *values = static_cast<const ub1 *>(query);
    ub1 *out = static_cast<ub1 *>(scratch);
    ub4 n = dim;
    if (sparse) {
        const SparseView v = sparse_view(query);
        fast_copy(out, query, 2 + 4 * ub8{v.count});
        n = v.count;
        values = v.values;
        out += 2 + 4 * ub8{v.count};
    }
    out = reinterpret_cast<ub1 *>((reinterpret_cast<std::uintptr_t>(out) + 7) & ~std::uintptr_t{7});
    switch (type) {
        case VORN_VTYPE_FLOAT:
            for (ub4 i = 0; i < n; ++i) store<ub4>(out + 4 * i, order_decode<ub4>(load<ub4>(values + 4 * i)));
            break;
        case VORN_VTYPE_DOUBLE:
            for (ub4 i = 0; i < n; ++i) store<ub8>(out + 8 * i, order_decode<ub8>(load<ub8>(values + 8 * i)));
            break;
        default:
            for (ub4 i = 0; i < n; ++i) store<ub2>(out + 2 * i, order_decode<ub2>(load<ub2>(values + 2 * i)));
            break;
    }
    return scratch;
}

void doubles_to_c(double *d, ub8 n) {
    for (ub8 i = 0; i < n; ++i) store<ub8>(d + i, order_encode64(std::bit_cast<ub8>(d[i])));
}

const void *single_query(const vorn_vec *right, const vorn_vec *left, void *scratch, ub4 left_sparse) {
    const void *query = row_pointer(left, 0);
    if (right->size > 1 && scratch != nullptr && c_column(left->enc_ctx))
        return decode_query(query, left->enc_ctx->elem_type, left_sparse != 0, right->enc_ctx->vec_dim, scratch);
    return query;
}

ub8 plan_distance(vorn_vec *right, vorn_vec *left, ub8 metric, ub8 forms, void *scratch, DistancePlan *plan) {
    const vorn_enc_ctx *le = left->enc_ctx, *re = right->enc_ctx;
    const ub4 nl = left->size, nr = right->size;
    if (nl != 1 && (nl != nr || !VORN_ENC_CTX_FLAG(le, VORN_VEC_COLUMN))) return 2;
    if (nr != 1 && !VORN_ENC_CTX_FLAG(re, VORN_VEC_COLUMN)) return 2;
    plan->paired = nl == nr;
    plan->metric = static_cast<ub4>(metric);
    plan->kernel = nullptr;
    const bool lf = flex_column(le), rf = flex_column(re);
    if (lf != rf) return 24;
    plan->flex = lf;
    if (lf) return 0;
    const ub4 left_sparse = (forms >> 1) & 3, right_sparse = (forms >> 3) & 3;
    const bool decodes = !plan->paired && nr > 1 && scratch != nullptr;
    plan->kernel = vorn_vector_pick_metric_dydi(plan->metric, le->elem_type, decodes ? 0 : c_column(le), left_sparse,
                                                re->elem_type, c_column(re), right_sparse);
    return plan->kernel == nullptr ? 24 : 0;
}

namespace {

ub8 finish(vorn_vec *res, ub8 code, ub8 done) {
    if (code != 0) return code;
    res->num_ones = static_cast<ub4>(done);
    if (res->enc_ctx != nullptr && !VORN_ENC_CTX_FLAG(res->enc_ctx, VORN_NATIVE_FP))
        doubles_to_c(static_cast<double *>(res->data), done);
    return 0;
}

}  // namespace
}  // namespace vorn::vec

extern "C" {

using namespace vorn::vec;

// The query is decoded once when it is in C form and runs against more
// than one row with scratch present; the plan has then picked the native
// kernel.
ub8 vorn_dbv_single_unif_distance(vorn_vec *res, vorn_vec *right, vorn_vec *left, vorn_dbv_fn kernel, ub4 metric,
                                  vorn_kernel_ctx *ctx, void *scratch, ub4 left_sparse) {
    const void *query = single_query(right, left, scratch, left_sparse);
    auto *out = static_cast<double *>(res->data);
    ub8 done = 0;
    const ub8 code = walk_single_unif(
        right, left, kernel, metric, query, ctx, res->size, [out](ub8 k, ub4, double d) { out[k] = d; }, &done);
    return finish(res, code, done);
}

ub8 vorn_dbv_paired_unif_distance(vorn_vec *res, vorn_vec *right, vorn_vec *left, vorn_dbv_fn kernel, ub4 metric,
                                  vorn_kernel_ctx *ctx) {
    auto *out = static_cast<double *>(res->data);
    ub8 done = 0;
    const ub8 code = walk_unif<false>(
        right, left, kernel, metric, nullptr, ctx, res->size, [out](ub8 k, ub4, double d) { out[k] = d; }, &done);
    return finish(res, code, done);
}

// Flexible walks count every row walked, faulty ones included: their
// result places are skipped, not closed up.
ub8 vorn_dbv_single_flex_distance(vorn_vec *res, vorn_vec *right, vorn_vec *left, ub4 metric, vorn_kernel_ctx *ctx) {
    auto *out = static_cast<double *>(res->data);
    ub8 done = 0;
    const ub8 code = walk_flex<true>(
        right, left, metric, ctx, res->size, [out](ub8 k, ub4, double d) { out[k] = d; }, &done);
    return finish(res, code, done);
}

ub8 vorn_dbv_paired_flex_distance(vorn_vec *res, vorn_vec *right, vorn_vec *left, ub4 metric, vorn_kernel_ctx *ctx) {
    auto *out = static_cast<double *>(res->data);
    ub8 done = 0;
    const ub8 code = walk_flex<false>(
        right, left, metric, ctx, res->size, [out](ub8 k, ub4, double d) { out[k] = d; }, &done);
    return finish(res, code, done);
}

ub8 vorn_vector_distance_dydi(vorn_vec *res, vorn_vec *right, vorn_vec *left, ub8 metric, ub8 forms,
                              vorn_kernel_ctx *ctx, void *scratch) {
    DistancePlan plan;
    if (const ub8 code = plan_distance(right, left, metric, forms, scratch, &plan); code != 0) return code;
    if (plan.flex)
        return plan.paired ? vorn_dbv_paired_flex_distance(res, right, left, plan.metric, ctx)
                           : vorn_dbv_single_flex_distance(res, right, left, plan.metric, ctx);
    if (plan.paired) return vorn_dbv_paired_unif_distance(res, right, left, plan.kernel, plan.metric, ctx);
    return vorn_dbv_single_unif_distance(res, right, left, plan.kernel, plan.metric, ctx, scratch, (forms >> 1) & 3);
}

}  // extern "C"
