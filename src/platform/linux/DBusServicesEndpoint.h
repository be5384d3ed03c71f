#pragma once

#include <QDBusConnection>
#include <QDBusContext>
#include <QObject>

#include <functional>

namespace parlino {

// The desktop's way into the read-aloud flows: com.parlino.Services on /com/parlino/Services of the
// running instance, with ReadAloud(s) and ReadSummary(s). A call with no text answers the D-Bus error
// "No text selected". Desktop shortcuts, file managers and `parlino --read-aloud` use it.
class DBusServicesEndpoint final : public QObject, protected QDBusContext {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "com.parlino.Services")
public:
    static const QString objectPath;
    static const QString interfaceName;
    static const QString errorName;

    // Starts the flow for `method` ("ReadAloud" or "ReadSummary"); returns an error text or nothing.
    using Handler = std::function<QString(const QString &method, const QString &text)>;

    explicit DBusServicesEndpoint(Handler handler, QObject *parent = nullptr);

    [[nodiscard]] bool registerOn(QDBusConnection bus);

    // Calls the running instance; false with `error` set (the service's own text when it answered).
    static bool call(const QString &method, const QString &text, QString *error,
                     const QDBusConnection &bus = QDBusConnection::sessionBus());
    // Like call(), but first starts this program in the background when no instance runs in the
    // session, and waits until it offers its services.
    static bool callStartingApp(const QString &method, const QString &text, QString *error);

public Q_SLOTS:
    Q_SCRIPTABLE void ReadAloud(const QString &text);
    Q_SCRIPTABLE void ReadSummary(const QString &text);

private:
    void dispatch(const QString &method, const QString &text);

    Handler m_handler;
};

} // namespace parlino
