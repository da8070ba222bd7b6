// lomp_decode.cpp - the compressed-stream decoder: not served yet, it
// refuses every stream.
#include "frame/entries.h"

extern "C" ub8 vorn_lomp_decode_dydi(const vorn_lomp_ctx *, const ub1 *, ub1 *, ub4 *, ub4) {
    return 24;
}
