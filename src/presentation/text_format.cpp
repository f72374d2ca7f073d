#include "presentation/text_format.h"

#include "model/value_text.h"

namespace trovara::presentation {

QString stringWithFormat(const QString& format, const QVariantList& arguments)
{
    QString text;
    text.reserve(format.size() + 16);
    qsizetype next = 0;
    for (qsizetype i = 0; i < format.size(); ++i) {
        const QChar c = format.at(i);
        if (c != QLatin1Char('%') || i + 1 >= format.size()) {
            text += c;
            continue;
        }
        const QChar kind = format.at(i + 1);
        if (kind == QLatin1Char('%')) {
            text += QLatin1Char('%');
            ++i;
            continue;
        }
        const bool object = kind == QLatin1Char('@');
        const bool integer = kind == QLatin1Char('d') || kind == QLatin1Char('i');
        if ((!object && !integer) || next >= arguments.size()) {
            text += c;
            continue;
        }
        const QVariant& argument = arguments.at(next++);
        if (integer) {
            text += QString::number(model::integerValueOf(argument));
        } else {
            text += model::isText(argument) ? argument.toString() : model::descriptionOf(argument);
        }
        ++i;
    }
    return text;
}

}  // namespace trovara::presentation
