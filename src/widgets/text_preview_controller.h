// The text preview panel: the text of the single selected result of the
// active search document, with its search terms coloured (see
// preview::TextPreview for what is read, how and when), a field to change
// the coloured words, and next / previous match. Instead of the text, a
// short message says why there is none (no text in the file, the file
// cannot be read, its importer crashed or hung); a cut text says so below.
//
// Its menu item reads "Show Text Preview" / "Hide Text Preview"; whether
// it was open at the last quit is kept under "TextPreviewControllerActive".
// Nothing is read while the panel is hidden.
#pragma once

#include "preview/text_preview.h"
#include "widgets/abstract_inspector_controller.h"

class QLabel;
class QLineEdit;
class QStackedWidget;
class QToolButton;

namespace trovara::widgets {

class PreviewTextView;

class TextPreviewController final : public AbstractInspectorController {
    Q_OBJECT

public:
    // Reads through `reader` (tests); by default the text preview helper.
    explicit TextPreviewController(QObject* parent = nullptr, preview::TextPreview::Reader reader = {});

    QString menuTitleWhenActive(bool active) const override;
    // Reads through the process's text preview helper.
    static preview::TextPreview::Reader helperReader();

    preview::TextPreview& preview() const { return *m_preview; }
    PreviewTextView* previewView() const { return m_view; }
    QLineEdit* searchField() const { return m_searchField; }
    QLabel* messageLabel() const { return m_message; }
    QLabel* matchLabel() const { return m_matchCount; }
    // Whether the text (rather than a message) is on show.
    bool isTextShown() const;

    void goToNextMatch() { m_preview->goToNextMatch(); }
    void goToPreviousMatch() { m_preview->goToPreviousMatch(); }

protected:
    QWidget* makeContents() override;
    void showContent(document::Document* document) override;

private:
    void followSelection();
    void followSearchStrings();
    void showText();
    void showRestOfText();
    void showHighlights();
    void showCurrentMatch(int index);
    void updateMatchCount();

    bool m_usesHelper;
    std::shared_ptr<preview::TextPreview> m_preview;
    QPointer<document::Document> m_document;
    QLineEdit* m_searchField = nullptr;
    QToolButton* m_previous = nullptr;
    QToolButton* m_next = nullptr;
    QLabel* m_matchCount = nullptr;
    QLabel* m_fileName = nullptr;
    QStackedWidget* m_pages = nullptr;
    PreviewTextView* m_view = nullptr;
    QLabel* m_message = nullptr;
    QLabel* m_note = nullptr;
};

}  // namespace trovara::widgets
