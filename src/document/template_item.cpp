#include "document/template_item.h"

#include "common/error_presenter.h"
#include "common/log.h"
#include "document/document.h"
#include "document/document_store.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStandardPaths>

#include <algorithm>
#include <map>
#include <memory>

namespace trovara::document {

QString templateFolder()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) + QStringLiteral("/Trovara/Templates");
}

// --- TemplateItem ------------------------------------------------------------------

TemplateItem::TemplateItem(QString path)
    : m_path(std::move(path))
{
}

const TemplateItem* TemplateItem::itemWithPath(const QString& path)
{
    static std::map<QString, std::unique_ptr<TemplateItem>> items;
    std::unique_ptr<TemplateItem>& item = items[path];
    if (!item) {
        item = std::make_unique<TemplateItem>(path);
    }
    return item.get();
}

const QString& TemplateItem::displayName() const
{
    if (!m_hasDisplayName) {
        m_displayName = documentNameForPath(m_path);
        m_hasDisplayName = true;
    }
    return m_displayName;
}

// --- Templates ------------------------------------------------------------------------

namespace {

std::vector<const TemplateItem*>& currentTemplates()
{
    static std::vector<const TemplateItem*> list;
    return list;
}

bool g_templatesRead = false;

}  // namespace

const std::vector<const TemplateItem*>& Templates::templates()
{
    if (!g_templatesRead) {
        refresh();
    }
    return currentTemplates();
}

void Templates::refresh()
{
    std::vector<const TemplateItem*>& list = currentTemplates();
    list.clear();
    const QDir folder(templateFolder());
    const QStringList names =
        folder.entryList({QStringLiteral("*.") + QLatin1String(kDocumentExtension)}, QDir::Files | QDir::Readable);
    for (const QString& name : names) {
        list.push_back(TemplateItem::itemWithPath(folder.absoluteFilePath(name)));
    }
    std::sort(list.begin(), list.end(), [](const TemplateItem* a, const TemplateItem* b) {
        return QString::localeAwareCompare(a->displayName(), b->displayName()) < 0;
    });
    g_templatesRead = true;
}

bool Templates::contains(const QString& path)
{
    const std::vector<const TemplateItem*>& list = templates();
    return std::any_of(list.begin(), list.end(), [&](const TemplateItem* item) { return item->path() == path; });
}

// --- TemplateTransformer ---------------------------------------------------------------

const TemplateTransformer* TemplateTransformer::sharedInstance()
{
    static const TemplateTransformer instance;
    return &instance;
}

QVariant TemplateTransformer::transformedValue(const QVariant& value) const
{
    const QString path = value.toString();
    if (path.isEmpty() || !Templates::contains(path)) {
        return {};
    }
    return QVariant::fromValue(TemplateItem::itemWithPath(path));
}

QVariant TemplateTransformer::reverseTransformedValue(const QVariant& value) const
{
    const TemplateItem* item = value.value<const TemplateItem*>();
    return item ? QVariant(item->path()) : QVariant();
}

void registerDocumentTransformers()
{
    model::ValueTransformer::setValueTransformer(
        QStringLiteral("templateTransformer"),
        std::shared_ptr<const model::ValueTransformer>(TemplateTransformer::sharedInstance(),
                                                       [](const model::ValueTransformer*) {}));
}

QString fileNameString(const QString& name)
{
    QString safe = name;
    safe.replace(QLatin1Char('/'), QLatin1Char('-'));
    safe.replace(QLatin1Char(':'), QLatin1Char('-'));
    return safe;
}

// --- Saving as a template -----------------------------------------------------------------

TemplateSaver::TemplateSaver(Document& document, ReplacePrompt prompt)
    : m_document(document)
    , m_prompt(std::move(prompt))
{
}

QString TemplateSaver::targetPath(const QString& typedName)
{
    return templateFolder() + QLatin1Char('/') + fileNameString(typedName) + QLatin1Char('.')
           + QLatin1String(kDocumentExtension);
}

TemplateSaver::Outcome TemplateSaver::okSheet(const QString& typedName)
{
    const QString target = targetPath(typedName);
    QString trashed;
    if (QFileInfo::exists(target)) {
        if (!m_prompt || !m_prompt(target)) {
            return Outcome::Cancelled;
        }
        if (!QFile::moveToTrash(target, &trashed)) {
            presentError(Error::make(Error::kFileWriteError,
                                     QStringLiteral("The template \"%1\" could not be replaced.").arg(typedName),
                                     QStringLiteral("The existing template could not be moved to the trash.")));
            return Outcome::Failed;
        }
    }
    QDir().mkpath(templateFolder());
    Status saved = m_document.saveToURL(target, Document::SaveOperation::SaveTo, m_saveOptions);
    if (saved) {
        m_lastSavedPath = target;
        Templates::refresh();
        return Outcome::Saved;
    }
    presentError(saved.error());
    if (!trashed.isEmpty()) {
        // The old template goes back where it was.
        if (QFileInfo::exists(target) || !QFile::rename(trashed, target)) {
            presentError(Error::make(Error::kFileWriteError,
                                     QStringLiteral("The template \"%1\" could not be restored.").arg(typedName),
                                     QStringLiteral("It is in the trash at %1.").arg(trashed)));
        } else {
            // The trash's record of the file goes with it.
            const QFileInfo inTrash(trashed);
            QFile::remove(inTrash.dir().absoluteFilePath(QStringLiteral("../info/%1.trashinfo").arg(inTrash.fileName())));
        }
    }
    return Outcome::Failed;
}

}  // namespace trovara::document
