// arith_sub.cpp - the sub members of the vector arithmetic family.
#include "vector/arith_kernel.h"

namespace vorn::vec {
constinit const ArithOpTable kArithSub = arith_table<kSub>();
}
