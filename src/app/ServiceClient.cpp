#include "app/ServiceClient.h"

#include "platform/linux/DBusApplicationService.h"
#include "platform/linux/DBusServicesEndpoint.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDeadlineTimer>
#include <QFile>
#include <QProcess>
#include <QStringList>
#include <QThread>

#include <cstdio>

namespace parlino {

namespace {

constexpr int kStartTimeoutMs = 20000;

QString readStandardInput()
{
    QFile input;
    if (!input.open(stdin, QIODevice::ReadOnly))
        return {};
    return QString::fromUtf8(input.readAll());
}

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

int runServiceCommand(const QString &method, const QStringList &arguments)
{
    const QString text = arguments.value(0) == u"-" ? readStandardInput() : arguments.value(0);
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        std::fprintf(stderr, "parlino: no D-Bus session bus; start Parlino from your desktop session\n");
        return 1;
    }
    if (!isRunning(bus) && !startApp(bus)) {
        std::fprintf(stderr, "parlino: could not start Parlino\n");
        return 1;
    }
    QString error;
    if (!DBusServicesEndpoint::call(method, text, &error, bus)) {
        std::fprintf(stderr, "parlino: %s\n", qPrintable(error));
        return 1;
    }
    return 0;
}

} // namespace parlino
