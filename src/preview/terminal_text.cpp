#include "preview/terminal_text.h"

namespace trovara::preview {

QString colorizeForTerminal(const QString& text, const std::vector<TermMatch>& matches)
{
    QString out;
    out.reserve(text.size() + static_cast<qsizetype>(matches.size()) * 16);
    qsizetype at = 0;
    for (const TermMatch& match : matches) {
        if (match.start < at || match.length <= 0 || match.start + match.length > text.size()) {
            continue;
        }
        out += QStringView(text).mid(at, match.start - at);
        out += QStringLiteral("\x1b[1;38;5;%1m").arg(colorForTerm(match.term).terminal);
        out += QStringView(text).mid(match.start, match.length);
        out += QStringLiteral("\x1b[0m");
        at = match.start + match.length;
    }
    out += QStringView(text).mid(at);
    return out;
}

}  // namespace trovara::preview
