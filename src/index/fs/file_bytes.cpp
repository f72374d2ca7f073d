#include "index/fs/file_bytes.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace trovara::index {

bool FileBytes::append(std::string_view piece, std::uint64_t limit)
{
    const std::uint64_t room = limit - std::min<std::uint64_t>(limit, bytes.size());
    bytes.append(piece.substr(0, static_cast<std::size_t>(std::min<std::uint64_t>(room, piece.size()))));
    if (piece.size() > room) {
        complete = false;
        return false;
    }
    return true;
}

Expected<FileBytes> readFileBytes(const std::string& path, std::uint64_t limit)
{
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY);
    if (fd < 0) {
        return Failure{Failure::Kind::Io, "cannot read " + path + ": " + std::strerror(errno)};
    }
    FileBytes file;
    char buffer[65536];
    while (true) {
        const ssize_t got = ::read(fd, buffer, sizeof buffer);
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got < 0) {
            const int error = errno;
            ::close(fd);
            return Failure{Failure::Kind::Io, "cannot read " + path + ": " + std::strerror(error)};
        }
        if (got == 0 || !file.append(std::string_view(buffer, static_cast<std::size_t>(got)), limit)) {
            break;
        }
    }
    ::close(fd);
    return file;
}

}  // namespace trovara::index
