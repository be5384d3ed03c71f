#include "platform/linux/LinuxPermissionProbe.h"

#include "core/Logging.h"

#include <QDBusConnection>
#include <QDBusInterface>
#include <QDBusReply>
#include <QDBusVariant>
#include <QDir>
#include <QAudioDevice>
#include <QMediaDevices>
#include <QProcess>
#include <QStandardPaths>

namespace parlino {

namespace {

const QString kA11yService = QStringLiteral("org.a11y.Bus");
const QString kA11yPath = QStringLiteral("/org/a11y/bus");
const QString kA11yStatus = QStringLiteral("org.a11y.Status");
const QString kProperties = QStringLiteral("org.freedesktop.DBus.Properties");

} // namespace

bool LinuxPermissionProbe::isAccessibilityEnabled()
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return false;
    QDBusInterface properties(kA11yService, kA11yPath, kProperties, bus);
    properties.setTimeout(1000);
    const QDBusReply<QDBusVariant> reply =
        properties.call(QStringLiteral("Get"), kA11yStatus, QStringLiteral("IsEnabled"));
    return reply.isValid() && reply.value().variant().toBool();
}

bool LinuxPermissionProbe::isMicrophoneAvailable()
{
    return !QMediaDevices::audioInputs().isEmpty();
}

bool LinuxPermissionProbe::isSpeechRecognitionAvailable()
{
    const QString override = qEnvironmentVariable("PARLINO_SPEECH_MODEL_DIR");
    const QStringList candidates = override.isEmpty()
                                       ? QStringList{QStringLiteral("/usr/share/pocketsphinx/model/en-us/en-us")}
                                       : QStringList{override};
    for (const QString &dir : candidates) {
        if (QDir(dir).exists())
            return true;
    }
    return false;
}

void LinuxPermissionProbe::promptForAccessibility()
{
    // Switching the bus on is what the desktop's "assistive technologies" toggle does; applications
    // started afterwards publish their text.
    QDBusInterface properties(kA11yService, kA11yPath, kProperties, QDBusConnection::sessionBus());
    properties.call(QStringLiteral("Set"), kA11yStatus, QStringLiteral("IsEnabled"),
                    QVariant::fromValue(QDBusVariant(true)));
}

bool LinuxPermissionProbe::openAccessibilitySettings()
{
    struct Candidate {
        const char *program;
        QStringList arguments;
    };
    const Candidate candidates[] = {
        {"gnome-control-center", {QStringLiteral("universal-access")}},
        {"systemsettings", {QStringLiteral("kcm_access")}},
        {"xfce4-accessibility-settings", {}},
        {"mate-at-properties", {}},
        {"cinnamon-settings", {QStringLiteral("accessibility")}},
    };
    for (const Candidate &candidate : candidates) {
        const QString path = QStandardPaths::findExecutable(QLatin1String(candidate.program));
        if (!path.isEmpty() && QProcess::startDetached(path, candidate.arguments)) {
            PLOG(lcPlatform) << "ℹ️ Opened accessibility settings: " << QLatin1String(candidate.program);
            return true;
        }
    }
    return false;
}

} // namespace parlino
