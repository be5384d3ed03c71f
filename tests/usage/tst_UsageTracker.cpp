#include "TestEnvironment.h"
#include "core/Defaults.h"
#include "core/SettingsKeys.h"
#include "usage/UsageTracker.h"

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
    Defaults defaults(m_env.configHome() + QStringLiteral("/bad.conf"));
    defaults.set(SettingsKeys::totalListeningTime, QStringLiteral("garbage"));
    defaults.set(SettingsKeys::playbackSpeedSum, -4.0);
    defaults.set(SettingsKeys::playbackSpeedCount, -3);
    UsageTracker tracker(defaults);
    QCOMPARE(tracker.totalListeningTime(), 0.0);
    QCOMPARE(tracker.playbackSpeedSum(), 0.0);
    QCOMPARE(tracker.playbackSpeedCount(), 0);

    tracker.addListeningTime(-5);
    tracker.addListeningTime(std::numeric_limits<double>::infinity());
    tracker.recordPlaybackSpeed(0);
    tracker.recordPlaybackSpeed(std::numeric_limits<double>::quiet_NaN());
    QCOMPARE(tracker.totalListeningTime(), 0.0);
    QCOMPARE(tracker.playbackSpeedCount(), 0);
    // Nothing was written over what was there.
    QCOMPARE(defaults.value(SettingsKeys::totalListeningTime).toString(), QStringLiteral("garbage"));
}

QTEST_GUILESS_MAIN(UsageTrackerTest)
#include "tst_UsageTracker.moc"
