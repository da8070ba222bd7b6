#include "support/lomp_column.h"

namespace vorntest {

vornhost::LompStream compress_column(Column &column, const vornhost::LompOptions &options) {
    vornhost::LompStream s = vornhost::lomp_compress(column.data.data(), column.data.size(), options);
    column.vec.decomp_size = static_cast<ub4>(column.data.size());
    column.set_data(std::move(s.bytes));
    column.enc.flags |= VORN_LOMP;
    column.cell = nullptr;
    column.vec.decomp_slot = &column.cell;
    column.vec.alloc_tag = kLompAllocTag;
    return s;
}

}  // namespace vorntest
