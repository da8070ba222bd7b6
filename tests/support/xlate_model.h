// xlate_model.h - translation tables as a host lays them out, and the plain
// row-at-a-time translation that the vorn_xlate_* kernels are checked
// against.  Every table is held in buffers of exactly its size, so that the
// sanitizer build catches a kernel that reads an entry outside the range.
#pragma once

#include <cstring>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "vorn.h"

namespace vorntest::xlate {

enum Kind : ub4 { kSim, kOff, kInd };
enum Elem : ub4 { kBit, kNib, kUb1, kUb2, kUb4 };
enum Form : ub4 { kPlain, kCla, kConst, kSep };

inline const char *kind_name(ub4 k) { return k == kSim ? "sim" : k == kOff ? "off" : k == kInd ? "ind" : "groupkey"; }
inline const char *elem_name(ub4 e) {
    static const char *names[] = {"bit", "nib", "ub1", "ub2", "ub4"};
    return names[e];
}
inline std::string member_name(ub4 kind, ub4 elem, bool c2d) {
    return std::string("vorn_xlate_") + kind_name(kind) + "_" + elem_name(elem) + (c2d ? "_c2d" : "");
}

// The dispatch index: operation 17, encoding = kind, width field = form * 8 + element.
inline ub4 member_index(ub4 kind, ub4 elem, ub4 form, bool c2d) {
    return (c2d ? 4096u : 0u) | ((form * 8 + elem) << 7) | (kind << 5) | 17u;
}

// Bytes of one output element of a _c2d member.
inline unsigned out_bytes(ub4 elem) { return elem == kUb4 ? 4 : elem == kUb2 ? 2 : 1; }
// The element of the output array, read as a table entry: nibbles and bits
// come out as bytes.
inline ub4 out_elem(ub4 elem) { return elem == kUb4 || elem == kUb2 ? elem : kUb1; }
inline ub4 all_ones(ub4 elem) { return elem == kUb4 ? 0xffffffffu : elem == kUb2 ? 0xffffu : 0xffu; }

// Bytes of a table or page of `entries` entries.
inline std::size_t entry_bytes(ub4 elem, ub8 entries) {
    switch (elem) {
        case kBit: return (entries + 7) / 8;
        case kNib: return (entries + 1) / 2;
        default: return entries * out_bytes(elem);
    }
}

inline void put_entry(std::vector<ub1> &bytes, ub4 elem, ub8 i, ub4 v) {
    switch (elem) {
        case kBit: bytes[i / 8] = static_cast<ub1>((bytes[i / 8] & ~(1u << (i % 8))) | (v & 1) << (i % 8)); break;
        case kNib:
            bytes[i / 2] = static_cast<ub1>(i % 2 ? (bytes[i / 2] & 0x0f) | (v & 15) << 4 : (bytes[i / 2] & 0xf0) | (v & 15));
            break;
        case kUb1: bytes[i] = static_cast<ub1>(v); break;
        case kUb2: { const ub2 x = static_cast<ub2>(v); std::memcpy(&bytes[2 * i], &x, 2); break; }
        case kUb4: std::memcpy(&bytes[4 * i], &v, 4); break;
    }
}

inline ub4 get_entry(const ub1 *bytes, ub4 elem, ub8 i) {
    switch (elem) {
        case kBit: return (bytes[i / 8] >> (i % 8)) & 1;
        case kNib: return (bytes[i / 2] >> (i % 2 * 4)) & 15;
        case kUb1: return bytes[i];
        case kUb2: { ub2 x; std::memcpy(&x, bytes + 2 * i, 2); return x; }
        default: { ub4 x; std::memcpy(&x, bytes + 4 * i, 4); return x; }
    }
}

// An entry as a translation reads it: kept or not, and the value.
inline bool entry_keeps(ub4 elem, ub4 v) {
    return elem == kBit ? v == 0 : elem == kNib ? v != 15 : elem == kUb1 ? v != 255 : true;
}

// A random entry; about `none` of them say "no mapping" where the element
// has such a value.
inline ub4 random_entry(std::mt19937_64 &rng, ub4 elem, double none) {
    std::bernoulli_distribution no(none);
    switch (elem) {
        case kBit: return no(rng) ? 1 : 0;
        case kNib: return no(rng) ? 15 : static_cast<ub4>(rng() % 15);
        case kUb1: return no(rng) ? 255 : static_cast<ub4>(rng() % 255);
        case kUb2: return static_cast<ub4>(rng() & 0xffff);
        default: return static_cast<ub4>(rng());
    }
}

// A table with its record.  `codes` is the number of codes it covers from
// code 0 (sim, ind) or from `base` (off).
struct Table {
    ub4 kind = kSim, elem = kUb1;
    ub4 codes = 0;
    vorn_xlate_table rec{};
    std::vector<ub1> flat;                 // sim, off
    std::vector<std::vector<ub1>> pages;   // ind; empty = null page
    std::vector<const void *> dir;

    Table() = default;
    Table(const Table &) = delete;

    // The model's own lookup: whether code c has a mapping and its entry.
    std::optional<ub4> lookup(ub4 c) const {
        ub8 i = c;
        const ub1 *bytes = nullptr;
        if (kind == kSim) {
            if (c >= codes) return std::nullopt;
            bytes = flat.data();
        } else if (kind == kOff) {
            if (c < rec.base || c - rec.base >= codes) return std::nullopt;
            i = c - rec.base;
            bytes = flat.data();
        } else {
            const ub8 p = ub8{c} >> rec.page_shift;
            if (p >= pages.size() || pages[p].empty()) return std::nullopt;
            i = c & rec.page_mask;
            bytes = pages[p].data();
        }
        const ub4 v = get_entry(bytes, elem, i);
        if (!entry_keeps(elem, v)) return std::nullopt;
        return v;
    }
};

inline std::unique_ptr<Table> random_table(std::mt19937_64 &rng, ub4 kind, ub4 elem, ub4 codes) {
    auto t = std::make_unique<Table>();
    t->kind = kind;
    t->elem = elem;
    t->codes = codes;
    const double none = std::uniform_real_distribution<double>(0.0, 0.5)(rng);
    if (kind == kInd) {
        t->rec.page_shift = rng() % 7;
        // Mostly a page of 1 << shift entries; sometimes a mask narrower
        // than the page, which the lookup takes as it comes.
        ub8 mask = (ub8{1} << t->rec.page_shift) - 1;
        if (t->rec.page_shift > 0 && rng() % 5 == 0) mask >>= 1;
        t->rec.page_mask = mask;
        const ub8 npages = codes == 0 ? 0 : ((codes - 1) >> t->rec.page_shift) + 1;
        t->pages.resize(npages);
        t->dir.assign(npages, nullptr);
        for (ub8 p = 0; p < npages; ++p) {
            if (rng() % 4 == 0) continue;  // a null page
            t->pages[p].assign(entry_bytes(elem, mask + 1), 0);
            for (ub8 i = 0; i <= mask; ++i) put_entry(t->pages[p], elem, i, random_entry(rng, elem, none));
            t->dir[p] = t->pages[p].data();
        }
        t->rec.table = t->dir.data();
    } else {
        if (kind == kOff) t->rec.base = rng() % 3 == 0 ? 0 : rng() % 200;
        t->flat.assign(entry_bytes(elem, codes), 0);
        for (ub8 i = 0; i < codes; ++i) put_entry(t->flat, elem, i, random_entry(rng, elem, none));
        t->rec.table = t->flat.data();
    }
    t->rec.host_words[0] = 0xdead;  // not read
    return t;
}

// The expected outcome of one call over rows [start, end).
struct Expected {
    std::vector<bool> kept;       // by row, from start
    std::vector<ub4> values;      // by row, from start: value or all ones
    ub8 count = 0;
    ub8 first = VORN_XLATE_NO_ROW, last = VORN_XLATE_NO_ROW;
};

inline Expected translate_model(const Table &t, const std::vector<ub4> &codes, ub8 start, ub8 end, ub4 low,
                                ub4 high, const ub8 *aux) {
    Expected e;
    for (ub8 r = start; r < end; ++r) {
        const ub4 c = codes[r];
        bool keep = !aux || ((aux[r / 64] >> (r % 64)) & 1);
        std::optional<ub4> v;
        if (keep && c >= low && c <= high) v = t.lookup(c);
        keep = keep && v.has_value();
        e.kept.push_back(keep);
        e.values.push_back(keep ? *v : all_ones(t.elem));
        if (keep) {
            ++e.count;
            if (e.first == VORN_XLATE_NO_ROW) e.first = r;
            e.last = r;
        }
    }
    return e;
}

}  // namespace vorntest::xlate
