#include "platform/linux/FileManagerLauncher.h"

#include "core/Logging.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDesktopServices>
#include <QFileInfo>
#include <QUrl>

namespace parlino {

namespace {

void openFolder(const QString &path)
{
    const QString folder = QFileInfo(path).absolutePath();
    if (!QDesktopServices::openUrl(QUrl::fromLocalFile(folder)))
        PLOG(lcPlatform) << "⚠️ Could not open the folder " << folder;
}

} // namespace

void FileManagerLauncher::showItem(const QString &path)
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        openFolder(path);
        return;
    }
    QDBusMessage call = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.FileManager1"), QStringLiteral("/org/freedesktop/FileManager1"),
        QStringLiteral("org.freedesktop.FileManager1"), QStringLiteral("ShowItems"));
    call << QStringList{QUrl::fromLocalFile(QFileInfo(path).absoluteFilePath()).toString()} << QString();
    auto *watcher = new QDBusPendingCallWatcher(bus.asyncCall(call));
    QObject::connect(watcher, &QDBusPendingCallWatcher::finished, watcher, [path](QDBusPendingCallWatcher *done) {
        const QDBusPendingReply<> reply = *done;
        if (reply.isError()) {
            PLOG(lcPlatform) << "ℹ️ No file manager on the session bus (" << reply.error().message()
                             << "); opening the folder instead";
            openFolder(path);
        }
        done->deleteLater();
    });
}

} // namespace parlino
