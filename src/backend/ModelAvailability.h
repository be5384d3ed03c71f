#pragma once

#include "core/Clock.h"

#include <QDate>
#include <QDateTime>
#include <QHash>
#include <QObject>
#include <QString>
#include <qcoro/qcorotask.h>

#include <chrono>
#include <optional>

namespace parlino {

class OpenAIConnection;

// The shutdown dates the service announces for its models (GET /models, member "shutdown_date"), so
// the settings window can show them ahead of time. Asked at most once a day: the dates and the time of
// the last answer are kept in a small JSON file, so a restart does not ask again. Failures change
// nothing and cost one log line.
class ModelAvailability final : public QObject {
    Q_OBJECT
public:
    static constexpr std::chrono::hours refreshInterval{24};
    // How often a long-running app looks whether a day has passed.
    static constexpr std::chrono::hours checkInterval{1};

    // filePath: where the dates are kept (defaultFilePath() in the app). Reads it at once; a file that
    // cannot be read is reported and treated as absent.
    ModelAvailability(OpenAIConnection &connection, Clock &clock, QString filePath, QObject *parent = nullptr);
    ~ModelAvailability() override;

    // $XDG_DATA_HOME/Parlino/model_availability.json
    [[nodiscard]] static QString defaultFilePath();

    // Asks the service once the event loop runs (when the last answer is a day old), then looks every
    // hour. Returns at once.
    void start();

    // The service's date for model, else the catalogue's, else nothing.
    [[nodiscard]] std::optional<QDate> shutdownDate(const QString &model) const;
    // When the service last answered; invalid when it never has.
    [[nodiscard]] QDateTime lastFetched() const { return m_fetchedAt; }
    // A request for the dates is under way.
    [[nodiscard]] bool isFetching() const { return m_fetching; }

Q_SIGNALS:
    // The service's dates differ from the ones known before.
    void changed();

private:
    void refreshIfDue();
    QCoro::Task<> refresh();
    void load();
    void save() const;

    OpenAIConnection &m_connection;
    Clock &m_clock;
    QString m_filePath;
    QHash<QString, QDate> m_serviceDates;
    QDateTime m_fetchedAt;
    // The last request of this run, answered or not, so a failing service is asked once a day too.
    QDateTime m_attemptedAt;
    bool m_fetching = false;
    bool m_started = false;
    Clock::TimerId m_timer = 0;
};

} // namespace parlino
