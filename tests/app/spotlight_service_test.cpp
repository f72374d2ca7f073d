// The desktop indexer's switch: reading its state, choosing the edit, the
// rights, the failures with their texts, and each desktop's commands, all
// through a fake command runner (nothing is ever run).
#include "app/spotlight_service.h"

#include <QSet>

#include <gtest/gtest.h>

#include <map>

namespace trovara::test {
namespace {

using app::CommandOutput;
using app::IndexerAdapter;
using app::SpotlightService;

// Records every command and answers from a table (program + arguments
// joined by blanks -> output); unknown commands succeed silently.
struct FakeRunner {
    std::map<QString, CommandOutput> answers;
    QStringList ran;

    app::CommandRunner runner()
    {
        return [this](const QString& program, const QStringList& arguments) {
            const QString command = (QStringList{program} + arguments).join(QLatin1Char(' '));
            ran << command;
            const auto answer = answers.find(command);
            return answer != answers.end() ? answer->second : CommandOutput{true, 0, {}};
        };
    }
};

app::ProgramFinder finderOf(const QStringList& installed)
{
    return [installed](const QString& name) {
        return installed.contains(name) ? QStringLiteral("/usr/bin/") + name : QString();
    };
}

// An indexer whose read answers the entry text as it is, so the shared
// logic sees every state.
class FakeAdapter final : public IndexerAdapter {
public:
    bool installed = true;
    bool rights = false;
    QString name() const override { return QStringLiteral("Fake"); }
    bool exists() const override { return installed; }
    QStringList readCommand() const override { return {QStringLiteral("fakectl"), QStringLiteral("read")}; }
    QString entryText(const CommandOutput& read) const override { return read.output; }
    QList<QStringList> commands(Edit edit) const override
    {
        switch (edit) {
        case Edit::AddDisabled:
            return {{QStringLiteral("fakectl"), QStringLiteral("add")}};
        case Edit::SetDisabled:
            return {{QStringLiteral("fakectl"), QStringLiteral("set")}};
        case Edit::DeleteDisabled:
            return {{QStringLiteral("fakectl"), QStringLiteral("delete")}};
        }
        return {};
    }
    bool needsRights() const override { return rights; }
};

TEST(IndexerSwitch, EntryStateChoosesTheEditAndRightsAreAskedOnlyForOne)
{
    struct Row {
        const char* entry;
        bool disable;
        bool enabledBefore;
        const char* edit;  // the command run after the read; "" for none
    };
    const Row rows[] = {
        // A missing entry counts as on; turning off adds it.
        {SpotlightService::kDoesNotExist, true, true, "/usr/bin/pkexec fakectl add"},
        {"false\n", true, true, "/usr/bin/pkexec fakectl set"},
        {"true\n", true, false, ""},
        {"true\n", false, false, "/usr/bin/pkexec fakectl delete"},
        // Turning on what is on runs nothing and asks no rights.
        {"false\n", false, true, ""},
        {SpotlightService::kDoesNotExist, false, true, ""},
    };
    for (const Row& row : rows) {
        FakeRunner runner;
        runner.answers[QStringLiteral("fakectl read")] = {true, 0, QLatin1String(row.entry)};
        auto adapter = std::make_unique<FakeAdapter>();
        adapter->rights = true;
        int pkexecLookups = 0;
        SpotlightService service(std::move(adapter), runner.runner(), [&](const QString& name) {
            pkexecLookups += name == QLatin1String("pkexec");
            return QStringLiteral("/usr/bin/") + name;
        });
        EXPECT_EQ(service.isEnabled(), row.enabledBefore) << row.entry;
        runner.ran.clear();
        EXPECT_TRUE(service.updateSpotlightService(row.disable).ok()) << row.entry;
        QStringList expected{QStringLiteral("fakectl read")};
        if (*row.edit) {
            expected << QLatin1String(row.edit);
        }
        EXPECT_EQ(runner.ran, expected) << row.entry << " disable=" << row.disable;
        EXPECT_EQ(pkexecLookups, *row.edit ? 1 : 0) << row.entry;
    }
}

TEST(IndexerSwitch, FailuresCarryTheirTextsAndStopBeforeAnyEdit)
{
    struct Row {
        const char* name;
        CommandOutput read;
        bool installed;
        bool pkexec;
        bool editFails;
        const char* description;
    };
    const Row rows[] = {
        {"missing", {true, 0, QStringLiteral("false")}, false, true, false, "The Fake file indexer cannot be located"},
        {"not started", {false, -1, QStringLiteral("No such file")}, true, true, false,
         "Failed to read Fake file indexer configuration"},
        {"error output", {true, 0, QStringLiteral("Error: bad")}, true, true, false,
         "Failed to interprete Fake file indexer configuration"},
        {"exit status", {true, 3, QStringLiteral("false")}, true, true, false,
         "Failed to access Fake file indexer configuration"},
        {"no pkexec", {true, 0, QStringLiteral("false")}, true, false, false, "Failed to authorize operation"},
        {"edit fails", {true, 0, QStringLiteral("false")}, true, true, true,
         "Failed to modify Fake file indexer configuration"},
    };
    for (const Row& row : rows) {
        FakeRunner runner;
        runner.answers[QStringLiteral("fakectl read")] = row.read;
        if (row.editFails) {
            runner.answers[QStringLiteral("/usr/bin/pkexec fakectl set")] = {true, 126, {}};
        }
        auto adapter = std::make_unique<FakeAdapter>();
        adapter->installed = row.installed;
        adapter->rights = true;
        SpotlightService service(std::move(adapter), runner.runner(),
                                 finderOf(row.pkexec ? QStringList{QStringLiteral("pkexec")} : QStringList{}));
        const Status status = service.disable();
        ASSERT_FALSE(status.ok()) << row.name;
        EXPECT_EQ(status.error().description, QLatin1String(row.description)) << row.name;
        if (!row.installed) {
            EXPECT_EQ(status.error().suggestion,
                      QStringLiteral("You may be running a desktop that's not yet fully supported"));
            EXPECT_TRUE(runner.ran.isEmpty());
        }
        if (!row.editFails) {
            EXPECT_LE(runner.ran.size(), 1) << row.name;
        }
    }
}

TEST(IndexerSwitch, BalooIsReadAndSwitchedWithBalooctl)
{
    FakeRunner runner;
    runner.answers[QStringLiteral("/usr/bin/balooctl6 status")] = {
        true, 0, QStringLiteral("Baloo File Indexer is running\nIndexer state: Idle\n")};
    auto service = SpotlightService::forDesktop(runner.runner(), finderOf({QStringLiteral("balooctl6"),
                                                                           QStringLiteral("tracker3"),
                                                                           QStringLiteral("gsettings")}));
    ASSERT_NE(service, nullptr);
    EXPECT_EQ(service->adapter().name(), QStringLiteral("Baloo"));
    EXPECT_TRUE(service->isEnabled());
    EXPECT_EQ(service->buttonTitle(), QStringLiteral("Disable standard Baloo file indexer"));
    runner.ran.clear();
    ASSERT_TRUE(service->disable().ok());
    EXPECT_EQ(runner.ran, (QStringList{QStringLiteral("/usr/bin/balooctl6 status"),
                                       QStringLiteral("/usr/bin/balooctl6 disable")}));

    // Disabled, Plasma 5's balooctl says so.
    runner.answers[QStringLiteral("/usr/bin/balooctl status")] = {
        true, 0, QStringLiteral("Baloo is currently disabled. To enable, please run balooctl enable\n")};
    auto older = SpotlightService::forDesktop(runner.runner(), finderOf({QStringLiteral("balooctl")}));
    ASSERT_NE(older, nullptr);
    EXPECT_FALSE(older->isEnabled());
    EXPECT_EQ(older->buttonTitle(), QStringLiteral("Enable standard Baloo file indexer"));
    runner.ran.clear();
    ASSERT_TRUE(older->enable().ok());
    EXPECT_EQ(runner.ran.last(), QStringLiteral("/usr/bin/balooctl enable"));
}

TEST(IndexerSwitch, LocalSearchIsReadFromItsSettingsAndStoppedWithItsDaemon)
{
    const QString read = QStringLiteral("/usr/bin/gsettings get org.freedesktop.Tracker3.Miner.Files crawling-interval");
    FakeRunner runner;
    runner.answers[read] = {true, 0, QStringLiteral("-1\n")};
    auto service = SpotlightService::forDesktop(
        runner.runner(), finderOf({QStringLiteral("localsearch"), QStringLiteral("tracker3"), QStringLiteral("gsettings")}));
    ASSERT_NE(service, nullptr);
    EXPECT_EQ(service->adapter().name(), QStringLiteral("LocalSearch"));
    EXPECT_TRUE(service->isEnabled());
    runner.ran.clear();
    ASSERT_TRUE(service->disable().ok());
    EXPECT_EQ(runner.ran,
              (QStringList{read,
                           QStringLiteral("/usr/bin/gsettings set org.freedesktop.Tracker3.Miner.Files crawling-interval -2"),
                           QStringLiteral("/usr/bin/gsettings set org.freedesktop.Tracker3.Miner.Files enable-monitors false"),
                           QStringLiteral("/usr/bin/localsearch daemon -t")}));

    runner.answers[read] = {true, 0, QStringLiteral("-2\n")};
    EXPECT_FALSE(service->isEnabled());
    runner.ran.clear();
    ASSERT_TRUE(service->enable().ok());
    EXPECT_EQ(runner.ran.last(), QStringLiteral("/usr/bin/localsearch daemon -s"));
    EXPECT_EQ(runner.ran.size(), 4);

    // A missing schema is an unreadable setting, not an indexer that is on.
    runner.answers[read] = {true, 1, QStringLiteral("No such schema “org.freedesktop.Tracker3.Miner.Files”\n")};
    EXPECT_FALSE(service->isEnabled());
    EXPECT_EQ(service->disable().error().description,
              QStringLiteral("Failed to interprete LocalSearch file indexer configuration"));
}

TEST(IndexerSwitch, HiddenWhereTheDesktopHasNoIndexer)
{
    FakeRunner runner;
    EXPECT_EQ(SpotlightService::forDesktop(runner.runner(), finderOf({})), nullptr);
    // The daemon without its settings tool cannot be switched.
    EXPECT_EQ(SpotlightService::forDesktop(runner.runner(), finderOf({QStringLiteral("tracker3")})), nullptr);
    EXPECT_TRUE(runner.ran.isEmpty());
}

TEST(Authorization, RunsTheToolThroughPkexecOnlyWhenAuthenticated)
{
    FakeRunner runner;
    runner.answers[QStringLiteral("/usr/bin/pkexec /usr/sbin/tool -x")] = {true, 4, {}};
    app::Authorization authorization(QStringLiteral("/usr/sbin/tool"), runner.runner(),
                                     finderOf({QStringLiteral("pkexec")}));
    EXPECT_FALSE(authorization.isAuthenticated());
    EXPECT_EQ(authorization.runAuthenticated({QStringLiteral("-x")}), -1);
    EXPECT_TRUE(runner.ran.isEmpty());
    ASSERT_TRUE(authorization.authenticate());
    EXPECT_EQ(authorization.runAuthenticated({QStringLiteral("-x")}), 4);
    EXPECT_EQ(authorization.runAuthenticated({QStringLiteral("-y")}), 0);
    authorization.deauthenticate();
    EXPECT_EQ(authorization.runAuthenticated({QStringLiteral("-y")}), -1);
    EXPECT_EQ(runner.ran.size(), 2);

    app::Authorization without(QStringLiteral("/usr/sbin/tool"), runner.runner(), finderOf({}));
    EXPECT_FALSE(without.authenticate());
}

}  // namespace
}  // namespace trovara::test
