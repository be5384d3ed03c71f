#include "backend/ModelAvailability.h"

#include "backend/ModelCatalogue.h"
#include "backend/OpenAIConnection.h"
#include "core/Error.h"
#include "core/Logging.h"
#include "core/Paths.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QPointer>
#include <QSaveFile>
#include <QTimeZone>

namespace parlino {

namespace {

// "2027-01-06", an ISO date-time, or seconds since 1970 (taken as UTC); nothing for null or absent.
std::optional<QDate> shutdownDateFrom(const QJsonValue &value)
{
    if (value.isDouble()) {
        const auto seconds = static_cast<qint64>(value.toDouble());
        return QDateTime::fromSecsSinceEpoch(seconds, QTimeZone::utc()).date();
    }
    if (!value.isString())
        return std::nullopt;
    const QString text = value.toString().trimmed();
    if (const QDate date = QDate::fromString(text, Qt::ISODate); date.isValid())
        return date;
    if (const QDateTime moment = QDateTime::fromString(text, Qt::ISODate); moment.isValid())
        return moment.toUTC().date();
    return std::nullopt;
}

// The dates of a /models answer, or nothing when it is no model list.
std::optional<QHash<QString, QDate>> datesFromList(const QByteArray &body)
{
    const QJsonDocument document = QJsonDocument::fromJson(body);
    const QJsonValue data = document.object().value(u"data");
    if (!data.isArray())
        return std::nullopt;
    QHash<QString, QDate> dates;
    for (const QJsonValue &entry : data.toArray()) {
        const QString id = entry.toObject().value(u"id").toString();
        if (id.isEmpty())
            continue;
        if (const auto date = shutdownDateFrom(entry.toObject().value(u"shutdown_date")))
            dates.insert(id, *date);
    }
    return dates;
}

} // namespace

ModelAvailability::ModelAvailability(OpenAIConnection &connection, Clock &clock, QString filePath, QObject *parent)
    : QObject(parent)
    , m_connection(connection)
    , m_clock(clock)
    , m_filePath(std::move(filePath))
{
    load();
}

ModelAvailability::~ModelAvailability()
{
    if (m_timer != 0)
        m_clock.cancel(m_timer);
}

QString ModelAvailability::defaultFilePath()
{
    return Paths::applicationSupport() + QStringLiteral("/Parlino/model_availability.json");
}

void ModelAvailability::start()
{
    if (m_started)
        return;
    m_started = true;
    QMetaObject::invokeMethod(this, &ModelAvailability::refreshIfDue, Qt::QueuedConnection);
    m_timer = m_clock.startRepeating(checkInterval, this, [this] { refreshIfDue(); });
}

std::optional<QDate> ModelAvailability::shutdownDate(const QString &model) const
{
    if (const auto found = m_serviceDates.constFind(model); found != m_serviceDates.constEnd())
        return *found;
    if (const auto known = ModelCatalogue::find(model); known && known->shutdownDate.isValid())
        return known->shutdownDate;
    return std::nullopt;
}

void ModelAvailability::refreshIfDue()
{
    const QDateTime now = m_clock.now();
    const auto dayPassedSince = [&](const QDateTime &moment) {
        return !moment.isValid() || moment.secsTo(now) >= std::chrono::seconds(refreshInterval).count();
    };
    if (m_fetching || !dayPassedSince(m_fetchedAt) || !dayPassedSince(m_attemptedAt))
        return;
    m_attemptedAt = now;
    refresh();
}

QCoro::Task<> ModelAvailability::refresh()
{
    const auto url = m_connection.endpoint(QStringLiteral("/models"));
    if (!url) {
        PWARN(lcBackend) << "⚠️ Could not ask for model shutdown dates: invalid API URL";
        co_return;
    }
    m_fetching = true;
    const QPointer<ModelAvailability> self(this);
    std::optional<OpenAIConnection::HttpAnswer> answer;
    QString failure;
    try {
        QCoro::Task<OpenAIConnection::HttpAnswer> request = m_connection.getJSON(*url);
        answer = co_await request;
    } catch (const Error &error) {
        failure = error.description();
    }
    if (!self)
        co_return;
    m_fetching = false;

    std::optional<QHash<QString, QDate>> dates;
    if (answer && answer->statusCode != 200)
        failure = QStringLiteral("HTTP ") + QString::number(answer->statusCode);
    else if (answer && !(dates = datesFromList(answer->body)))
        failure = QStringLiteral("the answer is no model list");
    if (!dates) {
        PWARN(lcBackend) << "⚠️ Could not fetch model shutdown dates: " << failure;
        co_return;
    }

    PLOG(lcBackend) << "📥 Model shutdown dates from the service: " << dates->size();
    m_fetchedAt = m_clock.now();
    const bool differ = *dates != m_serviceDates;
    m_serviceDates = std::move(*dates);
    save();
    if (differ)
        Q_EMIT changed();
}

void ModelAvailability::load()
{
    QFile file(m_filePath);
    if (!file.exists())
        return;
    const auto unreadable = [this] {
        PWARN(lcBackend) << "⚠️ Model availability file " << m_filePath << " could not be read - ignoring it";
    };
    if (!file.open(QIODevice::ReadOnly))
        return unreadable();
    const QJsonObject stored = QJsonDocument::fromJson(file.readAll()).object();
    const QDateTime fetchedAt = QDateTime::fromString(stored.value(u"fetchedAt").toString(), Qt::ISODateWithMs);
    const QJsonValue datesValue = stored.value(u"shutdownDates");
    if (!fetchedAt.isValid() || !datesValue.isObject())
        return unreadable();
    QHash<QString, QDate> dates;
    const QJsonObject datesObject = datesValue.toObject();
    for (auto it = datesObject.constBegin(); it != datesObject.constEnd(); ++it) {
        const QDate date = QDate::fromString(it.value().toString(), Qt::ISODate);
        if (!date.isValid())
            return unreadable();
        dates.insert(it.key(), date);
    }
    m_fetchedAt = fetchedAt;
    m_serviceDates = std::move(dates);
}

void ModelAvailability::save() const
{
    QJsonObject dates;
    for (auto it = m_serviceDates.constBegin(); it != m_serviceDates.constEnd(); ++it)
        dates.insert(it.key(), it.value().toString(Qt::ISODate));
    const QJsonObject stored{{QStringLiteral("fetchedAt"), m_fetchedAt.toUTC().toString(Qt::ISODateWithMs)},
                             {QStringLiteral("shutdownDates"), dates}};
    QDir().mkpath(QFileInfo(m_filePath).absolutePath());
    QSaveFile file(m_filePath);
    if (!file.open(QIODevice::WriteOnly) || file.write(QJsonDocument(stored).toJson()) < 0 || !file.commit())
        PWARN(lcBackend) << "❌ Could not write model availability file " << m_filePath;
}

} // namespace parlino
