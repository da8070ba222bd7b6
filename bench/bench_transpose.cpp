// Transpose: vorn_transpose_fixed_dydi of a 1, 2, 4 or 8-byte column into
// rows of 32 bytes, in cache (1024 rows: 32 KiB of rows, in the first-level cache), beside a plain
// strided loop that copies one element per row, and the streaming read of
// the bytes moved (the column read and written once).  Also the dictionary
// loop (ub4 codes through a table of ub4 values) beside its plain loop.
#include <memory>

#include "support/bench_support.h"

namespace {

using namespace vornbench;

constexpr ub4 kRows = 1024;
constexpr ub2 kStride = 32;

struct Target {
    Bytes column, rows;
    std::vector<ub4> codes, values;
    ub1 lens[2], offsets[2] = {0, 4};
    ub1 *cursor[1];
    vorn_enc_ctx enc{};
    vorn_vec src{};
    vorn_transpose_spec spec{};
    explicit Target(ub1 width, bool dictionary = false)
        : column(8 * ub8{kRows}), rows(ub8{kStride} * kRows), codes(kRows), values(1024) {
        for (ub4 i = 0; i < 8 * kRows; ++i) column.data()[i] = static_cast<ub1>(rng()());
        for (auto &c : codes) c = static_cast<ub4>(rng()() % values.size());
        for (auto &v : values) v = static_cast<ub4>(rng()());
        lens[0] = lens[1] = width;
        cursor[0] = rows.data();
        enc.flags = dictionary ? VORN_CODE_ARRAY | VORN_CODE_VALUES : VORN_FIXED;
        enc.bit_width = 8u * width;
        enc.code_values = values.data();
        src.enc_ctx = &enc;
        src.data = dictionary ? static_cast<void *>(codes.data()) : column.data();
        src.size = kRows;
        spec.flags = VORN_STORE_FIXED;
        spec.num_cols = 2;
        spec.row_stride = kStride;
        spec.col_lens = lens;
        spec.col_offsets = offsets;
        spec.data_cursors = cursor;
    }
};

Target &target(ub1 width, bool dictionary) {
    static std::unique_ptr<Target> cache[2][9];
    auto &t = cache[dictionary][width];
    if (!t) t = std::make_unique<Target>(width, dictionary);
    return *t;
}

double bytes_moved(ub1 width) { return 2.0 * width * kRows; }

void transpose_kernel(benchmark::State &state, ub1 width, bool dictionary) {
    Target &t = target(width, dictionary);
    for (auto _ : state) {
        benchmark::DoNotOptimize(ctx().vorn_transpose_fixed_dydi(&t.spec, &t.src, 1, 0, nullptr));
        benchmark::ClobberMemory();
    }
    set_rates(state, kRows, bytes_moved(width));
}

// The plain loop: one element of the column to its row, row after row.
template <class T>
VORN_SCALAR void scalar_transpose(ub1 *dst, const ub1 *src, ub4 n) {
    for (ub4 i = 0; i < n; ++i) std::memcpy(dst + ub8{i} * kStride, src + sizeof(T) * i, sizeof(T));
}

VORN_SCALAR void scalar_dictionary(ub1 *dst, const ub4 *codes, const ub4 *values, ub4 n) {
    for (ub4 i = 0; i < n; ++i) std::memcpy(dst + ub8{i} * kStride, &values[codes[i]], 4);
}

void transpose_scalar(benchmark::State &state, ub1 width, bool dictionary) {
    Target &t = target(width, dictionary);
    ub1 *dst = t.rows.data() + 4;
    for (auto _ : state) {
        if (dictionary) scalar_dictionary(dst, t.codes.data(), t.values.data(), kRows);
        else if (width == 1) scalar_transpose<ub1>(dst, t.column.data(), kRows);
        else if (width == 2) scalar_transpose<ub2>(dst, t.column.data(), kRows);
        else if (width == 4) scalar_transpose<ub4>(dst, t.column.data(), kRows);
        else scalar_transpose<ub8>(dst, t.column.data(), kRows);
        benchmark::ClobberMemory();
    }
    set_rates(state, kRows, bytes_moved(width));
}

void register_all() {
    for (ub1 width : {1, 2, 4, 8}) {
        const std::string g = "transpose_fixed/" + std::to_string(width) + "byte";
        register_group(
            g, [width](benchmark::State &st) { transpose_kernel(st, width, false); },
            [width](benchmark::State &st) { transpose_scalar(st, width, false); },
            [width](benchmark::State &st) {
                Target &t = target(width, false);
                bandwidth(st, t.rows.data(), static_cast<std::size_t>(bytes_moved(width)), kRows);
            });
    }
    register_group(
        "transpose_fixed/gd", [](benchmark::State &st) { transpose_kernel(st, 4, true); },
        [](benchmark::State &st) { transpose_scalar(st, 4, true); },
        [](benchmark::State &st) {
            Target &t = target(4, true);
            bandwidth(st, t.rows.data(), static_cast<std::size_t>(bytes_moved(4)), kRows);
        });
}

const bool registered = (register_all(), true);

}  // namespace

VORN_BENCH_MAIN()
