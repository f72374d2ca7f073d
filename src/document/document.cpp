#include "document/document.h"

#include "common/error_presenter.h"
#include "common/log.h"
#include "common/paths.h"
#include "document/document_store.h"
#include "store/sqlite_store.h"
#include "document/template_item.h"
#include "model/abstract_attribute.h"
#include "model/defaults.h"
#include "model/document_model.h"
#include "model/meta_attribute.h"
#include "model/metadata_schema.h"
#include "model/ordered_column_attribute.h"
#include "model/preferred_location.h"
#include "model/query_leaf.h"
#include "model/relational_operator.h"
#include "model/scope.h"

#include <QDir>
#include <QFileInfo>
#include <QPointer>
#include <QRegularExpression>
#include <QTimer>

#include <unistd.h>

namespace trovara::document {

namespace {

const QString kRunState = QStringLiteral("runState");
const QString kResultsView = QStringLiteral("resultsView");
const QString kSearchFilterType = QStringLiteral("searchFilterType");
const QString kSearchFilterString = QStringLiteral("searchFilterString");
const QString kKeywordsKey = QStringLiteral("kMDItemKeywords");
const QString kDisplayName = QStringLiteral("kMDItemDisplayName");
const QString kTextContent = QStringLiteral("kMDItemTextContent");
const QString kAnyText = QStringLiteral("*");

// Cleared by the first check of a new document in the life of the process.
bool g_skipNextSpotlightCheck = true;

bool isTextLeaf(const model::QueryLeaf& leaf)
{
    const model::QueryAttribute* attribute = leaf.queryAttribute();
    if (!attribute) {
        return false;
    }
    const QString key = attribute->attributeKey();
    return key == kTextContent || key == kAnyText;
}

void collectSearchTerms(const std::vector<model::QueryItem*>& items, bool negate, bool wantFirst, QString* first,
                        QStringList* terms)
{
    for (model::QueryItem* item : items) {
        if (!item->isLeaf()) {
            auto* node = static_cast<model::QueryNode*>(item);
            // Words under a NONE group are highlighted like all others: the
            // flag is carried along but filters nothing.
            const bool childNegate = node->operatorName() == QLatin1String("NOT") ? !negate : negate;
            collectSearchTerms(node->children(), childNegate, wantFirst, first, terms);
            continue;
        }
        auto* leaf = static_cast<model::QueryLeaf*>(item);
        const QString text = leaf->queryString().toString();
        if (!isTextLeaf(*leaf) || text.isEmpty()) {
            continue;
        }
        if (wantFirst && first->isNull()) {
            *first = text;
        }
        if (leaf->relationalOperator() == model::RelationalOperator::containsPhraseOperator()) {
            terms->append(text);
        } else {
            static const QRegularExpression whiteSpace(QStringLiteral("[\\s\\n]"));
            terms->append(text.split(whiteSpace));
        }
    }
}

model::QueryLeaf* makeLeaf(store::ManagedObjectContext& context, model::QueryNode* parent, const QString& key,
                           int sortIndex, const model::RelationalOperator* op = nullptr,
                           const QString& text = QString())
{
    auto* leaf = context.insert<model::QueryLeaf>();
    leaf->setParent(parent);
    leaf->setSortIndexValue(sortIndex);
    leaf->setQueryAttribute(model::QueryAttribute::attributeWithKey(key, context));
    leaf->setQueryValues();
    if (op) {
        leaf->setQueryOperator(op->representation());
    }
    leaf->setQueryString(text.isNull() ? QString(QLatin1String("")) : text);
    return leaf;
}

bool isInsideFolder(const QString& path, const QString& folder)
{
    const QString file = QDir::cleanPath(QFileInfo(path).absoluteFilePath());
    QString prefix = QDir::cleanPath(QFileInfo(folder).absoluteFilePath());
    if (!prefix.endsWith(QLatin1Char('/'))) {
        prefix += QLatin1Char('/');
    }
    return file.startsWith(prefix);
}

}  // namespace

Document::Document(index::QuerySource& source, std::shared_ptr<index::Dispatcher> dispatcher, QObject* parent)
    : QObject(parent)
    , m_source(source)
    , m_context(model::makeDocumentContext())
    , m_controller(std::make_unique<query::MetadataQueryController>(source, std::move(dispatcher)))
{
    using Controller = query::MetadataQueryController;
    for (auto signal : {&Controller::expressionChanged, &Controller::searchScopesChanged}) {
        connect(m_controller.get(), signal, this, &Document::runControlChanged);
    }
    connect(m_controller.get(), &Controller::stateChanged, this, [this] { emit runControlChanged(); });
}

Document::~Document()
{
    m_controller->stopQuery();
}

// --- Making a document ------------------------------------------------------------

Error Document::spotlightStatusError()
{
    const QString text = QStringLiteral("No response from Spotlight");
    return Error::make(0, text, text, QStringLiteral("Either Spotlight is disabled or the index needs rebuilding"));
}

bool Document::checkSpotlightStatus(bool skipFirst)
{
    if (skipFirst && g_skipNextSpotlightCheck) {
        g_skipNextSpotlightCheck = false;
        return true;
    }
    if (model::MetadataSchema::current().metaAttributes(kDisplayName)) {
        return true;
    }
    presentError(spotlightStatusError());
    return false;
}

void Document::resetSpotlightCheckForTesting()
{
    g_skipNextSpotlightCheck = true;
}

Status Document::initWithType()
{
    // A failed check is shown, and the document is still made.
    checkSpotlightStatus(true);
    const QString preferred = model::Defaults::shared().stringValue(QStringLiteral("preferredTemplate"));
    if (!preferred.isEmpty() && QFileInfo(preferred).isFile()) {
        if (Status loaded = loadFromURL(preferred); loaded) {
            m_templateURL = QFileInfo(preferred).absoluteFilePath();
            m_templateName = documentNameForPath(preferred);
            clearChangesLater();
            return {};
        } else {
            // A preferred template that does not read is no reason to refuse
            // a new document: it gets the defaults instead.
            presentError(loaded.error());
        }
    }
    fillNewDocument();
    return {};
}

void Document::fillNewDocument()
{
    store::ManagedObjectContext& context = *m_context;
    store::UndoManager& undo = context.undoManager();
    undo.disableUndoRegistration();

    model::QueryNode* root = model::QueryNode::rootNodeInContext(context);
    if (root) {
        root->setOperatorName(QStringLiteral("AND"));
        const bool textFirst = model::Defaults::shared().boolValue(QStringLiteral("listTextContentFirst"));
        makeLeaf(context, root, kDisplayName, textFirst ? 1 : 0);
        makeLeaf(context, root, kTextContent, textFirst ? 0 : 1);
        makeLeaf(context, root, kAnyText, 2);
        makeLeaf(context, root, QStringLiteral("kMDItemContentModificationDate"), 3);
        makeLeaf(context, root, QStringLiteral("kMDItemContentTypeTree"), 4, model::RelationalOperator::isOperator());
    }
    for (const char* key : {"*", "kMDItemContentTypeTree", "kMDItemDisplayName", "kMDItemContentModificationDate",
                            "kMDItemContentCreationDate", "kMDItemFSInvisible", "kMDItemFSSize", "kMDItemLastUsedDate",
                            "kMDItemTextContent", "kMDItemFinderComment", "kMDItemContentType", "kMDItemFSLabel"}) {
        model::QueryAttribute::attributeWithKey(QString::fromLatin1(key), context);
    }
    for (const char* key : {"kMDItemOMUserTags", "kOMUserTags"}) {
        const QString tagKey = QString::fromLatin1(key);
        const QString name = model::MetadataSchema::current().displayName(tagKey);
        if (!name.isEmpty() && name != tagKey) {
            model::QueryAttribute::attributeWithKey(tagKey, context);
            break;
        }
    }

    // The places marked default, else the home folder.
    std::vector<model::PreferredLocation> locations;
    const QByteArray archived = model::Defaults::shared().value(QStringLiteral("preferredLocations")).toByteArray();
    if (Result<std::vector<model::PreferredLocation>> read = model::PreferredLocation::unarchive(archived); read) {
        locations = std::move(read.value());
    } else {
        TLOG(QStringLiteral("Failed to read the preferred locations: %1").arg(read.error().toString()));
    }
    // Every preferred place is known (the place editors offer them all);
    // the ones marked default are searched.
    bool any = false;
    for (const model::PreferredLocation& location : locations) {
        model::Scope* scope = model::Scope::scopeWithPath(location.path(), context);
        if (!scope) {
            continue;
        }
        scope->setIsConstant(location.isConstant());
        if (location.isDefault()) {
            model::OrderedScope::createOrderedScopeWith(scope);
            any = true;
        }
    }
    if (!any) {
        if (model::Scope* home = model::Scope::scopeWithPath(QStringLiteral("kMDQueryScopeHome"), context)) {
            home->setIsConstant(true);
            model::OrderedScope::createOrderedScopeWith(home);
        }
    }

    model::primeContext(context);
    context.processPendingChanges();
    undo.enableUndoRegistration();
    clearChangesLater();
}

Status Document::loadFromURL(const QString& path)
{
    Result<std::unique_ptr<store::ManagedObjectContext>> opened = openDocumentStore(path);
    if (!opened) {
        return opened.error();
    }
    replaceContext(std::move(opened.value()));
    return {};
}

Status Document::loadTemplate(const QString& path)
{
    if (Status loaded = loadFromURL(path); !loaded) {
        return loaded;
    }
    m_fileURL.clear();
    m_templateURL = QFileInfo(path).absoluteFilePath();
    m_templateName = documentNameForPath(path);
    return {};
}

void Document::replaceContext(std::unique_ptr<store::ManagedObjectContext> context)
{
    const bool observing = m_objectChangeNotificationEnabled;
    setObjectChangeNotificationEnabled(false);
    m_context = std::move(context);
    setObjectChangeNotificationEnabled(observing);
}

Status Document::initWithContentsOfURL(const QString& path)
{
    if (!checkSpotlightStatus(false)) {
        return spotlightStatusError();
    }
    const QFileInfo info(path);
    // Read-only: no write permission for anyone, or none for this process
    // (root may write anything, but a file marked read-only is meant so).
    const QFileDevice::Permissions writable = QFileDevice::WriteOwner | QFileDevice::WriteGroup | QFileDevice::WriteOther;
    const bool readOnly = info.exists()
                          && (!(info.permissions() & writable)
                              || ::access(QFile::encodeName(info.absoluteFilePath()).constData(), W_OK) != 0);
    if (readOnly || isInsideFolder(path, templateFolder())) {
        return loadTemplate(path);
    }
    QVariantMap metadata;
    Result<std::unique_ptr<store::ManagedObjectContext>> opened = openDocumentStore(path, &metadata);
    if (!opened) {
        return opened.error();
    }
    replaceContext(std::move(opened.value()));
    m_fileURL = info.absoluteFilePath();
    m_templateURL.clear();
    m_templateName.clear();
    if (!metadata.contains(kKeywordsKey)) {
        QStringList keywords;
        computeSearchString(&keywords);
        if (Status rewritten = setMetadataForStoreAtPath(m_fileURL, {{kKeywordsKey, keywords.join(QLatin1Char(' '))}});
            !rewritten) {
            return rewritten;
        }
    }
    return {};
}

void Document::windowControllerDidLoadNib()
{
    m_controller->windowDidLoadForDocument(this);
    // The table shows the stored sort order from the start.
    m_controller->setUpResultSorting();
    setObjectChangeNotificationEnabled(true);
    m_windowLoaded = true;
    updateQueryWithPredicate();
    updateQueryWithScope();
    updateQueryWithExclusion();
    updateQueryWithLimit();
    bool ok = false;
    const int filterType = metaAttributeText(kSearchFilterType).toInt(&ok);
    if (ok) {
        m_controller->setFilterType(filterType);
    }
    const QString filterString = metaAttributeText(kSearchFilterString);
    if (!filterString.isNull()) {
        m_controller->setFilterString(filterString);
    }
    const QString view = metaAttributeText(kResultsView);
    if (!view.isNull()) {
        const int index = view.toInt();
        later([this, index] { m_controller->resultController()->setSelectedTabIndex(index); });
    }
    if (metaAttributeText(kRunState) == QLatin1String("YES")) {
        later([this] { startQueryInternal(); });
    }
    updateSearchString(false);
}

// --- The file ------------------------------------------------------------------------

QString Document::displayName() const
{
    if (m_fileURL.isEmpty()) {
        return QString::fromLatin1(kUntitledDisplayName);
    }
    return documentNameForPath(m_fileURL);
}

bool Document::isDocumentEdited() const
{
    return !m_fileURL.isEmpty() && m_context->hasChanges();
}

QString Document::metaAttributeText(const QString& key) const
{
    model::MetaAttribute* attribute = model::MetaAttribute::metaAttributeWithKey(key, *m_context, false);
    if (!attribute || !attribute->attributeValue().isValid()) {
        return {};
    }
    return QString::fromUtf8(attribute->attributeValue().toByteArray());
}

void Document::setMetaAttributeText(const QString& key, const QString& text)
{
    if (model::MetaAttribute* attribute = model::MetaAttribute::metaAttributeWithKey(key, *m_context)) {
        const QByteArray bytes = text.toUtf8();
        if (attribute->attributeValue().toByteArray() != bytes || !attribute->attributeValue().isValid()) {
            attribute->setAttributeValue(bytes);
        }
    }
}

Status Document::saveToURL(const QString& path, SaveOperation operation, const store::SaveOptions& options)
{
    if (path.isEmpty()) {
        return Error::make(Error::kFileWriteError, QStringLiteral("The document could not be saved."),
                           QStringLiteral("It has no file yet."), QStringLiteral("Choose where to save it."));
    }
    setMetaAttributeText(kRunState, isQueryAlive() || m_savesAsRunning ? QStringLiteral("YES") : QStringLiteral("NO"));
    setMetaAttributeText(kResultsView, QString::number(m_controller->resultController()->selectedTabIndex()));
    const bool hasFilter = !m_controller->filterString().isEmpty()
                           || model::MetaAttribute::metaAttributeWithKey(kSearchFilterString, *m_context, false);
    if (hasFilter) {
        setMetaAttributeText(kSearchFilterString, m_controller->filterString());
        setMetaAttributeText(kSearchFilterType, QString::asprintf("%d", m_controller->filterType()));
    }
    if (m_controller->document() == this) {
        // The sort order and the columns as they are shown now; the columns
        // no table shows any more go.
        m_controller->saveTableLayout();
    }
    m_context->processPendingChanges();

    QStringList keywords;
    computeSearchString(&keywords);
    const QVariantMap metadata{{QString::fromLatin1(kFileVersionKey), kCurrentFileVersion},
                               {kKeywordsKey, keywords.join(QLatin1Char(' '))}};
    const QString target = QFileInfo(path).absoluteFilePath();
    if (Status saved = store::SqliteStore::save(*m_context, target, metadata, options); !saved) {
        return saved;
    }
    // A saved copy of a template is an ordinary document.
    m_templateURL.clear();
    m_templateName.clear();
    if (operation != SaveOperation::SaveTo) {
        m_fileURL = target;
        m_context->markSaved();
    }
    return {};
}

// --- Query assembly -----------------------------------------------------------------------

void Document::updateQueryWithPredicate()
{
    model::QueryNode* root = model::QueryNode::rootNodeInContext(*m_context);
    const QString expression = root ? root->expression() : QString();
    if (expression.isEmpty()) {
        stopQuery();
        m_currentExpression.clear();
        m_controller->setExpression(QString());
    } else if (expression != m_currentExpression) {
        m_currentExpression = expression;
        m_controller->setExpression(expression);
    }
    updateSearchString(false);
}

void Document::updateQueryWithScope()
{
    bool ok = true;
    const std::vector<model::OrderedScope*> scopes = model::OrderedScope::orderedScopes(*m_context, &ok);
    if (!ok) {
        return;  // presented; the controller keeps its list
    }
    QStringList paths;
    for (model::OrderedScope* ordered : scopes) {
        if (model::Scope* scope = ordered->scope()) {
            paths << expandTilde(scope->path());
        }
    }
    m_controller->setSearchScopes(paths);
}

void Document::updateQueryWithExclusion()
{
    QStringList paths;
    for (model::OrderedExclusionScope* ordered : model::OrderedExclusionScope::orderedExclusionScopes(*m_context)) {
        if (model::Scope* scope = ordered->scope()) {
            paths << expandTilde(scope->path());
        }
    }
    m_controller->setExcludedPaths(paths);
}

void Document::updateQueryWithLimit()
{
    model::ValuedLimitAttribute* limit = model::ValuedLimitAttribute::limitInContext(*m_context);
    model::LimitAttribute* attribute = limit ? limit->limitAttribute() : nullptr;
    if (!limit || !attribute) {
        m_controller->setLimitKey(QString());
        m_controller->setLimitAscending(false);
        m_controller->setLimitValue(0);
        return;
    }
    m_controller->setLimitKey(attribute->attributeKey());
    m_controller->setLimitAscending(limit->ascending());
    m_controller->setLimitValue(limit->limitValue().toInt());
}

void Document::updateSearchString(bool force)
{
    QString first;
    QStringList terms;
    if (force || isQueryAlive()) {
        first = computeSearchString(&terms);
    }
    if (first != m_searchString || terms != m_searchStringArray || first.isNull() != m_searchString.isNull()) {
        m_searchString = first;
        m_searchStringArray = terms;
        emit searchStringChanged();
    }
}

QString Document::computeSearchString(QStringList* array) const
{
    QString first;
    QStringList terms;
    // Reading the tree never changes the graph: without a root there are
    // no terms.
    Result<std::vector<model::QueryNode*>> roots = m_context->fetch<model::QueryNode>(
        store::Predicate::format(QStringLiteral("parent == nil")).value(), {}, 1);
    if (roots && !roots->empty()) {
        collectSearchTerms({roots->front()}, false, true, &first, &terms);
    }
    if (array) {
        *array = terms;
    }
    return first;
}

void Document::runEditorUpdate(const std::function<void()>& writeRows, void (Document::*update)())
{
    const bool observing = m_objectChangeNotificationEnabled;
    setObjectChangeNotificationEnabled(false);
    if (writeRows) {
        writeRows();
    }
    // The editor's own writes are posted now, while nobody listens, so
    // they do not reload the editor that made them.
    m_context->processPendingChanges();
    (this->*update)();
    updateSearchString(false);
    setObjectChangeNotificationEnabled(observing);
}

void Document::updatePredicate(const std::function<void()>& writeRows)
{
    runEditorUpdate(writeRows, &Document::updateQueryWithPredicate);
}

void Document::updateScope(const std::function<void()>& writeRows)
{
    runEditorUpdate(writeRows, &Document::updateQueryWithScope);
}

void Document::updateExclusion(const std::function<void()>& writeRows)
{
    runEditorUpdate(writeRows, &Document::updateQueryWithExclusion);
}

void Document::updateLimit(const std::function<void()>& writeRows)
{
    runEditorUpdate(writeRows, &Document::updateQueryWithLimit);
}

// --- Run control --------------------------------------------------------------------------

void Document::startQueryInternal(bool alternateKeyDown)
{
    m_controller->startQuery(alternateKeyDown);
    emit focusOnResultsRequested(m_controller->resultController()->selectedTabIndex());
    updateSearchString(true);
}

void Document::stopQuery()
{
    m_controller->stopQuery();
}

void Document::startStopQuery(bool alternateKeyDown)
{
    if (isQueryAlive()) {
        stopQuery();
    } else {
        startQuery(alternateKeyDown);
    }
}

bool Document::canStartQuery() const
{
    return !isQueryAlive() && !m_controller->expression().isNull() && !m_controller->searchScopes().isEmpty();
}

StartStopItem Document::startStopItem() const
{
    const bool enabled = !m_controller->expression().isNull() && !m_controller->searchScopes().isEmpty();
    if (isQueryAlive()) {
        return {QStringLiteral("Stop"), QStringLiteral("Stop Query"), QStringLiteral("stop"), enabled};
    }
    return {QStringLiteral("Start"), QStringLiteral("Start Query"), QStringLiteral("start"), enabled};
}

// --- Change notifications ---------------------------------------------------------------

void Document::setObjectChangeNotificationEnabled(bool enabled)
{
    m_objectChangeNotificationEnabled = enabled;
    disconnect(m_changeConnection);
    if (enabled) {
        m_changeConnection = connect(m_context.get(), &store::ManagedObjectContext::objectsDidChange, this,
                                     &Document::objectsDidChange);
    }
}

void Document::objectsDidChange(const store::ObjectChanges& changes)
{
    if (changes.containsKindOf<model::QueryItem>() && !m_reloadPredicatePending) {
        m_reloadPredicatePending = true;
        later([this] {
            m_reloadPredicatePending = false;
            emit predicateEditorReloadRequested();
            updatePredicate();
        });
    }
    if (changes.containsKindOf<model::OrderedScope>() && !m_reloadScopesPending) {
        m_reloadScopesPending = true;
        later([this] {
            m_reloadScopesPending = false;
            emit scopeEditorReloadRequested();
            updateScope();
        });
    }
}

void Document::later(std::function<void()> work)
{
    QTimer::singleShot(0, this, std::move(work));
}

void Document::clearChangesLater()
{
    later([this] {
        m_context->processPendingChanges();
        m_context->markSaved();
        emit changesCleared();
    });
}

// --- Quick search ---------------------------------------------------------------------------

void Document::applyLocations(const QStringList& paths)
{
    updateScope([&] {
        store::ManagedObjectContext& context = *m_context;
        for (model::OrderedScope* ordered : model::OrderedScope::orderedScopes(context)) {
            context.deleteObject(ordered);
        }
        for (const QString& path : paths) {
            if (model::Scope* scope = model::Scope::scopeWithPath(QFileInfo(path).absoluteFilePath(), context)) {
                model::OrderedScope::createOrderedScopeWith(scope);
            }
        }
    });
    emit scopeEditorReloadRequested();
}

void Document::applyBlitzSearch(const QString& searchString, bool anyText, bool filename, bool content, bool comments)
{
    store::ManagedObjectContext& context = *m_context;
    store::UndoManager& undo = context.undoManager();
    undo.disableUndoRegistration();
    if (!anyText && !filename && !content && !comments) {
        anyText = true;
    }
    const QString s = searchString;
    auto valueIf = [&](bool flag) { return flag ? s : QString(QLatin1String("")); };

    if (model::QueryNode* root = model::QueryNode::rootNodeInContext(context)) {
        root->setOperatorName(QStringLiteral("AND"));
        int next = 0;
        for (model::QueryItem* child : root->children()) {
            next = std::max(next, child->sortIndexValue() + 1);
        }
        auto* group = context.insert<model::QueryNode>();
        group->setOperatorName(QStringLiteral("OR"));
        group->setParent(root);
        group->setSortIndexValue(next);

        makeLeaf(context, group, kAnyText, 0, model::RelationalOperator::containsFuzzyOperator(), valueIf(anyText));
        const QStringList pieces = s.split(QLatin1Char(' '), Qt::SkipEmptyParts);
        if (filename && pieces.size() > 1) {
            auto* words = context.insert<model::QueryNode>();
            words->setOperatorName(QStringLiteral("AND"));
            words->setParent(group);
            words->setSortIndexValue(1);
            int index = 0;
            for (const QString& piece : pieces) {
                makeLeaf(context, words, kDisplayName, index++, model::RelationalOperator::containsOperator(), piece);
            }
        } else {
            makeLeaf(context, group, kDisplayName, 1, model::RelationalOperator::containsOperator(),
                     valueIf(filename));
        }
        makeLeaf(context, group, kTextContent, 2, nullptr, valueIf(content));
        makeLeaf(context, group, QStringLiteral("kMDItemFinderComment"), 3,
                 model::RelationalOperator::containsOperator(), valueIf(comments));
    }
    setMetaAttributeText(kRunState, QStringLiteral("YES"));
    context.processPendingChanges();
    undo.enableUndoRegistration();
    clearChangesLater();
}

}  // namespace trovara::document
