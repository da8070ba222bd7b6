// combine_host.cpp - a C++ host on the host kit (vorn_kit.h): two predicates
// on two columns, their bit vectors combined by the library, the minimum and
// maximum code of a third, compressed column over the combined rows, and
// those rows decoded.  Build: c++ -std=c++17 combine_host.cpp -lvorn_kit
// -rdynamic -ldl (pkg-config --cflags --libs vorn_kit).
//
// (This example will become a hash join: hash a key column, build a table,
// probe it with a second column and gather the matches, once the hash and
// key-value table entries are served by the library.)
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "vorn_kit.h"

#ifndef VORN_LIBRARY
#define VORN_LIBRARY nullptr
#endif

extern "C" void vornhost_raise_internal(void *, ub8, const char *message, ...) {
    std::fprintf(stderr, "library raised: %s\n", message);
    std::exit(3);
}

namespace {

constexpr ub8 kRows = 5000;

// A column's bytes and records; the vector points at the bytes.
struct Column {
    std::vector<ub1> bytes;
    vorn_enc_ctx enc{};
    vorn_vec vec{};
    void *cell = nullptr;  // decomp_slot: the decompressed stream, once made
};

int fail(const char *what, ub8 rc) {
    std::fprintf(stderr, "%s: %s (%s)\n", what, vorn_kit_rc_name(rc), vorn_kit_rc_text(rc));
    return 1;
}

}  // namespace

int main(int argc, char **argv) {
    char error[256];
    const vorn_specialized_ctx *ctx = vorn_kit_open(argc > 1 ? argv[1] : VORN_LIBRARY, nullptr, error, sizeof error);
    if (!ctx) return std::fprintf(stderr, "%s\n", error), 1;
    vorn_kit_host *host = vorn_kit_host_create(nullptr);
    vorn_kernel_ctx kctx{};
    kctx.host = vorn_kit_host_services(host);

    // amount: 32-bit big-endian values; status: 3-bit codes, 0 for null;
    // city: 10-bit codes of 1000 names, stored compressed.
    std::vector<ub8> amount(kRows), status(kRows), city(kRows);
    for (ub8 i = 0; i < kRows; ++i) {
        amount[i] = (i * 2654435761u) % 100000;
        status[i] = i % 7;
        city[i] = (i * 31 + i / 9) % 1000;
    }
    Column a, s, c;
    a.bytes.resize(vorn_kit_fixed_bytes(kRows, 4));
    vorn_kit_put_fixed(a.bytes.data(), amount.data(), kRows, 4);
    vorn_kit_fixed_enc(&a.enc, 32);
    s.bytes.resize(vorn_kit_packed_bytes(kRows, 3));
    vorn_kit_pack(s.bytes.data(), status.data(), kRows, 3);
    vorn_kit_packed_enc(&s.enc, 3, 7);
    std::vector<ub1> packed(vorn_kit_packed_bytes(kRows, 10));
    vorn_kit_pack(packed.data(), city.data(), kRows, 10);
    size_t stream_bytes = 0;
    ub1 *stream = vorn_kit_lomp_compress(packed.data(), (kRows * 10 + 7) / 8, &stream_bytes);
    c.bytes.assign(stream, stream + stream_bytes + 16);
    std::free(stream);
    vorn_kit_packed_enc(&c.enc, 10, 1000);
    c.enc.flags |= VORN_LOMP;
    std::vector<char> names(1000 * 4 + 1);  // "C000" to "C999", 4 bytes each
    for (int k = 0; k < 1000; ++k) std::snprintf(&names[k * 4], 5, "C%03d", k);
    const ub1 header[2] = {0, 4};
    c.enc.sym_base = names.data(), c.enc.sym_header = header;
    for (Column *col : {&a, &s, &c}) {
        col->vec.data = col->bytes.data();
        col->vec.size = kRows;
        col->vec.enc_ctx = &col->enc;
    }
    c.vec.decomp_size = (kRows * 10 + 7) / 8, c.vec.decomp_slot = &c.cell;

    // amount between 20000 and 60000 (literals big-endian, as stored) ...
    const size_t words = vorn_kit_bv_words(kRows);
    std::vector<ub8> in_range(words), not_three(words), both(words);
    ub1 lo_be[4 + VORN_KIT_SLACK], hi_be[4 + VORN_KIT_SLACK];
    const ub8 lo = 20000, hi = 60000;
    vorn_kit_put_fixed(lo_be, &lo, 1, 4);
    vorn_kit_put_fixed(hi_be, &hi, 1, 4);
    const void *low[1] = {lo_be}, *high[1] = {hi_be};
    vorn_vec r1{}, r2{};
    r1.res_bv = in_range.data(), r2.res_bv = not_three.data();
    const vorn_kernel *table = ctx->dispatch_table;
    ub8 rc = table[VORN_DISPATCH_INDEX(a.enc.kernel_group, VORN_OP_GE_LE, 0)].range(&r1, &a.vec, low, high, nullptr);
    if (rc > VORN_RC_EMPTY) return fail("amount", rc);
    // ... and status <> 3, nulls never matching (the _null form) ...
    const ub4 three = 3;
    const void *lit[1] = {&three};
    rc = table[VORN_DISPATCH_INDEX(s.enc.kernel_group, VORN_OP_NE, 1)].cmp(&r2, &s.vec, lit, nullptr);
    if (rc > VORN_RC_EMPTY) return fail("status", rc);
    // ... combined by the library's AND of word vectors.
    ub4 count = 0;
    ctx->vorn_lbiwvand_dydi(both.data(), &count, in_range.data(), not_three.data(), kRows);
    std::printf("amount in [20000, 60000]: %u rows; status not null and <> 3: %u; both: %u\n", r1.num_ones,
                r2.num_ones, count);

    // Smallest and largest city code over those rows; the first kernel that
    // reads the compressed column decompresses it into c.cell.
    ub4 minmax[2] = {0, 0};
    vorn_vec mm{};
    mm.data = minmax;
    kctx.bv_aux = both.data();
    rc = table[VORN_DISPATCH_INDEX(c.enc.kernel_group, VORN_OP_MINMAX, 0)].minmax(&mm, &c.vec, &kctx, 0);
    if (rc > VORN_RC_EMPTY) return fail("minmax", rc);
    kctx.bv_aux = nullptr;

    // The rows, then their city names.
    std::vector<ub4> rows(count + 64);
    vorn_bv_iter it;
    ctx->vorn_lbiwv_ictx_ini2_dydi(&it, both.data(), kRows, 0, 0);
    ub4 n = 0;
    for (ub4 got; (got = ctx->vorn_lbiwvones_dydi(&it, rows.data() + n, 64)) > 0;) n += got;
    std::vector<ub8> ptr(n + 2);
    std::vector<ub2> len(n + 8), ind(n + 8);
    vorn_vec out{};
    out.data = ptr.data(), out.data2 = len.data(), out.data3 = ind.data();
    kctx.ones_vec = rows.data(), kctx.ones_vec_size = n;
    rc = table[VORN_DISPATCH_INDEX(c.enc.kernel_group, VORN_OP_DECODE, 0)].decode(&out, &c.vec, &kctx);
    if (rc != VORN_RC_OK) return fail("decode", rc);

    // A plain loop over the same rows must agree.
    ub8 want = 0, want_min = 1000, want_max = 0;
    for (ub8 i = 0; i < kRows; ++i) {
        if (amount[i] < lo || amount[i] > hi || status[i] == 0 || status[i] == 3) continue;
        ++want;
        want_min = city[i] < want_min ? city[i] : want_min;
        want_max = city[i] > want_max ? city[i] : want_max;
    }
    auto symbol = [&](ub4 j) { return reinterpret_cast<const char *>(ptr[j]); };  // 4 bytes, no terminator
    std::printf("city codes %u to %u (%.4s to %.4s); %u rows decoded: %.4s %.4s %.4s ...\n", minmax[0], minmax[1],
                &names[minmax[0] * 4], &names[minmax[1] * 4], out.num_ones, symbol(0), symbol(1), symbol(2));
    std::printf("the compressed column was decompressed %llu time(s)\n",
                static_cast<unsigned long long>(vorn_kit_host_decode_calls(host)));
    vorn_kit_host_destroy(host);
    bool same = want == count && n == count && minmax[0] == want_min && minmax[1] == want_max;
    for (ub4 j = 0; j < n; ++j) same = same && std::memcmp(symbol(j), &names[city[rows[j]] * 4], 4) == 0;
    if (!same) return std::fprintf(stderr, "the library and the plain loop differ\n"), 1;
    std::printf("all answers agree with a plain loop\n");
    return 0;
}
