// The quick-search links Trovara answers, as browsers, launchers and
// `xdg-open` hand them over:
//
//   trovara://invoice list            search for the text after "//"
//   trovara://blitzSearch?searchstring=invoice%20list&filenameflag=1
//
// The parameters of the second form (keys case-insensitive, values keep
// their case): searchstring=, anytextflag=, filenameflag=, contentflag=,
// commentsflag= (each read as a Boolean), templatename= (a template in the
// templates folder, ".trova" optional) and options= (1: file name only,
// 2: content only, anything else: file name and content; ignored when any
// flag is given). Unknown parameters are ignored. Without searchstring= the
// search string is the whole text after "//".
//
// Pure text handling: no documents, no windows.
#pragma once

#include <QString>

namespace trovara::app {

// What a quick search asks for: the text, the fields it is matched against
// and an optional template to start from.
struct BlitzSearchRequest {
    QString searchString;
    bool anyText = false;
    bool filename = false;
    bool content = false;
    bool comments = false;
    // An existing, readable template file; empty for none.
    QString templatePath;

    friend bool operator==(const BlitzSearchRequest&, const BlitzSearchRequest&) = default;
};

class QuickSearchUrl {
public:
    static constexpr const char* kScheme = "trovara";
    // Longer links are refused: nobody types a search that long, and
    // the text would only weigh on the index.
    static constexpr int kMaximumLength = 8192;

    enum class Outcome {
        // Run `request`.
        Search,
        // A well-formed link with an empty search string: nothing happens.
        Ignore,
        // A link Trovara does not understand: the beep sounds, `problem`
        // says why (for the log).
        Refuse,
    };

    // Reads `url`; a template name is looked up in `templateFolder`.
    static QuickSearchUrl parse(const QString& url, const QString& templateFolder);

    // The platform's reading of a text as a Boolean: true when, after
    // leading white space, a sign and zeros, it begins with a digit 1-9 or
    // with Y, y, T or t.
    static bool boolValue(const QString& text);

    // Decodes %XX escapes into UTF-8 text; false for a malformed escape,
    // bytes that are not UTF-8 or a NUL character.
    static bool percentDecode(const QString& text, QString* decoded);

    Outcome outcome() const { return m_outcome; }
    const BlitzSearchRequest& request() const { return m_request; }
    const QString& problem() const { return m_problem; }

private:
    static QuickSearchUrl refuse(const QString& problem);

    Outcome m_outcome = Outcome::Refuse;
    BlitzSearchRequest m_request;
    QString m_problem;
};

}  // namespace trovara::app
