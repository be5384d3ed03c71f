#pragma once

#include <QList>
#include <QSlider>

namespace parlino {

// A horizontal slider whose handle only rests on given values (the playback speeds). Dragging jumps
// from point to point; the arrow keys, Page Up/Down and the wheel step to the neighbouring point.
// The points are expected in ascending order.
class SnapSlider final : public QSlider {
    Q_OBJECT
public:
    explicit SnapSlider(QList<double> snapPoints, QWidget *parent = nullptr);

    // The point closest to `value`; on a tie the earlier point wins. With no points the value itself,
    // with one point that point.
    [[nodiscard]] static double nearestSnapPoint(double value, const QList<double> &points);

    [[nodiscard]] const QList<double> &snapPoints() const { return m_points; }
    [[nodiscard]] double snappedValue() const { return m_value; }
    // Moves the handle to the point nearest `value` without emitting snappedValueChanged().
    void setSnappedValue(double value);

Q_SIGNALS:
    // The user moved the handle to another point.
    void snappedValueChanged(double value);

protected:
    void keyPressEvent(QKeyEvent *event) override;
    void wheelEvent(QWheelEvent *event) override;
    void paintEvent(QPaintEvent *event) override;

private:
    static constexpr int kResolution = 1000;

    [[nodiscard]] int positionFor(double value) const;
    [[nodiscard]] double valueAt(int position) const;
    void step(int direction);
    void handleAction(int action);
    void handleValueChanged(int position);

    QList<double> m_points;
    double m_value = 0;
    bool m_settingProgrammatically = false;
};

} // namespace parlino
