#include "app/spotlight_service.h"

#include "common/log.h"

#include <QProcess>
#include <QStandardPaths>

namespace trovara::app {

CommandRunner processCommandRunner()
{
    return [](const QString& program, const QStringList& arguments) {
        QProcess process;
        process.setProcessChannelMode(QProcess::MergedChannels);
        process.start(program, arguments);
        CommandOutput output;
        if (!process.waitForStarted()) {
            output.output = process.errorString();
            return output;
        }
        output.started = true;
        process.closeWriteChannel();
        if (!process.waitForFinished(60000)) {
            process.kill();
            process.waitForFinished();
        }
        output.exitCode = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
        output.output = QString::fromUtf8(process.readAll());
        return output;
    };
}

ProgramFinder pathProgramFinder()
{
    return [](const QString& name) { return QStandardPaths::findExecutable(name); };
}

// --- Authorization -------------------------------------------------------------------------------

Authorization::Authorization(QString toolPath, CommandRunner runner, ProgramFinder finder)
    : m_toolPath(std::move(toolPath))
    , m_runner(std::move(runner))
    , m_finder(std::move(finder))
{
}

bool Authorization::authenticate()
{
    m_authRef = m_finder(QLatin1String(kPkexec));
    return isAuthenticated();
}

int Authorization::runAuthenticated(const QStringList& arguments)
{
    return runToolAuthenticated(m_toolPath, arguments);
}

int Authorization::runToolAuthenticated(const QString& toolPath, const QStringList& arguments)
{
    if (!isAuthenticated()) {
        return -1;
    }
    const CommandOutput output = m_runner(m_authRef, QStringList{toolPath} + arguments);
    return output.started ? output.exitCode : -1;
}

// --- The adapters ----------------------------------------------------------------------------------

namespace {

QString firstProgram(const ProgramFinder& finder, std::initializer_list<const char*> names)
{
    for (const char* name : names) {
        if (const QString path = finder(QLatin1String(name)); !path.isEmpty()) {
            return path;
        }
    }
    return {};
}

QString errorText(const CommandOutput& read)
{
    return QStringLiteral("Error: ") + read.output.trimmed();
}

class BalooAdapter final : public IndexerAdapter {
public:
    explicit BalooAdapter(const ProgramFinder& finder)
        : m_balooctl(firstProgram(finder, {"balooctl6", "balooctl"}))
    {
    }
    QString name() const override { return QStringLiteral("Baloo"); }
    bool exists() const override { return !m_balooctl.isEmpty(); }
    QStringList readCommand() const override { return {m_balooctl, QStringLiteral("status")}; }
    QString entryText(const CommandOutput& read) const override
    {
        // "Baloo is currently disabled. To enable, please run balooctl
        // enable"; otherwise it is on, running or not.
        if (read.exitCode != 0 && !read.output.contains(QLatin1String("disabled"))) {
            return errorText(read);
        }
        return read.output.contains(QLatin1String("disabled")) ? QStringLiteral("true")
                                                               : QStringLiteral("false");
    }
    QList<QStringList> commands(Edit edit) const override
    {
        if (edit == Edit::DeleteDisabled) {
            return {{m_balooctl, QStringLiteral("enable")}};
        }
        return {{m_balooctl, QStringLiteral("disable")}};
    }

private:
    QString m_balooctl;
};

class LocalSearchAdapter final : public IndexerAdapter {
public:
    static constexpr const char* kSchema = "org.freedesktop.Tracker3.Miner.Files";

    explicit LocalSearchAdapter(const ProgramFinder& finder)
        : m_daemon(firstProgram(finder, {"localsearch", "tracker3"}))
        , m_gsettings(finder(QStringLiteral("gsettings")))
    {
    }
    QString name() const override { return QStringLiteral("LocalSearch"); }
    bool exists() const override { return !m_daemon.isEmpty() && !m_gsettings.isEmpty(); }
    QStringList readCommand() const override
    {
        return {m_gsettings, QStringLiteral("get"), QLatin1String(kSchema), QStringLiteral("crawling-interval")};
    }
    QString entryText(const CommandOutput& read) const override
    {
        // The crawling interval: -2 means the indexer is off.
        bool number = false;
        const int interval = read.output.trimmed().toInt(&number);
        if (read.exitCode != 0 || !number) {
            return errorText(read);
        }
        return interval == -2 ? QStringLiteral("true") : QStringLiteral("false");
    }
    QList<QStringList> commands(Edit edit) const override
    {
        const QString schema = QLatin1String(kSchema);
        if (edit == Edit::DeleteDisabled) {
            return {{m_gsettings, QStringLiteral("reset"), schema, QStringLiteral("crawling-interval")},
                    {m_gsettings, QStringLiteral("reset"), schema, QStringLiteral("enable-monitors")},
                    {m_daemon, QStringLiteral("daemon"), QStringLiteral("-s")}};
        }
        return {{m_gsettings, QStringLiteral("set"), schema, QStringLiteral("crawling-interval"), QStringLiteral("-2")},
                {m_gsettings, QStringLiteral("set"), schema, QStringLiteral("enable-monitors"), QStringLiteral("false")},
                {m_daemon, QStringLiteral("daemon"), QStringLiteral("-t")}};
    }

private:
    QString m_daemon;
    QString m_gsettings;
};

}  // namespace

std::unique_ptr<IndexerAdapter> makeBalooAdapter(ProgramFinder finder)
{
    return std::make_unique<BalooAdapter>(finder);
}

std::unique_ptr<IndexerAdapter> makeLocalSearchAdapter(ProgramFinder finder)
{
    return std::make_unique<LocalSearchAdapter>(finder);
}

// --- The switch ------------------------------------------------------------------------------------

SpotlightService::SpotlightService(std::unique_ptr<IndexerAdapter> adapter, CommandRunner runner,
                                   ProgramFinder finder)
    : m_adapter(std::move(adapter))
    , m_runner(std::move(runner))
    , m_finder(std::move(finder))
{
}

std::unique_ptr<SpotlightService> SpotlightService::forDesktop(CommandRunner runner, ProgramFinder finder)
{
    for (auto* make : {&makeBalooAdapter, &makeLocalSearchAdapter}) {
        std::unique_ptr<IndexerAdapter> adapter = make(finder);
        if (adapter->exists()) {
            return std::make_unique<SpotlightService>(std::move(adapter), std::move(runner), std::move(finder));
        }
    }
    return nullptr;
}

Error SpotlightService::failure(const QString& text, const QString& suggestion) const
{
    return Error::make(Error::kNone, text, {}, suggestion);
}

Result<std::optional<QString>> SpotlightService::readDisabledEntry() const
{
    if (!serviceExists()) {
        return std::optional<QString>();
    }
    const QString subject = m_adapter->name();
    const QStringList command = m_adapter->readCommand();
    const CommandOutput read = m_runner(command.first(), command.mid(1));
    if (!read.started) {
        TLOG(QStringLiteral("Caught %1: %2").arg(command.first(), read.output));
        return failure(QStringLiteral("Failed to read %1 file indexer configuration").arg(subject));
    }
    const QString entry = m_adapter->entryText(read);
    if (entry.startsWith(QLatin1String("Error:"))) {
        TLOG(QStringLiteral("Err out: %1").arg(entry));
        return failure(QStringLiteral("Failed to interprete %1 file indexer configuration").arg(subject));
    }
    if (read.exitCode != 0) {
        return failure(QStringLiteral("Failed to access %1 file indexer configuration").arg(subject));
    }
    return std::optional<QString>(entry);
}

bool SpotlightService::isEnabled() const
{
    const Result<std::optional<QString>> entry = readDisabledEntry();
    if (!entry || !entry.value()) {
        return false;
    }
    const QString& text = *entry.value();
    return text.startsWith(QLatin1String("false")) || text == QLatin1String(kDoesNotExist);
}

Status SpotlightService::updateSpotlightService(bool disable)
{
    const QString subject = m_adapter->name();
    if (!serviceExists()) {
        return failure(QStringLiteral("The %1 file indexer cannot be located").arg(subject),
                       QStringLiteral("You may be running a desktop that's not yet fully supported"));
    }
    const Result<std::optional<QString>> read = readDisabledEntry();
    if (!read) {
        return read.error();
    }
    const QString entry = read.value().value_or(QString());
    std::optional<IndexerAdapter::Edit> edit;
    if (disable) {
        if (!entry.startsWith(QLatin1String("true"))) {
            edit = entry == QLatin1String(kDoesNotExist) ? IndexerAdapter::Edit::AddDisabled
                                                         : IndexerAdapter::Edit::SetDisabled;
        }
    } else if (entry.startsWith(QLatin1String("true"))) {
        edit = IndexerAdapter::Edit::DeleteDisabled;
    }
    if (!edit) {
        return {};
    }
    const QList<QStringList> commands = m_adapter->commands(*edit);
    std::optional<Authorization> authorization;
    if (m_adapter->needsRights()) {
        authorization.emplace(QString(), m_runner, m_finder);
        if (!authorization->authenticate()) {
            return failure(QStringLiteral("Failed to authorize operation"));
        }
    }
    Status status;
    for (const QStringList& command : commands) {
        int exitCode = -1;
        if (authorization) {
            exitCode = authorization->runToolAuthenticated(command.first(), command.mid(1));
        } else {
            const CommandOutput output = m_runner(command.first(), command.mid(1));
            exitCode = output.started ? output.exitCode : -1;
        }
        if (exitCode != 0) {
            status = failure(QStringLiteral("Failed to modify %1 file indexer configuration").arg(subject));
            break;
        }
    }
    if (authorization) {
        authorization->clearAuthRef();
    }
    return status;
}

QString SpotlightService::buttonTitle() const
{
    return (isEnabled() ? QStringLiteral("Disable standard %1 file indexer")
                        : QStringLiteral("Enable standard %1 file indexer"))
        .arg(m_adapter->name());
}

}  // namespace trovara::app
