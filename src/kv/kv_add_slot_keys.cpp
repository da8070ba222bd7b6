// kv_add_slot_keys.cpp - low-level bucket adds of key slots alone and records that hold the key.
// The family is split over several files to keep each compile short.
#include "kv/kv_ll_define.h"

extern "C" {
VORN_KV_LL_SLOT_KEY_MEMBERS(VORN_KV_LL_DEFINE)
}  // extern "C"
