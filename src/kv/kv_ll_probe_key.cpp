// kv_ll_probe_key.cpp - low-level probes of key-only kinds.
// The family is split over several files to keep each compile short.
#include "kv/kv_probe_define.h"

extern "C" {
VORN_KV_PROBE_KEY_MEMBERS(VORN_KV_PROBE_DEFINE)
}  // extern "C"
