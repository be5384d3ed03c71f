#include "ui/SnapSlider.h"

#include <QSignalSpy>
#include <QStyleOptionSlider>
#include <QTest>

using namespace parlino;

class SnapSliderTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void nearestPoint_data();
    void nearestPoint();
    void draggingRestsOnPointsAndReportsEachOnce();
    void keysStepToTheNeighbouringPoint();
};

void SnapSliderTest::nearestPoint_data()
{
    QTest::addColumn<QList<double>>("points");
    QTest::addColumn<double>("value");
    QTest::addColumn<double>("expected");
    const QList<double> speeds{0.5, 0.75, 1.0, 1.25, 1.5, 1.75, 2.0, 2.25, 2.5, 2.75, 3.0};
    QTest::newRow("no points") << QList<double>{} << 1.37 << 1.37;
    QTest::newRow("one point") << QList<double>{2.0} << 0.1 << 2.0;
    QTest::newRow("closest") << speeds << 1.37 << 1.25;
    QTest::newRow("below all") << speeds << 0.0 << 0.5;
    QTest::newRow("above all") << speeds << 9.0 << 3.0;
    QTest::newRow("tie goes to the earlier") << speeds << 1.125 << 1.0;
    QTest::newRow("tie, unordered list") << QList<double>{3.0, 1.0} << 2.0 << 3.0;
}

void SnapSliderTest::nearestPoint()
{
    QFETCH(QList<double>, points);
    QFETCH(double, value);
    QFETCH(double, expected);
    QCOMPARE(SnapSlider::nearestSnapPoint(value, points), expected);
}

void SnapSliderTest::draggingRestsOnPointsAndReportsEachOnce()
{
    SnapSlider slider({0.5, 1.0, 1.5, 2.0, 3.0});
    slider.resize(400, 30);
    slider.show();
    QVERIFY(QTest::qWaitForWindowExposed(&slider));
    QSignalSpy changed(&slider, &SnapSlider::snappedValueChanged);

    slider.setSnappedValue(1.1);
    QCOMPARE(slider.snappedValue(), 1.0);
    QCOMPARE(changed.count(), 0); // not the user's doing

    // Drag the handle most of the way: it ends on a point, and each point passed is reported once.
    QStyleOptionSlider option;
    option.initFrom(&slider);
    option.orientation = Qt::Horizontal;
    option.minimum = slider.minimum();
    option.maximum = slider.maximum();
    option.sliderPosition = slider.sliderPosition();
    const QRect handle = slider.style()->subControlRect(QStyle::CC_Slider, &option, QStyle::SC_SliderHandle, &slider);
    QTest::mousePress(&slider, Qt::LeftButton, {}, handle.center());
    for (int x = handle.center().x(); x <= 330; x += 10)
        QTest::mouseMove(&slider, QPoint(x, handle.center().y()));
    QTest::mouseRelease(&slider, Qt::LeftButton, {}, QPoint(330, handle.center().y()));

    const double landed = slider.snappedValue();
    QVERIFY(QList<double>({1.5, 2.0, 3.0}).contains(landed));
    QCOMPARE(changed.last().first().toDouble(), landed);
    QList<double> reported;
    for (const auto &arguments : changed)
        reported << arguments.first().toDouble();
    for (qsizetype i = 1; i < reported.size(); ++i)
        QVERIFY(reported[i] != reported[i - 1]);
}

void SnapSliderTest::keysStepToTheNeighbouringPoint()
{
    SnapSlider slider({0.5, 0.75, 1.0, 1.25});
    slider.setSnappedValue(1.0);
    QSignalSpy changed(&slider, &SnapSlider::snappedValueChanged);
    QTest::keyClick(&slider, Qt::Key_Right);
    QCOMPARE(slider.snappedValue(), 1.25);
    QTest::keyClick(&slider, Qt::Key_Right); // already at the end
    QCOMPARE(slider.snappedValue(), 1.25);
    QTest::keyClick(&slider, Qt::Key_Left);
    QTest::keyClick(&slider, Qt::Key_PageDown);
    QCOMPARE(slider.snappedValue(), 0.75);
    QCOMPARE(changed.count(), 3);
}

QTEST_MAIN(SnapSliderTest)
#include "tst_SnapSlider.moc"
