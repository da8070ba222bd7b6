// kv_add_slot_payload.cpp - low-level bucket adds of key slots with a payload array.
// The family is split over several files to keep each compile short.
#include "kv/kv_ll_define.h"

extern "C" {
VORN_KV_LL_SLOT_VALUE_MEMBERS_A(VORN_KV_LL_DEFINE)
}  // extern "C"
