#include "interrupt.h"

#include "commands.h"

#include <QCoreApplication>

#include <csignal>
#include <sys/socket.h>
#include <unistd.h>

namespace trovara::cli {

namespace {

// The handler may only write a byte; the event loop reads it.
int g_signalPipe[2] = {-1, -1};

extern "C" void onSignal(int)
{
    const char byte = 1;
    (void)!::write(g_signalPipe[1], &byte, 1);
}

}  // namespace

QuitOnInterrupt::QuitOnInterrupt()
{
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, g_signalPipe) != 0) {
        printError(QStringLiteral("cannot set up signal handling"));
        return;
    }
    m_notifier = std::make_unique<QSocketNotifier>(g_signalPipe[0], QSocketNotifier::Read);
    QObject::connect(m_notifier.get(), &QSocketNotifier::activated, [] { QCoreApplication::exit(0); });
    struct sigaction action {};
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
}

QuitOnInterrupt::~QuitOnInterrupt()
{
    if (!m_notifier) {
        return;
    }
    m_notifier.reset();
    std::signal(SIGINT, SIG_DFL);
    std::signal(SIGTERM, SIG_DFL);
    ::close(g_signalPipe[0]);
    ::close(g_signalPipe[1]);
    g_signalPipe[0] = g_signalPipe[1] = -1;
}

}  // namespace trovara::cli
