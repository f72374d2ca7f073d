#include "document/document_store.h"

#include "document/sqlite_store.h"
#include "model/document_model.h"

namespace trovara::document {

namespace {

Error notYet(const QString& path)
{
    Error error = Error::make(Error::kFileReadUnknownVersionError,
                              QStringLiteral("The document \"%1\" could not be opened.").arg(path),
                              QStringLiteral("The file was made with another version of Trovara."));
    return error;
}

}  // namespace

std::shared_ptr<const store::ManagedObjectModel> firstDocumentModel()
{
    return model::documentModel();
}

Result<QVariantMap> legacyMetadata()
{
    return QVariantMap{};
}

bool isCompatibleWithCurrentModel(const QVariantMap& metadata)
{
    return metadata.value(QString::fromLatin1(store::SqliteStore::kModelVersionHashKey)).toString()
           == QString::fromLatin1(model::documentModel()->versionHash());
}

Result<std::unique_ptr<store::ManagedObjectContext>> openDocumentStore(const QString& path, QVariantMap* metadata)
{
    Result<QVariantMap> stored = store::SqliteStore::readMetadata(path);
    if (!stored) {
        return stored.error();
    }
    if (!isCompatibleWithCurrentModel(*stored)) {
        return notYet(path);
    }
    return store::SqliteStore::load(path, model::documentModel(), metadata);
}

Status setMetadataForStoreAtPath(const QString&, const QVariantMap&)
{
    return {};
}

Result<QString> validatedURLWithPath(const QString& path, const OverwritePrompt&)
{
    return path;
}

Status migrateDocumentIfNeeded(const QString&, const OverwritePrompt&)
{
    return {};
}

}  // namespace trovara::document
