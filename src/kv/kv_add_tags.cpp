// kv_add_tags.cpp - low-level bucket adds of rows keyed by hash tags: {row id, hash} records and 32-bit hashes.
// The family is split over several files to keep each compile short.
#include "kv/kv_ll_define.h"

extern "C" {
VORN_KV_LL_TAG_MEMBERS(VORN_KV_LL_DEFINE)
}  // extern "C"
