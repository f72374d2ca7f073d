#include "test_support.h"

#include <QDir>
#include <QUuid>

namespace trovara::test {

QString makeTemporaryFolder(const QString& name)
{
    const QString path = QDir::homePath() + QStringLiteral("/tmp/") + name + QLatin1Char('-')
                         + QUuid::createUuid().toString(QUuid::WithoutBraces);
    QDir().mkpath(path);
    return path;
}

}  // namespace trovara::test
