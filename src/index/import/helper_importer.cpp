#include "index/import/helper_importer.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <fcntl.h>
#include <fstream>
#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

extern char** environ;

namespace trovara::index {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds kMemoryCheckInterval{100};
// Room for the attributes and the frame around the text.
constexpr std::uint64_t kFrameMargin = std::uint64_t{16} << 20;

std::string describeExit(int status)
{
    if (WIFSIGNALED(status)) {
        const int signal = WTERMSIG(status);
        const char* name = ::strsignal(signal);
        return "the importer crashed (signal " + std::to_string(signal) + (name ? std::string(", ") + name : "") + ")";
    }
    if (WIFEXITED(status)) {
        return "the importer stopped (exit status " + std::to_string(WEXITSTATUS(status)) + ")";
    }
    return "the importer stopped";
}

std::uint64_t residentBytes(pid_t pid)
{
    std::ifstream statm("/proc/" + std::to_string(pid) + "/statm");
    std::uint64_t size = 0;
    std::uint64_t resident = 0;
    statm >> size >> resident;
    return resident * static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE));
}

std::string megabytes(std::uint64_t bytes)
{
    return std::to_string(bytes >> 20) + " MiB";
}

std::string programFolder()
{
    char path[PATH_MAX];
    const ssize_t length = ::readlink("/proc/self/exe", path, sizeof path - 1);
    if (length <= 0) {
        return {};
    }
    std::string exe(path, static_cast<std::size_t>(length));
    return exe.substr(0, exe.rfind('/'));
}

}  // namespace

std::optional<std::uint64_t> parseByteCount(std::string_view text)
{
    std::uint64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end == text.data()) {
        return std::nullopt;
    }
    const std::string_view unit(end, static_cast<std::size_t>(text.data() + text.size() - end));
    int shift = 0;
    if (unit == "K" || unit == "k" || unit == "KiB") {
        shift = 10;
    } else if (unit == "M" || unit == "MiB") {
        shift = 20;
    } else if (unit == "G" || unit == "GiB") {
        shift = 30;
    } else if (!unit.empty()) {
        return std::nullopt;
    }
    if (value > (UINT64_MAX >> shift)) {
        return std::nullopt;
    }
    return value << shift;
}

// One helper process and our end of its socket.
struct HelperImporter::Helper {
    explicit Helper(std::size_t maxFrame)
        : reader(maxFrame)
    {
    }
    ~Helper() { stop(); }

    pid_t pid = -1;
    int fd = -1;
    FrameReader reader;
    // While it imports a file:
    std::optional<ImportJob> job;
    std::uint64_t request = 0;
    Clock::time_point deadline;

    void stop(bool politely = false)
    {
        if (politely && fd >= 0) {
            const std::string quit = encodeFrame(MessageType::Quit, {});
            (void)::send(fd, quit.data(), quit.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        }
        if (fd >= 0) {
            ::close(fd);  // the helper reads the end of its input and leaves
            fd = -1;
        }
        if (pid > 0) {
            int status = 0;
            // A polite helper is gone at once; give it a moment, then make sure.
            for (int i = 0; politely && i < 20 && ::waitpid(pid, &status, WNOHANG) == 0; ++i) {
                std::this_thread::sleep_for(std::chrono::milliseconds(5));
            }
            if (::waitpid(pid, &status, WNOHANG) == 0) {
                ::kill(pid, SIGKILL);
                while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
                }
            }
            pid = -1;
        }
    }

    // Kills it and says how it ended (when it ended on its own). A helper
    // whose socket just closed is given a moment to finish dying, so that
    // its exit status can be told.
    std::string kill(bool ended = false)
    {
        int status = 0;
        std::string how;
        for (int wait = 0; pid > 0; ++wait) {
            if (::waitpid(pid, &status, WNOHANG) == pid) {
                how = describeExit(status);
                pid = -1;
                break;
            }
            if (!ended || wait >= 200) {
                break;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        stop();
        return how;
    }

    Expected<void> send(const std::string& frame)
    {
        std::size_t sent = 0;
        while (sent < frame.size()) {
            const ssize_t n = ::send(fd, frame.data() + sent, frame.size() - sent, MSG_NOSIGNAL);
            if (n < 0) {
                if (errno == EINTR) {
                    continue;
                }
                if (errno == EAGAIN) {
                    pollfd p{fd, POLLOUT, 0};
                    ::poll(&p, 1, 1000);
                    continue;
                }
                return Failure{Failure::Kind::Io, std::string("cannot talk to the importer: ") + std::strerror(errno)};
            }
            sent += static_cast<std::size_t>(n);
        }
        return {};
    }

    // Reads what has arrived; false at the end of the stream or on an error.
    bool receive()
    {
        char buffer[65536];
        while (true) {
            const ssize_t n = ::recv(fd, buffer, sizeof buffer, MSG_DONTWAIT);
            if (n > 0) {
                reader.append(std::string_view(buffer, static_cast<std::size_t>(n)));
                continue;
            }
            if (n < 0 && errno == EINTR) {
                continue;
            }
            return n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK);
        }
    }
};

HelperImporter::HelperImporter(HelperOptions options)
    : m_options(std::move(options))
{
    m_options.processes = std::max(1, m_options.processes);
}

HelperImporter::~HelperImporter()
{
    for (auto& helper : m_idle) {
        helper->stop(true);
    }
}

HelperOptions HelperImporter::defaultOptions()
{
    HelperOptions options;
    const std::string folder = programFolder();
    const std::string beside = folder + "/trovara-importer";
    options.executable = !folder.empty() && ::access(beside.c_str(), X_OK) == 0 ? beside : "trovara-importer";
    const unsigned cores = std::thread::hardware_concurrency();
    options.processes = static_cast<int>(std::clamp(cores, 1u, 2u));
    if (const char* text = std::getenv("TROVARA_TEXT_LIMIT")) {
        if (auto bytes = parseByteCount(text); bytes && *bytes > 0) {
            options.textLimit = *bytes;
        }
    }
    if (const char* seconds = std::getenv("TROVARA_IMPORT_TIME_LIMIT")) {
        if (auto value = parseByteCount(seconds); value && *value > 0 && *value < 86400) {
            options.timeLimit = std::chrono::seconds(*value);
        }
    }
    if (const char* memory = std::getenv("TROVARA_IMPORT_MEMORY_LIMIT")) {
        if (auto bytes = parseByteCount(memory); bytes && *bytes >= (std::uint64_t{16} << 20)) {
            options.memoryLimit = *bytes;
        }
    }
    const char* stderrWanted = std::getenv("TROVARA_IMPORTER_STDERR");
    options.showHelperErrors = stderrWanted && std::string_view(stderrWanted) == "1";
    return options;
}

Expected<std::unique_ptr<HelperImporter::Helper>> HelperImporter::start()
{
    auto helper = std::make_unique<Helper>(static_cast<std::size_t>(m_options.textLimit + kFrameMargin));
    int pair[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair) != 0) {
        return Failure{Failure::Kind::Io, std::string("cannot start the importer: ") + std::strerror(errno)};
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, pair[1], STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, pair[1], STDOUT_FILENO);
    if (!m_options.showHelperErrors) {
        posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    }
    std::vector<std::string> arguments{m_options.executable, "--serve", "--memory-limit",
                                       std::to_string(m_options.memoryLimit)};
    arguments.insert(arguments.end(), m_options.arguments.begin(), m_options.arguments.end());
    std::vector<char*> argv;
    for (std::string& argument : arguments) {
        argv.push_back(argument.data());
    }
    argv.push_back(nullptr);
    pid_t pid = -1;
    const int spawned = ::posix_spawnp(&pid, m_options.executable.c_str(), &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    ::close(pair[1]);
    if (spawned != 0) {
        ::close(pair[0]);
        return Failure{Failure::Kind::Io,
                       "cannot start the importer " + m_options.executable + ": " + std::strerror(spawned)};
    }
    helper->pid = pid;
    helper->fd = pair[0];
    ::fcntl(helper->fd, F_SETFL, ::fcntl(helper->fd, F_GETFL) | O_NONBLOCK);

    // It greets first.
    const auto deadline = Clock::now() + m_options.startLimit;
    while (true) {
        Expected<std::optional<Frame>> frame = helper->reader.next();
        if (!frame) {
            helper->kill();
            return frame.error();
        }
        if (*frame) {
            if ((*frame)->type != MessageType::Hello) {
                helper->kill();
                return Failure{Failure::Kind::Io, "the importer did not greet"};
            }
            Expected<HelloMessage> hello = decodeHello((*frame)->payload);
            if (!hello) {
                helper->kill();
                return hello.error();
            }
            m_hello = std::move(*hello);
            return helper;
        }
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
        if (left <= 0) {
            helper->kill();
            return Failure{Failure::Kind::Io, "the importer " + m_options.executable + " did not start in time"};
        }
        pollfd p{helper->fd, POLLIN, 0};
        ::poll(&p, 1, static_cast<int>(left));
        if (!helper->receive()) {
            const std::string how = helper->kill(true);
            return Failure{Failure::Kind::Io, "the importer " + m_options.executable + " did not start"
                                                  + (how.empty() ? std::string() : ": " + how)};
        }
    }
}

Expected<std::vector<ImporterInfo>> HelperImporter::importers()
{
    if (!m_hello) {
        Expected<std::unique_ptr<Helper>> helper = start();
        if (!helper) {
            return helper.error();
        }
        m_idle.push_back(std::move(*helper));
    }
    return m_hello->importers;
}

std::vector<std::string> HelperImporter::problems() const
{
    return m_hello ? m_hello->problems : std::vector<std::string>{};
}

Expected<void> HelperImporter::importFiles(std::vector<ImportJob> jobs,
                                           const std::function<void(const ImportJob&, ImportOutcome&&)>& done,
                                           const std::atomic<bool>* cancel)
{
    std::deque<ImportJob> queue(std::make_move_iterator(jobs.begin()), std::make_move_iterator(jobs.end()));
    std::vector<std::unique_ptr<Helper>> busy;
    auto cancelled = [&] { return cancel && cancel->load(); };
    auto fail = [&](Helper& helper, std::string error) {
        ImportOutcome outcome;
        outcome.mayRetry = true;
        outcome.error = std::move(error);
        const ImportJob job = std::move(*helper.job);
        helper.job.reset();
        done(job, std::move(outcome));
    };
    bool started = false;
    auto lastMemoryCheck = Clock::now();

    while (!cancelled() && (!queue.empty() || !busy.empty())) {
        // Give work to idle helpers, starting new ones up to the limit.
        while (!queue.empty() && static_cast<int>(busy.size()) < m_options.processes) {
            std::unique_ptr<Helper> helper;
            if (!m_idle.empty()) {
                helper = std::move(m_idle.back());
                m_idle.pop_back();
            } else {
                Expected<std::unique_ptr<Helper>> fresh = start();
                if (!fresh) {
                    if (!started && busy.empty()) {
                        return fresh.error();  // no helper at all: nothing can be imported
                    }
                    break;  // carry on with those that run
                }
                helper = std::move(*fresh);
            }
            started = true;
            ImportRequest request;
            request.id = m_nextRequest++;
            request.path = queue.front().path;
            request.importer = queue.front().importer;
            request.mimeType = queue.front().mimeType;
            request.textLimit = m_options.textLimit;
            helper->job = std::move(queue.front());
            queue.pop_front();
            helper->request = request.id;
            helper->deadline = Clock::now() + m_options.timeLimit;
            if (!helper->send(encodeFrame(MessageType::Import, encodeImportRequest(request)))) {
                const std::string how = helper->kill(true);
                fail(*helper, how.empty() ? "the importer stopped listening" : how);
                continue;  // a dead helper is dropped; the next job gets a new one
            }
            busy.push_back(std::move(helper));
        }
        if (busy.empty()) {
            continue;
        }

        // Wait for an answer, a deadline, or the next memory check.
        auto wake = lastMemoryCheck + kMemoryCheckInterval;
        for (const auto& helper : busy) {
            wake = std::min(wake, helper->deadline);
        }
        std::vector<pollfd> fds;
        for (const auto& helper : busy) {
            fds.push_back({helper->fd, POLLIN, 0});
        }
        const auto timeout = std::chrono::duration_cast<std::chrono::milliseconds>(wake - Clock::now()).count();
        const int ready = ::poll(fds.data(), fds.size(), static_cast<int>(std::max<long long>(0, timeout) + 1));
        if (ready < 0 && errno != EINTR) {
            return Failure{Failure::Kind::Io, std::string("cannot wait for the importers: ") + std::strerror(errno)};
        }

        const auto now = Clock::now();
        const bool checkMemory = now - lastMemoryCheck >= kMemoryCheckInterval;
        if (checkMemory) {
            lastMemoryCheck = now;
        }
        for (std::size_t i = 0; i < busy.size();) {
            Helper& helper = *busy[i];
            std::optional<std::string> broken;  // why the helper must go
            if (fds[i].revents) {
                const bool open = helper.receive();
                while (helper.job && !broken) {
                    Expected<std::optional<Frame>> frame = helper.reader.next();
                    if (!frame) {
                        broken = "the importer sent a malformed answer (" + frame.error().message + ")";
                        break;
                    }
                    if (!*frame) {
                        break;
                    }
                    Expected<ImportResult> result = (*frame)->type == MessageType::Result
                                                        ? decodeImportResult((*frame)->payload)
                                                        : Expected<ImportResult>(Failure{Failure::Kind::Corrupt, "not a result"});
                    if (!result || result->id != helper.request) {
                        broken = "the importer sent a malformed answer";
                        break;
                    }
                    ImportOutcome outcome = outcomeOf(std::move(*result));
                    const ImportJob job = std::move(*helper.job);
                    helper.job.reset();
                    done(job, std::move(outcome));
                }
                if (helper.job && !broken && !open) {
                    const std::string how = helper.kill(true);
                    broken = how.empty() ? "the importer stopped" : how;
                }
            }
            if (helper.job && !broken && now >= helper.deadline) {
                broken = "the importer took longer than "
                         + std::to_string(std::chrono::duration_cast<std::chrono::seconds>(m_options.timeLimit).count())
                         + " s";
            }
            if (helper.job && !broken && checkMemory && residentBytes(helper.pid) > m_options.memoryLimit) {
                broken = "the importer used more than " + megabytes(m_options.memoryLimit) + " of memory";
            }
            if (broken) {
                helper.kill();
                fail(helper, *broken);
            }
            if (!helper.job) {
                if (helper.pid > 0) {
                    m_idle.push_back(std::move(busy[i]));
                }
                busy.erase(busy.begin() + static_cast<std::ptrdiff_t>(i));
                fds.erase(fds.begin() + static_cast<std::ptrdiff_t>(i));
                continue;
            }
            ++i;
        }
    }
    // Cancelled: what is under way is abandoned with its helper.
    for (auto& helper : busy) {
        helper->kill();
    }
    return {};
}

}  // namespace trovara::index
