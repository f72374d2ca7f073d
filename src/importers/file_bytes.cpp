#include "importers/file_bytes.h"

#include <algorithm>

namespace trovara::importers {

std::uint64_t readLimitFor(std::uint64_t textLimit)
{
    constexpr std::uint64_t kFloor = std::uint64_t{1} << 20;
    constexpr std::uint64_t kCeiling = std::uint64_t{256} << 20;
    return std::clamp(textLimit * 4, kFloor, kCeiling);
}

}  // namespace trovara::importers
