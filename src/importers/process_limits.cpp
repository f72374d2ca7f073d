#include "importers/process_limits.h"

#include <sys/resource.h>

#if defined(__SANITIZE_ADDRESS__)
#define TROVARA_ADDRESS_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define TROVARA_ADDRESS_SANITIZER 1
#endif
#endif

namespace trovara::importers {

namespace {

// Address space beyond the resident limit: libraries, and files importers
// map rather than read.
constexpr std::uint64_t kAddressSpaceMargin = std::uint64_t{1} << 30;

}  // namespace

void capAddressSpace(std::uint64_t residentLimit)
{
#ifndef TROVARA_ADDRESS_SANITIZER
    const rlimit cap{residentLimit + kAddressSpaceMargin, residentLimit + kAddressSpaceMargin};
    ::setrlimit(RLIMIT_AS, &cap);
#else
    (void)residentLimit;
#endif
}

}  // namespace trovara::importers
