// arith_mul.cpp - the mul members of the vector arithmetic family.
#include "vector/arith_kernel.h"

namespace vorn::vec {
constinit const ArithOpTable kArithMul = arith_table<kMul>();
}
