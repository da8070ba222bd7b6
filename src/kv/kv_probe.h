// kv_probe.h - the probe loop of the bucket tables, one template over the
// kind, the way of linking, the key source and the op.  Every low-level
// probe member and every inline probe loop is an instance of probe_rows.
//
// A probe row goes to its primary bucket and walks the chain, comparing its
// key with the bucket's keys.  Output room is tested once per bucket: a
// bucket needs room for all its entries.  When the room runs out, the row,
// the output count and the links walked in that row (ctx->byte_pos) are
// kept; the next call walks that many links without comparing and goes on
// with the bucket that was not yet compared, so nothing is written twice.
//
// A bucket's keys are compared into a mask of matching entries without a
// branch on the outcome.  The first match is stored without a branch too:
// to the output position when there is one, to a sink on the stack when
// there is none, the position then moving on by the match flag.  So a row
// without a match writes nothing to the output.
#pragma once

#include <nmmintrin.h>

#include <cstdint>

#include "kv/kv_bucket_add.h"

// Lambdas of the row loop are inlined whatever their size.
#define VORN_LAMBDA_INLINE __attribute__((always_inline))

namespace vorn::kv {

// ---- Ops ------------------------------------------------------------------------
// The ops of the family by name; what an op does is read from its name.
inline constexpr const char *kProbeOpNames[] = {
    "payload",        "autorid",        "count",
    "distinct_payload", "distinct_autorid", "count_distinct",
    "payload_nonmatch", "autorid_nonmatch", "count_nonmatch",
    "payload_value",  "autorid_value",  "value",
    "distinct_payload_value", "distinct_autorid_value",
    "payload_value_nonmatch", "autorid_value_nonmatch",
    "payload_value_segbv", "autorid_value_segbv", "count_segbv",
    "payload_value_mutkv", "autorid_value_mutkv", "count_mutkv",
};
inline constexpr ub4 kProbeOps = sizeof kProbeOpNames / sizeof kProbeOpNames[0];

constexpr bool name_has(const char *name, const char *part) {
    for (const char *s = name; *s != 0; ++s) {
        const char *a = s;
        const char *b = part;
        while (*b != 0 && *a == *b) ++a, ++b;
        if (*b == 0) return true;
    }
    return false;
}
constexpr ub4 probe_op(const char *name) {
    for (ub4 i = 0; i < kProbeOps; ++i) {
        const char *a = kProbeOpNames[i];
        const char *b = name;
        while (*a != 0 && *a == *b) ++a, ++b;
        if (*a == *b) return i;
    }
    return kProbeOps;
}

enum Ident : ub1 { kNoIdent, kIdentPayload, kIdentAutorid };

struct ProbeOp {
    Ident ident;          // the probe row's identity is written (or used for a bit)
    bool value;           // the entry's value is written
    bool count;           // no output arrays: matches are counted
    bool distinct;        // the first match ends the chain
    bool nonmatch;        // clear the row's bit (count_nonmatch: count a row without match)
    bool segbv;           // set the value's bit
    bool mutkv;           // mark the entry matched in its bucket
};

constexpr ProbeOp probe_op_traits(ub4 op) {
    const char *n = kProbeOpNames[op];
    ProbeOp t{};
    t.ident = name_has(n, "payload") ? kIdentPayload : name_has(n, "autorid") ? kIdentAutorid : kNoIdent;
    t.count = name_has(n, "count");
    t.value = !t.count && name_has(n, "value");
    t.distinct = name_has(n, "distinct");
    t.nonmatch = name_has(n, "nonmatch");
    t.segbv = name_has(n, "segbv");
    t.mutkv = name_has(n, "mutkv");
    return t;
}

// ---- Keys of the probe rows ----------------------------------------------------------
// Tags made from the hash (hash64value, hash32value), or slots of the kind's
// key bytes in an array (fixed keys, staged keys, ub4 codes).
enum ProbeKey : ub1 { kProbeTag, kProbeSlot };

// Key equality by width, in the pieces the slot form allows.
template <ub4 KeyBytes>
VORN_INLINE bool key_equal(const ub1 *a, const ub1 *b) {
    if constexpr (KeyBytes == 2) return load<ub2>(a) == load<ub2>(b);
    if constexpr (KeyBytes == 4) return load<ub4>(a) == load<ub4>(b);
    if constexpr (KeyBytes == 6) return (load<ub4>(a) == load<ub4>(b)) & (load<ub2>(a + 4) == load<ub2>(b + 4));
    if constexpr (KeyBytes == 8) return load<ub8>(a) == load<ub8>(b);
    if constexpr (KeyBytes == 10) return (load<ub8>(a) == load<ub8>(b)) & (load<ub2>(a + 8) == load<ub2>(b + 8));
    if constexpr (KeyBytes == 12) return (load<ub8>(a) == load<ub8>(b)) & (load<ub4>(a + 8) == load<ub4>(b + 8));
}

// The next bucket of a chain, or null at its end.
template <ub4 Kind, Link L>
VORN_INLINE const ub1 *next_bucket(const vorn_kv *kv, const ub1 *b) {
    if constexpr (L == kPtr) {
        return reinterpret_cast<const ub1 *>(load<ub8>(b));
    } else {
        const ub8 link = load<ub4>(b) >> kBucketKinds[Kind].count_bits;
        if (link == 0) return nullptr;
        const vorn_kv_region &r1 = kv->regions[1];
        const ub8 id = link - 1;
        return r1.pages[id >> r1.page_bits] + ((id << kBucketShift) & ((ub8{1} << (r1.page_bits + kBucketShift)) - 1));
    }
}

// The entries of a bucket that hold the row's key, as a mask with bit e for
// entry e: every slot is compared, without a branch on the outcome, and
// the mask then cut to the bucket's count (tags compare every slot, since
// an empty slot is 0 and never matches).  Half the probe rows of a join
// find nothing, so a branch per compare would go the wrong way about as
// often as not.  4-byte keys compare four at a time: 16-byte loads from
// the first key on, the last one moved back so it ends at the bucket's
// end, its lanes counted from the key it starts at.
template <ub4 Kind, Link L>
struct BucketMatch {
    static constexpr BucketKind D = kBucketKinds[Kind];
    static constexpr ub4 E = D.entries[L];
    static constexpr ub4 KB = D.key_bytes;
    static constexpr ub4 kAll = (1u << E) - 1;
    static constexpr bool kWide = KB == 4;

    __m128i wide_key;
    ub1 key[16];

    VORN_INLINE explicit BucketMatch(const ub1 *row_key) {
        std::memcpy(key, row_key, 16);
        wide_key = _mm_set1_epi32(static_cast<int>(load<ub4>(key)));
    }

    static constexpr ub4 load_at(ub4 i) {
        const ub4 at = D.key_base[L] + 16 * i;
        return at + 16 > kBucketBytes ? kBucketBytes - 16 : at;
    }
    template <ub4 I>
    VORN_INLINE ub4 wide_lanes(const ub1 *b) const {
        constexpr ub4 at = load_at(I);
        static_assert((at - D.key_base[L]) % 4 == 0, "lanes fall on keys");
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i *>(b + at));
        const ub4 m = static_cast<ub4>(_mm_movemask_ps(_mm_castsi128_ps(_mm_cmpeq_epi32(v, wide_key))));
        ub4 rest = 0;
        if constexpr (16 * (I + 1) < 4 * E) rest = wide_lanes<I + 1>(b);
        return (m << ((at - D.key_base[L]) / 4)) | rest;
    }
    template <ub4 I>
    VORN_INLINE ub4 narrow_lanes(const ub1 *b) const {
        ub4 m = static_cast<ub4>(key_equal<KB>(key, b + D.key_offset(L, I))) << I;
        if constexpr (I + 1 < E) m |= narrow_lanes<I + 1>(b);
        return m;
    }
    // Entries below `count` holding the key.
    VORN_INLINE ub4 operator()(const ub1 *b, ub4 count) const {
        const ub4 all = kWide ? wide_lanes<0>(b) : narrow_lanes<0>(b);
        return all & kAll & ((1u << count) - 1);
    }
};

// `out` where `keep` is all ones, `sink` where it is zero, by arithmetic on
// the addresses rather than a conditional, which the compiler may make a
// branch.
template <class T>
VORN_INLINE T *masked_choice(T *out, T *sink, std::uintptr_t keep) {
    const auto s = reinterpret_cast<std::uintptr_t>(sink);
    return reinterpret_cast<T *>(s ^ ((s ^ reinterpret_cast<std::uintptr_t>(out)) & keep));
}

// What a member reads and writes; arrays not used by an op may be null.
struct ProbeIo {
    const void *hashes;   // ub8, or ub4 for 32-bit tags
    const ub1 *keys;      // slots of the kind's key bytes; unused for tags
    const ub8 *payload;   // identities of kIdentPayload
    ub8 base_rid;         // identity of row 0 for kIdentAutorid
    ub8 capacity;         // output rows
    ub8 *rows_out;        // identities
    void *values_out;     // values of the kind's width
    ub8 *bv;              // nonmatch: by identity; segbv: by value
    ub8 bv_base;
};

// Batches whose bucket lines are in flight ahead of the batch being probed,
// and how far ahead the first links of a batch are read (from lines asked
// for kProbeBatchesAhead - kProbeLinksAhead batches earlier).  Once the
// compare is branch-free a batch takes well under a memory latency, so two
// batches ahead left lines arriving late; three and one measured best,
// four or six ahead no better (the core's misses in flight are the limit).
inline constexpr ub4 kProbeBatchesAhead = 3;
inline constexpr ub4 kProbeLinksAhead = 1;
static_assert(kProbeLinksAhead < kProbeBatchesAhead, "links are read from lines already asked for");

// Rows *row_reached to rows - 1.  Returns 0, or 15 when the output is full
// with *row_reached the row that did not finish.  *out_count is the output
// position (the total of a count op).
template <ub4 Kind, Link L, bool Prefetch, bool Hash32, ProbeKey Key, ub4 OpId>
ub8 probe_rows(const vorn_kv *kv, ub8 rows, const ProbeIo &io_arg, ub8 *row_reached, ub8 *out_count,
               vorn_kernel_ctx *ctx, ub8 *stats) {
    constexpr BucketKind D = kBucketKinds[Kind];
    constexpr ProbeOp O = probe_op_traits(OpId);
    constexpr ub4 E = D.entries[L];
    constexpr ub4 KB = D.key_bytes;
    constexpr ub4 VB = D.value_bytes;
    static_assert(!O.mutkv || L == kPtr, "matched flags live in ptr buckets");
    static_assert(!(O.value || O.segbv || O.mutkv) || VB != 0, "the op reads values");
    static_assert(!(Prefetch && L == kIdx), "idx chains are not prefetched");

    // A local copy: the output stores cannot alias it, so the capacity and
    // the array addresses stay in registers.
    const ProbeIo io = io_arg;
    const BucketAddress address(kv, nullptr);
    ub8 row = *row_reached;
    ub8 n = *out_count;
    // Where the first match of a row without one is stored.
    struct {
        ub8 row;
        alignas(8) ub1 value[8];
    } sink;
    ub8 skip = ctx->byte_pos;
    ub8 matches = 0, links = 0;

    auto hash_of = [&](ub8 r) VORN_LAMBDA_INLINE -> ub8 {
        return Hash32 ? load<ub4>(static_cast<const ub4 *>(io.hashes) + r) : load<ub8>(static_cast<const ub8 *>(io.hashes) + r);
    };
    auto identity = [&](ub8 r) VORN_LAMBDA_INLINE -> ub8 {
        if constexpr (O.ident == kIdentPayload) return io.payload[r];
        return io.base_rid + r;
    };
    auto value_at = [&](const ub1 *b, ub4 e) VORN_LAMBDA_INLINE -> ub8 {
        if constexpr (VB == 4) return load<ub4>(b + D.value_offset(L, e));
        else if constexpr (VB == 8) return load<ub8>(b + D.value_offset(L, e));
        else return 0;
    };

    // One row; false when the output filled before its chain ended.  It is
    // forced inline: as a call, the output position, the totals and the
    // skip count would go through memory on every row, and each row's
    // stores would have to be forwarded to the next row's loads.
    auto probe_row = [&](ub8 r, const ub1 *b) VORN_LAMBDA_INLINE -> bool {
        const ub8 h = hash_of(r);
        ub1 key[16] = {};
        if constexpr (Key == kProbeTag) store_low<KB>(key, hash_tag<KB, Hash32>(h));
        else std::memcpy(key, io.keys + r * KB, KB);
        const BucketMatch<Kind, L> match(key);
        ub8 depth = 0;
        if (skip != 0) {
            for (; depth < skip; ++depth) b = next_bucket<Kind, L>(kv, b);
            skip = 0;
            ctx->byte_pos = 0;
        }
        const ub8 walked_before = depth;  // links of an earlier call are not counted again
        ub8 found = 0;
        while (b != nullptr) {
            if constexpr (!O.count) {
                if (n + E > io.capacity) {
                    ctx->byte_pos = depth;
                    *row_reached = r;
                    matches += found;
                    links += depth - walked_before;
                    return false;
                }
            }
            const ub1 *next = next_bucket<Kind, L>(kv, b);
            if constexpr (Prefetch) {
                if (next != nullptr) prefetch_read(next);
            }
            // Marking members read the bucket through a copy whose word at
            // byte 8 (count, matched flags, the first key bytes) is loaded
            // atomically: other threads may be OR-ing flags into it.
            const ub1 *view = b;
            alignas(16) ub1 snapshot[O.mutkv ? kBucketBytes : 1];
            if constexpr (O.mutkv) {
                const ub8 word = __atomic_load_n(reinterpret_cast<const ub8 *>(b + 8), __ATOMIC_RELAXED);
                std::memcpy(snapshot, b, 8);
                std::memcpy(snapshot + 8, &word, 8);
                std::memcpy(snapshot + 16, b + 16, kBucketBytes - 16);
                view = snapshot;
            }
            // Tags compare every slot (an empty one is 0 and never matches).
            const ub4 count = Key == kProbeTag ? E : (L == kIdx ? load<ub4>(view) : load<ub2>(view + 8)) & D.count_mask();
            ub4 hits = match(view, count);
            if constexpr (O.distinct) hits &= 0u - hits;  // the first match only
            found += static_cast<ub8>(_mm_popcnt_u32(hits));
            if constexpr (!O.count && (O.ident != kNoIdent || O.value)) {
                // The first match is stored whether or not there is one (the
                // room test left space for a whole bucket) and the position
                // moves on by the match flag; further matches, duplicate keys
                // in one bucket, are rare and go through the loop below.
                auto emit = [&](ub8 *row_to, ub1 *value_to, ub4 e) VORN_LAMBDA_INLINE {
                    if constexpr (O.ident != kNoIdent) *row_to = identity(r);
                    if constexpr (O.value) store_low<VB>(value_to, value_at(view, e));
                };
                // The arrays an op does not write may be null.
                auto row_at = [&](ub8 i) VORN_LAMBDA_INLINE -> ub8 * {
                    if constexpr (O.ident != kNoIdent) return io.rows_out + i;
                    return nullptr;
                };
                auto value_at_out = [&](ub8 i) VORN_LAMBDA_INLINE -> ub1 * {
                    if constexpr (O.value) return static_cast<ub1 *>(io.values_out) + i * VB;
                    return nullptr;
                };
                ub8 step = hits != 0;
                // Hidden from the compiler, which would otherwise split the
                // stores into a path per outcome and branch between them.
                asm("" : "+r"(step));
                // Without a match the last entry stands in and the stores
                // go to the sink, so no branch picks the entry or the place.
                const std::uintptr_t keep = 0 - static_cast<std::uintptr_t>(step);
                ub8 *const row_to = masked_choice(row_at(n), &sink.row, keep);
                ub1 *const value_to = masked_choice(value_at_out(n), sink.value, keep);
                emit(row_to, value_to, static_cast<ub4>(__builtin_ctz(hits | (1u << (E - 1)))));
                n += step;
                for (ub4 more = hits & (hits - 1); more != 0; more &= more - 1) {
                    emit(row_at(n), value_at_out(n), static_cast<ub4>(__builtin_ctz(more)));
                    ++n;
                }
            }
            if constexpr (O.nonmatch && O.ident != kNoIdent) {
                // The row's bit is cleared by a store made on every bucket.
                const ub8 bit = identity(r) - io.bv_base;
                io.bv[bit >> 6] &= ~(static_cast<ub8>(hits != 0) << (bit & 63));
            }
            if constexpr (O.segbv) {
                for (ub4 m = hits; m != 0; m &= m - 1) {
                    const ub8 bit = value_at(view, static_cast<ub4>(__builtin_ctz(m))) - io.bv_base;
                    io.bv[bit >> 6] |= ub8{1} << (bit & 63);
                }
            }
            if constexpr (O.mutkv) {
                const ub4 mask = hits << D.first_matched_bit();
                if (mask != 0) {
                    ub8 *word = reinterpret_cast<ub8 *>(const_cast<ub1 *>(b) + 8);
                    ub8 old = __atomic_load_n(word, __ATOMIC_RELAXED);
                    while ((old & mask) != mask &&
                           !__atomic_compare_exchange_n(word, &old, old | mask, true, __ATOMIC_RELAXED, __ATOMIC_RELAXED)) {
                    }
                }
            }
            if (O.distinct && found != 0) break;
            b = next;
            if (b != nullptr) ++depth;
        }
        matches += found;
        links += depth - walked_before;
        if constexpr (O.count) {
            n += found;
            if constexpr (O.nonmatch) n += found == 0;
        }
        return true;
    };

    auto finish = [&](ub8 code) -> ub8 {
        *out_count = n;
        stats[0] += matches;
        stats[1] += links;
        return code;
    };

    if (row < rows && skip != 0) {
        // The row that stopped inside its chain goes first, alone.
        if (!probe_row(row, address(hash_of(row)))) return finish(15);
        ++row;
    }
    // Batches of 16: a batch's bucket lines are prefetched kProbeBatchesAhead
    // batches before its rows are probed (a ring of that many batches of
    // addresses and one more), so that the misses of later batches are in
    // flight while one is compared; waiting for a batch's own lines right
    // after prefetching them would expose one memory latency per batch.
    // With the link prefetch, the first links of a batch are read
    // kProbeLinksAhead batches before it runs, when its lines have arrived,
    // and their buckets prefetched.
    constexpr ub4 kSets = kProbeBatchesAhead + 1;
    const ub1 *bucket[kSets][kBatch];
    auto route = [&](ub8 first, ub4 set) VORN_LAMBDA_INLINE {
        const ub1 *hashes_ahead = static_cast<const ub1 *>(io.hashes) + first * (Hash32 ? 4 : 8) + kInputAhead;
        prefetch_read(hashes_ahead);
        if constexpr (!Hash32) prefetch_read(hashes_ahead + 64);
        if constexpr (Key == kProbeSlot) prefetch_read(io.keys + first * KB + kInputAhead);
        for (ub4 j = 0; j < kBatch; ++j) {
            bucket[set][j] = address(hash_of(first + j));
            prefetch_read(bucket[set][j]);
        }
    };
    auto prefetch_links = [&](ub4 set) VORN_LAMBDA_INLINE {
        for (ub4 j = 0; j < kBatch; ++j)
            if (const ub1 *nb = next_bucket<Kind, L>(kv, bucket[set][j])) prefetch_read(nb);
    };
    for (ub4 a = 0; a < kProbeBatchesAhead && row + (a + 1) * kBatch <= rows; ++a) route(row + a * kBatch, a);
    if constexpr (Prefetch) {
        for (ub4 a = 0; a < kProbeLinksAhead && row + (a + 1) * kBatch <= rows; ++a) prefetch_links(a);
    }
    for (ub4 set = 0; row + kBatch <= rows; row += kBatch, set = set + 1 == kSets ? 0 : set + 1) {
        const ub8 ahead = row + kProbeBatchesAhead * kBatch;
        if (ahead + kBatch <= rows) route(ahead, (set + kProbeBatchesAhead) % kSets);
        if constexpr (Prefetch) {
            if (row + (kProbeLinksAhead + 1) * kBatch <= rows) prefetch_links((set + kProbeLinksAhead) % kSets);
        }
        for (ub4 j = 0; j < kBatch; ++j)
            if (!probe_row(row + j, bucket[set][j])) return finish(15);
    }
    for (; row < rows; ++row)
        if (!probe_row(row, address(hash_of(row)))) return finish(15);
    *row_reached = rows;
    return finish(0);
}

}  // namespace vorn::kv
