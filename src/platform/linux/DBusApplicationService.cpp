#include "platform/linux/DBusApplicationService.h"

#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusReply>
#include <QDBusVariant>

namespace parlino {

const QString DBusApplicationService::serviceName = QStringLiteral("com.parlino.app");
const QString DBusApplicationService::objectPath = QStringLiteral("/com/parlino/app");
const QString DBusApplicationService::interfaceName = QStringLiteral("org.freedesktop.Application");

namespace {

constexpr int kForwardTimeoutMs = 5000;

bool callRunningInstance(QDBusConnection &bus, const QString &method, const QVariantList &arguments, QString *error)
{
    if (!bus.isConnected()) {
        if (error)
            *error = QStringLiteral("no D-Bus session bus");
        return false;
    }
    QDBusMessage call =
        QDBusMessage::createMethodCall(DBusApplicationService::serviceName, DBusApplicationService::objectPath,
                                       DBusApplicationService::interfaceName, method);
    call.setArguments(arguments);
    // Never start a new instance through bus activation from here: the caller decides that.
    call.setAutoStartService(false);
    const QDBusMessage reply = bus.call(call, QDBus::Block, kForwardTimeoutMs);
    if (reply.type() == QDBusMessage::ErrorMessage) {
        if (error)
            *error = reply.errorMessage();
        return false;
    }
    return true;
}

} // namespace

DBusApplicationService::DBusApplicationService(QDBusConnection bus, QObject *parent)
    : QObject(parent)
    , m_bus(std::move(bus))
{
    new FreedesktopApplicationAdaptor(this);
}

bool DBusApplicationService::registerPrimary(QString *error)
{
    if (!m_bus.isConnected()) {
        if (error)
            *error = QStringLiteral("no D-Bus session bus");
        return false;
    }
    if (!m_bus.registerObject(objectPath, this, QDBusConnection::ExportAdaptors)) {
        if (error)
            *error = m_bus.lastError().message();
        return false;
    }
    const QDBusReply<QDBusConnectionInterface::RegisterServiceReply> reply = m_bus.interface()->registerService(
        serviceName, QDBusConnectionInterface::DontQueueService, QDBusConnectionInterface::DontAllowReplacement);
    if (reply.value() != QDBusConnectionInterface::ServiceRegistered) {
        m_bus.unregisterObject(objectPath);
        if (error)
            *error = QStringLiteral("another instance owns %1").arg(serviceName);
        return false;
    }
    return true;
}

bool DBusApplicationService::forwardActivate(QString *error, QDBusConnection bus)
{
    return callRunningInstance(bus, QStringLiteral("Activate"), {QVariantMap()}, error);
}

bool DBusApplicationService::forwardOpen(const QStringList &uris, QString *error, QDBusConnection bus)
{
    return callRunningInstance(bus, QStringLiteral("Open"), {uris, QVariantMap()}, error);
}

bool DBusApplicationService::forwardAction(const QString &action, const QVariantList &parameters, QString *error,
                                           QDBusConnection bus)
{
    QVariantList wrapped;
    for (const QVariant &parameter : parameters)
        wrapped << QVariant::fromValue(QDBusVariant(parameter));
    return callRunningInstance(bus, QStringLiteral("ActivateAction"), {action, wrapped, QVariantMap()}, error);
}

FreedesktopApplicationAdaptor::FreedesktopApplicationAdaptor(DBusApplicationService *service)
    : QDBusAbstractAdaptor(service)
    , m_service(service)
{
}

void FreedesktopApplicationAdaptor::Activate(const QVariantMap &)
{
    Q_EMIT m_service->activateRequested();
}

void FreedesktopApplicationAdaptor::Open(const QStringList &uris, const QVariantMap &)
{
    Q_EMIT m_service->openRequested(uris);
}

void FreedesktopApplicationAdaptor::ActivateAction(const QString &actionName, const QVariantList &parameter,
                                                   const QVariantMap &)
{
    QVariantList unwrapped;
    for (const QVariant &value : parameter)
        unwrapped << (value.canConvert<QDBusVariant>() ? value.value<QDBusVariant>().variant() : value);
    Q_EMIT m_service->actionRequested(actionName, unwrapped);
}

} // namespace parlino
