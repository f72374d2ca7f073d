// trova preview [-terms WORD]… FILE
#include "commands.h"

#include "preview/search_term_matcher.h"
#include "preview/terminal_text.h"
#include "preview/text_preview_utility.h"

#include <cstdio>
#include <unistd.h>

namespace trovara::cli {

int previewCommand(const QStringList& arguments)
{
    QStringList terms;
    QStringList files;
    for (qsizetype i = 0; i < arguments.size(); ++i) {
        if (arguments[i] == QLatin1String("-terms") && i + 1 < arguments.size()) {
            terms.append(arguments[++i]);
        } else if (arguments[i].startsWith(QLatin1Char('-')) && arguments[i].size() > 1) {
            files.clear();
            break;
        } else {
            files.append(arguments[i]);
        }
    }
    if (files.size() != 1) {
        printError(QStringLiteral("usage: trova preview [-terms WORD]... FILE"));
        return 2;
    }
    const QString& file = files.front();
    preview::TextPreviewUtility utility;
    preview::FileContents contents = utility.textContentsOfFile(file.toStdString());
    switch (contents.outcome) {
    case preview::FileContents::Outcome::Text:
        break;
    case preview::FileContents::Outcome::NoText:
        printError(QStringLiteral("%1: no text in this file").arg(file));
        return 1;
    case preview::FileContents::Outcome::Failed:
    case preview::FileContents::Outcome::Cancelled:
        printError(QStringLiteral("%1: %2").arg(file, QString::fromStdString(contents.problem)));
        return 1;
    }
    QString text = QString::fromStdString(contents.text);
    if (::isatty(STDOUT_FILENO)) {
        text = preview::colorizeForTerminal(text, preview::SearchTermMatcher(terms).colorRanges(text));
    }
    const QByteArray bytes = text.toUtf8();
    std::fwrite(bytes.constData(), 1, static_cast<std::size_t>(bytes.size()), stdout);
    if (!bytes.endsWith('\n')) {
        std::fputc('\n', stdout);
    }
    std::fflush(stdout);
    if (contents.truncated) {
        printError(QStringLiteral("%1: only the beginning of the text is shown (see TROVARA_TEXT_LIMIT)").arg(file));
    }
    return 0;
}

}  // namespace trovara::cli
