// arith_div.cpp - the div members of the vector arithmetic family.
#include "vector/arith_kernel.h"

namespace vorn::vec {
constinit const ArithOpTable kArithDiv = arith_table<kDiv>();
}
