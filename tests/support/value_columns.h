// value_columns.h - columns of byte-string values in the layouts of the
// two-column entries, and result columns to copy into.
//
//   VORN_LV_SEP   values end to end at data, native ub2 lengths at data2
//   VORN_LV       native ub2 length then the value, end to end at data
//   VORN_PTR_LEN  ub8 addresses at data, native ub2 lengths at data2
//   VORN_LEN_PTR  ten-byte rows: native ub2 length, unaligned ub8 address
//   VORN_FIXED    values of one size end to end, bit_width = 8 * size
//
// The pointer layouts point every value at a buffer of its own with slack
// behind it.  `where` records each row's value address, so that a model
// can look at the bytes a kernel may read behind a value.
#pragma once

#include <algorithm>
#include <cstring>
#include <memory>
#include <random>
#include <vector>

#include "support/test_host.h"

namespace vorntest {

using Value = std::vector<ub1>;

struct ValueColumn {
    vorn_enc_ctx enc{};
    vorn_vec vec{};
    Bytes data, data2;
    std::vector<std::unique_ptr<Bytes>> targets;  // the pointer layouts' values
    std::vector<const ub1 *> where;

    ValueColumn() = default;
    ValueColumn(const ValueColumn &) = delete;
};

inline void put_ub2(ub1 *p, std::size_t v) {
    const ub2 x = static_cast<ub2>(v);
    std::memcpy(p, &x, 2);
}
inline ub2 get_ub2(const ub1 *p) {
    ub2 x;
    std::memcpy(&x, p, 2);
    return x;
}
inline ub8 get_ub8(const ub1 *p) {
    ub8 x;
    std::memcpy(&x, p, 8);
    return x;
}

inline std::unique_ptr<ValueColumn> value_column(const std::vector<Value> &values, ub4 layout, ub4 extra_flags = 0) {
    auto c = std::make_unique<ValueColumn>();
    c->enc.flags = layout | extra_flags;
    c->vec.enc_ctx = &c->enc;
    c->vec.size = static_cast<ub4>(values.size());
    std::size_t total = 0, max_len = 0;
    for (const auto &v : values) total += v.size(), max_len = std::max(max_len, v.size());
    c->enc.max_len = static_cast<ub2>(max_len);
    const std::size_t n = values.size();
    auto own_target = [&](const Value &v) {
        c->targets.push_back(std::make_unique<Bytes>(v.size()));
        std::copy(v.begin(), v.end(), c->targets.back()->data());
        return c->targets.back()->data();
    };
    switch (layout) {
        case VORN_LV_SEP: {
            c->data.resize(total);
            c->data2.resize(2 * n);
            std::size_t at = 0;
            for (std::size_t i = 0; i < n; ++i) {
                std::copy(values[i].begin(), values[i].end(), c->data.data() + at);
                c->where.push_back(c->data.data() + at);
                put_ub2(c->data2.data() + 2 * i, values[i].size());
                at += values[i].size();
            }
            break;
        }
        case VORN_LV: {
            c->data.resize(total + 2 * n);
            std::size_t at = 0;
            for (std::size_t i = 0; i < n; ++i) {
                put_ub2(c->data.data() + at, values[i].size());
                std::copy(values[i].begin(), values[i].end(), c->data.data() + at + 2);
                c->where.push_back(c->data.data() + at + 2);
                at += values[i].size() + 2;
            }
            break;
        }
        case VORN_PTR_LEN: {
            c->data.resize(8 * n);
            c->data2.resize(2 * n);
            for (std::size_t i = 0; i < n; ++i) {
                const ub1 *p = own_target(values[i]);
                const ub8 address = reinterpret_cast<ub8>(p);
                std::memcpy(c->data.data() + 8 * i, &address, 8);
                put_ub2(c->data2.data() + 2 * i, values[i].size());
                c->where.push_back(p);
            }
            break;
        }
        case VORN_LEN_PTR: {
            c->data.resize(10 * n);
            for (std::size_t i = 0; i < n; ++i) {
                const ub1 *p = own_target(values[i]);
                const ub8 address = reinterpret_cast<ub8>(p);
                put_ub2(c->data.data() + 10 * i, values[i].size());
                std::memcpy(c->data.data() + 10 * i + 2, &address, 8);
                c->where.push_back(p);
            }
            break;
        }
        case VORN_FIXED: {
            const std::size_t size = n ? values[0].size() : 1;
            c->enc.bit_width = static_cast<ub4>(8 * size);
            c->data.resize(size * n);
            for (std::size_t i = 0; i < n; ++i) {
                std::copy(values[i].begin(), values[i].end(), c->data.data() + size * i);
                c->where.push_back(c->data.data() + size * i);
            }
            break;
        }
    }
    c->vec.data = c->data.data();
    c->vec.data2 = c->data2.data();
    return c;
}

// An empty result column of a layout: room for `rows` rows and, for the
// walked layouts, `bytes` bytes of values.
inline std::unique_ptr<ValueColumn> result_column(ub4 layout, ub4 rows, ub8 bytes, ub4 fixed_size = 0) {
    auto c = std::make_unique<ValueColumn>();
    c->enc.flags = layout;
    c->enc.bit_width = 8 * fixed_size;
    c->vec.enc_ctx = &c->enc;
    c->vec.size = rows;
    c->vec.byte_capacity = bytes;
    const std::size_t data_bytes = layout == VORN_LEN_PTR ? 10 * rows
                                   : layout == VORN_PTR_LEN ? 8 * rows
                                   : layout == VORN_FIXED ? fixed_size * rows
                                                          : bytes;
    c->data.resize(data_bytes);
    c->data2.resize(2 * rows);
    c->vec.data = c->data.data();
    c->vec.data2 = c->data2.data();
    return c;
}

// The values a result column holds after a copy of res.size rows.  The
// pointer layouts give back the addresses' bytes.
inline std::vector<Value> copied_values(const ValueColumn &res, ub4 fixed_size = 0) {
    std::vector<Value> out;
    const ub1 *d = res.data.data(), *d2 = res.data2.data();
    std::size_t at = 0;
    for (ub4 k = 0; k < res.vec.size; ++k) {
        switch (res.enc.flags & (VORN_LV_SEP | VORN_LV | VORN_PTR_LEN | VORN_LEN_PTR | VORN_FIXED)) {
            case VORN_LV_SEP: {
                const ub2 len = get_ub2(d2 + 2 * k);
                out.emplace_back(d + at, d + at + len);
                at += len;
                break;
            }
            case VORN_LV: {
                const ub2 len = get_ub2(d + at);
                out.emplace_back(d + at + 2, d + at + 2 + len);
                at += len + 2;
                break;
            }
            case VORN_PTR_LEN: {
                const ub1 *p = reinterpret_cast<const ub1 *>(get_ub8(d + 8 * k));
                out.emplace_back(p, p + get_ub2(d2 + 2 * k));
                break;
            }
            case VORN_LEN_PTR: {
                const ub1 *p = reinterpret_cast<const ub1 *>(get_ub8(d + 10 * k + 2));
                out.emplace_back(p, p + get_ub2(d + 10 * k));
                break;
            }
            case VORN_FIXED:
                out.emplace_back(d + fixed_size * k, d + fixed_size * (k + 1));
                break;
        }
    }
    return out;
}

inline Value random_value(std::mt19937_64 &rng, std::size_t max_len, std::size_t min_len = 0) {
    Value v(min_len + rng() % (max_len - min_len + 1));
    for (auto &b : v) b = static_cast<ub1>(rng() % 4);
    return v;
}

inline const ub4 kValueLayouts[] = {VORN_LV_SEP, VORN_LV, VORN_PTR_LEN, VORN_LEN_PTR, VORN_FIXED};

inline const char *layout_name(ub4 layout) {
    switch (layout) {
        case VORN_LV_SEP: return "LV_SEP";
        case VORN_LV: return "LV";
        case VORN_PTR_LEN: return "PTR_LEN";
        case VORN_LEN_PTR: return "LEN_PTR";
        case VORN_FIXED: return "FIXED";
    }
    return "?";
}

}  // namespace vorntest
