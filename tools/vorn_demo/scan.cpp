#include "vorn_demo/scan.h"

#include <atomic>
#include <cstdio>
#include <chrono>
#include <thread>

namespace demo {
namespace {

using Clock = std::chrono::steady_clock;

const vornhost::Library *g_lib = nullptr;
thread_local Worker *t_worker = nullptr;
thread_local Scan *t_scan = nullptr;

}  // namespace

Scan::Scan(const vornhost::Library &lib, unsigned threads) : lib_(lib) {
    g_lib = &lib;
    for (unsigned i = 0; i < threads; ++i) {
        workers_.push_back(std::make_unique<Worker>());
        workers_.back()->id = i;
        workers_.back()->host.decoder = lib.ctx->vorn_lomp_decode_dydi;
    }
}

double Scan::for_units(ub4 units, const std::function<void(Worker &, ub4)> &fn) {
    std::atomic<ub4> next{0};
    auto body = [&](Worker *w) {
        t_worker = w;
        t_scan = this;
        lib_.ctx->vorn_thread_ctx_init_dydi();
        for (ub4 u; (u = next.fetch_add(1)) < units;) fn(*w, u);
        lib_.ctx->vorn_thread_ctx_fini_dydi();
    };
    const auto start = Clock::now();
    std::vector<std::thread> threads;
    for (std::size_t i = 1; i < workers_.size(); ++i) threads.emplace_back(body, workers_[i].get());
    body(workers_[0].get());
    for (auto &t : threads) t.join();
    return std::chrono::duration<double>(Clock::now() - start).count();
}

double Scan::best_of(int runs, ub4 units, const std::function<void(Worker &, ub4)> &fn) {
    double best = 0;
    for (int r = 0; r < runs; ++r) {
        const double t = for_units(units, fn);
        if (r == 0 || t < best) best = t;
    }
    return best;
}

template <class F>
ub8 Scan::timed(Worker &w, ub4 index, ub8 rows, F call) {
    const auto start = Clock::now();
    const ub8 code = call(lib_.table[index]);
    CallStats &s = w.stats[index];
    s.seconds += std::chrono::duration<double>(Clock::now() - start).count();
    s.rows += static_cast<double>(rows);
    ++s.calls;
    return code;
}

ub8 Scan::compare(Worker &w, ub4 index, vorn_vec *res, vorn_vec *src, const void *literal,
                  vorn_kernel_ctx *k, ub8 rows) {
    const void *literals[2] = {literal, nullptr};
    return timed(w, index, rows, [&](const vorn_kernel &f) { return f.cmp(res, src, literals, k); });
}

ub8 Scan::range(Worker &w, ub4 index, vorn_vec *res, vorn_vec *src, const void *low, const void *high,
                vorn_kernel_ctx *k, ub8 rows) {
    const void *lows[2] = {low, nullptr}, *highs[2] = {high, nullptr};
    return timed(w, index, rows, [&](const vorn_kernel &f) { return f.range(res, src, lows, highs, k); });
}

ub8 Scan::decode(Worker &w, ub4 index, vorn_vec *res, vorn_vec *src, vorn_kernel_ctx *k, ub8 rows) {
    return timed(w, index, rows, [&](const vorn_kernel &f) { return f.decode(res, src, k); });
}

ub8 Scan::minmax(Worker &w, ub4 index, vorn_vec *res, vorn_vec *src, vorn_kernel_ctx *k, ub4 mode, ub8 rows) {
    return timed(w, index, rows, [&](const vorn_kernel &f) { return f.minmax(res, src, k, mode); });
}

ub8 Scan::xlate(Worker &w, ub4 index, vorn_vec *res, vorn_vec *src, const void *table, vorn_kernel_ctx *k,
                ub8 rows) {
    return timed(w, index, rows, [&](const vorn_kernel &f) { return f.xlate(res, src, table, k); });
}

ub8 Scan::expand_runs(vorn_host_services *, vorn_vec *res, vorn_vec *src, vorn_kernel_ctx *runs) {
    const vorn_enc_ctx *enc = src->enc_ctx;
    const ub4 width_field = enc->rle_len_bits == 16 ? 14 : 6;
    const ub4 index = VORN_DISPATCH_INDEX(width_field * 4 + VORN_ENC_SPECIAL, VORN_OP_BURST, 0);
    if (t_scan && t_worker) return t_scan->decode(*t_worker, index, res, src, runs, src->size);
    return g_lib->table[index].decode(res, src, runs);
}

std::unique_ptr<vorn_stats> Scan::stats() const {
    auto out = std::make_unique<vorn_stats>();
    std::map<ub4, CallStats> all;
    for (const auto &w : workers_)
        for (const auto &[index, s] : w->stats) {
            CallStats &a = all[index];
            a.calls += s.calls;
            a.rows += s.rows;
            a.seconds += s.seconds;
        }
    for (const auto &[index, s] : all) {
        out->call_counts[index] = static_cast<ub4>(s.calls);
        out->mrows_per_sec[index] = s.seconds > 0 ? s.rows / s.seconds / 1e6 : 0;
    }
    return out;
}

void Scan::dump_slot_stats() const {
    std::map<std::string, CallStats> all;
    for (const auto &w : workers_)
        for (const auto &[name, s] : w->slot_stats) {
            CallStats &a = all[name];
            a.calls += s.calls, a.rows += s.rows, a.seconds += s.seconds;
        }
    for (const auto &[name, s] : all)
        std::printf("%-30s Call Freq: %llu\tMrowsPerSec: %0.1f\n", name.c_str(),
                    static_cast<unsigned long long>(s.calls), s.seconds > 0 ? s.rows / s.seconds / 1e6 : 0.0);
}

}  // namespace demo
