// value_layouts.h - reading the rows of the variable-length value layouts.
//
//   VORN_LV_SEP   values end to end at data, their ub2 lengths at data2;
//   VORN_LV       each value behind its ub2 length, end to end at data;
//   VORN_PTR_LEN  ub8 addresses at data, ub2 lengths at data2;
//   VORN_LEN_PTR  ten-byte rows at data: a ub2 length, an unaligned ub8 address.
//
// The first two are walked: a row's place follows from the lengths before
// it.  The pointer layouts are random access.  Lengths and addresses are in
// the machine's order.
#pragma once

#include "frame/base.h"

namespace vorn::layout {

struct Value {
    const ub1 *p;
    ub8 len;
};

VORN_INLINE const ub1 *bytes_of(const void *p) { return static_cast<const ub1 *>(p); }

// Cursors: next(row) gives row `row` and moves on; rows come in order.
struct LvSep {
    static constexpr bool kPointers = false;
    const ub1 *p, *lens;
    explicit LvSep(const vorn_vec *v) : p(bytes_of(v->data)), lens(bytes_of(v->data2)) {}
    VORN_INLINE Value next(ub8 row) {
        const Value v{p, load<ub2>(lens + 2 * row)};
        p += v.len;
        return v;
    }
};

struct Lv {
    static constexpr bool kPointers = false;
    const ub1 *p;
    explicit Lv(const vorn_vec *v) : p(bytes_of(v->data)) {}
    VORN_INLINE Value next(ub8) {
        const Value v{p + 2, load<ub2>(p)};
        p += v.len + 2;
        return v;
    }
};

// VORN_LV where values may be read eight bytes past their end
// (VORN_SHORT_VALUES): each row's length is read ahead, addressed from the
// row before it.  The walk's one serial step is then a load, not a load and
// an add; the last row's look-ahead reads two bytes behind the stream.
struct LvAhead {
    static constexpr bool kPointers = false;
    const ub1 *p;
    ub8 len;  // the length at p
    explicit LvAhead(const vorn_vec *v) : p(bytes_of(v->data)), len(v->size ? load<ub2>(p) : 0) {}
    VORN_INLINE Value next(ub8) {
        const Value v{p + 2, len};
        len = load<ub2>(p + v.len + 2);
        // Keeps the compiler from loading through the advanced pointer,
        // which would put the add back in the serial step.
        const ub1 *q = p;
        asm("" : "+r"(q));
        p = q + v.len + 2;
        return v;
    }
};

struct PtrLen {
    static constexpr bool kPointers = true;
    const ub1 *ptrs, *lens;
    explicit PtrLen(const vorn_vec *v) : ptrs(bytes_of(v->data)), lens(bytes_of(v->data2)) {}
    VORN_INLINE const ub1 *target(ub8 row) const {
        return reinterpret_cast<const ub1 *>(load<ub8>(ptrs + 8 * row));
    }
    VORN_INLINE Value next(ub8 row) const { return {target(row), load<ub2>(lens + 2 * row)}; }
};

struct LenPtr {
    static constexpr bool kPointers = true;
    static constexpr ub8 kRowBytes = 10;
    const ub1 *rows;
    explicit LenPtr(const vorn_vec *v) : rows(bytes_of(v->data)) {}
    VORN_INLINE const ub1 *target(ub8 row) const {
        return reinterpret_cast<const ub1 *>(load<ub8>(rows + kRowBytes * row + 2));
    }
    VORN_INLINE Value next(ub8 row) const { return {target(row), load<ub2>(rows + kRowBytes * row)}; }
};

}  // namespace vorn::layout
