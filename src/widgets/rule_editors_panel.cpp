#include "widgets/rule_editors_panel.h"

#include "document/document.h"
#include "widgets/attribute_selection_sheet.h"
#include "widgets/rule_editor.h"

#include <QDropEvent>
#include <QFileDialog>
#include <QGridLayout>
#include <QIcon>
#include <QLabel>
#include <QMimeData>
#include <QScrollArea>
#include <QTimer>
#include <QUrl>

namespace trovara::widgets {

namespace {

// The criteria scroll past this height.
constexpr int kMaximumCriteriaHeight = 320;

QLabel* caption(const QString& text, QWidget* buddy, QWidget* parent)
{
    auto* label = new QLabel(text, parent);
    label->setBuddy(buddy);
    label->setAlignment(Qt::AlignRight | Qt::AlignTop);
    label->setContentsMargins(0, 5, 0, 0);
    QFont font = label->font();
    font.setBold(true);
    label->setFont(font);
    return label;
}

}  // namespace

RuleEditorsPanel::RuleEditorsPanel(document::Document& document, QWidget* parent)
    : QWidget(parent)
    , m_editors(std::make_unique<editors::DocumentEditors>(document))
{
    setAccessibleName(tr("Search criteria"));
    // Nothing to edit until the document's window is loaded.
    setEnabled(false);
    m_criteria = new RuleEditor(m_editors->predicateEditor(), tr("Criteria"), this);
    m_criteria->setPositionNames({tr("Attribute"), tr("Comparison"), tr("Value"), tr("Unit")}, {tr("Combination")});
    m_scopes = new RuleEditor(m_editors->scopeEditor(), tr("Places to search"), this);
    m_scopes->setPositionNames({tr("Place to search")});
    m_scopes->setEmptyAddTitle(tr("Add a place to search"));
    m_exclusions = new RuleEditor(m_editors->exclusionEditor(), tr("Places to leave out"), this);
    m_exclusions->setPositionNames({tr("Place to leave out")});
    m_exclusions->setEmptyAddTitle(tr("Add a place to leave out"));
    m_limit = new RuleEditor(m_editors->limitEditor(), tr("Limit"), this);
    m_limit->setPositionNames({tr("Number of results"), tr("Which results"), tr("By")});

    auto* scroll = new QScrollArea(this);
    scroll->setWidget(m_criteria);
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    scroll->setFocusPolicy(Qt::NoFocus);
    auto fitCriteria = [scroll, this] {
        const int content = m_criteria->sizeHint().height();
        scroll->setFixedHeight(std::min(content, kMaximumCriteriaHeight));
    };
    connect(&m_editors->predicateEditor(), &editors::RuleEditorModel::rowsChanged, this,
            [fitCriteria, this] { QTimer::singleShot(0, this, fitCriteria); });

    m_dropButton = new DropButton(tr("Drop folders here"), this);
    m_dropButton->setToolTip(tr("Drop folders here to leave them out of the search"));
    m_dropButton->setAccessibleName(tr("Drop folders to leave out"));
    m_dropButton->setIcon(QIcon::fromTheme(QStringLiteral("folder-new")));
    m_dropButton->setDelegate(this);
    // Without a drag: choose a folder to leave out.
    connect(m_dropButton, &QPushButton::clicked, this,
            [this] { m_editors->exclusionEditorDelegate().selectOtherScope(-1); });

    auto* grid = new QGridLayout(this);
    grid->setContentsMargins(6, 4, 6, 4);
    grid->setHorizontalSpacing(8);
    grid->setVerticalSpacing(2);
    grid->addWidget(caption(tr("Search for"), m_criteria, this), 0, 0);
    grid->addWidget(scroll, 0, 1, 1, 3);
    grid->addWidget(caption(tr("Search in"), m_scopes, this), 1, 0);
    grid->addWidget(m_scopes, 1, 1);
    grid->addWidget(caption(tr("Leave out"), m_exclusions, this), 1, 2);
    auto* exclusions = new QWidget(this);
    auto* exclusionsLayout = new QVBoxLayout(exclusions);
    exclusionsLayout->setContentsMargins(0, 0, 0, 0);
    exclusionsLayout->addWidget(m_exclusions);
    exclusionsLayout->addWidget(m_dropButton, 0, Qt::AlignLeft);
    grid->addWidget(exclusions, 1, 3);
    grid->addWidget(caption(tr("Show"), m_limit, this), 2, 0);
    grid->addWidget(m_limit, 2, 1, 1, 3);
    grid->setColumnStretch(1, 1);
    grid->setColumnStretch(3, 1);

    m_editors->setFolderChooser([this](const editors::FolderRequest& request, std::function<void(const QString&)> done) {
        chooseFolder(request, std::move(done));
    });
    m_editors->setSheetPresenter([this](editors::SheetController& sheet) { AttributeSelectionSheet::present(sheet, window()); });
}

RuleEditorsPanel::~RuleEditorsPanel()
{
    m_editors->documentWindowWillClose();
}

void RuleEditorsPanel::loadEditors()
{
    m_editors->loadEditors();
    setEnabled(true);
}

void RuleEditorsPanel::chooseFolder(const editors::FolderRequest& request, std::function<void(const QString&)> done)
{
    auto* dialog = new QFileDialog(window(), request.message, request.startPath);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setFileMode(QFileDialog::Directory);
    dialog->setOption(QFileDialog::ShowDirsOnly);
    dialog->setLabelText(QFileDialog::Accept, request.prompt);
    dialog->setWindowModality(Qt::WindowModal);
    auto answered = std::make_shared<bool>(false);
    connect(dialog, &QFileDialog::fileSelected, this, [done, answered](const QString& folder) {
        *answered = true;
        done(folder);
    });
    connect(dialog, &QDialog::finished, this, [done, answered] {
        if (!*answered) {
            done(QString());
        }
    });
    dialog->open();
}

bool RuleEditorsPanel::dropButtonAcceptDrop(DropButton*, QDropEvent* drop)
{
    QStringList paths;
    for (const QUrl& url : drop->mimeData()->urls()) {
        if (url.isLocalFile()) {
            paths << url.toLocalFile();
        }
    }
    return m_editors->exclusionEditorDelegate().dropButtonAcceptDrop(paths);
}

}  // namespace trovara::widgets
