// queries.h - the demo's queries.  Each runs once through the library, as a
// server's scan layer calls it, and once as a plain scalar evaluation in the
// demo itself; the two answers must agree.
#pragma once

#include <string>
#include <vector>

#include "vorn_demo/scan.h"
#include "vorn_demo/table.h"

namespace demo {

struct Outcome {
    std::string title;      // "Q1 range predicate"
    std::string question;   // what was asked, in words
    std::string answer;     // what came back
    double library_seconds = 0;
    double scalar_seconds = 0;
    double peer_seconds = 0;   // a peer library on the same job, when built with one
    std::string peer_name;
    double rows = 0;        // rows the query covered, for the rates
    bool ok = true;
    std::string mismatch;   // the first disagreement, when not ok
    std::string slow_because;  // why the library path may lose to the scalar one
};

// Runs every query; the results of one feed the next, as in a real plan.
std::vector<Outcome> run_queries(Scan &scan, Table &table);

}  // namespace demo
