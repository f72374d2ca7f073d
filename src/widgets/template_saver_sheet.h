// The sheet that saves a search as a template: a name field that offers the
// existing templates' names, OK and Cancel. OK saves a copy of the document
// into the templates folder (an existing template of that name is replaced
// only after the person agrees; "Cancel" there leaves the sheet open and
// the old template as it was). The document keeps its own file.
#pragma once

#include <QDialog>

#include <functional>

class QComboBox;
class QDialogButtonBox;

namespace trovara::document {
class Document;
}

namespace trovara::widgets {

class TemplateSaverSheet final : public QDialog {
    Q_OBJECT

public:
    // Asked when a template of the name exists; true replaces it.
    using ReplacePrompt = std::function<bool(QWidget* sheet, const QString& path)>;

    TemplateSaverSheet(document::Document& document, QWidget* window);

    // By default an alert titled "Alert" with "Replace" and "Cancel".
    void setReplacePrompt(ReplacePrompt prompt) { m_prompt = std::move(prompt); }
    QComboBox* nameField() const { return m_name; }
    // The template written by the last OK, or empty.
    const QString& savedPath() const { return m_savedPath; }

    // OK: saves; closes with Accepted (saved) or Rejected (failed, error
    // shown), or stays open (the person kept the old template).
    void okSheet();
    void cancelSheet();

    static bool askToReplace(QWidget* sheet, const QString& path);

protected:
    void showEvent(QShowEvent* event) override;

private:
    document::Document& m_document;
    QComboBox* m_name;
    QDialogButtonBox* m_buttons;
    ReplacePrompt m_prompt = &TemplateSaverSheet::askToReplace;
    QString m_savedPath;
};

}  // namespace trovara::widgets
