// lomp_column.h - real compressed columns for the tests: a Column's plain
// code stream replaced by the compressed stream that the host encoder makes
// of it, to be decompressed by the library's own decoder through the host's
// lomp_decode slot.
#pragma once

#include "host/lomp_encoder.h"
#include "support/test_host.h"

namespace vorntest {

// The column's data becomes the compressed stream of its current bytes:
// VORN_LOMP is set, decomp_size is the plain size, the cell starts empty
// and alloc_tag is kLompAllocTag.  The host must not use the copying
// decoder.  Returns the stream's description.
inline constexpr ub8 kLompAllocTag = 0x10e9;
vornhost::LompStream compress_column(Column &column, const vornhost::LompOptions &options = {});

}  // namespace vorntest
