#include "platform/linux/DBusServicesEndpoint.h"

#include "core/Error.h"
#include "core/Logging.h"
#include "platform/linux/DBusApplicationService.h"

#include <QCoreApplication>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDeadlineTimer>
#include <QProcess>
#include <QThread>

namespace parlino {

const QString DBusServicesEndpoint::objectPath = QStringLiteral("/com/parlino/Services");
const QString DBusServicesEndpoint::interfaceName = QStringLiteral("com.parlino.Services");
const QString DBusServicesEndpoint::errorName = QStringLiteral("com.parlino.Services.Error");

DBusServicesEndpoint::DBusServicesEndpoint(Handler handler, QObject *parent)
    : QObject(parent)
    , m_handler(std::move(handler))
{
}

bool DBusServicesEndpoint::registerOn(QDBusConnection bus)
{
    return bus.registerObject(objectPath, this, QDBusConnection::ExportScriptableSlots);
}

void DBusServicesEndpoint::limitRate(int limit, std::chrono::milliseconds window, const Clock &clock)
{
    m_rateLimit.emplace(limit, window, clock);
}

QString DBusServicesEndpoint::rateLimitMessage() const
{
    const int limit = m_rateLimit ? m_rateLimit->limit() : 0;
    const auto seconds =
        m_rateLimit ? std::chrono::duration_cast<std::chrono::seconds>(m_rateLimit->window()).count() : 0;
    return QStringLiteral("Too many requests: Parlino takes at most %1 texts in %2 seconds. Try again in a moment.")
        .arg(limit)
        .arg(seconds);
}

bool DBusServicesEndpoint::admit()
{
    if (!m_rateLimit || m_rateLimit->allow())
        return true;
    PWARN(lcApp) << "⚠️ Refused a request on the session bus: over the rate limit";
    if (calledFromDBus())
        sendErrorReply(errorName, rateLimitMessage());
    return false;
}

void DBusServicesEndpoint::ReadAloud(const QString &text)
{
    dispatch(QStringLiteral("ReadAloud"), text);
}

void DBusServicesEndpoint::ReadSummary(const QString &text)
{
    dispatch(QStringLiteral("ReadSummary"), text);
}

void DBusServicesEndpoint::dispatch(const QString &method, const QString &text)
{
    if (!admit())
        return;
    const QString error = m_handler ? m_handler(method, text) : QStringLiteral("Parlino is not ready yet");
    if (!error.isEmpty() && calledFromDBus())
        sendErrorReply(errorName, error);
}

QString DBusServicesEndpoint::CreatePodcast(const QString &text, const QString &type)
{
    if (!calledFromDBus() || !admit())
        return {};
    if (!m_podcastHandler) {
        sendErrorReply(errorName, QStringLiteral("Parlino is not ready yet"));
        return {};
    }
    // Making a podcast takes minutes: the answer goes out when it is done, and the bus serves others meanwhile.
    setDelayedReply(true);
    QCoro::Task<> answering = answerPodcast(message(), connection(), text, type);
    Q_UNUSED(answering);
    return {};
}

QCoro::Task<> DBusServicesEndpoint::answerPodcast(QDBusMessage call, QDBusConnection bus, QString text, QString type)
{
    QString title;
    QString error;
    try {
        QCoro::Task<QString> making = m_podcastHandler(text, type);
        title = co_await making;
    } catch (const Error &failure) {
        error = failure.description();
    } catch (const std::exception &failure) {
        error = QString::fromUtf8(failure.what());
    }
    bus.send(error.isEmpty() ? call.createReply(title) : call.createErrorReply(errorName, error));
}

bool DBusServicesEndpoint::call(const QString &method, const QString &text, QString *error, const QDBusConnection &bus)
{
    QDBusMessage message =
        QDBusMessage::createMethodCall(DBusApplicationService::serviceName, objectPath, interfaceName, method);
    message.setArguments({text});
    message.setAutoStartService(false);
    const QDBusMessage reply = bus.call(message, QDBus::Block, 10000);
    if (reply.type() == QDBusMessage::ErrorMessage) {
        if (error)
            *error = reply.errorMessage();
        return false;
    }
    return true;
}

namespace {

constexpr int kStartTimeoutMs = 20000;
// A long text's script, speech and storage; the app ends the call itself long before when a step fails.
constexpr int kPodcastTimeoutMs = 30 * 60 * 1000;

bool isRunning(QDBusConnection &bus)
{
    return bus.interface()->isServiceRegistered(DBusApplicationService::serviceName).value();
}

// Starts the tray app in the background and waits until it offers its services.
bool startApp(QDBusConnection &bus)
{
    if (!QProcess::startDetached(QCoreApplication::applicationFilePath(), {}))
        return false;
    QDeadlineTimer deadline(kStartTimeoutMs);
    while (!deadline.hasExpired()) {
        if (isRunning(bus)) {
            // The name is claimed before the services are exported; give start-up a moment to finish.
            QThread::msleep(300);
            return true;
        }
        QThread::msleep(100);
    }
    return false;
}

} // namespace

bool DBusServicesEndpoint::callStartingApp(const QString &method, const QString &text, QString *error)
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        *error = QStringLiteral("no D-Bus session bus; start Parlino from your desktop session");
        return false;
    }
    if (!isRunning(bus) && !startApp(bus)) {
        *error = QStringLiteral("could not start Parlino");
        return false;
    }
    return call(method, text, error, bus);
}

bool DBusServicesEndpoint::createPodcastStartingApp(const QString &text, const QString &type, QString *title,
                                                    QString *error)
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        *error = QStringLiteral("no D-Bus session bus; start Parlino from your desktop session");
        return false;
    }
    if (!isRunning(bus) && !startApp(bus)) {
        *error = QStringLiteral("could not start Parlino");
        return false;
    }
    QDBusMessage message = QDBusMessage::createMethodCall(DBusApplicationService::serviceName, objectPath,
                                                          interfaceName, QStringLiteral("CreatePodcast"));
    message.setArguments({text, type});
    message.setAutoStartService(false);
    const QDBusMessage reply = bus.call(message, QDBus::Block, kPodcastTimeoutMs);
    if (reply.type() == QDBusMessage::ErrorMessage) {
        *error = reply.errorMessage();
        return false;
    }
    *title = reply.arguments().value(0).toString();
    return true;
}

} // namespace parlino
