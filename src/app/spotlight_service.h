// The switch of the desktop's own file indexer (KDE's Baloo, GNOME's
// LocalSearch / Tracker): Trovara answers searches from its own index, so a
// user may turn the desktop's indexer off, or on again, from Trovara's
// preferences.
//
// The logic is one for every desktop: the indexer's state is read as an
// entry "Disabled" that is "true…" (off), "false…" (on), missing (on) or
// "Error:…" (unreadable); turning it off adds or sets the entry, turning it
// on deletes it. An adapter (IndexerAdapter) reads the state with the
// desktop's own command and turns the three edits into its commands. All
// commands go through an injected runner, so tests never run them. An
// indexer that needs administrator rights runs them through pkexec
// (Authorization).
//
// Main thread only; the commands run to their end before an answer.
#pragma once

#include "common/error.h"

#include <QList>
#include <QString>
#include <QStringList>

#include <functional>
#include <memory>
#include <optional>

namespace trovara::app {

// A command's end: whether it started, its exit status and its standard
// output and error together.
struct CommandOutput {
    bool started = false;
    int exitCode = -1;
    QString output;
};
using CommandRunner = std::function<CommandOutput(const QString& program, const QStringList& arguments)>;
// Runs commands with QProcess (a minute at most each).
CommandRunner processCommandRunner();
// Finds a program on the PATH; empty when there is none.
using ProgramFinder = std::function<QString(const QString& name)>;
ProgramFinder pathProgramFinder();

// Runs a tool with administrator rights through pkexec, which asks the
// user for the password when the tool runs.
class Authorization {
public:
    static constexpr const char* kPkexec = "pkexec";

    Authorization(QString toolPath, CommandRunner runner, ProgramFinder finder);

    // Whether rights can be had at all (pkexec is there); the password is
    // asked by pkexec itself.
    bool authenticate();
    bool isAuthenticated() const { return !m_authRef.isEmpty(); }
    // The tool with `arguments` under the rights; 0 for success.
    int runAuthenticated(const QStringList& arguments);
    int runToolAuthenticated(const QString& toolPath, const QStringList& arguments);
    void deauthenticate() { clearAuthRef(); }
    void clearAuthRef() { m_authRef.clear(); }

private:
    QString m_toolPath;
    CommandRunner m_runner;
    ProgramFinder m_finder;
    QString m_authRef;  // pkexec's path while authenticated
};

// One desktop's indexer.
class IndexerAdapter {
public:
    // The three edits of the "Disabled" entry.
    enum class Edit { AddDisabled, SetDisabled, DeleteDisabled };

    virtual ~IndexerAdapter() = default;
    // "Baloo", "LocalSearch".
    virtual QString name() const = 0;
    // Whether the indexer is installed.
    virtual bool exists() const = 0;
    // The command that reads its state.
    virtual QStringList readCommand() const = 0;
    // The read command's output in the entry's terms (see above).
    virtual QString entryText(const CommandOutput& read) const = 0;
    // The commands of one edit, in order (program first).
    virtual QList<QStringList> commands(Edit edit) const = 0;
    // Whether the commands need administrator rights.
    virtual bool needsRights() const { return false; }
};

// KDE's Baloo, through balooctl6 (or balooctl).
std::unique_ptr<IndexerAdapter> makeBalooAdapter(ProgramFinder finder);
// GNOME's LocalSearch (formerly Tracker), through gsettings and
// localsearch (or tracker3).
std::unique_ptr<IndexerAdapter> makeLocalSearchAdapter(ProgramFinder finder);

class SpotlightService {
public:
    // The entry's text when the indexer has no "Disabled" entry.
    static constexpr const char* kDoesNotExist = "Print: Entry, \"Disabled\", Does Not Exist";

    SpotlightService(std::unique_ptr<IndexerAdapter> adapter, CommandRunner runner,
                     ProgramFinder finder = pathProgramFinder());
    // The desktop's indexer: the first of Baloo and LocalSearch that is
    // installed; nothing when neither is.
    static std::unique_ptr<SpotlightService> forDesktop(CommandRunner runner = processCommandRunner(),
                                                        ProgramFinder finder = pathProgramFinder());

    const IndexerAdapter& adapter() const { return *m_adapter; }
    bool serviceExists() const { return m_adapter->exists(); }
    // The entry's text; nothing (without an error) when the indexer is not
    // installed; an error with the texts below when it cannot be read.
    Result<std::optional<QString>> readDisabledEntry() const;
    // Whether the indexer is on: the entry begins with "false" or is
    // missing. Off when it cannot be read.
    bool isEnabled() const;
    Status disable() { return updateSpotlightService(true); }
    Status enable() { return updateSpotlightService(false); }
    Status updateSpotlightService(bool disable);

    // The preferences button's title for the current state.
    QString buttonTitle() const;

private:
    Error failure(const QString& text, const QString& suggestion = {}) const;

    std::unique_ptr<IndexerAdapter> m_adapter;
    CommandRunner m_runner;
    ProgramFinder m_finder;
};

}  // namespace trovara::app
