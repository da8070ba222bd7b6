// The host kit (vorn_kit.h) and the header's dispatch macros: names and
// served bits against the library's own tables, column writers against
// bit-level readers, host services, the hash callback and the stream
// encoder against the library's decoder.
#include <gtest/gtest.h>

#if __has_include(<xxhash.h>)
#include <xxhash.h>
#endif

#include <cstring>
#include <random>
#include <set>
#include <string>

#include "frame/dispatch_scheme.h"
#include "frame/entries.h"
#include "support/test_host.h"
#include "vorn_kit.h"

namespace {

using vorntest::ctx;

// The entry of the library's table at `index`, as the kernel of its shape or
// the "not served" entry of that shape.
bool library_serves(ub4 index) {
    const vorn_kernel &k = vorn_dispatch_table[index];
    const ub4 op = index & 31;
    if (op < vorn::kCompareCount)
        return vorn::is_range(static_cast<vorn::Cmp>(op)) ? k.range && k.range != vorn_unserved_range
                                                          : k.cmp && k.cmp != vorn_unserved_cmp;
    if (op == VORN_OP_XLATE) return k.xlate && k.xlate != vorn_unserved_xlate;
    if (op == VORN_OP_MINMAX) return k.minmax && k.minmax != vorn_unserved_minmax;
    if (op == VORN_OP_ADD || op == VORN_OP_SUB || op == VORN_OP_MUL) return k.arith && k.arith != vorn_unserved_arith;
    return k.decode && k.decode != vorn_unserved_decode;
}

TEST(KitNames, AgreeWithTheLibraryAtEveryIndex) {
    ub4 named = 0, served = 0;
    for (ub4 i = 0; i < VORN_DISPATCH_SCHEME_SIZE; ++i) {
        ASSERT_STREQ(vorn_kit_kernel_name(i), vorn_dispatch_func_names[i]) << i;
        ASSERT_EQ(vorn_kit_index_named(i), ctx().dispatch_table[i].cmp != nullptr) << i;
        ASSERT_EQ(vorn_kit_index_served(i), library_serves(i)) << vorn_kit_kernel_name(i);
        named += vorn_kit_index_named(i);
        served += vorn_kit_index_served(i);
    }
    EXPECT_EQ(named, 925u);
    EXPECT_GT(served, 0u);
    EXPECT_LT(served, named);
    EXPECT_STREQ(vorn_kit_kernel_name(32), "vorn_eq_dict_1bit");
    EXPECT_STREQ(vorn_kit_kernel_name(VORN_DISPATCH_SCHEME_SIZE), "vorn_invalid_dispatch");
    EXPECT_STREQ(vorn_kit_kernel_name(~0u), "vorn_invalid_dispatch");
    EXPECT_FALSE(vorn_kit_index_served(VORN_DISPATCH_SCHEME_SIZE));
}

TEST(KitNames, AnUnservedIndexAnswersTwoAndAServedOneDoesNot) {
    // vorn_sum_fixed_32bit is named but not served; eq_dict_8bit is served.
    const ub4 sum = VORN_DISPATCH_INDEX(VORN_KERNEL_GROUP(21, VORN_ENC_FIXED), VORN_OP_SUM, 0);
    ASSERT_TRUE(vorn_kit_index_named(sum));
    ASSERT_FALSE(vorn_kit_index_served(sum));
    vorn_vec res{}, src{};
    EXPECT_EQ(ctx().dispatch_table[sum].decode(&res, &src, nullptr), ub8{VORN_RC_UNSUPPORTED});
    EXPECT_TRUE(vorn_kit_index_served(VORN_DISPATCH_INDEX(VORN_KERNEL_GROUP(7, VORN_ENC_DICT), VORN_OP_EQ, 0)));
}

// A width the scheme has not gives a width field at which nothing stands, for
// every encoding, operation and form, so a host never calls a neighbour.
TEST(WidthCode, AWidthWithoutKernelsSelectsNoKernel) {
    const std::set<ub4> widths = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20, 24, 32, 64};
    for (ub4 bits = 0; bits <= 130; ++bits) {
        const ub4 code = VORN_WIDTH_CODE(bits);
        if (widths.count(bits)) {
            EXPECT_EQ(code, vorn_convert_width(bits)) << bits;
            continue;
        }
        ASSERT_EQ(code, VORN_WIDTH_NONE) << bits;
        for (ub4 enc = 0; enc < 4; ++enc)
            for (ub4 op = 0; op < 32; ++op)
                for (int second = 0; second < 2; ++second) {
                    const ub4 group = VORN_KERNEL_GROUP(code, enc);
                    ASSERT_LE(group, 0xffu);  // fits kernel_group
                    const ub4 index = VORN_DISPATCH_INDEX(group, op, second);
                    ASSERT_LT(index, VORN_DISPATCH_SCHEME_SIZE);
                    ASSERT_EQ(ctx().dispatch_table[index].cmp, nullptr) << bits << " " << index;
                }
    }
    EXPECT_EQ(VORN_WIDTH_CODE(-1), VORN_WIDTH_NONE);
}

TEST(KitResultCodes, HaveNamesAndTexts) {
    EXPECT_STREQ(vorn_kit_rc_name(0), "VORN_RC_OK");
    EXPECT_STREQ(vorn_kit_rc_name(1), "VORN_RC_EMPTY");
    EXPECT_STREQ(vorn_kit_rc_name(2), "VORN_RC_UNSUPPORTED");
    EXPECT_STREQ(vorn_kit_rc_name(23), "VORN_RC_OUTPUT_FULL");
    EXPECT_STREQ(vorn_kit_rc_name(24), "VORN_RC_BAD_RECORD");
    EXPECT_STREQ(vorn_kit_rc_name(7), "VORN_RC_LOCAL");
    for (ub8 rc : {0, 1, 2, 6, 18, 19, 23, 24, 99}) EXPECT_GT(std::strlen(vorn_kit_rc_text(rc)), 3u);
}

TEST(KitColumns, PackedWriterAgreesWithTheBitReaderAndLeavesZeroSlack) {
    std::mt19937_64 rng(5);
    for (unsigned width = 1; width <= 64; ++width)
        for (ub8 n : {0, 1, 63, 64, 65, 200}) {
            std::vector<ub8> codes(n);
            for (auto &c : codes) c = rng() & (width == 64 ? ~0ull : (1ull << width) - 1);
            std::vector<ub1> out(vorn_kit_packed_bytes(n, width) + 8, 0xee);
            vorn_kit_pack(out.data(), codes.data(), n, width);
            for (ub8 i = 0; i < n; ++i) ASSERT_EQ(vorn_kit_packed_code(out.data(), width, i), codes[i]);
            const size_t used = (n * width + 7) / 8;
            for (size_t k = used; k < used + VORN_KIT_SLACK; ++k) ASSERT_EQ(out[k], 0u);
            ASSERT_EQ(out[used + VORN_KIT_SLACK], 0xeeu);  // nothing written beyond
        }
}

TEST(KitColumns, FixedWriterIsBigEndianAndEncodingsPickTheirKernels) {
    const ub8 values[2] = {0x0102030405ull, 0xa0b0c0d0e0ull};
    ub1 out[2 * 5 + VORN_KIT_SLACK];
    vorn_kit_put_fixed(out, values, 2, 5);
    const ub1 want[10] = {1, 2, 3, 4, 5, 0xa0, 0xb0, 0xc0, 0xd0, 0xe0};
    EXPECT_EQ(std::memcmp(out, want, 10), 0);

    vorn_enc_ctx enc;
    ASSERT_EQ(vorn_kit_fixed_enc(&enc, 40), 0);
    EXPECT_STREQ(vorn_kit_kernel_name(VORN_DISPATCH_INDEX(enc.kernel_group, VORN_OP_EQ, 0)), "vorn_eq_fixed_64bit");
    EXPECT_EQ(enc.bit_width, 40u);
    ASSERT_EQ(vorn_kit_fixed_enc(&enc, 24), 0);
    EXPECT_STREQ(vorn_kit_kernel_name(VORN_DISPATCH_INDEX(enc.kernel_group, VORN_OP_EQ, 0)), "vorn_eq_fixed_32bit");
    EXPECT_EQ(vorn_kit_fixed_enc(&enc, 12), -1);
    EXPECT_EQ(vorn_kit_packed_enc(&enc, 21, 10), -1);
}

// A compare through kit-built columns at every packed width and every fixed
// width agrees with a plain count.
TEST(KitColumns, KernelsReadWhatTheKitWrites) {
    std::mt19937_64 rng(9);
    const ub8 n = 333;
    for (unsigned width : {1u, 2u, 3u, 5u, 8u, 11u, 16u, 17u, 20u, 24u, 32u}) {
        std::vector<ub8> codes(n);
        for (auto &c : codes) c = rng() % (width >= 32 ? 1000 : (1ull << width));
        std::vector<ub1> stream(vorn_kit_packed_bytes(n, width));
        vorn_kit_pack(stream.data(), codes.data(), n, width);
        vorn_enc_ctx enc;
        ASSERT_EQ(vorn_kit_packed_enc(&enc, width, 0), 0);
        vorn_vec src{}, res{};
        src.data = stream.data(), src.size = n, src.enc_ctx = &enc;
        std::vector<ub8> bv(vorn_kit_bv_words(n));
        res.res_bv = bv.data();
        // ge against the code of row 7, in the literal form of the width.
        const ub8 lit = codes[7];
        ub1 be[8 + VORN_KIT_SLACK];
        const ub4 native = static_cast<ub4>(lit);
        const ub1 byte = static_cast<ub1>(lit);
        const void *literal = &native;
        if (width == 8) literal = &byte;
        if (width == 16 || width == 32) vorn_kit_put_fixed(be, &lit, 1, width / 8), literal = be;
        const void *lits[1] = {literal};
        ctx().dispatch_table[VORN_DISPATCH_INDEX(enc.kernel_group, VORN_OP_GE, 0)].cmp(&res, &src, lits, nullptr);
        ub4 want = 0;
        for (ub8 c : codes) want += c >= lit;
        EXPECT_EQ(res.num_ones, want) << width;
    }
    for (unsigned bits : {8u, 16u, 24u, 32u, 40u, 48u, 56u, 64u}) {
        std::vector<ub8> values(n);
        for (auto &v : values) v = rng() >> (64 - bits);
        std::vector<ub1> column(vorn_kit_fixed_bytes(n, bits / 8));
        vorn_kit_put_fixed(column.data(), values.data(), n, bits / 8);
        vorn_enc_ctx enc;
        ASSERT_EQ(vorn_kit_fixed_enc(&enc, bits), 0);
        vorn_vec src{}, res{};
        src.data = column.data(), src.size = n, src.enc_ctx = &enc;
        std::vector<ub8> bv(vorn_kit_bv_words(n));
        res.res_bv = bv.data();
        // The literal: row 3's stored bytes, left in an 8-byte buffer.
        ub1 lit[8 + VORN_KIT_SLACK] = {};
        std::memcpy(lit, column.data() + 3 * (bits / 8), bits / 8);
        const void *lits[1] = {lit};
        ctx().dispatch_table[VORN_DISPATCH_INDEX(enc.kernel_group, VORN_OP_LT, 0)].cmp(&res, &src, lits, nullptr);
        ub4 want = 0;
        for (ub8 v : values) want += v < values[3];
        EXPECT_EQ(res.num_ones, want) << bits;
    }
}

TEST(KitHost, ArenaBlocksAreAlignedZeroedAndCounted) {
    vorn_kit_host *host = vorn_kit_host_create(nullptr);
    vorn_host_services *s = vorn_kit_host_services(host);
    EXPECT_EQ(static_cast<ub8 *>(s->env)[VORN_ENV_ERROR_CONTEXT_WORD], vornhost::HostServices::kErrorContext);
    for (size_t bytes : {1u, 7u, 100u, 4096u}) {
        auto *p = static_cast<ub1 *>(s->alloc(s->env, s->heap, bytes, "test", 8, 16, 0));
        ASSERT_EQ(reinterpret_cast<uintptr_t>(p) % 16, 0u);
        for (size_t k = 0; k < bytes + 64; ++k) ASSERT_EQ(p[k], 0u);
    }
    EXPECT_EQ(vorn_kit_host_alloc_calls(host), 4u);
    EXPECT_NE(vorn_kit_host_alloc(host, 10), nullptr);
    vorn_kit_host_reset(host);
    vorn_kit_host_destroy(host);
}

TEST(KitHash, DependsOnEveryByteAndTheSeed) {
    std::mt19937_64 rng(3);
    for (ub8 len = 0; len <= 40; ++len) {
        std::vector<ub1> v(len + 1);
        for (auto &b : v) b = static_cast<ub1>(rng());
        const ub8 h = vorn_kit_hash(v.data(), len, 17);
        EXPECT_EQ(h, vorn_kit_hash(v.data(), len, 17));
        EXPECT_NE(h, vorn_kit_hash(v.data(), len, 18));
        if (len < 40) { EXPECT_NE(h, vorn_kit_hash(v.data(), len + 1, 17)) << len; }
        for (ub8 k = 0; k < len; ++k) {
            v[k] ^= 1;
            EXPECT_NE(h, vorn_kit_hash(v.data(), len, 17)) << len << " " << k;
            v[k] ^= 1;
        }
    }
}

#if __has_include(<xxhash.h>)
TEST(KitHash, IsXxh3) {
    // The empty input with seed 0, and one byte with a seed: XXH3's own values.
    EXPECT_EQ(vorn_kit_hash("", 0, 0), 0x2d06800538d394c2ull);
    EXPECT_EQ(vorn_kit_hash("a", 1, 7), XXH3_64bits_withSeed("a", 1, 7));
}
#endif

TEST(KitStreams, CompressedStreamsDecodeThroughTheLibrary) {
    std::mt19937_64 rng(21);
    for (size_t bytes : {0u, 1u, 100u, 5000u}) {
        std::vector<ub1> data(bytes);
        for (auto &b : data) b = static_cast<ub1>("abcdabcdxyz"[rng() % 11]);
        size_t stream_bytes = 0;
        ub1 *stream = vorn_kit_lomp_compress(data.data(), bytes, &stream_bytes);
        ASSERT_NE(stream, nullptr);
        vorn_kit_host *host = vorn_kit_host_create(ctx().vorn_lomp_decode_dydi);
        vorn_host_services *s = vorn_kit_host_services(host);
        vorn_lomp_ctx lctx{s->env, s->heap, s->work_alloc, s->work_free, 0};
        std::vector<ub1> out(bytes + 64);
        ub4 length = 0;
        EXPECT_EQ(s->lomp_decode(&lctx, stream, out.data(), &length, static_cast<ub4>(bytes)), 0u) << bytes;
        EXPECT_EQ(length, bytes);
        if (bytes) { EXPECT_EQ(std::memcmp(out.data(), data.data(), bytes), 0); }
        EXPECT_EQ(vorn_kit_host_decode_calls(host), 1u);
        vorn_kit_host_destroy(host);
        std::free(stream);
    }
}

TEST(KitOpen, ChecksTheRecordAndReportsFailures) {
    char error[200] = {};
    EXPECT_EQ(vorn_kit_open("/nonexistent/librvtlsse42.so", nullptr, error, sizeof error), nullptr);
    EXPECT_NE(std::string(error).find("nonexistent"), std::string::npos);
    void *handle = nullptr;
    const vorn_specialized_ctx *c = vorn_kit_open(VORN_LIB_PATH, &handle, error, sizeof error);
    ASSERT_NE(c, nullptr) << error;
    EXPECT_NE(handle, nullptr);
    EXPECT_EQ(c->magic, VORN_CTX_MAGIC);
}

}  // namespace
