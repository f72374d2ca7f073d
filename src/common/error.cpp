#include "common/error.h"

namespace trovara {

QString Error::toString() const
{
    QString text = description.isEmpty() ? QStringLiteral("Unknown error") : description;
    if (!reason.isEmpty() && reason != description) {
        text += QStringLiteral(" (") + reason + QLatin1Char(')');
    }
    if (!suggestion.isEmpty()) {
        text += QLatin1Char(' ') + suggestion;
    }
    return text;
}

}  // namespace trovara
