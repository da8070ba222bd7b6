#include "host/columns.h"

namespace vornhost {

Bytes pack_codes(const std::vector<ub8> &codes, unsigned width) {
    Bytes out((codes.size() * width + 7) / 8);
    pack_codes_into(out.data(), codes.data(), codes.size(), width);
    return out;
}

void pack_codes_into(ub1 *p, const ub8 *codes, std::size_t n, unsigned width) {
    // Bits gather in `acc` from the top; whole bytes leave it from the top.
    unsigned __int128 acc = 0;
    unsigned held = 0;
    const ub8 mask = width == 64 ? ~ub8{0} : (ub8{1} << width) - 1;
    for (std::size_t i = 0; i < n; ++i) {
        acc = (acc << width) | (codes[i] & mask);
        held += width;
        while (held >= 8) {
            held -= 8;
            *p++ = static_cast<ub1>(acc >> held);
        }
    }
    if (held) *p = static_cast<ub1>(acc << (8 - held));
}

ub8 packed_code(const ub1 *stream, unsigned width, ub8 row) {
    ub8 code = 0;
    const ub8 first = row * width;
    for (unsigned k = 0; k < width; ++k) {
        const ub8 bit = first + k;
        code = (code << 1) | ((stream[bit >> 3] >> (7 - (bit & 7))) & 1);
    }
    return code;
}

Bytes fixed_column(const std::vector<ub8> &values, unsigned bytes) {
    Bytes out(values.size() * bytes);
    ub1 *p = out.data();
    for (ub8 v : values) {
        for (unsigned k = 0; k < bytes; ++k) *p++ = static_cast<ub1>(v >> (8 * (bytes - 1 - k)));
    }
    return out;
}

std::vector<ub8> bit_vector(ub8 bits) { return std::vector<ub8>((bits + 63) / 64 + 2, 0); }

}  // namespace vornhost
