/* scan_range.c - a whole host in C11: open the library, check it, scan a
 * packed dictionary column for a range of codes, count, walk the matching
 * rows and decode them to their symbols.  Needs only vorn.h and libdl:
 *     cc -std=c11 -I<include> scan_range.c -o scan_range -rdynamic -ldl
 *     ./scan_range /path/to/librvtlsse42.so
 */
#define _POSIX_C_SOURCE 200809L
#include <dlfcn.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "vorn.h"

#ifndef VORN_LIBRARY
#define VORN_LIBRARY "librvtlsse42.so"
#endif

enum { ROWS = 1000, WIDTH = 11, SYMBOLS = 2000, SYMBOL_LEN = 5 };

/* The one function the library imports; exported by linking with -rdynamic. */
void vornhost_raise_internal(void *env, ub8 error_context, const char *message, ...) {
    (void)env;
    fprintf(stderr, "library raised: %s (context %llx)\n", message, (unsigned long long)error_context);
    exit(3);
}

/* Memory for kernels that ask (compressed columns); this host never frees. */
static void *host_alloc(void *env, void *heap, ub8 bytes, const char *name, ub4 a, ub4 b, ub8 tag) {
    (void)env, (void)heap, (void)name, (void)a, (void)b, (void)tag;
    return calloc(1, bytes + 16);
}

static ub1 stream[(ROWS * WIDTH + 7) / 8 + 16]; /* + 16 readable bytes of slack */
static char symbols[SYMBOLS * SYMBOL_LEN + 1];
static ub8 bits[(ROWS + 63) / 64 + 1];
static ub4 rows[ROWS];
static ub8 sym_ptr[ROWS];
static ub2 sym_len[ROWS], indicator[ROWS];
static ub8 env_words[80]; /* word 71: the error context handed to the raise */

int main(int argc, char **argv) {
    const char *path = argc > 1 ? argv[1] : VORN_LIBRARY;
    void *handle = dlopen(path, RTLD_NOW | RTLD_LOCAL);
    if (!handle) return fprintf(stderr, "%s\n", dlerror()), 1;
    const vorn_specialized_ctx *ctx = (const vorn_specialized_ctx *)dlsym(handle, "vorn_global_specialized_ctx");
    if (!ctx || ctx->magic != VORN_CTX_MAGIC || strcmp(ctx->version, VORN_CTX_VERSION) != 0 ||
        strcmp(ctx->variant, VORN_CTX_VARIANT) != 0)
        return fprintf(stderr, "%s is not the library this host was built for\n", path), 1;
    const ub4 cpu_words[3] = {0, 0, 0};
    ctx->vorn_init_sharedlib_dydi(NULL, cpu_words);

    /* A column of 11-bit codes, packed MSB-first end to end, and its
     * dictionary of fixed-length symbols "c0000" to "c1999". */
    ub4 expected = 0;
    for (ub4 i = 0; i < ROWS; ++i) {
        const ub4 code = (i * 7919u) % SYMBOLS;
        for (ub4 k = 0; k < WIDTH; ++k)
            if (code >> (WIDTH - 1 - k) & 1) stream[(i * WIDTH + k) / 8] |= (ub1)(0x80u >> ((i * WIDTH + k) % 8));
        expected += code >= 100 && code < 300;
    }
    for (ub4 c = 0; c < SYMBOLS; ++c) snprintf(symbols + c * SYMBOL_LEN, SYMBOL_LEN + 1, "c%04u", (unsigned)c);
    const ub1 header[2] = {0, SYMBOL_LEN}; /* big-endian ub2: the symbol length */

    vorn_enc_ctx enc = {0};
    enc.width_code = (ub1)VORN_WIDTH_CODE(WIDTH);
    enc.kernel_group = (ub1)VORN_KERNEL_GROUP(enc.width_code, VORN_ENC_DICT);
    enc.bit_width = WIDTH;
    enc.flags = VORN_PACKED;
    enc.num_symbols = SYMBOLS;
    enc.sym_base = symbols;
    enc.sym_header = header;
    enc.sym_layout = 0;
    vorn_vec src = {0}, res = {0};
    src.data = stream, src.size = ROWS, src.enc_ctx = &enc;
    res.res_bv = bits, res.size = ROWS;

    vorn_host_services host = {0};
    env_words[VORN_ENV_ERROR_CONTEXT_WORD] = 0x71;
    host.env = env_words, host.alloc = host_alloc, host.lomp_decode = ctx->vorn_lomp_decode_dydi;
    vorn_kernel_ctx kctx = {0};
    kctx.host = &host;

    /* 100 <= code < 300: the ge_lt form; an 11-bit literal is a native ub4. */
    const ub4 low = 100, high = 300;
    const void *lo[1] = {&low}, *hi[1] = {&high};
    const vorn_kernel *table = ctx->dispatch_table;
    ub8 rc = table[VORN_DISPATCH_INDEX(enc.kernel_group, VORN_OP_GE_LT, 0)].range(&res, &src, lo, hi, &kctx);
    if (rc > VORN_RC_EMPTY) return fprintf(stderr, "scan: code %llu\n", (unsigned long long)rc), 1;
    printf("%u of %u rows have a code in [100, 300)\n", (unsigned)res.num_ones, (unsigned)ROWS);

    /* The matching rows, ascending, from the word iterator. */
    vorn_bv_iter it;
    ub4 n = 0, got;
    ctx->vorn_lbiwv_ictx_ini2_dydi(&it, bits, ROWS, 0, 0);
    while ((got = ctx->vorn_lbiwvones_dydi(&it, rows + n, 64)) > 0) n += got;

    /* Their symbols: an address and a length a row, no byte copied. */
    vorn_vec out = {0};
    out.data = sym_ptr, out.data2 = sym_len, out.data3 = indicator;
    vorn_kernel_ctx dctx = {0};
    dctx.host = &host, dctx.ones_vec = rows, dctx.ones_vec_size = n;
    rc = table[VORN_DISPATCH_INDEX(enc.kernel_group, VORN_OP_DECODE, 0)].decode(&out, &src, &dctx);
    if (rc != VORN_RC_OK) return fprintf(stderr, "decode: code %llu\n", (unsigned long long)rc), 1;
    for (ub4 j = 0; j < n && j < 5; ++j)
        printf("  row %4u  %.*s\n", (unsigned)rows[j], (int)sym_len[j], (const char *)(uintptr_t)sym_ptr[j]);

    if (n != res.num_ones || n != expected || out.num_ones != n)
        return fprintf(stderr, "expected %u rows, the scan gave %u\n", (unsigned)expected, (unsigned)n), 1;
    printf("all %u rows agree with a plain loop\n", (unsigned)n);
    dlclose(handle);
    return 0;
}
