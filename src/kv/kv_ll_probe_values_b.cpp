// kv_ll_probe_values_b.cpp - low-level probes of value kinds with keys of 8 to 12 bytes.
// The family is split over several files to keep each compile short.
#include "kv/kv_probe_define.h"

extern "C" {
VORN_KV_PROBE_VALUE_MEMBERS_B(VORN_KV_PROBE_DEFINE)
}  // extern "C"
