#include "query/metadata_query_controller.h"

#include "common/error_presenter.h"
#include "common/log.h"
#include "common/paths.h"
#include "index/live/qt_dispatcher.h"
#include "model/defaults.h"
#include "model/localization.h"
#include "model/meta_attribute.h"
#include "model/ordered_column_attribute.h"
#include "model/platform.h"
#include "model/value_text.h"
#include "presentation/column_formatters.h"
#include "presentation/text_format.h"
#include "query/query_document.h"

#include <QPointer>

namespace trovara::query {

namespace {

using namespace std::chrono_literals;

// Year 1, 1 January, 00:00 UTC in seconds since 2001-01-01 00:00:00 UTC.
constexpr double kFarPastReferenceSeconds = -63113904000.0;

const QString kNameColumn = QStringLiteral("kMDItemDisplayName");

// While gathering, at most this many results are listed in one turn of the
// event loop (the rest on the next ones), so that the window stays
// responsive however fast results come.
constexpr std::size_t kListedPerTurn = 2000;

bool showResultsImmediately()
{
    return model::Defaults::shared().boolValue(QStringLiteral("showResultsImmediately"));
}

// Orders two values of the limit attribute: dates and numbers by value,
// texts by code unit.
int compareScalars(const index::query::Scalar& a, const index::query::Scalar& b)
{
    const auto number = [](const index::query::Scalar& s) -> std::optional<double> {
        if (const auto* date = std::get_if<index::query::Date>(&s)) {
            return date->seconds;
        }
        if (const auto* value = std::get_if<double>(&s)) {
            return *value;
        }
        if (const auto* flag = std::get_if<bool>(&s)) {
            return *flag ? 1.0 : 0.0;
        }
        return std::nullopt;
    };
    const std::optional<double> x = number(a);
    const std::optional<double> y = number(b);
    if (x && y) {
        return *x < *y ? -1 : (*y < *x ? 1 : 0);
    }
    const auto* s = std::get_if<std::string>(&a);
    const auto* t = std::get_if<std::string>(&b);
    if (s && t) {
        const int order = s->compare(*t);
        return order < 0 ? -1 : (order > 0 ? 1 : 0);
    }
    return x ? -1 : (y ? 1 : 0);
}

const index::query::Scalar* firstScalar(const index::SortValues& values)
{
    if (values.empty() || !values.front() || values.front()->elements().empty()) {
        return nullptr;
    }
    return &values.front()->elements().front();
}

}  // namespace

index::LiveQueryBatching MetadataQueryController::fastBatching()
{
    return {5000, 200ms, 5000, 200ms, 5000, 200ms};
}

index::LiveQueryBatching MetadataQueryController::slowBatching()
{
    return {50000, 1000ms, 50000, 1000ms, 5000, 200ms};
}

MetadataQueryController::MetadataQueryController(index::QuerySource& source,
                                                 std::shared_ptr<index::Dispatcher> dispatcher, QObject* parent)
    : QObject(parent)
    , m_source(source)
    , m_dispatcher(dispatcher ? std::move(dispatcher) : std::make_shared<index::QtDispatcher>(this))
    , m_results(new ResultTableModel(this))
    , m_resultController(new ResultController(m_results, this))
    , m_statusLine(model::localized(QStringLiteral("Results")))
    , m_alertPresenter([](const Alert& alert, const std::function<void(int)>& didEnd) {
        TLOG(QStringLiteral("%1 - %2").arg(alert.messageText, alert.informativeText));
        didEnd(0);
    })
{
    // The controller watches its own inputs.
    for (auto input : {&MetadataQueryController::expressionChanged, &MetadataQueryController::searchScopesChanged,
                       &MetadataQueryController::excludedPathsChanged, &MetadataQueryController::limitKeyChanged,
                       &MetadataQueryController::limitValueChanged, &MetadataQueryController::limitAscendingChanged}) {
        connect(this, input, this, &MetadataQueryController::scheduleRestart);
    }
    connect(this, &MetadataQueryController::filterTypeChanged, this, &MetadataQueryController::configureFilterMenu);
    connect(this, &MetadataQueryController::filterStringChanged, this, &MetadataQueryController::updateFilter);
    configureFilterMenu();
}

MetadataQueryController::~MetadataQueryController()
{
    if (m_metadataQuery) {
        m_metadataQuery->stop();
    }
}

void MetadataQueryController::windowDidLoadForDocument(QueryDocument* document)
{
    m_document = document;
    while (m_results->columnCount() > 0) {
        m_results->removeColumnAt(m_results->columnCount() - 1);
    }
    setUpResultColumns();
    configureFilterMenu();
}

// --- Inputs -------------------------------------------------------------------

template <typename T>
void MetadataQueryController::changeInput(T& field, const T& value, void (MetadataQueryController::*changed)())
{
    if (field == value) {
        return;
    }
    field = value;
    emit(this->*changed)();
}

void MetadataQueryController::setExpression(const QString& expression)
{
    // No expression (null) differs from an empty one, though QString
    // compares them equal.
    if (expression.isNull() != m_expression.isNull()) {
        m_expression = expression;
        emit expressionChanged();
        return;
    }
    changeInput(m_expression, expression, &MetadataQueryController::expressionChanged);
}

void MetadataQueryController::setSearchScopes(const QStringList& scopes)
{
    changeInput(m_searchScopes, scopes, &MetadataQueryController::searchScopesChanged);
}

void MetadataQueryController::setExcludedPaths(const QStringList& paths)
{
    m_excludedPathsUtf8.clear();
    for (const QString& path : paths) {
        m_excludedPathsUtf8.push_back(localBytes(path));
    }
    changeInput(m_excludedPaths, paths, &MetadataQueryController::excludedPathsChanged);
}

void MetadataQueryController::setLimitKey(const QString& key)
{
    changeInput(m_limitKey, key, &MetadataQueryController::limitKeyChanged);
}

void MetadataQueryController::setLimitValue(int value)
{
    changeInput(m_limitValue, value, &MetadataQueryController::limitValueChanged);
}

void MetadataQueryController::setLimitAscending(bool ascending)
{
    changeInput(m_limitAscending, ascending, &MetadataQueryController::limitAscendingChanged);
}

void MetadataQueryController::scheduleRestart()
{
    // A later request cancels an earlier one still waiting: one restart per
    // turn of the event loop, however many inputs changed.
    const quint64 request = ++m_restartRequest;
    QMetaObject::invokeMethod(
        this,
        [this, request] {
            if (request == m_restartRequest) {
                restartQuery();
            }
        },
        Qt::QueuedConnection);
}

// --- Quick filter ---------------------------------------------------------------

void MetadataQueryController::setFilterType(int type)
{
    changeInput(m_filterType, type, &MetadataQueryController::filterTypeChanged);
}

void MetadataQueryController::setFilterString(const QString& text)
{
    changeInput(m_filterString, text, &MetadataQueryController::filterStringChanged);
}

void MetadataQueryController::configureFilterMenu()
{
    if (filterKindForTag(m_filterType)) {
        setFilterTypeFrom(m_filterType);
        return;
    }
    m_checkedFilterTag = 0;
    emit filterMenuChanged();
    m_results->setFilterPredicate(std::nullopt);
    m_results->rearrangeObjects();
}

void MetadataQueryController::setFilterTypeFrom(int tag)
{
    const FilterKind* kind = filterKindForTag(tag);
    if (!kind) {
        return;
    }
    m_filterType = tag;  // directly: the filter menu is already in place
    m_filterPlaceholder = model::localized(QString::fromLatin1(kind->title));
    m_checkedFilterTag = tag;
    emit filterMenuChanged();
    updateFilter();
}

void MetadataQueryController::updateFilter()
{
    const FilterKind* kind = filterKindForTag(m_filterType);
    if (m_filterString.isEmpty() || !kind) {
        m_results->setFilterPredicate(std::nullopt);
    } else {
        m_results->setFilterPredicate(ResultFilter(*kind, m_filterString));
    }
    m_results->rearrangeObjects();
    updateStatusLine();
}

// --- State ------------------------------------------------------------------------

MetadataQueryController::State MetadataQueryController::state() const
{
    if (!m_isAlive) {
        return State::Idle;
    }
    return m_isGathering ? State::Gathering : State::Live;
}

void MetadataQueryController::setGathering(bool gathering)
{
    if (gathering == m_isGathering) {
        return;
    }
    m_isGathering = gathering;
    emit stateChanged(state());
}

void MetadataQueryController::setBusy(bool busy)
{
    if (busy == m_busy) {
        return;
    }
    m_busy = busy;
    emit busyChanged(busy);
}

void MetadataQueryController::setStatusLine(const QString& line)
{
    if (line == m_statusLine) {
        return;
    }
    m_statusLine = line;
    emit statusLineChanged(line);
}

// --- Run control ---------------------------------------------------------------------

QString MetadataQueryController::finalQueryString(const QString& expression, bool includeInvisibleFiles)
{
    QString query = expression;
    if (static_cast<long long>(model::platform::toolkitVersion()) <= 949) {
        // The older index needs a clause that matches every item.
        const QString farPast = model::descriptionOf(QVariant::fromValue(static_cast<float>(kFarPastReferenceSeconds)));
        query = QStringLiteral("(%1) && ((kMDItemLastUsedDate >= '%2') || (kMDItemLastUsedDate = null) || "
                               "(kMDItemFSCreationDate >= '%2'))")
                    .arg(query, farPast);
    }
    if (includeInvisibleFiles && !query.contains(QLatin1String("kMDItemFSInvisible"))) {
        query = QStringLiteral("(%1) && ((kMDItemFSInvisible = '0') || (kMDItemFSInvisible = '1') || "
                               "(kMDItemFSInvisible = null))")
                    .arg(query);
    }
    return query;
}

bool MetadataQueryController::isExcludedPath(std::string_view path, const std::vector<std::string>& excludedPaths)
{
    for (const std::string& excluded : excludedPaths) {
        if (excluded == "/") {
            bool elsewhere = false;
            for (const char* root : model::platform::kOtherVolumeRoots) {
                elsewhere = elsewhere || path.starts_with(root);
            }
            if (!elsewhere) {
                return true;
            }
        } else if (path.starts_with(excluded)) {
            return true;
        }
    }
    return false;
}

int MetadataQueryController::compareLimitValues(const index::SortValues& a, const index::SortValues& b,
                                                bool ascending)
{
    const index::query::Scalar* x = firstScalar(a);
    const index::query::Scalar* y = firstScalar(b);
    if (!x) {
        return y ? -1 : 0;
    }
    if (!y) {
        return 1;
    }
    const int order = compareScalars(*x, *y);
    return ascending ? order : -order;
}

std::shared_ptr<void> MetadataQueryController::createResult(const index::ItemRef& item)
{
    if (isExcludedPath(item.path(), m_excludedPathsUtf8)) {
        ++m_ignoredCount;
        return nullptr;
    }
    return std::make_shared<ResultItem>(item, m_document);
}

void MetadataQueryController::startQuery(bool alternateKeyDown)
{
    if (m_metadataQuery || m_expression.isNull() || m_searchScopes.isEmpty()) {
        return;
    }
    // The query starts from the inputs as they are now: a restart still
    // waiting for their last changes has nothing left to do.
    ++m_restartRequest;
    m_ignoredCount = 0;
    m_results->setContent({});
    m_listedCount = 0;
    prepareColumns();

    bool includeInvisibleFiles = model::Defaults::shared().boolValue(QStringLiteral("includeInvisibleFiles"));
    if (alternateKeyDown) {
        includeInvisibleFiles = !includeInvisibleFiles;
    }
    index::LiveQueryOptions options;
    options.query = finalQueryString(m_expression, includeInvisibleFiles).toStdString();
    options.createResult = [this](const index::ItemRef& item) { return createResult(item); };
    options.updateResult = [](const std::shared_ptr<void>& result, const index::ItemRef& item) {
        static_cast<ResultItem*>(result.get())->setMetaDataItem(item);
    };
    if (m_limitValue > 0) {
        options.sortingAttributes = {m_limitKey.toStdString()};
        options.comparator = [ascending = m_limitAscending](const index::SortValues& a, const index::SortValues& b) {
            return compareLimitValues(a, b, ascending);
        };
        // Excluded results would use up a cap on the query itself; with
        // exclusions the limit is applied when the list is built.
        if (m_excludedPaths.isEmpty()) {
            options.maxCount = static_cast<std::size_t>(m_limitValue);
        }
    }
    for (const QString& scope : m_searchScopes) {
        options.scopes.push_back(localBytes(scope));  // byte for byte, UTF-8 or not
    }
    options.batching = showResultsImmediately() ? fastBatching() : slowBatching();
    if (m_batchingOverride) {
        options.batching = *m_batchingOverride;
    }
    m_queryString = QString::fromStdString(options.query);

    setMetadataQuery(std::make_unique<index::LiveQuery>(m_source, m_dispatcher, std::move(options)));
    const index::Expected<void> executed = m_metadataQuery->execute();
    if (!executed) {
        stopQuery();
        presentError(Error::make(Error::kNone, model::localized(QStringLiteral("The search could not start")),
                                 QString::fromStdString(executed.error().message)));
    }
}

void MetadataQueryController::stopQuery()
{
    if (!m_metadataQuery) {
        return;
    }
    setMetadataQuery(nullptr);
    m_queryString.clear();
    m_ignoredCount = 0;
    m_results->setContent({});
    setBusy(false);
    setFilterString(QString(QLatin1String("")));
    setStatusLine(model::localized(QStringLiteral("Results")));
}

void MetadataQueryController::restartQuery()
{
    if (!m_isAlive) {
        return;
    }
    stopQuery();
    startQuery();
}

void MetadataQueryController::setMetadataQuery(std::unique_ptr<index::LiveQuery> query)
{
    if (m_metadataQuery) {
        // No notification comes after stop(); the object itself goes on the
        // next turn, as this may run inside one of its notifications.
        m_metadataQuery->stop();
        m_retiredQueries.push_back(std::move(m_metadataQuery));
        QMetaObject::invokeMethod(this, [this] { m_retiredQueries.clear(); }, Qt::QueuedConnection);
    }
    const bool wasAlive = m_isAlive;
    m_metadataQuery = std::move(query);
    m_isAlive = m_metadataQuery != nullptr;
    if (!m_isAlive) {
        m_isGathering = false;
    }
    if (m_metadataQuery) {
        m_metadataQuery->onProgress = [this] { queryDidProgress(); };
        m_metadataQuery->onFinished = [this] { queryDidFinishGathering(); };
        m_metadataQuery->onUpdate = [this](const index::LiveQuery::Update& update) { queryDidUpdate(update); };
        if (!wasAlive) {
            queryDidStart();
        }
    }
    if (wasAlive != m_isAlive) {
        emit stateChanged(state());
    }
}

void MetadataQueryController::queryDidStart()
{
    m_isGathering = true;
    m_listedCount = 0;
    m_listingDue = false;
    m_results->setContent({});
    setBusy(true);
    updateStatusLine();
}

void MetadataQueryController::queryDidProgress()
{
    // The query neither stores nor counts an excluded result: its count
    // is already net of ignoredCount().
    if (m_metadataQuery->resultCount() >= static_cast<std::size_t>(m_resultCap)) {
        stopQuery();
        const Alert alert{
            presentation::stringWithFormat(model::localized(QStringLiteral("Your query produced more than %d matches")),
                                           {m_resultCap}),
            model::localized(QStringLiteral("Please refine your criteria")),
            {model::localized(QStringLiteral("OK"))},
        };
        m_alertPresenter(alert, [self = QPointer<MetadataQueryController>(this)](int) {
            if (self) {
                self->tooManyMatchesSheetDidEnd();
            }
        });
        return;
    }
    setGathering(true);
    if (showResultsImmediately()) {
        scheduleListing();
    } else {
        updateStatusLine();
    }
}

void MetadataQueryController::scheduleListing()
{
    if (m_listingDue) {
        return;
    }
    m_listingDue = true;
    QMetaObject::invokeMethod(
        this,
        [self = QPointer<MetadataQueryController>(this)] {
            if (!self || !self->m_listingDue) {
                return;  // listed already (gathering ended, or the query stopped)
            }
            self->m_listingDue = false;
            if (!self->m_metadataQuery || !self->m_isGathering) {
                return;
            }
            const bool wasEmpty = self->m_results->content().empty();
            if (!self->listNewResults(kListedPerTurn)) {
                self->scheduleListing();  // the rest on the next turn
            }
            if (wasEmpty && self->m_results->rowCount() > 0 && !self->m_results->selectedObject()) {
                self->m_results->setSelectionIndex(0);
            }
            self->updateStatusLine();
        },
        Qt::QueuedConnection);
}

bool MetadataQueryController::listNewResults(std::size_t atMost)
{
    m_listingDue = false;
    if (!m_metadataQuery) {
        return true;
    }
    const index::LiveQuery& query = *m_metadataQuery;
    const auto count = static_cast<long long>(query.resultCount());
    const auto& content = m_results->content();
    // Without a limit the query only appends while it gathers: the list is
    // its first m_listedCount results, unless something went meanwhile.
    const bool follows = m_limitValue <= 0 && m_listedCount >= 0 && m_listedCount <= count
                         && count <= m_resultCap && static_cast<long long>(content.size()) == m_listedCount
                         && (m_listedCount == 0
                             || query.resultAt(static_cast<std::size_t>(m_listedCount - 1)).get() == content.back().get());
    if (!follows) {
        reloadResults();
        return true;
    }
    const auto end = static_cast<std::size_t>(m_listedCount)
                     + std::min(static_cast<std::size_t>(count - m_listedCount), atMost);
    std::vector<std::shared_ptr<ResultItem>> added;
    added.reserve(end - static_cast<std::size_t>(m_listedCount));
    for (auto i = static_cast<std::size_t>(m_listedCount); i < end; ++i) {
        if (std::shared_ptr<void> result = query.resultAt(i)) {
            added.push_back(std::static_pointer_cast<ResultItem>(std::move(result)));
        }
    }
    m_listedCount = static_cast<long long>(end);
    m_results->addContent(std::move(added));
    return end == static_cast<std::size_t>(count);
}

void MetadataQueryController::tooManyMatchesSheetDidEnd()
{
    stopQuery();
}

void MetadataQueryController::queryDidFinishGathering()
{
    prepareColumns();
    const bool wasEmpty = m_results->content().empty();
    listNewResults();
    // Results that all came before their first listing select the first
    // one too, as when they come in several listings.
    if (showResultsImmediately() && wasEmpty && m_results->rowCount() > 0 && !m_results->selectedObject()) {
        m_results->setSelectionIndex(0);
    }
    setGathering(false);
    updateStatusLine();
    setBusy(false);
}

void MetadataQueryController::queryDidUpdate(const index::LiveQuery::Update& update)
{
    emit busyIndicatorStepped();
    const auto count = static_cast<long long>(m_metadataQuery->resultCount());
    const auto listed = static_cast<long long>(m_results->content().size());
    // Without a limit the update names every result that came, went or
    // changed: those alone are touched.
    if (m_limitValue <= 0 && m_listedCount >= 0 && count <= m_resultCap
        && listed + static_cast<long long>(update.added.size()) - static_cast<long long>(update.removed.size())
               == count) {
        const auto results = [](const std::vector<std::shared_ptr<void>>& list) {
            std::vector<std::shared_ptr<ResultItem>> items;
            items.reserve(list.size());
            for (const std::shared_ptr<void>& result : list) {
                items.push_back(std::static_pointer_cast<ResultItem>(result));
            }
            return items;
        };
        m_results->applyChanges(results(update.added), results(update.removed), results(update.changed));
        m_listedCount = count;
    } else {
        reloadResults();
    }
    updateStatusLine();
}

void MetadataQueryController::reloadResults()
{
    m_listingDue = false;
    m_listedCount = -1;
    if (!m_metadataQuery) {
        return;
    }
    index::LiveQuery& query = *m_metadataQuery;
    query.suspendUpdates();
    const std::size_t count = query.resultCount();
    const std::size_t cap = m_limitValue > 0 && count > static_cast<std::size_t>(m_limitValue)
                                ? static_cast<std::size_t>(m_limitValue)
                                : static_cast<std::size_t>(m_resultCap);
    std::vector<std::shared_ptr<ResultItem>> list;
    list.reserve(std::min(count, cap));
    for (std::size_t i = 0; i < count && list.size() < cap; ++i) {
        if (std::shared_ptr<void> result = query.resultAt(i)) {
            list.push_back(std::static_pointer_cast<ResultItem>(std::move(result)));
        }
    }
    // The list follows the query's order as long as nothing was left out.
    m_listedCount = list.size() == count ? static_cast<long long>(count) : -1;
    m_results->setContent(std::move(list));
    query.resumeUpdates();
}

void MetadataQueryController::updateStatusLine()
{
    long long total = m_metadataQuery ? static_cast<long long>(m_metadataQuery->resultCount()) : 0;
    if (m_limitValue > 0 && total > m_limitValue) {
        total = m_limitValue;
    }
    const long long shown = static_cast<long long>(m_results->arrangedObjects().size());
    QString line;
    if (total == 0) {
        line = model::localized(m_isGathering ? QStringLiteral("Searching…") : QStringLiteral("No files found"));
    } else {
        if (m_filterString.isEmpty()) {
            line = presentation::stringWithFormat(
                model::localized(QStringLiteral("%i %@")),
                {total, model::localized(total == 1 ? QStringLiteral("file found") : QStringLiteral("files found"))});
        } else {
            line = presentation::stringWithFormat(model::localized(QStringLiteral("%i of %i shown")), {shown, total});
        }
        if (m_isGathering) {
            line += QStringLiteral("…");
        }
    }
    setStatusLine(line);
}

// --- Columns and sorting ------------------------------------------------------------------

void MetadataQueryController::setUpResultSorting()
{
    if (m_document) {
        const model::MetaAttribute* stored = model::MetaAttribute::metaAttributeWithKey(
            QStringLiteral("sortDescriptor"), m_document->managedObjectContext(), false);
        if (stored && stored->attributeValue().isValid()) {
            if (auto descriptors = presentation::SortDescriptor::unarchive(stored->attributeValue().toByteArray())) {
                m_results->setSortDescriptors(std::move(*descriptors));
                return;
            }
        }
    }
    std::vector<presentation::SortDescriptor> descriptors;
    if (!m_results->columns().empty()) {
        descriptors.push_back(m_results->columns().front().sortDescriptorPrototype);
    }
    m_results->setSortDescriptors(std::move(descriptors));
}

void MetadataQueryController::setUpResultColumns()
{
    if (!m_document) {
        return;
    }
    store::ManagedObjectContext& context = m_document->managedObjectContext();
    std::vector<model::OrderedColumnAttribute*> ordered = model::OrderedColumnAttribute::orderedColumns(context);
    if (ordered.empty()) {
        if (model::OrderedColumnAttribute* name = model::OrderedColumnAttribute::createOrderedColumnAttributeWith(
                model::ColumnAttribute::attributeWithKey(kNameColumn, context))) {
            ordered.push_back(name);
        }
    }
    bool autoSize = false;
    for (model::OrderedColumnAttribute* entry : ordered) {
        model::ColumnAttribute* attribute = entry->columnAttribute();
        if (!attribute) {
            continue;
        }
        int column = m_results->columnForIdentifier(attribute->attributeKey());
        if (column < 0) {
            column = m_results->addColumnForColumnAttribute(attribute);
        }
        const double width = entry->columnWidth().toDouble();
        if (width > 0) {
            m_results->setColumnWidth(column, width);
        } else {
            autoSize = true;
        }
    }
    if (autoSize) {
        m_results->autoSizeAllColumns();
    }
    m_results->applyRowHeightPreference();
}

void MetadataQueryController::prepareColumns()
{
    m_results->setShowsIcons(model::Defaults::shared().boolValue(QStringLiteral("showIconsInResults")));
    m_results->applyRowHeightPreference();
    setUpResultSorting();
}

void MetadataQueryController::saveTableLayout()
{
    if (!m_document) {
        return;
    }
    store::ManagedObjectContext& context = m_document->managedObjectContext();
    if (model::MetaAttribute* stored =
            model::MetaAttribute::metaAttributeWithKey(QStringLiteral("sortDescriptor"), context)) {
        stored->setAttributeValue(presentation::SortDescriptor::archive(m_results->sortDescriptors()));
    }
    std::vector<model::OrderedColumnAttribute*> existing = model::OrderedColumnAttribute::orderedColumns(context);
    std::size_t used = 0;
    for (const ResultTableModel::Column& column : m_results->columns()) {
        model::ColumnAttribute* attribute = model::ColumnAttribute::attributeWithKey(column.identifier, context);
        model::OrderedColumnAttribute* entry = used < existing.size()
                                                   ? existing[used]
                                                   : model::OrderedColumnAttribute::createOrderedColumnAttributeWith(attribute);
        if (!entry) {
            continue;
        }
        ++used;
        entry->setColumnAttribute(attribute);
        entry->setColumnWidth(column.width);
    }
    for (std::size_t i = used; i < existing.size(); ++i) {
        context.deleteObject(existing[i]);
    }
}

}  // namespace trovara::query
