// arith_add.cpp - the add members of the vector arithmetic family.
#include "vector/arith_kernel.h"

namespace vorn::vec {
constinit const ArithOpTable kArithAdd = arith_table<kAdd>();
}
