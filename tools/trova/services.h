// The engine pieces the command-line tool hands to the index: name folding,
// type descriptions, last-use dates and the importers (run in helper
// processes, started when first needed), as the whole application uses them.
#pragma once

#include "index/index.h"

namespace trovara::cli {

index::IndexServices indexServices();

}  // namespace trovara::cli
