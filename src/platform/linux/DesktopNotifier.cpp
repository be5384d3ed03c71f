#include "platform/linux/DesktopNotifier.h"

#include "core/Logging.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCall>
#include <QDBusPendingCallWatcher>
#include <QVariantMap>

namespace parlino {

void DesktopNotifier::notify(const QString &title, const QString &body)
{
    QDBusMessage call = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.Notifications"), QStringLiteral("/org/freedesktop/Notifications"),
        QStringLiteral("org.freedesktop.Notifications"), QStringLiteral("Notify"));
    call.setArguments(
        {QStringLiteral("Parlino"), 0U, QStringLiteral("parlino"), title, body, QStringList(), QVariantMap(), -1});
    auto *watcher = new QDBusPendingCallWatcher(QDBusConnection::sessionBus().asyncCall(call));
    QObject::connect(watcher, &QDBusPendingCallWatcher::finished, watcher, [title, body](QDBusPendingCallWatcher *w) {
        if (w->isError())
            PWARN(lcPlatform) << "⚠️ Could not show notification (" << w->error().message() << "): " << title
                              << " — " << body;
        w->deleteLater();
    });
}

} // namespace parlino
