// Saving an object graph to an SQLite file and reading it back.
//
// The file layout is written down in docs/format/document.md: one table per
// root entity (sub-entities share their root's table, told apart by the
// "_entity" column), one column per persistent attribute and per to-one
// relationship, and a "_metadata" key/value table. The file carries
// Trovara's application id and the container format version in the SQLite
// header, so that other files are recognised before anything is read.
//
// A save never damages an existing file: the graph is written to a temporary
// file beside the target, flushed to disk, and only then renamed over it.
// A load reads everything or nothing: a damaged file, a file of another
// kind or one written by a newer version is an Error, never half a graph.
#pragma once

#include "common/error.h"
#include "store/managed_object_context.h"

#include <QString>
#include <QStringList>
#include <QVariantMap>

#include <functional>
#include <memory>

namespace trovara::store {

// The points of a save at which a fault can be injected (tests play a full
// disk, a failing rename or a crash there).
enum class SaveStep {
    TemporaryCreated,  // the temporary file exists, still empty
    ObjectWritten,     // after each object's row
    Committed,         // all rows are in the temporary file
    BeforeRename,      // the temporary file is complete and flushed
};

struct SaveOptions {
    // Called at every step; an error stops the save there as if the disk
    // had failed, and is what save() reports.
    std::function<Status(SaveStep)> faultHook;
};

class SqliteStore {
public:
    // "Trov" in the SQLite header's application id field.
    static constexpr int kApplicationId = 0x54726F76;
    // Version of the container format: table and column conventions, the
    // metadata table. Bumped only when an older reader could misread a file.
    static constexpr int kFormatVersion = 1;

    // Metadata keys the store itself writes.
    static constexpr const char* kModelVersionKey = "modelVersion";
    static constexpr const char* kModelVersionHashKey = "modelVersionHash";

    // Writes every live object of the context, and the metadata (with the
    // model's version identifier and hash added), to `path`.
    static Status save(const ManagedObjectContext& context, const QString& path, const QVariantMap& metadata = {},
                       const SaveOptions& options = {});

    // Reads only the metadata (and checks that the file is a Trovara store of
    // a known format version).
    static Result<QVariantMap> readMetadata(const QString& path);

    // Replaces the metadata of the store at `path` with `metadata`, in one
    // transaction: all of it or, on failure, none. The model's version keys
    // are not added: the caller gives the whole dictionary. A file that is
    // not a store of a known format version is refused and left untouched.
    static Status writeMetadata(const QString& path, const QVariantMap& metadata);

    // Reads the whole graph with the given model. The metadata is returned
    // through `metadata` when it is not null.
    static Result<std::unique_ptr<ManagedObjectContext>> load(const QString& path,
                                                               std::shared_ptr<const ManagedObjectModel> model,
                                                               QVariantMap* metadata = nullptr);

    // The statements that create an empty store for the model.
    static QStringList schemaStatements(const ManagedObjectModel& model);
};

}  // namespace trovara::store
