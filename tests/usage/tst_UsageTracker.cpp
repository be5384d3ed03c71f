#include "LogCapture.h"
#include "TestEnvironment.h"
#include "core/Defaults.h"
#include "core/SettingsKeys.h"
#include "usage/UsageTracker.h"

#include <QFile>
#include <QTest>

#include <limits>

using namespace parlino;

class UsageTrackerTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void figuresSurviveARestart();
    void badInputIsIgnoredAndBadStoredValuesReadAsZero();

private:
    test::TestEnvironment m_env;
};

void UsageTrackerTest::figuresSurviveARestart()
{
    Defaults defaults(m_env.configHome() + QStringLiteral("/restart.conf"));
    {
        UsageTracker tracker(defaults);
        QCOMPARE(tracker.averagePlaybackSpeed(), 1.0);
        tracker.addListeningTime(12.5);
        tracker.addListeningTime(2.25);
        tracker.recordPlaybackSpeed(1.5F);
        tracker.recordPlaybackSpeed(2.0F);
    }
    UsageTracker again(defaults);
    QCOMPARE(again.totalListeningTime(), 14.75);
    QCOMPARE(again.playbackSpeedSum(), 3.5);
    QCOMPARE(again.playbackSpeedCount(), 2);
    QCOMPARE(again.averagePlaybackSpeed(), 1.75);
}

void UsageTrackerTest::badInputIsIgnoredAndBadStoredValuesReadAsZero()
{
    // Written by hand, as a damaged or edited file would be: QSettings reads "nan" and "inf" as numbers.
    const QString path = m_env.configHome() + QStringLiteral("/bad.conf");
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write("[General]\ntotalListeningTime=nan\nplaybackSpeedSum=inf\n"
               "playbackSpeedCount=99999999999999999999\n");
    file.close();
    Defaults defaults(path);
    {
        test::LogCapture log;
        UsageTracker tracker(defaults);
        QCOMPARE(tracker.totalListeningTime(), 0.0);
        QCOMPARE(tracker.playbackSpeedSum(), 0.0);
        QCOMPARE(tracker.playbackSpeedCount(), 0);
        const QStringList warnings = log.lines().filter(QStringLiteral("⚠️ Ignoring the setting"));
        QCOMPARE(warnings.size(), 3);
        // Read again, the same bad values are not reported twice.
        UsageTracker again(defaults);
        QCOMPARE(log.lines().filter(QStringLiteral("⚠️ Ignoring the setting")).size(), 3);

        tracker.addListeningTime(-5);
        tracker.addListeningTime(std::numeric_limits<double>::infinity());
        tracker.recordPlaybackSpeed(0);
        tracker.recordPlaybackSpeed(std::numeric_limits<double>::quiet_NaN());
        QCOMPARE(tracker.totalListeningTime(), 0.0);
        QCOMPARE(tracker.playbackSpeedCount(), 0);
    }
    // Nothing was written over what was there.
    QCOMPARE(defaults.value(SettingsKeys::totalListeningTime).toString(), QStringLiteral("nan"));

    // Figures at their limits start again instead of overflowing or stopping the app.
    defaults.set(SettingsKeys::playbackSpeedSum, 2.0);
    defaults.set(SettingsKeys::playbackSpeedCount, std::numeric_limits<qint64>::max());
    defaults.set(SettingsKeys::totalListeningTime, std::numeric_limits<double>::max());
    UsageTracker full(defaults);
    QCOMPARE(full.playbackSpeedCount(), std::numeric_limits<qint64>::max());
    full.recordPlaybackSpeed(1.5);
    full.addListeningTime(std::numeric_limits<double>::max());
    QCOMPARE(full.playbackSpeedCount(), 1);
    QCOMPARE(full.playbackSpeedSum(), 1.5);
    QCOMPARE(full.totalListeningTime(), std::numeric_limits<double>::max());
    QCOMPARE(UsageTracker(defaults).playbackSpeedCount(), 1);
}

QTEST_GUILESS_MAIN(UsageTrackerTest)
#include "tst_UsageTracker.moc"
