// Limits a helper process that runs importers puts on itself, so that a
// runaway allocation stops inside the helper before it reaches the rest of
// the machine. (Whoever started the helper watches its resident size too.)
//
// Thread safety: call once, early, from main().
#pragma once

#include <cstdint>

namespace trovara::importers {

// Caps the address space at `residentLimit` plus room for libraries and
// files that importers map rather than read. Does nothing under the address
// sanitizer, which reserves terabytes of address space.
void capAddressSpace(std::uint64_t residentLimit);

}  // namespace trovara::importers
