#include "support/test_host.h"

#include <cstdarg>
#include <cstring>

// The one function the library imports, resolved from this executable.
extern "C" void vornhost_raise_internal(void *env, ub8 error_context, const char *message, ...) {
    vorntest::raised().push_back({env, error_context, message});
}

namespace vorntest {

const vorn_specialized_ctx &ctx() { return *vornhost::library().ctx; }
const vorn_kernel &kernel(ub4 index) { return vornhost::library().table[index]; }

std::vector<Raise> &raised() {
    static std::vector<Raise> list;
    return list;
}
void clear_raised() { raised().clear(); }

vorn_kernel_ctx TestHost::kctx() {
    vorn_kernel_ctx k{};
    k.host = &services;
    return k;
}

static ub8 copying_decode(const vorn_lomp_ctx *, const ub1 *stream, ub1 *out, ub4 *out_length,
                          ub4 capacity) {
    std::memcpy(out, stream, capacity);
    *out_length = capacity;
    return 0;
}

void TestHost::use_copying_decoder() { decoder = copying_decode; }

static ub8 failing_decode(const vorn_lomp_ctx *, const ub1 *, ub1 *out, ub4 *, ub4 capacity) {
    std::memset(out, 0, capacity);
    return 24;
}

void TestHost::use_failing_decoder() { decoder = failing_decode; }

unsigned rle_expand_calls = 0;

ub8 scalar_rle_expand(vorn_host_services *, vorn_vec *res, vorn_vec *src, vorn_kernel_ctx *runs) {
    ++rle_expand_calls;
    const vorn_enc_ctx *enc = src->enc_ctx;
    const ub4 width_field = (enc->rle_len_bits == 16 ? 14 : 6) + (enc->rle_cla ? 1 : 0);
    const ub4 index = VORN_DISPATCH_INDEX(VORN_KERNEL_GROUP(width_field, VORN_ENC_SPECIAL), VORN_OP_BURST, 0);
    return kernel(index).decode(res, src, runs);
}

void Column::set_data(Bytes bytes) {
    data = std::move(bytes);
    vec.data = data.data();
}

void Column::compress_by_copy() {
    enc.flags |= VORN_LOMP;
    vec.decomp_size = static_cast<ub4>(data.size());
    cell = nullptr;
    vec.decomp_slot = &cell;
    vec.alloc_tag = 0x7a6;
}

void Column::make_rle(const std::vector<ub4> &lengths, unsigned len_bits, vorn_rle_expand_fn expand) {
    enc.flags |= VORN_RLE;
    enc.rle_runs = static_cast<ub4>(lengths.size());
    enc.rle_len_bits = static_cast<ub1>(len_bits);
    lens.resize(lengths.size() * (len_bits / 8));
    ub8 rows = 0;
    for (std::size_t i = 0; i < lengths.size(); ++i) {
        if (len_bits == 16) {
            lens.data()[2 * i] = static_cast<ub1>(lengths[i] >> 8);
            lens.data()[2 * i + 1] = static_cast<ub1>(lengths[i]);
        } else {
            lens.data()[i] = static_cast<ub1>(lengths[i]);
        }
        rows += lengths[i];
    }
    enc.rle_lens = lens.data();
    enc.rle_expand = expand;
    rle_bv.assign(lengths.size() / 64 + 3, 0);
    enc.rle_bv = rle_bv.data();
    vec.size = static_cast<ub4>(rows);
}

void Column::add_cla() {
    const ub4 runs = enc.rle_runs;
    cla.resize(4 * (static_cast<std::size_t>(runs) + 1));
    ub4 sum = 0;
    for (ub4 r = 0; r <= runs; ++r) {
        ub1 *p = cla.data() + 4 * r;
        p[0] = static_cast<ub1>(sum >> 24), p[1] = static_cast<ub1>(sum >> 16);
        p[2] = static_cast<ub1>(sum >> 8), p[3] = static_cast<ub1>(sum);
        if (r < runs)
            sum += enc.rle_len_bits == 16 ? (lens.data()[2 * r] << 8 | lens.data()[2 * r + 1]) : lens.data()[r];
    }
    enc.rle_cla = cla.data();
}

std::unique_ptr<Column> packed_column(const std::vector<ub8> &codes, unsigned width) {
    auto c = std::make_unique<Column>();
    c->enc.flags = VORN_PACKED;
    c->enc.bit_width = width;
    c->enc.width_code = static_cast<ub1>(VORN_WIDTH_CODE(width));
    c->enc.kernel_group = static_cast<ub1>(VORN_KERNEL_GROUP(c->enc.width_code, VORN_ENC_DICT));
    c->vec.enc_ctx = &c->enc;
    c->vec.size = static_cast<ub4>(codes.size());
    c->set_data(vornhost::pack_codes(codes, width));
    return c;
}

std::unique_ptr<Column> fixed_column(const std::vector<ub8> &values, unsigned bytes, unsigned bit_width) {
    auto c = std::make_unique<Column>();
    c->enc.flags = VORN_FIXED;
    c->enc.bit_width = bit_width;
    c->vec.enc_ctx = &c->enc;
    c->vec.size = static_cast<ub4>(values.size());
    c->set_data(vornhost::fixed_column(values, bytes));
    return c;
}

Result::Result(ub8 n, ub8 fill) : rows(n) {
    const ub8 words = (n + 63) / 64;
    bv.assign(words + 4, kGuard);
    for (ub8 i = 0; i < words; ++i) bv[i] = fill;
    vec.res_bv = bv.data();
    vec.size = static_cast<ub4>(n);
}

bool Result::clear_behind(ub8 n) const {
    if (n % 64 == 0) return true;
    return (bv[n / 64] >> (n % 64)) == 0;
}

bool Result::guard_intact() const {
    const ub8 words = (rows + 63) / 64;
    for (ub8 i = words; i < bv.size(); ++i)
        if (bv[i] != kGuard) return false;
    return true;
}

bool compare_model(unsigned op, ub8 x, ub8 a, ub8 b) {
    switch (op) {
        case VORN_OP_EQ: return x == a;
        case VORN_OP_LT: return x < a;
        case VORN_OP_GT: return x > a;
        case VORN_OP_LE: return x <= a;
        case VORN_OP_GE: return x >= a;
        case VORN_OP_NE: return x != a;
        case VORN_OP_GT_LT: return a < x && x < b;
        case VORN_OP_GT_LE: return a < x && x <= b;
        case VORN_OP_GE_LT: return a <= x && x < b;
        case VORN_OP_GE_LE: return a <= x && x <= b;
    }
    return false;
}

const char *compare_name(unsigned op) {
    static const char *names[] = {"eq", "lt", "gt", "le", "ge", "ne", "gt_lt", "gt_le", "ge_lt", "ge_le"};
    return op < 10 ? names[op] : "?";
}

std::vector<ub8> random_bits(std::mt19937_64 &rng, ub8 bits, double density) {
    std::vector<ub8> v = vornhost::bit_vector(bits);
    std::bernoulli_distribution d(density);
    for (ub8 i = 0; i < bits; ++i)
        if (d(rng)) vornhost::set_bit(v.data(), i);
    return v;
}

}  // namespace vorntest
