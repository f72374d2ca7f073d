// The key combinations the desktop already uses for system-wide shortcuts,
// so that a shortcut recorder can refuse them.
//
// The list is the union of a few combinations every Linux desktop reserves
// (switching windows, closing them, locking the screen …) and what the
// running desktop says it uses: KDE Plasma's global shortcuts file
// (kglobalshortcutsrc) and GNOME's key-binding settings (read with
// `gsettings`). Reading the desktop may take a moment; do it once, when a
// recorder first needs it.
#pragma once

#include "app/key_combination.h"

#include <QString>
#include <QStringList>

#include <functional>
#include <vector>

namespace trovara::app {

class SystemShortcuts {
public:
    // What the desktop reserves on every Linux desktop.
    static SystemShortcuts builtIn();
    // builtIn() and what the running desktop reports. `runGsettings` answers
    // `gsettings list-recursively SCHEMA` (empty when there is no gsettings);
    // by default it runs the program.
    using GsettingsReader = std::function<QString(const QString& schema)>;
    static SystemShortcuts fromDesktop(const QString& kdeShortcutsFile = defaultKdeShortcutsFile(),
                                       const GsettingsReader& runGsettings = {});
    static QString defaultKdeShortcutsFile();
    // The GNOME schemas whose keys are key bindings.
    static QStringList gnomeKeyBindingSchemas();

    // Adds the shortcuts of a kglobalshortcutsrc file's text: each entry is
    // "name=active,default,description", several shortcuts of one action
    // separated by tabs; "none" means none.
    void addKdeShortcuts(const QString& fileText);
    // Adds the accelerators of `gsettings list-recursively` output: lines
    // "schema key ['<Super>l', '<Control><Alt>Delete']" (or @as []).
    void addGsettingsOutput(const QString& output);
    void add(const KeyCombination& combination);

    bool contains(const KeyCombination& combination) const;
    const std::vector<KeyCombination>& combinations() const { return m_combinations; }

    // The message a recorder shows when it refuses `combination` (its
    // readable text stands for the placeholder).
    static QString refusalMessage(const KeyCombination& combination);

private:
    std::vector<KeyCombination> m_combinations;
};

}  // namespace trovara::app
