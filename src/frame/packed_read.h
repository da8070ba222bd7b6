// packed_read.h - the reference read of one code from a packed stream: the
// library's single definition of how a code is read.
//
// Code i of width w occupies bits i*w .. i*w+w-1 of one big-endian bit
// string.  Take b = i*w, load four bytes at b >> 3 as a big-endian number,
// shift left by b & 7 and right by 32 - w.  This touches up to three bytes
// past the first byte of the last code.  Widths 8, 16, 32 and 64 fall on
// whole bytes and read exactly their bytes; 24 reads four and drops one.
#pragma once

#include <type_traits>

#include "frame/base.h"

namespace vorn {

template <ub4 W>
using CodeOf = std::conditional_t<(W > 32), ub8, ub4>;

// The code that starts at bit position `bitpos`.
template <ub4 W>
VORN_INLINE CodeOf<W> read_code_at(const ub1 *stream, ub8 bitpos) {
    static_assert(W >= 1 && W <= 64);
    if constexpr (W == 8) {
        return stream[bitpos >> 3];
    } else if constexpr (W == 16) {
        return load_be16(stream + (bitpos >> 3));
    } else if constexpr (W == 24) {
        return load_be32(stream + (bitpos >> 3)) >> 8;
    } else if constexpr (W == 32) {
        return load_be32(stream + (bitpos >> 3));
    } else if constexpr (W == 64) {
        return load_be64(stream + (bitpos >> 3));
    } else {
        static_assert(W <= 25, "the four-byte read holds codes up to 25 bits");
        return (load_be32(stream + (bitpos >> 3)) << (bitpos & 7)) >> (32 - W);
    }
}

// The code of row `row`.
template <ub4 W>
VORN_INLINE CodeOf<W> read_code(const ub1 *stream, ub8 row) {
    return read_code_at<W>(stream, row * W);
}

}  // namespace vorn
