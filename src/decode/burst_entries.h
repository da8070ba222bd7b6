// burst_entries.h - places vorn_burst_rle_8bit, vorn_burst_rle_8bit_cla,
// vorn_burst_rle_16bit and vorn_burst_rle_16bit_cla in the dispatch table.
//
// A burst kernel carries a bit vector over the runs of a VORN_RLE column
// (ctx.bv_aux, with ctx.num_ones ones) to a bit vector over its rows
// (res.res_bv, res.size rows), sets res.num_ones to the rows set, and
// returns 1 when there are none, else 0.  It is the host's rle_expand of
// choice after a predicate has compared the runs.
//
// A run's bits are set (or cleared) by read-modify-writes of the unaligned
// 64-bit word at byte res_bv + row / 8, up to 56 bits at a time.  The last
// such word may reach up to seven bytes behind the last word of res_bv,
// whose bits it leaves as they are: the host must give res_bv seven readable
// and writable bytes behind its last word.
#pragma once

#include <utility>

#include "frame/dispatch_scheme.h"

namespace vorn {

// LenBits: 8 for ub1 run lengths, 16 for big-endian ub2.  Cla: positions and
// lengths come from the column's cumulative length array instead.
template <ub4 LenBits, bool Cla>
VORN_INTERNAL ub8 burst_rle(vorn_vec *res, vorn_vec *src, vorn_kernel_ctx *kctx);

constexpr ub4 burst_index(ub4 len_bits, bool cla) {
    const ub4 wf = len_bits == 8 ? (cla ? kBurst8Cla : kBurst8) : (cla ? kBurst16Cla : kBurst16);
    return dispatch_index(wf, VORN_ENC_SPECIAL, VORN_OP_BURST);
}

template <ub4 LenBits, bool Cla>
constexpr void put_burst_form(KernelTable &t) {
    t[burst_index(LenBits, Cla)].decode = &burst_rle<LenBits, Cla>;
}

constexpr void put_burst(KernelTable &t) {
    [&]<ub4... LenBits>(std::integer_sequence<ub4, LenBits...>) {
        ((put_burst_form<LenBits, false>(t), put_burst_form<LenBits, true>(t)), ...);
    }(std::integer_sequence<ub4, 8, 16>{});
}

}  // namespace vorn
