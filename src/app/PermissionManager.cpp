#include "app/PermissionManager.h"

#include "app/AppState.h"
#include "app/PermissionDialogs.h"
#include "app/PermissionProbe.h"
#include "core/Logging.h"
#include "core/StackTrace.h"

#include <QCoreApplication>
#include <QDateTime>

namespace parlino {

using namespace std::chrono_literals;

namespace {
constexpr auto kPollInterval = 2s;
constexpr auto kOnboardingSafetyDelay = 30s;
constexpr auto kSettingsDelay = 1s;
} // namespace

PermissionManager::PermissionManager(PermissionProbe &probe, PermissionDialogs &dialogs, AppState &state, Clock &clock,
                                     QObject *parent)
    : QObject(parent)
    , m_probe(probe)
    , m_dialogs(dialogs)
    , m_state(state)
    , m_clock(clock)
{
}

PermissionManager::~PermissionManager()
{
    if (m_pollTimer)
        m_clock.cancel(*m_pollTimer);
}

bool PermissionManager::queryAccessibility(const char *caller)
{
    logAccessibilityQuery(QLatin1String(caller), m_clock.now());
    return m_probe.isAccessibilityEnabled();
}

void PermissionManager::checkAccessibilityPermission()
{
    const bool granted = queryAccessibility("checkAccessibilityPermission");
    if (granted == m_accessibilityGranted)
        return;
    m_accessibilityGranted = granted;
    PLOG(lcApp) << (granted ? "✅ Accessibility permission GRANTED!" : "⚠️ Accessibility permission REVOKED");
    Q_EMIT accessibilityGrantedChanged();
}

void PermissionManager::forceCheckAccessibilityPermission()
{
    const bool granted = queryAccessibility("forceCheckAccessibilityPermission");
    PLOG(lcApp) << "🔄 Force accessibility check:";
    PLOG(lcApp) << "   Permission status: " << (granted ? "GRANTED ✅" : "DENIED ❌");
    if (granted == m_accessibilityGranted) {
        PLOG(lcApp) << "   Status unchanged";
        return;
    }
    PLOG(lcApp) << (granted ? "   Status changed: GRANTED! ✅" : "   Status changed: REVOKED ⚠️");
    m_accessibilityGranted = granted;
    Q_EMIT accessibilityGrantedChanged();
}

void PermissionManager::requestAccessibilityPermission()
{
    if (m_probe.isAccessibilityEnabled()) {
        PLOG(lcApp) << "✅ Accessibility already granted, no need to request";
        return;
    }
    PLOG(lcApp) << "📋 Requesting accessibility permission...";
    m_probe.promptForAccessibility();
    m_clock.singleShot(kSettingsDelay, this, [this] { openAccessibilitySettings(); });
}

void PermissionManager::checkMicrophonePermission()
{
    const bool granted = m_probe.isMicrophoneAvailable();
    if (granted == m_microphoneGranted)
        return;
    m_microphoneGranted = granted;
    Q_EMIT microphoneGrantedChanged();
}

void PermissionManager::requestMicrophonePermission()
{
    // Linux has no per-application microphone prompt: access is granted when a device exists.
    checkMicrophonePermission();
}

void PermissionManager::checkSpeechRecognitionPermission()
{
    const bool granted = m_probe.isSpeechRecognitionAvailable();
    if (granted == m_speechRecognitionGranted)
        return;
    m_speechRecognitionGranted = granted;
    Q_EMIT speechRecognitionGrantedChanged();
}

void PermissionManager::requestSpeechRecognitionPermission()
{
    checkSpeechRecognitionPermission();
}

void PermissionManager::startPolling()
{
    if (m_pollTimer) {
        PLOG(lcApp) << "ℹ️ Permission polling already started";
        return;
    }
    PLOG(lcApp) << "🔄 Starting permission polling (every 2 seconds)";
    m_pollTimer = m_clock.startRepeating(kPollInterval, this, [this] {
        checkAccessibilityPermission();
        checkMicrophonePermission();
        checkSpeechRecognitionPermission();
    });

    // An onboarding that never reports its end would keep the app in its test mode forever.
    // The line says 60s although the step runs after 30 seconds; both are kept as users know them.
    m_clock.singleShot(kOnboardingSafetyDelay, this, [this] {
        if (!m_state.isOnboardingMode())
            return;
        PLOG(lcApp) << "⚠️ Safety timeout triggered - onboarding mode still active after 60s";
        PLOG(lcApp) << "   Force disabling onboarding mode";
        m_state.setIsOnboardingMode(false);
        PLOG(lcApp) << "✅ Onboarding mode force-disabled - permission checks now active";
    });
}

void PermissionManager::showAccessibilityAlert(const std::function<void()> &onComplete)
{
    checkAccessibilityPermission();
    if (m_accessibilityGranted) {
        PLOG(lcApp) << "✅ Accessibility already granted, no alert needed";
        if (onComplete)
            onComplete();
        return;
    }
    PLOG(lcApp) << "⚠️ Showing accessibility permission alert";
    switch (m_dialogs.askForAccessibility()) {
    case PermissionDialogs::Answer::openSettings: requestAccessibilityPermission(); break;
    case PermissionDialogs::Answer::quit: Q_EMIT quitRequested(); break;
    case PermissionDialogs::Answer::later:
    case PermissionDialogs::Answer::openSoundSettings:
    case PermissionDialogs::Answer::chooseRecognizer: break;
    }
}

void PermissionManager::showQAPermissionsAlert(const std::function<void()> &onComplete)
{
    checkMicrophonePermission();
    checkSpeechRecognitionPermission();
    if (m_microphoneGranted && m_speechRecognitionGranted) {
        PLOG(lcApp) << "✅ Q&A permissions already granted, no alert needed";
    } else {
        PLOG(lcApp) << "⚠️ Showing Q&A permissions alert";
        switch (m_dialogs.askForQuestionPermissions(m_microphoneGranted, m_speechRecognitionGranted)) {
        case PermissionDialogs::Answer::openSoundSettings:
            if (!m_probe.openSoundSettings())
                PLOG(lcApp) << "⚠️ No sound settings application found; connect a microphone and choose it as "
                               "your desktop's input device";
            break;
        case PermissionDialogs::Answer::chooseRecognizer: Q_EMIT recognizerSettingsRequested(); break;
        case PermissionDialogs::Answer::openSettings:
        case PermissionDialogs::Answer::quit:
        case PermissionDialogs::Answer::later: break;
        }
        checkMicrophonePermission();
        checkSpeechRecognitionPermission();
    }
    if (onComplete)
        onComplete();
}

void PermissionManager::openAccessibilitySettings()
{
    if (!m_probe.openAccessibilitySettings())
        PLOG(lcApp) << "⚠️ No accessibility settings application found; turn on assistive technologies in "
                       "your desktop's Settings > Accessibility";
}

} // namespace parlino
