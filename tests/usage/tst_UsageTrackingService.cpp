#include "LogCapture.h"
#include "ManualClock.h"
#include "TestEnvironment.h"
#include "core/Defaults.h"
#include "core/SettingsKeys.h"
#include "usage/UsageTrackingService.h"

#include <QSignalSpy>
#include <QTest>
#include <QTimeZone>

#include <ctime>

using namespace parlino;

namespace {

QDateTime at(int year, int month, int day, int hour = 12)
{
    return QDateTime(QDate(year, month, day), QTime(hour, 0), QTimeZone::utc());
}

TTSUsageLog logOf(const QDateTime &when, qint64 characters, const QString &provider = QStringLiteral("openai-speech"),
                  const QString &feature = QStringLiteral("read_aloud"))
{
    TTSUsageLog log;
    log.timestamp = when;
    log.provider = provider;
    log.modelName = QStringLiteral("tts-1");
    log.voiceName = QStringLiteral("nova");
    log.voiceTier = QStringLiteral("standard");
    log.characterCount = characters;
    log.costPerKChars = 1.5;
    log.feature = feature;
    log.requestSource = QStringLiteral("hotkey");
    return log;
}

} // namespace

class TestUsageTrackingService final : public QObject {
    Q_OBJECT

private:
    test::TestEnvironment m_env;
    Defaults m_defaults{m_env.defaultsFile()};
    ManualClock m_clock{at(2026, 11, 20)};

private Q_SLOTS:
    void initTestCase()
    {
        // Months begin at local midnight; the test's local time is UTC.
        qputenv("TZ", "UTC");
        tzset();
    }

    void init()
    {
        for (const QString &key : m_defaults.allKeys())
            m_defaults.remove(key);
        m_clock.setNow(at(2026, 11, 20));
    }

    void requestsAreCountedKeptAndSurviveARestart()
    {
        UsageTrackingService usage(m_defaults, m_clock);
        QSignalSpy characters(&usage, &UsageTrackingService::currentMonthCharactersChanged);
        TTSUsageLog first = logOf(at(2026, 11, 20), 3000);
        first.timeToFirstByteMs = 950;
        first.metadata = QMap<QString, QString>{{QStringLiteral("script_length"), QStringLiteral("812")}};
        usage.addUsageLog(first);
        usage.addUsageLog(logOf(at(2026, 11, 20), 1000, QStringLiteral("offline"), QStringLiteral("podcast")),
                          UsageEventType::podcast);

        QCOMPARE(usage.currentMonthCharacters(), 4000);
        QCOMPARE(characters.size(), 2);
        const MonthlyUsageStats &stats = usage.monthlyStats();
        QCOMPARE(stats.totalCharacters, 4000);
        QCOMPARE(stats.totalCostCents, 6); // 4000 characters at 1.5 cents per thousand
        QCOMPARE(stats.ttsCallCount, 1);
        QCOMPARE(stats.podcastCount, 1);
        QCOMPARE(stats.byProvider.value(QStringLiteral("openai-speech")), (UsageBreakdown{1, 3000, 4.5, 1.5}));
        QCOMPARE(stats.byFeature.value(QStringLiteral("podcast")).characters, 1000);
        QCOMPARE(stats.bySource.value(QStringLiteral("hotkey")).callCount, 2);
        QCOMPARE(usage.pendingLogs().size(), 2);
        QCOMPARE(usage.pendingLogs().first().platform, QStringLiteral("linux"));

        // Everything, optional members included, reads back after a restart.
        UsageTrackingService again(m_defaults, m_clock);
        QCOMPARE(again.monthlyStats(), stats);
        QCOMPARE(again.currentMonthCharacters(), 4000);
        QCOMPARE(again.usageLogs().size(), 2);
        const TTSUsageLog read = again.usageLogs().first();
        QCOMPARE(read.id, first.id);
        QCOMPARE(read.timestamp, first.timestamp);
        QCOMPARE(read.timeToFirstByteMs, std::optional<qint64>(950));
        QCOMPARE(read.generationDurationMs, std::nullopt);
        QCOMPARE(read.metadata, first.metadata);

        // Handed on, a pending log is gone for good.
        again.removePendingLogs({first.id});
        QCOMPARE(UsageTrackingService(m_defaults, m_clock).pendingLogs().size(), 1);
    }

    void aNewMonthStartsFromItsFirstLog()
    {
        UsageTrackingService usage(m_defaults, m_clock);
        const TTSUsageLog november = logOf(at(2026, 11, 30, 23), 2000);
        usage.addUsageLog(november);

        // Just after midnight on the 1st: the first log of December starts the totals afresh.
        m_clock.setNow(QDateTime(QDate(2026, 12, 1), QTime(0, 0, 1), QTimeZone::utc()));
        test::LogCapture log;
        usage.addUsageLog(logOf(m_clock.now(), 500));
        QVERIFY(log.contains(QStringLiteral("📊 New month detected, archiving previous month's data")));
        QCOMPARE(usage.currentMonthCharacters(), 500);
        QCOMPARE(usage.monthlyStats().totalCharacters, 500);
        QCOMPARE(usage.usageLogs().size(), 1);
        QCOMPARE(usage.getDaysInCurrentPeriod(), 1);
        // November's log is still to be sent.
        QCOMPARE(usage.pendingLogs().size(), 2);
        QCOMPARE(usage.pendingLogs().first().id, november.id);

        // A restart later in December finds December's figures.
        m_clock.setNow(at(2026, 12, 9));
        QCOMPARE(UsageTrackingService(m_defaults, m_clock).currentMonthCharacters(), 500);
    }

    void unreadableStoredDataStartsEmpty()
    {
        m_defaults.set(SettingsKeys::usageLogs, QByteArray("[{\"id\": 7}"));
        m_defaults.set(SettingsKeys::monthlyUsageStats, QByteArray("{\"totalCharacters\": \"many\"}"));
        test::LogCapture log;
        UsageTrackingService usage(m_defaults, m_clock);
        QVERIFY(usage.usageLogs().isEmpty());
        QCOMPARE(usage.currentMonthCharacters(), 0);
        QCOMPARE(usage.monthlyStats(), MonthlyUsageStats());
        QCOMPARE(log.count(QStringLiteral("❌ Error loading ttsUsageLogs: unterminated array")), 1);
        QVERIFY(log.contains(QStringLiteral("❌ Error loading monthlyUsageStats: not usage statistics")));
    }
};

QTEST_GUILESS_MAIN(TestUsageTrackingService)
#include "tst_UsageTrackingService.moc"
