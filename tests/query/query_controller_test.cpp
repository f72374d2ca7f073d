// The query controller: the final query string, exclusions, the limit, the
// gathering and live states with their status lines, the result cap, the
// quick filter, restarts, live changes, and the document's columns and sort
// order.
#include "common/error_presenter.h"
#include "controller_test_support.h"
#include "model/meta_attribute.h"
#include "model/ordered_column_attribute.h"
#include "model/platform.h"
#include "presentation/sort_descriptor.h"
#include "presentation/text_format.h"

#include <QAbstractItemModelTester>
#include <QSet>
#include <QSignalSpy>

namespace trovara::query {
namespace {

using test::writeFile;
using Kind = index::PathChange::Kind;
using State = MetadataQueryController::State;
using namespace std::chrono_literals;

const QString kReports = QStringLiteral("kMDItemDisplayName == 'report*'c");

// --- The pieces of a query ------------------------------------------------------

TEST(FinalQueryString, AddsTheInvisibleFilesClauseUnlessTheExpressionMentionsInvisibility)
{
    const QString e = QStringLiteral("(kMDItemDisplayName == '*report*'cd)");
    EXPECT_EQ(MetadataQueryController::finalQueryString(e, false), e);
    EXPECT_EQ(MetadataQueryController::finalQueryString(e, true),
              QStringLiteral("((kMDItemDisplayName == '*report*'cd)) && ((kMDItemFSInvisible = '0') || "
                             "(kMDItemFSInvisible = '1') || (kMDItemFSInvisible = null))"));
    const QString invisible = QStringLiteral("((kMDItemFSInvisible = '1'))");
    EXPECT_EQ(MetadataQueryController::finalQueryString(invisible, true), invisible);
    // A plain substring test: any mention counts.
    const QString mention = QStringLiteral("(kMDItemDisplayName == 'kMDItemFSInvisible notes'c)");
    EXPECT_EQ(MetadataQueryController::finalQueryString(mention, true), mention);
}

TEST(FinalQueryString, AddsTheCompatibilityClauseOnTheOlderToolkitOnly)
{
    const QString e = QStringLiteral("(kMDItemFSSize > '5000000')");
    model::platform::setToolkitVersionForTesting(949.9);
    EXPECT_EQ(MetadataQueryController::finalQueryString(e, false),
              QStringLiteral("((kMDItemFSSize > '5000000')) && ((kMDItemLastUsedDate >= '-6.31139e+10') || "
                             "(kMDItemLastUsedDate = null) || (kMDItemFSCreationDate >= '-6.31139e+10'))"));
    EXPECT_TRUE(MetadataQueryController::finalQueryString(e, true)
                    .endsWith(QStringLiteral(") && ((kMDItemFSInvisible = '0') || (kMDItemFSInvisible = '1') || "
                                             "(kMDItemFSInvisible = null))")));
    model::platform::setToolkitVersionForTesting(950);
    EXPECT_EQ(MetadataQueryController::finalQueryString(e, false), e);
    model::platform::setToolkitVersionForTesting(-1);
    EXPECT_EQ(MetadataQueryController::finalQueryString(e, false), e);
}

struct ExclusionCase {
    const char* path;
    std::vector<std::string> excluded;
    bool dropped;
};

TEST(Exclusions, ArePlainPrefixesAndTheRootKeepsOtherVolumes)
{
    const ExclusionCase cases[] = {
        {"/home/ann/a.txt", {"/home/ann"}, true},
        {"/home/anna/a.txt", {"/home/ann"}, true},  // no separator check, on purpose
        {"/home/bob/a.txt", {"/home/ann"}, false},
        {"/home/bob/a.txt", {"/srv", "/home/bob/"}, true},
        {"/home/bob/a.txt", {}, false},
        {"/home/bob/a.txt", {"/"}, true},
        {"/media/ann/USB/a.txt", {"/"}, false},
        {"/run/media/ann/USB/a.txt", {"/"}, false},
        {"/mnt/backup/a.txt", {"/"}, false},
        {"/mnt/backup/a.txt", {"/", "/mnt/backup"}, true},
        {"/mediaplayer/a.txt", {"/"}, true},
    };
    for (const ExclusionCase& c : cases) {
        EXPECT_EQ(MetadataQueryController::isExcludedPath(c.path, c.excluded), c.dropped) << c.path;
    }
}

TEST(LimitOrder, PutsResultsWithoutAValueFirstInEitherDirection)
{
    using index::query::AttributeValue;
    using index::query::Date;
    const index::SortValues none{std::nullopt};
    const index::SortValues early{AttributeValue(Date{100})};
    const index::SortValues late{AttributeValue(Date{200})};
    const index::SortValues emptyList{AttributeValue::list({})};
    for (bool ascending : {true, false}) {
        EXPECT_EQ(MetadataQueryController::compareLimitValues(none, early, ascending), -1);
        EXPECT_EQ(MetadataQueryController::compareLimitValues(early, none, ascending), 1);
        EXPECT_EQ(MetadataQueryController::compareLimitValues(none, none, ascending), 0);
        EXPECT_EQ(MetadataQueryController::compareLimitValues(emptyList, late, ascending), -1);
        EXPECT_EQ(MetadataQueryController::compareLimitValues(late, late, ascending), 0);
    }
    EXPECT_EQ(MetadataQueryController::compareLimitValues(early, late, true), -1);
    EXPECT_EQ(MetadataQueryController::compareLimitValues(early, late, false), 1);
}

// --- Running queries ------------------------------------------------------------------

class QueryController : public test::ControllerTest {
protected:
    QueryController()
    {
        ::mkdir(at("docs").c_str(), 0755);
        ::mkdir(at("other").c_str(), 0755);
        for (int i = 0; i < 12; ++i) {
            const std::string path = at("docs/report " + std::to_string(i) + ".txt");
            writeFile(path, std::string(static_cast<std::size_t>(i), 'r'));
            test::setModified(path, 1600000000 + i * 1000);
        }
        writeFile(at("other/report x.txt"), "x");
        test::setModified(at("other/report x.txt"), 1500000000);
        writeFile(at("other/notes.md"), "n");
    }

    void SetUp() override
    {
        ControllerTest::SetUp();
        makeController();
    }

    std::vector<QString> statusLines;
    void recordStatusLines()
    {
        QObject::connect(controller.get(), &MetadataQueryController::statusLineChanged,
                         [this](const QString& line) { statusLines.push_back(line); });
    }
};

TEST_F(QueryController, GathersThenGoesLiveAndSaysSoInTheStatusLine)
{
    controller->setBatchingForTesting(index::LiveQueryBatching{5, 1h, 5, 1h, 5, 200ms});
    recordStatusLines();
    std::vector<std::size_t> listed;
    QObject::connect(controller.get(), &MetadataQueryController::statusLineChanged,
                     [&] { listed.push_back(controller->resultArray().size()); });
    EXPECT_EQ(controller->state(), State::Idle);
    // Setting up the filter for the window wrote the line once already.
    EXPECT_EQ(controller->statusLine(), QStringLiteral("No files found"));

    start(kReports);
    EXPECT_EQ(controller->state(), State::Gathering);
    EXPECT_TRUE(controller->isAlive());
    EXPECT_TRUE(controller->isGathering());
    EXPECT_TRUE(controller->isBusy());
    ASSERT_TRUE(settle());
    EXPECT_EQ(controller->state(), State::Live);
    EXPECT_FALSE(controller->isBusy());
    // Batches that come together may be listed together; each line counts
    // the results listed with it, the counts only grow, the last is final.
    ASSERT_GE(statusLines.size(), 2u);
    ASSERT_EQ(listed.size(), statusLines.size());
    EXPECT_EQ(statusLines.front(), QStringLiteral("Searching…"));
    EXPECT_EQ(listed.front(), 0u);
    for (std::size_t i = 1; i + 1 < statusLines.size(); ++i) {
        EXPECT_EQ(statusLines[i], QStringLiteral("%1 files found…").arg(listed[i]));
        EXPECT_GT(listed[i], listed[i - 1]);
    }
    EXPECT_EQ(statusLines.back(), QStringLiteral("13 files found"));
    EXPECT_EQ(listed.back(), 13u);
    // Every file once, in the order of the list.
    const QStringList paths = resultPaths();
    EXPECT_EQ(paths.size(), 13);
    EXPECT_EQ(QSet<QString>(paths.begin(), paths.end()).size(), 13);
    QStringList sorted = resultNames();
    std::sort(sorted.begin(), sorted.end(), [](const QString& a, const QString& b) {
        return presentation::localizedCaseInsensitiveCompare(a, b) < 0;
    });
    EXPECT_EQ(resultNames(), sorted);
    // The first result was selected when the first ones came.
    ASSERT_NE(controller->selectedResult(), nullptr);

    controller->stopQuery();
    EXPECT_EQ(controller->state(), State::Idle);
    EXPECT_EQ(controller->statusLine(), QStringLiteral("Results"));
    EXPECT_TRUE(controller->resultArray().empty());
    EXPECT_EQ(controller->metadataQuery(), nullptr);
    EXPECT_TRUE(controller->queryString().isEmpty());
}

TEST_F(QueryController, WithoutShowingResultsImmediatelyTheListFillsAtTheEnd)
{
    model::Defaults::shared().setValue(QStringLiteral("showResultsImmediately"), false);
    controller->setBatchingForTesting(index::LiveQueryBatching{5, 1h, 5, 1h, 5, 200ms});
    recordStatusLines();
    std::vector<std::size_t> listed;
    QObject::connect(controller.get(), &MetadataQueryController::statusLineChanged,
                     [&] { listed.push_back(controller->resultArray().size()); });
    start(kReports);
    ASSERT_TRUE(settle());
    EXPECT_EQ(statusLines, (std::vector<QString>{"Searching…", "5 files found…", "10 files found…",
                                                  "13 files found…", "13 files found"}));
    EXPECT_EQ(listed, (std::vector<std::size_t>{0, 0, 0, 0, 13}));
    EXPECT_EQ(controller->selectedResult(), nullptr);
}

TEST_F(QueryController, TheFinishedStatusLineCountsOneOrNone)
{
    start(QStringLiteral("kMDItemDisplayName == 'notes.md'"));
    ASSERT_TRUE(settle());
    EXPECT_EQ(controller->statusLine(), QStringLiteral("1 file found"));
    controller->setExpression(QStringLiteral("kMDItemDisplayName == 'nothing*'"));
    ASSERT_TRUE(settle());
    EXPECT_EQ(controller->statusLine(), QStringLiteral("No files found"));
    EXPECT_EQ(controller->state(), State::Live);
}

TEST_F(QueryController, StartsOnlyWithAnExpressionAndScopes)
{
    controller->startQuery();
    EXPECT_EQ(controller->state(), State::Idle);
    controller->setExpression(kReports);
    controller->startQuery();
    EXPECT_EQ(controller->state(), State::Idle);
    controller->setSearchScopes({QString::fromStdString(root)});
    controller->setExpression(QString());
    controller->startQuery();
    EXPECT_EQ(controller->state(), State::Idle);
    controller->setExpression(kReports);
    controller->startQuery();
    EXPECT_EQ(controller->state(), State::Gathering);
    index::LiveQuery* running = controller->metadataQuery();
    controller->startQuery();  // a second start changes nothing
    EXPECT_EQ(controller->metadataQuery(), running);
    ASSERT_TRUE(settle());
}

TEST_F(QueryController, TheAlternateKeyInvertsTheInvisibleFilesDefault)
{
    const QString withClause = MetadataQueryController::finalQueryString(kReports, true);
    start(kReports);
    EXPECT_EQ(controller->queryString(), kReports);
    controller->stopQuery();
    controller->startQuery(true);
    EXPECT_EQ(controller->queryString(), withClause);
    controller->stopQuery();
    model::Defaults::shared().setValue(QStringLiteral("includeInvisibleFiles"), true);
    controller->startQuery();
    EXPECT_EQ(controller->queryString(), withClause);
    controller->stopQuery();
    controller->startQuery(true);
    EXPECT_EQ(controller->queryString(), kReports);
    ASSERT_TRUE(settle());
}

TEST_F(QueryController, ExcludedResultsAreDroppedAndCounted)
{
    controller->setExcludedPaths({QString::fromStdString(at("docs"))});
    start(kReports);
    ASSERT_TRUE(settle());
    EXPECT_EQ(resultPaths(), QStringList{QString::fromStdString(at("other/report x.txt"))});
    EXPECT_EQ(controller->ignoredCount(), 12);
    EXPECT_EQ(controller->statusLine(), QStringLiteral("1 file found"));

    // The start-up volume: everything here goes, nothing is on another volume.
    controller->setExcludedPaths({QStringLiteral("/")});
    ASSERT_TRUE(settle());
    EXPECT_TRUE(controller->resultArray().empty());
    EXPECT_EQ(controller->ignoredCount(), 13);
    EXPECT_EQ(controller->statusLine(), QStringLiteral("No files found"));
}

TEST_F(QueryController, ALimitWithoutExclusionsCapsTheQueryItself)
{
    controller->setLimitKey(QStringLiteral("kMDItemContentModificationDate"));
    controller->setLimitValue(10);
    controller->setLimitAscending(false);
    start(kReports);
    ASSERT_TRUE(settle());
    EXPECT_EQ(controller->metadataQuery()->resultCount(), 10u);
    QStringList latest;
    for (int i = 2; i < 12; ++i) {
        latest << QString::fromStdString(at("docs/report " + std::to_string(i) + ".txt"));
    }
    latest.sort();
    EXPECT_EQ(resultPaths(), latest);
    EXPECT_EQ(controller->statusLine(), QStringLiteral("10 files found"));

    controller->setLimitAscending(true);
    ASSERT_TRUE(settle());
    EXPECT_TRUE(resultPaths().contains(QString::fromStdString(at("other/report x.txt"))));
    EXPECT_FALSE(resultPaths().contains(QString::fromStdString(at("docs/report 11.txt"))));
}

TEST_F(QueryController, ALimitWithExclusionsIsAppliedToTheList)
{
    controller->setLimitKey(QStringLiteral("kMDItemContentModificationDate"));
    controller->setLimitValue(10);
    controller->setExcludedPaths({QString::fromStdString(at("docs/report 11"))});
    start(kReports);
    ASSERT_TRUE(settle());
    EXPECT_EQ(controller->metadataQuery()->resultCount(), 12u);  // not capped
    EXPECT_EQ(controller->resultArray().size(), 10u);
    EXPECT_EQ(controller->statusLine(), QStringLiteral("10 files found"));
    // The ten latest of what is left: report 1 to report 10.
    EXPECT_FALSE(resultPaths().contains(QString::fromStdString(at("docs/report 0.txt"))));
    EXPECT_TRUE(resultPaths().contains(QString::fromStdString(at("docs/report 1.txt"))));
    EXPECT_TRUE(resultPaths().contains(QString::fromStdString(at("docs/report 10.txt"))));
}

TEST_F(QueryController, ReachingTheCapStopsTheQueryWithAnAlert)
{
    controller->setResultCapForTesting(13);
    start(kReports);
    ASSERT_TRUE(settle());
    EXPECT_EQ(controller->state(), State::Idle);
    EXPECT_TRUE(controller->resultArray().empty());
    EXPECT_EQ(controller->statusLine(), QStringLiteral("Results"));
    ASSERT_EQ(alerts.size(), 1u);
    EXPECT_EQ(alerts[0].messageText, QStringLiteral("Your query produced more than 13 matches"));
    EXPECT_EQ(alerts[0].informativeText, QStringLiteral("Please refine your criteria"));
    EXPECT_EQ(alerts[0].buttons, QStringList{"OK"});
    endAlert(0);  // dismissing it stops again: nothing left to stop
    EXPECT_EQ(controller->state(), State::Idle);

    controller->setResultCapForTesting(MetadataQueryController::kResultCap);
    EXPECT_EQ(presentation::stringWithFormat(QStringLiteral("Your query produced more than %d matches"),
                                             {MetadataQueryController::kResultCap}),
              QStringLiteral("Your query produced more than 50000 matches"));
}

TEST_F(QueryController, OneBelowTheCapKeepsGoing)
{
    controller->setResultCapForTesting(14);
    start(kReports);
    ASSERT_TRUE(settle());
    EXPECT_EQ(controller->state(), State::Live);
    EXPECT_EQ(controller->resultArray().size(), 13u);
    EXPECT_TRUE(alerts.empty());
}

TEST_F(QueryController, TheQuickFilterChangesWhatIsShownAndTheStatusLine)
{
    QAbstractItemModelTester tester(controller->results(), QAbstractItemModelTester::FailureReportingMode::Fatal);
    EXPECT_EQ(controller->filterType(), kFilterByName);
    EXPECT_EQ(controller->filterPlaceholder(), QStringLiteral("Filter by Name"));
    EXPECT_EQ(controller->checkedFilterTag(), kFilterByName);
    start(kReports);
    ASSERT_TRUE(settle());

    controller->setFilterString(QStringLiteral("REPORT 1"));
    EXPECT_EQ(controller->statusLine(), QStringLiteral("3 of 13 shown"));  // 1, 10, 11
    controller->setFilterType(kExcludeByName);
    EXPECT_EQ(controller->filterPlaceholder(), QStringLiteral("Exclude by Name"));
    EXPECT_EQ(controller->statusLine(), QStringLiteral("10 of 13 shown"));
    controller->setFilterString(QStringLiteral("report"));
    EXPECT_EQ(controller->statusLine(), QStringLiteral("0 of 13 shown"));
    controller->setFilterType(kFilterByPath);
    controller->setFilterString(QStringLiteral("OTHER/"));
    EXPECT_EQ(controller->statusLine(), QStringLiteral("1 of 13 shown"));
    controller->setFilterTypeFrom(kExcludeByPath);
    EXPECT_EQ(controller->filterType(), kExcludeByPath);
    EXPECT_EQ(controller->checkedFilterTag(), kExcludeByPath);
    EXPECT_EQ(controller->statusLine(), QStringLiteral("12 of 13 shown"));

    // An unknown kind shows everything; so does an empty text.
    controller->setFilterType(999);
    EXPECT_EQ(controller->checkedFilterTag(), 0);
    EXPECT_EQ(controller->results()->rowCount(), 13);
    controller->setFilterType(kFilterByName);
    controller->setFilterString(QString());
    EXPECT_EQ(controller->results()->rowCount(), 13);
    EXPECT_EQ(controller->statusLine(), QStringLiteral("13 files found"));

    // Stopping clears the filter text.
    controller->setFilterString(QStringLiteral("x"));
    controller->stopQuery();
    EXPECT_TRUE(controller->filterString().isEmpty());
}

TEST_F(QueryController, InputChangesRestartOncePerTurnAndOnlyWhileAlive)
{
    int starts = 0;
    QObject::connect(controller.get(), &MetadataQueryController::stateChanged, [&](State state) {
        starts += state == State::Gathering ? 1 : 0;
    });
    controller->setExpression(kReports);
    controller->setSearchScopes({QString::fromStdString(root)});
    controller->setLimitValue(3);
    QCoreApplication::sendPostedEvents();
    EXPECT_EQ(starts, 0);  // idle: inputs only change
    EXPECT_EQ(controller->state(), State::Idle);

    controller->startQuery();
    EXPECT_EQ(starts, 1);
    controller->setExpression(QStringLiteral("kMDItemDisplayName == 'notes*'"));
    controller->setSearchScopes({QString::fromStdString(at("other"))});
    controller->setExcludedPaths({QString::fromStdString(at("docs"))});
    controller->setLimitKey(QStringLiteral("kMDItemContentModificationDate"));
    controller->setLimitValue(0);
    controller->setLimitAscending(true);
    EXPECT_EQ(starts, 1);
    QCoreApplication::sendPostedEvents();
    EXPECT_EQ(starts, 2);
    ASSERT_TRUE(settle());
    EXPECT_EQ(resultPaths(), QStringList{QString::fromStdString(at("other/notes.md"))});

    // Setting what is already set is no change.
    controller->setExpression(QStringLiteral("kMDItemDisplayName == 'notes*'"));
    QCoreApplication::sendPostedEvents();
    EXPECT_EQ(starts, 2);

    // A stopped query stays stopped when the criteria change.
    controller->stopQuery();
    controller->setExpression(kReports);
    QCoreApplication::sendPostedEvents();
    EXPECT_EQ(starts, 2);
    EXPECT_EQ(controller->state(), State::Idle);
}

TEST_F(QueryController, LiveChangesUpdateTheList)
{
    QAbstractItemModelTester tester(controller->results(), QAbstractItemModelTester::FailureReportingMode::Fatal);
    QSignalSpy stepped(controller.get(), &MetadataQueryController::busyIndicatorStepped);
    start(kReports);
    ASSERT_TRUE(settle());
    ASSERT_EQ(controller->resultArray().size(), 13u);

    controller->results()->setSelectionIndex(6);
    ResultItem* selected = controller->selectedResult();
    QSignalSpy resets(controller->results(), &QAbstractItemModel::modelReset);
    QSignalSpy layouts(controller->results(), &QAbstractItemModel::layoutChanged);
    QSignalSpy repainted(controller->results(), &QAbstractItemModel::dataChanged);
    writeFile(at("other/report new.txt"), "new");
    ::unlink(at("docs/report 0.txt").c_str());
    apply({{Kind::Changed, at("other/report new.txt")}, {Kind::Removed, at("docs/report 0.txt")}});
    ASSERT_TRUE(settle());
    // Only the rows of the files that came and went changed.
    EXPECT_EQ(resets.count(), 0);
    EXPECT_EQ(layouts.count(), 0);
    EXPECT_EQ(repainted.count(), 0);
    EXPECT_EQ(controller->selectedResult(), selected);
    EXPECT_EQ(controller->resultArray().size(), 13u);
    EXPECT_TRUE(resultPaths().contains(QString::fromStdString(at("other/report new.txt"))));
    EXPECT_FALSE(resultPaths().contains(QString::fromStdString(at("docs/report 0.txt"))));
    EXPECT_EQ(controller->statusLine(), QStringLiteral("13 files found"));
    EXPECT_GE(stepped.count(), 1);

    // A changed file shows its new values.
    ResultItem* changed = nullptr;
    for (const auto& item : controller->resultArray()) {
        if (item->path() == QString::fromStdString(at("docs/report 5.txt"))) {
            changed = item.get();
        }
    }
    ASSERT_NE(changed, nullptr);
    EXPECT_EQ(changed->valueForKey(QStringLiteral("kMDItemFSSize")), QVariant(5.0));
    writeFile(at("docs/report 5.txt"), std::string(500, 'x'));
    apply({{Kind::Changed, at("docs/report 5.txt")}});
    ASSERT_TRUE(settle());
    EXPECT_EQ(changed->valueForKey(QStringLiteral("kMDItemFSSize")), QVariant(500.0));
    EXPECT_EQ(resets.count(), 0);
    ASSERT_EQ(repainted.count(), 1);  // its row alone
    EXPECT_EQ(repainted.back().at(0).toModelIndex().row(), repainted.back().at(1).toModelIndex().row());
}

TEST_F(QueryController, AQueryThatCannotStartIsStoppedAndItsErrorPresented)
{
    std::vector<Error> presented;
    const ErrorPresenter previous = setErrorPresenter([&](const Error& error) { presented.push_back(error); });
    controller->setExpression(kReports);
    controller->setSearchScopes({QString::fromStdString(root + "/no such folder")});
    controller->startQuery();
    setErrorPresenter(previous);
    EXPECT_EQ(controller->state(), State::Idle);
    ASSERT_EQ(presented.size(), 1u);
    EXPECT_EQ(presented[0].description, QStringLiteral("The search could not start"));
    EXPECT_FALSE(presented[0].reason.isEmpty());
}

// --- The document's columns and sort order ---------------------------------------------------

TEST_F(QueryController, ShowsTheDocumentsColumnsAndSortsByTheFirst)
{
    const ResultTableModel& table = *controller->results();
    ASSERT_EQ(table.columnCount(), 3);
    EXPECT_EQ(table.columns()[0].identifier, QStringLiteral("kMDItemDisplayName"));
    EXPECT_EQ(table.columns()[1].identifier, QStringLiteral("kMDItemKind"));
    EXPECT_EQ(table.columns()[2].identifier, QStringLiteral("kMDItemContentModificationDate"));
    start(kReports);
    ASSERT_TRUE(settle());
    ASSERT_EQ(table.sortDescriptors().size(), 1u);
    EXPECT_EQ(table.sortDescriptors()[0].key, QStringLiteral("kMDItemDisplayName"));
    EXPECT_EQ(resultNames().mid(0, 4), QStringList({"report 0.txt", "report 1.txt", "report 10.txt", "report 11.txt"}));

    // Icons in the name column follow the preference at the next start.
    model::Defaults::shared().setValue(QStringLiteral("showIconsInResults"), false);
    controller->restartQuery();
    ASSERT_TRUE(settle());
    EXPECT_FALSE(table.showsIcons());
}

TEST_F(QueryController, AStoredSortOrderWinsWhenItReads)
{
    model::MetaAttribute* stored =
        model::MetaAttribute::metaAttributeWithKey(QStringLiteral("sortDescriptor"), document.managedObjectContext());
    const presentation::SortDescriptor bySizeDescending{QStringLiteral("kMDItemFSSize"), false,
                                                        presentation::SortDescriptor::Comparison::Default};
    stored->setAttributeValue(presentation::SortDescriptor::archive({bySizeDescending}));
    start(kReports);
    ASSERT_TRUE(settle());
    EXPECT_EQ(controller->results()->sortDescriptors(), std::vector<presentation::SortDescriptor>{bySizeDescending});
    EXPECT_EQ(resultNames().mid(0, 2), QStringList({"report 11.txt", "report 10.txt"}));

    stored->setAttributeValue(QByteArray("not an archive"));
    controller->setUpResultSorting();
    EXPECT_EQ(controller->results()->sortDescriptors()[0].key, QStringLiteral("kMDItemDisplayName"));
}

TEST_F(QueryController, SavingTheLayoutRewritesTheOrderedColumns)
{
    store::ManagedObjectContext& context = document.managedObjectContext();
    ResultTableModel& table = *controller->results();
    table.actionHideShowColumn(model::ColumnAttribute::attributeWithKey(QStringLiteral("kMDItemKind"), context));
    table.actionHideShowColumn(model::ColumnAttribute::attributeWithKey(QStringLiteral("kMDItemFSSize"), context));
    table.actionHideShowColumn(model::ColumnAttribute::attributeWithKey(QStringLiteral("kMDItemPath"), context));
    table.setColumnWidth(0, 220);
    table.setColumnWidth(3, 300);
    table.sort(2, Qt::DescendingOrder);
    controller->saveTableLayout();
    context.processPendingChanges();

    std::vector<model::OrderedColumnAttribute*> columns = model::OrderedColumnAttribute::orderedColumns(context);
    QStringList keys;
    for (model::OrderedColumnAttribute* column : columns) {
        keys << column->columnAttribute()->attributeKey() + QLatin1Char('@') + column->columnWidth().toString();
    }
    EXPECT_EQ(keys, QStringList({"kMDItemDisplayName@220", "kMDItemContentModificationDate@0", "kMDItemFSSize@0",
                                 "kMDItemPath@300"}));
    const model::MetaAttribute* stored = model::MetaAttribute::metaAttributeWithKey(QStringLiteral("sortDescriptor"), context, false);
    ASSERT_NE(stored, nullptr);
    EXPECT_EQ(presentation::SortDescriptor::unarchive(stored->attributeValue().toByteArray()),
              table.sortDescriptors());

    // Fewer columns delete the left-over ones.
    table.removeColumnAt(3);
    table.removeColumnAt(2);
    table.removeColumnAt(1);
    controller->saveTableLayout();
    EXPECT_EQ(model::OrderedColumnAttribute::orderedColumns(context).size(), 1u);

    // A document loaded again shows the saved columns with their widths.
    QSignalSpy autoSized(controller->results(), &ResultTableModel::autoSizeAllColumnsRequested);
    controller->windowDidLoadForDocument(&document);
    ASSERT_EQ(table.columnCount(), 1);
    EXPECT_EQ(table.columns()[0].width, 220);
    EXPECT_EQ(autoSized.count(), 0);
}

TEST_F(QueryController, ADocumentWithoutColumnsShowsTheNameColumnAutoSized)
{
    test::TestDocument bare(false);
    QSignalSpy autoSized(controller->results(), &ResultTableModel::autoSizeAllColumnsRequested);
    controller->windowDidLoadForDocument(&bare);
    ASSERT_EQ(controller->results()->columnCount(), 1);
    EXPECT_EQ(controller->results()->columns()[0].identifier, QStringLiteral("kMDItemDisplayName"));
    EXPECT_EQ(autoSized.count(), 1);
    EXPECT_EQ(model::OrderedColumnAttribute::orderedColumns(bare.managedObjectContext()).size(), 1u);
}

TEST_F(QueryController, AMissingWidthAutoSizesAllColumns)
{
    std::vector<model::OrderedColumnAttribute*> columns =
        model::OrderedColumnAttribute::orderedColumns(document.managedObjectContext());
    for (model::OrderedColumnAttribute* column : columns) {
        column->setColumnWidth(120.0);
    }
    QSignalSpy autoSized(controller->results(), &ResultTableModel::autoSizeAllColumnsRequested);
    controller->windowDidLoadForDocument(&document);
    EXPECT_EQ(autoSized.count(), 0);
    EXPECT_EQ(controller->results()->columns()[1].width, 120);
    columns[1]->setColumnWidth(0.0);
    controller->windowDidLoadForDocument(&document);
    EXPECT_EQ(autoSized.count(), 1);
}

}  // namespace
}  // namespace trovara::query
