// The path bar under the results: the selected result's path as a row of
// buttons, one per folder and one for the file. Choosing a component asks
// for that folder (or the file) to be opened. When the path is wider than
// the bar, the leading folders give way to "…" so the file stays in view.
#pragma once

#include <QStringList>
#include <QWidget>

#include <vector>

class QHBoxLayout;
class QLabel;
class QToolButton;

namespace trovara::widgets {

class PathBar final : public QWidget {
    Q_OBJECT

public:
    explicit PathBar(QWidget* parent = nullptr);

    // An empty path clears the bar.
    void setPath(const QString& path);
    const QString& path() const { return m_path; }
    // The path of each component, from the root to the file.
    const QStringList& componentPaths() const { return m_componentPaths; }
    // The button of the component (tests, keyboard).
    QToolButton* buttonAt(int component) const;

    QSize minimumSizeHint() const override;

signals:
    // A component was chosen: the folder, or the file itself.
    void componentActivated(const QString& path);

protected:
    void resizeEvent(QResizeEvent* event) override;

private:
    void fitComponents();

    QString m_path;
    QStringList m_componentPaths;
    std::vector<QToolButton*> m_buttons;
    std::vector<QWidget*> m_separators;
    QLabel* m_ellipsis;
    QHBoxLayout* m_layout;
};

}  // namespace trovara::widgets
