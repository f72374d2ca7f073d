#include "widgets/preview_text_view.h"

#include "preview/display_lines.h"

#include <QApplication>
#include <QClipboard>
#include <QContextMenuEvent>
#include <QFontDatabase>
#include <QMenu>
#include <QPainter>
#include <QScrollBar>
#include <QTextOption>

#include <QtMath>

#include <algorithm>
#include <climits>

namespace trovara::widgets {

namespace {

constexpr int kMargin = 6;
// Layouts kept at most; those of the lines on screen are a few dozen.
constexpr std::size_t kLayoutCache = 400;

}  // namespace

struct PreviewTextView::Layout {
    QTextLayout layout;
    int height = 0;
};

PreviewTextView::PreviewTextView(QWidget* parent)
    : QAbstractScrollArea(parent)
{
    setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    setFocusPolicy(Qt::StrongFocus);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    viewport()->setCursor(Qt::IBeamCursor);
    viewport()->setBackgroundRole(QPalette::Base);
    m_lines = {0};
}

PreviewTextView::~PreviewTextView() = default;

void PreviewTextView::setText(const QString& text, std::vector<qsizetype> lines)
{
    m_text = text;
    m_lines = lines.empty() ? preview::displayLineStarts(m_text) : std::move(lines);
    m_matches.clear();
    m_currentMatch = -1;
    m_anchor = m_cursor = 0;
    m_top = 0;
    m_topOffset = 0;
    relayout();
}

void PreviewTextView::extendText(const QString& text, std::vector<qsizetype> lines)
{
    const std::size_t top = m_top;
    const int topOffset = m_topOffset;
    m_text = text;
    m_lines = lines.empty() ? preview::displayLineStarts(m_text) : std::move(lines);
    m_anchor = std::min(m_anchor, m_text.size());
    m_cursor = std::min(m_cursor, m_text.size());
    m_top = top;
    relayout();
    m_topOffset = m_top == top ? topOffset : 0;
}

void PreviewTextView::setMatches(std::vector<preview::TermMatch> matches)
{
    m_matches = std::move(matches);
    m_currentMatch = -1;
    relayout();
}

void PreviewTextView::setCurrentMatch(int index)
{
    m_currentMatch = index >= 0 && index < static_cast<int>(m_matches.size()) ? index : -1;
    if (m_currentMatch >= 0) {
        const preview::TermMatch& match = m_matches[static_cast<std::size_t>(m_currentMatch)];
        if (!isRangeVisible(match.start, match.length)) {
            const std::size_t line = preview::displayLineAt(m_lines, match.start);
            scrollToLine(line > 2 ? line - 2 : 0);
        }
    }
    viewport()->update();
}

QString PreviewTextView::selectedText() const
{
    const qsizetype from = std::min(m_anchor, m_cursor);
    const qsizetype to = std::max(m_anchor, m_cursor);
    return m_text.mid(from, to - from);
}

void PreviewTextView::selectAll()
{
    m_anchor = 0;
    m_cursor = m_text.size();
    viewport()->update();
}

void PreviewTextView::copy() const
{
    if (m_anchor != m_cursor) {
        QApplication::clipboard()->setText(selectedText());
    }
}

qsizetype PreviewTextView::lineEnd(std::size_t line) const
{
    // The line's text, without the break that ends it.
    qsizetype end = line + 1 < m_lines.size() ? m_lines[line + 1] : m_text.size();
    if (end > m_lines[line] && m_text[end - 1] == QLatin1Char('\n')) {
        --end;
    }
    return end;
}

int PreviewTextView::textWidth() const
{
    return std::max(40, viewport()->width() - 2 * kMargin);
}

PreviewTextView::Layout& PreviewTextView::layoutFor(std::size_t line)
{
    if (auto it = m_layouts.find(line); it != m_layouts.end()) {
        return *it->second;
    }
    if (m_layouts.size() >= kLayoutCache) {
        m_layouts.clear();
    }
    auto made = std::make_unique<Layout>();
    const qsizetype start = m_lines[line];
    const qsizetype end = lineEnd(line);
    made->layout.setText(m_text.mid(start, end - start));
    made->layout.setFont(font());
    QTextOption option;
    option.setWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
    made->layout.setTextOption(option);

    // The terms' colours, lightened on a dark background.
    const bool dark = palette().color(QPalette::Base).lightness() < 128;
    QList<QTextLayout::FormatRange> formats;
    auto first = std::lower_bound(m_matches.begin(), m_matches.end(), start,
                                  [](const preview::TermMatch& match, qsizetype at) { return match.start + match.length <= at; });
    for (auto it = first; it != m_matches.end() && it->start < end; ++it) {
        const qsizetype from = std::max(it->start, start);
        const qsizetype to = std::min(it->start + it->length, end);
        if (to <= from) {
            continue;
        }
        QTextLayout::FormatRange range;
        range.start = static_cast<int>(from - start);
        range.length = static_cast<int>(to - from);
        QColor color = QColor::fromRgb(preview::colorForTerm(it->term).rgb);
        range.format.setForeground(dark ? color.lighter(170) : color);
        range.format.setFontWeight(QFont::Bold);
        formats.append(range);
    }
    made->layout.setFormats(formats);

    made->layout.beginLayout();
    qreal height = 0;
    const qreal width = textWidth();
    while (true) {
        QTextLine row = made->layout.createLine();
        if (!row.isValid()) {
            break;
        }
        row.setLineWidth(width);
        row.setPosition(QPointF(0, height));
        height += row.height();
    }
    made->layout.endLayout();
    made->height = std::max(1, qCeil(height));
    return *m_layouts.emplace(line, std::move(made)).first->second;
}

void PreviewTextView::relayout()
{
    m_layouts.clear();
    m_top = std::min(m_top, m_lines.size() - 1);
    m_topOffset = 0;
    updateScrollBar();
    viewport()->update();
}

void PreviewTextView::updateScrollBar()
{
    m_settingScrollBar = true;
    QScrollBar* bar = verticalScrollBar();
    const int lines = static_cast<int>(std::min<std::size_t>(m_lines.size(), INT_MAX));
    const int rowsOnScreen = std::max(1, viewport()->height() / std::max(1, fontMetrics().lineSpacing()));
    // The last top line is the one from which the rest of the text fills the
    // view: the bar ends where the last line is on screen, and a text that
    // fits has nothing to scroll.
    const int viewHeight = viewport()->height();
    int lastTop = lines;
    int below = 0;
    while (lastTop > 0 && below < viewHeight) {
        below += layoutFor(static_cast<std::size_t>(--lastTop)).height;
    }
    if (below > viewHeight && lastTop + 1 < lines) {
        ++lastTop;
    }
    bar->setRange(0, below > viewHeight ? lastTop : 0);
    bar->setPageStep(rowsOnScreen);
    bar->setSingleStep(1);
    bar->setValue(static_cast<int>(m_top));
    m_settingScrollBar = false;
}

void PreviewTextView::scrollToLine(std::size_t line, int offset)
{
    // Never past the last full screen: a match near the end stays in view
    // with as much text above it as fits.
    const auto lastTop = std::min(m_lines.size() - 1, static_cast<std::size_t>(verticalScrollBar()->maximum()));
    m_top = std::min(line, lastTop);
    m_topOffset = line > lastTop ? 0 : std::max(0, offset);
    m_settingScrollBar = true;
    verticalScrollBar()->setValue(static_cast<int>(m_top));
    m_settingScrollBar = false;
    viewport()->update();
}

void PreviewTextView::scrollContentsBy(int, int)
{
    if (!m_settingScrollBar) {
        m_top = static_cast<std::size_t>(std::max(0, verticalScrollBar()->value()));
        m_topOffset = 0;
        viewport()->update();
    }
}

void PreviewTextView::scrollPixels(int delta)
{
    std::size_t line = m_top;
    int offset = m_topOffset + delta;
    while (offset < 0 && line > 0) {
        --line;
        offset += layoutFor(line).height;
    }
    offset = std::max(0, offset);
    while (line + 1 < m_lines.size() && offset >= layoutFor(line).height) {
        offset -= layoutFor(line).height;
        ++line;
    }
    if (line + 1 == m_lines.size()) {
        offset = std::min(offset, std::max(0, layoutFor(line).height - fontMetrics().lineSpacing()));
    }
    scrollToLine(line, offset);
}

std::size_t PreviewTextView::lastVisibleLine()
{
    int y = -m_topOffset;
    std::size_t line = m_top;
    while (line < m_lines.size()) {
        y += layoutFor(line).height;
        if (y >= viewport()->height() || line + 1 == m_lines.size()) {
            break;
        }
        ++line;
    }
    return line;
}

bool PreviewTextView::isRangeVisible(qsizetype position, qsizetype length)
{
    const std::size_t first = preview::displayLineAt(m_lines, position);
    const std::size_t last = preview::displayLineAt(m_lines, position + std::max<qsizetype>(length, 1) - 1);
    return last >= m_top && first <= lastVisibleLine();
}

qsizetype PreviewTextView::positionAt(const QPoint& point)
{
    int y = -m_topOffset;
    for (std::size_t line = m_top; line < m_lines.size(); ++line) {
        Layout& layout = layoutFor(line);
        if (point.y() < y + layout.height || line + 1 == m_lines.size()) {
            const qreal inside = std::clamp<qreal>(point.y() - y, 0, layout.height - 1);
            for (int i = 0; i < layout.layout.lineCount(); ++i) {
                const QTextLine row = layout.layout.lineAt(i);
                if (inside < row.y() + row.height() || i + 1 == layout.layout.lineCount()) {
                    return m_lines[line] + row.xToCursor(point.x() - kMargin);
                }
            }
            return m_lines[line];
        }
        y += layout.height;
    }
    return m_text.size();
}

void PreviewTextView::paintEvent(QPaintEvent*)
{
    QPainter painter(viewport());
    const qsizetype selectionFrom = std::min(m_anchor, m_cursor);
    const qsizetype selectionTo = std::max(m_anchor, m_cursor);
    const preview::TermMatch* current =
        m_currentMatch >= 0 ? &m_matches[static_cast<std::size_t>(m_currentMatch)] : nullptr;
    QColor tint = palette().color(QPalette::Highlight);
    tint.setAlpha(60);

    int y = -m_topOffset;
    for (std::size_t line = m_top; line < m_lines.size() && y < viewport()->height(); ++line) {
        Layout& layout = layoutFor(line);
        const qsizetype start = m_lines[line];
        const qsizetype end = lineEnd(line);
        QList<QTextLayout::FormatRange> overlay;
        auto add = [&](qsizetype from, qsizetype to, const QTextCharFormat& format) {
            from = std::max(from, start);
            to = std::min(to, end);
            if (to > from) {
                overlay.append({static_cast<int>(from - start), static_cast<int>(to - from), format});
            }
        };
        if (current) {
            QTextCharFormat format;
            format.setBackground(tint);
            add(current->start, current->start + current->length, format);
        }
        if (selectionTo > selectionFrom) {
            QTextCharFormat format;
            format.setBackground(palette().brush(QPalette::Highlight));
            format.setForeground(palette().brush(QPalette::HighlightedText));
            add(selectionFrom, selectionTo, format);
        }
        layout.layout.draw(&painter, QPointF(kMargin, y), overlay);
        y += layout.height;
    }
}

void PreviewTextView::resizeEvent(QResizeEvent* event)
{
    QAbstractScrollArea::resizeEvent(event);
    const std::size_t top = m_top;
    relayout();
    scrollToLine(top);
}

void PreviewTextView::changeEvent(QEvent* event)
{
    QAbstractScrollArea::changeEvent(event);
    if (event->type() == QEvent::FontChange || event->type() == QEvent::PaletteChange) {
        relayout();
    }
}

void PreviewTextView::wheelEvent(QWheelEvent* event)
{
    const QPoint pixels = event->pixelDelta();
    const int delta = !pixels.isNull() ? -pixels.y() : -event->angleDelta().y() / 120 * 3 * fontMetrics().lineSpacing();
    scrollPixels(delta);
    event->accept();
}

void PreviewTextView::keyPressEvent(QKeyEvent* event)
{
    if (event == QKeySequence::Copy) {
        copy();
    } else if (event == QKeySequence::SelectAll) {
        selectAll();
    } else if (event->key() == Qt::Key_Down) {
        scrollPixels(fontMetrics().lineSpacing());
    } else if (event->key() == Qt::Key_Up) {
        scrollPixels(-fontMetrics().lineSpacing());
    } else if (event->key() == Qt::Key_PageDown || event->key() == Qt::Key_Space) {
        scrollPixels(viewport()->height() - fontMetrics().lineSpacing());
    } else if (event->key() == Qt::Key_PageUp) {
        scrollPixels(-(viewport()->height() - fontMetrics().lineSpacing()));
    } else if (event->key() == Qt::Key_Home && event->modifiers() & Qt::ControlModifier) {
        scrollToLine(0);
    } else if (event->key() == Qt::Key_End && event->modifiers() & Qt::ControlModifier) {
        scrollToLine(m_lines.size() - 1);
    } else {
        QAbstractScrollArea::keyPressEvent(event);
    }
}

void PreviewTextView::mousePressEvent(QMouseEvent* event)
{
    if (event->button() == Qt::LeftButton) {
        m_cursor = positionAt(event->position().toPoint());
        if (!(event->modifiers() & Qt::ShiftModifier)) {
            m_anchor = m_cursor;
        }
        viewport()->update();
    }
}

void PreviewTextView::mouseMoveEvent(QMouseEvent* event)
{
    if (event->buttons() & Qt::LeftButton) {
        const QPoint point = event->position().toPoint();
        if (point.y() < 0) {
            scrollPixels(-fontMetrics().lineSpacing());
        } else if (point.y() > viewport()->height()) {
            scrollPixels(fontMetrics().lineSpacing());
        }
        m_cursor = positionAt(point);
        viewport()->update();
    }
}

void PreviewTextView::contextMenuEvent(QContextMenuEvent* event)
{
    QMenu menu(this);
    QAction* copyAction = menu.addAction(tr("Copy"), this, &PreviewTextView::copy);
    copyAction->setEnabled(m_anchor != m_cursor);
    menu.addAction(tr("Select All"), this, &PreviewTextView::selectAll);
    menu.exec(event->globalPos());
}

}  // namespace trovara::widgets
