#include "model/platform.h"

#include <QStorageInfo>

namespace trovara::model::platform {

namespace {

// Any version above the older generations' numbers.
constexpr double kCurrentToolkitVersion = 2000.0;

double& versionOverride()
{
    static double version = -1.0;
    return version;
}

std::function<QString()>& volumeNameProvider()
{
    static std::function<QString()> provider;
    return provider;
}

}  // namespace

double toolkitVersion()
{
    return versionOverride() >= 0 ? versionOverride() : kCurrentToolkitVersion;
}

void setToolkitVersionForTesting(double version)
{
    versionOverride() = version;
}

int byteUnitBase()
{
    return static_cast<long long>(toolkitVersion()) <= 824 ? 1024 : 1000;
}

QString startupVolumeName()
{
    if (volumeNameProvider()) {
        const QString name = volumeNameProvider()();
        return name.isEmpty() ? QStringLiteral("/") : name;
    }
    const QString label = QStorageInfo::root().name();
    return label.isEmpty() ? QStringLiteral("/") : label;
}

void setStartupVolumeNameProviderForTesting(std::function<QString()> provider)
{
    volumeNameProvider() = std::move(provider);
}

}  // namespace trovara::model::platform
