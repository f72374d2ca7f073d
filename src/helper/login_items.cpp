#include "helper/login_items.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QStandardPaths>

namespace trovara::helper {

namespace {

// An Exec argument as the desktop entry format quotes it.
QString quotedArgument(const QString& argument)
{
    static const QString kReserved = QStringLiteral(" \t\n\"'\\><~|&;$*?#()`=%");
    bool plain = !argument.isEmpty();
    for (const QChar c : argument) {
        plain = plain && !kReserved.contains(c);
    }
    if (plain) {
        return argument;
    }
    QString quoted;
    for (const QChar c : argument) {
        if (c == QLatin1Char('"') || c == QLatin1Char('`') || c == QLatin1Char('$') || c == QLatin1Char('\\')) {
            quoted += QLatin1Char('\\');
        }
        quoted += c;
    }
    // Inside a value "\\" stands for one backslash, and "%" for a field code.
    quoted.replace(QLatin1Char('\\'), QLatin1String("\\\\"));
    quoted.replace(QLatin1Char('%'), QLatin1String("%%"));
    return QLatin1Char('"') + quoted + QLatin1Char('"');
}

Error loginItemError(const QString& description, const QString& reason)
{
    return Error::make(Error::kNone, description, reason);
}

}  // namespace

QString LoginItems::defaultFolder()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) + QStringLiteral("/autostart");
}

LoginItems::LoginItems(QString folder)
    : m_folder(std::move(folder))
{
}

std::optional<QStringList> LoginItems::entries() const
{
    const QFileInfo info(m_folder);
    if (!info.exists()) {
        return QStringList();
    }
    if (!info.isDir() || !info.isReadable() || !info.isExecutable()) {
        return std::nullopt;
    }
    return QDir(m_folder).entryList({QStringLiteral("*.desktop")}, QDir::Files | QDir::Hidden, QDir::Name);
}

int LoginItems::indexOf(const QString& entryName) const
{
    const std::optional<QStringList> names = entries();
    if (!names) {
        return kUnreadable;
    }
    return static_cast<int>(names->indexOf(entryName));
}

Status LoginItems::addHidden(const QString& entryName, const QString& name, const QString& program,
                             const QStringList& arguments)
{
    if (!QDir().mkpath(m_folder)) {
        return loginItemError(QStringLiteral("%1 cannot start at login.").arg(name),
                              QStringLiteral("The folder %1 cannot be made.").arg(m_folder));
    }
    QStringList command{quotedArgument(program)};
    for (const QString& argument : arguments) {
        command << quotedArgument(argument);
    }
    const QString contents = QStringLiteral("[Desktop Entry]\n"
                                            "Type=Application\n"
                                            "Name=%1\n"
                                            "Exec=%2\n"
                                            "Terminal=false\n"
                                            "NoDisplay=true\n"
                                            "X-GNOME-Autostart-enabled=true\n")
                                 .arg(name, command.join(QLatin1Char(' ')));
    QSaveFile file(m_folder + QLatin1Char('/') + entryName);
    if (!file.open(QIODevice::WriteOnly) || file.write(contents.toUtf8()) < 0 || !file.commit()) {
        return loginItemError(QStringLiteral("%1 cannot start at login.").arg(name), file.errorString());
    }
    return {};
}

Status LoginItems::removeAt(int index)
{
    const std::optional<QStringList> names = entries();
    if (!names || index < 0 || index >= names->size()) {
        return loginItemError(QStringLiteral("The login item cannot be removed."),
                              QStringLiteral("There is no login item %1 in %2.").arg(index).arg(m_folder));
    }
    QFile file(m_folder + QLatin1Char('/') + names->at(index));
    if (!file.remove()) {
        return loginItemError(QStringLiteral("The login item cannot be removed."), file.errorString());
    }
    return {};
}

}  // namespace trovara::helper
