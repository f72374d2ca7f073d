#include "widgets/busy_indicator.h"

#include <QPainter>
#include <QPainterPath>

#include <cmath>
#include <numbers>

namespace trovara::widgets {

namespace {
constexpr int kSpokes = 12;
}

BusyIndicator::BusyIndicator(QWidget* parent)
    : QWidget(parent)
{
    setAccessibleName(tr("Busy indicator"));
    setFocusPolicy(Qt::NoFocus);
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
    m_timer.setInterval(80);
    connect(&m_timer, &QTimer::timeout, this, [this] {
        m_step = (m_step + 1) % kSpokes;
        update();
    });
    m_fade.setSingleShot(true);
    m_fade.setInterval(400);
    connect(&m_fade, &QTimer::timeout, this, [this] {
        m_visibleWhileStopped = false;
        update();
    });
}

QSize BusyIndicator::sizeHint() const
{
    const int side = fontMetrics().height();
    return {side, side};
}

void BusyIndicator::start()
{
    if (!m_timer.isActive()) {
        m_timer.start();
        update();
    }
}

void BusyIndicator::stop()
{
    m_timer.stop();
    m_visibleWhileStopped = false;
    update();
}

void BusyIndicator::step()
{
    m_step = (m_step + 1) % kSpokes;
    if (!m_timer.isActive()) {
        m_visibleWhileStopped = true;
        m_fade.start();
    }
    update();
}

void BusyIndicator::paintEvent(QPaintEvent*)
{
    if (!m_timer.isActive() && !m_visibleWhileStopped) {
        return;
    }
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const qreal side = std::min(width(), height());
    const qreal outer = side / 2 - 1;
    const qreal inner = outer * 0.45;
    painter.translate(width() / 2.0, height() / 2.0);
    QColor color = palette().color(QPalette::WindowText);
    for (int spoke = 0; spoke < kSpokes; ++spoke) {
        // The newest spoke is the darkest; the others fade behind it.
        const int age = (m_step - spoke + kSpokes) % kSpokes;
        color.setAlphaF(std::max(0.15, 1.0 - age / double(kSpokes)));
        QPen pen(color, std::max(1.5, side / 10));
        pen.setCapStyle(Qt::RoundCap);
        painter.setPen(pen);
        const qreal angle = 2 * std::numbers::pi * spoke / kSpokes;
        painter.drawLine(QPointF(std::cos(angle) * inner, std::sin(angle) * inner),
                         QPointF(std::cos(angle) * outer, std::sin(angle) * outer));
    }
}

}  // namespace trovara::widgets
