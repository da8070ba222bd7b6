#include "support/bench_support.h"

#include <emmintrin.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <map>

// The library imports this; a benchmark that reaches it has a fault.
extern "C" void vornhost_raise_internal(void *, ub8, const char *message, ...) {
    std::fprintf(stderr, "benchmark: the library raised: %s\n", message);
    std::abort();
}

namespace vornbench {

ub8 stream_read(const void *p, std::size_t bytes) {
    const auto *v = static_cast<const __m128i *>(p);
    const std::size_t n = bytes / 16;
    __m128i a = _mm_setzero_si128(), b = a, c = a, d = a;
    std::size_t i = 0;
    for (; i + 4 <= n; i += 4) {
        a = _mm_add_epi64(a, _mm_loadu_si128(v + i));
        b = _mm_add_epi64(b, _mm_loadu_si128(v + i + 1));
        c = _mm_add_epi64(c, _mm_loadu_si128(v + i + 2));
        d = _mm_add_epi64(d, _mm_loadu_si128(v + i + 3));
    }
    for (; i < n; ++i) a = _mm_add_epi64(a, _mm_loadu_si128(v + i));
    a = _mm_add_epi64(_mm_add_epi64(a, b), _mm_add_epi64(c, d));
    ub8 out[2];
    _mm_storeu_si128(reinterpret_cast<__m128i *>(out), a);
    return out[0] ^ out[1];
}

void stream_copy3(void *dst, const void *a, const void *b, std::size_t bytes) {
    auto *d = static_cast<__m128i *>(dst);
    const auto *x = static_cast<const __m128i *>(a);
    const auto *y = static_cast<const __m128i *>(b);
    for (std::size_t i = 0; i < bytes / 16; ++i)
        _mm_storeu_si128(d + i, _mm_add_epi64(_mm_loadu_si128(x + i), _mm_loadu_si128(y + i)));
}

void set_rates(benchmark::State &state, double rows, double bytes) {
    state.counters["rows/s"] = benchmark::Counter(rows, benchmark::Counter::kIsIterationInvariantRate);
    state.counters["bytes/s"] =
        benchmark::Counter(bytes, benchmark::Counter::kIsIterationInvariantRate, benchmark::Counter::kIs1024);
}

void bandwidth(benchmark::State &state, const void *p, std::size_t bytes, double rows) {
    for (auto _ : state) benchmark::DoNotOptimize(stream_read(p, bytes));
    set_rates(state, rows, static_cast<double>(bytes));
}

std::vector<std::string> &registered_names() {
    static std::vector<std::string> names;
    return names;
}

std::mt19937_64 &rng() {
    static std::mt19937_64 r(20261122);
    return r;
}

namespace {

// The best repetition of a benchmark.  On a shared machine noise only ever
// adds time, so the fastest repetition is the closest to what the code and
// the memory can do; the kernel, the scalar loop and the streaming read are
// all judged by their best, and the repetitions of a run are interleaved
// (scripts/bench) so that a slow spell does not fall on one of them alone.
struct Timing {
    double seconds = 0;  // per iteration
    double rows = 0, bytes = 0;
};

// Prints the usual console lines, and at the end the ratios of each group.
class RatioReporter : public benchmark::ConsoleReporter {
public:
    explicit RatioReporter(std::string results_file) : results_file_(std::move(results_file)) {}

    void ReportRuns(const std::vector<Run> &runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run &run : runs) {
            if (run.error_occurred) continue;
            if (run.run_type != Run::RT_Iteration) continue;
            const std::string name = run.run_name.str();
            const double seconds = run.GetAdjustedRealTime() / benchmark::GetTimeUnitMultiplier(run.time_unit);
            Timing &t = timings_[name];
            if (t.seconds != 0 && seconds >= t.seconds) continue;
            t.seconds = seconds;
            auto rows = run.counters.find("rows/s");
            auto bytes = run.counters.find("bytes/s");
            if (rows != run.counters.end()) t.rows = rows->second.value * seconds;
            if (bytes != run.counters.end()) t.bytes = bytes->second.value * seconds;
        }
    }

    void Finalize() override {
        ConsoleReporter::Finalize();
        std::vector<std::string> lines;
        std::map<std::string, bool> done;
        bool any_peer = false;
        char buf[512];
        for (const std::string &name : registered_names()) {
            std::string group, role;
            if (!timings_.count(name) || !split(name, group, role) || role.rfind("kernel", 0) != 0 || done[name]) continue;
            done[name] = true;
            const Timing &k = timings_[name];
            const Timing *s = find(group, "scalar");
            const Timing *b = find(group, "bandwidth");
            const Timing *p = find(group, "peer");
            const std::string vs_scalar = s ? fmt(s->seconds / k.seconds, "x") : "-";
            const std::string vs_bw = b ? fmt(b->seconds / k.seconds, "") : "-";
            char vs_peer[48] = "";
            if (p) std::snprintf(vs_peer, sizeof vs_peer, " %.2fx |", p->seconds / k.seconds);
            any_peer = any_peer || p;
            std::snprintf(buf, sizeof buf, "| %s | %s | %.0f | %.2f | %s | %s |%s", group.c_str(),
                          role.c_str(), k.rows / k.seconds / 1e6, k.bytes / k.seconds / 1e9,
                          vs_scalar.c_str(), vs_bw.c_str(), vs_peer);
            lines.push_back(buf);
        }
        if (lines.empty()) return;
        // A family timed beside a peer library (role "peer") gets a column
        // for it; the others keep the table as it was.
        if (any_peer)
            for (auto &l : lines)
                if (l.back() == '|' && std::count(l.begin(), l.end(), '|') == 7) l += " - |";
        // Groups that time a reference loop (a former method, kept as a
        // yardstick): each kernel row against it, in rows per time.
        std::string against;
        for (const std::string &name : registered_names()) {
            std::string group, role;
            if (!timings_.count(name) || !split(name, group, role) || role.rfind("kernel", 0) != 0) continue;
            const Timing *r = find(group, "reference");
            if (!r) continue;
            const Timing &k = timings_[name];
            std::snprintf(buf, sizeof buf, "| %s | %s | %.0f | %.0f | %.2fx |\n", group.c_str(), role.c_str(),
                          k.rows / k.seconds / 1e6, r->rows / r->seconds / 1e6, r->seconds / k.seconds);
            if (against.find(buf) == std::string::npos) against += buf;
        }
        if (!against.empty())
            std::printf("\nAgainst the reference loop (kernel Mrows/s, reference Mrows/s, kernel/reference):\n"
                        "| group | kernel | Mrows/s | reference Mrows/s | vs reference |\n|---|---|---:|---:|---:|\n%s",
                        against.c_str());
        const std::string header =
            any_peer ? "| group | kernel | Mrows/s | GB/s | vs scalar | vs bandwidth | vs peer |\n"
                       "|---|---|---:|---:|---:|---:|---:|\n"
                     : "| group | kernel | Mrows/s | GB/s | vs scalar | vs bandwidth |\n"
                       "|---|---|---:|---:|---:|---:|\n";
        std::string table = header;
        for (const auto &l : lines) table += l + "\n";
        std::printf("\nRatios (kernel against the scalar loop and the streaming read of the same bytes):\n%s",
                    table.c_str());
        if (!results_file_.empty()) {
            std::ofstream out(results_file_, std::ios::app);
            out << table << "\n";
        }
    }

private:
    static bool split(const std::string &name, std::string &group, std::string &role) {
        for (const char *r : {"/kernel", "/scalar", "/bandwidth", "/peer", "/reference"}) {
            const auto at = name.rfind(r);
            if (at == std::string::npos) continue;
            group = name.substr(0, at);
            const auto end = name.find('/', at + 1);
            role = name.substr(at + 1, end == std::string::npos ? std::string::npos : end - at - 1);
            return true;
        }
        return false;
    }
    const Timing *find(const std::string &group, const std::string &role) const {
        for (const auto &[name, t] : timings_) {
            std::string g, r;
            if (split(name, g, r) && g == group && r == role) return &t;
        }
        return nullptr;
    }
    static std::string fmt(double v, const char *suffix) {
        char b[32];
        std::snprintf(b, sizeof b, "%.2f%s", v, suffix);
        return b;
    }

    std::string results_file_;
    std::map<std::string, Timing> timings_;
};

}  // namespace

int run_main(int argc, char **argv) {
    std::string results;
    std::vector<char *> args;
    for (int i = 0; i < argc; ++i) {
        if (std::strncmp(argv[i], "--vorn_results=", 15) == 0) results = argv[i] + 15;
        else args.push_back(argv[i]);
    }
    int n = static_cast<int>(args.size());
    benchmark::Initialize(&n, args.data());
    if (benchmark::ReportUnrecognizedArguments(n, args.data())) return 1;
    vornhost::library();  // open it before the first timing
    RatioReporter reporter(results);
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return 0;
}

}  // namespace vornbench
