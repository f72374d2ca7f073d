#include "common/paths.h"

#include <QDir>

#include <pwd.h>
#include <sys/types.h>

namespace trovara {

namespace {

QString homeFolder()
{
    QString home = QDir::homePath();
    while (home.size() > 1 && home.endsWith(QLatin1Char('/'))) {
        home.chop(1);
    }
    return home;
}

}  // namespace

QString abbreviateWithTilde(const QString& path)
{
    const QString home = homeFolder();
    if (home.isEmpty() || home == QLatin1String("/")) {
        return path;
    }
    if (path == home) {
        return QStringLiteral("~");
    }
    if (path.startsWith(home + QLatin1Char('/'))) {
        return QLatin1Char('~') + path.mid(home.size());
    }
    return path;
}

QString expandTilde(const QString& path)
{
    if (!path.startsWith(QLatin1Char('~'))) {
        return path;
    }
    const int slash = path.indexOf(QLatin1Char('/'));
    const QString user = path.mid(1, slash < 0 ? -1 : slash - 1);
    const QString rest = slash < 0 ? QString() : path.mid(slash);
    if (user.isEmpty()) {
        return homeFolder() + rest;
    }
    const QByteArray name = user.toLocal8Bit();
    struct passwd entry {};
    struct passwd* found = nullptr;
    char buffer[4096];
    if (getpwnam_r(name.constData(), &entry, buffer, sizeof buffer, &found) != 0 || !found) {
        return path;
    }
    return QString::fromLocal8Bit(found->pw_dir) + rest;
}

namespace {

constexpr char16_t kEscapedByteBase = 0xDC00;

// The length of the valid UTF-8 sequence at the start of `bytes` (no
// overlong forms, no surrogates, nothing past U+10FFFF), or 0.
std::size_t validSequence(std::string_view bytes, char32_t* codePoint)
{
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(bytes[i]); };
    const unsigned char lead = byte(0);
    std::size_t length = 0;
    char32_t value = 0;
    char32_t smallest = 0;
    if (lead < 0x80) {
        *codePoint = lead;
        return 1;
    }
    if (lead >= 0xC2 && lead <= 0xDF) {
        length = 2;
        value = lead & 0x1F;
        smallest = 0x80;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        length = 3;
        value = lead & 0x0F;
        smallest = 0x800;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        length = 4;
        value = lead & 0x07;
        smallest = 0x10000;
    } else {
        return 0;
    }
    if (bytes.size() < length) {
        return 0;
    }
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xC0) != 0x80) {
            return 0;
        }
        value = (value << 6) | (byte(i) & 0x3F);
    }
    if (value < smallest || value > 0x10FFFF || (value >= 0xD800 && value <= 0xDFFF)) {
        return 0;
    }
    *codePoint = value;
    return length;
}

}  // namespace

QString fromLocalBytes(std::string_view bytes)
{
    QString text;
    text.reserve(static_cast<qsizetype>(bytes.size()));
    while (!bytes.empty()) {
        char32_t point = 0;
        const std::size_t length = validSequence(bytes, &point);
        if (length == 0) {
            text.append(QChar(static_cast<char16_t>(kEscapedByteBase + static_cast<unsigned char>(bytes.front()))));
            bytes.remove_prefix(1);
            continue;
        }
        text.append(QString::fromUcs4(&point, 1));
        bytes.remove_prefix(length);
    }
    return text;
}

std::string localBytes(const QString& text)
{
    std::string bytes;
    bytes.reserve(static_cast<std::size_t>(text.size()));
    QString run;  // text between escaped bytes, written as UTF-8
    const auto flush = [&] {
        const QByteArray utf8 = run.toUtf8();
        bytes.append(utf8.constData(), static_cast<std::size_t>(utf8.size()));
        run.clear();
    };
    for (qsizetype i = 0; i < text.size(); ++i) {
        const char16_t unit = text.at(i).unicode();
        if (QChar::isHighSurrogate(unit) && i + 1 < text.size() && QChar::isLowSurrogate(text.at(i + 1).unicode())) {
            run.append(text.at(i)).append(text.at(i + 1));
            ++i;
        } else if (unit >= kEscapedByteBase + 0x80 && unit <= kEscapedByteBase + 0xFF) {
            flush();
            bytes.push_back(static_cast<char>(unit - kEscapedByteBase));  // an escaped byte
        } else if (QChar::isSurrogate(unit)) {
            run.append(QChar(QChar::ReplacementCharacter));  // a lone surrogate no byte stands for
        } else {
            run.append(text.at(i));
        }
    }
    flush();
    return bytes;
}

}  // namespace trovara
