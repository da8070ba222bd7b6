#include "vorn_demo/table.h"

#include "host/lomp_encoder.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <cstdio>
#include <random>
#include <set>

namespace demo {
namespace {

// Two thousand city names, sorted: made of syllables so that they read as
// names and sort as strings.
Dictionary make_cities(std::mt19937_64 &rng) {
    static const char *const syllables[] = {"ba", "ber", "ca", "dor", "el", "fa", "gen", "ha", "is",
                                            "ka", "lon", "ma", "na", "or", "pa", "ri", "sa", "ton",
                                            "u", "va", "wen", "za", "burg", "ville", "port", "stad"};
    std::set<std::string> names;
    while (names.size() < 2000) {
        std::string n;
        const int parts = 2 + static_cast<int>(rng() % 3);
        for (int i = 0; i < parts; ++i) n += syllables[rng() % (sizeof syllables / sizeof *syllables)];
        n[0] = static_cast<char>(n[0] - 'a' + 'A');
        names.insert(n);
    }
    Dictionary d;
    d.symbols.assign(names.begin(), names.end());
    std::size_t total = 0;
    for (const auto &s : d.symbols) total += s.size();
    d.bytes.resize(total);
    ub4 off = 0;
    for (const auto &s : d.symbols) {
        d.offsets.push_back(__builtin_bswap32(off));
        std::memcpy(d.bytes.data() + off, s.data(), s.size());
        off += static_cast<ub4>(s.size());
    }
    d.offsets.push_back(__builtin_bswap32(off));
    return d;
}

void set_packed(PackedColumn &c, const std::vector<ub8> &codes, unsigned width, ub4 symbols) {
    c.width = width;
    c.stream = vornhost::pack_codes(codes, width);
    c.enc.flags = VORN_PACKED;
    c.enc.bit_width = width;
    c.enc.width_code = static_cast<ub1>(VORN_WIDTH_CODE(width));
    c.enc.kernel_group = static_cast<ub1>(VORN_KERNEL_GROUP(c.enc.width_code, VORN_ENC_DICT));
    c.enc.num_symbols = symbols;
}

Bytes big_endian_u32(const std::vector<ub8> &values) { return vornhost::fixed_column(values, 4); }

class Progress {
public:
    explicit Progress(bool on) : on_(on) {}
    void step(const char *what) {
        if (!on_) return;
        std::fprintf(stderr, "\rgenerating: %-40s", what);
        std::fflush(stderr);
    }
    ~Progress() {
        if (on_) std::fprintf(stderr, "\r%-60s\r", "");
    }

private:
    bool on_;
};

}  // namespace

void generate(Table &t, ub8 rows, ub8 seed, bool progress, vorn_rle_expand_fn expand) {
    Progress p(progress);
    std::mt19937_64 rng(seed);
    t.rows = rows;
    // Units of up to 2^20 rows; a small table is cut into about 16 units
    // still, so that every thread has work, each a multiple of 4,096 rows
    // (whole bytes of every packed column, whole words of every bit vector).
    t.unit_rows = 1u << 20;
    while (t.unit_rows > 4096 && (rows + t.unit_rows - 1) / t.unit_rows < 16) t.unit_rows >>= 1;
    t.units = static_cast<ub4>((rows + t.unit_rows - 1) / t.unit_rows);

    p.step("city dictionary");
    t.cities = make_cities(rng);
    p.step("city codes (11-bit, skewed)");
    std::vector<ub8> codes(rows);
    std::uniform_real_distribution<double> uni(0.0, 1.0);
    for (auto &c : codes) c = static_cast<ub8>(2000 * std::pow(uni(rng), 1.7)) % 2000;
    set_packed(t.city, codes, 11, 2000);
    t.city.enc.sym_base = t.cities.bytes.data();
    t.city.enc.sym_offsets = t.cities.offsets.data();
    t.city.enc.sym_layout = 1;

    p.step("channel codes (8-bit), compressed per unit");
    t.channels = {"app", "catalog", "email", "event", "fax", "kiosk", "mail", "market",
                  "outlet", "partner", "phone", "reseller", "social", "store", "tv", "web"};
    for (auto &c : codes) {
        // Most sales come through a few channels.
        const ub8 r = rng() % 100;
        c = r < 40 ? 15 : r < 65 ? 13 : r < 80 ? 0 : r < 90 ? 10 : rng() % 16;
    }
    set_packed(t.channel, codes, 8, 16);
    t.channel_lomp.resize(t.units);
    for (ub4 u = 0; u < t.units; ++u) {
        const ub8 first = t.unit_first(u), bytes = t.unit_size(u);
        t.channel_lomp[u].stream = vornhost::lomp_compress(t.channel.stream.data() + first, bytes).bytes;
        t.channel_lomp[u].plain_bytes = static_cast<ub4>(bytes);
    }
    t.channel_lomp_enc = t.channel.enc;
    t.channel_lomp_enc.flags |= VORN_LOMP;

    p.step("category codes (6-bit, 10% null)");
    for (auto &c : codes) c = rng() % 10 == 0 ? 0 : 1 + rng() % 40;
    set_packed(t.category, codes, 6, 41);

    p.step("amounts (fixed 32-bit)");
    for (auto &c : codes) c = rng() % 1000000;
    t.amount = big_endian_u32(codes);
    t.amount_enc.flags = VORN_FIXED;
    t.amount_enc.bit_width = 32;
    t.amount_enc.width_code = static_cast<ub1>(VORN_WIDTH_CODE(32));
    t.amount_enc.kernel_group = static_cast<ub1>(VORN_KERNEL_GROUP(t.amount_enc.width_code, VORN_ENC_FIXED));

    p.step("store numbers (aligned 32-bit codes)");
    for (auto &c : codes) c = rng() % 5000;
    t.store = big_endian_u32(codes);
    t.store_enc.flags = VORN_ALIGNED;
    t.store_enc.bit_width = 32;
    t.store_enc.num_symbols = 5000;
    t.store_region.resize(5000);
    for (auto &r : t.store_region) r = rng() % 20 == 0 ? 255 : static_cast<ub1>(rng() % 12);

    p.step("status runs (4-bit codes)");
    t.status.resize(t.units);
    for (ub4 u = 0; u < t.units; ++u) {
        RleUnit &r = t.status[u];
        std::vector<ub8> run_codes;
        std::vector<ub1> lens;
        for (ub4 left = t.unit_size(u); left > 0;) {
            const ub4 len = std::min<ub4>(left, 1 + static_cast<ub4>(rng() % 255));
            run_codes.push_back(rng() % 10);
            lens.push_back(static_cast<ub1>(len));
            left -= len;
        }
        r.runs = static_cast<ub4>(run_codes.size());
        r.codes = vornhost::pack_codes(run_codes, 4);
        r.lengths.resize(lens.size());
        std::memcpy(r.lengths.data(), lens.data(), lens.size());
        r.run_bv.assign(r.runs / 64 + 2, 0);
        r.enc.flags = VORN_PACKED | VORN_RLE;
        r.enc.bit_width = 4;
        r.enc.width_code = static_cast<ub1>(VORN_WIDTH_CODE(4));
        r.enc.kernel_group = static_cast<ub1>(VORN_KERNEL_GROUP(r.enc.width_code, VORN_ENC_DICT));
        r.enc.num_symbols = 10;
        r.enc.rle_lens = r.lengths.data();
        r.enc.rle_len_bits = 8;
        r.enc.rle_runs = r.runs;
        r.enc.rle_bv = r.run_bv.data();
        r.enc.rle_expand = expand;
    }

    p.step("visible rows");
    t.visible.assign((rows + 63) / 64 + 1, ~ub8{0});
    for (ub8 i = 0; i < rows / 200; ++i) {
        const ub8 r = rng() % rows;
        t.visible[r >> 6] &= ~(ub8{1} << (r & 63));
    }
    if (rows % 64) t.visible[rows / 64] &= (ub8{1} << (rows % 64)) - 1;
}

}  // namespace demo
