#include "widgets/path_bar.h"

#include "widgets/file_icons.h"

#include <QDir>
#include <QHBoxLayout>
#include <QLabel>
#include <QToolButton>

namespace trovara::widgets {

PathBar::PathBar(QWidget* parent)
    : QWidget(parent)
    , m_ellipsis(new QLabel(QStringLiteral("…"), this))
    , m_layout(new QHBoxLayout(this))
{
    setAccessibleName(tr("Path of the selected result"));
    m_layout->setContentsMargins(2, 0, 2, 0);
    m_layout->setSpacing(0);
    m_ellipsis->hide();
    m_layout->addWidget(m_ellipsis);
    m_layout->addStretch(1);
}

QSize PathBar::minimumSizeHint() const
{
    // Never widens the window: components give way instead.
    return {0, QWidget::minimumSizeHint().height()};
}

QToolButton* PathBar::buttonAt(int component) const
{
    return component >= 0 && component < static_cast<int>(m_buttons.size()) ? m_buttons[component] : nullptr;
}

void PathBar::setPath(const QString& path)
{
    if (path == m_path) {
        return;
    }
    m_path = path;
    for (QToolButton* button : m_buttons) {
        delete button;
    }
    for (QWidget* separator : m_separators) {
        delete separator;
    }
    m_buttons.clear();
    m_separators.clear();
    m_componentPaths.clear();
    if (path.isEmpty()) {
        m_ellipsis->hide();
        return;
    }

    const QString clean = QDir::cleanPath(path);
    QStringList names = clean.split(QLatin1Char('/'), Qt::SkipEmptyParts);
    QString prefix;
    m_componentPaths << QStringLiteral("/");
    for (const QString& name : names) {
        prefix += QLatin1Char('/') + name;
        m_componentPaths << prefix;
    }
    names.prepend(QStringLiteral("/"));

    int at = 1;  // after the ellipsis
    for (int i = 0; i < names.size(); ++i) {
        if (i > 0) {
            auto* separator = new QLabel(QStringLiteral("›"), this);
            separator->setForegroundRole(QPalette::PlaceholderText);
            m_layout->insertWidget(at++, separator);
            m_separators.push_back(separator);
        }
        auto* button = new QToolButton(this);
        button->setAutoRaise(true);
        button->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
        button->setText(names[i]);
        const bool isFile = i == names.size() - 1;
        const QString target = m_componentPaths[i];
        button->setIcon(isFile ? iconForFile(target) : folderIcon());
        button->setIconSize(QSize(16, 16));
        button->setToolTip(target);
        button->setAccessibleName(isFile ? tr("Open %1").arg(names[i]) : tr("Open folder %1").arg(target));
        connect(button, &QToolButton::clicked, this, [this, target] { emit componentActivated(target); });
        m_layout->insertWidget(at++, button);
        m_buttons.push_back(button);
    }
    fitComponents();
}

void PathBar::resizeEvent(QResizeEvent* event)
{
    QWidget::resizeEvent(event);
    fitComponents();
}

// Shows the components from the file backwards while they fit.
void PathBar::fitComponents()
{
    if (m_buttons.empty()) {
        return;
    }
    const int available = width() - m_ellipsis->sizeHint().width() - 8;
    int used = 0;
    int first = static_cast<int>(m_buttons.size()) - 1;
    for (int i = first; i >= 0; --i) {
        int needed = m_buttons[i]->sizeHint().width();
        if (i > 0) {
            needed += m_separators[i - 1]->sizeHint().width();
        }
        // The file's own button always shows.
        if (used + needed > available && i != static_cast<int>(m_buttons.size()) - 1) {
            break;
        }
        used += needed;
        first = i;
    }
    for (int i = 0; i < static_cast<int>(m_buttons.size()); ++i) {
        m_buttons[i]->setVisible(i >= first);
        if (i > 0) {
            m_separators[i - 1]->setVisible(i > first);
        }
    }
    m_ellipsis->setVisible(first > 0);
}

}  // namespace trovara::widgets
