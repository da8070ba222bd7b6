// kv_ll_probe_mutkv.cpp - low-level probes of value kinds marking matched entries.
// The family is split over several files to keep each compile short.
#include "kv/kv_probe_define.h"

extern "C" {
VORN_KV_PROBE_MUTKV_MEMBERS(VORN_KV_PROBE_DEFINE_PTR)
}  // extern "C"
