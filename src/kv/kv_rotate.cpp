// kv_rotate.cpp - a full primary bucket moves behind itself.  The primary
// bucket keeps its address, so rows of a batch that were routed to it before
// the move stay correct; the overflow bucket takes the 64 bytes unchanged,
// old link included, so the chain reads newest to oldest.
#include <emmintrin.h>

#include "frame/fail.h"
#include "kv/kv_entries.h"
#include "kv/kv_kinds.h"

namespace vorn::kv {
namespace {

// Asks for one overflow bucket; on refusal reports region 1 and the page.
VORN_INLINE ub8 new_overflow(vorn_kv *kv, ub8 *new_id, vorn_kv_grow_fn grow, ub8 *status) {
    vorn_kv_region &r1 = kv->regions[1];
    *new_id = 0;
    const ub8 code = grow(&r1, 1, new_id);
    if (code != 0) {
        status[0] = 1;
        status[1] = *new_id >> r1.page_bits;
    }
    return code;
}

VORN_INLINE ub1 *overflow_address(const vorn_kv *kv, ub8 id) {
    const vorn_kv_region &r1 = kv->regions[1];
    const ub8 in_page_mask = (ub8{1} << (r1.page_bits + kBucketShift)) - 1;
    return r1.pages[id >> r1.page_bits] + ((id << kBucketShift) & in_page_mask);
}

// Copies the bucket in four 16-byte pieces and clears it.
VORN_INLINE void move_bucket(ub1 *to, ub1 *from) {
    const __m128i zero = _mm_setzero_si128();
    for (ub4 k = 0; k < kBucketBytes; k += 16) {
        _mm_storeu_si128(reinterpret_cast<__m128i *>(to + k),
                         _mm_loadu_si128(reinterpret_cast<const __m128i *>(from + k)));
    }
    for (ub4 k = 0; k < kBucketBytes; k += 16) _mm_storeu_si128(reinterpret_cast<__m128i *>(from + k), zero);
}

}  // namespace
}  // namespace vorn::kv

extern "C" {

ub8 vorn_kv_rotate_idx(vorn_kv *kv, ub1 *bucket, ub4 count_bits, vorn_kv_grow_fn grow, ub8 *status) {
    using namespace vorn::kv;
    ub8 new_id;
    if (const ub8 code = new_overflow(kv, &new_id, grow, status)) return code;
    move_bucket(overflow_address(kv, new_id), bucket);
    const ub4 link = static_cast<ub4>((new_id + 1) << count_bits);
    VORN_ASSERT(link == ((new_id + 1) << count_bits), "vorn_kv_rotate_idx");
    vorn::store<ub4>(bucket, link + 1);
    return 0;
}

ub8 vorn_kv_rotate_ptr(vorn_kv *kv, ub1 *bucket, vorn_kv_grow_fn grow, ub8 *status) {
    using namespace vorn::kv;
    ub8 new_id;
    if (const ub8 code = new_overflow(kv, &new_id, grow, status)) return code;
    ub1 *moved = overflow_address(kv, new_id);
    move_bucket(moved, bucket);
    vorn::store<ub8>(bucket, reinterpret_cast<ub8>(moved));
    vorn::store<ub2>(bucket + 8, 1);
    return 0;
}

}  // extern "C"
