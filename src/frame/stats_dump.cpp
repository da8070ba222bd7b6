// stats_dump.cpp - prints the host's call counts and throughputs by kernel.
// The library never updates these numbers; the host gathers them.
#include <cstdio>

#include "frame/entries.h"

extern "C" void vorn_stats_dump(const vorn_stats *stats, ub8 only_called) {
    const bool skip_uncalled = static_cast<ub4>(only_called) != 0;
    for (ub4 variant = 0; variant < 2; ++variant)
        for (ub4 encoding = 0; encoding < 4; ++encoding)
            for (ub4 op = 0; op < 32; ++op)
                for (ub4 width = 0; width < 32; ++width) {
                    const ub4 index = variant << 12 | width << 7 | encoding << 5 | op;
                    const ub4 calls = stats->call_counts[index];
                    if (skip_uncalled && calls == 0) continue;
                    std::printf("%-30s", vorn_dispatch_func_names[index]);
                    std::printf("Call Freq: %d\tMrowsPerSec: %0.0f\n", static_cast<int>(calls),
                                stats->mrows_per_sec[index]);
                }
}
