#include "widgets/quick_look_controller.h"

#include "preview/display_lines.h"
#include "preview/search_term_matcher.h"
#include "preview/text_preview_utility.h"
#include "query/metadata_query_controller.h"
#include "query/result_item.h"
#include "query/result_table_model.h"
#include "widgets/file_icons.h"
#include "widgets/inspector_controller.h"
#include "widgets/preview_text_view.h"
#include "widgets/text_preview_controller.h"

#include <QFileInfo>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QImageReader>
#include <QItemSelectionModel>
#include <QLabel>
#include <QMimeDatabase>
#include <QPainter>
#include <QPdfDocument>
#include <QPdfSelection>
#include <QSplitter>
#include <QStackedWidget>
#include <QTableView>
#include <QTimer>
#include <QVBoxLayout>

#include <cmath>

namespace trovara::widgets {

namespace {

// The attributes an audio or video file's facts are made of.
const char* const kMediaKeys[] = {
    "kMDItemTitle",          "kMDItemAuthors",         "kMDItemAlbum",           "kMDItemDurationSeconds",
    "kMDItemPixelWidth",     "kMDItemPixelHeight",     "kMDItemCodecs",          "kMDItemTotalBitRate",
    "kMDItemAudioBitRate",   "kMDItemVideoBitRate",    "kMDItemAudioSampleRate", "kMDItemAudioChannelCount",
};

QVariant toVariant(const index::query::Scalar& scalar)
{
    if (const auto* text = std::get_if<std::string>(&scalar)) {
        return QString::fromStdString(*text);
    }
    if (const auto* number = std::get_if<double>(&scalar)) {
        return *number;
    }
    return {};  // no fact is a date or a yes/no
}

// The importers' values of the media keys (lists as QStringList).
QVariantMap mediaValuesOf(const index::ImportedAttributes& attributes)
{
    QVariantMap values;
    for (const char* key : kMediaKeys) {
        const index::query::AttributeValue* value = index::findImported(attributes, key);
        if (!value || value->elements().empty()) {
            continue;
        }
        if (value->isList()) {
            QStringList list;
            for (const index::query::Scalar& element : value->elements()) {
                list << toVariant(element).toString();
            }
            values.insert(QString::fromLatin1(key), list);
        } else {
            values.insert(QString::fromLatin1(key), toVariant(value->elements().front()));
        }
    }
    return values;
}

QString durationText(double seconds)
{
    const qint64 whole = std::llround(seconds);
    const qint64 hours = whole / 3600;
    const qint64 minutes = whole / 60 % 60;
    const QString rest = QStringLiteral("%1:%2").arg(minutes).arg(whole % 60, 2, 10, QLatin1Char('0'));
    return hours > 0 ? QStringLiteral("%1:%2").arg(hours).arg(rest.rightJustified(5, QLatin1Char('0'))) : rest;
}

}  // namespace

// Draws a picture scaled down (never up) to fit, centred.
class PictureView final : public QWidget {
public:
    using QWidget::QWidget;
    void setImage(const QImage& image)
    {
        m_image = image;
        update();
    }

protected:
    void paintEvent(QPaintEvent*) override
    {
        if (m_image.isNull()) {
            return;
        }
        QPainter painter(this);
        painter.setRenderHint(QPainter::SmoothPixmapTransform);
        const qreal ratio = devicePixelRatioF();
        QSizeF size = QSizeF(m_image.size()) / ratio;
        if (size.width() > width() || size.height() > height()) {
            size.scale(QSizeF(this->size()), Qt::KeepAspectRatio);
        }
        const QRectF target(QPointF((width() - size.width()) / 2, (height() - size.height()) / 2), size);
        painter.drawImage(target, m_image);
    }

private:
    QImage m_image;
};

QuickLookController::Kind QuickLookController::kindOfFile(const QString& path)
{
    const QMimeType type = QMimeDatabase().mimeTypeForFile(path);
    if (type.inherits(QStringLiteral("application/pdf"))) {
        return Kind::Pdf;
    }
    const QList<QByteArray> pictures = QImageReader::supportedMimeTypes();
    for (const QString& name : QStringList{type.name()} + type.allAncestors()) {
        if (pictures.contains(name.toLatin1())) {
            return Kind::Picture;
        }
    }
    for (const QString& name : QStringList{type.name()} + type.allAncestors()) {
        if (name.startsWith(QLatin1String("audio/")) || name.startsWith(QLatin1String("video/"))) {
            return Kind::Media;
        }
    }
    if (type.inherits(QStringLiteral("text/plain"))) {
        return Kind::Text;
    }
    return Kind::Other;
}

QuickLookController::QuickLookController(QObject* parent, preview::TextPreview::Reader reader)
    : AbstractInspectorController(QStringLiteral("QuickLookController"), tr("Quick Look"), parent)
    , m_usesHelper(!reader)
    , m_reader(reader ? std::move(reader) : TextPreviewController::helperReader())
{
    m_text = preview::TextPreview::create(m_reader);
    m_text->setActive(false);
    m_pool.setMaxThreadCount(1);
    connect(this, &AbstractInspectorController::windowStateChanged, this, [this] {
        if (!isWindowVisible()) {
            m_text->setActive(false);
        }
        followSelection();
    });
    connect(m_text.get(), &preview::TextPreview::textChanged, this, &QuickLookController::showText);
    connect(m_text.get(), &preview::TextPreview::textExtended, this, [this] {
        if (m_kind == Kind::Text && m_textView) {
            m_textView->extendText(m_text->text(), m_text->displayLines());
        }
    });
    connect(m_text.get(), &preview::TextPreview::highlightsChanged, this, [this] {
        if (m_textView) {
            m_textView->setMatches(m_text->matches());
        }
    });
    connect(m_text.get(), &preview::TextPreview::termsChanged, this, &QuickLookController::colourPdfText);
}

QuickLookController::~QuickLookController()
{
    ++m_generation;
    if (m_cancel) {
        m_cancel->store(true);
    }
    m_pool.clear();
    m_pool.waitForDone();
}

QString QuickLookController::menuTitleWhenActive(bool active) const
{
    return active ? tr("Hide Quick Look") : tr("Show Quick Look");
}

QString QuickLookController::detailText() const
{
    switch (m_kind) {
    case Kind::Picture:
        return tr("%1 × %2 pixels").arg(m_originalSize.width()).arg(m_originalSize.height());
    case Kind::Pdf:
        return m_pageCount == 1 ? tr("PDF, 1 page") : tr("PDF, %1 pages").arg(m_pageCount);
    default:
        return {};
    }
}

QWidget* QuickLookController::makeContents()
{
    auto* contents = new QWidget;
    m_title = new QLabel(contents);
    QFont bold = m_title->font();
    bold.setBold(true);
    m_title->setFont(bold);
    m_title->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_detail = new QLabel(contents);
    m_detail->setForegroundRole(QPalette::PlaceholderText);

    m_picture = new PictureView(contents);
    m_picture->setMinimumSize(200, 150);
    m_textView = new PreviewTextView(contents);
    m_textView->setAccessibleName(tr("Text of the selected result"));

    m_info = new QWidget(contents);
    m_icon = new QLabel(m_info);
    m_icon->setAlignment(Qt::AlignCenter);
    m_mediaLabel = new QLabel(m_info);
    m_mediaLabel->setAlignment(Qt::AlignCenter);
    m_mediaLabel->setTextFormat(Qt::RichText);
    m_mediaLabel->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_values = new InspectorRowsModel(m_info);
    m_valuesTable = new QTableView(m_info);
    m_valuesTable->setModel(m_values);
    m_valuesTable->setAccessibleName(tr("Attributes of the selected result"));
    m_valuesTable->verticalHeader()->hide();
    m_valuesTable->horizontalHeader()->setStretchLastSection(true);
    m_valuesTable->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_valuesTable->setEditTriggers(QAbstractItemView::NoEditTriggers);
    auto* infoLayout = new QVBoxLayout(m_info);
    infoLayout->setContentsMargins(0, 0, 0, 0);
    infoLayout->addWidget(m_icon);
    infoLayout->addWidget(m_mediaLabel);
    infoLayout->addWidget(m_valuesTable, 1);

    m_message = new QLabel(contents);
    m_message->setAlignment(Qt::AlignCenter);
    m_message->setWordWrap(true);
    m_message->setForegroundRole(QPalette::PlaceholderText);

    // A PDF: its first page above, its text below.
    auto* pdfSplitter = new QSplitter(Qt::Vertical, contents);
    m_pdfPage = pdfSplitter;
    m_pdfPicture = new PictureView(pdfSplitter);
    m_pdfPicture->setMinimumSize(200, 150);
    auto* pdfText = new QWidget(pdfSplitter);
    m_pdfTextMessage = new QLabel(pdfText);
    m_pdfTextMessage->setForegroundRole(QPalette::PlaceholderText);
    m_pdfTextView = new PreviewTextView(pdfText);
    m_pdfTextView->setAccessibleName(tr("Text of the PDF"));
    auto* pdfTextLayout = new QVBoxLayout(pdfText);
    pdfTextLayout->setContentsMargins(0, 0, 0, 0);
    pdfTextLayout->addWidget(m_pdfTextMessage);
    pdfTextLayout->addWidget(m_pdfTextView, 1);
    pdfSplitter->addWidget(m_pdfPicture);
    pdfSplitter->addWidget(pdfText);
    pdfSplitter->setStretchFactor(0, 3);
    pdfSplitter->setStretchFactor(1, 2);

    m_pages = new QStackedWidget(contents);
    m_pages->addWidget(m_message);
    m_pages->addWidget(m_picture);
    m_pages->addWidget(m_textView);
    m_pages->addWidget(m_info);
    m_pages->addWidget(m_pdfPage);

    auto* header = new QHBoxLayout;
    header->addWidget(m_title, 1);
    header->addWidget(m_detail);
    auto* layout = new QVBoxLayout(contents);
    layout->addLayout(header);
    layout->addWidget(m_pages, 1);
    contents->resize(640, 520);

    if (m_usesHelper) {
        QTimer::singleShot(0, this, [] { preview::TextPreviewUtility::sharedTextPreviewUtility(); });
    }
    return contents;
}

void QuickLookController::showContent(document::Document* document)
{
    m_document = document;
    const auto followSearchStrings = [this] {
        m_text->setQuerySearchStringArray(m_document ? m_document->searchStringArray() : QStringList());
    };
    followSelectionOf(document, [this] { followSelection(); }, followSearchStrings);
    followSearchStrings();
    followSelection();
}

void QuickLookController::followSelection()
{
    QString path;
    QVariantList values;
    QVariantMap mediaValues;
    if (m_document && isWindowLoaded() && isWindowVisible()) {
        const std::vector<query::ResultItem*> selected =
            m_document->metadataQueryController()->results()->selectedObjects();
        if (selected.size() == 1) {
            path = selected.front()->path();
            values = selected.front()->values();
            for (const char* key : kMediaKeys) {
                const QVariant value = selected.front()->valueForKey(QString::fromLatin1(key));
                if (value.isValid() && !value.isNull()) {
                    mediaValues.insert(QString::fromLatin1(key), value);
                }
            }
        }
    }
    if (path == m_path && m_kind != Kind::Nothing) {
        return;
    }
    show(path, values, mediaValues);
}

void QuickLookController::show(const QString& path, const QVariantList& values, const QVariantMap& mediaValues)
{
    const quint64 generation = ++m_generation;
    m_pool.clear();
    if (m_cancel) {
        m_cancel->store(true);
    }
    m_cancel = std::make_shared<std::atomic<bool>>(false);
    m_path = path;
    m_image = {};
    m_pageCount = 0;
    m_originalSize = {};
    m_pdfText.clear();
    m_mediaValues = mediaValues;
    m_mediaFacts.clear();
    m_kind = Kind::Nothing;
    if (!m_pages) {
        return;
    }
    m_title->setText(path.isEmpty() ? QString() : QFileInfo(path).fileName());
    m_title->setToolTip(path);
    m_detail->clear();
    m_picture->setImage({});
    m_pdfPicture->setImage({});
    m_pdfTextView->setText({});
    m_pdfTextMessage->clear();
    m_mediaLabel->clear();
    m_mediaLabel->hide();
    if (path.isEmpty()) {
        m_text->setActive(false);
        showMessage(tr("Select a single result to look at it."));
        return;
    }
    if (!QFileInfo::exists(path)) {
        m_text->setActive(false);
        showMessage(tr("The file is no longer there."));
        return;
    }
    const Kind kind = kindOfFile(path);
    m_text->activeSelectionChanged(kind == Kind::Text ? QStringList{path} : QStringList());
    m_text->setActive(kind == Kind::Text);
    switch (kind) {
    case Kind::Text:
        m_kind = Kind::Text;
        showText();
        return;
    case Kind::Picture:
    case Kind::Pdf: {
        showMessage(tr("Loading…"));
        const QSize bound = pictureBound();
        const QStringList terms = m_text->terms();
        m_pool.start([this, path, kind, bound, generation, terms] {
            if (generation != m_generation) {
                return;  // the selection moved on before this started
            }
            Picture picture = readPicture(path, kind, bound);
            const bool readable = picture.problem.isEmpty();
            QMetaObject::invokeMethod(
                this,
                [this, generation, kind, picture = std::move(picture)] {
                    if (generation == m_generation) {
                        m_kind = kind;
                        showPicture(generation, picture);
                    }
                },
                Qt::QueuedConnection);
            if (kind == Kind::Pdf && readable) {
                readPdfTextInBackground(generation, path, terms);
            }
        });
        return;
    }
    case Kind::Media: {
        m_kind = Kind::Media;
        m_icon->setPixmap(iconForFile(path).pixmap(128, 128));
        m_values->setRows(values);
        showMediaFacts();
        setPage(m_info);
        // What the index does not know yet, the importers tell.
        m_pool.start([this, path, generation, reader = m_reader, cancel = m_cancel] {
            if (generation != m_generation) {
                return;
            }
            QVariantMap found = mediaValuesOf(reader(path.toStdString(), cancel.get(), 0).attributes);
            QMetaObject::invokeMethod(
                this,
                [this, generation, found = std::move(found)] {
                    if (generation != m_generation) {
                        return;
                    }
                    for (auto value = found.begin(); value != found.end(); ++value) {
                        if (!m_mediaValues.contains(value.key())) {
                            m_mediaValues.insert(value.key(), value.value());
                        }
                    }
                    showMediaFacts();
                },
                Qt::QueuedConnection);
        });
        return;
    }
    default:
        m_kind = Kind::Other;
        m_icon->setPixmap(iconForFile(path).pixmap(128, 128));
        m_values->setRows(values);
        setPage(m_info);
        return;
    }
}

QuickLookController::Picture QuickLookController::readPicture(const QString& path, Kind kind, QSize bound)
{
    Picture picture;
    if (kind == Kind::Pdf) {
        QPdfDocument pdf;
        if (pdf.load(path) != QPdfDocument::Error::None || pdf.pageCount() < 1) {
            picture.problem = tr("This PDF could not be read.");
            return picture;
        }
        picture.pageCount = pdf.pageCount();
        const QSizeF points = pdf.pagePointSize(0);
        // 1.5 pixels a point when the bound allows: sharp on most screens.
        QSize size = (points * 1.5).toSize().expandedTo(QSize(1, 1));
        if (size.width() > bound.width() || size.height() > bound.height()) {
            size.scale(bound, Qt::KeepAspectRatio);
        }
        picture.originalSize = points.toSize();
        picture.image = pdf.render(0, size);
        if (picture.image.isNull()) {
            picture.problem = tr("This PDF could not be read.");
        }
        return picture;
    }
    QImageReader reader(path);
    reader.setAutoTransform(true);
    picture.originalSize = reader.size();
    if (picture.originalSize.isValid()
        && (picture.originalSize.width() > bound.width() || picture.originalSize.height() > bound.height())) {
        reader.setScaledSize(picture.originalSize.scaled(bound, Qt::KeepAspectRatio));
    }
    picture.image = reader.read();
    if (picture.image.isNull()) {
        picture.problem = tr("This picture could not be read.");
    } else if (!picture.originalSize.isValid()) {
        picture.originalSize = picture.image.size();
    }
    return picture;
}

void QuickLookController::showPicture(quint64 generation, const Picture& picture)
{
    if (generation != m_generation || !m_pages) {
        return;
    }
    if (!picture.problem.isEmpty()) {
        m_kind = Kind::Message;
        showMessage(picture.problem);
        return;
    }
    m_image = picture.image;
    m_pageCount = picture.pageCount;
    m_originalSize = picture.originalSize;
    m_detail->setText(detailText());
    if (m_kind == Kind::Pdf) {
        m_pdfPicture->setImage(m_image);
        if (m_pdfText.isEmpty()) {
            m_pdfTextMessage->setText(tr("Reading the text…"));
            m_pdfTextMessage->show();
        }
        setPage(m_pdfPage);
        return;
    }
    m_picture->setImage(m_image);
    setPage(m_picture);
}

QString QuickLookController::readPdfText(const QString& path, const std::function<bool()>& stop, qsizetype limit)
{
    QPdfDocument pdf;
    if (pdf.load(path) != QPdfDocument::Error::None) {
        return {};
    }
    QString text;
    for (int page = 0; page < pdf.pageCount() && text.size() < limit && !stop(); ++page) {
        const QString pageText = pdf.getAllText(page).text().trimmed();
        if (pageText.isEmpty()) {
            continue;
        }
        if (!text.isEmpty()) {
            text += QStringLiteral("\n\n");
        }
        text += pageText;
    }
    if (text.size() > limit) {
        text.truncate(limit);
    }
    return text;
}

void QuickLookController::readPdfTextInBackground(quint64 generation, const QString& path, const QStringList& terms)
{
    // On the panel's thread, after the page was sent; a change of terms
    // meanwhile colours the text again when it arrives.
    const auto stop = [this, generation] { return generation != m_generation; };
    QString text = readPdfText(path, stop);
    if (stop()) {
        return;
    }
    std::vector<qsizetype> lines = preview::displayLineStarts(text);
    std::vector<preview::TermMatch> matches = preview::SearchTermMatcher(terms).colorRanges(text, stop);
    QMetaObject::invokeMethod(
        this,
        [this, generation, terms, text = std::move(text), lines = std::move(lines),
         matches = std::move(matches)]() mutable {
            if (generation != m_generation || !m_pdfTextView) {
                return;
            }
            m_pdfText = text;
            if (text.isEmpty()) {
                m_pdfTextMessage->setText(tr("No text in this PDF."));
                m_pdfTextMessage->show();
                return;
            }
            m_pdfTextMessage->hide();
            m_pdfTextView->setText(m_pdfText, std::move(lines));
            if (terms == m_text->terms()) {
                m_pdfTextView->setMatches(std::move(matches));
            } else {
                colourPdfText();  // the terms changed while the text was read
            }
        },
        Qt::QueuedConnection);
}

void QuickLookController::colourPdfText()
{
    if (m_kind != Kind::Pdf || m_pdfText.isEmpty()) {
        return;
    }
    const quint64 generation = m_generation;
    m_pool.start([this, generation, text = m_pdfText, terms = m_text->terms()] {
        const auto stop = [this, generation] { return generation != m_generation; };
        std::vector<preview::TermMatch> matches = preview::SearchTermMatcher(terms).colorRanges(text, stop);
        QMetaObject::invokeMethod(
            this,
            [this, generation, terms, matches = std::move(matches)]() mutable {
                if (generation == m_generation && terms == m_text->terms()) {
                    m_pdfTextView->setMatches(std::move(matches));
                }
            },
            Qt::QueuedConnection);
    });
}

QuickLookController::Facts QuickLookController::mediaFacts(const QVariantMap& values)
{
    Facts facts;
    const auto text = [&](const char* key) {
        const QVariant value = values.value(QString::fromLatin1(key));
        return value.canConvert<QStringList>() && value.typeId() != QMetaType::QString
                   ? value.toStringList().join(QStringLiteral(", "))
                   : value.toString().simplified();
    };
    const auto number = [&](const char* key) {
        bool ok = false;
        const double value = values.value(QString::fromLatin1(key)).toDouble(&ok);
        return ok && value > 0 ? value : 0.0;
    };
    const auto add = [&](const QString& label, const QString& value) {
        if (!value.isEmpty()) {
            facts.append({label, value});
        }
    };
    add(tr("Title"), text("kMDItemTitle"));
    add(tr("Artist"), text("kMDItemAuthors"));
    add(tr("Album"), text("kMDItemAlbum"));
    if (const double seconds = number("kMDItemDurationSeconds"); seconds > 0) {
        add(tr("Duration"), durationText(seconds));
    }
    if (const double width = number("kMDItemPixelWidth"), height = number("kMDItemPixelHeight"); width > 0 && height > 0) {
        add(tr("Dimensions"), tr("%1 × %2").arg(width).arg(height));
    }
    add(tr("Codecs"), text("kMDItemCodecs"));
    double bitRate = number("kMDItemTotalBitRate");
    if (bitRate <= 0) {
        bitRate = number("kMDItemAudioBitRate") + number("kMDItemVideoBitRate");
    }
    if (bitRate > 0) {
        add(tr("Bit rate"), tr("%1 kbit/s").arg(std::llround(bitRate)));
    }
    if (const double rate = number("kMDItemAudioSampleRate"); rate > 0) {
        add(tr("Sample rate"), tr("%1 kHz").arg(rate / 1000.0, 0, 'g', 4));
    }
    if (const double channels = number("kMDItemAudioChannelCount"); channels > 0) {
        add(tr("Channels"), channels == 1   ? tr("Mono")
                            : channels == 2 ? tr("Stereo")
                                            : tr("%1 channels").arg(channels));
    }
    return facts;
}

void QuickLookController::showMediaFacts()
{
    m_mediaFacts = mediaFacts(m_mediaValues);
    if (m_mediaFacts.isEmpty()) {
        m_mediaLabel->hide();
        return;
    }
    QString html = QStringLiteral("<table align='center' cellspacing='4'>");
    for (const auto& [label, value] : m_mediaFacts) {
        html += QStringLiteral("<tr><td align='right' style='color: gray'>%1</td><td><b>%2</b></td></tr>")
                    .arg(label.toHtmlEscaped(), value.toHtmlEscaped());
    }
    html += QStringLiteral("</table>");
    m_mediaLabel->setText(html);
    m_mediaLabel->show();
}

void QuickLookController::showText()
{
    if (m_kind != Kind::Text || !m_pages) {
        return;
    }
    if (m_text->isTextVisible()) {
        m_textView->setText(m_text->text(), m_text->displayLines());
        m_textView->setMatches(m_text->matches());
        setPage(m_textView);
    } else if (!m_text->isLoading() && !m_text->message().isEmpty()) {
        showMessage(m_text->message());
    } else {
        showMessage(tr("Loading…"));
    }
}

void QuickLookController::showMessage(const QString& message)
{
    m_message->setText(message);
    setPage(m_message);
}

void QuickLookController::setPage(QWidget* page)
{
    m_pages->setCurrentWidget(page);
}

}  // namespace trovara::widgets
