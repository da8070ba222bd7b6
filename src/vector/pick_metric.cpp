// pick_metric.cpp - vorn_vector_pick_metric_dydi: a metric code and two
// operand descriptions to one distance kernel.
//
// The key ((36 * metric + 4 * left type + left C + 2 * left sparse) * 36) +
// 4 * right type + right C + 2 * right sparse runs from 1444 (euclid,
// float, float) to 13959 (jaccard distance, sparse bits); a table over that
// range, built at compile time from the pairing rule, holds the index of
// the kernel for each of its 1,680 valid keys and 0 elsewhere.
#include <array>

#include "vector/dbv_names.h"

namespace {

constexpr ub4 kKeyLow = 1444;
constexpr ub4 kKeyHigh = 13959;
constexpr ub4 kKeys = kKeyHigh - kKeyLow + 1;
constexpr ub4 kPerMetric = 164;  // 81 dense, bits, 81 sparse, sparse bits
constexpr ub4 kJaccard = 5 * kPerMetric;

// The place of a type code in the list of dense forms, its C form next:
// float 0, double 2, int8 4, float16 5, bfloat16 7; -1 for no such type.
constexpr int form_slot(ub4 type) {
    switch (type) {
        case VORN_VTYPE_FLOAT: return 0;
        case VORN_VTYPE_DOUBLE: return 2;
        case VORN_VTYPE_INT8: return 4;
        case VORN_VTYPE_FLOAT16: return 5;
        case VORN_VTYPE_BFLOAT16: return 7;
        default: return -1;
    }
}

constexpr bool has_c_form(ub4 type) { return type != VORN_VTYPE_INT8 && form_slot(type) >= 0; }

// Kernel index + 1 for a key, 0 for none.
constexpr ub2 rule(ub4 key) {
    const ub4 metric = key / 1296;
    const ub4 left = (key / 36) % 36, right = key % 36;
    const ub4 lt = left >> 2, lc = left & 1, ls = (left >> 1) & 1;
    const ub4 rt = right >> 2, rc = right & 1, rs = (right >> 1) & 1;
    if (ls != rs) return 0;
    const bool bits = lt == VORN_VTYPE_BITMSB0 && rt == VORN_VTYPE_BITMSB0;
    if (metric == VORN_METRIC_JACCARD || metric == VORN_METRIC_JACCARD_DISTANCE)
        return bits ? ub2(kJaccard + ls + 1) : 0;
    if (metric < VORN_METRIC_EUCLID || metric > VORN_METRIC_HAMMING) return 0;
    // euclid 1, 2; cosine 3, 4; dotprod 5, 6; manhattan 7; hamming 8.
    const ub4 family = metric == VORN_METRIC_HAMMING ? 4 : (metric - 1) / 2;
    const ub4 base = family * kPerMetric + ls * 82;
    if (bits) return ub2(base + 81 + 1);
    const int ls_slot = form_slot(lt), rs_slot = form_slot(rt);
    if (ls_slot < 0 || rs_slot < 0) return 0;
    // With int8 on one side, the other side keeps its C form only when the
    // int8 side's indicator is clear.
    ub4 lcf = has_c_form(lt) ? lc : 0, rcf = has_c_form(rt) ? rc : 0;
    if (rt == VORN_VTYPE_INT8 && rc) lcf = 0;
    if (lt == VORN_VTYPE_INT8 && lc) rcf = 0;
    return ub2(base + (ls_slot + lcf) * 9 + (rs_slot + rcf) + 1);
}

constexpr std::array<ub2, kKeys> kTable = [] {
    std::array<ub2, kKeys> t{};
    for (ub4 k = 0; k < kKeys; ++k) t[k] = rule(k + kKeyLow);
    return t;
}();

constexpr ub4 valid_keys() {
    ub4 n = 0;
    for (ub2 v : kTable) n += v != 0;
    return n;
}
static_assert(valid_keys() == 1680, "1,680 keys have a kernel");
static_assert(kTable[0] == 1, "key 1444 is euclid_float_float");
static_assert(kTable[2740 - kKeyLow] == 1, "squared euclid reads its metric at run time");

}  // namespace

extern "C" {

#define VORN_DBV_REF_DENSE_(metric, left, right) vorn_dbv_##metric##_##left##_##right,
#define VORN_DBV_REF_SPARSE_(metric, left, right) vorn_dbv_##metric##_S##left##_S##right,
#define VORN_DBV_REF_METRIC_(metric)                 \
    VORN_DBV_PAIRS(VORN_DBV_REF_DENSE_, metric)      \
    vorn_dbv_##metric##_bitmsb0_bitmsb0,             \
    VORN_DBV_PAIRS(VORN_DBV_REF_SPARSE_, metric)     \
    vorn_dbv_##metric##_Sbitmsb0_Sbitmsb0,
const vorn_dbv_fn vorn_dbv_kernels[822] = {
    VORN_DBV_GRID_METRICS(VORN_DBV_REF_METRIC_)
    vorn_dbv_jaccard_bitmsb0_bitmsb0,
    vorn_dbv_jaccard_Sbitmsb0_Sbitmsb0,
};

#define VORN_DBV_NAME_DENSE_(metric, left, right) "vorn_dbv_" #metric "_" #left "_" #right,
#define VORN_DBV_NAME_SPARSE_(metric, left, right) "vorn_dbv_" #metric "_S" #left "_S" #right,
#define VORN_DBV_NAME_METRIC_(metric)                 \
    VORN_DBV_PAIRS(VORN_DBV_NAME_DENSE_, metric)      \
    "vorn_dbv_" #metric "_bitmsb0_bitmsb0",           \
    VORN_DBV_PAIRS(VORN_DBV_NAME_SPARSE_, metric)     \
    "vorn_dbv_" #metric "_Sbitmsb0_Sbitmsb0",
const char *const vorn_dbv_kernel_names[822] = {
    VORN_DBV_GRID_METRICS(VORN_DBV_NAME_METRIC_)
    "vorn_dbv_jaccard_bitmsb0_bitmsb0",
    "vorn_dbv_jaccard_Sbitmsb0_Sbitmsb0",
};

vorn_dbv_fn vorn_vector_pick_metric_dydi(ub4 metric, ub4 left_type, ub4 left_c, ub4 left_sparse,
                                         ub4 right_type, ub4 right_c, ub4 right_sparse) {
    const ub4 key = ((36u * metric + 4u * left_type + (left_c != 0) + 2u * left_sparse) * 36u) +
                    4u * right_type + (right_c != 0) + 2u * right_sparse;
    if (key - kKeyLow > kKeyHigh - kKeyLow) return nullptr;
    const ub2 k = kTable[key - kKeyLow];
    return k ? vorn_dbv_kernels[k - 1] : nullptr;
}

}  // extern "C"
