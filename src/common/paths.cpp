#include "common/paths.h"

#include <QDir>

#include <pwd.h>
#include <sys/types.h>

namespace trovara {

namespace {

QString homeFolder()
{
    QString home = QDir::homePath();
    while (home.size() > 1 && home.endsWith(QLatin1Char('/'))) {
        home.chop(1);
    }
    return home;
}

}  // namespace

QString abbreviateWithTilde(const QString& path)
{
    const QString home = homeFolder();
    if (home.isEmpty() || home == QLatin1String("/")) {
        return path;
    }
    if (path == home) {
        return QStringLiteral("~");
    }
    if (path.startsWith(home + QLatin1Char('/'))) {
        return QLatin1Char('~') + path.mid(home.size());
    }
    return path;
}

QString expandTilde(const QString& path)
{
    if (!path.startsWith(QLatin1Char('~'))) {
        return path;
    }
    const int slash = path.indexOf(QLatin1Char('/'));
    const QString user = path.mid(1, slash < 0 ? -1 : slash - 1);
    const QString rest = slash < 0 ? QString() : path.mid(slash);
    if (user.isEmpty()) {
        return homeFolder() + rest;
    }
    const QByteArray name = user.toLocal8Bit();
    struct passwd entry {};
    struct passwd* found = nullptr;
    char buffer[4096];
    if (getpwnam_r(name.constData(), &entry, buffer, sizeof buffer, &found) != 0 || !found) {
        return path;
    }
    return QString::fromLocal8Bit(found->pw_dir) + rest;
}

}  // namespace trovara
