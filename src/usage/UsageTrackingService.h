#pragma once

#include "usage/MonthlyUsageStats.h"
#include "usage/TTSUsageLog.h"

#include <QDateTime>
#include <QList>
#include <QObject>

namespace parlino {

class Clock;
class Defaults;
class SupabaseSyncEngine;

// The local account of what the user has had synthesised: one log per speech request, the current
// calendar month's statistics with their breakdowns, and the logs not yet handed to the hosted
// database. Kept in the settings store under "ttsUsageLogs", "pendingTTSUsageLogs" and
// "monthlyUsageStats"; a new month starts its statistics afresh. Pure accounting: it never refuses or
// limits anything. Lives on the main thread.
class UsageTrackingService final : public QObject {
    Q_OBJECT
    Q_PROPERTY(qint64 currentMonthCharacters READ currentMonthCharacters NOTIFY currentMonthCharactersChanged)
    Q_PROPERTY(QString usageSyncStatus READ usageSyncStatus NOTIFY usageSyncStatusChanged)

public:
    // Reads the stored account at once (absent or unreadable values start empty, with one log line
    // each) and rolls over to the current month when the stored logs are older.
    UsageTrackingService(Defaults &defaults, Clock &clock, QObject *parent = nullptr);
    ~UsageTrackingService() override;

    // Records one request: kept in the month's logs and the pending logs, and counted.
    void addUsageLog(const TTSUsageLog &log, UsageEventType eventType = UsageEventType::tts);
    // Folds one log into the month's statistics and stores them.
    void updateMonthlyStats(const TTSUsageLog &log, UsageEventType eventType);
    // The characters of the logs made since the current month began.
    [[nodiscard]] qint64 calculateCurrentMonth() const;
    // Starts a new month when the stored logs belong to an earlier one.
    void checkMonthRollover();
    // Keeps only the logs from `start` on and starts the statistics afresh; pending logs stay.
    void archiveOldLogsAndReset(const QDateTime &start);
    // Days of the current calendar month so far, today included.
    [[nodiscard]] int getDaysInCurrentPeriod() const;
    // The first instant of the current calendar month, in local time.
    [[nodiscard]] QDateTime currentMonthStart() const;

    [[nodiscard]] const MonthlyUsageStats &monthlyStats() const { return m_monthlyStats; }
    [[nodiscard]] qint64 currentMonthCharacters() const { return m_currentMonthCharacters; }
    [[nodiscard]] const QList<TTSUsageLog> &usageLogs() const { return m_usageLogs; }
    [[nodiscard]] const QList<TTSUsageLog> &pendingLogs() const { return m_pendingLogs; }
    // Forgets pending logs that have been handed on (by id).
    void removePendingLogs(const QList<QUuid> &ids);

    // From now on pending logs go to the engine as usage events: those waiting now at once, every new
    // one as it is recorded. A log leaves the pending list only once the engine has stored it in its
    // queue, and it keeps its id there, so a hand-over repeated after a crash queues nothing twice.
    // Also mirrors the engine's status into usageSyncStatus.
    void setSyncEngine(SupabaseSyncEngine &engine);
    // The engine's status as text ("idle", "syncing", "retrying in 8s", ...); "idle" without an engine.
    [[nodiscard]] const QString &usageSyncStatus() const { return m_usageSyncStatus; }

Q_SIGNALS:
    void currentMonthCharactersChanged(qint64 characters);
    void monthlyStatsChanged();
    void usageSyncStatusChanged(const QString &status);

private:
    void loadLocalData();
    void saveStats();
    void saveLogs();
    void savePendingLogs();
    void setCurrentMonthCharacters(qint64 characters);
    void handOverPendingLogs();
    void observeSyncEngineStatus();

    Defaults &m_defaults;
    Clock &m_clock;
    MonthlyUsageStats m_monthlyStats;
    qint64 m_currentMonthCharacters = 0;
    QList<TTSUsageLog> m_usageLogs;
    QList<TTSUsageLog> m_pendingLogs;
    SupabaseSyncEngine *m_syncEngine = nullptr;
    QString m_usageSyncStatus = QStringLiteral("idle");
};

} // namespace parlino
