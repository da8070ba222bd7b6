// kv_ll_probe_tag.cpp - low-level probes of rows keyed by hash tags.
// The family is split over several files to keep each compile short.
#include "kv/kv_probe_define.h"

extern "C" {
VORN_KV_PROBE_TAG_MEMBERS(VORN_KV_PROBE_DEFINE)
}  // extern "C"
