#include "app/exception_handler.h"

#include "common/log.h"

#include <QString>

#include <cstdlib>
#include <execinfo.h>
#include <memory>

namespace trovara::app {

namespace {

QString describe(std::exception_ptr exception)
{
    if (!exception) {
        return QStringLiteral("terminate called without an active exception");
    }
    try {
        std::rethrow_exception(exception);
    } catch (const std::exception& caught) {
        return QStringLiteral("Uncaught exception: %1").arg(QString::fromLocal8Bit(caught.what()));
    } catch (...) {
        return QStringLiteral("Uncaught exception of an unknown type");
    }
}

[[noreturn]] void terminateHandler()
{
    shouldLogException(std::current_exception());
    std::abort();
}

}  // namespace

bool shouldLogException(std::exception_ptr exception)
{
    TLOG(describe(exception));
    void* frames[64];
    const int count = backtrace(frames, 64);
    const std::unique_ptr<char*, decltype(&std::free)> symbols(backtrace_symbols(frames, count), &std::free);
    for (int i = 0; i < count; ++i) {
        const QString frame = symbols ? QString::fromLocal8Bit(symbols.get()[i])
                                      : QStringLiteral("0x%1").arg(reinterpret_cast<quintptr>(frames[i]), 0, 16);
        TLOG(QStringLiteral("  %1 %2").arg(i).arg(frame));
    }
    return true;
}

void installUncaughtExceptionHandler()
{
    std::set_terminate(&terminateHandler);
}

}  // namespace trovara::app
