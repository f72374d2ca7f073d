// The search document: what a new one holds, how its graph becomes the
// query's inputs, run control, the words to highlight, undo reaching the
// query, saving and reopening, and quick searches.
#include "document/document.h"
#include "document/document_controller.h"
#include "document/template_item.h"

#include "common/error_presenter.h"
#include "document/document_store.h"
#include "store/sqlite_store.h"
#include "live_test_support.h"
#include "manual_dispatcher.h"
#include "store_files.h"
#include "model/abstract_attribute.h"
#include "model/criteria_json.h"
#include "model/defaults.h"
#include "model/meta_attribute.h"
#include "model/metadata_schema.h"
#include "model/ordered_column_attribute.h"
#include "model/preferred_location.h"
#include "model/query_leaf.h"
#include "model/relational_operator.h"
#include "model/scope.h"
#include "presentation/column_formatters.h"
#include "query/result_filter.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QSignalSpy>

#include <gtest/gtest.h>

namespace trovara::test {
namespace {

using document::Document;
using model::QueryLeaf;
using model::QueryNode;

class DocumentTest : public LiveTreeTest {
protected:
    void SetUp() override
    {
        model::Defaults::resetSharedForTesting(QDir::homePath() + QStringLiteral("/document-test.conf"));
        previousPresenter = setErrorPresenter([this](const Error& error) { presented.push_back(error); });
        presentation::installColumnPropertiesChooser();
        writeFile(at("report one.txt"), "the big red dog");
        writeFile(at("report two.txt"), "a small cat");
        writeFile(at("notes.txt"), "big ideas");
        QDir().mkpath(QString::fromStdString(at("sub")));
        writeFile(at("sub/report three.txt"), "red");
        indexTree();
        source = std::make_unique<index::LiveIndexSource>(*live);
    }

    void TearDown() override
    {
        documents.clear();
        QCoreApplication::sendPostedEvents();
        model::ColumnAttribute::setPropertiesChooser({});
        setErrorPresenter(previousPresenter);
        for (const char* key : {"preferredTemplate", "listTextContentFirst", "preferredLocations"}) {
            model::Defaults::shared().removeValue(QString::fromLatin1(key));
        }
        model::Defaults::resetSharedForTesting();
        QDir(document::templateFolder()).removeRecursively();
        document::Templates::refresh();
    }

    Document& makeDocument()
    {
        documents.push_back(std::make_unique<Document>(*source, dispatcher));
        return *documents.back();
    }

    // A new document searching the tree, its window loaded.
    Document& newDocument()
    {
        Document& document = makeDocument();
        EXPECT_TRUE(document.initWithType().ok());
        replaceScopes(document, {QString::fromStdString(root)});
        document.windowControllerDidLoadNib();
        return document;
    }

    static void replaceScopes(Document& document, const QStringList& paths)
    {
        store::ManagedObjectContext& context = document.managedObjectContext();
        document.updateScope([&] {
            for (model::OrderedScope* ordered : model::OrderedScope::orderedScopes(context)) {
                context.deleteObject(ordered);
            }
            for (const QString& path : paths) {
                model::OrderedScope::createOrderedScopeWith(model::Scope::scopeWithPath(path, context));
            }
        });
    }

    // The row of the root group on the attribute.
    static QueryLeaf* rowFor(Document& document, const QString& key)
    {
        QueryNode* root = QueryNode::rootNodeInContext(document.managedObjectContext());
        for (model::QueryItem* item : root->orderedChildren()) {
            auto* leaf = dynamic_cast<QueryLeaf*>(item);
            if (leaf && leaf->queryAttribute() && leaf->queryAttribute()->attributeKey() == key) {
                return leaf;
            }
        }
        return nullptr;
    }

    static void setCriterion(Document& document, const QString& key, const QString& text,
                             const model::RelationalOperator* op = nullptr)
    {
        document.updatePredicate([&] {
            QueryLeaf* row = rowFor(document, key);
            ASSERT_NE(row, nullptr) << key.toStdString();
            if (op) {
                row->setQueryOperator(op->representation());
            }
            row->setQueryString(text);
        });
    }

    // Turns of the event loop and query notifications until the document's
    // query has delivered everything.
    void settle(Document& document)
    {
        for (int turns = 0; turns < 10000; ++turns) {
            QCoreApplication::sendPostedEvents();
            dispatcher->runReady();
            QCoreApplication::sendPostedEvents();
            index::LiveQuery* query = document.metadataQueryController()->metadataQuery();
            if (!query || query->isIdle()) {
                return;
            }
            if (!dispatcher->advanceToNext()) {
                dispatcher->waitForWork();
            }
        }
        ADD_FAILURE() << "the query never settled";
    }

    static QStringList resultNames(const Document& document)
    {
        QStringList names;
        for (const auto& item : document.metadataQueryController()->resultArray()) {
            names << item->displayName();
        }
        names.sort();
        return names;
    }

    QString documentPath(const QString& name) const { return QString::fromStdString(outside) + QLatin1Char('/') + name; }

    std::shared_ptr<ManualDispatcher> dispatcher = std::make_shared<ManualDispatcher>();
    std::unique_ptr<index::LiveIndexSource> source;
    std::vector<std::unique_ptr<Document>> documents;
    std::vector<Error> presented;
    ErrorPresenter previousPresenter;
};

TEST_F(DocumentTest, ANewDocumentHasTheDefaultRowsPlacesColumnsAndLimitAndIsNotEdited)
{
    Document& document = makeDocument();
    ASSERT_TRUE(document.initWithType().ok());
    store::ManagedObjectContext& context = document.managedObjectContext();
    QueryNode* root = QueryNode::rootNodeInContext(context);
    EXPECT_EQ(root->operatorName(), "AND");
    QStringList keys;
    for (model::QueryItem* item : root->orderedChildren()) {
        auto* leaf = static_cast<QueryLeaf*>(item);
        keys << leaf->queryAttribute()->attributeKey();
        EXPECT_EQ(leaf->queryString(), QVariant(QString(""))) << keys.back().toStdString();
    }
    EXPECT_EQ(keys, QStringList({"kMDItemDisplayName", "kMDItemTextContent", "*", "kMDItemContentModificationDate",
                                 "kMDItemContentTypeTree"}));
    EXPECT_EQ(rowFor(document, "kMDItemContentTypeTree")->relationalOperator(), model::RelationalOperator::isOperator());
    // Nothing to search for yet: no expression, so no start.
    EXPECT_EQ(root->expression(), QString(""));

    QStringList attributes;
    for (model::QueryAttribute* attribute : model::QueryAttribute::availableAttributesInContext(context)) {
        attributes << attribute->attributeKey();
    }
    for (const char* key : {"*", "kMDItemFSSize", "kMDItemLastUsedDate", "kMDItemFinderComment", "kMDItemFSLabel",
                            "kMDItemFSInvisible", "kMDItemContentType", "kMDItemContentCreationDate"}) {
        EXPECT_TRUE(attributes.contains(QString::fromLatin1(key))) << key;
    }
    // One tag attribute, the first the schema names.
    EXPECT_EQ(attributes.count("kMDItemOMUserTags") + attributes.count("kOMUserTags"), 1);

    // The factory's default place is the home folder.
    const std::vector<model::OrderedScope*> scopes = model::OrderedScope::orderedScopes(context);
    ASSERT_EQ(scopes.size(), 1u);
    EXPECT_EQ(scopes[0]->scope()->path(), "kMDQueryScopeHome");
    EXPECT_TRUE(scopes[0]->scope()->isConstant());

    EXPECT_EQ(model::OrderedColumnAttribute::orderedColumns(context).size(), 3u);
    ASSERT_NE(model::ValuedLimitAttribute::limitInContext(context), nullptr);

    QCoreApplication::sendPostedEvents();
    EXPECT_FALSE(context.hasChanges());
    EXPECT_FALSE(document.isDocumentEdited());
    EXPECT_EQ(document.displayName(), "Trovara");
}

TEST_F(DocumentTest, ANewDocumentFollowsTheRowOrderPreferenceTheDefaultPlacesAndThePreferredTemplate)
{
    model::Defaults::shared().setValue(QStringLiteral("listTextContentFirst"), true);
    model::Defaults::shared().setValue(
        QStringLiteral("preferredLocations"),
        model::PreferredLocation::archive({model::PreferredLocation(QStringLiteral("/srv/b"), false, true),
                                           model::PreferredLocation(QStringLiteral("kMDQueryScopeNetwork"), true, false),
                                           model::PreferredLocation(QStringLiteral("/srv/a"), false, true)}));
    Document& document = makeDocument();
    ASSERT_TRUE(document.initWithType().ok());
    EXPECT_EQ(rowFor(document, "kMDItemTextContent")->sortIndexValue(), 0);
    EXPECT_EQ(rowFor(document, "kMDItemDisplayName")->sortIndexValue(), 1);
    QStringList places;
    for (model::OrderedScope* ordered : model::OrderedScope::orderedScopes(document.managedObjectContext())) {
        places << ordered->scope()->path();
    }
    EXPECT_EQ(places, QStringList({"/srv/b", "/srv/a"}));

    // A preferred template that exists fills the new document instead.
    setCriterion(document, "kMDItemDisplayName", "from template");
    const QString templatePath = documentPath("Preferred.trova");
    ASSERT_TRUE(document.saveToURL(templatePath).ok());
    model::Defaults::shared().setValue(QStringLiteral("preferredTemplate"), templatePath);
    Document& fromTemplate = makeDocument();
    ASSERT_TRUE(fromTemplate.initWithType().ok());
    EXPECT_EQ(rowFor(fromTemplate, "kMDItemDisplayName")->queryString(), QVariant(QString("from template")));
    EXPECT_TRUE(fromTemplate.fileURL().isEmpty());
    EXPECT_EQ(fromTemplate.templateName(), "Preferred");

    // One that no longer exists is passed over.
    model::Defaults::shared().setValue(QStringLiteral("preferredTemplate"), documentPath("Gone.trova"));
    Document& plain = makeDocument();
    ASSERT_TRUE(plain.initWithType().ok());
    EXPECT_EQ(rowFor(plain, "kMDItemDisplayName")->queryString(), QVariant(QString("")));
}

TEST_F(DocumentTest, TheGraphBecomesTheControllersInputs)
{
    Document& document = newDocument();
    query::MetadataQueryController& controller = *document.metadataQueryController();
    EXPECT_TRUE(controller.expression().isNull());
    EXPECT_FALSE(document.canStartQuery());

    setCriterion(document, "kMDItemDisplayName", "report");
    EXPECT_EQ(controller.expression(), "((kMDItemDisplayName == '*report*'cd))");
    EXPECT_EQ(document.currentExpression(), controller.expression());

    // Places in their order, "~" expanded, duplicates kept.
    replaceScopes(document, {"~/b", "/srv/a", "~/b"});
    EXPECT_EQ(controller.searchScopes(), QStringList({QDir::homePath() + "/b", "/srv/a", QDir::homePath() + "/b"}));

    // A list that cannot be read is reported, and the query keeps its places.
    store::ManagedObjectContext& context = document.managedObjectContext();
    context.injectFetchFailure("OrderedScope", Error::make(Error::kFetchError, "The list could not be read."));
    presented.clear();
    document.updateQueryWithScope();
    ASSERT_EQ(presented.size(), 1u);
    EXPECT_EQ(presented[0].code, Error::kFetchError);
    EXPECT_EQ(controller.searchScopes().size(), 3);
    context.clearInjectedFetchFailures();

    document.updateExclusion([&] {
        model::OrderedExclusionScope::createOrderedExclusionScopeWith(model::Scope::scopeWithPath("~/private", context));
    });
    EXPECT_EQ(controller.excludedPaths(), QStringList{QDir::homePath() + "/private"});
    document.updateExclusion([&] {
        for (auto* ordered : model::OrderedExclusionScope::orderedExclusionScopes(context)) {
            context.deleteObject(ordered);
        }
    });
    EXPECT_TRUE(controller.excludedPaths().isEmpty());

    document.updateLimit([&] {
        model::ValuedLimitAttribute* limit = model::ValuedLimitAttribute::limitInContext(context);
        limit->setLimitAttribute(model::LimitAttribute::attributeWithKey("kMDItemContentCreationDate", context));
        limit->setLimitValue(25);
        limit->setAscending(true);
    });
    EXPECT_EQ(controller.limitKey(), "kMDItemContentCreationDate");
    EXPECT_EQ(controller.limitValue(), 25);
    EXPECT_TRUE(controller.limitAscending());
    document.updateLimit([&] { context.deleteObject(model::ValuedLimitAttribute::limitInContext(context)); });
    EXPECT_EQ(controller.limitKey(), QString());
    EXPECT_EQ(controller.limitValue(), 0);
    EXPECT_FALSE(controller.limitAscending());
}

TEST_F(DocumentTest, StartAndStopAreEnabledAsTheQueryAndItsInputsAllow)
{
    Document& document = newDocument();
    EXPECT_FALSE(document.canStartQuery());
    EXPECT_FALSE(document.startStopItem().enabled);
    EXPECT_EQ(document.startStopItem().label, "Start");

    setCriterion(document, "kMDItemDisplayName", "report");
    EXPECT_TRUE(document.canStartQuery());
    EXPECT_FALSE(document.canStopQuery());
    QSignalSpy focus(&document, &Document::focusOnResultsRequested);
    document.startStopQuery();
    settle(document);
    EXPECT_EQ(resultNames(document), QStringList({"report one.txt", "report three.txt", "report two.txt"}));
    EXPECT_EQ(focus.size(), 1);
    const document::StartStopItem running = document.startStopItem();
    EXPECT_EQ(running.label, "Stop");
    EXPECT_EQ(running.toolTip, "Stop Query");
    EXPECT_EQ(running.image, "stop");
    EXPECT_TRUE(running.enabled);
    EXPECT_FALSE(document.canStartQuery());
    EXPECT_TRUE(document.canStopQuery());

    // A change of criteria restarts the running query once.
    setCriterion(document, "kMDItemDisplayName", "report t");
    settle(document);
    EXPECT_EQ(resultNames(document), QStringList({"report three.txt", "report two.txt"}));

    // Setting the same criteria again does not restart it.
    QSignalSpy states(document.metadataQueryController(), &query::MetadataQueryController::stateChanged);
    setCriterion(document, "kMDItemDisplayName", "report t");
    settle(document);
    EXPECT_EQ(states.size(), 0);

    // All rows empty: the query stops and cannot start again.
    setCriterion(document, "kMDItemDisplayName", "");
    EXPECT_FALSE(document.isQueryAlive());
    EXPECT_FALSE(document.canStartQuery());
    EXPECT_FALSE(document.startStopItem().enabled);

    // A stopped query stays stopped when criteria and places change.
    setCriterion(document, "kMDItemDisplayName", "notes");
    replaceScopes(document, {QString::fromStdString(at("sub"))});
    settle(document);
    EXPECT_FALSE(document.isQueryAlive());
    // No places: nothing to start.
    replaceScopes(document, {});
    EXPECT_FALSE(document.canStartQuery());
}

TEST_F(DocumentTest, TheWordsToHighlightComeFromTheTextRowsOfTheWholeTree)
{
    Document& document = newDocument();
    store::ManagedObjectContext& context = document.managedObjectContext();
    const QByteArray json = R"({"operator": "AND", "children": [
        {"attribute": "kMDItemDisplayName", "operator": "contains", "string": "ignored"},
        {"attribute": "*", "operator": "containsPhrase", "string": "big red dog"},
        {"operator": "NOT", "children": [
            {"attribute": "kMDItemTextContent", "operator": "contains", "string": "small  cat"}]},
        {"attribute": "kMDItemTextContent", "operator": "contains", "string": ""}]})";
    document.updatePredicate([&] {
        context.deleteObject(QueryNode::rootNodeInContext(context));
        ASSERT_TRUE(model::readCriteriaJson(json, context).ok());
    });
    QStringList terms;
    EXPECT_EQ(document.computeSearchString(&terms), "big red dog");
    // A phrase is one entry; other text is split at white space, empty
    // pieces kept; words under NONE are highlighted too.
    QStringList expected{"big red dog", "small", "", "cat"};
    terms.sort();
    expected.sort();
    EXPECT_EQ(terms, expected);

    // While stopped, nothing is highlighted; starting fills the words in.
    EXPECT_TRUE(document.searchStringArray().isEmpty());
    EXPECT_TRUE(document.searchString().isNull());
    document.startQuery();
    EXPECT_EQ(document.searchString(), "big red dog");
    EXPECT_EQ(document.searchStringArray().size(), 4);
    document.stopQuery();
    document.updateSearchString(false);
    EXPECT_TRUE(document.searchStringArray().isEmpty());
}

TEST_F(DocumentTest, UndoAndRedoReachTheQueryThroughTheEditors)
{
    Document& document = newDocument();
    QCoreApplication::sendPostedEvents();
    query::MetadataQueryController& controller = *document.metadataQueryController();
    QSignalSpy criteriaReloads(&document, &Document::predicateEditorReloadRequested);
    QSignalSpy scopeReloads(&document, &Document::scopeEditorReloadRequested);

    setCriterion(document, "kMDItemDisplayName", "report");
    QCoreApplication::sendPostedEvents();
    // The document's own writes do not reload the editor that made them.
    EXPECT_EQ(criteriaReloads.size(), 0);
    setCriterion(document, "kMDItemDisplayName", "notes");
    QCoreApplication::sendPostedEvents();
    ASSERT_EQ(controller.expression(), "((kMDItemDisplayName == '*notes*'cd))");

    document.managedObjectContext().undo();
    QCoreApplication::sendPostedEvents();
    EXPECT_EQ(criteriaReloads.size(), 1);
    EXPECT_EQ(controller.expression(), "((kMDItemDisplayName == '*report*'cd))");
    document.managedObjectContext().redo();
    QCoreApplication::sendPostedEvents();
    EXPECT_EQ(controller.expression(), "((kMDItemDisplayName == '*notes*'cd))");

    replaceScopes(document, {"/srv/one"});
    QCoreApplication::sendPostedEvents();
    replaceScopes(document, {"/srv/two"});
    QCoreApplication::sendPostedEvents();
    document.managedObjectContext().undo();
    QCoreApplication::sendPostedEvents();
    EXPECT_EQ(scopeReloads.size(), 1);
    EXPECT_EQ(controller.searchScopes(), QStringList{"/srv/one"});
}

TEST_F(DocumentTest, ASavedDocumentReopensAsTheSameSearch)
{
    Document& document = newDocument();
    store::ManagedObjectContext& context = document.managedObjectContext();
    setCriterion(document, "kMDItemDisplayName", "report");
    setCriterion(document, "*", "big red", model::RelationalOperator::containsPhraseOperator());
    replaceScopes(document, {"~/Work", QString::fromStdString(root)});
    document.updateExclusion([&] {
        model::OrderedExclusionScope::createOrderedExclusionScopeWith(
            model::Scope::scopeWithPath(QString::fromStdString(at("sub")), context));
    });
    document.updateLimit([&] {
        model::ValuedLimitAttribute* limit = model::ValuedLimitAttribute::limitInContext(context);
        limit->setLimitValue(7);
        limit->setAscending(true);
    });
    query::MetadataQueryController& controller = *document.metadataQueryController();
    controller.results()->sort(controller.results()->columnForIdentifier("kMDItemDisplayName"), Qt::DescendingOrder);
    controller.setFilterType(query::kExcludeByPath);
    controller.setFilterString("secret");
    controller.resultController()->setSelectedTabIndex(2);

    const QString path = documentPath("Search.trova");
    ASSERT_TRUE(document.saveToURL(path).ok());
    EXPECT_EQ(document.fileURL(), path);
    EXPECT_EQ(document.displayName(), "Search");
    EXPECT_FALSE(document.isDocumentEdited());
    setCriterion(document, "kMDItemDisplayName", "changed");
    EXPECT_TRUE(document.isDocumentEdited());

    Document& reopened = makeDocument();
    ASSERT_TRUE(reopened.initWithContentsOfURL(path).ok());
    reopened.windowControllerDidLoadNib();
    QCoreApplication::sendPostedEvents();
    query::MetadataQueryController& again = *reopened.metadataQueryController();
    EXPECT_EQ(again.expression(), "((kMDItemDisplayName == '*report*'cd) && (* == '*big red*'c))");
    EXPECT_EQ(again.searchScopes(), QStringList({QDir::homePath() + "/Work", QString::fromStdString(root)}));
    EXPECT_EQ(again.excludedPaths(), QStringList{QString::fromStdString(at("sub"))});
    EXPECT_EQ(again.limitKey(), "kMDItemLastUsedDate");
    EXPECT_EQ(again.limitValue(), 7);
    EXPECT_TRUE(again.limitAscending());
    EXPECT_EQ(again.filterType(), query::kExcludeByPath);
    EXPECT_EQ(again.filterString(), "secret");
    EXPECT_EQ(again.resultController()->selectedTabIndex(), 2);
    ASSERT_EQ(again.results()->sortDescriptors().size(), controller.results()->sortDescriptors().size());
    EXPECT_EQ(again.results()->sortDescriptors().front().key, "kMDItemDisplayName");
    EXPECT_FALSE(again.results()->sortDescriptors().front().ascending);
    QStringList columns;
    for (const auto& column : again.results()->columns()) {
        columns << column.identifier;
    }
    EXPECT_EQ(columns, QStringList({"kMDItemDisplayName", "kMDItemKind", "kMDItemContentModificationDate"}));
    // Saved stopped: opens stopped, and not edited.
    EXPECT_FALSE(reopened.isQueryAlive());
    EXPECT_FALSE(reopened.isDocumentEdited());
    EXPECT_EQ(reopened.metaAttributeText("runState"), "NO");
}

TEST_F(DocumentTest, ADocumentSavedRunningStartsWhenOpened)
{
    Document& document = newDocument();
    setCriterion(document, "kMDItemDisplayName", "report");
    document.startQuery();
    settle(document);
    const QString path = documentPath("Running.trova");
    ASSERT_TRUE(document.saveToURL(path).ok());
    EXPECT_EQ(document.metaAttributeText("runState"), "YES");

    Document& reopened = makeDocument();
    ASSERT_TRUE(reopened.initWithContentsOfURL(path).ok());
    reopened.windowControllerDidLoadNib();
    // Started on the next turn of the event loop, not at once.
    EXPECT_FALSE(reopened.isQueryAlive());
    settle(reopened);
    EXPECT_TRUE(reopened.isQueryAlive());
    EXPECT_EQ(resultNames(reopened), QStringList({"report one.txt", "report three.txt", "report two.txt"}));
}

TEST_F(DocumentTest, BadFilesAreRefusedAndLeftUntouched)
{
    const QString garbage = documentPath("Garbage.trova");
    writeFile(garbage.toStdString(), std::string(4096, 'x'));
    const QString truncated = documentPath("Truncated.trova");
    Document& source = newDocument();
    ASSERT_TRUE(source.saveToURL(truncated).ok());
    {
        QFile file(truncated);
        ASSERT_TRUE(file.open(QIODevice::ReadWrite));
        ASSERT_TRUE(file.resize(file.size() / 2));
    }
    for (const QString& path : {garbage, truncated, documentPath("Missing.trova")}) {
        const QByteArray before = readAll(path);
        Document& document = makeDocument();
        Status opened = document.initWithContentsOfURL(path);
        ASSERT_FALSE(opened.ok()) << path.toStdString();
        EXPECT_FALSE(opened.error().description.isEmpty());
        EXPECT_EQ(readAll(path), before) << path.toStdString();
    }
}

TEST_F(DocumentTest, AFailedSaveReportsAnErrorAndKeepsThePreviousFile)
{
    Document& document = newDocument();
    setCriterion(document, "kMDItemDisplayName", "first");
    const QString path = documentPath("Kept.trova");
    ASSERT_TRUE(document.saveToURL(path).ok());
    const QByteArray before = readAll(path);

    setCriterion(document, "kMDItemDisplayName", "second");
    store::SaveOptions fullDisk;
    fullDisk.faultHook = [](store::SaveStep step) -> Status {
        if (step == store::SaveStep::ObjectWritten) {
            return Error::make(Error::kFileWriteOutOfSpaceError, "The disk is full.");
        }
        return {};
    };
    Status saved = document.saveToURL(path, Document::SaveOperation::Save, fullDisk);
    ASSERT_FALSE(saved.ok());
    EXPECT_EQ(saved.error().code, Error::kFileWriteOutOfSpaceError);
    EXPECT_EQ(readAll(path), before);
    EXPECT_TRUE(document.isDocumentEdited());
    EXPECT_EQ(QDir(QString::fromStdString(outside)).entryList(QDir::Files | QDir::Hidden), QStringList{"Kept.trova"});
}

TEST_F(DocumentTest, AQuickSearchFillsAnAnyGroupOfTheChosenFieldsAndStartsWithTheWindow)
{
    Document& document = makeDocument();
    ASSERT_TRUE(document.initWithType().ok());
    document.applyBlitzSearch("report", false, true, true, false);
    QueryNode* root = QueryNode::rootNodeInContext(document.managedObjectContext());
    EXPECT_EQ(root->expression(),
              "(((kMDItemDisplayName == '*report*'cd) || (((kMDItemTextContent == '*report*'cd)))))");
    EXPECT_EQ(document.metaAttributeText("runState"), "YES");
    QCoreApplication::sendPostedEvents();
    // Not a change the user made: nothing to undo, nothing to save.
    EXPECT_FALSE(document.managedObjectContext().hasChanges());
    EXPECT_FALSE(document.managedObjectContext().undoManager().canUndo());
    replaceScopes(document, {QString::fromStdString(at("sub"))});

    document.windowControllerDidLoadNib();
    settle(document);
    EXPECT_TRUE(document.isQueryAlive());
    EXPECT_EQ(resultNames(document), QStringList({"report three.txt"}));

    // Several words in the name: each must occur, in any order.
    Document& words = makeDocument();
    ASSERT_TRUE(words.initWithType().ok());
    words.applyBlitzSearch("two report", false, true, false, false);
    EXPECT_EQ(QueryNode::rootNodeInContext(words.managedObjectContext())->expression(),
              "((((kMDItemDisplayName == '*two*'cd) && (kMDItemDisplayName == '*report*'cd))))");

    // Comments, and no field chosen at all (any text then).
    Document& comments = makeDocument();
    ASSERT_TRUE(comments.initWithType().ok());
    comments.applyBlitzSearch("todo", false, false, false, true);
    EXPECT_EQ(QueryNode::rootNodeInContext(comments.managedObjectContext())->expression(),
              "(((kMDItemFinderComment == '*todo*'cd)))");
    Document& none = makeDocument();
    ASSERT_TRUE(none.initWithType().ok());
    none.applyBlitzSearch("todo", false, false, false, false);
    EXPECT_TRUE(QueryNode::rootNodeInContext(none.managedObjectContext())->expression().contains("todo"));
}

TEST_F(DocumentTest, WithoutTheMetadataServiceNewDocumentsWarnAndFilesDoNotOpen)
{
    Document& saved = newDocument();
    const QString path = documentPath("Any.trova");
    ASSERT_TRUE(saved.saveToURL(path).ok());

    index::Schema noNames({{"kMDItemFSSize", index::ValueType::Number, false, "Size", "", {}, true}});
    model::MetadataSchema::Override schema(noNames);
    Document::resetSpotlightCheckForTesting();
    presented.clear();
    // The first new document of the process is not checked.
    ASSERT_TRUE(makeDocument().initWithType().ok());
    EXPECT_TRUE(presented.empty());
    // Later ones are, and are made all the same.
    ASSERT_TRUE(makeDocument().initWithType().ok());
    ASSERT_EQ(presented.size(), 1u);
    EXPECT_EQ(presented[0].description, "No response from Spotlight");
    EXPECT_EQ(presented[0].reason, "No response from Spotlight");
    EXPECT_EQ(presented[0].suggestion, "Either Spotlight is disabled or the index needs rebuilding");
    EXPECT_EQ(presented[0].code, 0);

    Status opened = makeDocument().initWithContentsOfURL(path);
    ASSERT_FALSE(opened.ok());
    EXPECT_EQ(opened.error().description, "No response from Spotlight");
}

TEST_F(DocumentTest, FoldersDroppedTogetherLandInOneNewDocument)
{
    document::DocumentController controller(*source, dispatcher);
    const QString a = QString::fromStdString(at("sub"));
    const QString b = QString::fromStdString(outside);
    Result<Document*> first = controller.openDocumentWithContentsOfURL(a);
    Result<Document*> second = controller.openDocumentWithContentsOfURL(b);
    ASSERT_TRUE(first.ok() && second.ok());
    EXPECT_EQ(first.value(), second.value());
    EXPECT_EQ(first.value()->metadataQueryController()->searchScopes(), QStringList({a, b}));
    QCoreApplication::sendPostedEvents();

    // A folder of a later turn gets a document of its own.
    Result<Document*> later = controller.openDocumentWithContentsOfURL(a);
    ASSERT_TRUE(later.ok());
    EXPECT_NE(later.value(), first.value());
    EXPECT_EQ(controller.documents().size(), 2u);

    // A file already open is not opened twice.
    const QString path = documentPath("Open.trova");
    ASSERT_TRUE(later.value()->saveToURL(path).ok());
    Result<Document*> again = controller.openDocumentWithContentsOfURL(path);
    ASSERT_TRUE(again.ok());
    EXPECT_EQ(again.value(), later.value());
}

// A search the first model wrote, before model versioning: one name row,
// one place.
void writeFirstModelFile(const QString& path, const QString& name, const QString& place)
{
    store::ManagedObjectContext old(document::firstDocumentModel());
    auto set = [](store::ManagedObject* object, const QVariantMap& values) {
        for (auto it = values.begin(); it != values.end(); ++it) {
            object->setValue(it.key(), it.value());
        }
        return object;
    };
    store::ManagedObject* attribute =
        set(old.insertNewObject("QueryAttribute"), {{"attributeKey", "kMDItemDisplayName"}});
    store::ManagedObject* root = set(old.insertNewObject("QueryNode"), {{"operator", "AND"}, {"sortIndex", 0}});
    store::ManagedObject* row = set(old.insertNewObject("QueryLeaf"),
                                    {{"queryOperator", "contains"}, {"queryString", name}, {"sortIndex", 0}});
    row->setObject("parent", root);
    row->setObject("queryAttribute", attribute);
    store::ManagedObject* scope = set(old.insertNewObject("Scope"), {{"path", place}, {"isConstant", false}});
    set(old.insertNewObject("OrderedScope"), {{"sortIndex", 0}})->setObject("scope", scope);
    ASSERT_TRUE(store::SqliteStore::save(old, path, {{document::kFileVersionKey, 1}}).ok());
    execute(path, "DELETE FROM \"_metadata\" WHERE \"key\" IN ('modelVersion', 'modelVersionHash');");
}

TEST_F(DocumentTest, AnOlderDocumentOpensMigratedWithItsOldFileKeptBeside)
{
    const QString path = documentPath("Search.trova");
    const QString backup = path + "~";
    writeFirstModelFile(path, "report", QString::fromStdString(root));
    const QByteArray old = readAll(path);
    writeAll(backup, "an earlier backup");
    ASSERT_FALSE(document::isCompatibleWithCurrentModel(*store::SqliteStore::readMetadata(path)));

    document::DocumentController controller(*source, dispatcher);
    QStringList asked;
    bool agree = false;
    controller.setOverwritePrompt([&](const QString& existing) {
        asked << existing;
        return agree;
    });
    // An existing backup is kept unless the person agrees to replace it.
    Result<Document*> cancelled = controller.openDocumentWithContentsOfURL(path);
    ASSERT_FALSE(cancelled.ok());
    EXPECT_EQ(cancelled.error().code, Error::kUserCancelledError);
    EXPECT_EQ(asked, QStringList{backup});
    EXPECT_EQ(readAll(path), old);
    EXPECT_EQ(readAll(backup), QByteArray("an earlier backup"));

    agree = true;
    Result<Document*> opened = controller.openDocumentWithContentsOfURL(path);
    ASSERT_TRUE(opened.ok()) << opened.error().toString().toStdString();
    // The backup is the old file, now naming the model it follows.
    EXPECT_EQ(store::SqliteStore::readMetadata(backup)->value(store::SqliteStore::kModelVersionKey), "Trovara 1");
    Document& document = *opened.value();
    EXPECT_EQ(document.fileURL(), path);
    EXPECT_EQ(document.metadataQueryController()->expression(), "((kMDItemDisplayName == '*report*'cd))");
    EXPECT_EQ(document.metadataQueryController()->searchScopes(), QStringList{QString::fromStdString(root)});
    // The migrated document has what the first model lacked: a limit
    // (none set) and columns.
    EXPECT_EQ(document.metadataQueryController()->limitValue(), 0);
    EXPECT_EQ(document.metadataQueryController()->results()->columns().size(), 3u);
    document.startQuery();
    settle(document);
    EXPECT_EQ(resultNames(document), QStringList({"report one.txt", "report three.txt", "report two.txt"}));
    // Saved again, it is a current document.
    ASSERT_TRUE(document.save().ok());
    Result<QVariantMap> metadata = store::SqliteStore::readMetadata(path);
    ASSERT_TRUE(metadata.ok());
    EXPECT_TRUE(document::isCompatibleWithCurrentModel(*metadata));
    EXPECT_EQ(metadata->value(document::kFileVersionKey).toInt(), document::kCurrentFileVersion);
}

}  // namespace
}  // namespace trovara::test
