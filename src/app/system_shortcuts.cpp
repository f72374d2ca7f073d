#include "app/system_shortcuts.h"

#include <QCoreApplication>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>

#include <algorithm>

namespace trovara::app {

namespace {

// Combinations no Linux desktop leaves to applications.
constexpr const char* kReserved[] = {
    "Alt+Tab",        "Alt+Shift+Tab",   "Alt+Backtab", "Alt+F4",       "Alt+F2",     "Alt+F1",
    "Ctrl+Alt+Del",   "Ctrl+Alt+T",      "Ctrl+Alt+L",  "Ctrl+Alt+Left", "Ctrl+Alt+Right", "Ctrl+Alt+Up",
    "Ctrl+Alt+Down",  "Ctrl+Alt+Backspace", "Meta+L",   "Meta+D",       "Meta+Tab",   "Meta+Left",
    "Meta+Right",     "Meta+Up",         "Meta+Down",   "Meta+Space",   "Print",      "Alt+Print",
    "Shift+Print",    "Ctrl+Esc",
};

}  // namespace

SystemShortcuts SystemShortcuts::builtIn()
{
    SystemShortcuts shortcuts;
    for (const char* text : kReserved) {
        if (const std::optional<KeyCombination> combination = parsePortableShortcut(QLatin1String(text))) {
            shortcuts.add(*combination);
        }
    }
    return shortcuts;
}

QString SystemShortcuts::defaultKdeShortcutsFile()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation)
           + QStringLiteral("/kglobalshortcutsrc");
}

QStringList SystemShortcuts::gnomeKeyBindingSchemas()
{
    return {
        QStringLiteral("org.gnome.desktop.wm.keybindings"),
        QStringLiteral("org.gnome.shell.keybindings"),
        QStringLiteral("org.gnome.mutter.keybindings"),
        QStringLiteral("org.gnome.mutter.wayland.keybindings"),
        QStringLiteral("org.gnome.settings-daemon.plugins.media-keys"),
    };
}

SystemShortcuts SystemShortcuts::fromDesktop(const QString& kdeShortcutsFile, const GsettingsReader& runGsettings)
{
    SystemShortcuts shortcuts = builtIn();
    QFile kde(kdeShortcutsFile);
    if (kde.open(QIODevice::ReadOnly)) {
        shortcuts.addKdeShortcuts(QString::fromUtf8(kde.readAll()));
    }
    GsettingsReader reader = runGsettings;
    if (!reader) {
        const QString program = QStandardPaths::findExecutable(QStringLiteral("gsettings"));
        if (program.isEmpty()) {
            return shortcuts;
        }
        reader = [program](const QString& schema) {
            QProcess process;
            process.start(program, {QStringLiteral("list-recursively"), schema});
            // A schema the desktop does not have is an error; nothing to add.
            if (!process.waitForFinished(2000) || process.exitCode() != 0) {
                process.kill();
                return QString();
            }
            return QString::fromUtf8(process.readAllStandardOutput());
        };
    }
    for (const QString& schema : gnomeKeyBindingSchemas()) {
        shortcuts.addGsettingsOutput(reader(schema));
    }
    return shortcuts;
}

void SystemShortcuts::addKdeShortcuts(const QString& fileText)
{
    const QStringList lines = fileText.split(QLatin1Char('\n'));
    for (const QString& rawLine : lines) {
        const QString line = rawLine.trimmed();
        const int equals = line.indexOf(QLatin1Char('='));
        if (line.startsWith(QLatin1Char('[')) || line.startsWith(QLatin1Char('#')) || equals <= 0
            || line.startsWith(QLatin1String("_k_"))) {
            continue;
        }
        // The active shortcuts end at the first comma that is not escaped
        // ("Meta+\\," is the comma key).
        const QString value = line.mid(equals + 1);
        QString active;
        for (int i = 0; i < value.size(); ++i) {
            if (value[i] == QLatin1Char('\\') && i + 1 < value.size()) {
                active += value[i];
                active += value[++i];
                continue;
            }
            if (value[i] == QLatin1Char(',')) {
                break;
            }
            active += value[i];
        }
        // Several shortcuts of one action are separated by tabs, written
        // as "\t" in the file.
        active.replace(QLatin1String("\\t"), QLatin1String("\t"));
        active.replace(QLatin1String("\\,"), QLatin1String(","));
        active.replace(QLatin1String("\\\\"), QLatin1String("\\"));
        for (const QString& shortcut : active.split(QLatin1Char('\t'), Qt::SkipEmptyParts)) {
            if (const std::optional<KeyCombination> combination = parsePortableShortcut(shortcut)) {
                add(*combination);
            }
        }
    }
}

void SystemShortcuts::addGsettingsOutput(const QString& output)
{
    static const QRegularExpression quoted(QStringLiteral("'((?:[^'\\\\]|\\\\.)*)'"));
    const QStringList lines = output.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    for (const QString& line : lines) {
        // "schema key value": the accelerators are the quoted texts of the value.
        const int keyEnd = line.indexOf(QLatin1Char(' '), line.indexOf(QLatin1Char(' ')) + 1);
        if (keyEnd < 0) {
            continue;
        }
        auto matches = quoted.globalMatch(line, keyEnd);
        while (matches.hasNext()) {
            if (const std::optional<KeyCombination> combination = parseGtkAccelerator(matches.next().captured(1))) {
                add(*combination);
            }
        }
    }
}

void SystemShortcuts::add(const KeyCombination& combination)
{
    if (combination.isValid() && !contains(combination)) {
        m_combinations.push_back(combination);
    }
}

bool SystemShortcuts::contains(const KeyCombination& combination) const
{
    return std::find(m_combinations.begin(), m_combinations.end(), combination) != m_combinations.end();
}

QString SystemShortcuts::refusalMessage(const KeyCombination& combination)
{
    return QCoreApplication::translate(
               "Preferences",
               "The key combination \"%1\" can't be used because it's already used by a system-wide keyboard "
               "shortcut. (If you really want to use this key combination, most shortcuts can be changed in the "
               "Keyboard & Mouse panel in System Preferences.)")
        .arg(keyCombinationText(combination));
}

}  // namespace trovara::app
