#include "model/preferred_location.h"

#include "model/localization.h"
#include "model/platform.h"

#include <QDataStream>
#include <QIODevice>

#include <algorithm>

namespace trovara::model {

namespace {

// "TRPL", then the archive version.
constexpr quint32 kArchiveMagic = 0x5452504C;
constexpr quint32 kArchiveVersion = 1;

}  // namespace

QString constantScopeLabel(const QString& value)
{
    if (value == QLatin1String(platform::kUserHomeScope)) {
        return localized(QStringLiteral(" - User home folder"));
    }
    if (value == QLatin1String(platform::kLocalComputerScope)) {
        return localized(QStringLiteral(" - Local volumes + user home"));
    }
    if (value == QLatin1String(platform::kNetworkScope)) {
        return localized(QStringLiteral(" - User-mounted remote volumes"));
    }
    return {};
}

PreferredLocation PreferredLocation::locationWithPath(QString path, bool isConstant, bool isDefault,
                                                      bool isFactoryDefault)
{
    PreferredLocation location(std::move(path), isConstant, isDefault);
    location.m_isFactoryDefault = isFactoryDefault;
    return location;
}

PreferredLocation::PreferredLocation(QString path, bool isConstant, bool isDefault)
    : m_path(std::move(path))
    , m_isConstant(isConstant)
    , m_isDefault(isDefault)
{
}

QString PreferredLocation::label() const
{
    if (!m_label) {
        const QString constant = constantScopeLabel(m_path);
        m_label = constant.isNull() ? m_path : constant;
    }
    return *m_label;
}

bool PreferredLocation::operator==(const PreferredLocation& other) const
{
    return m_path == other.m_path && m_isConstant == other.m_isConstant && m_isDefault == other.m_isDefault
           && m_isFactoryDefault == other.m_isFactoryDefault;
}

QVariantMap PreferredLocation::toKeyedArchive() const
{
    return {
        {QStringLiteral("path"), m_path},
        {QStringLiteral("isConstant"), m_isConstant},
        {QStringLiteral("isDefault"), m_isDefault},
        {QStringLiteral("isFactoryDefault"), m_isFactoryDefault},
    };
}

PreferredLocation PreferredLocation::fromKeyedArchive(const QVariantMap& archive)
{
    return locationWithPath(archive.value(QStringLiteral("path")).toString(),
                            archive.value(QStringLiteral("isConstant")).toBool(),
                            archive.value(QStringLiteral("isDefault")).toBool(),
                            archive.value(QStringLiteral("isFactoryDefault")).toBool());
}

void PreferredLocation::encode(QDataStream& stream) const
{
    stream << m_path << m_isConstant << m_isDefault << m_isFactoryDefault;
}

PreferredLocation PreferredLocation::decode(QDataStream& stream)
{
    PreferredLocation location;
    stream >> location.m_path >> location.m_isConstant >> location.m_isDefault >> location.m_isFactoryDefault;
    return location;
}

QByteArray PreferredLocation::archive(const std::vector<PreferredLocation>& locations)
{
    QByteArray data;
    QDataStream stream(&data, QIODevice::WriteOnly);
    stream.setVersion(QDataStream::Qt_6_0);
    stream << kArchiveMagic << kArchiveVersion << static_cast<quint32>(locations.size());
    for (const PreferredLocation& location : locations) {
        location.encode(stream);
    }
    return data;
}

Result<std::vector<PreferredLocation>> PreferredLocation::unarchive(const QByteArray& data)
{
    auto damaged = [](const QString& reason) {
        return Error::make(Error::kFileReadCorruptError, QStringLiteral("The list of preferred places can't be read."),
                           reason, QStringLiteral("The factory list is used instead."));
    };
    QDataStream stream(data);
    stream.setVersion(QDataStream::Qt_6_0);
    quint32 magic = 0;
    quint32 version = 0;
    quint32 count = 0;
    stream >> magic >> version >> count;
    if (stream.status() != QDataStream::Ok || magic != kArchiveMagic) {
        return damaged(QStringLiteral("The stored list is not a list of places."));
    }
    if (version > kArchiveVersion) {
        return damaged(QStringLiteral("The stored list was written by a newer version of Trovara."));
    }
    std::vector<PreferredLocation> locations;
    for (quint32 i = 0; i < count && stream.status() == QDataStream::Ok; ++i) {
        locations.push_back(decode(stream));
    }
    if (stream.status() != QDataStream::Ok || locations.size() != count) {
        return damaged(QStringLiteral("The stored list is incomplete."));
    }
    return locations;
}

void PreferredLocation::sortByLabel(std::vector<PreferredLocation>& locations)
{
    std::stable_sort(locations.begin(), locations.end(), [](const PreferredLocation& a, const PreferredLocation& b) {
        return a.label().compare(b.label()) < 0;
    });
}

std::vector<PreferredLocation> PreferredLocation::factoryLocations()
{
    return {
        locationWithPath(QString::fromLatin1(platform::kUserHomeScope), true, true, true),
        locationWithPath(QString::fromLatin1(platform::kLocalComputerScope), true, false, true),
        locationWithPath(QString::fromLatin1(platform::kNetworkScope), true, false, true),
        locationWithPath(QStringLiteral("/"), false, false, true),
        locationWithPath(QStringLiteral("~/Documents/"), false, false, true),
        locationWithPath(QString::fromLatin1(platform::kUsersFolder), false, false, true),
        locationWithPath(QString::fromLatin1(platform::kApplicationsFolder), false, false, true),
    };
}

}  // namespace trovara::model
