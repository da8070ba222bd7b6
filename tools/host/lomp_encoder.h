// lomp_encoder.h - the host's side of compressed code streams: it writes the
// streams that the library's vorn_lomp_decode_dydi reads.  The store keeps a
// column's packed code stream in this form; the first kernel that reads the
// column decompresses it through the host's lomp_decode slot.
//
// A stream is a dictionary of 1 to 1,024 symbols of 0 to 8 bytes and m codes
// of w bits indexing it, w being the bit count of (symbols - 1):
//    "LOMP", version 0, flags, 4 reserved bytes, extension marker (signed
//    16 bits), uncompressed size (32), symbol count (16), one length nibble
//    a symbol (high nibble first), [extension block 1: 2 bytes a symbol],
//    the symbol bytes, the code count m (32), [extension word: bits 31..7
//    count the bytes from its start to the code stream, then extension block
//    2], the code stream (most significant bit first).
// All integers are big-endian; the bracketed parts are present when the
// marker, read as signed, is above 0.
//
// The decoder's block phase cannot decode widths 1 and 2 (2 to 4 symbols)
// once a stream has 64 codes or more, so the encoder, when it chooses the
// symbols itself, pads such a dictionary to 5 symbols.  lomp_encode() writes
// what it is told, so that tests can build exactly those streams.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "host/columns.h"
#include "vorn.h"

namespace vornhost {

using LompSymbol = std::vector<ub1>;

struct LompOptions {
    ub1 flags = 0x02;           // 0x02 is required, 0x01 and 0x08 refused, others ignored
    ub2 ext_marker = 0;         // > 0 as signed 16 bits: both extension blocks are written
    ub4 ext2_bytes = 6;         // bytes of extension block 2, when present
    ub1 ext_word_low = 0x5a;    // bits 6..0 of the extension word, which readers ignore
    ub4 reserved = 0;           // the 4 reserved bytes, never read
};

// A stream and what went into it.
struct LompStream {
    Bytes bytes;                        // the stream; 16 zero bytes follow the code stream
    std::vector<LompSymbol> symbols;
    std::vector<ub4> codes;
    ub4 width = 0;                      // bits per code
    ub4 uncompressed_size = 0;          // the size in the header
    std::size_t code_count_offset = 0;  // where m stands
    std::size_t code_stream_offset = 0; // where the code stream starts
};

// Bits per code for `symbols` symbols: the bit count of symbols - 1.
unsigned lomp_width(ub4 symbols);

// The stream of these symbols (1 to 1,024, up to 15 bytes each; more than 8
// bytes is not a valid stream) and codes (each below the symbol count).  The
// header's size is the sum of the codes' symbol lengths.
LompStream lomp_encode(const std::vector<LompSymbol> &symbols, const std::vector<ub4> &codes,
                       const LompOptions &options = {});

// A stream that decodes to `data`: the encoder chooses up to 1,024 symbols of
// up to 8 bytes (recurring 8-, 4- and 2-byte pieces, and single bytes for the
// rest) and parses the data greedily, longest symbol first.
LompStream lomp_compress(const ub1 *data, std::size_t size, const LompOptions &options = {});

}  // namespace vornhost
