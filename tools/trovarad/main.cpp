// trovarad: keeps the index of one user current and serves it to that
// user's programs (trova, the application) over a Unix socket.
//
//   trovarad [--index DIR]
//
// It is the index's one writer while it runs. It stops on SIGTERM or SIGINT
// (or when `trova daemon stop` asks), leaving the index consistent; killed
// outright, it leaves it consistent too, and catches up at the next start.
#include "common/log.h"
#include "daemon/server.h"
#include "daemon/socket_path.h"
#include "index/live/engine.h"
#include "index/standard_services.h"

#include <QString>

#include <csignal>
#include <cstdio>
#include <cstring>
#include <string>

namespace {

trovara::daemon::Server* g_server = nullptr;

extern "C" void onSignal(int)
{
    if (g_server) {
        g_server->stop();
    }
}

void say(const std::string& message)
{
    std::fprintf(stderr, "trovarad: %s\n", message.c_str());
    std::fflush(stderr);
    TLOG(QString::fromStdString(message));
}

}  // namespace

int main(int argc, char* argv[])
{
    std::string directory = trovara::index::Index::defaultDirectory();
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        if (argument == "--index" && i + 1 < argc) {
            directory = argv[++i];
        } else if (argument.rfind("--index=", 0) == 0) {
            directory = argument.substr(8);
        } else {
            std::fprintf(stderr, "usage: trovarad [--index DIR]\n");
            return 2;
        }
    }
    std::signal(SIGPIPE, SIG_IGN);

    trovara::index::EngineOptions options;
    options.problem = say;
    std::vector<std::string> notices;
    auto engine = trovara::index::IndexEngine::start(directory, trovara::index::standardServices(), options, &notices);
    if (!engine && engine.error().kind == trovara::index::Failure::Kind::Busy) {
        // A trova that updates the index on its own (it started before the
        // daemon) finishes first; the daemon takes over after it.
        say(engine.error().message + "; waiting until it is done");
        options.waitForWriter = true;
        notices.clear();
        engine = trovara::index::IndexEngine::start(directory, trovara::index::standardServices(), options, &notices);
    }
    for (const std::string& notice : notices) {
        say(notice);
    }
    if (!engine) {
        say(engine.error().message);
        return 1;
    }
    auto server = trovara::daemon::Server::listen(*engine.value(), trovara::daemon::socketPathFor(directory), directory);
    if (!server) {
        say(server.error().message);
        return 1;
    }
    g_server = server.value().get();
    struct sigaction action {};
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);

    say("serving the index in " + directory);
    server.value()->run();
    g_server = nullptr;
    server.value().reset();
    engine.value().reset();  // writes the snapshot when changes are unsaved
    say("stopped");
    return 0;
}
