// eq_stream.cpp - vorn_eq_stream_dydi: two columns compared row by row.
//
// The layout is the first of VORN_LV_SEP, VORN_LV, VORN_PTR_LEN,
// VORN_LEN_PTR, VORN_FIXED that both columns have; with none in common the
// entry returns 2.  Two rows are equal when they have the same length and
// the same bytes.
//
// The result assumes that every row matches: the count starts at n and the
// bit vector is not written until the first differing row, which fills all
// (n + 63) / 64 words with ones and clears its own bit; each later differing
// row clears its bit.  Two equal columns leave res_bv as it was, and the
// caller reads it only when num_ones is below n.
//
// The short way, when either column has VORN_SHORT_VALUES and neither
// max_len exceeds 8: eight bytes are loaded from each value and shifted left
// by (-8 * length) & 63 bits, which keeps the value's bytes of a
// little-endian load, and the results and the lengths are compared.  A
// length of 0 shifts by nothing, so two empty values compare the eight
// bytes behind them.  The short way returns 0 whatever the count; the long
// way (lengths, then a memory compare) and VORN_FIXED return 1 for a count
// of 0.
#include <array>
#include <bit>

#include "frame/entries.h"
#include "predicate/value_layouts.h"

namespace vorn {
namespace {

// The "fill with ones at the first difference" result.  Rows are compared
// 64 at a time into a word of differences, so that a differing row costs no
// branch; a word with differences fills the vector if it is the first, then
// clears its rows' bits.
struct Differences {
    ub8 *bv;
    ub4 n;
    ub8 count;
    bool filled = false;

    Differences(ub8 *bits, ub4 rows) : bv(bits), n(rows), count(rows) {}

    VORN_NOINLINE void fill() {
        std::memset(bv, 0xff, words_for_bits(n) * 8);
        filled = true;
    }
    VORN_INLINE void mark(ub8 word, ub8 differing) {
        if (VORN_LIKELY(differing == 0)) return;
        if (!filled) fill();
        bv[word] &= ~differing;
        count -= static_cast<ub8>(__builtin_popcountll(differing));
    }
};

// The short way keeps a value's bytes of an eight-byte load: shifting both
// loads left by (-8 * length) & 63 and comparing is, for equal lengths, the
// same as masking their difference to those bytes, which costs fewer
// instructions.  A length of 0 keeps all eight bytes.
struct ShortWay {
    // Indexed by the length's low four bits; lengths of 8 and more keep all.
    static constexpr std::array<ub8, 16> kKeep = [] {
        std::array<ub8, 16> k{};
        for (ub4 len = 0; len < 16; ++len) k[len] = len >= 8 ? ~ub8{0} : (~ub8{0}) >> ((0 - 8 * len) & 63);
        return k;
    }();
    static VORN_INLINE bool differs(layout::Value x, layout::Value y) {
        const ub8 bytes = (load<ub8>(x.p) ^ load<ub8>(y.p)) & kKeep[x.len & 15];
        return (bytes | (x.len ^ y.len)) != 0;
    }
};

struct LongWay {
    static VORN_INLINE bool differs(layout::Value x, layout::Value y) {
        return x.len != y.len || (x.len != 0 && std::memcmp(x.p, y.p, x.len) != 0);
    }
};

// Rows prefetched ahead in the pointer layouts.
constexpr ub4 kPrefetchRows = 128;

// differs(row) for rows 0..n-1 in order, gathered 64 rows to a word: each
// row's bit goes in at bit 0 and the word turns right by one, so after m
// rows a left turn by m puts row k at bit k.
template <class Differs>
VORN_INLINE ub8 compare_by_words(ub8 *bits, ub4 n, Differs differs) {
    Differences d(bits, n);
    for (ub4 base = 0; base < n; base += 64) {
        const ub4 rows = n - base < 64 ? n - base : 64;
        ub8 differing = 0;
        for (ub4 row = base; row < base + rows; ++row)
            differing = std::rotr(differing | ub8{differs(row)}, 1);
        d.mark(base >> 6, std::rotl(differing, static_cast<int>(rows)));
    }
    return d.count;
}

template <class Layout, class Way>
VORN_NOINLINE ub8 compare_rows(ub8 *bits, const vorn_vec *a, const vorn_vec *b, ub4 n) {
    Layout x(a), y(b);
    if constexpr (Layout::kPointers) {
        for (ub4 i = 0; i < n && i < kPrefetchRows; ++i) {
            __builtin_prefetch(x.target(i));
            __builtin_prefetch(y.target(i));
        }
        const ub4 ahead = n > kPrefetchRows ? n - kPrefetchRows : 0;
        return compare_by_words(bits, n, [&](ub4 row) {
            if (row < ahead) {
                __builtin_prefetch(x.target(row + kPrefetchRows));
                __builtin_prefetch(y.target(row + kPrefetchRows));
            }
            return Way::differs(x.next(row), y.next(row));
        });
    } else {
        return compare_by_words(bits, n, [&](ub4 row) { return Way::differs(x.next(row), y.next(row)); });
    }
}

// Elements of 1, 2, 4 or 8 bytes compare as one integer.
template <class T>
VORN_NOINLINE ub8 compare_fixed(ub8 *bits, const ub1 *a, const ub1 *b, ub4 n) {
    return compare_by_words(bits, n, [=](ub4 row) {
        return load<T>(a + ub8{row} * sizeof(T)) != load<T>(b + ub8{row} * sizeof(T));
    });
}

VORN_NOINLINE ub8 compare_fixed_bytes(ub8 *bits, const ub1 *a, const ub1 *b, ub4 n, ub8 size) {
    return compare_by_words(bits, n, [=](ub4 row) { return std::memcmp(a + row * size, b + row * size, size) != 0; });
}

ub8 compare_fixed_rows(ub8 *bits, const vorn_vec *a, const vorn_vec *b, ub4 n) {
    const ub1 *x = layout::bytes_of(a->data), *y = layout::bytes_of(b->data);
    switch (const ub8 size = a->enc_ctx->bit_width >> 3) {
        case 1: return compare_fixed<ub1>(bits, x, y, n);
        case 2: return compare_fixed<ub2>(bits, x, y, n);
        case 4: return compare_fixed<ub4>(bits, x, y, n);
        case 8: return compare_fixed<ub8>(bits, x, y, n);
        default: return compare_fixed_bytes(bits, x, y, n, size);
    }
}

// ShortLayout is Layout's cursor for the short way.
template <class Layout, class ShortLayout = Layout>
ub8 compare_layout(vorn_vec *res, const vorn_vec *a, const vorn_vec *b, bool short_way) {
    const ub4 n = a->size;
    const ub8 count = short_way ? compare_rows<ShortLayout, ShortWay>(res->res_bv, a, b, n)
                                : compare_rows<Layout, LongWay>(res->res_bv, a, b, n);
    res->num_ones = static_cast<ub4>(count);
    if (short_way) return 0;
    return count == 0 ? 1 : 0;
}

}  // namespace
}  // namespace vorn

extern "C" ub8 vorn_eq_stream_dydi(vorn_vec *res, vorn_vec *a, vorn_vec *b, vorn_kernel_ctx *) {
    using namespace vorn;
    const vorn_enc_ctx *ea = a->enc_ctx, *eb = b->enc_ctx;
    const auto both = [&](ub4 flag) { return VORN_ENC_CTX_FLAG(ea, flag) && VORN_ENC_CTX_FLAG(eb, flag); };
    const bool short_way = (VORN_ENC_CTX_FLAG(ea, VORN_SHORT_VALUES) || VORN_ENC_CTX_FLAG(eb, VORN_SHORT_VALUES)) &&
                           (ea->max_len > eb->max_len ? ea->max_len : eb->max_len) <= 8;
    if (both(VORN_LV_SEP)) return compare_layout<layout::LvSep>(res, a, b, short_way);
    if (both(VORN_LV)) return compare_layout<layout::Lv, layout::LvAhead>(res, a, b, short_way);
    if (both(VORN_PTR_LEN)) return compare_layout<layout::PtrLen>(res, a, b, short_way);
    if (both(VORN_LEN_PTR)) return compare_layout<layout::LenPtr>(res, a, b, short_way);
    if (both(VORN_FIXED)) {
        const ub8 count = compare_fixed_rows(res->res_bv, a, b, a->size);
        res->num_ones = static_cast<ub4>(count);
        return count == 0 ? 1 : 0;
    }
    return 2;
}
