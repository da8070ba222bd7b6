#include "frame/fail.h"

// The C library's assertion failure.  Declared here because <assert.h> hides
// it when NDEBUG is set, and the library's assertions hold in every build.
extern "C" [[noreturn]] void __assert_fail(const char *assertion, const char *file, unsigned int line,
                                           const char *function) noexcept;

namespace vorn {

void assert_fail(const char *condition, unsigned line, const char *function) {
    __assert_fail(condition, kAssertFile, line, function);
}

void raise_internal(const vorn_host_services *host, const char *message) {
    void *env = host->env;
    const ub8 error_context = static_cast<const ub8 *>(env)[VORN_ENV_ERROR_CONTEXT_WORD];
    vornhost_raise_internal(env, error_context, message, 0);
}

}  // namespace vorn
