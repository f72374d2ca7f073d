// Reading a whole file (up to a limit) into memory, for importers whose
// formats are parsed in one piece.
//
// Thread safety: reentrant.
#pragma once

#include "importers/importer.h"
#include "index/fs/file_bytes.h"

namespace trovara::importers {

using index::FileBytes;
using index::readFileBytes;

// How much of a file importers read at most: a few times the text limit
// (markup and encodings take room), within bounds.
std::uint64_t readLimitFor(std::uint64_t textLimit);

}  // namespace trovara::importers
