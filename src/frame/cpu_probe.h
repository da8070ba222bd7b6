// cpu_probe.h - the CPUID probe of vorn_init_sharedlib_dydi, with the
// instruction passed in so that a test can play a processor of its choice.
#pragma once

#include "frame/base.h"

namespace vorn {

struct CpuidRegs {
    ub4 eax, ebx, ecx, edx;
};
using CpuidFn = CpuidRegs (*)(ub4 leaf, ub4 subleaf);

// Sets vorn_is_Intel, vorn_is_AMD and, when leaf 7 exists, the vorn_has_*
// words from what `cpuid` answers.
VORN_INTERNAL void probe_processor(CpuidFn cpuid);

}  // namespace vorn
