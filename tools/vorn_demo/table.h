// table.h - the demo's generated table, stored as a column store keeps it,
// and cut into column units that the scan layer hands to the kernels.
#pragma once

#include <string>
#include <vector>

#include "host/columns.h"
#include "vorn.h"

namespace demo {

using vornhost::Bytes;

// A sorted dictionary of variable-length symbols: code order is value order.
struct Dictionary {
    std::vector<std::string> symbols;
    Bytes bytes;               // the symbols end to end
    std::vector<ub4> offsets;  // big-endian, one per symbol and one behind the last
};

// A dictionary column of `width`-bit codes in one packed stream.
struct PackedColumn {
    unsigned width = 0;
    Bytes stream;
    vorn_enc_ctx enc{};
};

// A unit's share of a run-length column: one code per run, its run lengths,
// and the scratch bit vector over runs that a predicate writes.
struct RleUnit {
    Bytes codes;
    Bytes lengths;  // ub1 per run
    ub4 runs = 0;
    std::vector<ub8> run_bv;
    vorn_enc_ctx enc{};
};

// A unit's compressed copy of a packed stream, and its cache cell.
struct CompressedUnit {
    Bytes stream;
    ub4 plain_bytes = 0;
    void *cell = nullptr;
};

struct Table {
    ub8 rows = 0;
    ub4 unit_rows = 0;  // a multiple of 64
    ub4 units = 0;

    Dictionary cities;          // 2,000 city names
    PackedColumn city;          // 11-bit codes into `cities`
    std::vector<std::string> channels;  // 16 sales channels, sorted
    PackedColumn channel;       // 8-bit codes into `channels`, skewed: kept compressed
    std::vector<CompressedUnit> channel_lomp;  // the channel codes, compressed per unit
    vorn_enc_ctx channel_lomp_enc{};
    PackedColumn category;      // 6-bit codes, 0 is null
    Bytes amount;               // fixed-width big-endian ub4 per row
    vorn_enc_ctx amount_enc{};
    Bytes store;                // big-endian ub4 store numbers, an aligned code array
    std::vector<ub1> store_region;  // store number -> region 0..11, 255 for a closed store
    vorn_enc_ctx store_enc{};
    std::vector<RleUnit> status;  // 4-bit status codes in runs
    std::vector<ub8> visible;   // rows not deleted: the filter of every scan

    ub4 unit_first(ub4 u) const { return u * unit_rows; }
    ub4 unit_size(ub4 u) const {
        const ub8 end = static_cast<ub8>(u + 1) * unit_rows;
        return static_cast<ub4>((end > rows ? rows : end) - unit_first(u));
    }
};

// Builds the table; `progress` is printed while it runs.
void generate(Table &t, ub8 rows, ub8 seed, bool progress, vorn_rle_expand_fn expand);

// The reference read of a packed code, as the scalar paths use it.
inline ub4 code_at(const ub1 *stream, unsigned width, ub8 row) {
    const ub8 bit = row * width;
    const ub1 *p = stream + (bit >> 3);
    const ub4 be = static_cast<ub4>(p[0]) << 24 | static_cast<ub4>(p[1]) << 16 |
                   static_cast<ub4>(p[2]) << 8 | p[3];
    return (be << (bit & 7)) >> (32 - width);
}

inline ub4 be32_at(const ub1 *p) {
    return static_cast<ub4>(p[0]) << 24 | static_cast<ub4>(p[1]) << 16 | static_cast<ub4>(p[2]) << 8 | p[3];
}

}  // namespace demo
