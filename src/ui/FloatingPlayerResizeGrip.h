#pragma once

#include <QPoint>
#include <QSize>
#include <QWidget>

namespace parlino {

// The corner handle of the floating player: dragging it asks for the window to grow or shrink by the
// pointer's travel. The window controller applies the limits.
class FloatingPlayerResizeGrip final : public QWidget {
    Q_OBJECT
public:
    explicit FloatingPlayerResizeGrip(QWidget *parent = nullptr);

    [[nodiscard]] QSize sizeHint() const override { return {14, 14}; }

Q_SIGNALS:
    void resizeRequested(QSize delta);

protected:
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    void paintEvent(QPaintEvent *event) override;

private:
    QPoint m_lastGlobal;
    bool m_dragging = false;
};

} // namespace parlino
