// Icons from the desktop's icon theme, with fallbacks for a desktop that
// has none (or lacks a name): a file type's own icon, then its generic
// family ("image-x-generic"), then the style's plain file or folder icon.
// Icons are looked up once per name. Main thread only.
#pragma once

#include <QIcon>
#include <QString>

namespace trovara::widgets {

// The icon of a freedesktop icon name ("text-plain", "inode-directory").
QIcon iconForName(const QString& iconName);
// The icon of the file's type, by its name and contents.
QIcon iconForFile(const QString& path);
QIcon folderIcon();
// A theme icon (or its symbolic form), else the fallback.
QIcon themeIcon(const QString& name, const QIcon& fallback = {});
// Without a desktop that names an icon theme (a bare X session), the first
// installed of the common themes, so that icons show at all.
void chooseIconThemeWhenNoneIsSet();

}  // namespace trovara::widgets
