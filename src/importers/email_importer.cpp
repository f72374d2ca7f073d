// E-mail messages (.eml, RFC 5322 with MIME): the readable text of the body
// (plain text parts, or the HTML where a message has nothing else), and the
// subject, sender, recipients, addresses and date. Header words in other
// charsets (RFC 2047) and transfer encodings (base64, quoted-printable) are
// decoded; attachments are not read.
#include "importers/file_bytes.h"
#include "importers/html_text.h"

#include "index/text/encoding.h"

#include <cctype>
#include <ctime>
#include <deque>

namespace trovara::importers {

namespace {

constexpr int kMaxDepth = 16;
constexpr int kMaxParts = 1000;
constexpr double kReferenceDateOffset = 978307200.0;

std::string lowerAscii(std::string_view text)
{
    std::string out(text);
    for (char& c : out) {
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    return out;
}

std::string_view trim(std::string_view text)
{
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.front()))) {
        text.remove_prefix(1);
    }
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back()))) {
        text.remove_suffix(1);
    }
    return text;
}

struct Header {
    std::string name;  // lower case
    std::string value;  // unfolded, still encoded
};

struct Part {
    std::vector<Header> headers;
    std::string_view body;

    std::string header(std::string_view name) const
    {
        for (const Header& header : headers) {
            if (header.name == name) {
                return header.value;
            }
        }
        return {};
    }
};

// Headers up to the first empty line; folded lines joined.
Part parsePart(std::string_view text)
{
    Part part;
    std::size_t at = 0;
    while (at < text.size()) {
        std::size_t end = text.find('\n', at);
        const std::size_t next = end == std::string_view::npos ? text.size() : end + 1;
        std::string_view line = text.substr(at, (end == std::string_view::npos ? text.size() : end) - at);
        if (!line.empty() && line.back() == '\r') {
            line.remove_suffix(1);
        }
        at = next;
        if (line.empty()) {
            break;
        }
        if ((line.front() == ' ' || line.front() == '\t') && !part.headers.empty()) {
            part.headers.back().value += " ";
            part.headers.back().value += trim(line);
            continue;
        }
        const std::size_t colon = line.find(':');
        if (colon == std::string_view::npos || colon == 0) {
            continue;  // not a header line: tolerate it
        }
        part.headers.push_back({lowerAscii(trim(line.substr(0, colon))), std::string(trim(line.substr(colon + 1)))});
    }
    part.body = text.substr(std::min(at, text.size()));
    return part;
}

// "text/plain; charset=utf-8; format=flowed" → type and parameters.
struct ContentType {
    std::string type = "text/plain";
    std::string charset;
    std::string boundary;
};

ContentType parseContentType(const std::string& value)
{
    ContentType result;
    if (value.empty()) {
        return result;
    }
    std::size_t semicolon = value.find(';');
    result.type = lowerAscii(trim(std::string_view(value).substr(0, semicolon)));
    while (semicolon != std::string::npos) {
        const std::size_t start = semicolon + 1;
        std::size_t equals = value.find('=', start);
        if (equals == std::string::npos) {
            break;
        }
        const std::string name = lowerAscii(trim(std::string_view(value).substr(start, equals - start)));
        std::string parameter;
        std::size_t i = equals + 1;
        while (i < value.size() && std::isspace(static_cast<unsigned char>(value[i]))) {
            ++i;
        }
        if (i < value.size() && value[i] == '"') {
            const std::size_t close = value.find('"', i + 1);
            parameter = value.substr(i + 1, (close == std::string::npos ? value.size() : close) - i - 1);
            semicolon = close == std::string::npos ? std::string::npos : value.find(';', close);
        } else {
            semicolon = value.find(';', i);
            parameter = std::string(trim(std::string_view(value).substr(i, (semicolon == std::string::npos ? value.size() : semicolon) - i)));
        }
        if (name == "charset") {
            result.charset = parameter;
        } else if (name == "boundary") {
            result.boundary = parameter;
        }
    }
    return result;
}

int hexValue(char c)
{
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
}

std::string decodeBase64(std::string_view text)
{
    std::string out;
    std::uint32_t buffer = 0;
    int bits = 0;
    for (const char c : text) {
        int value;
        if (c >= 'A' && c <= 'Z') {
            value = c - 'A';
        } else if (c >= 'a' && c <= 'z') {
            value = c - 'a' + 26;
        } else if (c >= '0' && c <= '9') {
            value = c - '0' + 52;
        } else if (c == '+' || c == '-') {
            value = 62;
        } else if (c == '/' || c == '_') {
            value = 63;
        } else {
            continue;  // line breaks, padding, noise
        }
        buffer = (buffer << 6) | static_cast<std::uint32_t>(value);
        bits += 6;
        if (bits >= 8) {
            bits -= 8;
            out.push_back(static_cast<char>((buffer >> bits) & 0xFF));
        }
    }
    return out;
}

// Quoted-printable; in headers ("Q" words) "_" is a space.
std::string decodeQuotedPrintable(std::string_view text, bool header)
{
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (c == '=' && i + 1 < text.size()) {
            if (text[i + 1] == '\n') {
                ++i;  // a soft line break
                continue;
            }
            if (text[i + 1] == '\r' && i + 2 < text.size() && text[i + 2] == '\n') {
                i += 2;
                continue;
            }
            const int high = i + 2 < text.size() ? hexValue(text[i + 1]) : -1;
            const int low = i + 2 < text.size() ? hexValue(text[i + 2]) : -1;
            if (high >= 0 && low >= 0) {
                out.push_back(static_cast<char>(high * 16 + low));
                i += 2;
                continue;
            }
        }
        out.push_back(header && c == '_' ? ' ' : c);
    }
    return out;
}

std::string toUtf8(std::string_view bytes, const std::string& charset)
{
    if (!charset.empty()) {
        if (auto decoded = index::text::decodeNamedCharset(bytes, charset)) {
            return std::move(decoded->text);
        }
    }
    return index::text::decodeText(bytes, index::text::detectEncoding(bytes)).text;
}

// A header value with its encoded words (=?charset?B|Q?…?=) decoded; white
// space between two encoded words is dropped.
std::string decodeHeader(std::string_view value)
{
    std::string out;
    std::size_t i = 0;
    bool lastWasEncoded = false;
    std::string pendingSpace;
    while (i < value.size()) {
        const std::size_t start = value.find("=?", i);
        if (start == std::string_view::npos) {
            out += pendingSpace;
            out += toUtf8(value.substr(i), "utf-8");
            break;
        }
        const std::size_t q1 = value.find('?', start + 2);
        const std::size_t q2 = q1 == std::string_view::npos ? q1 : value.find('?', q1 + 1);
        const std::size_t end = q2 == std::string_view::npos ? q2 : value.find("?=", q2 + 1);
        if (end == std::string_view::npos || q2 != q1 + 2) {
            out += pendingSpace;
            out += toUtf8(value.substr(i), "utf-8");
            break;
        }
        const std::string_view between = value.substr(i, start - i);
        if (!(lastWasEncoded && trim(between).empty())) {
            out += pendingSpace;
            out += toUtf8(between, "utf-8");
        }
        std::string charset(value.substr(start + 2, q1 - start - 2));
        charset = charset.substr(0, charset.find('*'));  // a language suffix
        const char encoding = static_cast<char>(std::toupper(static_cast<unsigned char>(value[q1 + 1])));
        const std::string_view payload = value.substr(q2 + 1, end - q2 - 1);
        const std::string bytes = encoding == 'B' ? decodeBase64(payload) : decodeQuotedPrintable(payload, true);
        out += toUtf8(bytes, charset);
        pendingSpace.clear();
        lastWasEncoded = true;
        i = end + 2;
    }
    return out;
}

struct Address {
    std::string name;
    std::string address;
};

// "Ann <ann@x.org>, \"Bob, Jr\" <bob@y.org>, carl@z.org (Carl)"
std::vector<Address> parseAddresses(const std::string& value)
{
    std::vector<std::string> pieces;
    std::string current;
    bool quoted = false;
    int angle = 0;
    for (const char c : value) {
        if (c == '"') {
            quoted = !quoted;
        } else if (!quoted && c == '<') {
            ++angle;
        } else if (!quoted && c == '>') {
            angle = std::max(0, angle - 1);
        }
        if (c == ',' && !quoted && angle == 0) {
            pieces.push_back(current);
            current.clear();
        } else {
            current.push_back(c);
        }
    }
    pieces.push_back(current);
    std::vector<Address> addresses;
    for (const std::string& piece : pieces) {
        Address address;
        const std::size_t open = piece.find('<');
        const std::size_t close = piece.find('>', open == std::string::npos ? 0 : open);
        if (open != std::string::npos && close != std::string::npos) {
            address.address = std::string(trim(std::string_view(piece).substr(open + 1, close - open - 1)));
            address.name = std::string(trim(std::string_view(piece).substr(0, open)));
        } else {
            const std::size_t paren = piece.find('(');
            address.address = std::string(trim(std::string_view(piece).substr(0, paren)));
            if (paren != std::string::npos) {
                const std::size_t closing = piece.find(')', paren);
                address.name = piece.substr(paren + 1, (closing == std::string::npos ? piece.size() : closing) - paren - 1);
            }
        }
        if (address.name.size() >= 2 && address.name.front() == '"' && address.name.back() == '"') {
            address.name = address.name.substr(1, address.name.size() - 2);
        }
        address.name = decodeHeader(address.name);
        if (!address.address.empty() || !address.name.empty()) {
            addresses.push_back(std::move(address));
        }
    }
    return addresses;
}

// "Tue, 1 Jul 2003 10:52:37 +0200" as seconds since 2001.
std::optional<double> parseMailDate(std::string_view text)
{
    static constexpr std::string_view kMonths[] = {"jan", "feb", "mar", "apr", "may", "jun",
                                                    "jul", "aug", "sep", "oct", "nov", "dec"};
    if (const std::size_t comma = text.find(','); comma != std::string_view::npos) {
        text.remove_prefix(comma + 1);
    }
    std::vector<std::string> fields;
    std::string current;
    for (const char c : text) {
        if (std::isspace(static_cast<unsigned char>(c))) {
            if (!current.empty()) {
                fields.push_back(std::move(current));
                current.clear();
            }
        } else {
            current.push_back(c);
        }
    }
    if (!current.empty()) {
        fields.push_back(std::move(current));
    }
    if (fields.size() < 4) {
        return std::nullopt;
    }
    std::tm time{};
    time.tm_mday = std::atoi(fields[0].c_str());
    const std::string month = lowerAscii(fields[1].substr(0, 3));
    time.tm_mon = -1;
    for (int m = 0; m < 12; ++m) {
        if (month == kMonths[m]) {
            time.tm_mon = m;
        }
    }
    int year = std::atoi(fields[2].c_str());
    year += year < 50 ? 2000 : (year < 1000 ? 1900 : 0);
    time.tm_year = year - 1900;
    if (std::sscanf(fields[3].c_str(), "%d:%d:%d", &time.tm_hour, &time.tm_min, &time.tm_sec) < 2 || time.tm_mon < 0
        || time.tm_mday < 1 || time.tm_mday > 31) {
        return std::nullopt;
    }
    long offset = 0;
    if (fields.size() > 4 && (fields[4][0] == '+' || fields[4][0] == '-') && fields[4].size() == 5) {
        const long hhmm = std::atol(fields[4].c_str() + 1);
        offset = (hhmm / 100 * 3600 + hhmm % 100 * 60) * (fields[4][0] == '-' ? -1 : 1);
    }
    const std::time_t utc = ::timegm(&time);
    return static_cast<double>(utc - offset) - kReferenceDateOffset;
}

class Reader {
public:
    explicit Reader(ImportSink& sink)
        : m_sink(sink)
    {
    }

    void walk(const Part& part, int depth)
    {
        if (depth > kMaxDepth || ++m_parts > kMaxParts || m_sink.textFull()) {
            return;
        }
        const ContentType type = parseContentType(part.header("content-type"));
        const std::string disposition = lowerAscii(part.header("content-disposition"));
        if (disposition.starts_with("attachment")) {
            return;
        }
        if (type.type.starts_with("multipart/") && !type.boundary.empty()) {
            const std::vector<Part> children = splitMultipart(part.body, type.boundary);
            if (type.type == "multipart/alternative") {
                // The plain text when there is one, else the richest.
                const Part* chosen = children.empty() ? nullptr : &children.back();
                for (const Part& child : children) {
                    if (parseContentType(child.header("content-type")).type == "text/plain") {
                        chosen = &child;
                    }
                }
                if (chosen) {
                    walk(*chosen, depth + 1);
                }
                return;
            }
            for (const Part& child : children) {
                walk(child, depth + 1);
            }
            return;
        }
        if (type.type == "message/rfc822") {
            const std::string inner = decodedBody(part);
            m_held.push_back(inner);
            walk(parsePart(m_held.back()), depth + 1);
            return;
        }
        if (type.type == "text/plain" || type.type == "text/html") {
            const std::string text = toUtf8(decodedBody(part), type.charset);
            if (type.type == "text/html") {
                extractHtml(text, m_sink);
            } else {
                m_sink.appendText(text);
            }
            m_sink.breakText();
        }
    }

private:
    static std::string decodedBody(const Part& part)
    {
        const std::string encoding = lowerAscii(trim(part.header("content-transfer-encoding")));
        if (encoding == "base64") {
            return decodeBase64(part.body);
        }
        if (encoding == "quoted-printable") {
            return decodeQuotedPrintable(part.body, false);
        }
        return std::string(part.body);
    }

    static std::vector<Part> splitMultipart(std::string_view body, const std::string& boundary)
    {
        std::vector<Part> parts;
        const std::string delimiter = "--" + boundary;
        std::size_t at = body.find(delimiter);
        while (at != std::string_view::npos) {
            std::size_t start = at + delimiter.size();
            if (body.substr(start, 2) == "--") {
                break;  // the closing delimiter
            }
            start = body.find('\n', start);
            if (start == std::string_view::npos) {
                break;
            }
            ++start;
            const std::size_t next = body.find(delimiter, start);
            std::string_view content = body.substr(start, (next == std::string_view::npos ? body.size() : next) - start);
            parts.push_back(parsePart(content));
            at = next;
        }
        return parts;
    }

    ImportSink& m_sink;
    int m_parts = 0;
    std::deque<std::string> m_held;  // bodies of enclosed messages, which their parts point into (stable)
};

class EmailImporter final : public Importer {
public:
    EmailImporter()
    {
        m_info.name = "email";
        m_info.version = "1";
        m_info.contentTypes = {"com.apple.mail.email", "message/rfc822"};
    }

    const index::ImporterInfo& info() const override { return m_info; }

    Expected<void> importFile(const ImportContext& context, ImportSink& sink) const override
    {
        Expected<FileBytes> file = readFileBytes(context.path, readLimitFor(sink.textLimit()));
        if (!file) {
            return file.error();
        }
        const Part message = parsePart(file->bytes);
        if (message.headers.empty()) {
            return importFailure("not an e-mail message: it has no headers");
        }
        const std::string subject = decodeHeader(message.header("subject"));
        sink.setText("kMDItemSubject", subject);
        sink.setText("kMDItemTitle", subject);
        std::vector<std::string> every;
        std::vector<std::string> authors;
        std::vector<std::string> authorAddresses;
        for (const Address& from : parseAddresses(message.header("from"))) {
            authors.push_back(from.name.empty() ? from.address : from.name);
            authorAddresses.push_back(from.address);
            every.push_back(from.address);
        }
        std::vector<std::string> recipients;
        std::vector<std::string> recipientAddresses;
        for (const char* header : {"to", "cc"}) {
            for (const Address& to : parseAddresses(message.header(header))) {
                recipients.push_back(to.name.empty() ? to.address : to.name);
                recipientAddresses.push_back(to.address);
                every.push_back(to.address);
            }
        }
        sink.setList("kMDItemAuthors", authors);
        sink.setList("kMDItemAuthorEmailAddresses", authorAddresses);
        sink.setList("kMDItemRecipients", recipients);
        sink.setList("kMDItemRecipientEmailAddresses", recipientAddresses);
        sink.setList("kMDItemEmailAddresses", every);
        if (auto date = parseMailDate(message.header("date"))) {
            sink.setDate("kMDItemContentCreationDate", *date);
        }
        if (!subject.empty()) {
            sink.appendText(subject);
            sink.breakText();
        }
        Reader(sink).walk(message, 0);
        if (!file->complete) {
            sink.markTruncated();
        }
        return {};
    }

private:
    index::ImporterInfo m_info;
};

}  // namespace

std::unique_ptr<Importer> makeEmailImporter()
{
    return std::make_unique<EmailImporter>();
}

}  // namespace trovara::importers
