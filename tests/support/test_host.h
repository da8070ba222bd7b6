// test_host.h - the host fake every test runs against.  It reaches the
// library as a server does (dlopen, the context record, the dispatch table),
// defines the one function the library imports, and builds columns and
// result vectors with slack behind them.
#pragma once

#include <memory>
#include <random>
#include <string>
#include <vector>

#include "host/columns.h"
#include "host/hash_callback.h"
#include "host/host_services.h"
#include "host/library.h"
#include "vorn.h"

namespace vorntest {

using vornhost::Bytes;

// ---- The library -----------------------------------------------------------
const vorn_specialized_ctx &ctx();
const vorn_kernel &kernel(ub4 index);

// The widths of the packed dictionary kernels.
inline constexpr unsigned kPackedWidths[] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20, 24, 32};
// A kernel's dispatch index: the group of `width` in `encoding`, `op`, and
// the second form (_null, _tz) when `second` is set.
inline ub4 kernel_index(unsigned width, ub4 encoding, unsigned op, bool second = false) {
    return VORN_DISPATCH_INDEX(VORN_KERNEL_GROUP(VORN_WIDTH_CODE(width), encoding), op, second);
}

// ---- vornhost_raise_internal -----------------------------------------------
struct Raise {
    void *env;
    ub8 error_context;
    std::string message;
};
// What the library raised since the last clear, in order.
std::vector<Raise> &raised();
void clear_raised();

// ---- The host ---------------------------------------------------------------
struct TestHost : vornhost::HostServices {
    // A kernel context with host = this host and everything else zero.
    vorn_kernel_ctx kctx();
    // Makes lomp_decode copy the column's data as it stands: the test's
    // "compressed" stream is then the plain stream, which is all a kernel
    // that only calls the slot may care about.
    void use_copying_decoder();
    // Makes lomp_decode zero the output and fail with 24: a kernel goes on
    // with zero values and raises under its own name.
    void use_failing_decoder();
};

// rle_expand of the test host: the library's burst kernel for the source's
// lengths, called through the dispatch table as a server would:
// vorn_burst_rle_8bit or vorn_burst_rle_16bit by rle_len_bits, their _cla
// form when the column has rle_cla.  Counts its calls.  (The name stays for
// the tests that pass it to make_rle.)
ub8 scalar_rle_expand(vorn_host_services *host, vorn_vec *res, vorn_vec *src, vorn_kernel_ctx *runs);
extern unsigned rle_expand_calls;

// The host's hash callback of the hash and partition entries: XXH3 with the
// seed, as the reference host uses it.
inline constexpr vorn_hash_fn host_hash = vornhost::xxh3_hash;

// ---- Columns ----------------------------------------------------------------
// A source column: its stored bytes, its encoding context and its vector.
// Not copyable: the vector points into the object.
struct Column {
    vorn_enc_ctx enc{};
    vorn_vec vec{};
    Bytes data, data2, lens, cla;
    std::vector<ub8> rle_bv;
    void *cell = nullptr;  // the decomp_slot cell

    Column() = default;
    Column(const Column &) = delete;
    Column &operator=(const Column &) = delete;

    void set_data(Bytes bytes);
    // Flags the column VORN_LOMP with a copying-decoder stream: the host must
    // use_copying_decoder().  The cell starts empty.
    void compress_by_copy();
    // Turns the column into runs: `data` then holds one code per run, and
    // lengths are stored as ub1 (len_bits 8) or big-endian ub2 (16).
    void make_rle(const std::vector<ub4> &lengths, unsigned len_bits,
                  vorn_rle_expand_fn expand = scalar_rle_expand);
    // Adds the cumulative length array of the runs (rle_cla): big-endian
    // ub4, rle_runs + 1 entries.  Call after make_rle.
    void add_cla();
};

// Codes of width w in the packed layout; `group` is the dispatch group.
std::unique_ptr<Column> packed_column(const std::vector<ub8> &codes, unsigned width);
// Big-endian values of `bytes` bytes, with enc.bit_width = `bit_width`.
std::unique_ptr<Column> fixed_column(const std::vector<ub8> &values, unsigned bytes, unsigned bit_width);

// ---- Results -----------------------------------------------------------------
// A result bit vector of `rows` rows with guard words behind it that hold a
// pattern the kernels must not touch.
struct Result {
    std::vector<ub8> bv;
    vorn_vec vec{};
    ub8 rows;
    static constexpr ub8 kGuard = 0xa5a5a5a5a5a5a5a5ull;

    explicit Result(ub8 rows, ub8 fill = 0x5a5a5a5a5a5a5a5aull);
    Result(const Result &) = delete;
    bool bit(ub8 i) const { return vornhost::test_bit(bv.data(), i); }
    // True when no bit at `n` or beyond is set in the last word of n bits.
    bool clear_behind(ub8 n) const;
    bool guard_intact() const;
};

// ---- Models -----------------------------------------------------------------
// The compare forms 0..9 on unsigned numbers: x against a (and b).
bool compare_model(unsigned op, ub8 x, ub8 a, ub8 b);
const char *compare_name(unsigned op);
inline bool is_range_op(unsigned op) { return op >= 6 && op <= 9; }

// Random bits with a chosen density in [0, 1].
std::vector<ub8> random_bits(std::mt19937_64 &rng, ub8 bits, double density);

}  // namespace vorntest
