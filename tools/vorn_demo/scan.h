// scan.h - the demo's scan layer: worker threads with their own host
// services, column units handed out to them, and every kernel call made
// through the dispatch table and timed into the host's statistics.
#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "host/host_services.h"
#include "host/library.h"
#include "vorn.h"

namespace demo {

struct CallStats {
    ub8 calls = 0;
    double rows = 0, seconds = 0;
};

// One scanning thread: its host services (environment, arena) and the
// statistics of the kernels it called.
struct Worker {
    unsigned id = 0;
    vornhost::HostServices host;
    std::map<ub4, CallStats> stats;
    std::map<std::string, CallStats> slot_stats;  // entries called through slots, by name

    vorn_kernel_ctx kctx() {
        vorn_kernel_ctx k{};
        k.host = &host.services;
        return k;
    }
};

class Scan {
public:
    Scan(const vornhost::Library &lib, unsigned threads);

    unsigned threads() const { return static_cast<unsigned>(workers_.size()); }
    const vorn_specialized_ctx &ctx() const { return *lib_.ctx; }

    // Runs fn(worker, unit) for units 0..units-1 on all threads, each unit
    // on one thread; returns the wall time in seconds.
    double for_units(ub4 units, const std::function<void(Worker &, ub4)> &fn);
    // The same, `runs` times over; returns the best wall time.
    double best_of(int runs, ub4 units, const std::function<void(Worker &, ub4)> &fn);

    // Kernel calls by dispatch index, timed into the worker's statistics
    // with `rows` as the rows the call covered.
    ub8 compare(Worker &w, ub4 index, vorn_vec *res, vorn_vec *src, const void *literal,
                vorn_kernel_ctx *k, ub8 rows);
    ub8 range(Worker &w, ub4 index, vorn_vec *res, vorn_vec *src, const void *low, const void *high,
              vorn_kernel_ctx *k, ub8 rows);
    ub8 decode(Worker &w, ub4 index, vorn_vec *res, vorn_vec *src, vorn_kernel_ctx *k, ub8 rows);
    ub8 minmax(Worker &w, ub4 index, vorn_vec *res, vorn_vec *src, vorn_kernel_ctx *k, ub4 mode, ub8 rows);
    ub8 xlate(Worker &w, ub4 index, vorn_vec *res, vorn_vec *src, const void *table, vorn_kernel_ctx *k,
              ub8 rows);

    // A call through an entry slot, timed into the worker's statistics under
    // the entry's name: the dispatch table's statistics do not cover slots.
    template <class F>
    ub8 slot(Worker &w, const char *name, ub8 rows, F call) {
        const auto start = std::chrono::steady_clock::now();
        const ub8 code = call();
        note_slot(w, name, 1, rows, std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
        return code;
    }
    // Adds `calls` calls covering `rows` rows in `seconds` to an entry's count.
    static void note_slot(Worker &w, const char *name, ub8 calls, ub8 rows, double seconds) {
        CallStats &s = w.slot_stats[name];
        s.calls += calls, s.rows += static_cast<double>(rows), s.seconds += seconds;
    }
    // The worker of the calling thread outside for_units: the first one.
    Worker &main_worker() { return *workers_[0]; }

    // The statistics of all workers, as vorn_stats_dump prints them.
    std::unique_ptr<vorn_stats> stats() const;
    // The slot entries' statistics of all workers, printed in the same form.
    void dump_slot_stats() const;

    // The rle_expand callback of the demo's run-length columns: the burst
    // kernel of the column's length width, called through the table.
    static ub8 expand_runs(vorn_host_services *host, vorn_vec *res, vorn_vec *src, vorn_kernel_ctx *runs);

private:
    template <class F>
    ub8 timed(Worker &w, ub4 index, ub8 rows, F call);

    const vornhost::Library &lib_;
    std::vector<std::unique_ptr<Worker>> workers_;
};

}  // namespace demo
