/* The host kit's header compiles as C11 on its own, with the interface
 * header it includes, under -Wall -Wextra -pedantic -Werror. */
#include "vorn_kit.h"

_Static_assert(VORN_KIT_SLACK >= 16, "the kit's slack covers every kernel's reads");
_Static_assert(VORN_WIDTH_CODE(21) == VORN_WIDTH_NONE, "a width without kernels has no code");
_Static_assert(VORN_WIDTH_CODE(24) == 20 && VORN_WIDTH_CODE(1) == 0, "width codes");
_Static_assert(VORN_RC_BAD_RECORD == 24 && VORN_RC_OUTPUT_FULL == 23, "result codes keep their values");
