// run_walk.h - from rows to the runs that hold them, in a VORN_RLE column
// whose data holds one packed code per run.
#pragma once

#include "decode/run_lengths.h"
#include "frame/packed_read.h"

namespace vorn::runs {

// A place in the runs: a run, and the row at which it ends.  The unpacking
// decoders keep the run of the last row they took in byte_pos, as two ub4.
struct RunCursor {
    ub4 run;  // ~0u: before run 0
    ub8 end;  // the row at which the run ends
};

inline constexpr RunCursor kBeforeFirstRun = {~0u, 0};

// Rows in ascending order to their runs' codes: the run moves on by the
// lengths, and a run's code is read once, when the walk enters it.
template <ub4 W, class E, ub4 LenBytes>
struct RunWalk {
    const ub1 *stream;
    const ub1 *lens;
    RunCursor c;
    ub4 code_run = ~0u;
    E code = 0;

    VORN_INLINE E at(ub8 row) {
        while (c.end <= row) c.end += runs::length<LenBytes>(lens, ++c.run);
        if (c.run != code_run) {
            code = static_cast<E>(read_code_at<W>(stream, static_cast<ub8>(c.run) * W));
            code_run = c.run;
        }
        return code;
    }
};

}  // namespace vorn::runs
