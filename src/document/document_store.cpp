#include "document/document_store.h"

#include "common/log.h"
#include "document/model_migration.h"
#include "model/document_model.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>

#include <cerrno>
#include <cstdio>
#include <cstring>

#ifndef TROVARA_INSTALL_DATADIR
#define TROVARA_INSTALL_DATADIR "/usr/local/share/trovara"
#endif

namespace trovara::document {

namespace {

constexpr const char* kLegacyMetadataFile = "LegacyMetadata.json";

QString hashKey()
{
    return QString::fromLatin1(store::SqliteStore::kModelVersionHashKey);
}

QString fileName(const QString& path)
{
    return QFileInfo(path).fileName();
}

Error notOpened(const QString& path, int code, const QString& reason, const QString& suggestion = {})
{
    Error error = Error::make(code, QStringLiteral("The document “%1” could not be opened.").arg(fileName(path)),
                              reason, suggestion);
    error.userInfo.insert(QStringLiteral("path"), path);
    return error;
}

Error madeByNewerVersion(const QString& path)
{
    return notOpened(path, Error::kFileReadUnknownVersionError,
                     QStringLiteral("The file was made by a newer version of Trovara."),
                     QStringLiteral("Open it with the version of Trovara that made it."));
}

}  // namespace

QStringList resourceFolders()
{
    const QByteArray overridden = qgetenv("TROVARA_DATA_DIR");
    if (!overridden.isEmpty()) {
        return {QFile::decodeName(overridden)};
    }
    QStringList folders;
    if (QCoreApplication::instance()) {
        folders << QDir::cleanPath(QCoreApplication::applicationDirPath() + QStringLiteral("/../share/trovara"));
    }
    folders << QStringLiteral(TROVARA_INSTALL_DATADIR);
    return folders;
}

namespace {

// Whether the metadata is that of a file from before model versioning.
bool predatesModelVersions(const QVariantMap& metadata)
{
    return !metadata.contains(hashKey()) && metadata.value(QString::fromLatin1(kFileVersionKey)).toInt() == 1;
}

// Merges the legacy metadata into the metadata of a file from before model
// versioning, and writes it into the file when `write` (else the file is
// left as it is, for now).
Status mergeLegacyMetadata(const QString& path, QVariantMap& metadata, bool write)
{
    Result<QVariantMap> legacy = legacyMetadata();
    if (!legacy) {
        return legacy.error();
    }
    for (auto it = legacy->begin(); it != legacy->end(); ++it) {
        metadata.insert(it.key(), it.value());
    }
    return write ? store::SqliteStore::writeMetadata(path, metadata) : Status();
}

// Reads the metadata and, for a file from before model versioning, merges
// the legacy metadata into it. Then the file is current, of the first model,
// or an error (a newer model, or no model at all).
struct Recognised {
    QVariantMap metadata;
    bool isCurrent = false;
    bool legacyMerged = false;  // the legacy metadata was merged in
};

Result<Recognised> recognise(const QString& path, bool writeLegacyMetadata = true)
{
    Result<QVariantMap> stored = store::SqliteStore::readMetadata(path);
    if (!stored) {
        return stored.error();
    }
    Recognised file{std::move(stored.value()), false};
    if (isCompatibleWithCurrentModel(file.metadata)) {
        file.isCurrent = true;
        return file;
    }
    if (predatesModelVersions(file.metadata)) {
        if (Status merged = mergeLegacyMetadata(path, file.metadata, writeLegacyMetadata); !merged) {
            return merged.error();
        }
        file.legacyMerged = true;
    }
    if (!file.metadata.contains(hashKey())) {
        return notOpened(path, Error::kFileReadCorruptError,
                         QStringLiteral("The file isn't a Trovara search document, or it is damaged."),
                         QStringLiteral("It names no model version."));
    }
    if (file.metadata.value(hashKey()).toString() != QString::fromLatin1(firstDocumentModel()->versionHash())) {
        return madeByNewerVersion(path);
    }
    return file;
}

// Reads the first-model store at `from`, migrates it and saves the result
// at `to` (atomically: the file at `to`, if any, is replaced only by a
// complete new one). The metadata of the old file is kept, with the current
// model's version.
Status migrateStore(const QString& from, const QString& to, const store::SaveOptions& options)
{
    QVariantMap metadata;
    Result<std::unique_ptr<store::ManagedObjectContext>> old =
        store::SqliteStore::load(from, firstDocumentModel(), &metadata);
    if (!old) {
        return old.error();
    }
    std::unique_ptr<store::ManagedObjectContext> migrated = migrateFromFirstModel(*old.value());
    return store::SqliteStore::save(*migrated, to, metadata, options);
}

bool pathIsTaken(const QString& path)
{
    const QFileInfo info(path);
    return info.exists() || info.isSymLink();
}

bool renamePath(const QString& from, const QString& to)
{
    return std::rename(QFile::encodeName(from).constData(), QFile::encodeName(to).constData()) == 0;
}

}  // namespace

Result<QVariantMap> legacyMetadata()
{
    const QStringList folders = resourceFolders();
    for (const QString& folder : folders) {
        const QString path = folder + QLatin1Char('/') + QLatin1String(kLegacyMetadataFile);
        QFile file(path);
        if (!file.exists()) {
            continue;
        }
        QJsonParseError parseError{};
        const QJsonDocument document =
            file.open(QIODevice::ReadOnly) ? QJsonDocument::fromJson(file.readAll(), &parseError) : QJsonDocument();
        const QJsonObject entries = document.object();
        if (!document.isObject() || !entries.value(hashKey()).isString()
            || !entries.value(QString::fromLatin1(store::SqliteStore::kModelVersionKey)).isString()) {
            Error error = Error::make(Error::kFileReadCorruptError,
                                      QStringLiteral("Trovara's installation is incomplete."),
                                      QStringLiteral("The resource “%1” is unreadable.").arg(path),
                                      QStringLiteral("Install Trovara again."));
            error.userInfo.insert(QStringLiteral("path"), path);
            return error;
        }
        return entries.toVariantMap();
    }
    return Error::make(Error::kFileReadError, QStringLiteral("Trovara's installation is incomplete."),
                       QStringLiteral("The resource “%1” is missing (looked in %2).")
                           .arg(QLatin1String(kLegacyMetadataFile), folders.join(QStringLiteral(", "))),
                       QStringLiteral("Install Trovara again."));
}

bool isCompatibleWithCurrentModel(const QVariantMap& metadata)
{
    return metadata.value(hashKey()).toString() == QString::fromLatin1(model::documentModel()->versionHash());
}

Result<std::unique_ptr<store::ManagedObjectContext>> openDocumentStore(const QString& path, QVariantMap* metadata,
                                                                      const store::SaveOptions& options)
{
    Result<Recognised> file = recognise(path);
    if (!file) {
        return file.error();
    }
    if (!file->isCurrent) {
        if (Status migrated = migrateStore(path, path, options); !migrated) {
            return migrated.error();
        }
    }
    return store::SqliteStore::load(path, model::documentModel(), metadata);
}

Status setMetadataForStoreAtPath(const QString& path, const QVariantMap& additions)
{
    Result<QVariantMap> metadata = store::SqliteStore::readMetadata(path);
    if (!metadata) {
        return metadata.error();
    }
    for (auto it = additions.begin(); it != additions.end(); ++it) {
        metadata->insert(it.key(), it.value());
    }
    return store::SqliteStore::writeMetadata(path, *metadata);
}

Result<QString> validatedURLWithPath(const QString& path, const OverwritePrompt& prompt)
{
    if (!pathIsTaken(path)) {
        return path;
    }
    if (!prompt || !prompt(path)) {
        Error error = Error::make(Error::kUserCancelledError,
                                  QStringLiteral("The document was not opened: “%1” was kept.").arg(fileName(path)));
        error.userInfo.insert(QStringLiteral("path"), path);
        return error;
    }
    if (!QFile::remove(path)) {
        Error error = Error::make(Error::kFileWriteError,
                                  QStringLiteral("The file “%1” could not be replaced.").arg(fileName(path)),
                                  QStringLiteral("It could not be removed."));
        error.userInfo.insert(QStringLiteral("path"), path);
        return error;
    }
    return path;
}

Status migrateDocumentIfNeeded(const QString& path, const OverwritePrompt& prompt, const store::SaveOptions& options)
{
    // Nothing is written into the file before the backup path is settled:
    // a person who cancels finds both files exactly as they were.
    Result<Recognised> file = recognise(path, false);
    if (!file) {
        return file.error();
    }
    if (file->isCurrent) {
        return {};
    }
    Result<QString> backup = validatedURLWithPath(path + QLatin1Char('~'), prompt);
    if (!backup) {
        return backup.error();
    }
    if (!renamePath(path, *backup)) {
        Error error = Error::make(Error::kFileWriteError,
                                  QStringLiteral("The document “%1” could not be updated.").arg(fileName(path)),
                                  QStringLiteral("It could not be moved aside: %1")
                                      .arg(QString::fromLocal8Bit(std::strerror(errno))));
        error.userInfo.insert(QStringLiteral("path"), path);
        return error;
    }
    // The old file, kept as the backup, says which model it follows.
    Status migrated = file->legacyMerged ? store::SqliteStore::writeMetadata(*backup, file->metadata) : Status();
    if (migrated) {
        migrated = migrateStore(*backup, path, options);
    }
    if (!migrated) {
        TLOG(QStringLiteral("migration error: %1").arg(migrated.error().toString()));
        TLOG(QStringLiteral("user Info: %1")
                 .arg(QString::fromUtf8(QJsonDocument(QJsonObject::fromVariantMap(migrated.error().userInfo)).toJson(
                     QJsonDocument::Compact))));
        if (!pathIsTaken(path)) {
            renamePath(*backup, path);
        }
        return migrated;
    }
    return {};
}

QString documentNameForPath(const QString& path)
{
    QString name = QFileInfo(path).fileName();
    const QString suffix = QLatin1Char('.') + QLatin1String(kDocumentExtension);
    if (name.endsWith(suffix)) {
        name.chop(suffix.size());
    }
    return name;
}

}  // namespace trovara::document
