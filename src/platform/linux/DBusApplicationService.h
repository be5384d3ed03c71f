#pragma once

#include <QDBusAbstractAdaptor>
#include <QDBusConnection>
#include <QObject>
#include <QStringList>
#include <QVariantList>
#include <QVariantMap>

namespace parlino {

// Makes Parlino a single-instance application on the session bus. The first process owns the name
// com.parlino.app and serves org.freedesktop.Application on /com/parlino/app; a later launch hands its
// request to it (Activate, Open for parlino:// URLs, ActivateAction for commands such as "play") and exits.
class DBusApplicationService final : public QObject {
    Q_OBJECT
public:
    static const QString serviceName;
    static const QString objectPath;
    static const QString interfaceName;

    explicit DBusApplicationService(QDBusConnection bus = QDBusConnection::sessionBus(), QObject *parent = nullptr);

    // Owns the bus name and serves the interface. False when another instance already owns it (or there
    // is no session bus); `error` then says which.
    [[nodiscard]] bool registerPrimary(QString *error = nullptr);

    // Requests to a running instance; false with `error` filled when none answers.
    static bool forwardActivate(QString *error = nullptr, QDBusConnection bus = QDBusConnection::sessionBus());
    static bool forwardOpen(const QStringList &uris, QString *error = nullptr,
                            QDBusConnection bus = QDBusConnection::sessionBus());
    static bool forwardAction(const QString &action, const QVariantList &parameters, QString *error = nullptr,
                              QDBusConnection bus = QDBusConnection::sessionBus());

    [[nodiscard]] QDBusConnection connection() const { return m_bus; }

Q_SIGNALS:
    void activateRequested();
    void openRequested(const QStringList &uris);
    void actionRequested(const QString &action, const QVariantList &parameters);

private:
    QDBusConnection m_bus;
};

// The org.freedesktop.Application interface, exported on the service's object.
class FreedesktopApplicationAdaptor final : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Application")
public:
    explicit FreedesktopApplicationAdaptor(DBusApplicationService *service);

public Q_SLOTS:
    void Activate(const QVariantMap &platformData);
    void Open(const QStringList &uris, const QVariantMap &platformData);
    void ActivateAction(const QString &actionName, const QVariantList &parameter, const QVariantMap &platformData);

private:
    DBusApplicationService *m_service;
};

} // namespace parlino
