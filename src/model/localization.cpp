#include "model/localization.h"

#include <QCoreApplication>
#include <QHash>

#include <cstring>

namespace trovara::model {

namespace {

using Table = QHash<QString, QString>;

const Table& typesTable()
{
    static const Table table{
        {QStringLiteral("public.image"), QStringLiteral("Images")},
        {QStringLiteral("public.text"), QStringLiteral("Text")},
        {QStringLiteral("com.adobe.pdf"), QStringLiteral("PDF documents")},
        {QStringLiteral("public.movie"), QStringLiteral("Movies")},
        {QStringLiteral("public.audio"), QStringLiteral("Music")},
        {QStringLiteral("public.content"), QStringLiteral("Documents")},
        {QStringLiteral("public.message"), QStringLiteral("Messages")},
        {QStringLiteral("public.vcard"), QStringLiteral("Contacts")},
        {QStringLiteral("public.folder"), QStringLiteral("Folders")},
        {QStringLiteral("com.apple.application"), QStringLiteral("Applications")},
        {QStringLiteral("public.presentation"), QStringLiteral("Presentations")},
        {QStringLiteral("com.apple.mail.emlx"), QStringLiteral("Mail messages")},
        {QStringLiteral("public.disk-image"), QStringLiteral("Disk images")},
        {QStringLiteral("com.apple.alias-file"), QStringLiteral("Links")},
        {QStringLiteral("public.source-code"), QStringLiteral("Source code")},
        {QStringLiteral("com.apple.webarchive"), QStringLiteral("Web archives")},
    };
    return table;
}

const Table& attributesTable()
{
    static const Table table{
        {QStringLiteral("*"), QStringLiteral("Any text")},
    };
    return table;
}

const Table& limitAttributesTable()
{
    static const Table table{
        {QStringLiteral("kMDItemLastUsedDate"), QStringLiteral("recently used")},
        {QStringLiteral("kMDItemContentCreationDate"), QStringLiteral("recently created")},
        {QStringLiteral("kMDItemContentModificationDate"), QStringLiteral("recently modified")},
    };
    return table;
}

const Table* builtinTable(const char* table)
{
    if (std::strcmp(table, "Types") == 0) {
        return &typesTable();
    }
    if (std::strcmp(table, "Attributes") == 0) {
        return &attributesTable();
    }
    if (std::strcmp(table, "LimitAttributes") == 0) {
        return &limitAttributesTable();
    }
    return nullptr;
}

}  // namespace

QString localizedFromTable(const char* table, const QString& key, bool* found)
{
    const QByteArray source = key.toUtf8();
    const QString translated = QCoreApplication::translate(table, source.constData());
    if (translated != key) {
        if (found) {
            *found = true;
        }
        return translated;
    }
    if (const Table* builtin = builtinTable(table)) {
        auto it = builtin->constFind(key);
        if (it != builtin->constEnd()) {
            if (found) {
                *found = true;
            }
            return it.value();
        }
    }
    if (found) {
        *found = false;
    }
    return key;
}

QString localized(const QString& key)
{
    return localizedFromTable(kMainTable, key);
}

}  // namespace trovara::model
