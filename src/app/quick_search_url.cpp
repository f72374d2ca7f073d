#include "app/quick_search_url.h"

#include "document/document_store.h"

#include <QByteArray>
#include <QFileInfo>
#include <QStringConverter>
#include <QStringList>

#include <optional>

namespace trovara::app {

namespace {

int hexValue(QChar c)
{
    const char16_t u = c.unicode();
    if (u >= '0' && u <= '9') {
        return u - '0';
    }
    if (u >= 'a' && u <= 'f') {
        return u - 'a' + 10;
    }
    if (u >= 'A' && u <= 'F') {
        return u - 'A' + 10;
    }
    return -1;
}

// The template file a name stands for, when it is readable; a name that
// would leave the templates folder stands for none.
QString templatePathForName(const QString& encodedName, const QString& templateFolder)
{
    QString name;
    if (templateFolder.isEmpty() || !QuickSearchUrl::percentDecode(encodedName, &name) || name.isEmpty() ||
        name.contains(QLatin1Char('/')) || name == QLatin1String(".") || name == QLatin1String("..")) {
        return {};
    }
    const QString extension = QLatin1Char('.') + QLatin1String(document::kDocumentExtension);
    if (!name.endsWith(extension)) {
        name += extension;
    }
    const QFileInfo file(templateFolder + QLatin1Char('/') + name);
    return file.isFile() && file.isReadable() ? file.absoluteFilePath() : QString();
}

}  // namespace

bool QuickSearchUrl::boolValue(const QString& text)
{
    qsizetype i = 0;
    while (i < text.size() && text.at(i).isSpace()) {
        ++i;
    }
    if (i < text.size() && (text.at(i) == QLatin1Char('+') || text.at(i) == QLatin1Char('-'))) {
        ++i;
    }
    while (i < text.size() && text.at(i) == QLatin1Char('0')) {
        ++i;
    }
    if (i >= text.size()) {
        return false;
    }
    const char16_t c = text.at(i).unicode();
    return (c >= '1' && c <= '9') || c == 'Y' || c == 'y' || c == 'T' || c == 't';
}

bool QuickSearchUrl::percentDecode(const QString& text, QString* decoded)
{
    QByteArray bytes;
    bytes.reserve(text.size());
    qsizetype plain = 0;  // where the text since the last escape begins
    for (qsizetype i = 0; i < text.size(); ++i) {
        if (text.at(i) != QLatin1Char('%')) {
            continue;
        }
        if (i + 2 >= text.size()) {
            return false;
        }
        const int high = hexValue(text.at(i + 1));
        const int low = hexValue(text.at(i + 2));
        if (high < 0 || low < 0) {
            return false;
        }
        bytes.append(QStringView(text).mid(plain, i - plain).toUtf8());
        bytes.append(static_cast<char>(high * 16 + low));
        i += 2;
        plain = i + 1;
    }
    bytes.append(QStringView(text).mid(plain).toUtf8());
    if (bytes.contains('\0')) {
        return false;
    }
    QStringDecoder utf8(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString result = utf8.decode(bytes);
    if (utf8.hasError()) {
        return false;
    }
    *decoded = std::move(result);
    return true;
}

QuickSearchUrl QuickSearchUrl::refuse(const QString& problem)
{
    QuickSearchUrl parsed;
    parsed.m_outcome = Outcome::Refuse;
    parsed.m_problem = problem;
    return parsed;
}

QuickSearchUrl QuickSearchUrl::parse(const QString& url, const QString& templateFolder)
{
    if (url.size() > kMaximumLength) {
        return refuse(QStringLiteral("The link is longer than %1 characters.").arg(kMaximumLength));
    }
    if (url.contains(QChar(0))) {
        return refuse(QStringLiteral("The link contains a NUL character."));
    }
    const QString prefix = QLatin1String(kScheme) + QLatin1Char(':');
    if (!url.startsWith(prefix, Qt::CaseInsensitive)) {
        return refuse(QStringLiteral("The link is not a \"%1\" link.").arg(prefix));
    }
    const QString afterScheme = url.mid(prefix.size());
    if (!afterScheme.startsWith(QLatin1String("//"))) {
        return refuse(QStringLiteral("The link lacks the \"//\" after \"%1\".").arg(prefix));
    }
    const QString text = afterScheme.mid(2);

    BlitzSearchRequest request;
    std::optional<QString> encodedSearchString;
    const qsizetype question = text.indexOf(QLatin1Char('?'));
    if (question >= 0) {
        if (!text.startsWith(QLatin1String("blitzSearch?"), Qt::CaseInsensitive)) {
            return refuse(QStringLiteral("The link has parameters but does not begin with \"blitzSearch?\"."));
        }
        bool flagGiven = false;
        std::optional<QString> options;
        struct Flag {
            const char* key;
            bool BlitzSearchRequest::*field;
        };
        static constexpr Flag kFlags[] = {
            {"anytextflag=", &BlitzSearchRequest::anyText},
            {"filenameflag=", &BlitzSearchRequest::filename},
            {"contentflag=", &BlitzSearchRequest::content},
            {"commentsflag=", &BlitzSearchRequest::comments},
        };
        for (const QString& parameter : text.mid(question + 1).split(QLatin1Char('&'))) {
            const auto value = [&](const char* key) -> std::optional<QString> {
                const QLatin1String k(key);
                if (parameter.startsWith(k, Qt::CaseInsensitive)) {
                    return parameter.mid(k.size());
                }
                return std::nullopt;
            };
            if (auto v = value("searchstring=")) {
                encodedSearchString = *v;
                continue;
            }
            bool matched = false;
            for (const Flag& flag : kFlags) {
                if (auto v = value(flag.key)) {
                    request.*flag.field = boolValue(*v);
                    flagGiven = true;
                    matched = true;
                    break;
                }
            }
            if (matched) {
                continue;
            }
            if (auto v = value("templatename=")) {
                request.templatePath = templatePathForName(*v, templateFolder);
            } else if (auto v = value("options=")) {
                options = *v;
            }
        }
        if (!flagGiven && options) {
            request.filename = *options != QLatin1String("2");
            request.content = *options != QLatin1String("1");
            request.comments = false;
        }
    }
    if (!percentDecode(encodedSearchString.value_or(text), &request.searchString)) {
        return refuse(QStringLiteral("The search text of the link has a malformed %-escape or is not UTF-8."));
    }
    QuickSearchUrl parsed;
    parsed.m_request = std::move(request);
    parsed.m_outcome = parsed.m_request.searchString.isEmpty() ? Outcome::Ignore : Outcome::Search;
    return parsed;
}

}  // namespace trovara::app
