// Building small real trees for the file-system tests.
#pragma once

#include "test_support.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace trovara::test {

// A fresh folder inside the test's private home, as a std::string.
inline std::string makeTree(const char* name)
{
    return makeTemporaryFolder(QString::fromUtf8(name)).toStdString();
}

inline void writeFile(const std::string& path, std::string_view bytes)
{
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    ASSERT_GE(fd, 0) << path << ": " << std::strerror(errno);
    ASSERT_EQ(::write(fd, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size())) << path;
    ::close(fd);
}

inline void makeFolder(const std::string& path)
{
    ASSERT_EQ(::mkdir(path.c_str(), 0755), 0) << path << ": " << std::strerror(errno);
}

inline void makeLink(const std::string& target, const std::string& path)
{
    ASSERT_EQ(::symlink(target.c_str(), path.c_str()), 0) << path << ": " << std::strerror(errno);
}

// The smallest valid PNG: signature, IHDR, IDAT, IEND of a 1×1 image.
inline std::string pngBytes()
{
    static const unsigned char kPng[] = {
        0x89, 0x50, 0x4e, 0x47, 0x0d, 0x0a, 0x1a, 0x0a, 0x00, 0x00, 0x00, 0x0d, 0x49, 0x48, 0x44, 0x52,
        0x00, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0x01, 0x08, 0x06, 0x00, 0x00, 0x00, 0x1f, 0x15, 0xc4,
        0x89, 0x00, 0x00, 0x00, 0x0d, 0x49, 0x44, 0x41, 0x54, 0x78, 0x9c, 0x63, 0x00, 0x01, 0x00, 0x00,
        0x05, 0x00, 0x01, 0x0d, 0x0a, 0x2d, 0xb4, 0x00, 0x00, 0x00, 0x00, 0x49, 0x45, 0x4e, 0x44, 0xae,
        0x42, 0x60, 0x82,
    };
    return std::string(reinterpret_cast<const char*>(kPng), sizeof kPng);
}

}  // namespace trovara::test
