#include "usage/UsageTrackingService.h"

#include "backend/SupabaseSyncEngine.h"
#include "core/Clock.h"
#include "core/Defaults.h"
#include "core/Logging.h"
#include "core/SettingsKeys.h"

#include <QJsonArray>
#include <QJsonDocument>

#include <algorithm>
#include <limits>

namespace parlino {

namespace {

QList<TTSUsageLog> readLogs(Defaults &defaults, const QString &key)
{
    if (!defaults.contains(key))
        return {};
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(defaults.dataForKey(key), &error);
    if (error.error != QJsonParseError::NoError || !document.isArray()) {
        PWARN(lcUsage) << "❌ Error loading " << key << ": "
                       << (error.error != QJsonParseError::NoError ? error.errorString()
                                                                   : QStringLiteral("not a list of logs"));
        return {};
    }
    QList<TTSUsageLog> logs;
    const QJsonArray array = document.array();
    for (const QJsonValue &value : array) {
        const std::optional<TTSUsageLog> log = TTSUsageLog::fromJson(value.toObject());
        if (!log) {
            PWARN(lcUsage) << "❌ Error loading " << key << ": a log lacks a required member";
            return {};
        }
        logs.append(*log);
    }
    return logs;
}

void writeLogs(Defaults &defaults, const QString &key, const QList<TTSUsageLog> &logs)
{
    QJsonArray array;
    for (const TTSUsageLog &log : logs)
        array.append(log.toJson());
    defaults.set(key, QJsonDocument(array).toJson(QJsonDocument::Compact));
}

// Podcasts and answered questions are their own kinds of event; every other reading is a speech generation.
SyncEventType usageEventType(const TTSUsageLog &log)
{
    if (log.feature == u"podcast")
        return SyncEventType::podcastGeneration;
    if (log.feature == u"question" || log.feature == u"qa_interaction")
        return SyncEventType::qaInteraction;
    return SyncEventType::ttsGeneration;
}

// The members of a usage_events row that the log decides; cents are rounded to whole cents.
QJsonObject usageEventPayload(const TTSUsageLog &log)
{
    QJsonObject payload{{QStringLiteral("event_type"), rawValue(usageEventType(log))},
                        {QStringLiteral("provider"), log.provider},
                        {QStringLiteral("voice_tier"), log.voiceTier},
                        {QStringLiteral("character_count"), log.characterCount},
                        {QStringLiteral("cost_cents"), qRound64(log.costCents())}};
    if (!log.feature.isEmpty())
        payload.insert(QStringLiteral("feature"), log.feature);
    return payload;
}

} // namespace

UsageTrackingService::UsageTrackingService(Defaults &defaults, Clock &clock, QObject *parent)
    : QObject(parent)
    , m_defaults(defaults)
    , m_clock(clock)
{
    loadLocalData();
}

UsageTrackingService::~UsageTrackingService() = default;

QDateTime UsageTrackingService::currentMonthStart() const
{
    const QDate today = m_clock.now().toLocalTime().date();
    return QDateTime(QDate(today.year(), today.month(), 1), QTime(0, 0));
}

int UsageTrackingService::getDaysInCurrentPeriod() const
{
    return m_clock.now().toLocalTime().date().day();
}

void UsageTrackingService::loadLocalData()
{
    m_usageLogs = readLogs(m_defaults, SettingsKeys::usageLogs);
    m_pendingLogs = readLogs(m_defaults, SettingsKeys::pendingUsageLogs);
    m_monthlyStats = {};
    if (m_defaults.contains(SettingsKeys::monthlyUsageStats)) {
        const QJsonDocument document = QJsonDocument::fromJson(m_defaults.dataForKey(SettingsKeys::monthlyUsageStats));
        if (const auto stats = MonthlyUsageStats::fromJson(document.object()); stats && document.isObject())
            m_monthlyStats = *stats;
        else
            PWARN(lcUsage) << "❌ Error loading " << SettingsKeys::monthlyUsageStats << ": not usage statistics";
    }
    checkMonthRollover();
    m_currentMonthCharacters = calculateCurrentMonth();
    PLOG(lcUsage) << "📊 Current month usage: " << m_currentMonthCharacters << " characters";
}

qint64 UsageTrackingService::calculateCurrentMonth() const
{
    const QDateTime start = currentMonthStart();
    qint64 total = 0;
    for (const TTSUsageLog &log : m_usageLogs) {
        if (log.timestamp >= start && qAddOverflow(total, log.characterCount, &total)) {
            PWARN(lcUsage) << "⚠️ This month's character count overflowed; starting it again";
            return 0;
        }
    }
    return total;
}

void UsageTrackingService::checkMonthRollover()
{
    const QDateTime start = currentMonthStart();
    const bool older = std::any_of(m_usageLogs.cbegin(), m_usageLogs.cend(),
                                   [&start](const TTSUsageLog &log) { return log.timestamp < start; });
    if (!older)
        return;
    PLOG(lcUsage) << "📊 New month detected, archiving previous month's data";
    archiveOldLogsAndReset(start);
}

void UsageTrackingService::archiveOldLogsAndReset(const QDateTime &start)
{
    m_usageLogs.removeIf([&start](const TTSUsageLog &log) { return log.timestamp < start; });
    m_monthlyStats = {};
    setCurrentMonthCharacters(0);
    saveLogs();
    saveStats();
    Q_EMIT monthlyStatsChanged();
}

void UsageTrackingService::addUsageLog(const TTSUsageLog &log, UsageEventType eventType)
{
    // A log from a new month closes the old one first, so the totals restart from it.
    if (log.timestamp >= currentMonthStart())
        checkMonthRollover();
    m_usageLogs.append(log);
    m_pendingLogs.append(log);
    qint64 total = 0;
    if (qAddOverflow(m_currentMonthCharacters, log.characterCount, &total)) {
        PWARN(lcUsage) << "⚠️ This month's character count overflowed; starting it again";
        total = log.characterCount;
    }
    saveLogs();
    savePendingLogs();
    setCurrentMonthCharacters(total);
    updateMonthlyStats(log, eventType);
    if (m_syncEngine)
        handOverPendingLogs();
}

void UsageTrackingService::setSyncEngine(SupabaseSyncEngine &engine)
{
    m_syncEngine = &engine;
    observeSyncEngineStatus();
    handOverPendingLogs();
}

void UsageTrackingService::observeSyncEngineStatus()
{
    const auto mirror = [this](const SyncStatus &status) {
        if (m_usageSyncStatus == status.text())
            return;
        m_usageSyncStatus = status.text();
        Q_EMIT usageSyncStatusChanged(m_usageSyncStatus);
    };
    connect(m_syncEngine, &SupabaseSyncEngine::syncStatusChanged, this, mirror);
    mirror(m_syncEngine->syncStatus());
}

void UsageTrackingService::handOverPendingLogs()
{
    if (m_pendingLogs.isEmpty())
        return;
    QList<QUuid> handedOver;
    for (const TTSUsageLog &log : std::as_const(m_pendingLogs)) {
        // The engine stores its queue before it returns, so the log can leave the pending list now.
        m_syncEngine->queueEvent(usageEventType(log), usageEventPayload(log), SyncPriority::high, log.id);
        handedOver.append(log.id);
    }
    removePendingLogs(handedOver);
    PLOG(lcUsage) << "📤 Handed " << handedOver.size() << " usage logs to the sync engine";
}

void UsageTrackingService::updateMonthlyStats(const TTSUsageLog &log, UsageEventType eventType)
{
    m_monthlyStats.add(log, eventType);
    saveStats();
    Q_EMIT monthlyStatsChanged();
}

void UsageTrackingService::removePendingLogs(const QList<QUuid> &ids)
{
    const qsizetype removed = m_pendingLogs.removeIf([&ids](const TTSUsageLog &log) { return ids.contains(log.id); });
    if (removed > 0)
        savePendingLogs();
}

void UsageTrackingService::setCurrentMonthCharacters(qint64 characters)
{
    if (m_currentMonthCharacters == characters)
        return;
    m_currentMonthCharacters = characters;
    Q_EMIT currentMonthCharactersChanged(characters);
}

void UsageTrackingService::saveStats()
{
    m_defaults.set(SettingsKeys::monthlyUsageStats,
                   QJsonDocument(m_monthlyStats.toJson()).toJson(QJsonDocument::Compact));
}

void UsageTrackingService::saveLogs()
{
    writeLogs(m_defaults, SettingsKeys::usageLogs, m_usageLogs);
}

void UsageTrackingService::savePendingLogs()
{
    writeLogs(m_defaults, SettingsKeys::pendingUsageLogs, m_pendingLogs);
}

} // namespace parlino
