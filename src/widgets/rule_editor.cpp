#include "widgets/rule_editor.h"

#include "app/accent_colors.h"
#include "model/defaults.h"
#include "widgets/rule_value_field_widgets.h"

#include <QApplication>
#include <QComboBox>
#include <QDrag>
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
#include <QStyle>
#include <QTimer>
#include <QToolButton>
#include <QUrl>
#include <QVBoxLayout>

#include <algorithm>

namespace trovara::widgets {

namespace {

// A line being dragged within its editor: the editor and the line's index.
const QString kLineMimeType = QStringLiteral("application/x-trovara-rule-line");
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
    , m_layout(new QVBoxLayout(this))
    , m_addWhenEmpty(makeButton(tr("Add"), QString(), this))
{
    setAccessibleName(name);
    setAcceptDrops(true);
    m_layout->setContentsMargins(0, 0, 0, 0);
    m_layout->setSpacing(0);
    m_addWhenEmpty->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    m_addWhenEmpty->setIcon(QIcon::fromTheme(QStringLiteral("list-add")));
    m_addWhenEmpty->setAccessibleName(tr("Add a line to %1").arg(name));
    m_layout->addWidget(m_addWhenEmpty, 0, Qt::AlignLeft);
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
}

RuleEditorLine* RuleEditor::line(int row) const
{
    return row >= 0 && row < lineCount() ? m_order[static_cast<std::size_t>(row)] : nullptr;
}

void RuleEditor::focusLine(int row)
{
    if (RuleEditorLine* target = line(row)) {
        if (QWidget* first = target->firstControl()) {
            first->setFocus(Qt::TabFocusReason);
        }
    }
}

void RuleEditor::reload()
{
    std::map<const editors::RowDescription*, RuleEditorLine*> kept;
    std::vector<RuleEditorLine*> order;
    const int rows = m_model.numberOfRows();
    order.reserve(static_cast<std::size_t>(rows));
    for (int row = 0; row < rows; ++row) {
        editors::RowPtr description = m_model.rowAtIndex(row);
        RuleEditorLine* line = nullptr;
        if (auto found = m_lines.find(description.get()); found != m_lines.end()) {
            line = found->second;
            m_lines.erase(found);
        } else {
            line = new RuleEditorLine(*this, description);
        }
        kept[description.get()] = line;
        order.push_back(line);
    }
    // Lines that went away go once the event that removed them is over
    // (it may have come from one of their own buttons).
    for (auto& [description, line] : m_lines) {
        line->hide();
        line->deleteLater();
    }
    m_lines = std::move(kept);
    m_order = std::move(order);
    for (int row = 0; row < rows; ++row) {
        RuleEditorLine* line = m_order[static_cast<std::size_t>(row)];
        if (m_layout->indexOf(line) != row) {
            m_layout->removeWidget(line);
            m_layout->insertWidget(row, line);
        }
        line->update(row);
        line->show();
    }
    m_addWhenEmpty->setVisible(rows == 0 && m_model.nestingMode() != editors::NestingMode::Single);
}

int RuleEditor::rowAt(const QPoint& point) const
{
    for (int row = 0; row < lineCount(); ++row) {
        if (m_order[static_cast<std::size_t>(row)]->geometry().contains(point)) {
            return row;
        }
    }
    return -1;
}

bool RuleEditor::acceptsDrag(const QMimeData* data) const
{
    if (data->hasFormat(kLineMimeType)) {
        return data->data(kLineMimeType).startsWith(QByteArray::number(reinterpret_cast<quintptr>(this)) + ':');
    }
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

void RuleEditor::dropEvent(QDropEvent* event)
{
    const QMimeData* data = event->mimeData();
    const QPoint at = event->position().toPoint();
    const int target = rowAt(at);
    if (data->hasFormat(kLineMimeType) && acceptsDrag(data)) {
        const int row = data->data(kLineMimeType).split(':').value(1).toInt();
        bool moved = false;
        if (target >= 0 && target != row) {
            editors::RowPtr onto = m_model.rowAtIndex(target);
            if (onto->isCompound() && m_model.nestingMode() == editors::NestingMode::Compound) {
                moved = m_model.moveRow(row, target, static_cast<int>(onto->subrows.size()));
            } else {
                const int parent = m_model.parentRowForRow(target);
                const std::vector<int> siblings =
                    parent < 0 ? std::vector<int>() : m_model.subrowIndexesForRow(parent);
                int index = parent < 0 ? target
                                       : static_cast<int>(std::find(siblings.begin(), siblings.end(), target)
                                                          - siblings.begin());
                // Dropped on the lower half: after the line.
                if (at.y() > m_order[static_cast<std::size_t>(target)]->geometry().center().y()) {
                    ++index;
                }
                if (m_model.parentRowForRow(row) == parent && row < target) {
                    --index;  // the line leaves its place above first
                }
                moved = m_model.moveRow(row, parent, std::max(0, index));
            }
        }
        moved ? event->acceptProposedAction() : event->ignore();
        return;
    }
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
        popUp->setSizeAdjustPolicy(QComboBox::AdjustToContents);
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
    if (event->type() == QEvent::MouseButtonPress) {
        m_pressed = static_cast<QMouseEvent*>(event)->position().toPoint();
        return true;
    }
    if (event->type() == QEvent::MouseMove && (static_cast<QMouseEvent*>(event)->buttons() & Qt::LeftButton)) {
        const QPoint moved = static_cast<QMouseEvent*>(event)->position().toPoint() - m_pressed;
        if (moved.manhattanLength() >= QApplication::startDragDistance()) {
            auto* data = new QMimeData;
            data->setData(kLineMimeType, QByteArray::number(reinterpret_cast<quintptr>(&m_editor)) + ':'
                                             + QByteArray::number(row()));
            auto* drag = new QDrag(this);
            drag->setMimeData(data);
            drag->setPixmap(grab());
            drag->exec(Qt::MoveAction);
        }
        return true;
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
