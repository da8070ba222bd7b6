// vorn-demo - the reference host.  It opens the library the way a database
// server does, checks the context record, and shows what the build offers.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <thread>

#include "frame/dispatch_scheme.h"
#include "frame/entries.h"
#include "host/library.h"
#include "vorn_demo/groups.h"
#include "vorn_demo/queries.h"
#include "vorn_demo/scan.h"
#include "vorn_demo/table.h"
#include "vorn_kit.h"

// The one function the library imports.  A server raises an internal error
// here; the demo reports it and fails.
extern "C" void vornhost_raise_internal(void *, ub8 error_context, const char *message, ...) {
    std::fprintf(stderr, "vorn-demo: the library raised: %s (error context %llx)\n", message,
                 static_cast<unsigned long long>(error_context));
    std::exit(3);
}

namespace {

// The family of a kernel name: "vorn_eq_dict_5bit_null" -> "dict compares (_null)".
std::string family_of(ub4 index, const char *name) {
    const ub4 op = index & 31, enc = (index >> 5) & 3;
    const bool second = index >> 12;
    static const char *encodings[] = {"fixed", "dict", "dynp", "special"};
    std::string fam;
    if (op < 10) fam = std::string(encodings[enc]) + " compares";
    else if (op == VORN_OP_XLATE) fam = "translation";
    else if (op >= VORN_OP_ADD && op <= VORN_OP_MUL) fam = "arithmetic";
    else {
        std::string n = name + 5;  // behind "vorn_"
        fam = n.substr(0, n.find("_dict_") != std::string::npos ? n.find("_dict_") + 5
                          : n.find("_fixed_") != std::string::npos ? n.find("_fixed_") + 6
                          : n.find("_rle_") + 4);
    }
    if (second) {
        fam += op < 10 ? (enc == VORN_ENC_DICT ? " (_null)" : " (_tz)")
               : op == VORN_OP_XLATE ? " (_c2d)"
               : op == VORN_OP_MINMAX ? " (_null)"
                                      : " (_sum)";
    }
    return fam;
}

int show_offer(const vornhost::Library &lib, bool families_too) {
    const vorn_specialized_ctx &c = *lib.ctx;
    std::printf("library      %s\n", lib.path.c_str());
    std::printf("variant      %s (number %llu), version %s, magic 0x%llx\n", c.variant,
                static_cast<unsigned long long>(c.variant_no), c.version,
                static_cast<unsigned long long>(c.magic));
    if (c.magic != VORN_CTX_MAGIC || std::strcmp(c.version, VORN_CTX_VERSION) != 0 ||
        std::strcmp(c.variant, VORN_CTX_VARIANT) != 0) {
        std::fprintf(stderr, "vorn-demo: this is not the library the demo was built for\n");
        return 2;
    }

    // Slots: served unless they point at the shared "not served" entry, which
    // every unserved slot shares.
    const auto *slots = reinterpret_cast<const ub8 *>(&c) + 15;
    std::map<ub8, int> uses;
    for (int i = 0; i < 73; ++i) ++uses[slots[i]];
    ub8 unserved = 0;
    for (const auto &[addr, n] : uses)
        if (n > 2) unserved = addr;
    int served = 0;
    for (int i = 0; i < 73; ++i) served += slots[i] != unserved;
    std::printf("entry slots  %d of 73 served\n", served);

    // Kernels: the host kit knows the names and which indexes this build
    // serves, from the same compile-time tables as the library.
    std::map<std::string, std::pair<int, int>> families;  // family -> (served, named)
    int kernels = 0, named = 0;
    for (ub4 i = 0; i < VORN_DISPATCH_SCHEME_SIZE; ++i) {
        if (!vorn_kit_index_named(i)) continue;
        ++named;
        auto &f = families[family_of(i, vorn_kit_kernel_name(i))];
        ++f.second;
        if (vorn_kit_index_served(i)) ++kernels, ++f.first;
    }
    std::printf("kernels      %d of the %d in the dispatch table served\n", kernels, named);
    if (!families_too) return 0;
    for (const auto &[fam, counts] : families)
        std::printf("  %-28s %4d of %4d\n", fam.c_str(), counts.first, counts.second);
    return 0;
}

struct Options {
    ub8 rows = 20000000;
    unsigned threads = 0;
    ub8 seed = 20261122;
    const char *lib = nullptr;
    bool offer = false;
    bool progress = true;
    std::string only;  // one group: scan, join, search or spatial; empty: all
};

constexpr const char kUsage[] =
    "usage: vorn-demo [--rows N] [--only GROUP] [--threads N] [--seed N] [--lib PATH] [--offer] [--quiet]\n"
    "  --rows N     rows of the scanned table and of the join's fact table (default\n"
    "               20,000,000); the dimension table has a tenth, the search a\n"
    "               hundredth as embeddings, the spatial filter a fifth as points\n"
    "  --only GROUP run one group of queries: scan, join, search or spatial\n"
    "  --threads N  scanning threads (default: all cores)\n"
    "  --seed N     seed of the generated data\n"
    "  --lib PATH   the library to open (default: $VORN_LIB, else this build's)\n"
    "  --offer      list the kernels the library serves, by family\n"
    "  --quiet      no progress line while generating\n"
    "  --help       this text\n";

// A wrong argument: the reason and the usage on stderr, exit 2.
[[noreturn]] void usage(const char *why) {
    std::fprintf(stderr, "vorn-demo: %s\n%s", why, kUsage);
    std::exit(2);
}

Options parse(int argc, char **argv) {
    Options o;
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        auto value = [&]() -> const char * {
            if (i + 1 >= argc) usage(("missing value for " + a).c_str());
            return argv[++i];
        };
        if (a == "--rows") o.rows = std::strtoull(value(), nullptr, 10);
        else if (a == "--threads") o.threads = static_cast<unsigned>(std::strtoul(value(), nullptr, 10));
        else if (a == "--seed") o.seed = std::strtoull(value(), nullptr, 10);
        else if (a == "--lib") o.lib = value();
        else if (a == "--offer") o.offer = true;
        else if (a == "--only") o.only = value();
        else if (a == "--quiet") o.progress = false;
        else if (a == "--help" || a == "-h") std::fputs(kUsage, stdout), std::exit(0);
        else usage(("unknown argument " + a).c_str());
    }
    if (o.rows == 0 || o.rows > 4000000000ull) usage("--rows must be between 1 and 4,000,000,000");
    if (!o.only.empty() && o.only != "scan" && o.only != "join" && o.only != "search" && o.only != "spatial")
        usage("--only takes scan, join, search or spatial");
    if (o.threads == 0) o.threads = std::max(1u, std::thread::hardware_concurrency());
    return o;
}

double seconds_since(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

void print_outcome(const demo::Outcome &o) {
    if (o.library_seconds == 0) {
        std::printf("\n%s\n    %s\n", o.title.c_str(), o.mismatch.c_str());
        return;
    }
    std::printf("\n%s\n    %s\n    answer   %s\n", o.title.c_str(), o.question.c_str(), o.answer.c_str());
    const double lib_rate = o.rows / o.library_seconds / 1e6, scalar_rate = o.rows / o.scalar_seconds / 1e6;
    std::printf("    library %9.2f ms %9.1f Mrows/s    scalar %9.2f ms %9.1f Mrows/s    %6.1fx    %s\n",
                o.library_seconds * 1e3, lib_rate, o.scalar_seconds * 1e3, scalar_rate,
                o.scalar_seconds / o.library_seconds, o.ok ? "checked" : "MISMATCH");
    if (o.peer_seconds > 0)
        std::printf("    peer    %9.2f ms %9.1f Mrows/s    %s\n", o.peer_seconds * 1e3, o.rows / o.peer_seconds / 1e6,
                    o.peer_name.c_str());
    if (o.library_seconds > o.scalar_seconds)
        std::printf("    slower than scalar: %s\n",
                    o.slow_because.empty() ? "the column units are too small for the kernel's per-call set-up to pay "
                                             "off (try more --rows)"
                                           : o.slow_because.c_str());
    if (!o.ok) std::printf("    first difference: %s\n", o.mismatch.c_str());
}

}  // namespace

int main(int argc, char **argv) {
    const Options opt = parse(argc, argv);
    vornhost::Library lib;
    // --lib, else $VORN_LIB, else the library of this build tree.
    if (!lib.open(opt.lib ? opt.lib : std::getenv("VORN_LIB") ? nullptr : VORN_LIB_PATH)) {
        std::fprintf(stderr, "vorn-demo: cannot open the library: %s\n", lib.error.c_str());
        return 2;
    }
    if (const int rc = show_offer(lib, opt.offer)) return rc;

    const bool all = opt.only.empty();
    demo::Scan scan(lib, opt.threads);  // each worker's lomp_decode is this library's decoder
    std::printf("threads      %u, each with its own host services and kernel records\n", scan.threads());
    std::vector<demo::Outcome> outcomes;
    auto append = [&](std::vector<demo::Outcome> more) {
        outcomes.insert(outcomes.end(), more.begin(), more.end());
    };
    if (all || opt.only == "scan") {
        const auto gen_start = std::chrono::steady_clock::now();
        demo::Table table;
        demo::generate(table, opt.rows, opt.seed, opt.progress, demo::Scan::expand_runs);
        std::printf("table        %s rows in %u column units of %u rows, generated in %.1f s\n",
                    std::to_string(table.rows).c_str(), table.units, table.unit_rows, seconds_since(gen_start));
        append(demo::run_queries(scan, table));
        if (outcomes.size() == 1 && outcomes[0].library_seconds == 0) {
            print_outcome(outcomes[0]);
            return 2;
        }
    }
    if (all || opt.only == "join") append(demo::run_joins(scan, opt.rows, opt.seed));
    if (all || opt.only == "search") append(demo::run_search(scan, std::max<ub8>(opt.rows / 100, 200), opt.seed));
    if (all || opt.only == "spatial") append(demo::run_spatial(scan, std::max<ub8>(opt.rows / 5, 100), opt.seed));
    bool all_ok = true;
    for (const auto &o : outcomes) {
        print_outcome(o);
        all_ok = all_ok && o.ok;
    }

    std::printf("\nvorn_stats_dump, the kernels this run called: name, calls (Call Freq), and millions of\n"
                "rows per second per calling thread (MrowsPerSec), from the host's own counters:\n");
    std::fflush(stdout);
    const auto stats = scan.stats();
    vorn_stats_dump(stats.get(), 1);
    std::fflush(stdout);
    std::printf("\nthe entries this run called through their slots, counted by the host the same way:\n");
    scan.dump_slot_stats();
    if (!all_ok) {
        std::fprintf(stderr, "vorn-demo: a library answer differs from the scalar evaluation\n");
        return 1;
    }
    std::printf("\nall %zu answers agree with the scalar evaluation\n", outcomes.size());
    return 0;
}
