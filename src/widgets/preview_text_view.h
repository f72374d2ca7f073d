// A read-only view of a preview's text, made for large texts: it lays out
// only the display lines on screen (see preview/display_lines.h), each
// wrapped at the view's width, so that showing a 10 MB text costs no more
// than showing a page of it. The search terms are drawn in their colours,
// the current match on a tinted background; the text can be selected with
// the mouse or the keyboard and copied.
//
// Scrolling goes by display line (the scroll bar) and by pixels within a
// line (the wheel), so a line taller than the view can be read too.
//
// Thread safety: main thread only.
#pragma once

#include "preview/search_term_matcher.h"

#include <QAbstractScrollArea>
#include <QTextLayout>

#include <memory>
#include <unordered_map>
#include <vector>

namespace trovara::widgets {

class PreviewTextView : public QAbstractScrollArea {
    Q_OBJECT
public:
    explicit PreviewTextView(QWidget* parent = nullptr);
    ~PreviewTextView() override;

    // The text and where its display lines start (displayLineStarts() of
    // it; computed here when empty). Clears matches and selection.
    void setText(const QString& text, std::vector<qsizetype> lines = {});
    const QString& text() const { return m_text; }
    // The rest of the text shown arrived (`text` starts with the text shown):
    // keeps the scroll position, the selection and the current match; the
    // matches are set again with setMatches().
    void extendText(const QString& text, std::vector<qsizetype> lines = {});
    // The coloured ranges, in text order.
    void setMatches(std::vector<preview::TermMatch> matches);
    const std::vector<preview::TermMatch>& matches() const { return m_matches; }
    // Tints match `index` and scrolls it into view (-1: none).
    void setCurrentMatch(int index);
    int currentMatch() const { return m_currentMatch; }

    QString selectedText() const;
    void selectAll();
    void copy() const;

    // The first display line on screen.
    std::size_t topLine() const { return m_top; }
    // Whether any of [position, position + length) is on screen.
    bool isRangeVisible(qsizetype position, qsizetype length = 1);

protected:
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void scrollContentsBy(int dx, int dy) override;
    void wheelEvent(QWheelEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void contextMenuEvent(QContextMenuEvent* event) override;
    void changeEvent(QEvent* event) override;

private:
    struct Layout;
    Layout& layoutFor(std::size_t line);
    qsizetype lineEnd(std::size_t line) const;
    int textWidth() const;
    void relayout();
    void updateScrollBar();
    void scrollToLine(std::size_t line, int offset = 0);
    void scrollPixels(int delta);
    qsizetype positionAt(const QPoint& point);
    std::size_t lastVisibleLine();

    QString m_text;
    std::vector<qsizetype> m_lines;
    std::vector<preview::TermMatch> m_matches;
    int m_currentMatch = -1;
    qsizetype m_anchor = 0;  // selection, as text positions
    qsizetype m_cursor = 0;
    std::size_t m_top = 0;  // first display line on screen
    int m_topOffset = 0;    // pixels of it scrolled away
    bool m_settingScrollBar = false;
    std::unordered_map<std::size_t, std::unique_ptr<Layout>> m_layouts;  // for the current width
};

}  // namespace trovara::widgets
