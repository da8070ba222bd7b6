// selective.cpp - vorn_selective_dydi: the selected rows of a column copied
// into a result column, until the result is full, resumably.
//
// The layout is the first of VORN_LEN_PTR, VORN_PTR_LEN, VORN_LV,
// VORN_LV_SEP, VORN_FIXED that both src and res have; otherwise 2.
//
// Limits: res.size rows on entry, and for VORN_LV and VORN_LV_SEP
// res.byte_capacity bytes of values at res.data (a VORN_LV row takes its
// length + 2, a VORN_LV_SEP row its length; its ub2 length goes to
// res.data2 and is bounded by the row limit).
//
// Selection: without ones_vec, the rows of bv_aux from row kctx.row_pos to
// the end of src (a null bv_aux selects every row); with ones_vec, its
// entries from number row_pos to ones_vec_size, and row_pos counts entries.
//
// A selected row that does not fit stops the call with 23: row_pos is left
// at that row (or entry), byte_pos at its byte offset in src.data for the
// walked layouts, res.size at the rows copied and, for the walked layouts,
// res.byte_capacity at the bytes copied.  A call that finishes sets the
// same fields and returns 0.  With a list the row limit is min(res.size,
// entries left), and the result is 23 exactly when that is below the
// entries left; a list stop leaves the walk at the next entry's row, so
// that byte_pos is that row's offset.
//
// VORN_LV and VORN_LV_SEP have no random access: the walk moves from the
// row it last reached to the next listed row, so a list must ascend.  On
// resumption a nonzero byte_pos places the walk at ones_vec[row_pos], a zero
// one at row 0.  An entry below the walk's row is raised to the host; if the
// host returns, the walk stays and copies the row it stands at.
#include "frame/entries.h"
#include "frame/fail.h"
#include "predicate/value_layouts.h"

namespace vorn {
namespace {

constexpr ub8 kOutputFull = 23;
constexpr const char kDecreasing[] =
    "vorn_selective found decreasing indices in ones_vec with LV or LV_SEP input";

VORN_INLINE ub1 *out_bytes(void *p) { return static_cast<ub1 *>(p); }

// ---- Random-access layouts: copy row `row` of src to slot k of res. -----------

struct LenPtrCopy {
    const ub1 *src;
    ub1 *dst;
    LenPtrCopy(const vorn_vec *s, vorn_vec *r) : src(layout::bytes_of(s->data)), dst(out_bytes(r->data)) {}
    VORN_INLINE void operator()(ub8 row, ub8 k) const {
        std::memcpy(dst + k * layout::LenPtr::kRowBytes, src + row * layout::LenPtr::kRowBytes,
                    layout::LenPtr::kRowBytes);
    }
};

struct PtrLenCopy {
    const ub1 *ptrs, *lens;
    ub1 *dst_ptrs, *dst_lens;
    PtrLenCopy(const vorn_vec *s, vorn_vec *r)
        : ptrs(layout::bytes_of(s->data)), lens(layout::bytes_of(s->data2)),
          dst_ptrs(out_bytes(r->data)), dst_lens(out_bytes(r->data2)) {}
    VORN_INLINE void operator()(ub8 row, ub8 k) const {
        store<ub8>(dst_ptrs + 8 * k, load<ub8>(ptrs + 8 * row));
        store<ub2>(dst_lens + 2 * k, load<ub2>(lens + 2 * row));
    }
};

struct FixedCopy {
    const ub1 *src;
    ub1 *dst;
    ub8 size;
    FixedCopy(const vorn_vec *s, vorn_vec *r)
        : src(layout::bytes_of(s->data)), dst(out_bytes(r->data)), size(s->enc_ctx->bit_width >> 3) {}
    VORN_INLINE void operator()(ub8 row, ub8 k) const { std::memcpy(dst + k * size, src + row * size, size); }
};

template <class Copy>
ub8 copy_random_access(vorn_vec *res, const vorn_vec *src, vorn_kernel_ctx *kctx) {
    const Copy copy(src, res);
    const ub4 limit = res->size;
    ub4 copied = 0;
    if (const ub4 *list = kctx->ones_vec) {
        const ub4 first = kctx->row_pos, total = kctx->ones_vec_size;
        const ub4 left = total > first ? total - first : 0;
        const ub4 rows = limit < left ? limit : left;
        for (; copied < rows; ++copied) copy(list[first + copied], copied);
        kctx->row_pos = first + rows;
        res->size = rows;
        return rows < left ? kOutputFull : 0;
    }
    const ub4 n = src->size;
    if (!kctx->bv_aux) {  // every row
        for (ub4 row = kctx->row_pos; row < n; ++row, ++copied) {
            if (copied == limit) {
                kctx->row_pos = row;
                res->size = copied;
                return kOutputFull;
            }
            copy(row, copied);
        }
    } else {
        vorn_bv_iter it;
        vorn_lbiwv_ictx_ini2_dydi(&it, kctx->bv_aux, n, 0, kctx->row_pos);
        ub4 rows[64];
        for (;;) {
            const ub4 got = vorn_lbiwvones_dydi(&it, rows, 64);
            for (ub4 k = 0; k < got; ++k, ++copied) {
                if (copied == limit) {
                    kctx->row_pos = rows[k];
                    res->size = copied;
                    return kOutputFull;
                }
                copy(rows[k], copied);
            }
            if (got < 64) break;
        }
    }
    if (kctx->row_pos < n) kctx->row_pos = n;
    res->size = copied;
    return 0;
}

// ---- Walked layouts: a cursor at (row, offset) that copies what it stands at. ----

struct LvWalk {
    const ub1 *data;
    ub1 *dst;
    ub4 row;
    ub8 offset;
    LvWalk(const vorn_vec *s, vorn_vec *r, ub4 at_row, ub8 at_offset)
        : data(layout::bytes_of(s->data)), dst(out_bytes(r->data)), row(at_row), offset(at_offset) {}
    VORN_INLINE ub8 need() const { return ub8{load<ub2>(data + offset)} + 2; }
    VORN_INLINE void step() {
        offset += need();
        ++row;
    }
    VORN_INLINE void copy(ub8, ub8 at) const { std::memcpy(dst + at, data + offset, need()); }
};

struct LvSepWalk {
    const ub1 *data, *lens;
    ub1 *dst, *dst_lens;
    ub4 row;
    ub8 offset;
    LvSepWalk(const vorn_vec *s, vorn_vec *r, ub4 at_row, ub8 at_offset)
        : data(layout::bytes_of(s->data)), lens(layout::bytes_of(s->data2)), dst(out_bytes(r->data)),
          dst_lens(out_bytes(r->data2)), row(at_row), offset(at_offset) {}
    VORN_INLINE ub8 need() const { return load<ub2>(lens + ub8{2} * row); }
    VORN_INLINE void step() {
        offset += need();
        ++row;
    }
    VORN_INLINE void copy(ub8 k, ub8 at) const {
        const ub8 len = need();
        store<ub2>(dst_lens + 2 * k, static_cast<ub2>(len));
        std::memcpy(dst + at, data + offset, len);
    }
};

// Moves the walk forward to `target`; a target behind it is raised.
template <class Walk>
VORN_INLINE void walk_to(Walk &w, ub4 target, const vorn_kernel_ctx *kctx) {
    if (VORN_UNLIKELY(target < w.row)) {
        raise_internal(kctx->host, kDecreasing);
        return;
    }
    while (w.row < target) w.step();
}

VORN_INLINE ub8 stop_walk(vorn_vec *res, vorn_kernel_ctx *kctx, ub8 offset, ub4 position, ub4 copied, ub8 bytes,
                          ub8 code) {
    kctx->row_pos = position;
    kctx->byte_pos = offset;
    res->size = copied;
    res->byte_capacity = bytes;
    return code;
}

// The offset at which a list's stop leaves byte_pos: that of the entry's row,
// where the next call puts its walk.  The walk stands there unless the entry
// went back (the host was told); then the row is found from the start.
template <class Walk>
ub8 offset_of_entry(const Walk &w, const vorn_vec *src, vorn_vec *res, ub4 row) {
    if (VORN_LIKELY(row == w.row)) return w.offset;
    Walk from_start(src, res, 0, 0);
    while (from_start.row < row) from_start.step();
    return from_start.offset;
}

template <class Walk>
ub8 copy_walked(vorn_vec *res, const vorn_vec *src, vorn_kernel_ctx *kctx) {
    const ub4 limit = res->size;
    const ub8 capacity = res->byte_capacity;
    ub4 copied = 0;
    ub8 bytes = 0;
    if (const ub4 *list = kctx->ones_vec) {
        ub4 entry = kctx->row_pos;
        const ub4 total = kctx->ones_vec_size;
        const ub4 left = total > entry ? total - entry : 0;
        const ub4 rows = limit < left ? limit : left;
        if (rows == 0) {  // no room, or nothing left: at once
            res->size = 0;
            res->byte_capacity = 0;
            return left ? kOutputFull : 0;
        }
        Walk w = kctx->byte_pos ? Walk(src, res, list[entry], kctx->byte_pos) : Walk(src, res, 0, 0);
        for (; copied < rows; ++copied, ++entry) {
            walk_to(w, list[entry], kctx);
            const ub8 need = w.need();
            if (bytes + need > capacity)
                return stop_walk(res, kctx, offset_of_entry(w, src, res, list[entry]), entry, copied, bytes,
                                       kOutputFull);
            w.copy(copied, bytes);
            bytes += need;
        }
        if (rows < left) {
            walk_to(w, list[entry], kctx);
            return stop_walk(res, kctx, offset_of_entry(w, src, res, list[entry]), entry, copied, bytes,
                                   kOutputFull);
        }
        return stop_walk(res, kctx, w.offset, entry, copied, bytes, 0);
    }
    const ub8 *selected = kctx->bv_aux;
    const ub4 n = src->size;
    Walk w(src, res, kctx->row_pos, kctx->byte_pos);
    for (; w.row < n; w.step()) {
        if (selected && !((selected[w.row >> 6] >> (w.row & 63)) & 1)) continue;
        const ub8 need = w.need();
        if (copied == limit || bytes + need > capacity)
            return stop_walk(res, kctx, w.offset, w.row, copied, bytes, kOutputFull);
        w.copy(copied, bytes);
        bytes += need;
        ++copied;
    }
    return stop_walk(res, kctx, w.offset, w.row, copied, bytes, 0);
}

}  // namespace
}  // namespace vorn

extern "C" ub8 vorn_selective_dydi(vorn_vec *res, vorn_vec *src, vorn_kernel_ctx *kctx) {
    using namespace vorn;
    const vorn_enc_ctx *es = src->enc_ctx, *er = res->enc_ctx;
    if (!er) return 2;
    const auto both = [&](ub4 flag) { return VORN_ENC_CTX_FLAG(es, flag) && VORN_ENC_CTX_FLAG(er, flag); };
    if (both(VORN_LEN_PTR)) return copy_random_access<LenPtrCopy>(res, src, kctx);
    if (both(VORN_PTR_LEN)) return copy_random_access<PtrLenCopy>(res, src, kctx);
    if (both(VORN_LV)) return copy_walked<LvWalk>(res, src, kctx);
    if (both(VORN_LV_SEP)) return copy_walked<LvSepWalk>(res, src, kctx);
    if (both(VORN_FIXED)) return copy_random_access<FixedCopy>(res, src, kctx);
    return 2;
}
