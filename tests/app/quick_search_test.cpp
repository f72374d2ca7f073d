// Quick searches from outside the window, as the delegate carries them out:
// links, the text and folder services, templates, and bringing Trovara to
// the front. Each either makes one shown document or beeps and makes none.
#include "app/application_delegate.h"

#include "common/error_presenter.h"
#include "common/paths.h"
#include "model/defaults.h"
#include "model/scope.h"
#include "test_support.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QSignalSpy>

#include <gtest/gtest.h>

namespace trovara::test {
namespace {

using app::ApplicationDelegate;
using app::BlitzSearchRequest;
using document::Document;

QByteArray readAllBytes(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QStringList scopePaths(Document* document)
{
    QStringList paths;
    for (model::OrderedScope* ordered : model::OrderedScope::orderedScopes(document->managedObjectContext())) {
        // Places under the home folder are kept as "~/…".
        paths << expandTilde(ordered->scope()->path());
    }
    return paths;
}

class QuickSearchTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        settingsFile = QDir::homePath() + QStringLiteral("/quick-search-test.conf");
        QFile::remove(settingsFile);
        model::Defaults::resetSharedForTesting(settingsFile);
        previousPresenter = setErrorPresenter([this](const Error& error) { presented.push_back(error); });
        delegate = std::make_unique<ApplicationDelegate>(noIndex);
        QDir().mkpath(ApplicationDelegate::templateFolder());
    }

    void TearDown() override
    {
        delegate.reset();
        QCoreApplication::sendPostedEvents();
        setErrorPresenter(previousPresenter);
        model::Defaults::resetSharedForTesting();
        QDir(ApplicationDelegate::applicationSupportFolder()).removeRecursively();
    }

    // A template in the templates folder that searches `folder`.
    QString makeTemplate(const QString& name, const QString& folder)
    {
        Document* made = delegate->newDocument().value();
        made->applyLocations({folder});
        const QString path = ApplicationDelegate::templateFolder() + QLatin1Char('/') + name + QStringLiteral(".trova");
        EXPECT_TRUE(made->saveToURL(path, Document::SaveOperation::SaveTo).ok());
        delegate->closeDocument(made);
        return path;
    }

    QString settingsFile;
    index::NoIndexSource noIndex;
    std::unique_ptr<ApplicationDelegate> delegate;
    std::vector<Error> presented;
    ErrorPresenter previousPresenter;
};

TEST_F(QuickSearchTest, LinkMakesOneShownDocumentSearchingFileNamesOnly)
{
    QSignalSpy opened(delegate.get(), &ApplicationDelegate::documentOpened);
    QSignalSpy activated(delegate.get(), &ApplicationDelegate::activationRequested);
    delegate->getUrl(QStringLiteral("trovara://blitzSearch?searchstring=invoice%20list&filenameflag=1"));

    // No untitled document beside it, although nothing was open before.
    ASSERT_EQ(delegate->documents().size(), 1u);
    Document* document = delegate->documents().front();
    EXPECT_EQ(opened.count(), 1);
    EXPECT_EQ(activated.count(), 1);
    EXPECT_TRUE(document->isWindowLoaded());
    const QString expression = document->currentExpression();
    EXPECT_TRUE(expression.contains(QStringLiteral("kMDItemDisplayName"))) << expression.toStdString();
    EXPECT_TRUE(expression.contains(QStringLiteral("invoice"))) << expression.toStdString();
    EXPECT_TRUE(expression.contains(QStringLiteral("list"))) << expression.toStdString();
    EXPECT_FALSE(expression.contains(QStringLiteral("kMDItemTextContent"))) << expression.toStdString();
    EXPECT_TRUE(delegate->applicationShouldOpenUntitledFile());
    EXPECT_TRUE(presented.empty());
}

TEST_F(QuickSearchTest, RefusedLinksBeepAndChangeNothing)
{
    QSignalSpy beeps(delegate.get(), &ApplicationDelegate::beepRequested);
    QSignalSpy activated(delegate.get(), &ApplicationDelegate::activationRequested);
    QString withNul = QStringLiteral("trovara://a b");
    withNul[11] = QChar(0);
    const QStringList links = {
        QStringLiteral("trovara://search?searchstring=x"), QStringLiteral("trovara:x"),
        QStringLiteral("trovara://bad%zzescape"),          QStringLiteral("trovara://blitzSearch?searchstring=%00"),
        QStringLiteral("trovara://") + QString(100 * 1024, QLatin1Char('x')), withNul,
    };
    for (const QString& link : links) {
        delegate->getUrl(link);
    }
    EXPECT_EQ(beeps.count(), links.size());
    EXPECT_EQ(activated.count(), 0);
    EXPECT_TRUE(delegate->documents().empty());
    EXPECT_TRUE(presented.empty());
}

TEST_F(QuickSearchTest, EmptySearchDoesNothingAtAll)
{
    QSignalSpy beeps(delegate.get(), &ApplicationDelegate::beepRequested);
    QSignalSpy activated(delegate.get(), &ApplicationDelegate::activationRequested);
    delegate->getUrl(QStringLiteral("trovara://"));
    delegate->getUrl(QStringLiteral("trovara://blitzSearch?searchstring=&contentflag=1"));
    EXPECT_EQ(delegate->handleBlitzSearchScriptCommand(BlitzSearchRequest{}), nullptr);
    EXPECT_EQ(beeps.count(), 0);
    EXPECT_EQ(activated.count(), 0);
    EXPECT_TRUE(delegate->documents().empty());
}

TEST_F(QuickSearchTest, TextServiceSearchesEveryFieldAndBeepsWhenEmpty)
{
    QSignalSpy beeps(delegate.get(), &ApplicationDelegate::beepRequested);
    EXPECT_EQ(delegate->blitzSearchService(QString()), nullptr);
    EXPECT_EQ(beeps.count(), 1);
    EXPECT_TRUE(delegate->documents().empty());

    Document* document = delegate->blitzSearchService(QStringLiteral("harbour"));
    ASSERT_NE(document, nullptr);
    const QString expression = document->currentExpression();
    for (const char* attribute : {"kMDItemDisplayName", "kMDItemTextContent", "kMDItemFinderComment"}) {
        EXPECT_TRUE(expression.contains(QLatin1String(attribute))) << attribute << " in " << expression.toStdString();
    }
    EXPECT_EQ(beeps.count(), 1);
}

TEST_F(QuickSearchTest, FolderServiceSearchesTheFoldersInOrderAndBeepsWhenEmpty)
{
    QSignalSpy beeps(delegate.get(), &ApplicationDelegate::beepRequested);
    EXPECT_EQ(delegate->locationSearchService({}), nullptr);
    EXPECT_EQ(beeps.count(), 1);

    const QString a = makeTemporaryFolder(QStringLiteral("service-a"));
    const QString b = makeTemporaryFolder(QStringLiteral("service-b"));
    Document* document = delegate->locationSearchService({b, a});
    ASSERT_NE(document, nullptr);
    EXPECT_EQ(scopePaths(document), (QStringList{b, a}));
    EXPECT_TRUE(document->isWindowLoaded());
    EXPECT_EQ(beeps.count(), 1);
}

TEST_F(QuickSearchTest, LinkWithTemplateNameStartsFromTheTemplate)
{
    const QString folder = makeTemporaryFolder(QStringLiteral("photos"));
    makeTemplate(QStringLiteral("Photos"), folder);
    delegate->getUrl(QStringLiteral("trovara://blitzSearch?searchstring=beach&templatename=Photos"));
    ASSERT_EQ(delegate->documents().size(), 1u);
    Document* document = delegate->documents().front();
    EXPECT_EQ(scopePaths(document), QStringList{folder});
    EXPECT_EQ(document->templateName(), QStringLiteral("Photos"));
    EXPECT_TRUE(document->fileURL().isEmpty());
    EXPECT_TRUE(document->currentExpression().contains(QStringLiteral("beach")));
}

TEST_F(QuickSearchTest, DamagedTemplateIsPresentedAndLeavesNoDocument)
{
    const QString path = ApplicationDelegate::templateFolder() + QStringLiteral("/Broken.trova");
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write("not a search document");
    file.close();

    BlitzSearchRequest request;
    request.searchString = QStringLiteral("x");
    request.templatePath = path;
    EXPECT_FALSE(delegate->performBlitzSearch(request).ok());
    EXPECT_FALSE(delegate->openTemplateWithURL(path, true).ok());
    EXPECT_EQ(presented.size(), 2u);
    EXPECT_TRUE(delegate->documents().empty());
    EXPECT_EQ(readAllBytes(path), QByteArray("not a search document"));
}

TEST_F(QuickSearchTest, OpenTemplateReusesTheOpenCopyUnlessFresh)
{
    const QString folder = makeTemporaryFolder(QStringLiteral("reuse"));
    const QString path = makeTemplate(QStringLiteral("Reuse"), folder);
    QSignalSpy raised(delegate.get(), &ApplicationDelegate::documentWindowRequested);

    Document* first = delegate->openTemplateWithURL(path, false).value();
    EXPECT_EQ(scopePaths(first), QStringList{folder});
    EXPECT_TRUE(first->isWindowLoaded());
    EXPECT_EQ(raised.count(), 0);

    EXPECT_EQ(delegate->openTemplateWithURL(path, false).value(), first);
    EXPECT_EQ(raised.count(), 1);

    Document* fresh = delegate->openTemplateWithURL(path, true).value();
    EXPECT_NE(fresh, first);
    EXPECT_EQ(delegate->documents().size(), 2u);
}

TEST_F(QuickSearchTest, ActivateOpensAnUntitledDocumentOnlyWhenInactiveAndEmpty)
{
    QSignalSpy activated(delegate.get(), &ApplicationDelegate::activationRequested);
    delegate->setApplicationActive(true);
    delegate->activate();
    EXPECT_TRUE(delegate->documents().empty());

    delegate->setApplicationActive(false);
    delegate->activate();
    EXPECT_EQ(delegate->documents().size(), 1u);
    delegate->activate();
    EXPECT_EQ(delegate->documents().size(), 1u);
    EXPECT_EQ(activated.count(), 3);

    Document* made = delegate->activateNewDocument();
    ASSERT_NE(made, nullptr);
    EXPECT_EQ(delegate->documents().size(), 2u);
    EXPECT_EQ(activated.count(), 4);
}

}  // namespace
}  // namespace trovara::test
