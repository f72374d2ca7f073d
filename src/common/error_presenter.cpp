#include "common/error_presenter.h"

#include "common/log.h"


#include <cstdio>

namespace trovara {

namespace {

ErrorPresenter& installed()
{
    static ErrorPresenter presenter;
    return presenter;
}

QString describeUserInfo(const QVariantMap& info)
{
    QStringList parts;
    for (auto it = info.begin(); it != info.end(); ++it) {
        parts << it.key() + QStringLiteral(" = ") + it.value().toString();
    }
    return QStringLiteral("{") + parts.join(QStringLiteral("; ")) + QStringLiteral("}");
}

}  // namespace

void presentError(const Error& error)
{
    TLOG(QStringLiteral("willPresentError: %1").arg(error.toString()));
    TLOG(QStringLiteral("- description: %1").arg(error.description));
    TLOG(QStringLiteral("- reason: %1").arg(error.reason));
    TLOG(QStringLiteral("- suggestion: %1").arg(error.suggestion));
    TLOG(QStringLiteral("- userInfo: %1").arg(describeUserInfo(error.userInfo)));
    if (installed()) {
        installed()(error);
    } else {
        std::fprintf(stderr, "trovara: %s\n", error.toString().toLocal8Bit().constData());
    }
}

ErrorPresenter setErrorPresenter(ErrorPresenter presenter)
{
    ErrorPresenter previous = std::move(installed());
    installed() = std::move(presenter);
    return previous;
}

}  // namespace trovara
