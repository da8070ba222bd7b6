// The table of correctly rounded square roots of the counts 0 to 1,024,
// built at compile time in exact integer arithmetic.
#include "vector/dbv_roots.h"

namespace {

using u128 = unsigned __int128;

// sqrt(n) rounded to nearest, ties to even, for n < 2^12.  The integer root
// of n * 2^108 is sqrt(n) * 2^54 truncated, 55 to 60 bits wide for n >= 1:
// the 53 leading bits are the significand, the bits below them and the
// remainder decide the rounding.
constexpr double correctly_rounded_root(ub4 n) {
    if (n == 0) return 0.0;
    u128 x = u128(n) << 108, root = 0, bit = u128(1) << 126;
    while (bit > x) bit >>= 2;
    while (bit != 0) {
        if (x >= root + bit) {
            x -= root + bit;
            root = (root >> 1) + bit;
        } else {
            root >>= 1;
        }
        bit >>= 2;
    }
    int width = 0;
    for (u128 r = root; r != 0; r >>= 1) ++width;
    const int shift = width - 53;
    ub8 significand = ub8(root >> shift);
    const ub8 below = ub8(root) & ((ub8(1) << shift) - 1), half = ub8(1) << (shift - 1);
    if (below > half || (below == half && (x != 0 || (significand & 1)))) ++significand;
    // significand * 2^(shift - 54): both factors are exact doubles.
    return double(significand) / double(ub8(1) << (54 - shift));
}

static_assert(correctly_rounded_root(1) == 1.0 && correctly_rounded_root(4) == 2.0 &&
              correctly_rounded_root(1024) == 32.0 && correctly_rounded_root(2) == 1.4142135623730951);

}  // namespace

extern "C" {

constinit const std::array<double, vorn::vec::kCountRoots> vorn_count_roots = [] {
    std::array<double, vorn::vec::kCountRoots> t{};
    for (ub4 n = 0; n < vorn::vec::kCountRoots; ++n) t[n] = correctly_rounded_root(n);
    return t;
}();

}  // extern "C"
