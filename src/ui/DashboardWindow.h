#pragma once

#include <QWidget>

class QLabel;
class QTableWidget;

namespace parlino {

class AppState;
class Clock;
class UsageTracker;
class UsageTrackingService;

// This month at a glance: characters read and what they cost, the breakdowns by feature and by voice,
// characters per day, listening time and average speed, and whether usage reaches the hosted database.
// Every figure follows the usage account as it changes.
class DashboardWindow final : public QWidget {
    Q_OBJECT
public:
    DashboardWindow(UsageTrackingService &usage, UsageTracker &listening, AppState &state, Clock &clock,
                    QWidget *parent = nullptr);

    // The text a screen reader gets for the chart, and what a test reads: "23 Nov: 1,234 characters; ...".
    [[nodiscard]] QString dailySummary() const;

public Q_SLOTS:
    void refresh();

private:
    void refreshListening();
    void refreshSync();

    UsageTrackingService &m_usage;
    UsageTracker &m_listening;
    AppState &m_state;
    Clock &m_clock;
    QLabel *m_characters = nullptr;
    QLabel *m_cost = nullptr;
    QLabel *m_readings = nullptr;
    QLabel *m_listeningTime = nullptr;
    QLabel *m_averageSpeed = nullptr;
    QLabel *m_sync = nullptr;
    QTableWidget *m_byFeature = nullptr;
    QTableWidget *m_byVoice = nullptr;
    QWidget *m_chart = nullptr;
    QString m_dailySummary;
};

} // namespace parlino
