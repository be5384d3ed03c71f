#include "platform/linux/AccessibilityStatus.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVariant>

namespace parlino {

namespace {

const QString busService = QStringLiteral("org.a11y.Bus");
const QString busPath = QStringLiteral("/org/a11y/bus");
const QString statusInterface = QStringLiteral("org.a11y.Status");
const QString propertiesInterface = QStringLiteral("org.freedesktop.DBus.Properties");

} // namespace

bool AccessibilityStatus::isEnabled()
{
    QDBusMessage call = QDBusMessage::createMethodCall(busService, busPath, propertiesInterface, QStringLiteral("Get"));
    call << statusInterface << QStringLiteral("IsEnabled");
    const QDBusMessage reply = QDBusConnection::sessionBus().call(call, QDBus::Block, 1000);
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty())
        return false;
    return reply.arguments().constFirst().value<QDBusVariant>().variant().toBool();
}

bool AccessibilityStatus::setEnabled(bool enabled)
{
    QDBusMessage call = QDBusMessage::createMethodCall(busService, busPath, propertiesInterface, QStringLiteral("Set"));
    call << statusInterface << QStringLiteral("IsEnabled") << QVariant::fromValue(QDBusVariant(enabled));
    const QDBusMessage reply = QDBusConnection::sessionBus().call(call, QDBus::Block, 1000);
    return reply.type() == QDBusMessage::ReplyMessage;
}

} // namespace parlino
