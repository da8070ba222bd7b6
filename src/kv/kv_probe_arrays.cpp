// kv_probe_arrays.cpp - probes of the array tables, addressed directly by a
// dense 32-bit key: arid4 and arid8 (a key to the list of its row ids) and
// acnt (a key to its number of occurrences), and the reader of arid8 lists.
//
// Keys run in blocks of 16: the element of each key is computed and its line
// prefetched, then the rows are treated in order.  A key above the mapped
// pages has no match.  When the output fills inside a row, the row stays
// and its position is kept in ctx: the rids already written of an arid4
// list or the acnt occurrences already written (byte_pos), the list
// reader's record of an arid8 chain (byte_pos: the chunk, payload_byte_pos:
// the rids of it already read).  Both are 0 between rows.  stats: matches,
// and the chunks of arid4 rings walked (an arid8 chain is walked by the
// list reader, which keeps no count).
//
// What a match is: one row id of the key's list; for acnt, one occurrence
// of the key, so that counts and outputs are those of the join.  Modes:
// arid4 and arid8 0, 1, 3, 7, 10 and 11; acnt 0, 1, 2, 6 and 7.
#include <algorithm>

#include "frame/fail.h"
#include "kv/kv_array_format.h"
#include "kv/kv_probe_call.h"
#include "kv/kv_probe_entries.h"

namespace vorn::kv {
namespace {

// ---- The list reader of arid8 -----------------------------------------------------
// Tags 1, 3, 5 hold 2, 3, 4 rids in the record's words 2, 3, 0, 1; tag 7
// holds the first two in words 2 and 3 and the rest in a chain of chunks,
// newest first, whose head is the record's word 0 less 1.
inline constexpr ub4 kListWordOrder[4] = {2, 3, 0, 1};
inline constexpr ub8 kListRoomNeeded = 4;

template <bool Out, bool Segbv>
sb8 read_list8(ub8 word, ub8 *out, ub8 room, vorn_kv_list_reader *ai, ub8 *bv, ub8 bv_base) {
    if (Out && room < kListRoomNeeded) return 0;
    const ub1 *rec = reinterpret_cast<const ub1 *>(word & ~ub8{7});
    ub8 n = 0;
    auto take = [&](ub8 rid) {
        if constexpr (Out) out[n] = rid;
        if constexpr (Segbv) {
            const ub8 bit = rid - bv_base;
            bv[bit >> 6] |= ub8{1} << (bit & 63);
        }
        ++n;
    };
    if ((word & 7) != 7) {
        VORN_ASSERT(ai->vorn_aux_stream2_current_pos == 0, "vorn_kv_list8_read");
        const ub4 count = static_cast<ub4>(((word & 7) >> 1) + 2);
        for (ub4 i = 0; i < count; ++i) take(load<ub8>(rec + 8 * kListWordOrder[i]));
        return static_cast<sb8>(n);
    }
    const ub1 *chunk;
    ub8 read;
    if (ai->vorn_aux_stream2_current_pos == 0) {
        take(load<ub8>(rec + 16));
        take(load<ub8>(rec + 24));
        chunk = reinterpret_cast<const ub1 *>(load<ub8>(rec) - 1);
        read = 0;
    } else {
        chunk = reinterpret_cast<const ub1 *>(ai->vorn_aux_stream2_current_pos);
        read = ai->vorn_aux_stream2_read;
    }
    for (;;) {
        const ub4 count = load<ub4>(chunk + 8);
        const ub1 *rids = chunk + kArid8ChunkHead;
        if constexpr (Out) {
            const ub8 k = std::min<ub8>(count - read, room - n);
            for (ub8 i = 0; i < k; ++i) take(load<ub8>(rids + 8 * (read + i)));
            read += k;
            if (read < count) {
                ai->vorn_aux_stream2_current_pos = reinterpret_cast<ub8>(chunk);
                ai->vorn_aux_stream2_read = read;
                return -static_cast<sb8>(room);
            }
        } else {
            for (; read < count; ++read) take(load<ub8>(rids + 8 * read));
        }
        const ub8 next = load<ub8>(chunk);
        if (next & kArid8ChainEnd) break;
        chunk = reinterpret_cast<const ub1 *>(next);
        read = 0;
    }
    ai->vorn_aux_stream2_current_pos = 0;
    ai->vorn_aux_stream2_read = 0;
    return static_cast<sb8>(n);
}

// Rids of an arid8 list word, by counts alone.
VORN_INLINE ub8 list8_length(ub8 word) {
    if ((word & 7) != 7) return ((word & 7) >> 1) + 2;
    ub8 n = 2;
    const ub1 *chunk = reinterpret_cast<const ub1 *>(load<ub8>(reinterpret_cast<const ub1 *>(word & ~ub8{7})) - 1);
    for (;;) {
        n += load<ub4>(chunk + 8);
        const ub8 next = load<ub8>(chunk);
        if (next & kArid8ChainEnd) return n;
        chunk = reinterpret_cast<const ub1 *>(next);
    }
}

// ---- What a mode does ------------------------------------------------------------
enum ArrayOp : ub1 {
    kEvery,           // 0: identity and value of every match
    kCount,           // 1: count matches
    kOccurrences,     // 2: identity and occurrences of each matched row (acnt)
    kValues,          // 3: values of every match
    kEveryNonmatch,   // 7: as kEvery, and clear the row's bit
    kCountNonmatch,   // 6: count matches, 1 for a row without one (acnt)
    kCountSegbv,      // 10: count, and set the value's bit
    kEverySegbv,      // 11: as kEvery, and set the value's bit
    kNoOp
};
constexpr bool op_counts(ArrayOp op) { return op == kCount || op == kCountNonmatch || op == kCountSegbv; }
constexpr bool op_rows(ArrayOp op) { return op == kEvery || op == kEveryNonmatch || op == kEverySegbv || op == kOccurrences; }
constexpr bool op_values(ArrayOp op) { return op == kEvery || op == kValues || op == kEveryNonmatch || op == kEverySegbv; }
constexpr bool op_segbv(ArrayOp op) { return op == kCountSegbv || op == kEverySegbv; }

ArrayOp array_op(ub4 mode, bool lists) {
    switch (mode) {
        case 0: return kEvery;
        case 1: return kCount;
        case 2: return lists ? kNoOp : kOccurrences;
        case 3: return lists ? kValues : kNoOp;
        case 6: return lists ? kNoOp : kCountNonmatch;
        case 7: return kEveryNonmatch;
        case 10: return lists ? kCountSegbv : kNoOp;
        case 11: return lists ? kEverySegbv : kNoOp;
        default: return kNoOp;
    }
}

// Where the probe keys and identities come from: ub4 keys (or 16-byte key
// records with the row id at byte 8), identities from the records, a
// payload array, or a base.
struct ArrayIo {
    const ub1 *keys;
    ub4 key_stride;
    bool rid_in_record;
    const ub8 *payload;
    ub8 base_rid;
    ub8 capacity;
    ub8 *rows_out;
    ub1 *values_out;
    ub8 *bv;
    ub8 bv_base;

    VORN_INLINE ub4 key(ub8 r) const { return load<ub4>(keys + r * key_stride); }
    VORN_INLINE ub8 identity(ub8 r) const {
        if (rid_in_record) return load<ub4>(keys + r * key_stride + 8);
        return payload != nullptr ? payload[r] : base_rid + r;
    }
};

VORN_INLINE void set_bit(ub8 *bv, ub8 bit) { bv[bit >> 6] |= ub8{1} << (bit & 63); }
VORN_INLINE void clear_bit(ub8 *bv, ub8 bit) { bv[bit >> 6] &= ~(ub8{1} << (bit & 63)); }

// The running state of a call: output position, stats.
struct ArrayRun {
    const ArrayIo &io;
    vorn_kernel_ctx *ctx;
    ub8 n;
    ub8 matches = 0, links = 0;

    // Takes up to the room's worth of `count` rids of Rid width for row r;
    // returns how many were taken.
    template <class Rid, ArrayOp Op>
    VORN_INLINE ub8 take(ub8 r, const ub1 *rids, ub8 count) {
        if constexpr (op_counts(Op)) {
            if constexpr (op_segbv(Op)) {
                for (ub8 i = 0; i < count; ++i) set_bit(io.bv, load<Rid>(rids + i * sizeof(Rid)) - io.bv_base);
            }
            n += count;
            matches += count;
            return count;
        } else {
            const ub8 k = std::min<ub8>(count, io.capacity - n);
            const ub8 id = io.identity(r);
            for (ub8 i = 0; i < k; ++i) {
                const Rid v = load<Rid>(rids + i * sizeof(Rid));
                if constexpr (op_values(Op)) store<Rid>(io.values_out + (n + i) * sizeof(Rid), v);
                if constexpr (op_rows(Op)) io.rows_out[n + i] = id;
                if constexpr (op_segbv(Op)) set_bit(io.bv, v - io.bv_base);
            }
            if constexpr (Op == kEveryNonmatch) {
                if (k != 0) clear_bit(io.bv, id - io.bv_base);
            }
            n += k;
            matches += k;
            return k;
        }
    }
};

// ---- arid4 ---------------------------------------------------------------------
struct Arid4Probe {
    static constexpr ub4 kPageBits = kArid4PageBits;
    static constexpr bool kLists = true;
    VORN_INLINE static const ub1 *element(const vorn_kv *kv, ub4 key) { return arid4_element(kv, key); }

    // The list as segments of rids: the record, then the ring from the
    // newest chunk; ctx->byte_pos rids of it are already written.
    template <ArrayOp Op>
    static bool list(ArrayRun &s, const vorn_kv *kv, const ub1 *elem, ub1 bit, ub4 w, ub8 r) {
        const ub1 *rec = array_unit(kv->regions[1], w, kArid4ListBytes);
        ub8 skip = s.ctx->byte_pos, pos = 0;
        auto segment = [&](const ub1 *rids, ub8 count) -> bool {
            if (skip >= count) {
                skip -= count;
                pos += count;
                return true;
            }
            const ub8 start = skip;
            skip = 0;
            const ub8 took = s.take<ub4, Op>(r, rids + 4 * start, count - start);
            pos += start + took;
            if (start + took == count) return true;
            s.ctx->byte_pos = pos;
            return false;
        };
        if (!(elem[1] & bit)) {
            if (!segment(rec + 1, rec[0])) return false;
        } else {
            if (!segment(rec + 1, 2)) return false;
            const ub1 *newest = reinterpret_cast<const ub1 *>(load<ub8>(rec + 9));
            const ub1 *c = newest;
            do {
                ++s.links;
                if (!segment(c + kArid4ChunkHead, load<ub2>(c))) return false;
                c = reinterpret_cast<const ub1 *>(load<ub8>(c + 4));
            } while (c != newest);
        }
        s.ctx->byte_pos = 0;
        return true;
    }

    // One row; false when the output filled before its list ended.
    template <ArrayOp Op>
    VORN_INLINE static bool row(ArrayRun &s, const vorn_kv *kv, const ub1 *elem, ub4 key, ub8 r) {
        if (elem == nullptr) return true;
        const ub1 bit = static_cast<ub1>(1u << (key & 7));
        const ub4 w = load<ub4>(elem + 2 + 4 * (key & 7));
        if (elem[0] & bit) return list<Op>(s, kv, elem, bit, w, r);
        if (w == 0) return true;
        const ub4 rid = w - 1;
        return s.take<ub4, Op>(r, reinterpret_cast<const ub1 *>(&rid), 1) == 1;
    }
};

// ---- arid8 ---------------------------------------------------------------------
struct Arid8Probe {
    static constexpr ub4 kPageBits = kArid8PageBits;
    static constexpr bool kLists = true;
    VORN_INLINE static const ub1 *element(const vorn_kv *kv, ub4 key) { return arid8_word(kv, key); }

    template <ArrayOp Op>
    static bool list(ArrayRun &s, ub8 w, ub8 r) {
        const ArrayIo &io = s.io;
        if constexpr (Op == kCount) {
            const ub8 k = list8_length(w);
            s.n += k;
            s.matches += k;
            return true;
        } else if constexpr (Op == kCountSegbv) {
            vorn_kv_list_reader ai{s.ctx->byte_pos, s.ctx->payload_byte_pos};
            const ub8 k = vorn_kv_list8_read_noridout_segbv(w, &ai, io.bv, io.bv_base);
            s.n += k;
            s.matches += k;
            return true;
        } else {
            vorn_kv_list_reader ai{s.ctx->byte_pos, s.ctx->payload_byte_pos};
            ub8 *out = reinterpret_cast<ub8 *>(io.values_out) + s.n;
            const ub8 room = io.capacity - s.n;
            const sb8 got = Op == kEverySegbv ? vorn_kv_list8_read_segbv(w, out, room, &ai, io.bv, io.bv_base)
                                              : vorn_kv_list8_read(w, out, room, &ai);
            if (got == 0) return false;
            const ub8 k = static_cast<ub8>(got < 0 ? -got : got);
            const ub8 id = io.identity(r);
            if constexpr (op_rows(Op)) {
                for (ub8 i = 0; i < k; ++i) io.rows_out[s.n + i] = id;
            }
            if constexpr (Op == kEveryNonmatch) clear_bit(io.bv, id - io.bv_base);
            s.n += k;
            s.matches += k;
            s.ctx->byte_pos = ai.vorn_aux_stream2_current_pos;
            s.ctx->payload_byte_pos = ai.vorn_aux_stream2_read;
            return got > 0;
        }
    }

    template <ArrayOp Op>
    VORN_INLINE static bool row(ArrayRun &s, const vorn_kv *, const ub1 *word, ub4, ub8 r) {
        if (word == nullptr) return true;
        const ub8 w = load<ub8>(word);
        if (w == 0) return true;
        if (w & 1) return list<Op>(s, w, r);
        const ub8 rid = (w >> 1) - 1;
        return s.take<ub8, Op>(r, reinterpret_cast<const ub1 *>(&rid), 1) == 1;
    }
};

// ---- acnt ----------------------------------------------------------------------
struct AcntProbe {
    static constexpr ub4 kPageBits = kAcntPageBits;
    static constexpr bool kLists = false;
    VORN_INLINE static const ub1 *element(const vorn_kv *kv, ub4 key) { return acnt_element(kv, key); }

    template <ArrayOp Op>
    VORN_INLINE static bool row(ArrayRun &s, const vorn_kv *kv, const ub1 *elem, ub4 key, ub8 r) {
        const ArrayIo &io = s.io;
        const ub4 bit = 1u << (key & 31);
        if (elem == nullptr || !(load<ub4>(elem) & bit)) {
            if constexpr (Op == kCountNonmatch) ++s.n;
            return true;
        }
        ub8 occurrences = 1;
        if (load<ub4>(elem + 4) & bit) {
            if (const ub1 *count = acnt_count(kv, key)) occurrences += load<ub8>(count);
        }
        if constexpr (op_counts(Op)) {
            s.n += occurrences;
            s.matches += occurrences;
            return true;
        } else if constexpr (Op == kOccurrences) {
            if (s.n + 1 > io.capacity) return false;
            io.rows_out[s.n] = io.identity(r);
            store<ub8>(io.values_out + s.n * 8, occurrences);
            ++s.n;
            s.matches += occurrences;
            return true;
        } else {
            // Every occurrence is a match: the identity as often as the key
            // was added, ctx->byte_pos of them already written.
            const ub8 done = s.ctx->byte_pos;
            const ub8 k = std::min<ub8>(occurrences - done, io.capacity - s.n);
            const ub8 id = io.identity(r);
            for (ub8 i = 0; i < k; ++i) io.rows_out[s.n + i] = id;
            if (Op == kEveryNonmatch && k != 0) clear_bit(io.bv, id - io.bv_base);
            s.n += k;
            s.matches += k;
            s.ctx->byte_pos = done + k == occurrences ? 0 : done + k;
            return done + k == occurrences;
        }
    }
};

// Rows *row_reached to rows - 1 in blocks of 16.  0, or 15 with
// *row_reached the row that did not finish.
template <class Table, ArrayOp Op>
ub8 probe_array_rows(const vorn_kv *kv, ub8 rows, const ArrayIo &io, ub8 *row_reached, ub8 *out_count,
                     vorn_kernel_ctx *ctx, ub8 *stats) {
    ArrayRun s{io, ctx, *out_count};
    const ub8 limit = ub8{kv->regions[0].mapped} << Table::kPageBits;
    ub8 row = *row_reached;
    ub8 code = 0;
    const ub1 *elem[kBatch];
    while (row < rows) {
        const ub4 m = static_cast<ub4>(std::min<ub8>(kBatch, rows - row));
        prefetch_read(io.keys + row * io.key_stride + kInputAhead);
        for (ub4 j = 0; j < m; ++j) {
            const ub4 key = io.key(row + j);
            elem[j] = key < limit ? Table::element(kv, key) : nullptr;
            if (elem[j] != nullptr) prefetch_read(elem[j]);
        }
        ub4 j = 0;
        for (; j < m; ++j) {
            if (!Table::template row<Op>(s, kv, elem[j], io.key(row + j), row + j)) break;
        }
        row += j;
        if (j < m) {
            code = 15;
            break;
        }
    }
    *row_reached = row;
    *out_count = s.n;
    stats[0] += s.matches;
    stats[1] += s.links;
    return code;
}

template <class Table>
ub8 run_op(ArrayOp op, const vorn_kv *kv, ub8 rows, const ArrayIo &io, ub8 *row_reached, ub8 *out_count,
           vorn_kernel_ctx *ctx, ub8 *stats) {
    switch (op) {
#define VORN_KV_ARRAY_OP(o) \
    case o: return probe_array_rows<Table, o>(kv, rows, io, row_reached, out_count, ctx, stats);
        VORN_KV_ARRAY_OP(kEvery)
        VORN_KV_ARRAY_OP(kCount)
        VORN_KV_ARRAY_OP(kEveryNonmatch)
#undef VORN_KV_ARRAY_OP
        default: break;
    }
    if constexpr (Table::kLists) {
        switch (op) {
            case kValues: return probe_array_rows<Table, kValues>(kv, rows, io, row_reached, out_count, ctx, stats);
            case kCountSegbv: return probe_array_rows<Table, kCountSegbv>(kv, rows, io, row_reached, out_count, ctx, stats);
            case kEverySegbv: return probe_array_rows<Table, kEverySegbv>(kv, rows, io, row_reached, out_count, ctx, stats);
            default: return 14;
        }
    } else {
        switch (op) {
            case kOccurrences: return probe_array_rows<Table, kOccurrences>(kv, rows, io, row_reached, out_count, ctx, stats);
            case kCountNonmatch: return probe_array_rows<Table, kCountNonmatch>(kv, rows, io, row_reached, out_count, ctx, stats);
            default: return 14;
        }
    }
}

// A probe of an array table: the mode (14), then the keys: ub4 keys of a
// VORN_KEY32 column, or for the list tables key records of kind 0x03
// (key at byte 0, row id at byte 8) standing for both keys and identities.
template <class Table>
ub8 probe_array(vorn_vec *rows_out, vorn_vec *values_out, vorn_vec *hash_vec, vorn_vec *rows, vorn_vec *key_vec,
                const vorn_kv *kv, ub4 mode, vorn_kernel_ctx *ctx, ub8 *stats) {
    const ArrayOp op = array_op(mode, Table::kLists);
    if (op == kNoOp) return 14;
    ProbeCall p{rows_out, values_out, hash_vec, rows, key_vec, kv, ctx, stats};
    ArrayIo io{};
    ub8 count;
    if (Table::kLists && key_kind(hash_vec) == 0x03) {
        io.keys = static_cast<const ub1 *>(hash_vec->data);
        io.key_stride = 16;
        io.rid_in_record = true;
        count = hash_vec->size;
    } else if (has_flag(key_vec, VORN_KEY32)) {
        io.keys = static_cast<const ub1 *>(key_vec->data);
        io.key_stride = 4;
        io.payload = p.payload(0);
        io.base_rid = p.base_rid(0);
        count = key_vec->size;
    } else {
        return 2;
    }
    io.capacity = p.capacity();
    io.rows_out = p.rows_data();
    io.values_out = static_cast<ub1 *>(p.values_data());
    io.bv = p.bv();
    io.bv_base = p.bv_base();
    ub8 row = ctx->row_pos;
    if (row >= count) return p.finish(0);
    const ub8 code = run_op<Table>(op, kv, count, io, &row, &p.written, ctx, stats);
    ctx->row_pos = static_cast<ub4>(row);
    return p.finish(code);
}

}  // namespace
}  // namespace vorn::kv

extern "C" {

using namespace vorn::kv;

sb8 vorn_kv_list8_read(ub8 word, ub8 *out, ub8 room, vorn_kv_list_reader *ai) {
    return read_list8<true, false>(word, out, room, ai, nullptr, 0);
}
sb8 vorn_kv_list8_read_segbv(ub8 word, ub8 *out, ub8 room, vorn_kv_list_reader *ai, ub8 *bv, ub8 bv_base) {
    return read_list8<true, true>(word, out, room, ai, bv, bv_base);
}
ub8 vorn_kv_list8_read_noridout_segbv(ub8 word, vorn_kv_list_reader *ai, ub8 *bv, ub8 bv_base) {
    return static_cast<ub8>(read_list8<false, true>(word, nullptr, 0, ai, bv, bv_base));
}

VORN_KV_PROBE_ENTRY_SIGNATURE(vorn_kv_probe_k4v4_gd_array_arid4) {
    return probe_array<Arid4Probe>(rows_out, values_out, hash_vec, rows, key_vec, kv, mode, ctx, stats);
}
VORN_KV_PROBE_ENTRY_SIGNATURE(vorn_kv_probe_k4v8_gd_array_arid8) {
    return probe_array<Arid8Probe>(rows_out, values_out, hash_vec, rows, key_vec, kv, mode, ctx, stats);
}
VORN_KV_PROBE_ENTRY_SIGNATURE(vorn_kv_probe_k4_gd_array_acnt) {
    return probe_array<AcntProbe>(rows_out, values_out, hash_vec, rows, key_vec, kv, mode, ctx, stats);
}

}  // extern "C"
