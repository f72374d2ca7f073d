#include "fileops/temporary_files.h"

#include "fileops/transfer.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>

#include <cerrno>
#include <sys/stat.h>

namespace trovara::fileops {

QString TemporaryFiles::privateFolder()
{
    QString process = QCoreApplication::applicationName();
    if (process.isEmpty()) {
        process = QStringLiteral("trovara");
    }
    return QDir::tempPath() + QLatin1Char('/') + process + QStringLiteral("_VMTemporary");
}

QString TemporaryFiles::temporaryFile(const QString& name)
{
    const QString folder = privateFolder();
    if (!QDir().mkpath(folder)) {
        return {};
    }
    return temporaryFile(name, folder);
}

QString TemporaryFiles::temporaryPathWithinDirectory(const QString& directory)
{
    for (;;) {
        const QString candidate = QDir(directory).filePath(uniqueNameCharacters());
        if (!QFileInfo::exists(candidate)) {
            return candidate;
        }
    }
}

QString TemporaryFiles::temporaryFile(const QString& name, const QString& withinDirectory)
{
    // mkdir fails on a name taken meanwhile, so the folder is ours alone.
    for (int attempt = 0; attempt < 100; ++attempt) {
        const QString unique = temporaryPathWithinDirectory(withinDirectory);
        if (unique.isEmpty()) {
            return QDir(withinDirectory).filePath(name);
        }
        if (!QDir().mkpath(withinDirectory)) {
            return {};
        }
        if (::mkdir(QFile::encodeName(unique).constData(), 0700) == 0) {
            return QDir(unique).filePath(name);
        }
        if (errno != EEXIST) {
            return {};
        }
    }
    return {};
}

}  // namespace trovara::fileops
