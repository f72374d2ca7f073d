// A temporary folder tree for the file operation tests, and what they ask
// of it.
#pragma once

#include "test_support.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace trovara::test {

class TempTree {
public:
    TempTree() { EXPECT_TRUE(m_dir.isValid()); }

    QString root() const { return m_dir.path(); }
    QString path(const QString& relative) const { return m_dir.filePath(relative); }

    QString write(const QString& relative, const QByteArray& bytes) const
    {
        const QString file = path(relative);
        QDir().mkpath(QFileInfo(file).absolutePath());
        QFile out(file);
        EXPECT_TRUE(out.open(QIODevice::WriteOnly | QIODevice::Truncate)) << file.toStdString();
        out.write(bytes);
        return file;
    }
    QString mkdir(const QString& relative) const
    {
        const QString folder = path(relative);
        QDir().mkpath(folder);
        return folder;
    }
    QByteArray read(const QString& relative) const
    {
        QFile in(path(relative));
        return in.open(QIODevice::ReadOnly) ? in.readAll() : QByteArray("<missing>");
    }
    bool exists(const QString& relative) const { return QFileInfo::exists(path(relative)) || QFileInfo(path(relative)).isSymLink(); }
    // Every name in the folder, hidden ones included, sorted.
    QStringList entries(const QString& relative) const
    {
        return QDir(path(relative)).entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                                              QDir::Name);
    }

private:
    QTemporaryDir m_dir;
};

// The files in the test's Trash (under the private home's data folder).
inline QStringList trashedNames()
{
    return QDir(qEnvironmentVariable("XDG_DATA_HOME") + QStringLiteral("/Trash/files"))
        .entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot, QDir::Name);
}

inline QByteArray trashedBytes(const QString& name)
{
    QFile in(qEnvironmentVariable("XDG_DATA_HOME") + QStringLiteral("/Trash/files/") + name);
    return in.open(QIODevice::ReadOnly) ? in.readAll() : QByteArray("<missing>");
}

}  // namespace trovara::test
