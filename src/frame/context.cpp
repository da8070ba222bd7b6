// context.cpp - vorn_global_specialized_ctx, the one exported symbol, and
// the start-up and thread entries.
#include <cpuid.h>

#include "frame/cpu_probe.h"
#include "bloom/bloom_entries.h"
#include "frame/entries.h"
#include "kv/kv_entries.h"
#include "spatial/spatial_entries.h"
#include "vector/vector_entries.h"
#include "kv/kv_probe_entries.h"

extern "C" {

ub4 cpuinfo[3];
ub4 vorn_is_Intel;
ub4 vorn_is_AMD;
ub4 vorn_has_fsrm;
ub4 vorn_has_avx_vnni;
ub4 vorn_has_fsrs;
ub4 vorn_has_avx_ifma;
ub4 vorn_has_avx_vnni_int8;

}  // extern "C"

namespace vorn {

static CpuidRegs real_cpuid(ub4 leaf, ub4 subleaf) {
    CpuidRegs r{};
    __cpuid_count(leaf, subleaf, r.eax, r.ebx, r.ecx, r.edx);
    return r;
}

void probe_processor(CpuidFn cpuid) {
    const CpuidRegs top = cpuid(0, 0);
    if ((top.edx >> 24) == 0x49 && top.ecx == 0x6c65746e) {
        vorn_is_Intel = 1;
        vorn_is_AMD = 0;
    } else {
        vorn_is_Intel = 0;
        // Kept as the probe has always been: the low three bytes of ECX
        // against the bytes the vendor's name has at the top of that word,
        // so this stays 0 on that vendor's processors.  Nothing reads it.
        vorn_is_AMD = (top.ecx & 0xffffff) == 0x444d41 ? 1 : 0;
    }
    if (top.eax < 7) return;
    const CpuidRegs l7s0 = cpuid(7, 0);
    vorn_has_fsrm = (l7s0.edx >> 4) & 1;
    const CpuidRegs l7s1 = cpuid(7, 1);
    vorn_has_avx_vnni = (l7s1.eax >> 4) & 1;
    vorn_has_fsrs = (l7s1.eax >> 11) & 1;
    vorn_has_avx_ifma = (l7s1.eax >> 23) & 1;
    vorn_has_avx_vnni_int8 = (l7s1.edx >> 4) & 1;
}

}  // namespace vorn

extern "C" {

// No kernel of this build reads what the probe finds: this build takes one
// path whatever the processor says, and the host chose the build.
void vorn_init_sharedlib_dydi(void *, const ub4 *cpu_words) {
    cpuinfo[0] = cpu_words[0];
    cpuinfo[1] = cpu_words[1];
    cpuinfo[2] = cpu_words[2];
    vorn::probe_processor(vorn::real_cpuid);
}

void vorn_set_trace_level_dydi(ub8) {}

ub8 vorn_thread_ctx_init_dydi(void) { return 0; }
ub8 vorn_thread_ctx_fini_dydi(void) { return 0; }

ub8 vorn_unserved_dydi(void *, ...) { return 2; }
ub8 vorn_unserved_cmp(vorn_vec *, vorn_vec *, const void *const *, vorn_kernel_ctx *) { return 2; }
ub8 vorn_unserved_range(vorn_vec *, vorn_vec *, const void *const *, const void *const *, vorn_kernel_ctx *) {
    return 2;
}
ub8 vorn_unserved_decode(vorn_vec *, vorn_vec *, vorn_kernel_ctx *) { return 2; }
ub8 vorn_unserved_minmax(vorn_vec *, vorn_vec *, vorn_kernel_ctx *, ub4) { return 2; }
ub8 vorn_unserved_xlate(vorn_vec *, vorn_vec *, const void *, vorn_kernel_ctx *) { return 2; }
ub8 vorn_unserved_arith(vorn_vec *, vorn_vec *, vorn_vec *, vorn_kernel_ctx *) { return 2; }

__attribute__((visibility("default"))) extern const vorn_specialized_ctx vorn_global_specialized_ctx;

const vorn_specialized_ctx vorn_global_specialized_ctx = {
    VORN_CTX_MAGIC,
    VORN_CTX_VERSION,
    VORN_CTX_VARIANT_NO,
    VORN_CTX_VARIANT,
    {8, 8, 8, 8, 8, 8, 8},
    16,
    0,
    16,
    vorn_dispatch_table.data(),
    vorn_init_sharedlib_dydi,
    vorn_set_trace_level_dydi,
    vorn_lbivpopcnt_dydi,
    vorn_lbivnot_dydi,
    vorn_lbivand_dydi,
    vorn_lbivor_dydi,
    vorn_lbivxor_dydi,
    vorn_lbivandnot_dydi,
    vorn_lbivand3_dydi,
    vorn_lbivor3_dydi,
    vorn_lbivxor3_dydi,
    vorn_lbivset_range_dydi,
    vorn_lbivclr_range_dydi,
    vorn_lbiv_ictx_ini2_dydi,
    vorn_lbiviter_dydi,
    vorn_lbiviter_clr_dydi,
    vorn_lbivones_dydi,
    vorn_lbivrun_dydi,
    vorn_lbivruns_dydi,
    vorn_lbiwvpopcnt_dydi,
    vorn_lbiwvnot_dydi,
    vorn_lbiwvand_dydi,
    vorn_lbiwvor_dydi,
    vorn_lbiwvxor_dydi,
    vorn_lbiwvandnot_dydi,
    vorn_lbiwvand3_dydi,
    vorn_lbiwvor3_dydi,
    vorn_lbiwvxor3_dydi,
    vorn_lbiwvset_range_dydi,
    vorn_lbiwvclr_range_dydi,
    vorn_lbiwv_ictx_ini2_dydi,
    vorn_lbiwviter_dydi,
    vorn_lbiwviter_clr_dydi,
    vorn_lbiwvones_dydi,
    vorn_lbiwvrun_dydi,
    vorn_lbiwvruns_dydi,
    vorn_bloom_dydi,
    vorn_spatial_pip_dydi,
    vorn_spheric_pip_dydi,
    vorn_unserved_dydi,  // vorn_groupkey_dydi
    vorn_unserved_dydi,  // vorn_dgk_concatenate_dydi
    vorn_unserved_dydi,  // vorn_extract_dgk_dydi
    vorn_unserved_dydi,  // vorn_gby_sum_dydi
    vorn_unserved_dydi,  // vorn_convert_dydi
    vorn_unserved_dydi,  // vorn_prefix_decode_dydi
    vorn_hash_dydi,
    vorn_partition_dydi,
    vorn_gather_dydi,
    vorn_gather_one_col_dydi,
    vorn_gather_cols_dydi,
    vorn_transpose_reference_dydi,
    vorn_transpose_convert_dydi,
    vorn_transpose_fixed_dydi,
    vorn_layout_kv_dydi,
    vorn_create_add_kv_dydi,
    vorn_probe_kv_dydi,
    vorn_mut_kv_scan_dydi,
    vorn_unserved_dydi,  // vorn_dgk_symbol2code_dydi
    vorn_unserved_dydi,  // vorn_dgk_code2symbol_dydi
    vorn_eq_stream_dydi,
    vorn_selective_dydi,
    vorn_lomp_decode_dydi,
    vorn_thread_ctx_init_dydi,
    vorn_thread_ctx_fini_dydi,
    vorn_unserved_dydi,  // vorn_sum_vec_dydi
    vorn_lookup_and_compare_dydi,
    vorn_unserved_dydi,  // vorn_prefix_sum_vec_dydi
    vorn_vector_distance_dydi,
    vorn_vector_topk_dydi,
    vorn_vector_pick_metric_dydi,
    vorn_vector_parse_dydi,
    vorn_vector_convert_fp_dydi,
    vorn_vector_arith_dydi,
};

}  // extern "C"
