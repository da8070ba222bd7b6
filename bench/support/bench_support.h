// bench_support.h - what every family's benchmark shares.
//
// A family's benchmark times, in one run, three things over the same data:
//   <group>/kernel     the library's kernel, called through the dispatch table
//                      or a slot, as a host calls it;
//   <group>/scalar     a plain scalar loop that computes the same result;
//   <group>/bandwidth  a streaming read of the same bytes: the physical limit;
//   <group>/peer       where a family has one, a peer library on the same data.
// Each reports rows/s and bytes/s through set_rates().  At the end of the run
// the reporter prints one table with, per group, the ratios kernel/scalar
// and kernel/bandwidth (the ratio of the times for the same bytes), and
// kernel/peer where a group has a peer row, and with
// --vorn_results=FILE appends that table in Markdown to FILE.
#pragma once

#include <benchmark/benchmark.h>

#include <cstddef>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "host/columns.h"
#include "host/host_services.h"
#include "host/library.h"
#include "vorn.h"

// A scalar baseline is a plain loop, one row at a time, that the compiler
// must not turn into vector code: otherwise it would measure the compiler's
// SIMD, not a scalar loop.
#define VORN_SCALAR __attribute__((noinline, optimize("no-tree-vectorize")))

namespace vornbench {

using vornhost::Bytes;

inline const vorn_specialized_ctx &ctx() { return *vornhost::library().ctx; }
inline const vorn_kernel &kernel(ub4 index) { return vornhost::library().table[index]; }

// Sizes of the two regimes the benchmarks measure.
inline constexpr std::size_t kInCacheBytes = 64 << 10;      // about 64 KiB: in L2
inline constexpr std::size_t kOutOfCacheBytes = 256 << 20;  // 256 MiB: out of every cache

// Reads `bytes` bytes at p in 16-byte loads, four streams deep, and returns
// a value that depends on all of them: the streaming read bandwidth.
ub8 stream_read(const void *p, std::size_t bytes);

// Reads a and b and writes dst, 16 bytes at a time: the bandwidth of a
// 3-stream copy of the same bytes as a two-source bit-vector operation.
void stream_copy3(void *dst, const void *a, const void *b, std::size_t bytes);

// The reference read of the packed code at bit position `bitpos`, as a
// host's plain loop does it: four bytes, a byte swap, two shifts.
inline ub4 reference_read(const ub1 *stream, unsigned width, ub8 bitpos) {
    ub4 v;
    std::memcpy(&v, stream + (bitpos >> 3), 4);
    return (__builtin_bswap32(v) << (bitpos & 7)) >> (32 - width);
}

// Sets the counters the reporter reads: rows and bytes per iteration.
void set_rates(benchmark::State &state, double rows, double bytes);

// The bandwidth benchmark of a group: a streaming read of `bytes` at p.
void bandwidth(benchmark::State &state, const void *p, std::size_t bytes, double rows);

// The benchmarks' names in the order they were registered: the order of the
// ratio table, whatever order the repetitions ran in.
std::vector<std::string> &registered_names();

// Registers one row of a group, <group>/<role>, with fn(state, args...).
template <class Fn, class... Args>
benchmark::internal::Benchmark *register_row(const std::string &group, const char *role, Fn fn, Args... args) {
    registered_names().push_back(group + "/" + role);
    return benchmark::RegisterBenchmark(registered_names().back().c_str(), fn, args...);
}

// Registers the three rows the reporter pairs: the kernel, the scalar loop
// and the streaming read, each a callable taking the benchmark state.
template <class Kernel, class Scalar, class Read>
void register_group(const std::string &group, Kernel kernel, Scalar scalar, Read read) {
    register_row(group, "kernel", kernel);
    register_row(group, "scalar", scalar);
    register_row(group, "bandwidth", read);
}

// Random 64-bit numbers from a fixed seed.
std::mt19937_64 &rng();

// Runs the registered benchmarks with the ratio reporter; use as main().
int run_main(int argc, char **argv);

}  // namespace vornbench

#define VORN_BENCH_MAIN() \
    int main(int argc, char **argv) { return vornbench::run_main(argc, argv); }
