// dynp_model.h - dynamic-prefix columns for the tests, and the way their
// kernels are expected to see a row.
//
// A row is a full-width value and a selector (stored length - 1).  The
// column stores the selector's length worth of the value's leading bytes; a
// 64-bit selector above 7 is invalid and stores its nine to sixteen bytes as
// the value's eight followed by filler.
#pragma once

#include <memory>
#include <random>
#include <vector>

#include "support/test_host.h"

namespace vorntest {

struct DynpRow {
    ub8 value;      // at the column's full width; for a valid row its low bytes behind the stored ones are zero
    ub4 selector;   // stored length - 1
};

inline unsigned dynp_selector_bits(unsigned bytes) { return bytes == 2 ? 1 : bytes == 4 ? 2 : 4; }
inline unsigned dynp_rows_per_selector(unsigned bytes) { return 8 / dynp_selector_bits(bytes); }
// Rows of a whole block: four selector bytes.
inline unsigned dynp_block_rows(unsigned bytes) { return 4 * dynp_rows_per_selector(bytes); }

inline ub4 dynp_kernel_group(unsigned bytes) {
    return VORN_KERNEL_GROUP(VORN_WIDTH_CODE(bytes * 8), VORN_ENC_DYNP);
}

// The value's stored bytes: its leading `selector + 1` bytes, or for an
// invalid selector its eight bytes and filler.
inline std::vector<ub1> dynp_stored_bytes(const DynpRow &r, unsigned bytes) {
    std::vector<ub1> out;
    for (unsigned k = 0; k <= r.selector; ++k)
        out.push_back(k < bytes ? static_cast<ub1>(r.value >> (8 * (bytes - 1 - k))) : ub1{0xee});
    return out;
}

inline std::unique_ptr<Column> dynp_column(const std::vector<DynpRow> &rows, unsigned bytes) {
    auto c = std::make_unique<Column>();
    c->enc.kernel_group = static_cast<ub1>(dynp_kernel_group(bytes));
    c->enc.bit_width = bytes * 8;
    c->enc.width_code = static_cast<ub1>(VORN_WIDTH_CODE(bytes * 8));
    c->vec.enc_ctx = &c->enc;
    c->vec.size = static_cast<ub4>(rows.size());
    std::vector<ub1> values;
    for (const auto &r : rows) {
        const auto b = dynp_stored_bytes(r, bytes);
        values.insert(values.end(), b.begin(), b.end());
    }
    Bytes data(values.size());
    std::copy(values.begin(), values.end(), data.data());
    c->set_data(std::move(data));
    const unsigned sbits = dynp_selector_bits(bytes), per = dynp_rows_per_selector(bytes);
    c->data2.resize((rows.size() + per - 1) / per);
    for (std::size_t i = 0; i < rows.size(); ++i) {
        const unsigned shift = (per - 1 - i % per) * sbits;
        c->data2.data()[i / per] |= static_cast<ub1>(rows[i].selector << shift);
    }
    c->vec.data2 = c->data2.data();
    return c;
}

// A random valid row: a stored length, and that many leading bytes drawn
// from a small alphabet so that equal values and equal prefixes are common.
inline DynpRow random_dynp_row(std::mt19937_64 &rng, unsigned bytes) {
    static const ub1 alphabet[] = {0x00, 0x01, 0x12, 0x7f, 0x80, 0xff};
    DynpRow r{0, static_cast<ub4>(rng() % bytes)};
    for (unsigned k = 0; k <= r.selector; ++k)
        r.value |= ub8{alphabet[rng() % 6]} << (8 * (bytes - 1 - k));
    return r;
}

// The big-endian bytes of a literal at the full width, and its second key.
struct DynpLiteral {
    ub1 value[8] = {};
    ub1 key = 0;
    const void *ptrs[2] = {value, &key};
    DynpLiteral(ub8 v, unsigned bytes, ub1 k) : key(k) {
        for (unsigned i = 0; i < bytes; ++i) value[i] = static_cast<ub1>(v >> (8 * (bytes - 1 - i)));
    }
    DynpLiteral(const DynpLiteral &) = delete;
};

}  // namespace vorntest
