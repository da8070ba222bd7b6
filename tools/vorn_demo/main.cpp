// vorn-demo - the reference host.  It opens the library the way a database
// server does, checks the context record, and shows what the build offers.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>

#include "frame/dispatch_scheme.h"
#include "frame/entries.h"
#include "host/library.h"

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

int show_offer(const vornhost::Library &lib) {
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

    std::map<std::string, std::pair<int, int>> families;  // family -> (served, named)
    int kernels = 0, named = 0;
    for (ub4 i = 0; i < vorn::kSchemeSize; ++i) {
        vorn::NameText t;
        if (!vorn::scheme_name(i, t)) continue;
        ++named;
        auto &f = families[family_of(i, vorn_dispatch_func_names[i])];
        ++f.second;
        if (lib.table[i].cmp) ++kernels, ++f.first;
    }
    std::printf("kernels      %d of %d in the dispatch table\n", kernels, named);
    for (const auto &[fam, counts] : families)
        std::printf("  %-28s %4d of %4d\n", fam.c_str(), counts.first, counts.second);
    return 0;
}

}  // namespace

int main(int argc, char **argv) {
    const char *path = nullptr;
    for (int i = 1; i < argc; ++i) {
        if (!std::strcmp(argv[i], "--lib") && i + 1 < argc) path = argv[++i];
    }
    vornhost::Library lib;
    if (!lib.open(path)) {
        std::fprintf(stderr, "vorn-demo: cannot open the library: %s\n", lib.error.c_str());
        return 2;
    }
    return show_offer(lib);
}
