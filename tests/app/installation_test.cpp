// What `cmake --install` puts in place, and the default templates Trovara
// ships: each opens as a search of the home folder with its own criteria,
// columns and limit.
#include "document/document.h"

#include "model/abstract_attribute.h"
#include "model/ordered_column_attribute.h"
#include "model/scope.h"
#include "test_support.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QProcess>

#include <gtest/gtest.h>

namespace trovara::test {
namespace {

// The templates as the build wrote them, beside bin/.
QString builtTemplates()
{
    return QStringLiteral(TROVARA_BUILD_DIR "/share/trovara/Templates");
}

struct TemplateCase {
    const char* name;
    const char* expression;
    QStringList columns;
    const char* limitKey;  // the latest 100 or 1000 by this
};

TEST(DefaultTemplates, EachSearchesTheHomeFolderWithItsCriteriaAndColumns)
{
    const QString name = QStringLiteral("kMDItemDisplayName");
    const QString kind = QStringLiteral("kMDItemKind");
    const QString modified = QStringLiteral("kMDItemContentModificationDate");
    const TemplateCase cases[] = {
        {"Recent Documents",
         "(((kMDItemLastUsedDate >= '$time.today(-7)') && kMDItemLastUsedDate <= '$time.now(-0)') && ! ( "
         "(kMDItemContentTypeTree == 'public.folder'c) ))",
         {name, kind, QStringLiteral("kMDItemLastUsedDate")},
         "100 kMDItemLastUsedDate"},
        {"Large Files",
         "((kMDItemFSSize > '100000000'))",
         {name, QStringLiteral("kMDItemFSSize"), kind, modified},
         "1000 kMDItemFSSize"},
        {"Images",
         "((kMDItemContentTypeTree == 'public.image'c))",
         {name, QStringLiteral("kMDItemPixelWidth"), QStringLiteral("kMDItemPixelHeight"),
          QStringLiteral("kMDItemContentCreationDate")},
         "1000 kMDItemLastUsedDate"},
        {"Music",
         "((kMDItemContentTypeTree == 'public.audio'c))",
         {name, QStringLiteral("kMDItemAuthors"), QStringLiteral("kMDItemAlbum"),
          QStringLiteral("kMDItemDurationSeconds")},
         "1000 kMDItemLastUsedDate"},
        {"Movies",
         "((kMDItemContentTypeTree == 'public.movie'c))",
         {name, QStringLiteral("kMDItemDurationSeconds"), QStringLiteral("kMDItemFSSize"), modified},
         "1000 kMDItemLastUsedDate"},
        {"PDF Documents",
         "((kMDItemContentTypeTree == 'com.adobe.pdf'c))",
         {name, QStringLiteral("kMDItemTitle"), QStringLiteral("kMDItemNumberOfPages"), modified},
         "1000 kMDItemLastUsedDate"},
        {"Modified Today",
         "(((kMDItemContentModificationDate >= '$time.today(-0)') && kMDItemContentModificationDate <= "
         "'$time.now(-0)'))",
         {name, kind, modified},
         "1000 kMDItemContentModificationDate"},
        // The words are the user's to type: no query until then.
        {"Text Containing Words", "", {name, kind, modified}, "1000 kMDItemLastUsedDate"},
    };
    const QStringList shipped = QDir(builtTemplates()).entryList({QStringLiteral("*.trova")}, QDir::Files);
    EXPECT_EQ(shipped.size(), int(std::size(cases)));

    index::NoIndexSource noIndex;
    for (const TemplateCase& c : cases) {
        SCOPED_TRACE(c.name);
        const QString path = builtTemplates() + QLatin1Char('/') + QLatin1String(c.name) + QStringLiteral(".trova");
        document::Document document(noIndex);
        ASSERT_TRUE(document.initWithContentsOfURL(path).ok());
        document.updateQueryWithPredicate();
        document.updateQueryWithLimit();
        EXPECT_EQ(document.currentExpression(), QLatin1String(c.expression));

        store::ManagedObjectContext& context = document.managedObjectContext();
        QStringList scopes;
        for (model::OrderedScope* ordered : model::OrderedScope::orderedScopes(context)) {
            scopes << ordered->scope()->path();
        }
        EXPECT_EQ(scopes, QStringList{QStringLiteral("kMDQueryScopeHome")});
        EXPECT_TRUE(model::OrderedExclusionScope::orderedExclusionScopes(context).empty());

        QStringList columns;
        for (model::OrderedColumnAttribute* column : model::OrderedColumnAttribute::orderedColumns(context)) {
            columns << column->columnAttribute()->attributeKey();
        }
        EXPECT_EQ(columns, c.columns);
        const query::MetadataQueryController& controller = *document.metadataQueryController();
        EXPECT_EQ(QStringLiteral("%1 %2").arg(controller.limitValue()).arg(controller.limitKey()),
                  QLatin1String(c.limitKey));
        EXPECT_FALSE(controller.limitAscending());
    }
}

TEST(Installation, PutsTheProgramItsDesktopEntryIconMimeTypeAndTemplatesInPlace)
{
    const QString prefix = makeTemporaryFolder(QStringLiteral("prefix"));
    QProcess install;
    install.start(QStringLiteral(TROVARA_CMAKE_COMMAND),
                  {QStringLiteral("--install"), QStringLiteral(TROVARA_BUILD_DIR), QStringLiteral("--prefix"), prefix});
    ASSERT_TRUE(install.waitForFinished(120000));
    ASSERT_EQ(install.exitCode(), 0) << install.readAllStandardError().toStdString();

    for (const char* file : {"bin/trova", "bin/trovarad", "share/applications/com.velmont.Trovara.desktop",
                             "share/icons/hicolor/scalable/apps/com.velmont.Trovara.svg",
                             "share/mime/packages/trovara-mime.xml", "share/trovara/LegacyMetadata.json",
                             "share/trovara/Templates/Recent Documents.trova",
                             "share/trovara/Templates/Text Containing Words.trova"}) {
        EXPECT_TRUE(QFileInfo(prefix + QLatin1Char('/') + QLatin1String(file)).isFile()) << file;
    }
    EXPECT_EQ(QDir(prefix + QStringLiteral("/share/trovara/Templates")).entryList(QDir::Files).size(), 8);

    QFile desktop(prefix + QStringLiteral("/share/applications/com.velmont.Trovara.desktop"));
    ASSERT_TRUE(desktop.open(QIODevice::ReadOnly));
    const QString entry = QString::fromUtf8(desktop.readAll());
    EXPECT_TRUE(entry.contains(QStringLiteral("\nMimeType=application/x-trovara-query;x-scheme-handler/trovara;\n")));
    EXPECT_TRUE(entry.contains(QStringLiteral("\nIcon=com.velmont.Trovara\n")));
    EXPECT_TRUE(entry.contains(QStringLiteral("\nExec=trovara %U\n")));
    QDir(prefix).removeRecursively();
}

}  // namespace
}  // namespace trovara::test
