#include "platform/linux/LinuxPermissionProbe.h"

#include "core/Logging.h"
#include "platform/linux/AccessibilityStatus.h"

#include <QAudioDevice>
#include <QDir>
#include <QMediaDevices>
#include <QProcess>
#include <QStandardPaths>

namespace parlino {

bool LinuxPermissionProbe::isAccessibilityEnabled()
{
    return AccessibilityStatus::isEnabled();
}

bool LinuxPermissionProbe::isMicrophoneAvailable()
{
    return !QMediaDevices::audioInputs().isEmpty();
}

bool LinuxPermissionProbe::isSpeechRecognitionAvailable()
{
    if (m_speechCheck)
        return m_speechCheck();
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
    AccessibilityStatus::setEnabled(true);
}

bool LinuxPermissionProbe::openAccessibilitySettings()
{
    struct Candidate {
        const char *program = nullptr;
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

bool LinuxPermissionProbe::openSoundSettings()
{
    struct Candidate {
        const char *program = nullptr;
        QStringList arguments;
    };
    const Candidate candidates[] = {
        {"pavucontrol", {QStringLiteral("--tab=4")}}, // its input devices
        {"gnome-control-center", {QStringLiteral("sound")}},
        {"systemsettings", {QStringLiteral("kcm_pulseaudio")}},
        {"xfce4-pulseaudio-plugin", {}},
        {"mate-volume-control", {}},
        {"cinnamon-settings", {QStringLiteral("sound")}},
    };
    for (const Candidate &candidate : candidates) {
        const QString path = QStandardPaths::findExecutable(QLatin1String(candidate.program));
        if (!path.isEmpty() && QProcess::startDetached(path, candidate.arguments)) {
            PLOG(lcPlatform) << "ℹ️ Opened sound settings: " << QLatin1String(candidate.program);
            return true;
        }
    }
    return false;
}

} // namespace parlino
