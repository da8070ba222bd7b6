// vector_parse_fuzz - drives the vector text parser and the stored-value
// header parse with random and mutated inputs from a seeded generator.
//
// Each input is a column of rows, in either character form, one string or a
// row per pointer, each row in a buffer of exactly its own length so that a
// sanitizer build catches any read outside it; the settings are random too,
// unsupported ones included.  A call must return one of the documented
// codes and, when the settings are supported, agree with the plain model.
// Each input also hands nine random bytes (mostly near a valid header) to
// lvector_to_header_basic, which must return 0 or one of its three refusals
// and leave the header alone on a refusal.
//
//   vector_parse_fuzz [--inputs N] [--seed S]
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "frame/entries.h"
#include "support/vector_parse_model.h"
#include "vector/value_format.h"

namespace {

using namespace vorntest::vecparse;

[[noreturn]] void fail(unsigned long long input, const char *what, unsigned long long got) {
    std::fprintf(stderr, "vector_parse_fuzz: input %llu: %s (%llu)\n", input, what, got);
    std::abort();
}

// Random bytes, or a generated row with a few bytes changed.
std::string random_text(std::mt19937_64 &rng, uint32_t dims) {
    if (rng() % 5 == 0) {
        std::string s(rng() % 48, '\0');
        for (auto &c : s) c = char(rng() % 3 ? " [],.-+eE0123456789"[rng() % 19] : char(rng()));
        return s;
    }
    std::string s = random_row(rng, dims);
    for (unsigned m = rng() % 3; m > 0 && !s.empty(); --m) s[rng() % s.size()] = char(rng());
    return s;
}

void one_parse(std::mt19937_64 &rng, unsigned long long input) {
    Settings s;
    const bool odd_settings = rng() % 16 == 0;
    s.type = odd_settings ? uint32_t(rng() % 10) : (const uint32_t[]){1, 2, 5}[rng() % 3];
    s.dims = rng() % 3 == 0 ? 0 : uint32_t(1 + rng() % 6);
    s.native = rng() % 2;
    s.form = odd_settings ? int(rng() % 3) : int(rng() % 2);
    const bool per_row = rng() % 4 != 0;
    const uint32_t rows = per_row ? uint32_t(rng() % 20) : 1;

    std::vector<Units> units;
    std::vector<std::unique_ptr<uint8_t[]>> buffers;
    std::vector<uint64_t> addresses;
    std::vector<uint16_t> lengths;
    for (uint32_t r = 0; r < rows; ++r) {
        units.push_back(to_units(random_text(rng, s.dims ? s.dims : 3), s.form == 1 ? 1 : 0, rng));
        const std::vector<uint8_t> bytes = to_bytes(units.back(), s.form == 1 ? 1 : 0);
        buffers.emplace_back(new uint8_t[bytes.size() + 1]);
        if (!bytes.empty()) std::memcpy(buffers.back().get(), bytes.data(), bytes.size());
        addresses.push_back(reinterpret_cast<uint64_t>(buffers.back().get()));
        lengths.push_back(uint16_t(bytes.size()));
    }
    vorn_enc_ctx src_enc{}, res_enc{};
    vorn_vec src{}, res{};
    src_enc.elem_type_ext = ub1(s.form);
    src.enc_ctx = &src_enc;
    if (per_row) {
        src_enc.flags = VORN_PTR_LEN;
        src.data = addresses.data();
        src.data2 = lengths.data();
        src.size = rows;
    } else {
        src.data = buffers[0].get();
        src_enc.max_len = lengths[0];
    }
    res_enc.elem_type = ub1(s.type);
    res_enc.vec_dim = s.dims;
    res_enc.flags = s.native ? VORN_NATIVE_FP : 0;
    res.enc_ctx = &res_enc;
    // Room for every element the texts could hold.
    size_t most = 0;
    for (const auto &u : units) most += u.size() / 2 + 1;
    std::vector<uint8_t> out(8 * most + 8 * (s.dims + 1));
    std::vector<uint16_t> out_lengths(rows + 1);
    std::vector<double> norm_store(rows + 1);
    std::vector<ub8> bad(rows / 64 + 1);
    res.data = out.data();
    res.data2 = s.dims == 0 && rng() % 32 == 0 ? nullptr : out_lengths.data();
    double *norms = norm_store.data();
    const bool with_bad = rng() % 2;
    vorn_kernel_ctx kctx{};
    const ub8 code = vorn_vector_parse_dydi(&res, rng() % 2 ? &norms : nullptr, &src,
                                            with_bad ? bad.data() : nullptr, &kctx);
    if (code != 0 && code != 2 && code != 4 && code != 20 && code != 21 && code != 22)
        fail(input, "undocumented code", code);
    const bool supported = (s.type == 1 || s.type == 2 || s.type == 5) && s.form <= 1 &&
                           (s.dims != 0 || res.data2 != nullptr);
    if (!supported) {
        if (code != 2) fail(input, "unsupported settings not refused", code);
        return;
    }
    const ModelResult m = model_parse(units, s, with_bad);
    if (code != m.code) fail(input, "code differs from the model", code);
    if (kctx.num_ones != m.done) fail(input, "rows done differ from the model", kctx.num_ones);
    if (!m.out.empty() && std::memcmp(out.data(), m.out.data(), m.out.size()) != 0)
        fail(input, "elements differ", 0);
}

void one_header(std::mt19937_64 &rng, unsigned long long input) {
    std::unique_ptr<uint8_t[]> v(new uint8_t[9]);
    for (int i = 0; i < 9; ++i) v[i] = uint8_t(rng());
    if (rng() % 4) v[0] = 0xDB;
    if (rng() % 2) v[1] = uint8_t(rng() % 5);
    vorn_lvector_header h;
    std::memset(&h, 0xA5, sizeof h);
    const sb4 r = lvector_to_header_basic(v.get(), &h);
    if (r != 0 && r != -251 && r != -226 && r != -245) fail(input, "undocumented header return", ub4(r));
    if (r != 0) {
        const auto *raw = reinterpret_cast<const uint8_t *>(&h);
        for (size_t i = 0; i < sizeof h; ++i)
            if (raw[i] != 0xA5) fail(input, "header written on a refusal", i);
    } else if (h.body_off != vorn::vec::body_offset(v[3], v[4])) {
        fail(input, "body offset", h.body_off);
    }
}

}  // namespace

int main(int argc, char **argv) {
    unsigned long long inputs = 100000, seed = 1;
    for (int i = 1; i + 1 < argc; i += 2) {
        if (!std::strcmp(argv[i], "--inputs")) inputs = std::strtoull(argv[i + 1], nullptr, 10);
        else if (!std::strcmp(argv[i], "--seed")) seed = std::strtoull(argv[i + 1], nullptr, 10);
    }
    std::mt19937_64 rng(seed);
    for (unsigned long long n = 0; n < inputs; ++n) {
        one_parse(rng, n);
        one_header(rng, n);
    }
    std::printf("vector_parse_fuzz: %llu inputs, seed %llu, no fault\n", inputs, seed);
    return 0;
}
