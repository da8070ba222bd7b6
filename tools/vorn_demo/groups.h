// groups.h - the query groups beyond the scans: joins, vector search and
// spatial filters.  Each group generates its own tables from the demo's row
// count and seed, runs every query through the library's slots and once as
// the demo's scalar evaluation, and reports both (an Outcome per query).
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "vorn_demo/queries.h"
#include "vorn_demo/scan.h"

namespace demo {

// Q8 inner hash joins (integer key; integer and string key) and Q9 the
// outer join: `fact_rows` fact rows against a tenth as many dimension rows.
std::vector<Outcome> run_joins(Scan &scan, ub8 fact_rows, ub8 seed);
// Q10 similarity search over `rows` embeddings stored as text.
std::vector<Outcome> run_search(Scan &scan, ub8 rows, ub8 seed);
// Q11 planar and spherical point-in-polygon over `rows` points.
std::vector<Outcome> run_spatial(Scan &scan, ub8 rows, ub8 seed);

// 12345678 -> "12,345,678".
inline std::string commas(ub8 n) {
    const std::string digits = std::to_string(n);
    std::string s;
    for (std::size_t i = 0; i < digits.size(); ++i) {
        if (i && (digits.size() - i) % 3 == 0) s += ',';
        s += digits[i];
    }
    return s;
}

// Seconds that fn() takes, run once.
template <class F>
double timed_once(F fn) {
    const auto start = std::chrono::steady_clock::now();
    fn();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// A 64-bit mix for order-free checksums of result sets.
inline ub8 mix64(ub8 x) {
    x += 0x9e3779b97f4a7c15ull;
    x = (x ^ (x >> 30)) * 0xbf58476d1ce4e5b9ull;
    x = (x ^ (x >> 27)) * 0x94d049bb133111ebull;
    return x ^ (x >> 31);
}

}  // namespace demo
