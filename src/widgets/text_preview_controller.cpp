#include "widgets/text_preview_controller.h"

#include "preview/text_preview_utility.h"
#include "widgets/preview_text_view.h"

#include <QAction>
#include <QFileInfo>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QStackedWidget>
#include <QTimer>
#include <QToolButton>
#include <QVBoxLayout>

namespace trovara::widgets {

TextPreviewController::TextPreviewController(QObject* parent, preview::TextPreview::Reader reader)
    : AbstractInspectorController(QStringLiteral("TextPreviewController"), tr("Text Preview"), parent)
    , m_usesHelper(!reader)
{
    m_preview = preview::TextPreview::create(reader ? std::move(reader) : helperReader());
    m_preview->setActive(false);
    connect(this, &AbstractInspectorController::windowStateChanged, this,
            [this] { m_preview->setActive(isWindowLoaded() && isWindowVisible()); });
    connect(m_preview.get(), &preview::TextPreview::textChanged, this, &TextPreviewController::showText);
    connect(m_preview.get(), &preview::TextPreview::textExtended, this, &TextPreviewController::showRestOfText);
    connect(m_preview.get(), &preview::TextPreview::highlightsChanged, this, &TextPreviewController::showHighlights);
    connect(m_preview.get(), &preview::TextPreview::currentMatchChanged, this,
            &TextPreviewController::showCurrentMatch);
}

preview::TextPreview::Reader TextPreviewController::helperReader()
{
    // The helper starts when a panel is first shown (see makeContents), not
    // with the application: most sessions never open one.
    return [](const std::string& path, const std::atomic<bool>* cancel, std::uint64_t limit) {
        return preview::TextPreviewUtility::sharedTextPreviewUtility().textContentsOfFile(path, cancel, limit);
    };
}

QString TextPreviewController::menuTitleWhenActive(bool active) const
{
    return active ? tr("Hide Text Preview") : tr("Show Text Preview");
}

bool TextPreviewController::isTextShown() const
{
    return m_pages && m_pages->currentWidget() == m_view;
}

QWidget* TextPreviewController::makeContents()
{
    auto* contents = new QWidget;
    m_searchField = new QLineEdit(contents);
    m_searchField->setPlaceholderText(tr("Words to colour"));
    m_searchField->setAccessibleName(tr("Coloured words"));
    m_searchField->setClearButtonEnabled(true);
    m_previous = new QToolButton(contents);
    m_previous->setArrowType(Qt::UpArrow);
    m_previous->setAccessibleName(tr("Previous match"));
    m_previous->setToolTip(tr("Previous match (Shift+Return)"));
    m_next = new QToolButton(contents);
    m_next->setArrowType(Qt::DownArrow);
    m_next->setAccessibleName(tr("Next match"));
    m_next->setToolTip(tr("Next match (Return)"));
    m_matchCount = new QLabel(contents);
    m_matchCount->setMinimumWidth(m_matchCount->fontMetrics().horizontalAdvance(QStringLiteral("0000 of 0000")));
    auto* bar = new QHBoxLayout;
    bar->addWidget(m_searchField, 1);
    bar->addWidget(m_previous);
    bar->addWidget(m_next);
    bar->addWidget(m_matchCount);

    m_fileName = new QLabel(contents);
    m_fileName->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_view = new PreviewTextView(contents);
    m_view->setAccessibleName(tr("Text of the selected result"));
    m_message = new QLabel(contents);
    m_message->setAlignment(Qt::AlignCenter);
    m_message->setWordWrap(true);
    m_message->setForegroundRole(QPalette::PlaceholderText);
    m_pages = new QStackedWidget(contents);
    m_pages->addWidget(m_message);
    m_pages->addWidget(m_view);
    m_note = new QLabel(contents);
    m_note->setForegroundRole(QPalette::PlaceholderText);
    m_note->hide();

    auto* layout = new QVBoxLayout(contents);
    layout->addLayout(bar);
    layout->addWidget(m_fileName);
    layout->addWidget(m_pages, 1);
    layout->addWidget(m_note);

    m_searchField->setText(m_preview->searchString());
    connect(m_searchField, &QLineEdit::textEdited, this, [this](const QString& text) { m_preview->setSearchString(text); });
    connect(m_searchField, &QLineEdit::returnPressed, this, [this] {
        if (QGuiApplication::keyboardModifiers() & Qt::ShiftModifier) {
            goToPreviousMatch();
        } else {
            goToNextMatch();
        }
    });
    connect(m_previous, &QToolButton::clicked, this, &TextPreviewController::goToPreviousMatch);
    connect(m_next, &QToolButton::clicked, this, &TextPreviewController::goToNextMatch);
    auto* findNext = new QAction(contents);
    findNext->setShortcut(QKeySequence::FindNext);
    connect(findNext, &QAction::triggered, this, &TextPreviewController::goToNextMatch);
    auto* findPrevious = new QAction(contents);
    findPrevious->setShortcut(QKeySequence::FindPrevious);
    connect(findPrevious, &QAction::triggered, this, &TextPreviewController::goToPreviousMatch);
    contents->addActions({findNext, findPrevious});

    showText();
    showHighlights();
    if (m_usesHelper) {
        QTimer::singleShot(0, this, [] { preview::TextPreviewUtility::sharedTextPreviewUtility(); });
    }
    return contents;
}

void TextPreviewController::showContent(document::Document* document)
{
    m_document = document;
    followSelectionOf(document, [this] { followSelection(); }, [this] { followSearchStrings(); });
    followSearchStrings();
    followSelection();
}

void TextPreviewController::followSelection()
{
    m_preview->activeSelectionChanged(selectedPaths(m_document));
}

void TextPreviewController::followSearchStrings()
{
    m_preview->setQuerySearchStringArray(m_document ? m_document->searchStringArray() : QStringList());
    if (m_searchField && m_searchField->text() != m_preview->searchString()) {
        m_searchField->setText(m_preview->searchString());
    }
}

void TextPreviewController::showText()
{
    if (!m_view) {
        return;
    }
    const preview::TextPreview& preview = *m_preview;
    m_fileName->setText(preview.path().isEmpty() ? QString() : QFileInfo(preview.path()).fileName());
    m_fileName->setToolTip(preview.path());
    if (preview.isTextVisible()) {
        m_view->setText(preview.text(), preview.displayLines());
        m_pages->setCurrentWidget(m_view);
        m_note->setText(preview.message());
        m_note->setVisible(!preview.message().isEmpty());
    } else {
        m_view->setText({});
        m_message->setText(preview.message());
        m_pages->setCurrentWidget(m_message);
        m_note->hide();
    }
    updateMatchCount();
}

void TextPreviewController::showRestOfText()
{
    if (m_view) {
        m_view->extendText(m_preview->text(), m_preview->displayLines());
        m_note->setText(m_preview->message());
        m_note->setVisible(!m_preview->message().isEmpty());
    }
}

void TextPreviewController::showHighlights()
{
    if (m_view) {
        m_view->setMatches(m_preview->matches());
        m_view->setCurrentMatch(m_preview->currentMatch());
        updateMatchCount();
    }
}

void TextPreviewController::showCurrentMatch(int index)
{
    if (m_view) {
        m_view->setCurrentMatch(index);
        updateMatchCount();
    }
}

void TextPreviewController::updateMatchCount()
{
    const int count = static_cast<int>(m_preview->matches().size());
    m_matchCount->setText(count == 0 ? (m_searchField->text().isEmpty() ? QString() : tr("No matches"))
                                     : tr("%1 of %2").arg(m_preview->currentMatch() + 1).arg(count));
    m_previous->setEnabled(count > 0);
    m_next->setEnabled(count > 0);
}

}  // namespace trovara::widgets
