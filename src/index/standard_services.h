// The services every Trovara program hands to the index: name folding as
// the catalogue keeps names, type descriptions from the type tree, and
// last-use dates from the desktop's recently-used list (read once, when
// the services are made).
#pragma once

#include "index/index.h"

namespace trovara::index {

IndexServices standardServices();

}  // namespace trovara::index
