// Templates: ordinary search documents kept in the templates folder. Opening
// one gives an untitled copy; any document can be saved as one.
#pragma once

#include "common/error.h"
#include "store/sqlite_store.h"
#include "model/value_transformer.h"

#include <QMetaType>
#include <QString>

#include <functional>
#include <vector>

namespace trovara::document {

class Document;

// The templates folder: Trovara's data folder ("~/.local/share/Trovara"),
// "Templates".
QString templateFolder();

// One template file. Made through itemWithPath(), which keeps one item per
// path for the life of the process, so items compare by identity as well
// as by path.
class TemplateItem {
public:
    static const TemplateItem* itemWithPath(const QString& path);

    const QString& path() const { return m_path; }
    // The file name less a trailing ".trova"; computed on first request.
    const QString& displayName() const;

    bool operator==(const TemplateItem& other) const { return m_path == other.m_path; }

    explicit TemplateItem(QString path);

private:
    QString m_path;
    mutable QString m_displayName;
    mutable bool m_hasDisplayName = false;
};

// The current template list: every ".trova" file of the templates folder,
// by display name. The application keeps it; refresh() reads the folder
// again.
class Templates {
public:
    static const std::vector<const TemplateItem*>& templates();
    static void refresh();
    static bool contains(const QString& path);
};

// Path → the TemplateItem of the current templates with that path (nothing
// when there is none); TemplateItem → its path. Registered as
// "templateTransformer".
class TemplateTransformer final : public model::ValueTransformer {
public:
    static const TemplateTransformer* sharedInstance();
    QVariant transformedValue(const QVariant& value) const override;
    QVariant reverseTransformedValue(const QVariant& value) const override;
};
void registerDocumentTransformers();

// A file name made safe: every "/" and ":" becomes "-".
QString fileNameString(const QString& name);

// Saving a document as a template, as the template sheet does it.
class TemplateSaver {
public:
    // Asked when a template of the name exists: true replaces it.
    using ReplacePrompt = std::function<bool(const QString& path)>;

    enum class Outcome {
        Saved,      // the sheet closes with code 1
        Cancelled,  // the sheet stays open, nothing changed
        Failed,     // the error was presented; the sheet closes with code 0
    };

    explicit TemplateSaver(Document& document, ReplacePrompt prompt = {});

    // The template file a typed name gives.
    static QString targetPath(const QString& typedName);

    // Saves a copy of the document as the template `typedName`. An
    // existing template is moved to the trash first (Replace), and moved
    // back when the save fails.
    Outcome okSheet(const QString& typedName);
    const QString& lastSavedPath() const { return m_lastSavedPath; }
    // Faults to play in the save (tests).
    void setSaveOptions(store::SaveOptions options) { m_saveOptions = std::move(options); }

    // Alert texts.
    static constexpr const char* kAlertTitle = "Alert";
    static constexpr const char* kAlertMessage = "A template by that name already exists";
    static constexpr const char* kReplaceButton = "Replace";
    static constexpr const char* kCancelButton = "Cancel";

private:
    Document& m_document;
    ReplacePrompt m_prompt;
    QString m_lastSavedPath;
    store::SaveOptions m_saveOptions;
};

}  // namespace trovara::document

Q_DECLARE_METATYPE(const trovara::document::TemplateItem*)
