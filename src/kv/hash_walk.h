// hash_walk.h - the row loops of vorn_hash_dydi.  A walk hands out each
// row's value (address and length) in row order; a loop calls the host's
// hash on it.  Every layout has two loops, one with the single seed held in
// a register and one reading a seed per row, so neither tests anything per
// row but the loop bound.
#pragma once

#include "frame/base.h"
#include "frame/packed_read.h"
#include "predicate/value_layouts.h"

namespace vorn::hash {

using layout::Value;

struct Seeds {
    const ub1 *values;  // ub8 per row, or the one seed of every row
    bool single;
};

// ---- Walks over stored values --------------------------------------------------

struct FixedWalk {
    const ub1 *p;
    ub8 width;
    explicit FixedWalk(const vorn_vec *v)
        : p(layout::bytes_of(v->data)), width(v->enc_ctx->bit_width >> 3) {}
    VORN_INLINE Value next(ub8 row) const { return {p + row * width, width}; }
};

// ---- Dictionary columns: a code per row, then its symbol -----------------------

template <ub4 W>
struct PackedCodes {
    const ub1 *stream;
    explicit PackedCodes(const vorn_vec *v) : stream(layout::bytes_of(v->data)) {}
    VORN_INLINE ub8 code(ub8 row) const { return read_code<W>(stream, row); }
};

struct ArrayCodes {
    const ub1 *codes;
    explicit ArrayCodes(const vorn_vec *v) : codes(layout::bytes_of(v->data)) {}
    VORN_INLINE ub8 code(ub8 row) const { return load<ub4>(codes + 4 * row); }
};

// sym_layout 0: every symbol has the length at sym_header.
struct FixedSymbols {
    const ub1 *base;
    ub8 length;
    explicit FixedSymbols(const vorn_enc_ctx *e)
        : base(layout::bytes_of(e->sym_base)), length(load_be16(e->sym_header)) {}
    VORN_INLINE Value symbol(ub8 code) const { return {base + code * length, length}; }
};

// Any other sym_layout: big-endian offsets, one behind the last symbol; a
// length is taken modulo 65536.
struct OffsetSymbols {
    const ub1 *base;
    const ub1 *offsets;
    explicit OffsetSymbols(const vorn_enc_ctx *e)
        : base(layout::bytes_of(e->sym_base)), offsets(layout::bytes_of(e->sym_offsets)) {}
    VORN_INLINE Value symbol(ub8 code) const {
        const ub4 start = load_be32(offsets + 4 * code);
        const ub4 end = load_be32(offsets + 4 * code + 4);
        return {base + start, static_cast<ub8>((end - start) & 0xffffu)};
    }
};

template <class Codes, class Symbols>
struct DictWalk {
    Codes codes;
    Symbols symbols;
    explicit DictWalk(const vorn_vec *v) : codes(v), symbols(v->enc_ctx) {}
    VORN_INLINE Value next(ub8 row) const { return symbols.symbol(codes.code(row)); }
};

// ---- The loops -------------------------------------------------------------------

template <class Walk>
VORN_NOINLINE void hash_rows(ub8 *out, const vorn_vec *src, Seeds seeds, vorn_hash_fn fn) {
    Walk walk(src);
    const ub8 n = src->size;
    if (seeds.single) {
        const ub8 seed = load<ub8>(seeds.values);
        for (ub8 i = 0; i < n; ++i) {
            const Value v = walk.next(i);
            store<ub8>(out + i, fn(v.p, v.len, seed));
        }
    } else {
        for (ub8 i = 0; i < n; ++i) {
            const Value v = walk.next(i);
            store<ub8>(out + i, fn(v.p, v.len, load<ub8>(seeds.values + 8 * i)));
        }
    }
}

// The dictionary walk of a column, by its sym_layout.
template <class Codes>
VORN_INLINE void hash_dictionary(ub8 *out, const vorn_vec *src, Seeds seeds, vorn_hash_fn fn) {
    if (src->enc_ctx->sym_layout == 0) {
        hash_rows<DictWalk<Codes, FixedSymbols>>(out, src, seeds, fn);
    } else {
        hash_rows<DictWalk<Codes, OffsetSymbols>>(out, src, seeds, fn);
    }
}

// Packed codes of every width; defined in hash_packed.cpp.
void hash_packed(ub8 *out, const vorn_vec *src, Seeds seeds, vorn_hash_fn fn);

}  // namespace vorn::hash
