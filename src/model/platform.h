// What differs between the platforms Trovara's searches were written on, as
// named constants. On Linux the toolkit is never of an older generation, so
// sizes use base 1000 and no compatibility clause is added; the older
// branches stay and are exercised by tests that set an older version.
#pragma once

#include <QString>

#include <functional>

namespace trovara::model::platform {

// The host toolkit's version number, whole part. Linux answers a current
// version; tests may pretend otherwise.
double toolkitVersion();
void setToolkitVersionForTesting(double version);  // < 0 restores the real one

// 1024 on a toolkit of the 824 generation or older, otherwise 1000.
int byteUnitBase();

// The scope constants' stored values, kept exactly as old documents hold them.
inline constexpr const char* kUserHomeScope = "kMDQueryScopeHome";
inline constexpr const char* kLocalComputerScope = "kMDQueryScopeComputer";
inline constexpr const char* kNetworkScope = "kMDQueryScopeNetwork";

// Folders of the factory list of preferred locations that have a
// Linux-specific place.
inline constexpr const char* kUsersFolder = "/home/";
inline constexpr const char* kApplicationsFolder = "/usr/share/applications/";

// Where other volumes are mounted; a path under one of these is not on the
// start-up volume.
inline constexpr const char* kOtherVolumeRoots[] = {"/media/", "/run/media/", "/mnt/"};

// The start-up volume's name: the root file system's label, else "/".
QString startupVolumeName();
void setStartupVolumeNameProviderForTesting(std::function<QString()> provider);

}  // namespace trovara::model::platform
