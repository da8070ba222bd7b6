// kv_add_codes.cpp - low-level bucket adds of rows keyed by dictionary codes.
// The family is split over several files to keep each compile short.
#include "kv/kv_ll_define.h"

extern "C" {
VORN_KV_LL_CODE_MEMBERS(VORN_KV_LL_DEFINE)
}  // extern "C"
