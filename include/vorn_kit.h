/*
 * vorn_kit.h - the host kit: a small static library (libvorn_kit.a) that
 * installs beside librvtlsse42.so and does the host-side chores that every
 * host of the library repeats.  Nothing here is needed to call a kernel;
 * vorn.h alone is the interface.  The kit is C++ inside and C outside: link
 * it with the C++ runtime (pkg-config --libs vorn_kit, or the CMake target
 * rvtlsse42::kit, say so).
 *
 *   names      the kernel name of a dispatch index and whether this build
 *              serves it, computed from the same compile-time scheme and
 *              table as the library, so a host need not call a kernel to
 *              learn that it answers VORN_RC_UNSUPPORTED;
 *   codes      the name and text of a result code;
 *   opening    dlopen, the record, the checks, the start-up call;
 *   columns    a packed-code writer for every width 1 to 64, a big-endian
 *              fixed-width writer, encoding contexts of both, and the sizes
 *              with the slack the kernels need;
 *   services   vorn_host_services backed by an arena, with the library's
 *              own decoder behind lomp_decode;
 *   hashing    a default hash callback of the form the hash kernels take;
 *   streams    the compressed-stream (VORN_LOMP) encoder.
 *
 * Compiles as C11 and as C++.  Not thread-safe per object: one
 * vorn_kit_host per thread.
 */
#ifndef VORN_KIT_H
#define VORN_KIT_H

#include <stddef.h>

#include "vorn.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Names of dispatch indexes -------------------------------------------- */

/* "vorn_ge_lt_dict_11bit" for a named index, "vorn_invalid_dispatch" for an
 * index the scheme leaves empty or one outside 0 .. 8191.  Static text. */
const char *vorn_kit_kernel_name(ub4 index);

/* 1 when the scheme names a kernel at `index` (its table entry is not null),
 * else 0. */
int vorn_kit_index_named(ub4 index);

/* 1 when this build of the library has a kernel at `index`; 0 when the entry
 * is null or answers VORN_RC_UNSUPPORTED without writing anything. */
int vorn_kit_index_served(ub4 index);

/* ---- Result codes ---------------------------------------------------------- */

/* "VORN_RC_EMPTY" and "done, the result is empty" for 1; for a code local
 * to a family, "VORN_RC_LOCAL" and "a code local to the family". */
const char *vorn_kit_rc_name(ub8 rc);
const char *vorn_kit_rc_text(ub8 rc);

/* ---- Opening the library ----------------------------------------------------- */

/* dlopen(path, RTLD_NOW | RTLD_LOCAL) (path null: $VORN_LIB, else
 * "librvtlsse42.so" by the loader's search), dlsym of the record, a check of
 * magic, version and variant against this header, and the one
 * vorn_init_sharedlib_dydi call.  Returns the record, or null with a message
 * in error (error_bytes of room; may be null).  *handle (may be null)
 * receives the dlopen handle. */
const vorn_specialized_ctx *vorn_kit_open(const char *path, void **handle, char *error,
                                          size_t error_bytes);

/* ---- Columns ------------------------------------------------------------------ */

/* Bytes of zeros the writers below put behind a stream: the most any kernel
 * reads past a stream's end. */
#define VORN_KIT_SLACK 16u

/* Size of a packed stream of `rows` codes of `width` bits (1 to 64),
 * including VORN_KIT_SLACK. */
size_t vorn_kit_packed_bytes(ub8 rows, unsigned width);
/* Writes the codes (each cut to `width` bits), MSB-first, end to end, and
 * zeros up to vorn_kit_packed_bytes(rows, width). */
void vorn_kit_pack(void *out, const ub8 *codes, ub8 rows, unsigned width);
/* Code `row` of a packed stream, read bit by bit. */
ub8 vorn_kit_packed_code(const void *stream, unsigned width, ub8 row);

/* Size of a fixed-width column of `rows` values of `bytes` bytes (1 to 8),
 * including VORN_KIT_SLACK. */
size_t vorn_kit_fixed_bytes(ub8 rows, unsigned bytes);
/* Writes each value's low `bytes` bytes big-endian, end to end, then zeros
 * up to vorn_kit_fixed_bytes(rows, bytes). */
void vorn_kit_put_fixed(void *out, const ub8 *values, ub8 rows, unsigned bytes);

/* Words of a result bit vector of `rows` rows: (rows + 63) / 64 and one
 * spare word, which covers the bytes the burst kernels may touch. */
size_t vorn_kit_bv_words(ub8 rows);

/* Zeroes *enc and fills it for a packed dictionary column of `width` bits
 * (kernel_group, width_code, bit_width, VORN_PACKED, num_symbols).  Returns
 * 0, or -1 for a width without kernels. */
int vorn_kit_packed_enc(vorn_enc_ctx *enc, unsigned width, ub4 num_symbols);
/* Zeroes *enc and fills it for a big-endian fixed-width column of
 * `bit_width` bits (8, 16, 24, 32, 40, 48, 56, 64): the kernel group of the
 * 8-, 16-, 32- or 64-bit kernels that serve it.  Returns 0 or -1. */
int vorn_kit_fixed_enc(vorn_enc_ctx *enc, unsigned bit_width);

/* ---- Host services -------------------------------------------------------------- */

typedef struct vorn_kit_host vorn_kit_host;

/* Host services whose env is the host object (word 71 is its error
 * context) and whose alloc takes from an arena: every block 16-byte aligned
 * with 64 zeroed bytes behind it, all kept until the host is reset or
 * destroyed.  lomp_decode forwards to `decoder` (null: the decoder of the
 * library vorn_kit_open opened last). */
vorn_kit_host *vorn_kit_host_create(vorn_lomp_decode_fn decoder);
void vorn_kit_host_destroy(vorn_kit_host *host);
vorn_host_services *vorn_kit_host_services(vorn_kit_host *host);
/* A zeroed block from the arena, as alloc gives the kernels. */
void *vorn_kit_host_alloc(vorn_kit_host *host, size_t bytes);
/* Frees every block of the arena. */
void vorn_kit_host_reset(vorn_kit_host *host);
/* Calls of alloc and of lomp_decode so far. */
ub8 vorn_kit_host_alloc_calls(const vorn_kit_host *host);
ub8 vorn_kit_host_decode_calls(const vorn_kit_host *host);

/* ---- Hashing -------------------------------------------------------------------- */

/* The kit's default hash callback, of the form vorn_hash_fn: XXH3 64 bits
 * (libxxhash, linked with the kit) of the value's bytes keyed by the seed.
 * Tables built with one callback are probed with the same one. */
ub8 vorn_kit_hash(const void *value, ub8 length, ub8 seed);

/* ---- Compressed code streams ---------------------------------------------------- */

/* The VORN_LOMP stream that decodes to the `bytes` bytes at `data` (a
 * column's packed code stream): set src->data to it and src->decomp_size to
 * `bytes`.  The result is malloc'ed (free it with free) with 16 zero bytes
 * behind *stream_bytes; null if memory ran out. */
ub1 *vorn_kit_lomp_compress(const void *data, size_t bytes, size_t *stream_bytes);

#ifdef __cplusplus
}
#endif

#endif /* VORN_KIT_H */
