// fail.h - the two grades of failure: a message to the host, which may
// return, and a failed assertion, which stops the process.
#pragma once

#include "frame/base.h"

namespace vorn {

// The file name that every assertion of the library reports.
inline constexpr const char kAssertFile[] = "vornc_x86";

// Stops the process through the C library's assertion failure, naming the
// condition's text and the function, in file "vornc_x86".
[[noreturn]] VORN_COLD VORN_INTERNAL void assert_fail(const char *condition, unsigned line,
                                                      const char *function);

// vornhost_raise_internal(env, word 71 of env, message, 0).  If the host
// returns, so does this, and the kernel carries on.
VORN_COLD VORN_INTERNAL void raise_internal(const vorn_host_services *host, const char *message);

}  // namespace vorn

// VORN_ASSERT(condition, "function name"): the text of the condition is the
// assertion's text, so write it as the message should read.
#define VORN_ASSERT(cond, function)                                 \
    do {                                                            \
        if (VORN_UNLIKELY(!(cond))) ::vorn::assert_fail(#cond, __LINE__, function); \
    } while (0)
