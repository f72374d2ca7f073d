// The busy indicator beside the status line: a small spinner that turns
// while a search gathers and moves one step for every live change. Painted
// in the palette's text colour, so it follows light and dark themes; it
// takes its space when stopped, so the line does not jump.
#pragma once

#include <QTimer>
#include <QWidget>

namespace trovara::widgets {

class BusyIndicator final : public QWidget {
    Q_OBJECT

public:
    explicit BusyIndicator(QWidget* parent = nullptr);

    bool isAnimating() const { return m_timer.isActive(); }
    // Turns on its own until stop().
    void start();
    void stop();
    // One step (a live change arrived); shown briefly when stopped.
    void step();
    int stepCount() const { return m_step; }

    QSize sizeHint() const override;

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    QTimer m_timer;
    QTimer m_fade;  // hides a single step again
    int m_step = 0;
    bool m_visibleWhileStopped = false;
};

}  // namespace trovara::widgets
