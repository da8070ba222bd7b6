#include "host/lomp_encoder.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unordered_map>

namespace vornhost {

namespace {

constexpr std::size_t kMaxSymbols = 1024;
constexpr std::size_t kPadding = 16;  // zero bytes behind the code stream

[[noreturn]] void refuse(const char *why) {
    std::fprintf(stderr, "lomp encoder: %s\n", why);
    std::abort();
}

void put_be(ub1 *p, ub8 v, unsigned bytes) {
    for (unsigned k = 0; k < bytes; ++k) p[k] = static_cast<ub1>(v >> (8 * (bytes - 1 - k)));
}

// Codes of width w, most significant bit first, into zeroed bytes at p.
void pack_into(ub1 *p, const std::vector<ub4> &codes, unsigned w) {
    ub8 bit = 0;
    for (ub4 code : codes) {
        for (unsigned k = 0; k < w; ++k, ++bit)
            if ((code >> (w - 1 - k)) & 1) p[bit >> 3] |= static_cast<ub1>(0x80 >> (bit & 7));
    }
}

ub8 piece_key(const ub1 *p, unsigned len) {
    ub8 key = 0;
    std::memcpy(&key, p, len);
    return key;
}

}  // namespace

unsigned lomp_width(ub4 symbols) {
    unsigned w = 0;
    for (ub4 top = symbols - 1; top; top >>= 1) ++w;
    return w;
}

LompStream lomp_encode(const std::vector<LompSymbol> &symbols, const std::vector<ub4> &codes,
                       const LompOptions &options) {
    const std::size_t n = symbols.size();
    if (n == 0 || n > kMaxSymbols) refuse("the symbol count must be 1 to 1,024");
    for (const LompSymbol &s : symbols)
        if (s.size() > 15) refuse("a symbol length must fit a nibble");
    LompStream out;
    out.symbols = symbols;
    out.codes = codes;
    out.width = lomp_width(static_cast<ub4>(n));

    ub8 size = 0;
    std::vector<ub8> uses(n, 0);
    for (ub4 c : codes) {
        if (c >= n) refuse("a code is not below the symbol count");
        size += symbols[c].size();
        ++uses[c];
    }
    if (size > 0xffffffffu) refuse("the uncompressed size must fit 32 bits");
    out.uncompressed_size = static_cast<ub4>(size);

    const bool extended = static_cast<sb2>(options.ext_marker) > 0;
    std::size_t symbol_bytes = 0;
    for (const LompSymbol &s : symbols) symbol_bytes += s.size();
    const std::size_t nibble_bytes = (n + 1) / 2;
    const std::size_t ext1 = extended ? 2 * n : 0;
    out.code_count_offset = 18 + nibble_bytes + ext1 + symbol_bytes;
    out.code_stream_offset = out.code_count_offset + 4 + (extended ? 4 + options.ext2_bytes : 0);
    const std::size_t code_bytes = (codes.size() * out.width + 7) / 8;
    out.bytes.resize(out.code_stream_offset + code_bytes + kPadding);

    ub1 *p = out.bytes.data();
    std::memcpy(p, "LOMP", 4);
    p[4] = 0;
    p[5] = options.flags;
    put_be(p + 6, options.reserved, 4);
    put_be(p + 10, options.ext_marker, 2);
    put_be(p + 12, out.uncompressed_size, 4);
    put_be(p + 16, n, 2);
    for (std::size_t i = 0; i < n; ++i)
        p[18 + i / 2] |= static_cast<ub1>(symbols[i].size() << (i % 2 ? 0 : 4));
    ub1 *at = p + 18 + nibble_bytes;
    if (extended) {
        // Extension block 1: how often each symbol is used, saturated.
        for (std::size_t i = 0; i < n; ++i, at += 2) put_be(at, std::min<ub8>(uses[i], 0xffff), 2);
    }
    for (const LompSymbol &s : symbols) {
        if (!s.empty()) std::memcpy(at, s.data(), s.size());
        at += s.size();
    }
    put_be(at, codes.size(), 4);
    at += 4;
    if (extended) {
        put_be(at, ub8{4 + options.ext2_bytes} << 7 | (options.ext_word_low & 0x7f), 4);
        at += 4;
        for (ub4 k = 0; k < options.ext2_bytes; ++k) *at++ = static_cast<ub1>(0xe0 + k);
    }
    pack_into(at, codes, out.width);
    return out;
}

LompStream lomp_compress(const ub1 *data, std::size_t size, const LompOptions &options) {
    if (size == 0) return lomp_encode({LompSymbol{}}, {}, options);

    // Every byte value that occurs is a symbol of its own, so the parse
    // always goes on; the rest of the 1,024 go to recurring pieces of 8, 4
    // and 2 bytes, counted at their aligned positions, most frequent first.
    bool byte_seen[256] = {};
    std::size_t singles = 0;
    for (std::size_t i = 0; i < size; ++i)
        if (!byte_seen[data[i]]) byte_seen[data[i]] = true, ++singles;

    const unsigned piece_lens[3] = {8, 4, 2};
    // piece -> its code + 1, or 0 until the parse first uses it
    std::unordered_map<ub8, ub4> chosen[3];
    std::size_t budget = kMaxSymbols - singles;
    for (int l = 0; l < 3; ++l) {
        const unsigned len = piece_lens[l];
        std::unordered_map<ub8, ub8> counts;
        for (std::size_t i = 0; i + len <= size; i += len) ++counts[piece_key(data + i, len)];
        std::vector<std::pair<ub8, ub8>> ranked;
        for (const auto &[key, count] : counts)
            if (count >= 2) ranked.emplace_back(count, key);
        std::sort(ranked.begin(), ranked.end(), [](const auto &a, const auto &b) {
            return a.first != b.first ? a.first > b.first : a.second < b.second;
        });
        const std::size_t take = std::min(ranked.size(), l == 2 ? budget : budget / 2);
        for (std::size_t k = 0; k < take; ++k) chosen[l][ranked[k].second] = 0;
        budget -= take;
    }

    // Greedy parse, longest piece first; symbols numbered by first use.
    std::vector<LompSymbol> symbols;
    ub4 single_code[256] = {};
    std::vector<ub4> codes;
    codes.reserve(size / 2 + 1);
    for (std::size_t pos = 0; pos < size;) {
        unsigned len = 1;
        ub4 *slot = nullptr;
        for (int l = 0; l < 3 && !slot; ++l) {
            const unsigned pl = piece_lens[l];
            if (pos + pl > size) continue;
            auto it = chosen[l].find(piece_key(data + pos, pl));
            if (it != chosen[l].end()) slot = &it->second, len = pl;
        }
        if (!slot) slot = &single_code[data[pos]];
        if (*slot == 0) {
            symbols.emplace_back(data + pos, data + pos + len);
            *slot = static_cast<ub4>(symbols.size());
        }
        codes.push_back(*slot - 1);
        pos += len;
    }
    // Widths 1 and 2 decode correctly only without blocks (below 64 codes).
    if (codes.size() >= 64 && symbols.size() >= 2 && symbols.size() <= 4) symbols.resize(5);
    return lomp_encode(symbols, codes, options);
}

}  // namespace vornhost
