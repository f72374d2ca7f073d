// The four rule editors of a document window, above its results:
//
//   Search for   the criteria, nested lines          (scrolls past ten lines)
//   Search in    the places to search     Leave out  the places to leave out
//                                                    [Drop folders here]
//   Show         the limit line ("the 1000 most recently used")
//
// The panel owns the document's editors (DocumentEditors) and gives them
// what only a window has: a folder chooser (a window-modal QFileDialog,
// which is the desktop portal's where the platform uses one) and the
// attribute sheets.
#pragma once

#include "editors/document_editors.h"
#include "widgets/drop_button.h"

#include <QWidget>

#include <memory>

namespace trovara::document {
class Document;
}

namespace trovara::widgets {

class RuleEditor;

class RuleEditorsPanel final : public QWidget, private DropButtonDelegate {
    Q_OBJECT

public:
    // `window`: where sheets and choosers open (the panel's window when
    // none is given).
    explicit RuleEditorsPanel(document::Document& document, QWidget* parent = nullptr);
    ~RuleEditorsPanel() override;

    editors::DocumentEditors& editors() { return *m_editors; }
    RuleEditor* criteriaEditor() const { return m_criteria; }
    RuleEditor* scopeEditor() const { return m_scopes; }
    RuleEditor* exclusionEditor() const { return m_exclusions; }
    RuleEditor* limitEditor() const { return m_limit; }
    DropButton* exclusionDropButton() const { return m_dropButton; }

    // Loads the four editors from the document (once its window is loaded).
    void loadEditors();

    // Opens a window-modal folder chooser on the panel's window.
    void chooseFolder(const editors::FolderRequest& request, std::function<void(const QString&)> done);

private:
    // Folders (or the folders of files) dropped on the drop button are
    // left out.
    bool dropButtonAcceptDrop(DropButton* button, QDropEvent* drop) override;

    std::unique_ptr<editors::DocumentEditors> m_editors;
    RuleEditor* m_criteria;
    RuleEditor* m_scopes;
    RuleEditor* m_exclusions;
    RuleEditor* m_limit;
    DropButton* m_dropButton;
};

}  // namespace trovara::widgets
