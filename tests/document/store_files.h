// Files for the tests of the store and of old documents: a private folder
// with a document path, and reading, writing and altering files byte for
// byte (a file refused or kept must keep its bytes).
#pragma once

#include "test_support.h"

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QString>
#include <QStringList>

#include <gtest/gtest.h>

#include <functional>

#include <sqlite3.h>

namespace trovara::test {

// The file's bytes; empty when it cannot be read.
inline QByteArray readAll(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

inline void writeAll(const QString& path, const QByteArray& bytes)
{
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    file.write(bytes);
}

// Opens `path` with SQLite and runs statements on it (to make foreign,
// damaged or old files).
inline void execute(const QString& path, const char* sql)
{
    sqlite3* db = nullptr;
    ASSERT_EQ(sqlite3_open(QFile::encodeName(path).constData(), &db), SQLITE_OK);
    char* message = nullptr;
    const int rc = sqlite3_exec(db, sql, nullptr, nullptr, &message);
    EXPECT_EQ(rc, SQLITE_OK) << (message ? message : "");
    sqlite3_free(message);
    sqlite3_close(db);
}

// A bad file a test makes at a path, and how opening it must fail.
struct BadFile {
    const char* name;
    std::function<void(const QString&)> make;
    int code;
    const char* reasonContains;
};

// A test in its own folder, removed afterwards; `path` is "Search.trova" in it.
class DocumentFolderTest : public ::testing::Test {
protected:
    explicit DocumentFolderTest(const QString& name)
        : folder(makeTemporaryFolder(name))
        , path(folder + QStringLiteral("/Search.trova"))
    {
    }
    ~DocumentFolderTest() override { QDir(folder).removeRecursively(); }

    QStringList filesInFolder() const { return QDir(folder).entryList(QDir::Files | QDir::Hidden); }

    const QString folder;
    const QString path;
};

}  // namespace trovara::test
