#include "index/fs/sniff.h"

#include <cstring>

namespace trovara::index {

namespace {

bool startsWith(std::string_view head, std::string_view signature, std::size_t at = 0)
{
    return head.size() >= at + signature.size() && head.substr(at, signature.size()) == signature;
}

bool startsWithIgnoringCase(std::string_view text, std::string_view prefix)
{
    if (text.size() < prefix.size()) {
        return false;
    }
    for (std::size_t i = 0; i < prefix.size(); ++i) {
        char a = text[i];
        if (a >= 'A' && a <= 'Z') {
            a = static_cast<char>(a - 'A' + 'a');
        }
        if (a != prefix[i]) {
            return false;
        }
    }
    return true;
}

std::string_view skipBlanksAndBom(std::string_view text)
{
    if (startsWith(text, "\xEF\xBB\xBF")) {
        text.remove_prefix(3);
    }
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t' || text.front() == '\r' || text.front() == '\n')) {
        text.remove_prefix(1);
    }
    return text;
}

// The interpreter a "#!" line names ("/usr/bin/env python3" → "python3").
std::string_view interpreter(std::string_view head)
{
    std::string_view line = head.substr(2, head.find('\n') == std::string_view::npos ? std::string_view::npos
                                                                                      : head.find('\n') - 2);
    while (!line.empty() && line.front() == ' ') {
        line.remove_prefix(1);
    }
    std::string_view program = line.substr(0, line.find(' '));
    program = program.substr(program.rfind('/') == std::string_view::npos ? 0 : program.rfind('/') + 1);
    if (program == "env") {
        line.remove_prefix(line.find(' ') == std::string_view::npos ? line.size() : line.find(' ') + 1);
        while (!line.empty() && (line.front() == ' ' || line.front() == '-')) {
            line.remove_prefix(line.front() == '-' ? line.find(' ') == std::string_view::npos ? line.size()
                                                                                               : line.find(' ') + 1
                                                   : 1);
        }
        program = line.substr(0, line.find(' '));
    }
    return program;
}

std::optional<std::string_view> scriptType(std::string_view head)
{
    const std::string_view program = interpreter(head);
    if (program.starts_with("python")) {
        return "text/x-python";
    }
    if (program == "sh" || program == "bash" || program == "dash" || program == "zsh" || program == "ksh") {
        return "application/x-shellscript";
    }
    if (program.starts_with("perl")) {
        return "application/x-perl";
    }
    if (program.starts_with("ruby")) {
        return "application/x-ruby";
    }
    if (program == "node" || program == "nodejs") {
        return "application/javascript";
    }
    if (program.starts_with("php")) {
        return "application/x-php";
    }
    return std::nullopt;
}

}  // namespace

std::optional<std::string_view> sniffMimeType(std::string_view head)
{
    using namespace std::string_view_literals;
    struct Signature {
        std::string_view bytes;
        std::size_t offset;
        std::string_view mime;
    };
    static constexpr Signature signatures[] = {
        {"\x89PNG\r\n\x1a\n"sv, 0, "image/png"sv},
        {"\xFF\xD8\xFF"sv, 0, "image/jpeg"sv},
        {"GIF87a"sv, 0, "image/gif"sv},
        {"GIF89a"sv, 0, "image/gif"sv},
        {"II*\0"sv, 0, "image/tiff"sv},
        {"MM\0*"sv, 0, "image/tiff"sv},
        {"BM"sv, 0, "image/bmp"sv},
        {"\0\0\1\0"sv, 0, "image/vnd.microsoft.icon"sv},
        {"8BPS"sv, 0, "image/vnd.adobe.photoshop"sv},
        {"%PDF-"sv, 0, "application/pdf"sv},
        {"%!PS"sv, 0, "application/postscript"sv},
        {"{\\rtf"sv, 0, "text/rtf"sv},
        {"\x1F\x8B"sv, 0, "application/gzip"sv},
        {"BZh"sv, 0, "application/x-bzip2"sv},
        {"\xFD" "7zXZ\0"sv, 0, "application/x-xz"sv},
        {"7z\xBC\xAF\x27\x1C"sv, 0, "application/x-7z-compressed"sv},
        {"Rar!\x1A\x07"sv, 0, "application/vnd.rar"sv},
        {"ustar"sv, 257, "application/x-tar"sv},
        {"SQLite format 3\0"sv, 0, "application/vnd.sqlite3"sv},
        {"ID3"sv, 0, "audio/mpeg"sv},
        {"fLaC"sv, 0, "audio/flac"sv},
        {"OggS"sv, 0, "audio/ogg"sv},
        {"MThd"sv, 0, "audio/midi"sv},
        {"\x1A\x45\xDF\xA3"sv, 0, "video/x-matroska"sv},
        {"\xCA\xFE\xBA\xBE"sv, 0, "application/x-java"sv},
        {"BEGIN:VCARD"sv, 0, "text/vcard"sv},
        {"BEGIN:VCALENDAR"sv, 0, "text/calendar"sv},
    };
    for (const Signature& signature : signatures) {
        if (startsWith(head, signature.bytes, signature.offset)) {
            return signature.mime;
        }
    }
    if (startsWith(head, "RIFF") && head.size() >= 12) {
        const std::string_view form = head.substr(8, 4);
        if (form == "WAVE") {
            return "audio/x-wav";
        }
        if (form == "AVI ") {
            return "video/x-msvideo";
        }
        if (form == "WEBP") {
            return "image/webp";
        }
    }
    if (startsWith(head, "ftyp", 4)) {
        const std::string_view brand = head.substr(8, 4);
        if (brand == "qt  ") {
            return "video/quicktime";
        }
        if (brand == "M4A " || brand == "M4B ") {
            return "audio/mp4";
        }
        if (brand == "heic" || brand == "heix" || brand == "mif1") {
            return "image/heif";
        }
        return "video/mp4";
    }
    if (startsWith(head, "\x7F" "ELF") && head.size() >= 18) {
        // e_type: 2 executable, 3 shared object (or a position-independent
        // executable, which the loader marks the same way).
        const auto type = static_cast<unsigned char>(head[16]);
        return type == 3 ? "application/x-sharedlib" : "application/x-executable";
    }
    if (startsWith(head, "PK\x03\x04")) {
        // Packages name their kind in a first, stored "mimetype" entry.
        if (startsWith(head, "mimetype", 30)) {
            const std::string_view rest = head.substr(38);
            for (std::string_view mime : {std::string_view("application/epub+zip"),
                                          std::string_view("application/vnd.oasis.opendocument.text"),
                                          std::string_view("application/vnd.oasis.opendocument.spreadsheet"),
                                          std::string_view("application/vnd.oasis.opendocument.presentation")}) {
                if (startsWith(rest, mime) && (rest.size() == mime.size() || rest[mime.size()] == 'P'
                                               || static_cast<unsigned char>(rest[mime.size()]) < 0x20)) {
                    return mime;
                }
            }
        }
        return std::nullopt;  // a zip, or an office document: the name tells better
    }
    if (startsWith(head, "#!")) {
        if (auto script = scriptType(head)) {
            return script;
        }
    }
    const std::string_view text = skipBlanksAndBom(head);
    if (startsWith(text, "<?xml")) {
        return text.find("<svg") != std::string_view::npos ? "image/svg+xml" : "application/xml";
    }
    if (startsWithIgnoringCase(text, "<!doctype html") || startsWithIgnoringCase(text, "<html")) {
        return "text/html";
    }
    return std::nullopt;
}

bool looksLikeText(std::string_view head)
{
    std::size_t controls = 0;
    std::size_t i = 0;
    while (i < head.size()) {
        const auto byte = static_cast<unsigned char>(head[i]);
        if (byte == 0) {
            return false;
        }
        if (byte < 0x80) {
            if (byte < 0x20 && byte != '\t' && byte != '\n' && byte != '\r' && byte != '\f' && byte != 0x1B) {
                ++controls;
            }
            ++i;
            continue;
        }
        std::size_t length = 0;
        if ((byte & 0xE0) == 0xC0 && byte >= 0xC2) {
            length = 2;
        } else if ((byte & 0xF0) == 0xE0) {
            length = 3;
        } else if ((byte & 0xF8) == 0xF0 && byte <= 0xF4) {
            length = 4;
        } else {
            return false;
        }
        if (i + length > head.size()) {
            break;  // a sequence cut by the end of what was read
        }
        for (std::size_t k = 1; k < length; ++k) {
            if ((static_cast<unsigned char>(head[i + k]) & 0xC0) != 0x80) {
                return false;
            }
        }
        i += length;
    }
    return controls * 100 <= head.size();
}

}  // namespace trovara::index
