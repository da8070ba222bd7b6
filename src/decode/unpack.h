// unpack.h - the body of vorn_decode_unpack_dict_<w>bit, included by the
// translation units that instantiate it (unpack_w*.cpp).
//
// Codes are written as native integers, zero-extended, one element a row
// produced; no dictionary is read.  Element E by width and by
// VORN_CTX_UNPACK_UB4 in ctx.flags: widths 1-8 ub1 (ub4 with the flag),
// 9-16 ub2 (ub4 with the flag), 17-20, 24 and 32 always ub4.
//
// Paths, in the order they are chosen:
//   VORN_RLE           the run-length walk below;
//   bv_aux, SELECTIVE  row numbers from the word iterator, 256 a batch,
//                      each code by the reference read;
//   bv_aux             a dense scan from row_pos that tests the bits: rows
//                      one at a time up to a multiple of lcm(w, 8), then
//                      blocks of 64 rows (8w bytes) whose bv_aux word
//                      selects the codes to keep, compacted by
//                      vorn_unpack_sel4x32_masks; the blocks stop 64 elements
//                      before the end of the output, so none overflows;
//                      then row by row;
//   ones_vec           the listed rows, all of them;
//   otherwise          rows from row_pos, at most res.size: lead-in, blocks,
//                      tail as above, without the selection.
// row_pos is left at the next row to take.  With the iterator, when the
// selection ran out it is src.size.  After ones_vec it is the last entry + 1
// (0 for none).
//
// Run-length columns (data holds one code per run) keep their place between
// calls in byte_pos as two ub4: the current run and the row at which it
// ends.  A row_pos or run end of 0 starts before run 0; so does a row_pos
// before the start of the recorded run, so a caller that rewinds row_pos
// without clearing byte_pos still gets the right rows.
//   bv_aux             selected rows from row_pos, batches of
//                      min(res.size, 256); each run's code is read once,
//                      however many of its rows a batch holds;
//   ones_vec           the listed rows, walked alike, at most res.size a
//                      call: a call goes on at the first entry at or after
//                      row_pos (0 for a new list) and leaves row_pos at the
//                      last row taken + 1; once the list is done a call
//                      writes nothing and returns 1.  An empty list is the
//                      caller's error and is raised;
//   otherwise          a contiguous stretch of min(src.size - row_pos,
//                      res.size) rows: the codes of the runs it touches are
//                      unpacked into the end of the stretch's output by the
//                      kernel itself, called on a view of the column as a
//                      plain stream of run codes, and expanded in place from
//                      the front (rle_expand.h).  The first run gets its rows
//                      from row_pos on; the trim leaves the stretch's last
//                      element unwritten, since it already holds the last
//                      run's code.
// In-place expansion needs every run inside the stretch to have a row: a
// stretch that holds a run of length 0 between its first and last run is
// walked row by row instead, as the listed rows are.
//
// Widths 17 to 20, 24 and 32 take ub4 elements and the same walk: the run
// codes unpacked by the kernel's own call on the view, then the in-place ub4
// expansion.
#pragma once

#include <nmmintrin.h>

#include <algorithm>
#include <array>

#include "decode/packed_lanes.h"
#include "decode/rle_expand.h"
#include "decode/run_walk.h"
#include "decode/unpack_entries.h"
#include "frame/decompress.h"
#include "frame/entries.h"
#include "frame/fail.h"
#include "frame/packed_read.h"

extern "C" {
// Row m: the byte shuffle that moves the 32-bit lanes whose bits are set in
// m (four bits) to the front, in order, and zeroes the rest.
VORN_INTERNAL extern const std::array<ub1, 256> vorn_unpack_sel4x32_masks;
}

namespace vorn::unpack {

constexpr std::array<ub1, 256> build_sel4x32_masks() {
    std::array<ub1, 256> t{};
    for (ub4 m = 0; m < 16; ++m) {
        ub4 to = 0;
        for (ub4 lane = 0; lane < 4; ++lane)
            if (m >> lane & 1) {
                for (ub4 b = 0; b < 4; ++b) t[16 * m + 4 * to + b] = static_cast<ub1>(4 * lane + b);
                ++to;
            }
        for (ub4 p = 4 * to; p < 16; ++p) t[16 * m + p] = 0x80;
    }
    return t;
}

template <class E>
VORN_INLINE void store_vec(E *out, __m128i v) {
    _mm_storeu_si128(reinterpret_cast<__m128i *>(out), v);
}

// Keeps the lanes of four 32-bit codes that m selects, at the front, and
// writes them as E at out.  Up to four elements are stored whatever m
// holds; the caller moves on by the count.
template <class E>
VORN_INLINE void store_compacted(E *out, __m128i v, ub4 m) {
    const __m128i c = _mm_shuffle_epi8(
        v, _mm_load_si128(reinterpret_cast<const __m128i *>(vorn_unpack_sel4x32_masks.data() + 16 * m)));
    if constexpr (sizeof(E) == 4) {
        store_vec(out, c);
    } else if constexpr (sizeof(E) == 2) {
        _mm_storel_epi64(reinterpret_cast<__m128i *>(out), _mm_packus_epi32(c, c));
    } else {
        const __m128i w = _mm_packus_epi32(c, c);
        store<ub4>(out, static_cast<ub4>(_mm_cvtsi128_si32(_mm_packus_epi16(w, w))));
    }
}

// Rows of a plain (not run-length) stream of width W into elements E.
template <ub4 W, class E>
struct Rows {
    using L = lanes::Layout<W>;
    static constexpr ub4 kGroups = 64 / L::kLanes;
    static constexpr ub4 kSpan = L::template kSpanRows<64>;
    static_assert(sizeof(E) != 1 || L::kLaneBits == 16, "widths of ub1 elements fit 16-bit lanes");

    static VORN_INLINE E read(const ub1 *stream, ub8 row) { return static_cast<E>(read_code<W>(stream, row)); }

    static VORN_INLINE void prefetch(const ub1 *bytes, const E *out) {
        _mm_prefetch(reinterpret_cast<const char *>(bytes + 640), _MM_HINT_T0);
        _mm_prefetch(reinterpret_cast<const char *>(bytes + 704), _MM_HINT_T0);
        _mm_prefetch(reinterpret_cast<const char *>(out) + 640, _MM_HINT_T0);
        _mm_prefetch(reinterpret_cast<const char *>(out) + 704, _MM_HINT_T0);
    }

    // The 64 codes of the block at `bytes`, all of them.
    static VORN_INLINE void block(const ub1 *bytes, E *out) {
        prefetch(bytes, out);
        __m128i pending = _mm_setzero_si128();
        lanes::static_for<kGroups>([&](auto g) {
            constexpr ub4 gi = decltype(g)::value;
            const __m128i v = L::template extract<gi>(bytes);
            if constexpr (L::kLaneBits == 16) {
                if constexpr (sizeof(E) == 1) {
                    if constexpr (gi % 2 == 0)
                        pending = v;
                    else
                        store_vec(out + 8 * (gi - 1), _mm_packus_epi16(pending, v));
                } else if constexpr (sizeof(E) == 2) {
                    store_vec(out + 8 * gi, v);
                } else {
                    store_vec(out + 8 * gi, lanes::widen_low(v));
                    store_vec(out + 8 * gi + 4, lanes::widen_high(v));
                }
            } else {
                if constexpr (sizeof(E) == 2) {
                    if constexpr (gi % 2 == 0)
                        pending = v;
                    else
                        store_vec(out + 4 * (gi - 1), _mm_packus_epi32(pending, v));
                } else {
                    store_vec(out + 4 * gi, v);
                }
            }
        });
    }

    // The codes of the block at `bytes` whose bit is set in sel; returns
    // their count.  Writes at most 64 elements from out; a group of rows
    // with no bit set is not unpacked.
    static VORN_INLINE ub4 block_selected(const ub1 *bytes, ub8 sel, E *out) {
        prefetch(bytes, out);
        ub4 n = 0;
        lanes::static_for<kGroups>([&](auto g) {
            constexpr ub4 gi = decltype(g)::value;
            constexpr ub8 kGroupMask = (ub8{1} << L::kLanes) - 1;
            const ub4 bits = static_cast<ub4>((sel >> (gi * L::kLanes)) & kGroupMask);
            if (bits == 0) return;
            const __m128i v = L::template extract<gi>(bytes);
            if constexpr (L::kLaneBits == 16) {
                store_compacted(out + n, lanes::widen_low(v), bits & 15);
                n += static_cast<ub4>(__builtin_popcount(bits & 15));
                store_compacted(out + n, lanes::widen_high(v), bits >> 4);
                n += static_cast<ub4>(__builtin_popcount(bits >> 4));
            } else {
                store_compacted(out + n, v, bits);
                n += static_cast<ub4>(__builtin_popcount(bits));
            }
        });
        return n;
    }

    // Rows [row, row + n) into out; stream_rows is the number of codes the
    // stream holds, which bounds the blocks' loads.  Returns out + n.
    static E *plain(const ub1 *stream, ub8 row, ub8 n, ub8 stream_rows, E *out) {
        const ub8 end = row + n;
        const ub8 lead = end < lanes::round_up(row, L::kAlignRows) ? end : lanes::round_up(row, L::kAlignRows);
        for (; row < lead; ++row) *out++ = read(stream, row);
        for (; row + 64 <= end && row + kSpan <= stream_rows; row += 64, out += 64)
            block(stream + row * W / 8, out);
        for (; row < end; ++row) *out++ = read(stream, row);
        return out;
    }

    // From *row to end, the rows whose bit is set in aux, until `room`
    // elements are written; *row is left at the next row not taken.
    static ub4 dense_selected(const ub1 *stream, const ub8 *aux, ub4 *row_io, ub4 end, E *out, ub4 room) {
        ub8 row = *row_io;
        ub4 n = 0;
        const ub8 lead = end < lanes::round_up(row, L::kAlignRows) ? end : lanes::round_up(row, L::kAlignRows);
        for (; row < lead && n < room; ++row)
            if ((aux[row >> 6] >> (row & 63)) & 1) out[n++] = read(stream, row);
        const ub1 *aux_bytes = reinterpret_cast<const ub1 *>(aux);
        for (; row + 64 <= end && row + kSpan <= end && room - n >= 64; row += 64) {
            const ub8 sel = load<ub8>(aux_bytes + row / 8);
            if (sel != 0) n += block_selected(stream + row * W / 8, sel, out + n);
        }
        for (; row < end && n < room; ++row)
            if ((aux[row >> 6] >> (row & 63)) & 1) out[n++] = read(stream, row);
        *row_io = static_cast<ub4>(row);
        return n;
    }

    // The rows that the word iterator yields from *row on, in batches of up
    // to 256, until `room` elements are written or the selection runs out.
    static ub4 iterated(const ub1 *stream, const ub8 *aux, ub4 size, ub4 *row_io, E *out, ub4 room) {
        vorn_bv_iter it;
        vorn_lbiwv_ictx_ini2_dydi(&it, aux, size, 0, *row_io);
        ub4 rows[256];
        ub4 n = 0;
        while (n < room) {
            const ub4 want = room - n < 256 ? room - n : 256;
            const ub4 got = vorn_lbiwvones_dydi(&it, rows, want);
            for (ub4 j = 0; j < got; ++j) {
                if (j + 10 < got)
                    _mm_prefetch(reinterpret_cast<const char *>(stream + static_cast<ub8>(rows[j + 10]) * W / 8),
                                 _MM_HINT_T0);
                out[n + j] = read(stream, rows[j]);
            }
            n += got;
            if (got != 0) *row_io = rows[got - 1] + 1;
            if (got < want) {
                *row_io = size;
                break;
            }
        }
        return n;
    }

    static void listed(const ub1 *stream, const ub4 *rows, ub4 count, E *out) {
        for (ub4 j = 0; j < count; ++j) out[j] = read(stream, rows[j]);
    }
};

// ---- Run-length columns --------------------------------------------------------

// The codes of runs [first, first + n) as if they were rows: the kernel on a
// view whose encoding context is a zeroed record (no VORN_RLE, no VORN_LOMP)
// and whose data is the stream already obtained.  `flags` keeps the element
// size of the caller.
template <ub4 W>
VORN_NOINLINE void unpack_runs_as_rows(const ub1 *stream, ub4 first, ub4 n, ub4 stream_runs, void *out, ub2 flags) {
    const vorn_enc_ctx plain{};
    vorn_vec src{}, res{};
    src.enc_ctx = &plain;
    src.data = const_cast<ub1 *>(stream);
    src.size = stream_runs;
    res.data = out;
    res.size = n;
    vorn_kernel_ctx view{};
    view.flags = flags & VORN_CTX_UNPACK_UB4;
    view.row_pos = first;
    decode_unpack_dict<W>(&res, &src, &view);
}

// Where a walk that starts at first_row picks up: the run in byte_pos, or
// before run 0 for a fresh context or a row before that run.
template <ub4 LenBytes>
VORN_INLINE runs::RunCursor resume(const vorn_kernel_ctx *k, const ub1 *lens, ub8 first_row) {
    const runs::RunCursor c = {static_cast<ub4>(k->byte_pos), static_cast<ub4>(k->byte_pos >> 32)};
    if (k->row_pos == 0 || c.end == 0) return runs::kBeforeFirstRun;
    if (first_row < c.end - runs::length<LenBytes>(lens, c.run)) return runs::kBeforeFirstRun;
    return c;
}

// byte_pos as two ub4, in this order: the run, its end.
VORN_INLINE void keep(vorn_kernel_ctx *k, runs::RunCursor c) {
    k->byte_pos = static_cast<ub8>(c.run) | static_cast<ub8>(static_cast<ub4>(c.end)) << 32;
}

template <class E, ub4 LenBytes>
constexpr auto expansion() {
    if constexpr (LenBytes == 1)
        return sizeof(E) == 1 ? &vorn_rle8_expand_ub1 : sizeof(E) == 2 ? &vorn_rle8_expand_ub2 : &vorn_rle8_expand_ub4;
    else
        return sizeof(E) == 1 ? &vorn_rle16_expand_ub1
               : sizeof(E) == 2 ? &vorn_rle16_expand_ub2
                                : &vorn_rle16_expand_ub4;
}

template <ub4 W, class E, ub4 LenBytes>
struct Runs {
    using Walk = runs::RunWalk<W, E, LenBytes>;

    static ub4 selected(const ub1 *stream, const vorn_vec *src, vorn_kernel_ctx *k, E *out, ub4 room) {
        const ub1 *lens = static_cast<const ub1 *>(src->enc_ctx->rle_lens);
        const ub4 size = src->size;
        Walk walk{stream, lens, resume<LenBytes>(k, lens, k->row_pos)};
        vorn_bv_iter it;
        vorn_lbiwv_ictx_ini2_dydi(&it, k->bv_aux, size, 0, k->row_pos);
        ub4 rows[256];
        ub4 n = 0;
        while (n < room) {
            const ub4 want = room - n < 256 ? room - n : 256;
            const ub4 got = vorn_lbiwvones_dydi(&it, rows, want);
            for (ub4 j = 0; j < got; ++j) out[n + j] = walk.at(rows[j]);
            n += got;
            if (got != 0) k->row_pos = rows[got - 1] + 1;
            if (got < want) {
                k->row_pos = size;
                break;
            }
        }
        keep(k, walk.c);
        return n;
    }

    // The listed rows from the first entry at or after row_pos, until
    // `room` elements are written or the list ends.  The list is strictly
    // ascending, so row_pos (the last row taken + 1) marks the place in it;
    // the search is a bisection, and byte_pos gives the run to go on from.
    static ub4 listed(const ub1 *stream, const vorn_vec *src, vorn_kernel_ctx *k, E *out, ub4 room) {
        const ub1 *lens = static_cast<const ub1 *>(src->enc_ctx->rle_lens);
        const ub4 *rows = k->ones_vec;
        const ub4 count = k->ones_vec_size;
        const ub4 from = static_cast<ub4>(std::lower_bound(rows, rows + count, k->row_pos) - rows);
        const ub4 left = count - from;
        const ub4 n = left < room ? left : room;
        if (n == 0) return 0;
        Walk walk{stream, lens, resume<LenBytes>(k, lens, rows[from])};
        for (ub4 j = 0; j < n; ++j) out[j] = walk.at(rows[from + j]);
        k->row_pos = rows[from + n - 1] + 1;
        keep(k, walk.c);
        return n;
    }

    static ub4 stretch(const ub1 *stream, const vorn_vec *src, vorn_kernel_ctx *k, E *out, ub4 room) {
        const ub1 *lens = static_cast<const ub1 *>(src->enc_ctx->rle_lens);
        const ub4 from = k->row_pos, size = src->size;
        const ub4 rows = from >= size ? 0 : size - from < room ? size - from : room;
        if (rows == 0) return 0;
        runs::RunCursor c = resume<LenBytes>(k, lens, from);
        while (c.end <= from) c.end += runs::length<LenBytes>(lens, ++c.run);
        const runs::RunCursor first = c;
        const ub8 last_row = static_cast<ub8>(from) + rows - 1;
        bool empty_inside = false;
        while (c.end <= last_row) {
            const ub4 len = runs::length<LenBytes>(lens, ++c.run);
            empty_inside |= len == 0;
            c.end += len;
        }
        if (VORN_UNLIKELY(empty_inside)) {
            Walk walk{stream, lens, first};
            for (ub4 j = 0; j < rows; ++j) out[j] = walk.at(from + j);
        } else {
            // The run codes go to the end of the stretch's output: the
            // kernel calls itself on a view of the column as a plain stream
            // of runs 0..last, from the first run, with room for the runs.
            // The views are copies on the stack, so the caller's records are
            // never rewritten.  Then each code is spread over its rows from
            // the front.
            const ub4 nruns = c.run - first.run + 1;
            E *codes = out + (rows - nruns);
            unpack_runs_as_rows<W>(stream, first.run, nruns, c.run + 1, codes, k->flags);
            vorn_vec to{}, from_codes{};
            to.data = out;
            from_codes.data = codes;
            from_codes.size = nruns;
            expansion<E, LenBytes>()(&to, &from_codes, lens + static_cast<ub8>(first.run) * LenBytes,
                                     static_cast<ub4>(first.end - from), static_cast<ub4>(c.end - last_row));
        }
        k->row_pos = from + rows;
        keep(k, c);
        return rows;
    }
};

// One kernel's work for element E; returns the elements written.
template <ub4 W, class E>
ub4 unpack_rows(vorn_vec *res, vorn_vec *src, vorn_kernel_ctx *k, const ub1 *stream, const char *empty_ones_vec) {
    E *out = static_cast<E *>(res->data);
    const ub4 room = res->size, size = src->size;
    const vorn_enc_ctx *enc = src->enc_ctx;
    if (VORN_ENC_CTX_FLAG(enc, VORN_RLE)) {
        if (k->bv_aux)
            return runs::wide_lengths(enc) ? Runs<W, E, 2>::selected(stream, src, k, out, room)
                                           : Runs<W, E, 1>::selected(stream, src, k, out, room);
        if (k->ones_vec) {
            if (k->ones_vec_size == 0) {
                raise_internal(k->host, empty_ones_vec);
                k->row_pos = 0;
                return 0;
            }
            return runs::wide_lengths(enc) ? Runs<W, E, 2>::listed(stream, src, k, out, room)
                                           : Runs<W, E, 1>::listed(stream, src, k, out, room);
        }
        return runs::wide_lengths(enc) ? Runs<W, E, 2>::stretch(stream, src, k, out, room)
                                       : Runs<W, E, 1>::stretch(stream, src, k, out, room);
    }
    if (k->bv_aux) {
        if (k->flags & VORN_CTX_SELECTIVE) return Rows<W, E>::iterated(stream, k->bv_aux, size, &k->row_pos, out, room);
        return Rows<W, E>::dense_selected(stream, k->bv_aux, &k->row_pos, size, out, room);
    }
    if (k->ones_vec) {
        const ub4 count = k->ones_vec_size;
        Rows<W, E>::listed(stream, k->ones_vec, count, out);
        k->row_pos = count == 0 ? 0 : k->ones_vec[count - 1] + 1;
        return count;
    }
    const ub4 from = k->row_pos;
    const ub4 rows = from >= size ? 0 : size - from < room ? size - from : room;
    Rows<W, E>::plain(stream, from, rows, size, out);
    k->row_pos = from + rows;
    return rows;
}

}  // namespace vorn::unpack

namespace vorn {

template <ub4 W>
ub8 decode_unpack_dict(vorn_vec *res, vorn_vec *src, vorn_kernel_ctx *kctx) {
    using Text = KernelText<kernel_name<unpack_index(W)>()>;
    const ub1 *stream = column_stream<Text>(src, kctx);
    const char *empty = Text::rle_ones_vec_zero.s;
    ub4 n;
    if constexpr (W > 16)
        n = unpack::unpack_rows<W, ub4>(res, src, kctx, stream, empty);
    else if (kctx->flags & VORN_CTX_UNPACK_UB4)
        n = unpack::unpack_rows<W, ub4>(res, src, kctx, stream, empty);
    else
        n = unpack::unpack_rows<W, std::conditional_t<(W <= 8), ub1, ub2>>(res, src, kctx, stream, empty);
    kctx->done_flags |= VORN_DONE_UNPACK_SEL;
    res->num_ones = n;
    return n == 0 ? 1 : 0;
}

}  // namespace vorn

#define VORN_INSTANTIATE_UNPACK(W) \
    template ub8 vorn::decode_unpack_dict<W>(vorn_vec *, vorn_vec *, vorn_kernel_ctx *);
