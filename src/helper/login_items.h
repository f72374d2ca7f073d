// The user's login items: the XDG autostart entries (the ".desktop" files
// of ~/.config/autostart, in the order of their names), which the desktop
// starts when the user logs in.
#pragma once

#include "common/error.h"

#include <QString>
#include <QStringList>

#include <optional>

namespace trovara::helper {

class LoginItems {
public:
    // Answers of indexOf() besides a position.
    static constexpr int kNotThere = -1;
    static constexpr int kUnreadable = -2;

    // $XDG_CONFIG_HOME/autostart (~/.config/autostart).
    static QString defaultFolder();

    explicit LoginItems(QString folder = defaultFolder());
    const QString& folder() const { return m_folder; }

    // The entries' file names in order; nothing when the folder cannot be
    // read (a missing folder has no entries).
    std::optional<QStringList> entries() const;
    // The position of the entry named `entryName` ("trovara-helper.desktop");
    // kNotThere, or kUnreadable when the folder cannot be read.
    int indexOf(const QString& entryName) const;
    // Writes the entry (replacing one of the same name whole, or not at
    // all), making the folder when needed. The entry starts its program
    // without showing it in menus.
    Status addHidden(const QString& entryName, const QString& name, const QString& program,
                     const QStringList& arguments = {});
    // Removes the entry at `index` of entries().
    Status removeAt(int index);

private:
    QString m_folder;
};

}  // namespace trovara::helper
