// Templates: the items and their transformer, saving a document as a
// template (replace, cancel, a failed save restoring the old one), and
// opening templates and read-only files as untitled copies.
#include "document/document.h"
#include "document/template_item.h"

#include "common/error_presenter.h"
#include "live_test_support.h"
#include "store_files.h"
#include "model/query_leaf.h"
#include "model/abstract_attribute.h"
#include "model/defaults.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>

#include <gtest/gtest.h>

#include <sys/stat.h>

namespace trovara::test {
namespace {

using document::Document;
using document::TemplateItem;
using document::TemplateSaver;
using document::Templates;

class TemplateTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        previous = setErrorPresenter([this](const Error& error) { presented.push_back(error); });
        folder = makeTemporaryFolder(QStringLiteral("documents"));
        QDir(document::templateFolder()).removeRecursively();
        Templates::refresh();
    }
    void TearDown() override
    {
        documents.clear();
        QCoreApplication::sendPostedEvents();
        setErrorPresenter(previous);
        QDir(document::templateFolder()).removeRecursively();
        QDir(folder).removeRecursively();
        Templates::refresh();
    }

    // A new document whose name row searches `name`.
    Document& documentSearching(const QString& name)
    {
        documents.push_back(std::make_unique<Document>(noIndex));
        Document& document = *documents.back();
        EXPECT_TRUE(document.initWithType().ok());
        document.updatePredicate([&] {
            auto* root = model::QueryNode::rootNodeInContext(document.managedObjectContext());
            static_cast<model::QueryLeaf*>(root->orderedChildren().front())->setQueryString(name);
        });
        return document;
    }

    // A template of the name whose name row searches `name`.
    QString savedTemplate(const QString& templateName, const QString& name)
    {
        TemplateSaver saver(documentSearching(name));
        EXPECT_EQ(saver.okSheet(templateName), TemplateSaver::Outcome::Saved);
        return TemplateSaver::targetPath(templateName);
    }

    Document& open(const QString& path, Status* status)
    {
        documents.push_back(std::make_unique<Document>(noIndex));
        *status = documents.back()->initWithContentsOfURL(path);
        return *documents.back();
    }

    static QString nameSearched(Document& document)
    {
        auto* root = model::QueryNode::rootNodeInContext(document.managedObjectContext());
        return static_cast<model::QueryLeaf*>(root->orderedChildren().front())->queryString().toString();
    }

    index::NoIndexSource noIndex;
    QString folder;
    std::vector<std::unique_ptr<Document>> documents;
    std::vector<Error> presented;
    ErrorPresenter previous;
};

TEST_F(TemplateTest, ItemsAreOnePerPathAndNamedAfterTheirFile)
{
    const TemplateItem* recent = TemplateItem::itemWithPath("/t/Recent Documents.trova");
    EXPECT_EQ(recent->displayName(), "Recent Documents");
    EXPECT_EQ(TemplateItem::itemWithPath("/t/Recent Documents.trova"), recent);
    EXPECT_EQ(TemplateItem::itemWithPath("/t/notes.trova.bak")->displayName(), "notes.trova.bak");
    EXPECT_TRUE(*recent == TemplateItem("/t/Recent Documents.trova"));
    EXPECT_FALSE(*recent == TemplateItem("/u/Recent Documents.trova"));

    EXPECT_EQ(document::fileNameString("a/b:c"), "a-b-c");
    EXPECT_EQ(TemplateSaver::targetPath("Mail: 2024/25"), document::templateFolder() + "/Mail- 2024-25.trova");
}

TEST_F(TemplateTest, TheTransformerKnowsOnlyTheCurrentTemplates)
{
    document::registerDocumentTransformers();
    const model::ValueTransformer* transformer =
        model::ValueTransformer::valueTransformerForName(QStringLiteral("templateTransformer"));
    ASSERT_NE(transformer, nullptr);
    TemplateSaver saver(documentSearching("report"));
    ASSERT_EQ(saver.okSheet("Reports"), TemplateSaver::Outcome::Saved);
    const QString path = TemplateSaver::targetPath("Reports");

    const QVariant item = transformer->transformedValue(path);
    ASSERT_TRUE(item.isValid());
    EXPECT_EQ(item.value<const TemplateItem*>(), TemplateItem::itemWithPath(path));
    EXPECT_EQ(transformer->reverseTransformedValue(item), QVariant(path));
    // A path that is no template, and nothing at all, give nothing.
    EXPECT_FALSE(transformer->transformedValue(folder + "/Other.trova").isValid());
    EXPECT_FALSE(transformer->transformedValue(QVariant()).isValid());
    ASSERT_EQ(Templates::templates().size(), 1u);
    EXPECT_EQ(Templates::templates().front()->displayName(), "Reports");
}

TEST_F(TemplateTest, SavingUnderAnExistingNameAsksAndCancelChangesNothing)
{
    const QString path = savedTemplate("Weekly", "old");
    const QByteArray before = readAll(path);

    QStringList asked;
    Document& newer = documentSearching("new");
    TemplateSaver cancelled(newer, [&](const QString& target) {
        asked << target;
        return false;
    });
    EXPECT_EQ(cancelled.okSheet("Weekly"), TemplateSaver::Outcome::Cancelled);
    EXPECT_EQ(asked, QStringList{path});
    EXPECT_EQ(readAll(path), before);

    TemplateSaver replacing(newer, [](const QString&) { return true; });
    EXPECT_EQ(replacing.okSheet("Weekly"), TemplateSaver::Outcome::Saved);
    Status status;
    EXPECT_EQ(nameSearched(open(path, &status)), "new");
    // Saved as a copy: the document keeps being what it was.
    EXPECT_TRUE(newer.fileURL().isEmpty());
}

TEST_F(TemplateTest, AReplacedTemplateThatFailsToSaveComesBackFromTheTrash)
{
    const QString path = savedTemplate("Weekly", "old");
    const QByteArray before = readAll(path);

    TemplateSaver failing(documentSearching("new"), [](const QString&) { return true; });
    store::SaveOptions fullDisk;
    fullDisk.faultHook = [](store::SaveStep step) -> Status {
        if (step == store::SaveStep::Committed) {
            return Error::make(Error::kFileWriteOutOfSpaceError, "The disk is full.");
        }
        return {};
    };
    failing.setSaveOptions(fullDisk);
    const QString trash = QDir::homePath() + "/.local/share/Trash";
    const QStringList trashed = QDir(trash + "/files").entryList(QDir::Files);
    const QStringList recorded = QDir(trash + "/info").entryList(QDir::Files);
    presented.clear();
    EXPECT_EQ(failing.okSheet("Weekly"), TemplateSaver::Outcome::Failed);
    ASSERT_EQ(presented.size(), 1u);
    EXPECT_EQ(presented[0].code, Error::kFileWriteOutOfSpaceError);
    EXPECT_EQ(readAll(path), before);
    // Nothing of it is left in the trash.
    EXPECT_EQ(QDir(trash + "/files").entryList(QDir::Files), trashed);
    EXPECT_EQ(QDir(trash + "/info").entryList(QDir::Files), recorded);
}

TEST_F(TemplateTest, TemplatesAndReadOnlyFilesOpenAsUntitledCopies)
{
    TemplateSaver saver(documentSearching("invoice"));
    ASSERT_EQ(saver.okSheet("Recent Documents"), TemplateSaver::Outcome::Saved);
    const QString templatePath = TemplateSaver::targetPath("Recent Documents");
    const QByteArray before = readAll(templatePath);

    Status status;
    Document& copy = open(templatePath, &status);
    ASSERT_TRUE(status.ok()) << status.error().toString().toStdString();
    EXPECT_TRUE(copy.fileURL().isEmpty());
    EXPECT_EQ(copy.templateURL(), templatePath);
    EXPECT_EQ(copy.templateName(), "Recent Documents");
    EXPECT_EQ(copy.displayName(), "Trovara");
    EXPECT_FALSE(copy.isDocumentEdited());
    EXPECT_EQ(nameSearched(copy), "invoice");
    // Saving the copy asks for a place of its own and forgets the template.
    const QString saved = folder + "/Mine.trova";
    ASSERT_TRUE(copy.saveToURL(saved).ok());
    EXPECT_EQ(copy.fileURL(), saved);
    EXPECT_TRUE(copy.templateURL().isEmpty());
    EXPECT_TRUE(copy.templateName().isEmpty());
    EXPECT_EQ(readAll(templatePath), before);

    // A read-only search file outside the templates folder opens so too.
    const QString locked = folder + "/Locked.trova";
    ASSERT_TRUE(documentSearching("locked").saveToURL(locked).ok());
    ASSERT_EQ(::chmod(locked.toLocal8Bit().constData(), 0444), 0);
    Document& lockedCopy = open(locked, &status);
    ASSERT_TRUE(status.ok());
    EXPECT_TRUE(lockedCopy.fileURL().isEmpty());
    EXPECT_EQ(lockedCopy.templateName(), "Locked");
    EXPECT_EQ(nameSearched(lockedCopy), "locked");

    // A writable file elsewhere is the document itself.
    Document& own = open(saved, &status);
    ASSERT_TRUE(status.ok());
    EXPECT_EQ(own.fileURL(), saved);
    EXPECT_TRUE(own.templateURL().isEmpty());

    // A damaged template fails the opening with the reader's error.
    const QString damaged = document::templateFolder() + "/Damaged.trova";
    QFile file(damaged);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write("not a search");
    file.close();
    open(damaged, &status);
    EXPECT_FALSE(status.ok());
}

}  // namespace
}  // namespace trovara::test
