#include "common/log.h"

#include <QByteArray>
#include <QMutex>
#include <QMutexLocker>

#include <cstring>
#include <syslog.h>

namespace trovara::log {

namespace {

QMutex& sinkMutex()
{
    static QMutex mutex;
    return mutex;
}

Sink& currentSink()
{
    static Sink sink;
    return sink;
}

void writeToSyslog(const QString& line)
{
    static const bool opened = [] {
        openlog("trovara", LOG_PID, LOG_USER);
        return true;
    }();
    (void)opened;
    syslog(LOG_NOTICE, "%s", line.toUtf8().constData());
}

}  // namespace

bool enabled()
{
    return qgetenv("MLogOn") != "NO";
}

void write(const char* file, int line, const QString& message)
{
    if (!enabled()) {
        return;
    }
    const char* base = std::strrchr(file, '/');
    base = base ? base + 1 : file;
    const QString text = QStringLiteral("%1:%2 %3").arg(QString::fromUtf8(base)).arg(line).arg(message);
    QMutexLocker lock(&sinkMutex());
    if (currentSink()) {
        currentSink()(text);
    } else {
        writeToSyslog(text);
    }
}

void setSink(Sink sink)
{
    QMutexLocker lock(&sinkMutex());
    currentSink() = std::move(sink);
}

}  // namespace trovara::log
