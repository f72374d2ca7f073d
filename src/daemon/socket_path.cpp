#include "daemon/socket_path.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

namespace trovara::daemon {

std::string runtimeFolder()
{
    const char* runtime = std::getenv("XDG_RUNTIME_DIR");
    if (runtime && runtime[0] == '/') {
        return std::string(runtime) + "/trovara";
    }
    return "/tmp/trovara-" + std::to_string(::getuid());
}

std::string socketPathFor(const std::string& indexDirectory)
{
    std::string directory = indexDirectory;
    if (char* real = ::realpath(indexDirectory.c_str(), nullptr)) {
        directory = real;
        std::free(real);
    }
    while (directory.size() > 1 && directory.back() == '/') {
        directory.pop_back();
    }
    // FNV-1a of the index folder: short enough for a socket address.
    std::uint64_t hash = 0xcbf29ce484222325ull;
    for (const char c : directory) {
        hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001b3ull;
    }
    char name[40];
    std::snprintf(name, sizeof name, "/index-%016llx.sock", static_cast<unsigned long long>(hash));
    return runtimeFolder() + name;
}

bool makeRuntimeFolder(const std::string& folder, std::string* error)
{
    if (::mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST) {
        *error = "cannot make " + folder + ": " + std::strerror(errno);
        return false;
    }
    struct stat st {};
    if (::lstat(folder.c_str(), &st) != 0) {
        *error = "cannot read " + folder + ": " + std::strerror(errno);
        return false;
    }
    if (!S_ISDIR(st.st_mode) || st.st_uid != ::getuid() || (st.st_mode & 077) != 0) {
        *error = folder + " is not a private folder of this user";
        return false;
    }
    return true;
}

}  // namespace trovara::daemon
