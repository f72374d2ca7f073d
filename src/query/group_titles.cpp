#include "query/group_titles.h"

#include <QCoreApplication>

#include <iterator>

namespace trovara::query {

namespace {

struct Group {
    int identifier;
    const char* key;
    const char* englishTitle;
};

constexpr Group kGroups[] = {
    {1, "MESSAGES", "Messages"},          {2, "CONTACT", "Contacts"},   {3, "SYSTEM_PREFS", "Settings"},
    {5, "BOOKMARKS", "Bookmarks"},        {8, "APPLICATIONS", "Applications"},
    {9, "DIRECTORIES", "Folders"},        {10, "MUSIC", "Music"},       {11, "PDF", "PDF Documents"},
    {14, "DOCUMENTS", "Documents"},
};

const Group* groupFor(int identifier)
{
    for (const Group& group : kGroups) {
        if (group.identifier == identifier) {
            return &group;
        }
    }
    return nullptr;
}

}  // namespace

QString groupKeyForIdentifier(int identifier)
{
    const Group* group = groupFor(identifier);
    return group ? QString::fromLatin1(group->key) : QStringLiteral("Unknown Type: %1").arg(identifier);
}

QString groupTitleForIdentifier(int identifier)
{
    const QString key = groupKeyForIdentifier(identifier);
    const QByteArray source = key.toUtf8();
    const QString translated = QCoreApplication::translate("MDSimpleGrouping", source.constData());
    if (translated != key) {
        return translated;
    }
    const Group* group = groupFor(identifier);
    return group ? QString::fromLatin1(group->englishTitle) : key;
}

}  // namespace trovara::query
