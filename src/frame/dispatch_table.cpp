// dispatch_table.cpp - vorn_dispatch_table and vorn_dispatch_func_names, both
// computed by the compiler: the names from the generating rule, the table
// from the families' put_* functions (the list in dispatch_build.h, which
// the host kit shares), each placing its instances at their indexes.
#include "frame/dispatch_build.h"

namespace vorn {
namespace {

constexpr NameStore kNames = build_scheme_names();

constexpr std::array<const char *, kSchemeSize> name_pointers() {
    std::array<const char *, kSchemeSize> a{};
    for (ub4 i = 0; i < kSchemeSize; ++i) a[i] = kNames.text + kNames.offset[i];
    return a;
}

}  // namespace
}  // namespace vorn

extern "C" {

constinit const std::array<vorn_kernel, VORN_DISPATCH_TABLE_WORDS> vorn_dispatch_table = vorn::build_dispatch_table();
constinit const std::array<const char *, VORN_DISPATCH_SCHEME_SIZE> vorn_dispatch_func_names =
    vorn::name_pointers();

sb4 vorn_dispatch_table_size(void) { return static_cast<sb4>(vorn::kSchemeSize); }

}  // extern "C"
