// fast_copy.h - the library's one copy of variable-length bytes.  Partition
// payloads, gathered values and transposed rows are mostly short (a key, a
// string of a few dozen bytes), where a call to memcpy costs more than the
// copy.  This routine moves them with at most two overlapping loads and
// stores per size class and a 16-byte loop for the long ones.
#pragma once

#include <emmintrin.h>

#include "frame/base.h"

namespace vorn {

// Copies n bytes from src to dst; the ranges must not overlap.  Reads and
// writes exactly the n bytes: no slack is needed on either side.
VORN_INLINE void fast_copy(void *dst, const void *src, ub8 n) {
    auto *d = static_cast<ub1 *>(dst);
    const auto *s = static_cast<const ub1 *>(src);
    if (VORN_LIKELY(n <= 16)) {
        if (n >= 8) {  // 8..16: two overlapping words
            store<ub8>(d, load<ub8>(s));
            store<ub8>(d + n - 8, load<ub8>(s + n - 8));
        } else if (n >= 4) {
            store<ub4>(d, load<ub4>(s));
            store<ub4>(d + n - 4, load<ub4>(s + n - 4));
        } else if (n >= 2) {
            store<ub2>(d, load<ub2>(s));
            store<ub2>(d + n - 2, load<ub2>(s + n - 2));
        } else if (n == 1) {
            *d = *s;
        }
        return;
    }
    if (n <= 32) {  // 17..32: two overlapping vectors
        __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i *>(s));
        __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i *>(s + n - 16));
        _mm_storeu_si128(reinterpret_cast<__m128i *>(d), a);
        _mm_storeu_si128(reinterpret_cast<__m128i *>(d + n - 16), b);
        return;
    }
    // Longer: the last vector is loaded first so that the loop may end on a
    // whole vector and the tail overlaps what the loop wrote.
    __m128i last = _mm_loadu_si128(reinterpret_cast<const __m128i *>(s + n - 16));
    ub8 i = 0;
    for (; i + 32 <= n; i += 32) {
        __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i *>(s + i));
        __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i *>(s + i + 16));
        _mm_storeu_si128(reinterpret_cast<__m128i *>(d + i), a);
        _mm_storeu_si128(reinterpret_cast<__m128i *>(d + i + 16), b);
    }
    if (i + 16 <= n) {
        _mm_storeu_si128(reinterpret_cast<__m128i *>(d + i),
                         _mm_loadu_si128(reinterpret_cast<const __m128i *>(s + i)));
    }
    _mm_storeu_si128(reinterpret_cast<__m128i *>(d + n - 16), last);
}

}  // namespace vorn
