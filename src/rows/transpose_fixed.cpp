// transpose_fixed.cpp - vorn_transpose_fixed_dydi: one column into rows of
// fixed stride.
//
// Row i of src goes to data_cursors[block] + col_offsets[col] + i *
// row_stride, col_lens[col] bytes.  All rows of src are written; the kernel
// moves no cursor, since the columns of a batch share its rows (the host
// moves data_cursors[block] when a batch's columns are all in).  ctx is not
// read.  Only a store record whose flags hold VORN_STORE_FIXED is served.
//
// The loops, by what src is and the column's length l:
//   VORN_CODE_ARRAY with VORN_CODE_VALUES, l = 4   vorn_transpose_fixed_gd:
//       each native ub4 code indexes enc_ctx->code_values, ub4 values;
//   the same with l = 8                            vorn_transpose_fixed_unpacked_dict,
//       ub8 values;
//   otherwise VORN_FIXED, else 2; l = 1, 2, 4, 8   vorn_transpose_fixed_fixed_<l>:
//       16-byte loads scattered element by element;
//   any other l                                    vorn_transpose_fixed_fixed:
//       l bytes per row.
// Values are copied as they lie: a fixed column keeps its byte order.
#include <smmintrin.h>

#include <utility>

#include "frame/entries.h"
#include "frame/fail.h"
#include "rows/gather_loops.h"
#include "rows/transpose_rows.h"

namespace vorn::rows {
namespace {

// Where the loops write, and the check they all begin with: a block below 0
// is a programming error of the caller.
struct Target {
    ub1 *dst;
    ub8 stride;
    Target(const vorn_transpose_spec *spec, ub4 col, sb4 block, const char *loop) {
        if (VORN_UNLIKELY(block < 0)) assert_fail("FALSE", __LINE__, loop);
        dst = spec->data_cursors[block] + spec->col_offsets[col];
        stride = spec->row_stride;
    }
};

constexpr const char *fixed_loop_name(ub8 width) {
    switch (width) {
        case 1: return "vorn_transpose_fixed_fixed_1";
        case 2: return "vorn_transpose_fixed_fixed_2";
        case 4: return "vorn_transpose_fixed_fixed_4";
        case 8: return "vorn_transpose_fixed_fixed_8";
    }
    return "vorn_transpose_fixed_fixed";
}

// The offsets of the rows that one 64-bit word of the source fills: k *
// stride for its elements k.  They are made opaque to the compiler, which
// would otherwise turn the stores of a word into a chain of dependent
// pointer additions, one per element: the stores then go no faster than
// that chain.
template <class T>
struct WordOffsets {
    static constexpr ub8 kPerWord = 8 / sizeof(T);
    ub8 at[kPerWord];
    explicit WordOffsets(ub8 stride) {
        for (ub8 k = 0; k < kPerWord; ++k) {
            at[k] = k * stride;
            asm("" : "+r"(at[k]));
        }
    }
};

// Stores the elements of a 64-bit word at their rows.
template <class T, std::size_t... k>
VORN_INLINE void scatter_word(ub8 word, ub1 *dst, const WordOffsets<T> &offsets, std::index_sequence<k...>) {
    (store<T>(dst + offsets.at[k], static_cast<T>(word >> (8 * sizeof(T) * k))), ...);
}

// Elements of sizeof(T) bytes: one at a time up to the source's 16-byte
// boundary, then 16 bytes per load, two loads per step, each element stored
// at its stride; the tail one at a time.
template <class T>
VORN_NOINLINE ub8 scatter_fixed(const vorn_transpose_spec *spec, const vorn_vec *src, ub4 col, sb4 block) {
    constexpr ub8 kPerWord = 8 / sizeof(T);
    constexpr ub8 kPerVector = 2 * kPerWord;
    const Target t(spec, col, block, fixed_loop_name(sizeof(T)));
    const ub1 *s = bytes_of(src->data);
    ub1 *d = t.dst;
    const ub8 stride = t.stride, n = src->size;
    ub8 i = 0;
    ub8 head = ((16 - (reinterpret_cast<std::uintptr_t>(s) & 15)) & 15) / sizeof(T);
    if (head > n) head = n;
    for (; i < head; ++i) store<T>(d + i * stride, load<T>(s + i * sizeof(T)));
    constexpr auto kWord = std::make_index_sequence<kPerWord>();
    const WordOffsets<T> offsets(stride);
    ub8 word_step = kPerWord * stride;
    asm("" : "+r"(word_step));
    ub1 *o = d + i * stride;
    for (; i + 2 * kPerVector <= n; i += 2 * kPerVector, o += 4 * word_step) {
        const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i *>(s + i * sizeof(T)));
        const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i *>(s + i * sizeof(T) + 16));
        scatter_word<T>(static_cast<ub8>(_mm_cvtsi128_si64(a)), o, offsets, kWord);
        scatter_word<T>(static_cast<ub8>(_mm_extract_epi64(a, 1)), o + word_step, offsets, kWord);
        scatter_word<T>(static_cast<ub8>(_mm_cvtsi128_si64(b)), o + 2 * word_step, offsets, kWord);
        scatter_word<T>(static_cast<ub8>(_mm_extract_epi64(b, 1)), o + 3 * word_step, offsets, kWord);
    }
    if (i + kPerVector <= n) {
        const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i *>(s + i * sizeof(T)));
        scatter_word<T>(static_cast<ub8>(_mm_cvtsi128_si64(a)), o, offsets, kWord);
        scatter_word<T>(static_cast<ub8>(_mm_extract_epi64(a, 1)), o + word_step, offsets, kWord);
        i += kPerVector;
    }
    for (; i < n; ++i) store<T>(d + i * stride, load<T>(s + i * sizeof(T)));
    return 0;
}

// Any other length: l bytes per row.
VORN_NOINLINE ub8 copy_fixed(const vorn_transpose_spec *spec, const vorn_vec *src, ub4 col, sb4 block, ub8 len) {
    const Target t(spec, col, block, fixed_loop_name(0));
    const ub1 *s = bytes_of(src->data);
    write_rows(t.dst, t.stride, src->size, [&](ub1 *row, ub8 i) { fast_copy(row, s + i * len, len); });
    return 0;
}

// Codes through the column's table of values: ub4 values for the global
// dictionary, ub8 for an unpacked one.
template <class T>
VORN_NOINLINE ub8 dictionary_values(const vorn_transpose_spec *spec, const vorn_vec *src, ub4 col, sb4 block) {
    const Target t(spec, col, block,
                   sizeof(T) == 4 ? "vorn_transpose_fixed_gd" : "vorn_transpose_fixed_unpacked_dict");
    const ub4 *codes = static_cast<const ub4 *>(src->data);
    const T *values = static_cast<const T *>(src->enc_ctx->code_values);
    write_rows(t.dst, t.stride, src->size, [&](ub1 *row, ub8 i) { store<T>(row, values[codes[i]]); });
    return 0;
}

}  // namespace
}  // namespace vorn::rows

extern "C" ub8 vorn_transpose_fixed_dydi(const vorn_transpose_spec *spec, vorn_vec *src, ub4 col, sb4 block,
                                         vorn_kernel_ctx *) {
    using namespace vorn::rows;
    const ub4 flags = transposed_flags(spec, src, VORN_STORE_FIXED);
    if (flags == 0) return kNotServed;
    const ub8 len = spec->col_lens[col];
    if ((flags & VORN_CODE_ARRAY) && (flags & VORN_CODE_VALUES)) {
        if (len == 4) return dictionary_values<ub4>(spec, src, col, block);
        if (len == 8) return dictionary_values<ub8>(spec, src, col, block);
    }
    if (!(flags & VORN_FIXED)) return kNotServed;
    switch (len) {
        case 1: return scatter_fixed<ub1>(spec, src, col, block);
        case 2: return scatter_fixed<ub2>(spec, src, col, block);
        case 4: return scatter_fixed<ub4>(spec, src, col, block);
        case 8: return scatter_fixed<ub8>(spec, src, col, block);
    }
    return copy_fixed(spec, src, col, block, len);
}
