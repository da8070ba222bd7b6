// kit.cpp - the C face of the host kit (vorn_kit.h) over the host-side code
// that the reference host, the tests and the benchmarks share.
#include "vorn_kit.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "frame/dispatch_build.h"
#include "host/columns.h"
#include "host/hash_callback.h"
#include "host/host_services.h"
#include "host/library.h"
#include "host/lomp_encoder.h"

namespace {

// The scheme's names, built by the compiler from the library's own rule.
constexpr vorn::NameStore kNames = vorn::build_scheme_names();

struct RcText {
    ub8 rc;
    const char *name;
    const char *text;
};

constexpr RcText kRcTexts[] = {
    {VORN_RC_OK, "VORN_RC_OK", "done"},
    {VORN_RC_EMPTY, "VORN_RC_EMPTY", "done, the result is empty"},
    {VORN_RC_UNSUPPORTED, "VORN_RC_UNSUPPORTED", "layout or flags not served, nothing written"},
    {VORN_RC_PARTITION_FULL, "VORN_RC_PARTITION_FULL", "a partition is full, make room and resume"},
    {VORN_RC_TRANSPOSE_FULL, "VORN_RC_TRANSPOSE_FULL", "transposed output full, resume"},
    {VORN_RC_GATHER_FULL, "VORN_RC_GATHER_FULL", "gathered output full, resume"},
    {VORN_RC_OUTPUT_FULL, "VORN_RC_OUTPUT_FULL", "output full, rows left, resume at row_pos"},
    {VORN_RC_BAD_RECORD, "VORN_RC_BAD_RECORD", "bad or unsupported contents of a record"},
};

const RcText *find_rc(ub8 rc) {
    for (const RcText &t : kRcTexts)
        if (t.rc == rc) return &t;
    return nullptr;
}

}  // namespace

// The served bits live in their own translation unit (kit_served.cpp), which
// sees the families' tables.
namespace vornkit {
bool index_served(ub4 index);
}

struct vorn_kit_host : vornhost::HostServices {};

extern "C" {

const char *vorn_kit_kernel_name(ub4 index) {
    if (index >= vorn::kSchemeSize) return vorn::kInvalidName;
    return kNames.text + kNames.offset[index];
}

int vorn_kit_index_named(ub4 index) { return index < vorn::kSchemeSize && kNames.offset[index] != 0; }

int vorn_kit_index_served(ub4 index) { return index < vorn::kSchemeSize && vornkit::index_served(index); }

const char *vorn_kit_rc_name(ub8 rc) {
    const RcText *t = find_rc(rc);
    return t ? t->name : "VORN_RC_LOCAL";
}

const char *vorn_kit_rc_text(ub8 rc) {
    const RcText *t = find_rc(rc);
    return t ? t->text : "a code local to the family";
}

const vorn_specialized_ctx *vorn_kit_open(const char *path, void **handle, char *error,
                                          size_t error_bytes) {
    vornhost::Library lib;
    const bool opened = lib.open(path);
    if (opened && (lib.ctx->magic != VORN_CTX_MAGIC || std::strcmp(lib.ctx->version, VORN_CTX_VERSION) != 0 ||
                   std::strcmp(lib.ctx->variant, VORN_CTX_VARIANT) != 0)) {
        lib.error = lib.path + " is not the " VORN_CTX_VARIANT " build of version " VORN_CTX_VERSION;
        lib.close();
    } else if (opened) {
        if (handle) *handle = lib.handle;
        return lib.ctx;
    }
    if (error && error_bytes) std::snprintf(error, error_bytes, "%s", lib.error.c_str());
    return nullptr;
}

size_t vorn_kit_packed_bytes(ub8 rows, unsigned width) { return (rows * width + 7) / 8 + VORN_KIT_SLACK; }

void vorn_kit_pack(void *out, const ub8 *codes, ub8 rows, unsigned width) {
    std::memset(out, 0, vorn_kit_packed_bytes(rows, width));
    vornhost::pack_codes_into(static_cast<ub1 *>(out), codes, rows, width);
}

ub8 vorn_kit_packed_code(const void *stream, unsigned width, ub8 row) {
    return vornhost::packed_code(static_cast<const ub1 *>(stream), width, row);
}

size_t vorn_kit_fixed_bytes(ub8 rows, unsigned bytes) { return rows * bytes + VORN_KIT_SLACK; }

void vorn_kit_put_fixed(void *out, const ub8 *values, ub8 rows, unsigned bytes) {
    ub1 *p = static_cast<ub1 *>(out);
    for (ub8 i = 0; i < rows; ++i)
        for (unsigned k = 0; k < bytes; ++k) *p++ = static_cast<ub1>(values[i] >> (8 * (bytes - 1 - k)));
    std::memset(p, 0, VORN_KIT_SLACK);
}

size_t vorn_kit_bv_words(ub8 rows) { return (rows + 63) / 64 + 1; }

int vorn_kit_packed_enc(vorn_enc_ctx *enc, unsigned width, ub4 num_symbols) {
    const ub4 code = vorn::width_code(width);
    if (code == vorn::kNoWidth) return -1;
    *enc = vorn_enc_ctx{};
    enc->width_code = static_cast<ub1>(code);
    enc->kernel_group = static_cast<ub1>(VORN_KERNEL_GROUP(code, VORN_ENC_DICT));
    enc->bit_width = width;
    enc->flags = VORN_PACKED;
    enc->num_symbols = num_symbols;
    return 0;
}

int vorn_kit_fixed_enc(vorn_enc_ctx *enc, unsigned bit_width) {
    ub4 kernel_bits = 0;
    switch (bit_width) {
        case 8: case 16: case 32: case 64: kernel_bits = bit_width; break;
        case 24: kernel_bits = 32; break;
        case 40: case 48: case 56: kernel_bits = 64; break;
        default: return -1;
    }
    *enc = vorn_enc_ctx{};
    enc->width_code = static_cast<ub1>(vorn::width_code(kernel_bits));
    enc->kernel_group = static_cast<ub1>(VORN_KERNEL_GROUP(enc->width_code, VORN_ENC_FIXED));
    enc->bit_width = bit_width;
    enc->flags = VORN_FIXED;
    return 0;
}

vorn_kit_host *vorn_kit_host_create(vorn_lomp_decode_fn decoder) {
    vorn_kit_host *h = new (std::nothrow) vorn_kit_host;
    if (h) h->decoder = decoder;
    return h;
}

void vorn_kit_host_destroy(vorn_kit_host *host) { delete host; }

vorn_host_services *vorn_kit_host_services(vorn_kit_host *host) { return &host->services; }

void *vorn_kit_host_alloc(vorn_kit_host *host, size_t bytes) { return host->arena.allocate(bytes); }

void vorn_kit_host_reset(vorn_kit_host *host) {
    host->arena.clear();
}

ub8 vorn_kit_host_alloc_calls(const vorn_kit_host *host) { return host->allocs.size(); }

ub8 vorn_kit_host_decode_calls(const vorn_kit_host *host) { return host->decode_calls; }

// XXH3, the host tools' one hash callback (host/hash_callback.h).
ub8 vorn_kit_hash(const void *value, ub8 length, ub8 seed) { return vornhost::xxh3_hash(value, length, seed); }

ub1 *vorn_kit_lomp_compress(const void *data, size_t bytes, size_t *stream_bytes) {
    const vornhost::LompStream s = vornhost::lomp_compress(static_cast<const ub1 *>(data), bytes);
    ub1 *out = static_cast<ub1 *>(std::calloc(s.bytes.size() + 16, 1));
    if (!out) return nullptr;
    std::memcpy(out, s.bytes.data(), s.bytes.size());
    if (stream_bytes) *stream_bytes = s.bytes.size();
    return out;
}

}  // extern "C"
