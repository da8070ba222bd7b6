// vector_parse_model.h - a plain model of the vector text parser and a
// generator of vector texts, valid and broken, shared by the parser test
// and the fuzz driver.
#pragma once

#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <vector>

namespace vorntest::vecparse {

struct Settings {
    uint32_t type = 1;      // 1 float, 2 double, 5 int8
    uint32_t dims = 0;      // 0: flexible rows
    bool native = true;     // elements native, else order-preserving
    int form = 0;           // 0 bytes, 1 big-endian 16-bit units
};

struct ModelResult {
    uint64_t code = 0;
    uint32_t done = 0;
    std::vector<uint8_t> out;       // the elements of the rows that parsed
    std::vector<double> norms;
    std::vector<uint16_t> lengths;
    std::vector<uint32_t> bad;      // source rows that failed
};

inline uint32_t order32(uint32_t v) {
    uint32_t t;
    if ((v & 0x7FFFFFFFu) > 0x7F800000u) t = 0xFFC00000u;
    else if (v & 0x80000000u) t = v == 0x80000000u ? v : ~v;
    else t = v + 0x80000000u;
    return __builtin_bswap32(t);
}
inline uint64_t order64(uint64_t v) {
    uint64_t t;
    if ((v & 0x7FFFFFFFFFFFFFFFull) > 0x7FF0000000000000ull) t = 0xFFF8000000000000ull;
    else if (v >> 63) t = v == 0x8000000000000000ull ? v : ~v;
    else t = v + 0x8000000000000000ull;
    return __builtin_bswap64(t);
}

// One row of text as code units.
using Units = std::vector<uint32_t>;

// Parses one row; returns the code (0, 20, 21, 22) and appends the
// elements to `out`.
inline uint64_t model_row(const Units &u, const Settings &s, std::vector<uint8_t> &out, double &sum,
                          uint16_t &count) {
    size_t k = 0;
    const size_t n = u.size();
    sum = 0;
    count = 0;
    auto blanks = [&] { while (k < n && u[k] == ' ') ++k; };
    auto digit = [&](size_t i) { return i < n && u[i] >= '0' && u[i] <= '9'; };
    blanks();
    if (k >= n || u[k] != '[') return 22;
    ++k;
    const uint32_t limit = s.dims ? s.dims : 65535;
    for (;;) {
        blanks();
        if (k >= n) return 22;
        bool neg = false;
        if (u[k] == '-' || u[k] == '+') {
            neg = u[k] == '-';
            ++k;
            if (k >= n) return 22;
        }
        double v = 0;
        bool any = false;
        while (digit(k)) v = v * 10.0 + double(u[k++] - '0'), any = true;
        if (k < n && u[k] == '.') {
            ++k;
            double scale = 10.0;
            while (digit(k)) v += double(u[k++] - '0') / scale, scale *= 10.0, any = true;
        }
        bool ebad = false;
        if (k < n && (u[k] & 0xDF) == 'E') {
            ++k;
            if (k >= n) return 22;
            bool eneg = false;
            if (u[k] == '-' || u[k] == '+') {
                eneg = u[k] == '-';
                ++k;
                if (k >= n) return 22;
            }
            uint32_t e = 0;
            bool edig = false;
            while (digit(k)) e = e * 10 + (u[k++] - '0'), edig = true;
            if (edig) v *= std::pow(10.0, double(int32_t(eneg ? 0u - e : e)));
            else ebad = true;
        }
        blanks();
        if (k >= n) return 22;
        const uint32_t c = u[k];
        if (neg) v = -v;
        const bool float_bad = s.type == 1 && (std::isinf(float(v)) || std::isnan(float(v)));
        if ((c != ',' && c != ']') || !any || ebad || float_bad) return 21;
        if (count == limit) return 20;
        if (s.type == 5) {
            if (v < -128.0 || v > 127.0) return 21;
            const double r = std::round(v);
            sum += r * r;
            out.push_back(std::isnan(r) ? 0 : uint8_t(int8_t(int(r))));
        } else {
            sum += v * v;
            if (s.type == 1) {
                uint32_t b = std::bit_cast<uint32_t>(float(v));
                if (!s.native) b = order32(b);
                for (int i = 0; i < 4; ++i) out.push_back(uint8_t(b >> (8 * i)));
            } else {
                uint64_t b = std::bit_cast<uint64_t>(v);
                if (!s.native) b = order64(b);
                for (int i = 0; i < 8; ++i) out.push_back(uint8_t(b >> (8 * i)));
            }
        }
        ++count;
        ++k;
        if (c == ']') {
            if (s.dims && count != s.dims) return 22;
            blanks();
            return k == n ? 0 : 22;
        }
    }
}

// The whole call over rows; with_bad: a bad-row vector is given.
inline ModelResult model_parse(const std::vector<Units> &rows, const Settings &s, bool with_bad) {
    ModelResult m;
    for (uint32_t r = 0; r < rows.size(); ++r) {
        std::vector<uint8_t> elems;
        double sum;
        uint16_t count;
        const uint64_t code = model_row(rows[r], s, elems, sum, count);
        if (code) {
            if (!with_bad || code == 20) {
                m.code = code;
                return m;
            }
            m.bad.push_back(r);
            continue;
        }
        if (std::isinf(sum) || std::isnan(sum)) {
            m.code = 4;
            return m;
        }
        m.out.insert(m.out.end(), elems.begin(), elems.end());
        m.norms.push_back(sum < 0 ? 0.0 : std::sqrt(sum));
        if (s.dims == 0) m.lengths.push_back(count);
        ++m.done;
    }
    return m;
}

// ---- Texts ------------------------------------------------------------------

inline std::string random_number(std::mt19937_64 &rng) {
    static const char *fixed[] = {"0", "-0", "+0", "1", "-1", "127", "-128", "127.4", "-128.5", "127.5",
                                  "-128.4", ".5", "5.", "1e", "1e+", "1E-3", "1e39", "-1e39", "1e308",
                                  "1e309", "3.4028235e38", "3.4028236e38", "1e-400", "1e400", "--1",
                                  "+-1", "-", "+", ".", "e5", "1.2.3", "abc", "0x10", "1e5e5",
                                  "99999999999999999999", "1e4294967297", "2e-4294967295", "12 34"};
    const unsigned pick = rng() % 4;
    if (pick == 0) return fixed[rng() % (sizeof fixed / sizeof *fixed)];
    std::string s;
    if (rng() % 3 == 0) s += "-+"[rng() % 2];
    const unsigned intd = rng() % 4, fracd = rng() % 4;
    for (unsigned i = 0; i < intd; ++i) s += char('0' + rng() % 10);
    if (rng() % 2) {
        s += '.';
        for (unsigned i = 0; i < fracd; ++i) s += char('0' + rng() % 10);
    }
    if (intd + fracd == 0) s += '7';
    if (rng() % 4 == 0) {
        s += "eE"[rng() % 2];
        if (rng() % 2) s += "-+"[rng() % 2];
        s += std::to_string(rng() % 45);
    }
    return s;
}

inline std::string blanks(std::mt19937_64 &rng, unsigned most) {
    return std::string(rng() % 4 == 0 ? rng() % (most + 1) : 0, ' ');
}

// A row of text: mostly well formed, around `dims` elements.
inline std::string random_row(std::mt19937_64 &rng, uint32_t dims) {
    std::string s = blanks(rng, 40);
    s += '[';
    const uint32_t n = dims ? dims + (rng() % 8 == 0 ? uint32_t(rng() % 3) - 1 : 0) : uint32_t(rng() % 6);
    for (uint32_t i = 0; i < n; ++i) {
        s += blanks(rng, 3);
        s += random_number(rng);
        s += blanks(rng, 3);
        if (i + 1 < n) s += ',';
    }
    s += ']';
    s += blanks(rng, 20);
    // Mutations: a character dropped, doubled or replaced.
    const unsigned muts = rng() % 6 == 0 ? 1 + rng() % 2 : 0;
    static const char alphabet[] = "[]-+.,eE0123456789 x\t";
    for (unsigned m = 0; m < muts && !s.empty(); ++m) {
        const size_t at = rng() % s.size();
        switch (rng() % 3) {
            case 0: s.erase(at, 1); break;
            case 1: s.insert(at, 1, s[at]); break;
            default: s[at] = alphabet[rng() % (sizeof alphabet - 1)];
        }
    }
    return s;
}

// Units of a row in a character form; form 1 sometimes carries a unit
// whose high byte is set, which matches no character but may match the
// exponent test's mask.
inline Units to_units(const std::string &s, int form, std::mt19937_64 &rng) {
    Units u(s.begin(), s.end());
    for (auto &c : u) c &= 0xFF;
    if (form == 1 && !u.empty() && rng() % 10 == 0) u[rng() % u.size()] |= 0x100;
    return u;
}

// Bytes of a row's units as they lie in memory.
inline std::vector<uint8_t> to_bytes(const Units &u, int form) {
    std::vector<uint8_t> b;
    for (uint32_t c : u) {
        if (form == 0) {
            b.push_back(uint8_t(c));
        } else {
            b.push_back(uint8_t(c >> 8));
            b.push_back(uint8_t(c));
        }
    }
    return b;
}

}  // namespace vorntest::vecparse
