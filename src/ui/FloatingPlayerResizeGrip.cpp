#include "ui/FloatingPlayerResizeGrip.h"

#include <QMouseEvent>
#include <QPainter>

namespace parlino {

FloatingPlayerResizeGrip::FloatingPlayerResizeGrip(QWidget *parent)
    : QWidget(parent)
{
    setObjectName(QStringLiteral("resizeGrip"));
    setCursor(Qt::SizeFDiagCursor);
    setFixedSize(sizeHint());
    setToolTip(QStringLiteral("Resize"));
}

void FloatingPlayerResizeGrip::mousePressEvent(QMouseEvent *event)
{
    if (event->button() != Qt::LeftButton)
        return QWidget::mousePressEvent(event);
    m_dragging = true;
    m_lastGlobal = event->globalPosition().toPoint();
    event->accept();
}

void FloatingPlayerResizeGrip::mouseMoveEvent(QMouseEvent *event)
{
    if (!m_dragging)
        return QWidget::mouseMoveEvent(event);
    const QPoint global = event->globalPosition().toPoint();
    const QPoint travel = global - m_lastGlobal;
    m_lastGlobal = global;
    if (!travel.isNull())
        Q_EMIT resizeRequested(QSize(travel.x(), travel.y()));
    event->accept();
}

void FloatingPlayerResizeGrip::mouseReleaseEvent(QMouseEvent *event)
{
    m_dragging = false;
    event->accept();
}

void FloatingPlayerResizeGrip::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    QColor color = palette().color(QPalette::WindowText);
    color.setAlphaF(0.4F);
    painter.setPen(QPen(color, 1.2));
    const int w = width();
    const int h = height();
    for (int offset : {4, 8, 12})
        painter.drawLine(QPointF(w - 1, h - 1 - offset), QPointF(w - 1 - offset, h - 1));
}

} // namespace parlino
