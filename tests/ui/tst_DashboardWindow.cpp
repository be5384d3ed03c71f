#include "ManualClock.h"
#include "TestEnvironment.h"
#include "app/AppState.h"
#include "core/Defaults.h"
#include "ui/DashboardWindow.h"
#include "usage/UsageTracker.h"
#include "usage/UsageTrackingService.h"

#include <QLabel>
#include <QTableWidget>
#include <QTest>
#include <QTimeZone>

#include <ctime>

using namespace parlino;

namespace {

QDateTime at(int month, int day, int hour = 12)
{
    return QDateTime(QDate(2026, month, day), QTime(hour, 0), QTimeZone::utc());
}

TTSUsageLog logOf(const QDateTime &when, qint64 characters, const QString &voice, const QString &feature,
                  double costPerKChars)
{
    TTSUsageLog log;
    log.timestamp = when;
    log.provider =
        voice.startsWith(QLatin1String("espeak:")) ? QStringLiteral("offline") : QStringLiteral("openai-speech");
    log.modelName = QStringLiteral("tts-1");
    log.voiceName = voice;
    log.voiceTier = QStringLiteral("standard");
    log.characterCount = characters;
    log.costPerKChars = costPerKChars;
    log.feature = feature;
    log.requestSource = QStringLiteral("hotkey");
    return log;
}

QStringList rows(const QTableWidget *table)
{
    QStringList lines;
    for (int row = 0; row < table->rowCount(); ++row) {
        QStringList cells;
        for (int column = 0; column < table->columnCount(); ++column)
            cells << table->item(row, column)->text();
        lines << cells.join(u" | ");
    }
    return lines;
}

QString figure(const QWidget &window, const QString &name)
{
    for (const QLabel *label : window.findChildren<QLabel *>())
        if (label->accessibleName() == name)
            return label->text();
    return QStringLiteral("<no %1>").arg(name);
}

} // namespace

// The dashboard as a user reads it: the month's figures from the real usage account, found by the names a
// screen reader announces, following each new reading.
class TestDashboardWindow final : public QObject {
    Q_OBJECT

    test::TestEnvironment m_env;
    Defaults m_defaults{m_env.defaultsFile()};
    ManualClock m_clock{at(11, 23)};

private Q_SLOTS:
    void initTestCase()
    {
        qputenv("TZ", "UTC");
        tzset();
        QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));
    }

    void showsTheMonthAndFollowsNewReadings()
    {
        UsageTrackingService usage(m_defaults, m_clock);
        // October's reading is not this month's; November's are.
        usage.addUsageLog(logOf(at(10, 31, 23), 999, QStringLiteral("nova"), QStringLiteral("read_aloud"), 1.5));
        m_clock.setNow(at(11, 23));
        usage.checkMonthRollover();
        usage.addUsageLog(logOf(at(11, 2), 2000, QStringLiteral("nova"), QStringLiteral("read_aloud"), 1.5));
        usage.addUsageLog(logOf(at(11, 2, 18), 1000, QStringLiteral("espeak:de"), QStringLiteral("read_aloud"), 0));
        usage.addUsageLog(logOf(at(11, 20), 4000, QStringLiteral("nova"), QStringLiteral("podcast"), 1.5),
                          UsageEventType::podcast);
        UsageTracker listening(m_defaults);
        listening.addListeningTime(125);
        AppState state(m_defaults);

        DashboardWindow window(usage, listening, state, m_clock);
        QCOMPARE(figure(window, QStringLiteral("Characters read")), QStringLiteral("7,000"));
        QCOMPARE(figure(window, QStringLiteral("Estimated cost")), QStringLiteral("$0.09"));
        QCOMPARE(figure(window, QStringLiteral("Readings")), QStringLiteral("3"));
        QCOMPARE(figure(window, QStringLiteral("Time listened")), QStringLiteral("2 min 5 s"));
        QCOMPARE(window.dailySummary(), QStringLiteral("2 Nov: 3,000 characters; 20 Nov: 4,000 characters"));

        auto *byFeature = window.findChild<QTableWidget *>();
        QVERIFY(byFeature);
        const auto tables = window.findChildren<QTableWidget *>();
        QTableWidget *byVoice = nullptr;
        for (QTableWidget *table : tables) {
            if (table->accessibleName() == u"Usage by feature")
                byFeature = table;
            if (table->accessibleName() == u"Usage by voice")
                byVoice = table;
        }
        QVERIFY(byVoice);
        // Largest first.
        QCOMPARE(rows(byFeature), (QStringList{QStringLiteral("Podcasts | 1 | 4,000 | $0.06"),
                                               QStringLiteral("Read aloud | 2 | 3,000 | $0.03")}));
        QCOMPARE(rows(byVoice), (QStringList{QStringLiteral("Nova | 2 | 6,000 | $0.09"),
                                             QStringLiteral("Offline (de) | 1 | 1,000 | $0.00")}));

        // A reading finished while the window is open shows at once.
        usage.addUsageLog(logOf(at(11, 23), 500, QStringLiteral("espeak:de"), QStringLiteral("read_summary"), 0),
                          UsageEventType::readSummary);
        QCOMPARE(figure(window, QStringLiteral("Characters read")), QStringLiteral("7,500"));
        QCOMPARE(rows(byVoice).last(), QStringLiteral("Offline (de) | 2 | 1,500 | $0.00"));
        QVERIFY(window.dailySummary().endsWith(QStringLiteral("23 Nov: 500 characters")));
    }
};

QTEST_MAIN(TestDashboardWindow)
#include "tst_DashboardWindow.moc"
