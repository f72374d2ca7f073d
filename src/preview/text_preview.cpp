#include "preview/text_preview.h"

#include "preview/display_lines.h"
#include "preview/text_preview_utility.h"

#include <QCoreApplication>
#include <QLocale>
#include <QTimer>

namespace trovara::preview {

namespace {

struct PreviewRequest {
    quint64 generation = 0;
    QString path;
    QStringList terms;
    quint64 termsGeneration = 0;
    std::shared_ptr<std::atomic<bool>> cancel;
    std::uint64_t limit = 0;  // 0: the whole text
};

struct PreviewAnswer {
    quint64 generation = 0;
    QString path;
    bool firstLook = false;  // the start of the text only; the rest may follow
    FileContents contents;   // without its text, which is in `text`
    QString text;
    qint64 textBytes = 0;  // UTF-8
    std::vector<qsizetype> lines;
    std::vector<TermMatch> matches;
    quint64 termsGeneration = 0;
};

struct ColorRequest {
    quint64 previewGeneration = 0;
    quint64 termsGeneration = 0;
    QString text;
    QStringList terms;
};

struct ColorAnswer {
    quint64 previewGeneration = 0;
    quint64 termsGeneration = 0;
    std::vector<TermMatch> matches;
};

}  // namespace

}  // namespace trovara::preview

Q_DECLARE_METATYPE(trovara::preview::PreviewRequest)
Q_DECLARE_METATYPE(trovara::preview::PreviewAnswer)
Q_DECLARE_METATYPE(trovara::preview::ColorRequest)
Q_DECLARE_METATYPE(trovara::preview::ColorAnswer)

namespace trovara::preview {

std::shared_ptr<TextPreview> TextPreview::create(Reader reader)
{
    if (!reader) {
        reader = [](const std::string& path, const std::atomic<bool>* cancel, std::uint64_t limit) {
            return TextPreviewUtility::sharedTextPreviewUtility().textContentsOfFile(path, cancel, limit);
        };
        // The helper starts on the next turn of the event loop, so that it is
        // ready by the time the first file is asked for.
        QTimer::singleShot(0, [] { TextPreviewUtility::sharedTextPreviewUtility(); });
    }
    return makeWorkTarget<TextPreview>(std::move(reader));
}

TextPreview::TextPreview(Reader reader)
    : m_reader(std::move(reader))
{
}

TextPreview::~TextPreview()
{
    cancelReading();
}

QStringList TextPreview::terms() const
{
    const bool typedOther = !m_searchString.isEmpty() && m_searchString != m_querySearchStrings.value(0);
    if (typedOther || m_querySearchStrings.isEmpty()) {
        return m_searchString.isEmpty() ? QStringList() : QStringList{m_searchString};
    }
    return m_querySearchStrings;
}

void TextPreview::activeSelectionChanged(const QStringList& paths)
{
    if (paths == m_selection && (paths.size() != 1 || paths.front() == m_path)) {
        return;
    }
    m_selection = paths;
    updatePreview();
}

void TextPreview::setQuerySearchStringArray(const QStringList& strings)
{
    if (strings == m_querySearchStrings) {
        return;
    }
    m_querySearchStrings = strings;
    m_searchString = strings.value(0);
    ++m_termsGeneration;
    colorSearchString();
    emit termsChanged();
}

void TextPreview::setSearchString(const QString& string)
{
    if (string == m_searchString) {
        return;
    }
    m_searchString = string;
    ++m_termsGeneration;
    colorSearchString();
    emit termsChanged();
}

void TextPreview::setActive(bool active)
{
    if (active == m_active) {
        return;
    }
    m_active = active;
    if (active) {
        updatePreview();
    } else {
        cancelReading();
    }
}

void TextPreview::cancelReading()
{
    m_workManager.removePendingWorkFor(nullptr);
    if (m_readCancel) {
        m_readCancel->store(true);
        m_readCancel.reset();
    }
    m_loading = false;
}

void TextPreview::updatePreview()
{
    cancelReading();
    ++m_previewGeneration;
    if (!m_active) {
        return;
    }
    if (m_selection.size() != 1) {
        m_shownGeneration = m_previewGeneration;
        m_attributes.clear();
        show({}, {}, false, {});
        setMatches({});
        return;
    }
    read(m_selection.front(), m_firstLookBytes);
}

void TextPreview::read(const QString& path, std::uint64_t limit)
{
    PreviewRequest request;
    request.generation = m_previewGeneration;
    request.path = path;
    request.terms = terms();
    request.termsGeneration = m_termsGeneration;
    request.cancel = m_readCancel = std::make_shared<std::atomic<bool>>(false);
    request.limit = limit;
    m_loading = true;
    m_workManager.addWorkUnit(SIWorkUnit::create(shared_from_this(), "prepareUpdatePreview",
                                                 QVariant::fromValue(request), "processUpdatePreview", true),
                              true);
}

QVariant TextPreview::prepareUpdatePreview(QVariant value)
{
    const PreviewRequest request = value.value<PreviewRequest>();
    PreviewAnswer answer;
    answer.generation = request.generation;
    answer.path = request.path;
    answer.termsGeneration = request.termsGeneration;
    answer.contents = m_reader(request.path.toStdString(), request.cancel.get(), request.limit);
    if (request.cancel->load()) {
        answer.contents = FileContents::cancelled();
    }
    answer.firstLook = request.limit != 0 && answer.contents.truncated;
    if (answer.contents.hasText()) {
        answer.text = QString::fromUtf8(answer.contents.text);
        answer.textBytes = static_cast<qint64>(answer.contents.text.size());
        answer.contents.text = {};
        answer.lines = displayLineStarts(answer.text);
        answer.matches =
            SearchTermMatcher(request.terms).colorRanges(answer.text, [&] { return request.cancel->load(); });
    }
    return QVariant::fromValue(std::move(answer));
}

void TextPreview::processUpdatePreview(QVariant value)
{
    PreviewAnswer answer = value.value<PreviewAnswer>();
    if (answer.generation != m_previewGeneration || answer.contents.outcome == FileContents::Outcome::Cancelled) {
        return;  // a newer selection is on its way
    }
    m_loading = false;
    m_readCancel.reset();
    const bool rest = m_shownGeneration == answer.generation && m_textVisible && answer.path == m_path;
    const bool text = answer.contents.outcome == FileContents::Outcome::Text;
    if (rest && !(text && !answer.text.startsWith(m_text))) {
        // The whole text after its first look: in its place, where the user is.
        if (text) {
            m_text = answer.text;
            m_lines = std::move(answer.lines);
            m_attributes = std::move(answer.contents.attributes);
            m_truncated = answer.contents.truncated;
            m_message = m_truncated ? shownOnly(answer.textBytes) : QString();
            emit textExtended();
            if (answer.termsGeneration == m_termsGeneration) {
                setMatches(std::move(answer.matches), true);
            } else {
                colorSearchString();
            }
        } else {
            // The file changed or went meanwhile: the start shown is all there is.
            m_truncated = true;
            m_message = shownOnly(m_text.toUtf8().size());
            emit textChanged();
        }
        return;
    }
    m_shownGeneration = answer.generation;
    m_attributes = std::move(answer.contents.attributes);
    switch (answer.contents.outcome) {
    case FileContents::Outcome::Text: {
        const QString note = answer.contents.truncated && !answer.firstLook ? shownOnly(answer.textBytes) : QString();
        m_lines = std::move(answer.lines);
        show(answer.path, answer.text, true, note);
        if (answer.firstLook) {
            read(answer.path, 0);  // the rest, while the user looks at the start
        }
        break;
    }
    case FileContents::Outcome::NoText:
        show(answer.path, {}, false, tr("No text in this file."));
        break;
    case FileContents::Outcome::Failed:
    case FileContents::Outcome::Cancelled:
        show(answer.path, {}, false, QString::fromStdString(answer.contents.problem));
        break;
    }
    if (answer.termsGeneration == m_termsGeneration) {
        setMatches(std::move(answer.matches));
    } else {
        colorSearchString();  // the terms changed while the file was read
    }
}

QString TextPreview::shownOnly(qint64 bytes)
{
    return tr("Only the first %1 of the text are shown.")
        .arg(QLocale::c().formattedDataSize(bytes, 0, QLocale::DataSizeSIFormat));
}

void TextPreview::colorSearchString()
{
    const QStringList current = terms();
    if (!m_textVisible || m_text.isEmpty() || SearchTermMatcher(current).isEmpty()) {
        setMatches({});
        return;
    }
    ColorRequest request;
    request.previewGeneration = m_shownGeneration;
    request.termsGeneration = m_termsGeneration;
    request.text = m_text;
    request.terms = current;
    m_workManager.addWorkUnit(SIWorkUnit::create(shared_from_this(), "prepareColorSearchString",
                                                 QVariant::fromValue(request), "processColorSearchString", false),
                              true);
}

QVariant TextPreview::prepareColorSearchString(QVariant value)
{
    const ColorRequest request = value.value<ColorRequest>();
    ColorAnswer answer;
    answer.previewGeneration = request.previewGeneration;
    answer.termsGeneration = request.termsGeneration;
    answer.matches = SearchTermMatcher(request.terms).colorRanges(request.text);
    return QVariant::fromValue(std::move(answer));
}

void TextPreview::processColorSearchString(QVariant value)
{
    ColorAnswer answer = value.value<ColorAnswer>();
    if (answer.previewGeneration == m_shownGeneration && answer.termsGeneration == m_termsGeneration) {
        setMatches(std::move(answer.matches));
    }
}

void TextPreview::show(const QString& path, const QString& text, bool visible, const QString& message)
{
    m_path = path;
    m_text = text;
    if (!visible) {
        m_lines.clear();
    }
    m_textVisible = visible;
    m_truncated = visible && !message.isEmpty();
    m_message = message;
    emit textChanged();
}

void TextPreview::setMatches(std::vector<TermMatch> matches, bool keepCurrent)
{
    if (matches.empty() && m_matches.empty()) {
        m_currentMatch = -1;
        return;
    }
    m_matches = std::move(matches);
    const int count = static_cast<int>(m_matches.size());
    if (keepCurrent && m_currentMatch >= 0 && m_currentMatch < count) {
        emit highlightsChanged();  // the user stays at the match they are at
        return;
    }
    m_currentMatch = count == 0 ? -1 : 0;
    emit highlightsChanged();
    if (m_currentMatch >= 0) {
        emit currentMatchChanged(m_currentMatch);  // the first coloured range comes into view
    }
}

void TextPreview::goToNextMatch()
{
    const int next = nextMatch(m_matches, m_currentMatch);
    if (next >= 0) {
        m_currentMatch = next;
        emit currentMatchChanged(next);
    }
}

void TextPreview::goToPreviousMatch()
{
    const int previous = previousMatch(m_matches, m_currentMatch);
    if (previous >= 0) {
        m_currentMatch = previous;
        emit currentMatchChanged(previous);
    }
}

}  // namespace trovara::preview
