#include "platform/linux/DBusServicesEndpoint.h"

#include "platform/linux/DBusApplicationService.h"

#include <QDBusMessage>

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
    const QString error = m_handler ? m_handler(method, text) : QStringLiteral("Parlino is not ready yet");
    if (!error.isEmpty() && calledFromDBus())
        sendErrorReply(errorName, error);
}

bool DBusServicesEndpoint::call(const QString &method, const QString &text, QString *error, const QDBusConnection &bus)
{
    QDBusMessage message = QDBusMessage::createMethodCall(DBusApplicationService::serviceName, objectPath,
                                                          interfaceName, method);
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

} // namespace parlino
