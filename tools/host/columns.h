// columns.h - building columns in the store's forms, as a host's loader
// would: packed dictionary codes of any width, fixed-width big-endian values,
// and result bit vectors.  Every buffer has slack behind it, since the
// kernels may read a few bytes past a stream's end.
#pragma once

#include <cstddef>
#include <vector>

#include "vorn.h"

namespace vornhost {

// Bytes of slack behind every stream built here.
inline constexpr std::size_t kSlackBytes = 64;

// An 8-byte aligned byte buffer with kSlackBytes of zeros behind `size`.
class Bytes {
public:
    Bytes() = default;
    explicit Bytes(std::size_t size) { resize(size); }
    void resize(std::size_t size) {
        size_ = size;
        store_.assign((size + kSlackBytes + 7) / 8, 0);
    }
    ub1 *data() { return reinterpret_cast<ub1 *>(store_.data()); }
    const ub1 *data() const { return reinterpret_cast<const ub1 *>(store_.data()); }
    std::size_t size() const { return size_; }

private:
    std::vector<ub8> store_;
    std::size_t size_ = 0;
};

// Codes of width w (1 to 64) packed into one big-endian bit string.
Bytes pack_codes(const std::vector<ub8> &codes, unsigned width);
// The same into zeroed memory at `out`, (n * width + 7) / 8 bytes.
void pack_codes_into(ub1 *out, const ub8 *codes, std::size_t n, unsigned width);

// The code of `row` in a packed stream, read bit by bit: the model that the
// kernels' reads are checked against.
ub8 packed_code(const ub1 *stream, unsigned width, ub8 row);

// Values of `bytes` bytes each (1 to 8), big-endian, end to end.
Bytes fixed_column(const std::vector<ub8> &values, unsigned bytes);

// A bit vector of `bits` bits in whole words, with slack words behind.
std::vector<ub8> bit_vector(ub8 bits);

inline bool test_bit(const ub8 *bv, ub8 i) { return (bv[i >> 6] >> (i & 63)) & 1; }
inline void set_bit(ub8 *bv, ub8 i) { bv[i >> 6] |= ub8{1} << (i & 63); }

}  // namespace vornhost
