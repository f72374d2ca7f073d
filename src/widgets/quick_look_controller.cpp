#include "widgets/quick_look_controller.h"

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
#include <QStackedWidget>
#include <QTableView>
#include <QTimer>
#include <QVBoxLayout>

namespace trovara::widgets {

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
    if (type.inherits(QStringLiteral("text/plain"))) {
        return Kind::Text;
    }
    return Kind::Other;
}

QuickLookController::QuickLookController(QObject* parent, preview::TextPreview::Reader reader)
    : AbstractInspectorController(QStringLiteral("QuickLookController"), tr("Quick Look"), parent)
    , m_usesHelper(!reader)
{
    m_text = preview::TextPreview::create(reader ? std::move(reader) : TextPreviewController::helperReader());
    m_text->setActive(false);
    m_pool.setMaxThreadCount(1);
    connect(this, &AbstractInspectorController::windowStateChanged, this, [this] {
        if (!isWindowVisible()) {
            m_text->setActive(false);
        }
        followSelection();
    });
    connect(m_text.get(), &preview::TextPreview::textChanged, this, &QuickLookController::showText);
    connect(m_text.get(), &preview::TextPreview::highlightsChanged, this, [this] {
        if (m_textView) {
            m_textView->setMatches(m_text->matches());
        }
    });
}

QuickLookController::~QuickLookController()
{
    ++m_generation;
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
    infoLayout->addWidget(m_valuesTable, 1);

    m_message = new QLabel(contents);
    m_message->setAlignment(Qt::AlignCenter);
    m_message->setWordWrap(true);
    m_message->setForegroundRole(QPalette::PlaceholderText);

    m_pages = new QStackedWidget(contents);
    m_pages->addWidget(m_message);
    m_pages->addWidget(m_picture);
    m_pages->addWidget(m_textView);
    m_pages->addWidget(m_info);

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
    if (m_document && isWindowLoaded() && isWindowVisible()) {
        const std::vector<query::ResultItem*> selected =
            m_document->metadataQueryController()->results()->selectedObjects();
        if (selected.size() == 1) {
            path = selected.front()->path();
            values = selected.front()->values();
        }
    }
    if (path == m_path && m_kind != Kind::Nothing) {
        return;
    }
    show(path, values);
}

void QuickLookController::show(const QString& path, const QVariantList& values)
{
    const quint64 generation = ++m_generation;
    m_pool.clear();
    m_path = path;
    m_image = {};
    m_pageCount = 0;
    m_originalSize = {};
    m_kind = Kind::Nothing;
    if (!m_pages) {
        return;
    }
    m_title->setText(path.isEmpty() ? QString() : QFileInfo(path).fileName());
    m_title->setToolTip(path);
    m_detail->clear();
    m_picture->setImage({});
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
        m_pool.start([this, path, kind, bound, generation] {
            if (generation != m_generation) {
                return;  // the selection moved on before this started
            }
            Picture picture = readPicture(path, kind, bound);
            QMetaObject::invokeMethod(
                this,
                [this, generation, kind, picture = std::move(picture)] {
                    if (generation == m_generation) {
                        m_kind = kind;
                        showPicture(generation, picture);
                    }
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
    m_picture->setImage(m_image);
    m_detail->setText(detailText());
    setPage(m_picture);
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
