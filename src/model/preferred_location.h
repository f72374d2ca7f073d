// The application-wide list of places a search can cover: the three named
// scopes (home folder, local volumes plus home, network volumes) and
// folders. A new document searches the ones marked default; the scope
// editor offers all of them.
//
// The list is kept in the user defaults under "preferredLocations" as a
// sequential archive (see archive()); each location also has a keyed form.
#pragma once

#include "common/error.h"

#include <QByteArray>
#include <QString>
#include <QVariantMap>

#include <optional>
#include <vector>

class QDataStream;

namespace trovara::model {

// The label of a scope constant's stored value (" - User home folder" …), or
// a null string when the value is not one of the three constants.
QString constantScopeLabel(const QString& value);

class PreferredLocation {
public:
    static PreferredLocation locationWithPath(QString path, bool isConstant, bool isDefault, bool isFactoryDefault);
    PreferredLocation(QString path, bool isConstant, bool isDefault);

    const QString& path() const { return m_path; }
    bool isConstant() const { return m_isConstant; }
    bool isDefault() const { return m_isDefault; }
    bool isFactoryDefault() const { return m_isFactoryDefault; }
    void setDefault(bool isDefault) { m_isDefault = isDefault; }

    // A constant's label when the path is one of the three constants'
    // values (whatever isConstant says), else the path itself. Cached.
    QString label() const;

    bool operator==(const PreferredLocation& other) const;

    // Keyed form: "path", "isConstant", "isDefault", "isFactoryDefault".
    QVariantMap toKeyedArchive() const;
    static PreferredLocation fromKeyedArchive(const QVariantMap& archive);

    // Sequential form: the path, then the three flags in the order above.
    void encode(QDataStream& stream) const;
    static PreferredLocation decode(QDataStream& stream);

    // A whole list as bytes (versioned; an unknown version or damaged bytes
    // are an error).
    static QByteArray archive(const std::vector<PreferredLocation>& locations);
    static Result<std::vector<PreferredLocation>> unarchive(const QByteArray& data);

    // Sorted by label ascending.
    static void sortByLabel(std::vector<PreferredLocation>& locations);

    // The list Trovara ships with: home (default), local computer, network,
    // "/", "~/Documents/", the users' folder and the applications folder.
    static std::vector<PreferredLocation> factoryLocations();

private:
    PreferredLocation() = default;

    QString m_path;
    bool m_isConstant = false;
    bool m_isDefault = false;
    bool m_isFactoryDefault = false;
    mutable std::optional<QString> m_label;
};

}  // namespace trovara::model
