// lomp_decode.cpp - vorn_lomp_decode_dydi, the compressed-stream decoder
// behind the host's lomp_decode slot.
//
// The stream (all integers big-endian):
//    0  "LOMP"            10  extension marker, signed 16 bits
//    4  version, 0        12  uncompressed size, 32 bits
//    5  flags             16  symbol count n, 1 to 1,024
//    6  reserved (4)      18  n 4-bit lengths, high nibble first
// then, when the marker is above 0, 2n bytes of extension block 1 (skipped);
// the symbols back to back; the code count m; when the marker is above 0 an
// extension word whose bits 31..7 count the bytes from its start to the code
// stream; and the code stream, m codes of w bits, w the bit count of n - 1.
//
// Header faults return 24 before anything is allocated.  Otherwise the two
// working arrays come from the caller's allocate operation, the codes are
// decoded, both arrays are released, and the result is 0 exactly when the
// bytes written equal the declared size.
#include "decode/lomp_codes.h"
#include "frame/entries.h"

namespace vorn {
namespace {

constexpr const char kLengthArrayName[] = "lomp_decode_x86 length_array";
constexpr const char kSymbolArrayName[] = "lomp_decode_x86: symbol_array";
constexpr ub8 kRefused = 24;

// The code width of n symbols: the right shifts that bring n - 1 to zero.
// n = 0 wraps to 0xFFFFFFFF, width 32.
VORN_INLINE ub4 lomp_width(ub4 n) {
    const ub4 top = n - 1;
    return top == 0 ? 0 : 32 - static_cast<ub4>(__builtin_clz(top));
}

// Walks the lengths and the symbol bytes together: each symbol's length, and
// the eight bytes at its position in its slot (bytes behind a short symbol
// are whatever follows, and never count).  Nibbles go in pairs, so an odd n
// also fills entry n of the length array.  Returns the end of the symbols.
const ub1 *load_symbols(const ub1 *nibbles, ub4 n, const ub1 *symbols, ub1 *lens, ub8 *slots) {
    const ub1 *at = symbols;
    for (ub4 i = 0; i < n; i += 2) {
        const ub1 pair = nibbles[i / 2];
        lens[i] = pair >> 4;
        lens[i + 1] = pair & 15;
        slots[i] = load<ub8>(at);
        at += lens[i];
        if (i + 1 < n) {
            slots[i + 1] = load<ub8>(at);
            at += lens[i + 1];
        }
    }
    return at;
}

}  // namespace
}  // namespace vorn

using namespace vorn;

extern "C" {

ub4 lomp_decode_dict_8_bit(const ub1 *codes, ub4 m, const ub8 *slots, const ub1 *lens, ub1 *out,
                           ub4 capacity, ub4 symbols) {
    return lomp_decode_codes<8>(codes, m, {slots, lens, symbols - 1}, {out, 0, capacity});
}

ub4 lomp_decode_dict_9_bit(const ub1 *codes, ub4 m, const ub8 *slots, const ub1 *lens, ub1 *out,
                           ub4 capacity, ub4 symbols) {
    return lomp_decode_codes<9>(codes, m, {slots, lens, symbols - 1}, {out, 0, capacity});
}

ub4 lomp_decode_dict_10_bit(const ub1 *codes, ub4 m, const ub8 *slots, const ub1 *lens, ub1 *out,
                            ub4 capacity, ub4 symbols) {
    return lomp_decode_codes<10>(codes, m, {slots, lens, symbols - 1}, {out, 0, capacity});
}

ub8 vorn_lomp_decode_dydi(const vorn_lomp_ctx *ctx, const ub1 *stream, ub1 *out, ub4 *out_length,
                          ub4 capacity) {
    if (std::memcmp(stream, "LOMP", 4) != 0) return kRefused;
    if (stream[4] != 0) return kRefused;
    const ub1 flags = stream[5];
    if (!(flags & 0x02)) return kRefused;
    if (flags & 0x08) return kRefused;
    if (flags & 0x01) return kRefused;
    const bool extended = static_cast<sb2>(load_be16(stream + 10)) > 0;
    const ub4 size = load_be32(stream + 12);
    if (size > capacity) return kRefused;
    const ub4 n = load_be16(stream + 16);
    const ub4 w = lomp_width(n);
    if (w > kLompMaxWidth) return kRefused;

    void *lens_release = nullptr, *slots_release = nullptr;
    auto *lens = static_cast<ub1 *>(ctx->work_alloc(ctx->env, ub8{n} + 1, kLengthArrayName, 8, 0, &lens_release));
    auto *slots = static_cast<ub8 *>(ctx->work_alloc(ctx->env, ub8{n} * 8, kSymbolArrayName, 8, 0, &slots_release));

    const ub1 *nibbles = stream + 18;
    const ub1 *symbols = nibbles + (n + 1) / 2 + (extended ? 2 * n : 0);
    const ub1 *at = load_symbols(nibbles, n, symbols, lens, slots);
    const ub4 m = load_be32(at);
    at += 4;
    if (extended) at += load_be32(at) >> 7;

    const LompSymbols s{slots, lens, n - 1};
    const LompOut o{out, 0, capacity};
    switch (w) {
        case 0: *out_length = lomp_decode_codes<0>(at, m, s, o); break;
        case 1: *out_length = lomp_decode_codes<1>(at, m, s, o); break;
        case 2: *out_length = lomp_decode_codes<2>(at, m, s, o); break;
        case 3: *out_length = lomp_decode_codes<3>(at, m, s, o); break;
        case 4: *out_length = lomp_decode_codes<4>(at, m, s, o); break;
        case 5: *out_length = lomp_decode_codes<5>(at, m, s, o); break;
        case 6: *out_length = lomp_decode_codes<6>(at, m, s, o); break;
        case 7: *out_length = lomp_decode_codes<7>(at, m, s, o); break;
        case 8: *out_length = lomp_decode_dict_8_bit(at, m, slots, lens, out, capacity, n); break;
        case 9: *out_length = lomp_decode_dict_9_bit(at, m, slots, lens, out, capacity, n); break;
        default: *out_length = lomp_decode_dict_10_bit(at, m, slots, lens, out, capacity, n); break;
    }

    if (slots) ctx->work_free(ctx->env, slots, slots_release);
    if (lens) ctx->work_free(ctx->env, lens, lens_release);
    return size == *out_length ? 0 : kRefused;
}

}  // extern "C"

// The three tables under their names; the decoder itself uses their values
// as constants of each width's instance.
extern "C" {
alignas(16) constinit const LompShuffleTable vorn_lomp_decode_shuffle_masks = kLompShuffle;
alignas(16) constinit const LompLaneTable vorn_lomp_decode_and_masks = kLompAnd;
alignas(16) constinit const LompLaneTable vorn_lomp_decode_shift_masks = kLompShift;
}
