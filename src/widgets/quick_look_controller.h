// The quick look panel (the space bar, as in the file managers): a large
// view of the single selected result of the active search.
//
// - Pictures (every format Qt reads, SVG drawings included) and the first
//   page of a PDF are read and scaled on a thread of the panel's own, never
//   larger than pictureBound(), so that a huge picture costs the window
//   nothing; only the newest selection's picture is shown.
// - A PDF shows its text below the page, with the search's terms coloured;
//   the text is extracted on the same thread once the page is shown, page
//   by page, stopping when the selection moves on.
// - Audio and video files show their icon and what the importers know of
//   them (title, artist, duration, codecs, bit rate …): the index's values,
//   completed by asking the importers (through the text preview's reader)
//   when the index has not read the file's content. Nothing is played.
// - Text files show their text with the search's terms coloured, read as
//   the text preview reads them (preview::TextPreview).
// - Anything else (archives, programs …) shows its icon and the values the
//   inspector lists; so do audio and video, below their facts.
// - A file that cannot be shown (deleted, truncated, unreadable) gets a short
//   message instead; the next selection is shown normally.
//
// Its menu item reads "Show Quick Look" / "Hide Quick Look"; it does not
// open by itself at launch. Main thread only.
#pragma once

#include "preview/text_preview.h"
#include "widgets/abstract_inspector_controller.h"

#include <QImage>
#include <QThreadPool>

#include <atomic>
#include <functional>
#include <memory>

class QLabel;
class QStackedWidget;
class QTableView;

namespace trovara::widgets {

class InspectorRowsModel;
class PictureView;
class PreviewTextView;

class QuickLookController final : public AbstractInspectorController {
    Q_OBJECT

public:
    enum class Kind { Nothing, Picture, Pdf, Text, Media, Other, Message };

    // Reads text through `reader` (tests); by default the text preview helper.
    explicit QuickLookController(QObject* parent = nullptr, preview::TextPreview::Reader reader = {});
    ~QuickLookController() override;

    QString menuTitleWhenActive(bool active) const override;
    bool shouldAutoOpen() const override { return false; }

    // Pictures and PDF pages are scaled to fit this (device pixels).
    static QSize pictureBound() { return {1600, 1600}; }

    // A picture or a PDF's first page, read and scaled down to fit `bound`
    // (any thread); `problem` says why there is none.
    struct Picture {
        QImage image;
        QSize originalSize;  // pixels, or a PDF page's points
        int pageCount = 0;
        QString problem;
    };
    static Picture readPicture(const QString& path, Kind kind, QSize bound);
    // A PDF's text, page after page, at most `limit` characters; empty when
    // it has none or cannot be read. Stops early (returning what it has)
    // once `stop` says so. Any thread.
    static QString readPdfText(const QString& path, const std::function<bool()>& stop,
                               qsizetype limit = 4 << 20);
    // The facts shown for an audio or video file, as (label, value) pairs in
    // a fixed order, from its attribute values by key (kMDItemTitle …);
    // absent values are left out.
    using Facts = QList<QPair<QString, QString>>;
    static Facts mediaFacts(const QVariantMap& values);
    // What the panel makes of a file, by its content type.
    static Kind kindOfFile(const QString& path);

    // What is shown now; a picture or PDF stays Nothing until it is read.
    Kind kind() const { return m_kind; }
    const QString& path() const { return m_path; }
    // The picture or PDF page shown.
    const QImage& image() const { return m_image; }
    // "300 × 200 pixels", "PDF, 3 pages", …
    QString detailText() const;
    QLabel* messageLabel() const { return m_message; }
    PreviewTextView* textView() const { return m_textView; }
    // A PDF's text, and what is said while there is none.
    PreviewTextView* pdfTextView() const { return m_pdfTextView; }
    QLabel* pdfTextMessage() const { return m_pdfTextMessage; }
    // The facts of the audio or video file shown.
    const Facts& shownMediaFacts() const { return m_mediaFacts; }
    QTableView* valuesTable() const { return m_valuesTable; }
    preview::TextPreview& textPreview() const { return *m_text; }

protected:
    QWidget* makeContents() override;
    void showContent(document::Document* document) override;

private:
    void followSelection();
    void show(const QString& path, const QVariantList& values, const QVariantMap& mediaValues);
    void showPicture(quint64 generation, const Picture& picture);
    void readPdfTextInBackground(quint64 generation, const QString& path, const QStringList& terms);
    void colourPdfText();
    void showMediaFacts();
    void showText();
    void showMessage(const QString& message);
    void setPage(QWidget* page);

    bool m_usesHelper;
    preview::TextPreview::Reader m_reader;
    std::shared_ptr<preview::TextPreview> m_text;
    std::shared_ptr<std::atomic<bool>> m_cancel;  // of the newest selection's background work
    QPointer<document::Document> m_document;
    QThreadPool m_pool;
    std::atomic<quint64> m_generation{0};  // of the newest selection shown

    Kind m_kind = Kind::Nothing;
    QString m_path;
    QImage m_image;
    int m_pageCount = 0;
    QSize m_originalSize;
    QString m_pdfText;
    QVariantMap m_mediaValues;
    Facts m_mediaFacts;

    QLabel* m_title = nullptr;
    QLabel* m_detail = nullptr;
    QStackedWidget* m_pages = nullptr;
    PictureView* m_picture = nullptr;
    PreviewTextView* m_textView = nullptr;
    QWidget* m_info = nullptr;
    QLabel* m_icon = nullptr;
    QLabel* m_mediaLabel = nullptr;
    QTableView* m_valuesTable = nullptr;
    QWidget* m_pdfPage = nullptr;
    PictureView* m_pdfPicture = nullptr;
    PreviewTextView* m_pdfTextView = nullptr;
    QLabel* m_pdfTextMessage = nullptr;
    InspectorRowsModel* m_values = nullptr;
    QLabel* m_message = nullptr;
};

}  // namespace trovara::widgets
