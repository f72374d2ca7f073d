#include "widgets/file_icons.h"

#include <QApplication>
#include <QFileInfo>
#include <QHash>
#include <QMimeDatabase>
#include <QStyle>

namespace trovara::widgets {

namespace {

// "image-png" → "image-x-generic"; "application-pdf" → none.
QString genericNameFor(const QString& iconName)
{
    const qsizetype dash = iconName.indexOf(QLatin1Char('-'));
    if (dash <= 0) {
        return {};
    }
    const QString family = iconName.left(dash);
    static const QStringList families{QStringLiteral("audio"), QStringLiteral("image"), QStringLiteral("text"),
                                      QStringLiteral("video"), QStringLiteral("font"), QStringLiteral("package")};
    return families.contains(family) ? family + QStringLiteral("-x-generic") : QString();
}

}  // namespace

QIcon themeIcon(const QString& name, const QIcon& fallback)
{
    if (QIcon::hasThemeIcon(name)) {
        return QIcon::fromTheme(name);
    }
    // Some themes (Adwaita) carry many action icons in their symbolic form only.
    const QString symbolic = name + QStringLiteral("-symbolic");
    return QIcon::hasThemeIcon(symbolic) ? QIcon::fromTheme(symbolic) : fallback;
}

void chooseIconThemeWhenNoneIsSet()
{
    const QString current = QIcon::themeName();
    if (!current.isEmpty() && current != QLatin1String("hicolor")) {
        return;
    }
    for (const QString& theme : {QStringLiteral("breeze"), QStringLiteral("Adwaita"), QStringLiteral("Papirus")}) {
        for (const QString& folder : QIcon::themeSearchPaths()) {
            if (QFileInfo::exists(folder + QLatin1Char('/') + theme + QStringLiteral("/index.theme"))) {
                QIcon::setThemeName(theme);
                return;
            }
        }
    }
}

QIcon folderIcon()
{
    static const QIcon icon = themeIcon(QStringLiteral("folder"), qApp->style()->standardIcon(QStyle::SP_DirIcon));
    return icon;
}

QIcon iconForName(const QString& iconName)
{
    static QHash<QString, QIcon> icons;
    auto found = icons.constFind(iconName);
    if (found != icons.constEnd()) {
        return *found;
    }
    QIcon icon;
    if (iconName == QLatin1String("inode-directory") || iconName == QLatin1String("folder")) {
        icon = folderIcon();
    } else if (!iconName.isEmpty() && QIcon::hasThemeIcon(iconName)) {
        icon = QIcon::fromTheme(iconName);
    } else if (const QString generic = genericNameFor(iconName); !generic.isEmpty() && QIcon::hasThemeIcon(generic)) {
        icon = QIcon::fromTheme(generic);
    } else {
        icon = themeIcon(QStringLiteral("text-x-generic"), qApp->style()->standardIcon(QStyle::SP_FileIcon));
    }
    icons.insert(iconName, icon);
    return icon;
}

QIcon iconForFile(const QString& path)
{
    static const QMimeDatabase database;
    const QMimeType type = database.mimeTypeForFile(path);
    if (type.name() == QLatin1String("inode/directory")) {
        return folderIcon();
    }
    return iconForName(QIcon::hasThemeIcon(type.iconName()) ? type.iconName() : type.genericIconName());
}

}  // namespace trovara::widgets
