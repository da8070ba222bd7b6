// The host-side builders every other test trusts: the packed-code writer
// against a bit-by-bit reader, and big-endian fixed-width columns.
#include <gtest/gtest.h>

#include <cstring>

#include "support/test_host.h"

namespace {

TEST(PackedCodes, WriterAndBitReaderAgreeAtEveryWidth) {
    std::mt19937_64 rng(11);
    for (unsigned width = 1; width <= 64; ++width) {
        for (std::size_t n : {0u, 1u, 7u, 8u, 9u, 63u, 64u, 65u, 333u}) {
            std::vector<ub8> codes(n);
            const ub8 mask = width == 64 ? ~0ull : (1ull << width) - 1;
            for (auto &c : codes) c = rng() & mask;
            const vornhost::Bytes b = vornhost::pack_codes(codes, width);
            ASSERT_EQ(b.size(), (n * width + 7) / 8);
            for (std::size_t i = 0; i < n; ++i) ASSERT_EQ(vornhost::packed_code(b.data(), width, i), codes[i]) << width;
            if (n * width % 8) {  // the pad bits of the last byte are zero
                const unsigned pad = 8 - n * width % 8;
                EXPECT_EQ(b.data()[b.size() - 1] & ((1u << pad) - 1), 0u);
            }
        }
    }
}

TEST(PackedCodes, FirstBitIsTheTopBitOfTheFirstByte) {
    // Width 3, codes 5, 3, 7: 101 011 111 -> 0xaf 0x80.
    const vornhost::Bytes b = vornhost::pack_codes({5, 3, 7}, 3);
    EXPECT_EQ(b.data()[0], 0xafu);
    EXPECT_EQ(b.data()[1], 0x80u);
}

TEST(FixedColumns, AreBigEndianEndToEnd) {
    const vornhost::Bytes b = vornhost::fixed_column({0x010203, 0xa0b0c0}, 3);
    const ub1 want[6] = {1, 2, 3, 0xa0, 0xb0, 0xc0};
    EXPECT_EQ(std::memcmp(b.data(), want, 6), 0);
    for (std::size_t i = 6; i < 6 + vornhost::kSlackBytes; ++i) EXPECT_EQ(b.data()[i], 0u);
}

}  // namespace
