// The search document's file as a whole: what identifies it, the metadata
// kept beside its data, the model versions it may have been written with,
// and the migration of files written with an older model.
//
// Model versions (docs/format/document.md describes each):
//   "Trovara 1": the first model. Files from before model versioning carry
//     no model version identification at all, only the file version 1;
//     their visible columns live in the settings "resultColumns" and
//     "resultColumnWidths", and they have no limit.
//   "Trovara 2": the current model (model/document_model.h).
//
// A file written with the first model is recognised by its metadata: no
// model version hash (then the "LegacyMetadata" resource beside the
// program supplies the first model's identification) or the first model's
// hash. It is migrated into the current model, its old file kept beside
// the new one with "~" appended.
#pragma once

#include "common/error.h"
#include "store/managed_object_context.h"
#include "store/sqlite_store.h"

#include <QString>
#include <QVariantMap>

#include <functional>
#include <memory>

namespace trovara::document {

// The document type, its file extension (without the dot) and MIME type.
inline constexpr const char* kDocumentType = "com.velmont.trovara.query";
inline constexpr const char* kDocumentExtension = "trova";
inline constexpr const char* kDocumentMimeType = "application/x-trovara-query";

// The folders Trovara's resources (the "LegacyMetadata" file, the default
// templates) are read from, most specific first: $TROVARA_DATA_DIR alone
// when set, else share/trovara beside the program's bin/ folder, then the
// installation's.
QStringList resourceFolders();

// A document's file name less a trailing ".trova": what titles and menus show.
QString documentNameForPath(const QString& path);

// The metadata entry of the file version: 1 for files of the first format,
// from before model versioning; the current files carry 2.
inline constexpr const char* kFileVersionKey = "QZTVFileVersion";
inline constexpr int kCurrentFileVersion = 2;

// The first model ("Trovara 1"), as old files were written with it.
std::shared_ptr<const store::ManagedObjectModel> firstDocumentModel();

// The entries of the "LegacyMetadata" resource beside the program: the first
// model's version identification, merged into files from before model
// versioning. An error when the resource is missing or unreadable (a
// packaging fault).
Result<QVariantMap> legacyMetadata();

// Whether the current model reads a store with this metadata as it is.
bool isCompatibleWithCurrentModel(const QVariantMap& metadata);

// Opens a document's store: a current file directly; a file from before
// model versioning after the legacy metadata is merged into it and written
// back, migrating it in place to the current model. A file of an unknown
// (newer) model is an error, the file untouched. `metadata` receives the
// opened store's metadata when not null.
// `options` reaches the save of the migrated file (tests inject faults).
Result<std::unique_ptr<store::ManagedObjectContext>> openDocumentStore(const QString& path,
                                                                      QVariantMap* metadata = nullptr,
                                                                      const store::SaveOptions& options = {});

// Rewrites the metadata of the store at the path as a fresh dictionary:
// what is there, with `additions` laid over it.
Status setMetadataForStoreAtPath(const QString& path, const QVariantMap& additions = {});

// The question asked before an existing backup file is replaced.
inline constexpr const char* kOverwriteMessage = "Overwrite existing file?";
inline constexpr const char* kOverwriteInformativeText =
    "The existing file was made using a previous version of this application. There is an existing file from the "
    "current version that already exists with the same name.  Opening this file will overwrite the existing version.";
inline constexpr const char* kOverwriteOKButton = "OK";
inline constexpr const char* kOverwriteCancelButton = "Cancel";

// Asked before an existing backup file is replaced; true means OK.
using OverwritePrompt = std::function<bool(const QString& backupPath)>;

// Validates the backup path of a migration: nothing there → the path;
// something there → the prompt decides: OK removes it and gives the path,
// Cancel gives the user-cancelled error with both files left as they are.
Result<QString> validatedURLWithPath(const QString& path, const OverwritePrompt& prompt);

// When the file at the path was written with an older model: merges the
// legacy metadata into it when it has none, moves it to PATH~ (validated
// as above) and migrates it into a new file of the current model at the
// path. A current file is left alone. On failure, the original file is at
// the path or at PATH~, never lost. `options` reaches the save of the
// migrated file.
Status migrateDocumentIfNeeded(const QString& path, const OverwritePrompt& prompt,
                               const store::SaveOptions& options = {});

}  // namespace trovara::document
