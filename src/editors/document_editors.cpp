#include "editors/document_editors.h"

#include "document/document.h"

namespace trovara::editors {

DocumentEditors::DocumentEditors(document::Document& document, QObject* parent)
    : QObject(parent)
    , m_document(document)
    , m_predicateEditor(std::make_unique<RuleEditorModel>())
    , m_scopeEditor(std::make_unique<RuleEditorModel>())
    , m_exclusionEditor(std::make_unique<RuleEditorModel>())
    , m_limitEditor(std::make_unique<RuleEditorModel>())
    , m_predicateDelegate(std::make_unique<PredicateEditorDelegate>(document, *m_predicateEditor))
    , m_scopeDelegate(std::make_unique<ScopeEditorDelegate>(document, *m_scopeEditor))
    , m_exclusionDelegate(std::make_unique<ExclusionEditorDelegate>(document, *m_exclusionEditor))
    , m_limitDelegate(std::make_unique<LimitEditorDelegate>(document, *m_limitEditor))
    , m_querySheet(std::make_unique<QueryAttributeSelectionController>(document, *m_predicateDelegate))
    , m_columnSheet(std::make_unique<ColumnAttributeSelectionController>(document))
{
    m_predicateDelegate->setOtherAttributeHandler([this](RowPtr row) {
        if (!m_querySheet->isSheetOpen()) {
            m_querySheet->setRow(std::move(row));
            m_querySheet->beginSheetWithDelegate();
        }
    });
    connect(&document, &document::Document::predicateEditorReloadRequested, this,
            [this] { m_predicateDelegate->loadEditor(); });
    connect(&document, &document::Document::scopeEditorReloadRequested, this,
            [this] { m_scopeDelegate->loadEditor(); });
}

DocumentEditors::~DocumentEditors()
{
    documentWindowWillClose();
}

void DocumentEditors::loadEditors()
{
    for (EditorDelegate* delegate : std::initializer_list<EditorDelegate*>{
             m_predicateDelegate.get(), m_scopeDelegate.get(), m_exclusionDelegate.get(), m_limitDelegate.get()}) {
        delegate->loadEditor();
    }
    for (EditorDelegate* delegate : std::initializer_list<EditorDelegate*>{
             m_predicateDelegate.get(), m_scopeDelegate.get(), m_exclusionDelegate.get(), m_limitDelegate.get()}) {
        delegate->setFinishedSetUp(true);
    }
}

bool DocumentEditors::beginColumnSheet()
{
    return m_columnSheet->beginSheetWithDelegate();
}

void DocumentEditors::setSheetPresenter(const SheetController::Presenter& presenter)
{
    m_querySheet->setPresenter(presenter);
    m_columnSheet->setPresenter(presenter);
}

void DocumentEditors::setFolderChooser(const FolderChooser& chooser)
{
    m_scopeDelegate->setFolderChooser(chooser);
    m_exclusionDelegate->setFolderChooser(chooser);
}

void DocumentEditors::documentWindowWillClose()
{
    m_querySheet->documentWindowWillClose();
    m_columnSheet->documentWindowWillClose();
}

bool DocumentEditors::isConsistent(QString* why) const
{
    return m_predicateDelegate->isConsistent(why) && m_scopeDelegate->isConsistent(why)
           && m_exclusionDelegate->isConsistent(why) && m_limitDelegate->isConsistent(why);
}

}  // namespace trovara::editors
