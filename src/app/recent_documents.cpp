#include "app/recent_documents.h"

#include "model/defaults.h"

#include <QFileInfo>

namespace trovara::app {

namespace {

QStringList storedPaths()
{
    return model::Defaults::shared().value(QLatin1String(RecentDocuments::kDefaultsKey)).toStringList();
}

void store(const QStringList& paths)
{
    model::Defaults& defaults = model::Defaults::shared();
    defaults.setValue(QLatin1String(RecentDocuments::kDefaultsKey), paths);
    defaults.synchronize();
}

}  // namespace

QStringList RecentDocuments::paths()
{
    const QStringList stored = storedPaths();
    QStringList existing;
    for (const QString& path : stored) {
        if (QFileInfo(path).isFile()) {
            existing << path;
        }
    }
    if (existing.size() != stored.size()) {
        store(existing);
    }
    return existing;
}

void RecentDocuments::noteDocument(const QString& path)
{
    if (path.isEmpty()) {
        return;
    }
    const QString absolute = QFileInfo(path).absoluteFilePath();
    QStringList list = storedPaths();
    list.removeAll(absolute);
    list.prepend(absolute);
    while (list.size() > kMaximumCount) {
        list.removeLast();
    }
    store(list);
}

void RecentDocuments::clear()
{
    store({});
}

}  // namespace trovara::app
