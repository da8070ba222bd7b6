// guarded_stream.h - a copy of a stream that ends where a page of no access
// begins, so that a kernel reading one byte behind what it may read faults.
#pragma once

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "support/test_host.h"

namespace vorntest {

class GuardedStream {
public:
    // The first `readable` bytes of `packed` (zeros past its end), with the
    // guard page right behind them.
    GuardedStream(const Bytes &packed, std::size_t readable) {
        page_ = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
        span_ = (readable + page_ - 1) / page_ * page_ + page_;
        base_ = static_cast<ub1 *>(mmap(nullptr, span_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
        EXPECT_NE(base_, MAP_FAILED);
        mprotect(base_ + span_ - page_, page_, PROT_NONE);
        data_ = base_ + span_ - page_ - readable;
        std::memcpy(data_, packed.data(), std::min(readable, packed.size()));
    }
    GuardedStream(const GuardedStream &) = delete;
    ~GuardedStream() { munmap(base_, span_); }
    ub1 *data() const { return data_; }

private:
    ub1 *base_ = nullptr, *data_ = nullptr;
    std::size_t page_ = 0, span_ = 0;
};

}  // namespace vorntest
