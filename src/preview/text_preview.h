// The text preview of the selected result, without its window: which file
// is shown, its text, the coloured ranges of the search terms, the match the
// user is at, or the short message shown instead of the text. The panel
// (widgets::TextPreviewController) draws this and feeds it the selection and
// the search terms.
//
// Reading happens on a work manager of its own with one thread: each update
// drops the work still queued, raises the cancel flag of the read under way
// and queues the new read in front, so only the newest selection is shown
// however fast it changes, and a file that takes long (or a helper that
// hangs) never holds up the next. The worker also finds the coloured ranges,
// so that the text arrives coloured; a change of terms colours the text
// again, on the worker too. The main thread only swaps in finished answers.
//
// The terms: the active document's search strings (querySearchStringArray);
// when the user has typed something else in the panel's field (searchString,
// which is set to the first search string whenever those change), that one
// string instead; with no search strings, the field's string.
//
// Objects are made with create() (the work units share them).
//
// Thread safety: lives in the main thread; prepare…() run on the worker.
#pragma once

#include "preview/file_contents.h"
#include "preview/search_term_matcher.h"
#include "preview/si_work_manager.h"

#include <QObject>
#include <QStringList>
#include <QVariant>

#include <atomic>
#include <functional>
#include <memory>
#include <vector>

namespace trovara::preview {

class TextPreview : public QObject, public std::enable_shared_from_this<TextPreview> {
    Q_OBJECT
public:
    // `limit`: bytes of text at most (0: all the text the reader allows).
    using Reader =
        std::function<FileContents(const std::string& path, const std::atomic<bool>* cancel, std::uint64_t limit)>;

    // A large text is shown in two steps: its first bytes at once, then,
    // read in the background, the whole text in their place.
    static constexpr std::uint64_t kFirstLookBytes = 256 * 1024;

    // Reads through `reader`; by default the process's TextPreviewUtility.
    static std::shared_ptr<TextPreview> create(Reader reader = {});
    ~TextPreview() override;

    // The paths of the selected results: one is previewed, none or several
    // empty and hide the text.
    void activeSelectionChanged(const QStringList& paths);
    // The active document's search strings; the first becomes searchString.
    void setQuerySearchStringArray(const QStringList& strings);
    const QStringList& querySearchStringArray() const { return m_querySearchStrings; }
    // The panel's search field.
    void setSearchString(const QString& string);
    const QString& searchString() const { return m_searchString; }
    // The terms coloured now (see above).
    QStringList terms() const;

    // While inactive (the panel hidden) nothing is read; becoming active
    // previews the selection.
    void setActive(bool active);
    bool isActive() const { return m_active; }

    // How much of a text the first read asks for (0: all of it at once).
    void setFirstLookBytes(std::uint64_t bytes) { m_firstLookBytes = bytes; }

    // Reads the selected file again.
    void updatePreview();
    // Finds the terms again in the text shown.
    void colorSearchString();

    // The colours of terms 0 to 8.
    static const std::array<HighlightColor, 9>& colors() { return highlightColors(); }

    // What is shown.
    const QString& path() const { return m_path; }  // the file, when one is selected
    const QString& text() const { return m_text; }
    bool isTextVisible() const { return m_textVisible; }
    bool isTruncated() const { return m_truncated; }
    bool isLoading() const { return m_loading; }
    // A short sentence in place of (or, for a cut text, below) the text.
    const QString& message() const { return m_message; }
    const std::vector<TermMatch>& matches() const { return m_matches; }
    // Where the text's display lines start (see display_lines.h), found
    // with the text on the worker.
    const std::vector<qsizetype>& displayLines() const { return m_lines; }
    const index::ImportedAttributes& attributes() const { return m_attributes; }

    // The match the user is at (-1: none); next and previous wrap around.
    int currentMatch() const { return m_currentMatch; }
    void goToNextMatch();
    void goToPreviousMatch();

    // Work unit operations (worker thread, then main thread).
    Q_INVOKABLE QVariant prepareUpdatePreview(QVariant request);
    Q_INVOKABLE void processUpdatePreview(QVariant answer);
    Q_INVOKABLE QVariant prepareColorSearchString(QVariant request);
    Q_INVOKABLE void processColorSearchString(QVariant answer);

    // For tests and benchmarks: the worker runs nothing else meanwhile.
    SIWorkManager& workManager() { return m_workManager; }

signals:
    // The text, its visibility, the message or the file changed.
    void textChanged();
    // The rest of the text shown arrived: text() starts with what was shown
    // (the view keeps its place); new matches follow with highlightsChanged.
    void textExtended();
    // New coloured ranges (the text is the same).
    void highlightsChanged();
    // Go to (select and show) match `index` of matches().
    void currentMatchChanged(int index);
    // terms() may have changed.
    void termsChanged();

private:
    explicit TextPreview(Reader reader);
    template <typename T, typename... Args>
    friend std::shared_ptr<T> makeWorkTarget(Args&&... args);

    void show(const QString& path, const QString& text, bool visible, const QString& message);
    void setMatches(std::vector<TermMatch> matches, bool keepCurrent = false);
    void cancelReading();
    void read(const QString& path, std::uint64_t limit);
    static QString shownOnly(qint64 bytes);

    Reader m_reader;
    SIWorkManager m_workManager{1};
    QStringList m_selection;
    QStringList m_querySearchStrings;
    QString m_searchString;
    bool m_active = true;
    std::uint64_t m_firstLookBytes = kFirstLookBytes;

    quint64 m_previewGeneration = 0;  // of the newest read asked for
    quint64 m_shownGeneration = 0;    // of the read whose answer is shown
    quint64 m_termsGeneration = 0;    // of the newest terms
    std::shared_ptr<std::atomic<bool>> m_readCancel;

    QString m_path;
    QString m_text;
    std::vector<qsizetype> m_lines;
    bool m_textVisible = false;
    bool m_truncated = false;
    bool m_loading = false;
    QString m_message;
    std::vector<TermMatch> m_matches;
    int m_currentMatch = -1;
    index::ImportedAttributes m_attributes;
};

}  // namespace trovara::preview
