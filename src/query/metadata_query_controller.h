// Runs one live query for one document and turns its raw results into the
// document's result list.
//
// Inputs (set by the document): the criteria expression, the search scopes
// (folders, or the named scopes kMDQueryScopeHome/Computer/Network), the
// excluded paths and the limit (the limitValue first or last results by
// the date attribute limitKey). While a query is alive, any change of an
// input restarts it once, on the next turn of the event loop, however many
// inputs changed in that turn; while idle, changes only update the inputs.
// A setter that does not change its input changes nothing.
//
// States: Idle (no query), Gathering (the query delivers its first
// results, in batches), Live (gathering is done; the query follows the
// files' changes). startQuery() goes from Idle to Gathering, the end of
// gathering to Live, stopQuery() back to Idle.
//
// The result list (resultArray(), the content of results()) follows the
// query: the results of the batches that came during one turn of the event
// loop are added together on the next (when "showResultsImmediately" is on),
// the rest at the end of gathering, and each live change adds, removes or
// updates only the results it names: at most limitValue results when a
// limit is set, never more than 50000. A query that reaches 50000 results
// (after exclusions) is stopped and the alert "Your query produced more
// than 50000 matches" is shown through the alert presenter. The status
// line above the results says where things stand ("Searching…",
// "No files found", "12 files found…", "3 of 12 shown").
//
// Exclusions: a result whose path begins with an excluded path (a plain
// text prefix: excluding /home/ann also excludes /home/anna) is dropped
// when the query first sees it, and counted in ignoredCount(); the
// excluded path "/" keeps only results on other volumes (below /media/,
// /run/media/ or /mnt/).
//
// The query runs through a QuerySource (the in-process index now, the index
// service later); its notifications arrive through a dispatcher on this
// object's thread (by default this object's event loop).
//
// Not thread-safe: use it on the thread it lives on.
#pragma once

#include "index/live/live_query.h"
#include "query/alert.h"
#include "query/result_controller.h"
#include "query/result_item.h"
#include "query/result_table_model.h"

#include <QObject>
#include <QStringList>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace trovara::query {

class QueryDocument;

class MetadataQueryController final : public QObject {
    Q_OBJECT
    Q_PROPERTY(QString expression READ expression WRITE setExpression NOTIFY expressionChanged)
    Q_PROPERTY(QStringList searchScopes READ searchScopes WRITE setSearchScopes NOTIFY searchScopesChanged)
    Q_PROPERTY(QStringList excludedPaths READ excludedPaths WRITE setExcludedPaths NOTIFY excludedPathsChanged)
    Q_PROPERTY(QString limitKey READ limitKey WRITE setLimitKey NOTIFY limitKeyChanged)
    Q_PROPERTY(int limitValue READ limitValue WRITE setLimitValue NOTIFY limitValueChanged)
    Q_PROPERTY(bool limitAscending READ limitAscending WRITE setLimitAscending NOTIFY limitAscendingChanged)
    Q_PROPERTY(int filterType READ filterType WRITE setFilterType NOTIFY filterTypeChanged)
    Q_PROPERTY(QString filterString READ filterString WRITE setFilterString NOTIFY filterStringChanged)
    Q_PROPERTY(bool isAlive READ isAlive NOTIFY stateChanged)
    Q_PROPERTY(bool isGathering READ isGathering NOTIFY stateChanged)
    Q_PROPERTY(QString statusLine READ statusLine NOTIFY statusLineChanged)
    Q_PROPERTY(bool busy READ isBusy NOTIFY busyChanged)

public:
    // At most this many results are listed; a query that reaches it stops.
    static constexpr int kResultCap = 50000;
    enum class State { Idle, Gathering, Live };
    Q_ENUM(State)

    // Batching while "showResultsImmediately" is on (fast) or off (slow).
    static index::LiveQueryBatching fastBatching();
    static index::LiveQueryBatching slowBatching();

    explicit MetadataQueryController(index::QuerySource& source, std::shared_ptr<index::Dispatcher> dispatcher = {},
                                     QObject* parent = nullptr);
    ~MetadataQueryController() override;

    // Attaches the document: sets up its columns (replacing any) and the
    // filter menu.
    void windowDidLoadForDocument(QueryDocument* document);
    QueryDocument* document() const { return m_document; }

    // --- Inputs ------------------------------------------------------------
    // A null expression means none (the query cannot start).
    const QString& expression() const { return m_expression; }
    void setExpression(const QString& expression);
    const QStringList& searchScopes() const { return m_searchScopes; }
    void setSearchScopes(const QStringList& scopes);
    // Empty: nothing excluded.
    const QStringList& excludedPaths() const { return m_excludedPaths; }
    void setExcludedPaths(const QStringList& paths);
    const QString& limitKey() const { return m_limitKey; }
    void setLimitKey(const QString& key);
    // 0 or less: no limit.
    int limitValue() const { return m_limitValue; }
    void setLimitValue(int value);
    // Keep the earliest (true) or the latest (false) dates.
    bool limitAscending() const { return m_limitAscending; }
    void setLimitAscending(bool ascending);

    // --- Quick filter ----------------------------------------------------------
    // One of the tags of result_filter.h (100 at first).
    int filterType() const { return m_filterType; }
    void setFilterType(int type);
    const QString& filterString() const { return m_filterString; }
    void setFilterString(const QString& text);
    // Applies the filter kind's menu item when the filter type has one,
    // else removes the filter.
    void configureFilterMenu();
    // The menu item with the tag was chosen: takes its tag as filter type
    // (without running configureFilterMenu() again), shows its title as the
    // filter field's placeholder, checks it, and filters.
    void setFilterTypeFrom(int tag);
    // Filters by the current type and text (none while the text is empty or
    // the type unknown), then rewrites the status line.
    void updateFilter();
    // The filter field's placeholder, and the menu item checked (0: none).
    const QString& filterPlaceholder() const { return m_filterPlaceholder; }
    int checkedFilterTag() const { return m_checkedFilterTag; }

    // --- State -------------------------------------------------------------------
    State state() const;
    bool isAlive() const { return m_isAlive; }
    bool isGathering() const { return m_isGathering; }
    bool isBusy() const { return m_busy; }
    int ignoredCount() const { return m_ignoredCount; }
    index::LiveQuery* metadataQuery() const { return m_metadataQuery.get(); }
    const std::vector<std::shared_ptr<ResultItem>>& resultArray() const { return m_results->content(); }
    ResultTableModel* results() const { return m_results; }
    ResultController* resultController() const { return m_resultController; }
    ResultItem* selectedResult() const { return m_results->selectedObject(); }
    const QString& statusLine() const { return m_statusLine; }
    // The final query string of the running query (empty while idle).
    const QString& queryString() const { return m_queryString; }

    // --- Run control -------------------------------------------------------------
    // Starts a query when none runs, the expression is not null and there
    // are scopes. `alternateKeyDown`: the modifier that inverts
    // "includeInvisibleFiles" was held in the event that started it. A
    // query that cannot start (a scope folder that does not exist) is
    // stopped again and its error presented.
    void startQuery(bool alternateKeyDown = false);
    void stopQuery();
    // Stops and starts again, when alive.
    void restartQuery();
    // Rebuilds the result list from the query (updates held meanwhile).
    void reloadResults();
    void updateStatusLine();

    // --- Columns and sorting (the document's) ---------------------------------------
    // The stored "sortDescriptor" when there is one that reads, else the
    // first column's sort prototype alone.
    void setUpResultSorting();
    // The document's ordered columns (the name column when there are none),
    // with their stored widths; auto-sizes when a width is missing.
    void setUpResultColumns();
    // Before each start and at the end of gathering: icons in the name
    // column per "showIconsInResults", the row height, the sort order.
    void prepareColumns();
    // Writes the sort order under "sortDescriptor" and the current columns,
    // left to right with their widths, over the document's ordered columns.
    void saveTableLayout();

    // Where alerts go (by default: the log, dismissed at once).
    void setAlertPresenter(AlertPresenter presenter) { m_alertPresenter = std::move(presenter); }
    void setResultCapForTesting(int cap) { m_resultCap = cap; }
    void setBatchingForTesting(std::optional<index::LiveQueryBatching> batching) { m_batchingOverride = batching; }

    // --- The pieces of a query, by themselves ---------------------------------------
    // The expression with the clauses the controller adds: the compatibility
    // clause on an older toolkit, and the invisible-files clause when
    // `includeInvisibleFiles` and the expression does not mention
    // kMDItemFSInvisible.
    static QString finalQueryString(const QString& expression, bool includeInvisibleFiles);
    // Whether the excluded paths drop a result at this path.
    static bool isExcludedPath(std::string_view path, const std::vector<std::string>& excludedPaths);
    // The limit's order of two results by their limitKey values: results
    // without a value first, in either direction.
    static int compareLimitValues(const index::SortValues& a, const index::SortValues& b, bool ascending);

signals:
    void expressionChanged();
    void searchScopesChanged();
    void excludedPathsChanged();
    void limitKeyChanged();
    void limitValueChanged();
    void limitAscendingChanged();
    void filterTypeChanged();
    void filterStringChanged();
    void filterMenuChanged();
    void stateChanged(trovara::query::MetadataQueryController::State state);
    void statusLineChanged(const QString& statusLine);
    void busyChanged(bool busy);
    // A live change arrived (the busy indicator moves one step).
    void busyIndicatorStepped();

private:
    // Sets an input and tells its observers, unless it is unchanged.
    template <typename T>
    void changeInput(T& field, const T& value, void (MetadataQueryController::*changed)());
    void scheduleRestart();
    void setMetadataQuery(std::unique_ptr<index::LiveQuery> query);
    void queryDidStart();
    void queryDidProgress();
    void queryDidFinishGathering();
    void queryDidUpdate(const index::LiveQuery::Update& update);
    // Lists what the query found since the last listing, at most `atMost`
    // of it; the whole list again when it cannot follow the query's order
    // by appending. True when everything found is listed.
    bool listNewResults(std::size_t atMost = SIZE_MAX);
    // The listing of the results that came during gathering, once per turn
    // of the event loop however many batches came in it.
    void scheduleListing();
    void tooManyMatchesSheetDidEnd();
    std::shared_ptr<void> createResult(const index::ItemRef& item);
    void setGathering(bool gathering);
    void setBusy(bool busy);
    void setStatusLine(const QString& line);

    index::QuerySource& m_source;
    std::shared_ptr<index::Dispatcher> m_dispatcher;
    QueryDocument* m_document = nullptr;
    std::unique_ptr<index::LiveQuery> m_metadataQuery;
    // Stopped queries wait here for the next turn of the event loop: a
    // query may be stopped from inside its own notification.
    std::vector<std::unique_ptr<index::LiveQuery>> m_retiredQueries;
    bool m_isAlive = false;
    bool m_isGathering = false;
    bool m_busy = false;

    QString m_expression;
    QStringList m_searchScopes;
    QStringList m_excludedPaths;
    std::vector<std::string> m_excludedPathsUtf8;
    QString m_limitKey;
    int m_limitValue = 0;
    bool m_limitAscending = false;
    int m_ignoredCount = 0;
    int m_resultCap = kResultCap;
    std::optional<index::LiveQueryBatching> m_batchingOverride;
    QString m_queryString;
    // How many of the query's results the list holds, in the query's order
    // (-1: the list does not follow the query's order; it is rebuilt).
    long long m_listedCount = -1;
    bool m_listingDue = false;

    int m_filterType = 100;
    QString m_filterString;
    QString m_filterPlaceholder;
    int m_checkedFilterTag = 0;

    ResultTableModel* m_results;
    ResultController* m_resultController;
    QString m_statusLine;
    AlertPresenter m_alertPresenter;
    quint64 m_restartRequest = 0;
};

}  // namespace trovara::query
