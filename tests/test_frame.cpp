// The library frame as a host sees it: what the shared object exports and
// needs, the context record, the dispatch scheme, the converters and their
// assertions, vorn_null and the statistics printer.
#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <map>
#include <set>
#include <string>

#include "frame/cpu_probe.h"
#include "frame/dispatch_scheme.h"
#include "frame/entries.h"
#include "support/test_host.h"

namespace {

using namespace vorntest;

std::string run(const std::string &command) {
    std::string out;
    FILE *p = popen(command.c_str(), "r");
    if (!p) return out;
    char buf[4096];
    std::size_t n;
    while ((n = fread(buf, 1, sizeof buf, p)) > 0) out.append(buf, n);
    pclose(p);
    return out;
}

std::set<std::string> words_of(const std::string &text) {
    std::set<std::string> s;
    std::size_t i = 0;
    while (i < text.size()) {
        std::size_t j = text.find_first_of(" \n\t", i);
        if (j == std::string::npos) j = text.size();
        if (j > i) s.insert(text.substr(i, j - i));
        i = j + 1;
    }
    return s;
}

// ---- The shared object -------------------------------------------------------

TEST(SharedObject, DefinesExactlyTheContextRecord) {
    const std::string defined =
        run("nm -D --defined-only '" VORN_LIB_PATH "' | awk '{print $3}' | sort -u");
    EXPECT_EQ(defined, "vorn_global_specialized_ctx\n");
}

TEST(SharedObject, ImportsTheRaiseFromTheHostAndOtherwiseOnlyTheCLibrary) {
    const std::string undefined = run("nm -D --undefined-only '" VORN_LIB_PATH "'");
    EXPECT_NE(undefined.find(" vornhost_raise_internal"), std::string::npos) << undefined;
    if (VORN_SANITIZED) return;  // the sanitizers import their own runtimes
    // Every strong import is the raise or versioned from glibc: a reference
    // to the C++ runtime (operator new, a throw helper) would show here.
    const std::string strong = run("nm -D --undefined-only '" VORN_LIB_PATH "' | awk '$1 == \"U\" {print $2}'");
    for (const std::string &sym : words_of(strong))
        EXPECT_TRUE(sym == "vornhost_raise_internal" || sym.find("@GLIBC_") != std::string::npos) << sym;
}

TEST(SharedObject, NeedsOnlyTheCLibraryMathAndLoader) {
    if (VORN_SANITIZED) GTEST_SKIP() << "the sanitizer runtimes are NEEDED in this build";
    const std::string needed =
        run("readelf -d '" VORN_LIB_PATH "' | sed -n 's/.*Shared library: \\[\\(.*\\)\\]/\\1/p'");
    for (const std::string &lib : words_of(needed)) {
        EXPECT_TRUE(lib == "libc.so.6" || lib == "libm.so.6" || lib == "libdl.so.2") << lib;
    }
}

TEST(SharedObject, HoldsNoAvxInstruction) {
    // VEX- and EVEX-encoded instructions are the ones whose mnemonics begin
    // with 'v' (vmovdqu, vpxor, vzeroupper, ...) or that name ymm/zmm.
    const std::string hits = run("objdump -d --no-show-raw-insn '" VORN_LIB_PATH
                                 "' | awk -F'\\t' 'NF >= 2 && ($2 ~ /^v[a-z]/ || $0 ~ /%[yz]mm/)' "
                                 "| head -5");
    const std::string lines = run("objdump -d --no-show-raw-insn '" VORN_LIB_PATH "' | wc -l");
    EXPECT_GT(std::stol(lines), 1000) << "objdump produced no disassembly";
    EXPECT_EQ(hits, "");
}

// ---- The context record ------------------------------------------------------

TEST(ContextRecord, HeaderWordsAndStrings) {
    const vorn_specialized_ctx &c = ctx();
    EXPECT_EQ(c.magic, 0xc16182c0u);
    EXPECT_STREQ(c.version, "TSL_23.0");
    EXPECT_EQ(c.variant_no, 3u);
    EXPECT_STREQ(c.variant, "rvtlsse42");
    for (ub8 s : c.sizes) EXPECT_EQ(s, 8u);
    EXPECT_EQ(c.sizes2, 16u);
    EXPECT_EQ(c.sizes3, 0u);
    EXPECT_EQ(c.sizes4, 16u);
    EXPECT_NE(c.dispatch_table, nullptr);
}

TEST(ContextRecord, AllSeventyThreeSlotsAreFilled) {
    const auto *words = reinterpret_cast<const ub8 *>(&ctx());
    for (int w = 15; w < 88; ++w) EXPECT_NE(words[w], 0u) << "slot word " << w;
}

// Kernels of the families this build does not serve write nothing.
TEST(DispatchScheme, UnservedKernelsAnswerTwo) {
    Result res(10);
    auto col = packed_column({1, 2, 3}, 8);
    vorn_kernel_ctx k{};
    const ub4 sum_fixed_32 = VORN_DISPATCH_INDEX(VORN_KERNEL_GROUP(21, VORN_ENC_FIXED), VORN_OP_SUM, 0);
    const ub4 symbols_16 = VORN_DISPATCH_INDEX(VORN_KERNEL_GROUP(15, VORN_ENC_DICT), VORN_OP_DECODE_SYMBOL, 0);
    const ub4 add_float = VORN_DISPATCH_INDEX(VORN_KERNEL_GROUP(5, VORN_ENC_FIXED), VORN_OP_ADD, 0);
    const ub4 xlate_cla = VORN_DISPATCH_INDEX(VORN_KERNEL_GROUP(1 * 8 + 2, VORN_XLATE_SIM), VORN_OP_XLATE, 0);
    const ub4 groupkey = VORN_DISPATCH_INDEX(VORN_KERNEL_GROUP(2, VORN_XLATE_GROUPKEY), VORN_OP_XLATE, 1);
    EXPECT_STREQ(vorn_dispatch_func_names[sum_fixed_32], "vorn_sum_fixed_32bit");
    EXPECT_STREQ(vorn_dispatch_func_names[symbols_16], "vorn_decode_symbol_dict_16bit");
    EXPECT_STREQ(vorn_dispatch_func_names[add_float], "vorn_add_float_c_n");
    EXPECT_STREQ(vorn_dispatch_func_names[xlate_cla], "vorn_xlate_sim_ub1_cla");
    EXPECT_STREQ(vorn_dispatch_func_names[groupkey], "vorn_xlate_groupkey_ub1_c2d");
    EXPECT_EQ(ctx().dispatch_table[sum_fixed_32].decode(&res.vec, &col->vec, &k), 2u);
    EXPECT_EQ(ctx().dispatch_table[symbols_16].decode(&res.vec, &col->vec, &k), 2u);
    EXPECT_EQ(ctx().dispatch_table[add_float].arith(&res.vec, &col->vec, &col->vec, &k), 2u);
    EXPECT_EQ(ctx().dispatch_table[xlate_cla].xlate(&res.vec, &col->vec, nullptr, &k), 2u);
    EXPECT_EQ(ctx().dispatch_table[groupkey].xlate(&res.vec, &col->vec, nullptr, &k), 2u);
    EXPECT_EQ(res.bv[0], 0x5a5a5a5a5a5a5a5aull);
}

TEST(ContextRecord, UnservedSlotsAnswerTwo) {
    EXPECT_EQ(ctx().vorn_groupkey_dydi(nullptr), 2u);
    EXPECT_EQ(ctx().vorn_gby_sum_dydi(nullptr), 2u);
    EXPECT_EQ(ctx().vorn_sum_vec_dydi(nullptr), 2u);
}

TEST(ContextRecord, ThreadEntriesDoNothingAndAnswerZero) {
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(ctx().vorn_thread_ctx_fini_dydi(), 0u);
        EXPECT_EQ(ctx().vorn_thread_ctx_init_dydi(), 0u);
    }
    ctx().vorn_set_trace_level_dydi(99);
}

// ---- The processor probe (white box) -------------------------------------------

struct FakeCpu {
    static inline vorn::CpuidRegs leaf0, leaf7_0, leaf7_1;
    static inline int calls_past_leaf0;
    static vorn::CpuidRegs answer(ub4 leaf, ub4 sub) {
        if (leaf == 0) return leaf0;
        ++calls_past_leaf0;
        return sub == 0 ? leaf7_0 : leaf7_1;
    }
};

// The feature words start at 5, so that a probe that leaves them alone and
// one that writes them can be told apart.
void probe(vorn::CpuidRegs leaf0, vorn::CpuidRegs leaf7_0 = {}, vorn::CpuidRegs leaf7_1 = {}) {
    vorn_is_Intel = vorn_is_AMD = 7;
    vorn_has_fsrm = vorn_has_avx_vnni = vorn_has_fsrs = vorn_has_avx_ifma = vorn_has_avx_vnni_int8 = 5;
    FakeCpu::calls_past_leaf0 = 0;
    FakeCpu::leaf0 = leaf0, FakeCpu::leaf7_0 = leaf7_0, FakeCpu::leaf7_1 = leaf7_1;
    vorn::probe_processor(FakeCpu::answer);
}

TEST(ProcessorProbe, IntelVendorAndLeafSevenBits) {
    probe({0x20, 0x756e6547, 0x6c65746e, 0x49656e69},  // GenuineIntel
          {0, 0, 0, 1u << 4}, {(1u << 4) | (1u << 11) | (1u << 23), 0, 0, 1u << 4});
    EXPECT_EQ(vorn_is_AMD, 0u);
    for (ub4 w : {vorn_is_Intel, vorn_has_fsrm, vorn_has_avx_vnni, vorn_has_fsrs, vorn_has_avx_ifma,
                  vorn_has_avx_vnni_int8})
        EXPECT_EQ(w, 1u);
}

TEST(ProcessorProbe, HighestLeafSixLeavesTheFeatureWordsAlone) {
    probe({6, 0x756e6547, 0x6c65746e, 0x49656e69}, {~0u, ~0u, ~0u, ~0u}, {~0u, ~0u, ~0u, ~0u});
    EXPECT_EQ(FakeCpu::calls_past_leaf0, 0);
    for (ub4 w : {vorn_has_fsrm, vorn_has_avx_vnni, vorn_has_fsrs, vorn_has_avx_ifma, vorn_has_avx_vnni_int8})
        EXPECT_EQ(w, 5u) << "a feature word was written";
}

TEST(ProcessorProbe, TheOtherVendorTestLooksAtTheLowBytesOfEcx) {
    probe({1, 0x68747541, 0x444d4163, 0x69746e65});  // AuthenticAMD: the flag stays 0
    EXPECT_EQ(vorn_is_Intel, 0u);
    EXPECT_EQ(vorn_is_AMD, 0u);
    probe({1, 0, 0x00444d41, 0});  // the bytes the mask does match
    EXPECT_EQ(vorn_is_AMD, 1u);
}

TEST(ProcessorProbe, InitCopiesTheCpuWords) {
    const ub4 words[3] = {11, 22, 33};
    vorn_init_sharedlib_dydi(nullptr, words);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(cpuinfo[i], words[i]) << i;
}

// ---- The dispatch scheme -------------------------------------------------------

TEST(DispatchScheme, NamesAtTheIndexesOfTheScheme) {
    const std::map<ub4, std::string> expected = {
        {32, "vorn_eq_dict_1bit"},
        {17, "vorn_xlate_sim_bit"},
        {0, "vorn_invalid_dispatch"},
        {7 << 7 | 0 << 5 | 0, "vorn_eq_fixed_8bit"},
        {22 << 7 | 0 << 5 | 9 | 4096, "vorn_ge_le_fixed_64bit_tz"},
        {22 << 7 | 1 << 5 | 5, "vorn_ne_dict_64bit"},
        {4 << 7 | 1 << 5 | 6 | 4096, "vorn_gt_lt_dict_5bit_null"},
        {15 << 7 | 2 << 5 | 8, "vorn_ge_lt_dynp_16bit"},
        {21 << 7 | 2 << 5 | 1 | 4096, "vorn_lt_dynp_32bit_tz"},
        {20 << 7 | 1 << 5 | 10, "vorn_decode_dict_24bit"},
        {21 << 7 | 1 << 5 | 11, "vorn_decode_unpack_dict_32bit"},
        {15 << 7 | 1 << 5 | 12, "vorn_decode_symbol_dict_16bit"},
        {0 << 7 | 1 << 5 | 13, "vorn_set_dict_1bit"},
        {22 << 7 | 0 << 5 | 15, "vorn_sum_fixed_64bit"},
        {19 << 7 | 1 << 5 | 15, "vorn_sum_dict_20bit"},
        {2 << 7 | 1 << 5 | 16, "vorn_distinct_dict_3bit"},
        {10 << 7 | 1 << 5 | 23 | 4096, "vorn_minmax_dict_11bit_null"},
        {878, "vorn_burst_rle_8bit"},
        {1006, "vorn_burst_rle_8bit_cla"},
        {1902, "vorn_burst_rle_16bit"},
        {2030, "vorn_burst_rle_16bit_cla"},
        {(1 * 8 + 2) << 7 | 1 << 5 | 17, "vorn_xlate_off_ub1_cla"},
        {(3 * 8 + 4) << 7 | 2 << 5 | 17 | 4096, "vorn_xlate_ind_ub4_c2d_sep"},
        {(2 * 8 + 1) << 7 | 0 << 5 | 17 | 4096, "vorn_xlate_sim_nib_c2d_const"},
        {3 << 7 | 3 << 5 | 17 | 4096, "vorn_xlate_groupkey_ub2_c2d"},
        {5 << 7 | 19, "vorn_add_float_c_n"},
        {9 << 7 | 19, "vorn_add_float_n_c"},
        {14 << 7 | 21 | 4096, "vorn_mul_double_c_c_sum"},
        {2 << 7 | 20, "vorn_sub_double_n_n"},
    };
    for (const auto &[index, name] : expected) EXPECT_STREQ(vorn_dispatch_func_names[index], name.c_str()) << index;
}

// Every named index holds an entry, and no other.
TEST(DispatchScheme, NinehundredTwentyFiveKernelsAndNoOthers) {
    std::set<std::string> names;
    ub4 invalid = 0;
    for (ub4 i = 0; i < 8192; ++i) {
        const std::string name = vorn_dispatch_func_names[i];
        const bool named = name != "vorn_invalid_dispatch";
        EXPECT_EQ(ctx().dispatch_table[i].cmp != nullptr, named) << "index " << i << " " << name;
        if (named) EXPECT_TRUE(names.insert(name).second) << "name twice: " << name;
        invalid += !named;
    }
    EXPECT_EQ(names.size(), 925u);
    EXPECT_EQ(invalid, 7267u);
    // No bit-12 form for anything without one, and bit 12 doubles the rest.
    EXPECT_EQ(names.count("vorn_xlate_sim_bit_c2d"), 0u);
    EXPECT_EQ(names.count("vorn_decode_dict_64bit"), 0u);
    EXPECT_EQ(names.count("vorn_minmax_dict_64bit"), 0u);
    EXPECT_EQ(names.count("vorn_eq_fixed_24bit"), 0u);
}

TEST(DispatchScheme, SixtyFourZeroWordsBehindTheScheme) {
    EXPECT_EQ(vorn_dispatch_table_size(), 8192);
    const auto *words = reinterpret_cast<const ub8 *>(ctx().dispatch_table);
    for (ub4 i = 8192; i < 8256; ++i) EXPECT_EQ(words[i], 0u) << i;
    EXPECT_EQ(vorn_dispatch_table.size(), 8256u);
    EXPECT_EQ(vorn_dispatch_func_names.size(), 8192u);
}

TEST(DispatchScheme, KernelGroupTimesThirtyTwoPlusOperation) {
    // The host's way: kernel_group * 32 + operation, plus 4096 for the second form.
    const ub4 group = VORN_KERNEL_GROUP(vorn_convert_width(11), VORN_ENC_DICT);
    EXPECT_STREQ(vorn_dispatch_func_names[group * 32 + VORN_OP_GE], "vorn_ge_dict_11bit");
    EXPECT_EQ(VORN_DISPATCH_INDEX(group, VORN_OP_GE, 1), group * 32 + 4 + 4096);
    EXPECT_EQ(VORN_WIDTH_CODE(24), 20u);
    EXPECT_EQ(VORN_WIDTH_CODE(64), 22u);
}

// ---- Converters ----------------------------------------------------------------

TEST(Converters, WidthCodes) {
    for (ub4 w = 1; w <= 20; ++w) EXPECT_EQ(vorn_convert_width(w), w - 1);
    const std::pair<ub4, ub4> cases[] = {
        {vorn_convert_width(24), 20},         {vorn_convert_width(32), 21},
        {vorn_convert_width(64), 22},         {vorn_xlate_convert_width(-1, 0), 0},
        {vorn_xlate_convert_width(-4, 1), 9}, {vorn_xlate_convert_width(1, 2), 18},
        {vorn_xlate_convert_width(2, 3), 27}, {vorn_xlate_convert_width(4, 0), 4},
        {vorn_xlate_convert_type(1), 0},      {vorn_xlate_convert_type(2), 1},
        {vorn_xlate_convert_type(3), 2}};
    for (std::size_t i = 0; i < std::size(cases); ++i) EXPECT_EQ(cases[i].first, cases[i].second) << "case " << i;
}

TEST(ConvertersDeathTest, RefuseOtherWidthsByAssertion) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(vorn_convert_width(21), "vornc_x86:[0-9]+: vorn_convert_width: Assertion `0' failed");
    EXPECT_DEATH(vorn_convert_width(0), "vorn_convert_width: Assertion `0' failed");
    EXPECT_DEATH(vorn_convert_width(25), "vorn_convert_width: Assertion `0' failed");
    EXPECT_DEATH(vorn_xlate_convert_width(3, 0), "vornc_x86:[0-9]+: vorn_xlate_convert_width: Assertion `0' failed");
    EXPECT_DEATH(vorn_xlate_convert_type(4), "vornc_x86:[0-9]+: vorn_xlate_convert_type: Assertion `0' failed");
    EXPECT_DEATH(vorn_xlate_convert_type(0), "vorn_xlate_convert_type: Assertion `0' failed");
}

TEST(CumulativeLengths, FromByteAndBigEndianShortLengths) {
    const ub1 lens1[4] = {3, 0, 255, 1};
    ub4 res[6] = {};
    EXPECT_EQ(vorn_build_cla_1_ub1(res, 5, lens1, 4), 5u);
    const ub4 want[5] = {0, 3, 3, 258, 259};
    for (int i = 0; i < 5; ++i) EXPECT_EQ(__builtin_bswap32(res[i]), want[i]) << i;

    const ub2 lens2[3] = {__builtin_bswap16(1000), __builtin_bswap16(0), __builtin_bswap16(65535)};
    EXPECT_EQ(vorn_build_cla_1_ub2(res, 4, lens2, 3), 4u);
    const ub4 want2[4] = {0, 1000, 1000, 66535};
    for (int i = 0; i < 4; ++i) EXPECT_EQ(__builtin_bswap32(res[i]), want2[i]) << i;

    EXPECT_EQ(vorn_build_cla_1_ub1(res, 1, lens1, 0), 1u);
    EXPECT_EQ(res[0], 0u);
}

TEST(CumulativeLengthsDeathTest, ShortResultArrayStops) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    ub4 res[4];
    const ub1 lens[4] = {1, 2, 3, 4};
    EXPECT_DEATH(vorn_build_cla_1_ub1(res, 4, lens, 4),
                 "vornc_x86:[0-9]+: vorn_build_cla_1_ub1: Assertion `res_len >= \\(src_len \\+ 1\\)' failed");
    const ub2 lens2[4] = {};
    EXPECT_DEATH(vorn_build_cla_1_ub2(res, 2, lens2, 4), "vorn_build_cla_1_ub2: Assertion `res_len >= \\(src_len \\+ 1\\)'");
}

// ---- vorn_null -----------------------------------------------------------------

TEST(Null, ComplementsWholeWordsIncludingTheBitsBehindTheEnd) {
    std::mt19937_64 rng(7);
    for (ub8 rows : {0, 1, 63, 64, 65, 127, 128, 129, 200, 256, 1000, 1025}) {
        Result src(rows), res(rows);
        for (ub8 w = 0; w < (rows + 63) / 64; ++w) src.bv[w] = rng();
        EXPECT_EQ(vorn_null(nullptr, &res.vec, &src.vec, nullptr), 0u);
        for (ub8 w = 0; w < (rows + 63) / 64; ++w) EXPECT_EQ(res.bv[w], ~src.bv[w]) << rows << " word " << w;
        EXPECT_TRUE(res.guard_intact()) << rows;
        EXPECT_EQ(res.vec.num_ones, 0u);
    }
}

TEST(NullDeathTest, SizesMustAgree) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    Result src(10), res(11);
    EXPECT_DEATH(vorn_null(nullptr, &res.vec, &src.vec, nullptr),
                 "vornc_x86:[0-9]+: vorn_null: Assertion `VORN_VEC_SIZE\\(src\\) == VORN_VEC_SIZE\\(res\\)' failed");
}

// ---- vorn_stats_dump -------------------------------------------------------------

std::string dump(const vorn_stats &stats, ub8 only_called) {
    testing::internal::CaptureStdout();
    vorn_stats_dump(&stats, only_called);
    fflush(stdout);
    return testing::internal::GetCapturedStdout();
}

TEST(StatsDump, PrintsCalledIndexesInLoopOrder) {
    auto stats = std::make_unique<vorn_stats>();
    stats->call_counts[17] = 3;            // variant 0, encoding 0, op 17, width 0
    stats->mrows_per_sec[17] = 12.6;
    stats->call_counts[32] = 5;            // encoding 1, op 0, width 0
    stats->mrows_per_sec[32] = 1500.4;
    stats->call_counts[4096 + 32] = 1;     // variant 1 comes last
    stats->call_counts[1 << 7] = 2;        // encoding 0, op 0, width 1: before op 17
    EXPECT_EQ(dump(*stats, 1),
              "vorn_invalid_dispatch         Call Freq: 2\tMrowsPerSec: 0\n"
              "vorn_xlate_sim_bit            Call Freq: 3\tMrowsPerSec: 13\n"
              "vorn_eq_dict_1bit             Call Freq: 5\tMrowsPerSec: 1500\n"
              "vorn_eq_dict_1bit_null        Call Freq: 1\tMrowsPerSec: 0\n");
}

TEST(StatsDump, OnlyCalledWithNoCountsPrintsNothingAndZeroPrintsAll) {
    auto stats = std::make_unique<vorn_stats>();
    const std::string all = dump(*stats, 0x100000000ull);  // only the low 32 bits count
    EXPECT_EQ(std::count(all.begin(), all.end(), '\n'), 8192);
    EXPECT_EQ(dump(*stats, 1), "");
}

}  // namespace
