// Reading the beginning of a file (up to a limit) into memory: the text
// reader and the importers parse what they read in one piece, and a file
// larger than the limit costs the limit and no more.
//
// Thread safety: reentrant.
#pragma once

#include "index/expected.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace trovara::index {

struct FileBytes {
    std::string bytes;
    bool complete = true;  // false: the data goes on past the limit

    // Appends a piece read, as far as the limit allows. Returns false once
    // the limit is passed (the rest is dropped and `complete` cleared).
    bool append(std::string_view piece, std::uint64_t limit);
};

// At most `limit` bytes of the file. Fails when it cannot be read.
Expected<FileBytes> readFileBytes(const std::string& path, std::uint64_t limit);

}  // namespace trovara::index
