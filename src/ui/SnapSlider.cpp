#include "ui/SnapSlider.h"

#include <QKeyEvent>
#include <QPainter>
#include <QStyleOptionSlider>
#include <QWheelEvent>

#include <cmath>

namespace parlino {

SnapSlider::SnapSlider(QList<double> snapPoints, QWidget *parent)
    : QSlider(Qt::Horizontal, parent)
    , m_points(std::move(snapPoints))
{
    setRange(0, kResolution);
    setTracking(true);
    m_value = m_points.isEmpty() ? 0.0 : m_points.first();
    connect(this, &QAbstractSlider::actionTriggered, this, &SnapSlider::handleAction);
    connect(this, &QAbstractSlider::valueChanged, this, &SnapSlider::handleValueChanged);
}

double SnapSlider::nearestSnapPoint(double value, const QList<double> &points)
{
    if (points.isEmpty())
        return value;
    double nearest = points.first();
    for (double point : points) {
        if (std::abs(point - value) < std::abs(nearest - value))
            nearest = point;
    }
    return nearest;
}

int SnapSlider::positionFor(double value) const
{
    if (m_points.size() < 2)
        return 0;
    const double low = m_points.first();
    const double high = m_points.last();
    return static_cast<int>(std::lround((value - low) / (high - low) * kResolution));
}

double SnapSlider::valueAt(int position) const
{
    if (m_points.size() < 2)
        return m_points.isEmpty() ? 0.0 : m_points.first();
    const double low = m_points.first();
    const double high = m_points.last();
    return low + (high - low) * position / kResolution;
}

void SnapSlider::setSnappedValue(double value)
{
    m_settingProgrammatically = true;
    m_value = nearestSnapPoint(value, m_points);
    setValue(positionFor(m_value));
    m_settingProgrammatically = false;
    update();
}

void SnapSlider::handleAction(int action)
{
    switch (action) {
    case SliderSingleStepAdd:
    case SliderPageStepAdd:
    case SliderSingleStepSub:
    case SliderPageStepSub: {
        // A step goes to the neighbouring point, not a thousandth of the way along.
        const bool up = action == SliderSingleStepAdd || action == SliderPageStepAdd;
        const qsizetype index = m_points.indexOf(m_value);
        const qsizetype next = std::clamp<qsizetype>(index + (up ? 1 : -1), 0, m_points.size() - 1);
        if (index >= 0 && !m_points.isEmpty())
            setSliderPosition(positionFor(m_points[next]));
        break;
    }
    default: setSliderPosition(positionFor(nearestSnapPoint(valueAt(sliderPosition()), m_points))); break;
    }
}

void SnapSlider::handleValueChanged(int position)
{
    const double snapped = nearestSnapPoint(valueAt(position), m_points);
    if (position != positionFor(snapped) && !m_points.isEmpty()) {
        setValue(positionFor(snapped)); // lands here again with the snapped position
        return;
    }
    if (snapped == m_value || m_settingProgrammatically)
        return;
    m_value = snapped;
    Q_EMIT snappedValueChanged(m_value);
}

void SnapSlider::step(int direction)
{
    triggerAction(direction > 0 ? SliderSingleStepAdd : SliderSingleStepSub);
}

void SnapSlider::keyPressEvent(QKeyEvent *event)
{
    switch (event->key()) {
    case Qt::Key_Right:
    case Qt::Key_Up:
    case Qt::Key_PageUp: step(+1); break;
    case Qt::Key_Left:
    case Qt::Key_Down:
    case Qt::Key_PageDown: step(-1); break;
    default: QSlider::keyPressEvent(event); return;
    }
    event->accept();
}

void SnapSlider::wheelEvent(QWheelEvent *event)
{
    const int delta = event->angleDelta().y() != 0 ? event->angleDelta().y() : event->angleDelta().x();
    if (delta != 0)
        step(delta > 0 ? +1 : -1);
    event->accept();
}

void SnapSlider::paintEvent(QPaintEvent *event)
{
    QSlider::paintEvent(event);
    if (m_points.size() < 2)
        return;
    // A small mark under each resting point.
    QStyleOptionSlider option;
    initStyleOption(&option);
    const QRect handle = style()->subControlRect(QStyle::CC_Slider, &option, QStyle::SC_SliderHandle, this);
    const int span = width() - handle.width();
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    QColor mark = palette().color(QPalette::WindowText);
    mark.setAlphaF(0.35F);
    painter.setBrush(mark);
    for (double point : std::as_const(m_points)) {
        const int x = handle.width() / 2 + QStyle::sliderPositionFromValue(0, kResolution, positionFor(point), span);
        painter.drawEllipse(QPointF(x, height() - 2.5), 1.5, 1.5);
    }
}

} // namespace parlino
