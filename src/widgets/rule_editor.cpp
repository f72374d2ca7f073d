#include "widgets/rule_editor.h"

#include "app/accent_colors.h"
#include "model/defaults.h"
#include "widgets/rule_value_field_widgets.h"

#include <QAbstractButton>
#include <QApplication>
#include <QComboBox>
#include <QFrame>
#include <QDragEnterEvent>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QIcon>
#include <QLinearGradient>
#include <QMimeData>
#include <QMouseEvent>
#include <QPainter>
#include <QScrollArea>
#include <QStyle>
#include <QTimer>
#include <QToolButton>
#include <QUrl>

#include <algorithm>

namespace trovara::widgets {

namespace {

constexpr int kIndent = 22;
constexpr int kNarrowestPopUp = 56;

QStringList localPaths(const QMimeData* data)
{
    QStringList paths;
    for (const QUrl& url : data->urls()) {
        if (!url.isLocalFile()) {
            return {};
        }
        paths << url.toLocalFile();
    }
    return paths;
}

QToolButton* makeButton(const QString& text, const QString& toolTip, QWidget* parent)
{
    auto* button = new QToolButton(parent);
    button->setText(text);
    button->setToolTip(toolTip);
    button->setAutoRaise(true);
    button->setFocusPolicy(Qt::StrongFocus);
    return button;
}

}  // namespace

// --- Drawing a selected line --------------------------------------------------------------

void PredicateEditorViewSlice::drawSelection(QPainter& painter, const QRect& bounds)
{
    const app::AccentColor& accent =
        app::accentColor(model::Defaults::shared().intValue(QStringLiteral("accentColorNumber")));
    const QColor light(QString::fromLatin1(accent.light));
    const QColor dark(QString::fromLatin1(accent.dark));
    // Inset by 1 (top), 2 (sides) and 4 (bottom) points.
    const QRect area = bounds.adjusted(2, 1, -2, -4);
    QLinearGradient gradient(area.topLeft(), area.bottomLeft());  // 90 degrees: top to bottom
    QColor top = light;
    QColor bottom = dark;
    top.setAlpha(90);
    bottom.setAlpha(90);
    gradient.setColorAt(0, top);
    gradient.setColorAt(1, bottom);
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(gradient);
    painter.drawRoundedRect(area, 4, 4);
    painter.restore();
}

// --- The editor -----------------------------------------------------------------------------

RuleEditor::RuleEditor(editors::RuleEditorModel& model, const QString& name, QWidget* parent)
    : QWidget(parent)
    , m_model(model)
    , m_addWhenEmpty(makeButton(tr("Add"), QString(), this))
    , m_dropMarker(new QFrame(this))
{
    setAccessibleName(name);
    // Where a line dragged by its grip would go.
    m_dropMarker->setFrameShape(QFrame::NoFrame);
    m_dropMarker->setAutoFillBackground(true);
    m_dropMarker->setBackgroundRole(QPalette::Highlight);
    m_dropMarker->hide();
    setAcceptDrops(true);
    // At least as tall as its lines; room below them takes drops too.
    setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Minimum);
    m_addWhenEmpty->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    m_addWhenEmpty->setIcon(QIcon::fromTheme(QStringLiteral("list-add")));
    m_addWhenEmpty->setAccessibleName(tr("Add a line to %1").arg(name));
    connect(m_addWhenEmpty, &QToolButton::clicked, this, [this] {
        const int row = m_model.addRow(-1);
        if (row >= 0) {
            focusLine(row);
        }
    });
    connect(&m_model, &editors::RuleEditorModel::rowsChanged, this, &RuleEditor::reload);
    reload();
}

RuleEditor::~RuleEditor() = default;

void RuleEditor::setPositionNames(const QStringList& simple, const QStringList& compound)
{
    m_simpleNames = simple;
    m_compoundNames = compound;
    reload();
}

QString RuleEditor::positionName(bool compound, int position) const
{
    const QStringList& names = compound ? m_compoundNames : m_simpleNames;
    return position < names.size() ? names.at(position) : tr("Choice %1").arg(position + 1);
}

void RuleEditor::setEmptyAddTitle(const QString& title)
{
    m_addWhenEmpty->setText(title);
    m_addWhenEmpty->setAccessibleName(title);
    m_addWhenEmpty->adjustSize();
    updateGeometry();
}

RuleEditorLine* RuleEditor::line(int row)
{
    if (row < 0 || row >= lineCount()) {
        return nullptr;
    }
    if (makeLine(row)) {
        orderTabs();
    }
    return m_lines.at(m_rows[static_cast<std::size_t>(row)].get());
}

void RuleEditor::focusLine(int row)
{
    if (RuleEditorLine* target = line(row)) {
        lineFocused(row);
        if (QWidget* first = target->firstControl()) {
            first->setFocus(Qt::TabFocusReason);
            // In a scroll area: scrolled into view.
            QWidget* viewport = parentWidget();
            if (auto* area = qobject_cast<QScrollArea*>(viewport ? viewport->parentWidget() : nullptr)) {
                area->ensureWidgetVisible(target, 0, 0);
            }
        }
    }
}

void RuleEditor::reload()
{
    const int rows = m_model.numberOfRows();
    std::vector<editors::RowPtr> order;
    std::map<const editors::RowDescription*, int> rowOf;
    order.reserve(static_cast<std::size_t>(rows));
    for (int row = 0; row < rows; ++row) {
        order.push_back(m_model.rowAtIndex(row));
        rowOf[order.back().get()] = row;
    }
    // Lines that went away go once the event that removed them is over
    // (it may have come from one of their own buttons).
    for (auto each = m_lines.begin(); each != m_lines.end();) {
        if (rowOf.count(each->first) == 0) {
            each->second->hide();
            each->second->deleteLater();
            each = m_lines.erase(each);
        } else {
            ++each;
        }
    }
    m_rows = std::move(order);
    for (auto& [description, line] : m_lines) {
        line->update(rowOf.at(description));
    }
    m_addWhenEmpty->setVisible(rows == 0 && m_model.nestingMode() != editors::NestingMode::Single);
    if (m_addWhenEmpty->isVisibleTo(this)) {
        m_addWhenEmpty->adjustSize();
        m_addWhenEmpty->move(0, 0);
    }
    if (m_lineHeight == 0 && rows > 0) {
        makeLine(0);  // the first line gives every line its height
    }
    placeLines();
    makeVisibleLines();
    orderTabs();
    updateGeometry();
}

QSize RuleEditor::sizeHint() const
{
    if (m_rows.empty()) {
        return m_addWhenEmpty->isVisibleTo(this) ? m_addWhenEmpty->sizeHint() : QSize(0, 0);
    }
    int width = 0;
    for (const auto& [description, line] : m_lines) {
        width = std::max(width, line->sizeHint().width());
    }
    return {width, lineCount() * m_lineHeight};
}

QSize RuleEditor::minimumSizeHint() const
{
    if (m_rows.empty()) {
        return sizeHint();
    }
    int width = 0;
    for (const auto& [description, line] : m_lines) {
        width = std::max(width, line->minimumSizeHint().width());
    }
    return {width, lineCount() * m_lineHeight};
}

QRect RuleEditor::lineRect(int row) const
{
    return {0, row * m_lineHeight, width(), m_lineHeight};
}

bool RuleEditor::makeLine(int row)
{
    const editors::RowPtr& description = m_rows[static_cast<std::size_t>(row)];
    if (m_lines.count(description.get()) != 0) {
        return false;
    }
    auto* line = new RuleEditorLine(*this, description);
    m_lines[description.get()] = line;
    line->update(row);
    const int height = std::max(m_model.rowHeight(), line->sizeHint().height());
    if (height > m_lineHeight) {
        m_lineHeight = height;
        placeLines();
        updateGeometry();
    } else {
        line->setGeometry(lineRect(row));
    }
    line->show();
    return true;
}

void RuleEditor::placeLines()
{
    for (int row = 0; row < lineCount(); ++row) {
        if (auto found = m_lines.find(m_rows[static_cast<std::size_t>(row)].get()); found != m_lines.end()) {
            found->second->setGeometry(lineRect(row));
        }
    }
}

void RuleEditor::makeVisibleLines()
{
    if (!isVisible() || m_lineHeight <= 0 || m_rows.empty()) {
        return;
    }
    // What of the editor its parents leave in view.
    QRect seen = rect();
    QPoint offset;
    for (const QWidget* widget = this; widget->parentWidget() && !widget->isWindow();
         widget = widget->parentWidget()) {
        offset += widget->pos();
        seen = seen.translated(widget->pos()) & widget->parentWidget()->rect();
    }
    if (seen.isEmpty()) {
        return;
    }
    seen.translate(-offset);
    // A few lines beyond the view, so that scrolling a little shows no gap.
    constexpr int kSpare = 3;
    const int first = std::max(0, seen.top() / m_lineHeight - kSpare);
    const int last = std::min(lineCount() - 1, seen.bottom() / m_lineHeight + kSpare);
    bool made = false;
    for (int row = first; row <= last; ++row) {
        made = makeLine(row) || made;
    }
    if (made) {
        orderTabs();
    }
}

void RuleEditor::lineFocused(int row)
{
    bool made = false;
    for (int near : {row - 1, row + 1}) {
        if (near >= 0 && near < lineCount()) {
            made = makeLine(near) || made;
        }
    }
    if (made) {
        orderTabs();
    }
}

void RuleEditor::orderTabs()
{
    // Lines are made out of order (those in view first), and a new widget
    // joins the end of the window's tab chain: chain the lines' controls.
    QWidget* previous = nullptr;
    for (const editors::RowPtr& description : m_rows) {
        auto found = m_lines.find(description.get());
        if (found == m_lines.end()) {
            continue;
        }
        for (QWidget* control : found->second->tabOrder()) {
            if (previous) {
                QWidget::setTabOrder(previous, control);
            }
            previous = control;
        }
    }
}

void RuleEditor::resizeEvent(QResizeEvent* event)
{
    QWidget::resizeEvent(event);
    placeLines();
    makeVisibleLines();
}

void RuleEditor::moveEvent(QMoveEvent* event)
{
    QWidget::moveEvent(event);
    makeVisibleLines();  // scrolled
}

void RuleEditor::showEvent(QShowEvent* event)
{
    QWidget::showEvent(event);
    makeVisibleLines();
}

int RuleEditor::rowAt(const QPoint& point) const
{
    if (m_lineHeight <= 0 || point.y() < 0 || !rect().contains(point)) {
        return -1;
    }
    const int row = point.y() / m_lineHeight;
    return row < lineCount() ? row : -1;
}

bool RuleEditor::acceptsDrag(const QMimeData* data) const
{
    return m_model.acceptsFileDrops() && !localPaths(data).isEmpty();
}

void RuleEditor::dragEnterEvent(QDragEnterEvent* event)
{
    if (acceptsDrag(event->mimeData())) {
        event->acceptProposedAction();
    } else {
        event->ignore();
    }
}

void RuleEditor::dragMoveEvent(QDragMoveEvent* event)
{
    if (acceptsDrag(event->mimeData())) {
        event->acceptProposedAction();
    } else {
        event->ignore();
    }
}

bool RuleEditor::moveLine(int row, const QPoint& at)
{
    const int target = rowAt(at);
    if (target < 0 || target == row) {
        return false;
    }
    editors::RowPtr onto = m_model.rowAtIndex(target);
    if (onto->isCompound() && m_model.nestingMode() == editors::NestingMode::Compound) {
        return m_model.moveRow(row, target, static_cast<int>(onto->subrows.size()));  // into the group
    }
    const int parent = m_model.parentRowForRow(target);
    const std::vector<int> siblings = parent < 0 ? std::vector<int>() : m_model.subrowIndexesForRow(parent);
    int index = parent < 0 ? target
                           : static_cast<int>(std::find(siblings.begin(), siblings.end(), target) - siblings.begin());
    // Dropped on the lower half: after the line.
    if (at.y() > lineRect(target).center().y()) {
        ++index;
    }
    if (m_model.parentRowForRow(row) == parent && row < target) {
        --index;  // the line leaves its place above first
    }
    return m_model.moveRow(row, parent, std::max(0, index));
}

void RuleEditor::showDropMarker(const QPoint& at)
{
    const int target = rowAt(at);
    if (target < 0) {
        m_dropMarker->hide();
        return;
    }
    const QRect onto = lineRect(target);
    const bool intoGroup =
        m_model.rowAtIndex(target)->isCompound() && m_model.nestingMode() == editors::NestingMode::Compound;
    // Into a group: under the group's line, one step in.
    const int y = intoGroup || at.y() > onto.center().y() ? onto.bottom() : onto.top();
    const int indent = 4 + (m_model.depthOfRow(target) + (intoGroup ? 1 : 0)) * kIndent;
    m_dropMarker->setGeometry(indent, y - 1, width() - indent - 4, 2);
    m_dropMarker->show();
    m_dropMarker->raise();
}

void RuleEditor::dropEvent(QDropEvent* event)
{
    const QMimeData* data = event->mimeData();
    const int target = rowAt(event->position().toPoint());
    const QStringList paths = localPaths(data);
    // The model finds the line by its height, lines being rowHeight apart.
    const double y = target < 0 ? lineCount() * m_model.rowHeight() : (target + 0.5) * m_model.rowHeight();
    if (!paths.isEmpty() && m_model.dropFiles(paths, y)) {
        event->acceptProposedAction();
    } else {
        event->ignore();
    }
}

// --- A line -----------------------------------------------------------------------------------

RuleEditorLine::RuleEditorLine(RuleEditor& editor, editors::RowPtr description)
    : QWidget(&editor)
    , m_editor(editor)
    , m_row(std::move(description))
    , m_criteria(new QHBoxLayout)
    , m_grip(new QLabel(QStringLiteral("⋮⋮"), this))
    , m_remove(makeButton(QStringLiteral("−"), tr("Remove this line"), this))
    , m_add(makeButton(QStringLiteral("+"), tr("Add a line after this one"), this))
    , m_addGroup(makeButton(QStringLiteral("…"), tr("Add a group of lines after this one"), this))
{
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(4, 1, 4, 1);
    layout->setSpacing(4);
    m_grip->setCursor(Qt::OpenHandCursor);
    m_grip->setToolTip(tr("Drag to move this line"));
    m_grip->installEventFilter(this);
    m_criteria->setSpacing(4);
    layout->addWidget(m_grip);
    layout->addLayout(m_criteria, 1);
    layout->addWidget(m_remove);
    layout->addWidget(m_add);
    layout->addWidget(m_addGroup);
    for (QWidget* button : {m_remove, m_add, m_addGroup}) {
        watchKeys(button);
    }
    m_remove->setIcon(QIcon::fromTheme(QStringLiteral("list-remove")));
    m_add->setIcon(QIcon::fromTheme(QStringLiteral("list-add")));
    // A group nests lines one step in; the text stands in without a theme.
    m_addGroup->setIcon(QIcon::fromTheme(QStringLiteral("format-indent-more"),
                                        QIcon::fromTheme(QStringLiteral("format-indent-more-symbolic"))));
    setMinimumHeight(editor.model().rowHeight());
    setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Fixed);

    connect(m_remove, &QToolButton::clicked, this, [this] {
        const int at = row();
        editors::RuleEditorModel& model = m_editor.model();
        if (model.removeRow(at)) {
            m_editor.focusLine(std::min(at, model.numberOfRows() - 1));
        }
    });
    connect(m_add, &QToolButton::clicked, this, [this] {
        const int added = m_editor.model().addRow(row());
        m_editor.focusLine(added);
    });
    connect(m_addGroup, &QToolButton::clicked, this, [this] {
        const int added = m_editor.model().addGroup(row());
        m_editor.focusLine(added);
    });
    // The selected line is the one holding the focus.
    connect(qApp, &QApplication::focusChanged, this, [this](QWidget*, QWidget* now) {
        const bool within = now && isAncestorOf(now);
        if (within != m_focusWithin) {
            m_focusWithin = within;
            QWidget::update();
            if (within) {
                m_editor.lineFocused(row());
            }
        }
    });
}

RuleEditorLine::~RuleEditorLine() = default;

int RuleEditorLine::row() const
{
    return m_editor.model().rowForRowDescription(m_row.get());
}

QWidget* RuleEditorLine::control(int position) const
{
    return position >= 0 && position < static_cast<int>(m_slots.size()) ? m_slots[static_cast<std::size_t>(position)].widget
                                                                         : nullptr;
}

QComboBox* RuleEditorLine::popUp(int position) const
{
    return position >= 0 && position < static_cast<int>(m_slots.size()) ? m_slots[static_cast<std::size_t>(position)].popUp
                                                                         : nullptr;
}

QWidget* RuleEditorLine::firstControl() const
{
    return m_slots.empty() ? static_cast<QWidget*>(m_add) : m_slots.front().widget.data();
}

QWidget* RuleEditorLine::grip() const
{
    return m_grip;
}

std::vector<QWidget*> RuleEditorLine::tabOrder() const
{
    std::vector<QWidget*> order;
    for (const Slot& slot : m_slots) {
        QWidget* widget = slot.widget;
        if (!widget) {
            continue;
        }
        if (widget->focusPolicy() & Qt::TabFocus) {
            order.push_back(widget);
            continue;
        }
        // A field of several controls (a choice of buttons).
        for (QWidget* child : widget->findChildren<QWidget*>()) {
            if (child->focusPolicy() & Qt::TabFocus) {
                order.push_back(child);
            }
        }
    }
    order.insert(order.end(), {m_remove, m_add, m_addGroup});
    return order;
}

void RuleEditorLine::update(int row)
{
    const editors::RuleEditorModel& model = m_editor.model();
    const bool compound = m_row->isCompound();
    const int positions = std::max<int>(1, static_cast<int>(m_row->criteria.size()));
    QWidget* focused = QApplication::focusWidget();
    const bool hadFocus = focused && isAncestorOf(focused);
    for (int position = 0; position < positions; ++position) {
        updateSlot(row, position, compound);
    }
    while (static_cast<int>(m_slots.size()) > positions) {
        if (QWidget* widget = m_slots.back().widget) {
            widget->hide();
            widget->deleteLater();
        }
        m_slots.pop_back();
    }
    if (hadFocus && !(QApplication::focusWidget() && isAncestorOf(QApplication::focusWidget()))) {
        if (QWidget* first = firstControl()) {
            first->setFocus(Qt::OtherFocusReason);
        }
    }

    const int depth = model.depthOfRow(row);
    layout()->setContentsMargins(4 + depth * kIndent, 1, 4, 1);
    const QString number = QString::number(row + 1);
    const bool single = model.nestingMode() == editors::NestingMode::Single;
    m_remove->setVisible(!single);
    m_add->setVisible(!single);
    m_grip->setVisible(!single && depth + (compound ? 0 : 1) > 0);
    m_addGroup->setVisible(model.nestingMode() == editors::NestingMode::Compound);
    m_remove->setEnabled(model.canRemoveRow(row));
    m_remove->setAccessibleName(tr("Remove line %1").arg(number));
    m_add->setAccessibleName(compound ? tr("Add a line to the group of line %1").arg(number)
                                      : tr("Add a line after line %1").arg(number));
    m_addGroup->setAccessibleName(compound ? tr("Add a group to the group of line %1").arg(number)
                                           : tr("Add a group after line %1").arg(number));
}

void RuleEditorLine::updateSlot(int row, int position, bool compound)
{
    editors::RuleEditorModel& model = m_editor.model();
    if (static_cast<int>(m_slots.size()) <= position) {
        m_slots.resize(static_cast<std::size_t>(position) + 1);
    }
    Slot& slot = m_slots[static_cast<std::size_t>(position)];
    const editors::DisplayValue shown = position < static_cast<int>(m_row->displayValues.size())
                                            ? m_row->displayValues[static_cast<std::size_t>(position)]
                                            : editors::DisplayValue();
    const QString name = tr("%1 of line %2").arg(m_editor.positionName(compound, position)).arg(row + 1);

    if (shown.field) {
        if (slot.field != shown.field || !slot.widget) {
            const bool focused = slot.widget && slot.widget->hasFocus();
            if (slot.widget) {
                slot.widget->hide();
                slot.widget->deleteLater();
            }
            slot = Slot();
            slot.field = shown.field;
            slot.widget = makeValueFieldWidget(*shown.field, name, this);
            watchKeys(slot.widget);
            m_criteria->insertWidget(position, slot.widget);
            if (focused) {
                slot.widget->setFocus();
            }
        }
        slot.widget->setAccessibleName(name);
        return;
    }

    if (!slot.popUp) {
        const bool focused = slot.widget && slot.widget->hasFocus();
        if (slot.widget) {
            slot.widget->hide();
            slot.widget->deleteLater();
        }
        slot = Slot();
        auto* popUp = new QComboBox(this);
        // As wide as its choices: measured when first laid out, and again
        // whenever the choices change (below).
        // As wide as its longest choice when there is room, narrower in a
        // narrow window.
        popUp->setMinimumWidth(kNarrowestPopUp);
        connect(popUp, &QComboBox::activated, this, [this, position](int index) { chosen(position, index); });
        watchKeys(popUp);
        slot.popUp = popUp;
        slot.widget = popUp;
        m_criteria->insertWidget(position, popUp);
        if (focused) {
            popUp->setFocus();
        }
    }
    QComboBox* popUp = slot.popUp;
    popUp->setAccessibleName(name);
    QStringList titles = model.choiceTitlesAt(row, position);
    const int choices = static_cast<int>(titles.size());
    int selected = model.selectedChoiceAt(row, position);
    if (selected < 0 && !shown.text.isEmpty()) {
        // A value the pop-up does not offer (a limit of 250, an unknown
        // type) is shown all the same, after the choices.
        titles << shown.text;
        selected = choices;
    }
    if (titles != slot.titles) {
        const QSignalBlocker blocker(popUp);
        if (!slot.titles.isEmpty()) {
            // Other choices than those it was made with (another attribute's
            // comparisons): from now on it follows them. Only then, since
            // following makes the pop-up's list at once, which is slow for
            // hundreds of lines.
            popUp->setSizeAdjustPolicy(QComboBox::AdjustToContents);
        }
        popUp->clear();
        const std::vector<editors::Criterion> criteria = model.choicesAt(row, position);
        for (int index = 0; index < static_cast<int>(titles.size()); ++index) {
            const bool separator = index < choices && criteria[static_cast<std::size_t>(index)].menuItem()
                                   && criteria[static_cast<std::size_t>(index)].menuItem()->kind
                                          == editors::MenuItem::Kind::Separator;
            if (separator) {
                popUp->insertSeparator(index);
            } else {
                popUp->addItem(titles.at(index));
            }
        }
        slot.titles = titles;
    }
    if (popUp->currentIndex() != selected) {
        const QSignalBlocker blocker(popUp);
        popUp->setCurrentIndex(selected);
    }
}

void RuleEditorLine::chosen(int position, int index)
{
    const int at = row();
    if (at < 0) {
        return;
    }
    if (!m_editor.model().chooseCriterion(at, position, index)) {
        // A menu action, or nothing new: the pop-up shows the line again.
        update(at);
    }
}

void RuleEditorLine::moveBy(int offset)
{
    editors::RuleEditorModel& model = m_editor.model();
    const int at = row();
    const int parent = model.parentRowForRow(at);
    int index = at;
    if (parent >= 0) {
        const std::vector<int> siblings = model.subrowIndexesForRow(parent);
        index = static_cast<int>(std::find(siblings.begin(), siblings.end(), at) - siblings.begin());
    } else if (model.nestingMode() == editors::NestingMode::Compound) {
        return;  // the top group stays on top
    }
    QWidget* focused = QApplication::focusWidget();
    if (index + offset >= 0 && model.moveRow(at, parent, index + offset) && focused) {
        focused->setFocus();
    }
}

void RuleEditorLine::watchKeys(QWidget* widget)
{
    widget->installEventFilter(this);
    for (QWidget* child : widget->findChildren<QWidget*>()) {
        child->installEventFilter(this);
    }
}

bool RuleEditorLine::eventFilter(QObject* watched, QEvent* event)
{
    if (event->type() == QEvent::ShortcutOverride) {
        // Space presses a button or opens a pop-up of the line, before any
        // shortcut of the window (Quick Look) takes it.
        auto* key = static_cast<QKeyEvent*>(event);
        if (key->key() == Qt::Key_Space && key->modifiers() == Qt::NoModifier
            && (qobject_cast<QAbstractButton*>(watched) || qobject_cast<QComboBox*>(watched))) {
            event->accept();
            return true;
        }
    }
    if (event->type() == QEvent::KeyPress) {
        auto* key = static_cast<QKeyEvent*>(event);
        if (key->modifiers() == Qt::ControlModifier && (key->key() == Qt::Key_Up || key->key() == Qt::Key_Down)) {
            moveBy(key->key() == Qt::Key_Up ? -1 : 1);
            return true;
        }
    }
    if (watched != m_grip) {
        return QWidget::eventFilter(watched, event);
    }
    // A line is dragged by its grip within its editor, the place it would
    // go marked as the mouse moves.
    const QEvent::Type type = event->type();
    if (type != QEvent::MouseButtonPress && type != QEvent::MouseMove && type != QEvent::MouseButtonRelease) {
        return QWidget::eventFilter(watched, event);
    }
    auto* mouse = static_cast<QMouseEvent*>(event);
    switch (type) {
    case QEvent::MouseButtonPress:
        if (mouse->button() == Qt::LeftButton) {
            m_pressed = mouse->position().toPoint();
            m_dragging = false;
            return true;
        }
        break;
    case QEvent::MouseMove:
        if (mouse->buttons() & Qt::LeftButton) {
            const QPoint at = m_grip->mapTo(&m_editor, mouse->position().toPoint());
            if (!m_dragging && (mouse->position().toPoint() - m_pressed).manhattanLength()
                                   >= QApplication::startDragDistance()) {
                m_dragging = true;
                m_grip->setCursor(Qt::ClosedHandCursor);
            }
            if (m_dragging) {
                m_editor.showDropMarker(at);
            }
            return true;
        }
        break;
    case QEvent::MouseButtonRelease:
        if (mouse->button() == Qt::LeftButton && m_dragging) {
            m_dragging = false;
            m_grip->setCursor(Qt::OpenHandCursor);
            m_editor.m_dropMarker->hide();
            // The line may go away with the move: nothing of it is used after.
            m_editor.moveLine(row(), m_grip->mapTo(&m_editor, mouse->position().toPoint()));
            return true;
        }
        break;
    default:
        break;
    }
    return QWidget::eventFilter(watched, event);
}

void RuleEditorLine::paintEvent(QPaintEvent* event)
{
    QWidget::paintEvent(event);
    if (m_focusWithin) {
        QPainter painter(this);
        PredicateEditorViewSlice::drawSelection(painter, rect());
    }
}

}  // namespace trovara::widgets
