#include "app/AppDelegate.h"

#include "app/AppState.h"
#include "app/PermissionManager.h"
#include "backend/BuildConfig.h"
#include "core/Defaults.h"
#include "core/Logging.h"
#include "core/SettingsKeys.h"

#include <QApplication>
#include <QWidget>

namespace parlino {

using namespace std::chrono_literals;

namespace {

const QString &kOnboardingCompleted = SettingsKeys::onboardingCompleted;
const QString &kHasLaunchedBefore = SettingsKeys::hasLaunchedBefore;

// Everything the app itself keeps in the defaults store about a user. "deviceID" (the backend's
// identifier, spelled differently) is deliberately not here and survives a reset.
const QStringList kResettableKeys{SettingsKeys::onboardingCompleted, SettingsKeys::hasLaunchedBefore,
                                  SettingsKeys::hasViewedOnboarding, SettingsKeys::userEmail,
                                  SettingsKeys::legacyDeviceId};

// The scheme exactly as written: "Parlino://" is not ours, although URL parsers lower-case schemes.
std::optional<QString> rawScheme(const QString &url)
{
    const qsizetype colon = url.indexOf(u':');
    if (colon <= 0)
        return std::nullopt;
    const QString scheme = url.left(colon);
    if (!scheme.front().isLetter())
        return std::nullopt;
    for (QChar c : scheme) {
        if (!(c.isLetterOrNumber() || c == u'+' || c == u'-' || c == u'.') || c.unicode() > 127)
            return std::nullopt;
    }
    return scheme;
}

} // namespace

AppDelegate::AppDelegate(AppComponents components, Defaults &defaults, AppState &state, PermissionManager *permissions,
                         Clock &clock, QObject *parent)
    : QObject(parent)
    , m_components(std::move(components))
    , m_defaults(defaults)
    , m_state(state)
    , m_permissions(permissions)
    , m_clock(clock)
{
}

AppDelegate::~AppDelegate() = default;

void AppDelegate::applicationDidFinishLaunching()
{
    clearCacheIfNeeded();

    PLOG(lcApp) << "🔧 Checking build configuration...";
    BuildConfig::printConfiguration();

    makeSettingsWindowResizable();

    if (m_components.servicesProvider) {
        m_servicesProvider = m_components.servicesProvider();
        PLOG(lcApp) << "✅ Services initialized";
    }
    if (m_components.keyboardManager) {
        m_keyboardManager = m_components.keyboardManager();
        PLOG(lcApp) << "✅ Keyboard shortcuts registered (safe - no permission checks)";
    }
    if (m_components.floatingPlayer) {
        m_floatingPlayerController = m_components.floatingPlayer();
        PLOG(lcApp) << "✅ Floating player initialized";
    }
    if (m_components.statusBar) {
        PLOG(lcApp) << "🚀 ParlinoApp: About to initialize StatusBarController...";
        m_components.statusBar();
        PLOG(lcApp) << "✅ ParlinoApp: StatusBarController initialized";
    }

    const bool onboardingCompleted = m_defaults.boolForKey(kOnboardingCompleted);
    const bool hasLaunchedBefore = m_defaults.boolForKey(kHasLaunchedBefore);
    PLOG(lcApp) << "🔍 onboardingCompleted = " << boolText(onboardingCompleted)
                << ", hasLaunchedBefore = " << boolText(hasLaunchedBefore);

    if (onboardingCompleted) {
        setActivationPolicy(ActivationPolicy::accessory);
        PLOG(lcApp) << "✅ ParlinoApp: Activation policy set to accessory (menu bar only)";
        checkPermissions();
        if (m_permissions)
            m_permissions->startPolling();
        PLOG(lcApp) << "ℹ️ Keyboard shortcuts already active";
    } else {
        setActivationPolicy(ActivationPolicy::regular);
        PLOG(lcApp) << "✅ ParlinoApp: Activation policy set to regular (onboarding not completed)";
        PLOG(lcApp) << "ℹ️ Skipping permission checks - onboarding will handle permissions";
    }

    checkFirstLaunch();
    syncAccountOnLaunch();
}

void AppDelegate::applicationWillTerminate()
{
    if (m_components.stopPlayback)
        m_components.stopPlayback();
}

void AppDelegate::clearCacheIfNeeded()
{
    const QStringList keys = m_defaults.allKeys();
    const bool hasAppData = std::any_of(keys.begin(), keys.end(), [](const QString &key) {
        return key.contains(QStringLiteral("onboarding")) || key == kHasLaunchedBefore;
    });
    if (!hasAppData) {
        PLOG(lcApp) << "ℹ️ No Parlino data found - fresh install";
        return;
    }

    const bool onboardingCompleted = m_defaults.boolForKey(kOnboardingCompleted);
    const bool hasLaunchedBefore = m_defaults.boolForKey(kHasLaunchedBefore);
    // Onboarding cannot have finished without a first launch: such a state came from a crash or a
    // hand-edited file, and only a clean start is safe.
    if (onboardingCompleted && !hasLaunchedBefore) {
        PLOG(lcApp) << "⚠️ CORRUPTED STATE DETECTED:";
        PLOG(lcApp) << "   onboardingCompleted = true";
        PLOG(lcApp) << "   hasLaunchedBefore = false";
        PLOG(lcApp) << "🧹 Clearing ALL UserDefaults to reset app state...";
        for (const QString &key : kResettableKeys) {
            m_defaults.remove(key);
            PLOG(lcApp) << "   🗑️ Removed: " << key;
        }
        m_defaults.synchronize();
        PLOG(lcApp) << "✅ UserDefaults cleared successfully - fresh start";
        PLOG(lcApp) << "🔍 Verification after clearing:";
        PLOG(lcApp) << "   onboardingCompleted = " << boolText(m_defaults.boolForKey(kOnboardingCompleted));
        PLOG(lcApp) << "   hasLaunchedBefore = " << boolText(m_defaults.boolForKey(kHasLaunchedBefore));
        return;
    }
    PLOG(lcApp) << "✅ UserDefaults state is valid:";
    PLOG(lcApp) << "   onboardingCompleted = " << boolText(onboardingCompleted);
    PLOG(lcApp) << "   hasLaunchedBefore = " << boolText(hasLaunchedBefore);
}

void AppDelegate::makeSettingsWindowResizable()
{
    m_clock.singleShot(500ms, this, [] {
        for (QWidget *window : QApplication::topLevelWidgets()) {
            if (!window->windowTitle().contains(QStringLiteral("Settings"))
                && !window->objectName().contains(QStringLiteral("Settings")))
                continue;
            window->setMinimumSize(650, 550);
            window->setMaximumSize(1200, 900);
            PLOG(lcApp) << "✅ Settings window made resizable";
            return;
        }
    });
}

void AppDelegate::checkPermissions()
{
    if (!m_permissions)
        return;
    PLOG(lcApp) << "🔐 Checking permissions...";
    m_permissions->checkAccessibilityPermission();
    m_permissions->checkMicrophonePermission();
    m_permissions->checkSpeechRecognitionPermission();

    m_clock.singleShot(1s, this, [this] {
        if (!m_defaults.boolForKey(kHasLaunchedBefore)) {
            PLOG(lcApp) << "ℹ️ First launch - onboarding will handle permissions";
            return;
        }
        m_permissions->checkAccessibilityPermission();
        m_permissions->checkMicrophonePermission();
        m_permissions->checkSpeechRecognitionPermission();
        if (m_permissions->accessibilityGranted()) {
            PLOG(lcApp) << "✅ Accessibility permission granted";
            if (m_permissions->microphoneGranted() && m_permissions->speechRecognitionGranted())
                PLOG(lcApp) << "✅ Q&A permissions granted";
            else
                PLOG(lcApp) << "ℹ️ Q&A permissions not granted (optional)";
            return;
        }
        PLOG(lcApp) << "⚠️ Accessibility permission missing - will show alert";
        m_clock.singleShot(500ms, this, [this] {
            if (!m_permissions->accessibilityGranted())
                m_permissions->showAccessibilityAlert({});
        });
    });
}

void AppDelegate::checkFirstLaunch()
{
    const bool onboardingCompleted = m_defaults.boolForKey(kOnboardingCompleted);
    const bool hasLaunchedBefore = m_defaults.boolForKey(kHasLaunchedBefore);
    PLOG(lcApp) << "🔍 Onboarding status: completed=" << boolText(onboardingCompleted)
                << ", hasLaunchedBefore=" << boolText(hasLaunchedBefore);
    if (onboardingCompleted) {
        PLOG(lcApp) << "✅ Onboarding already completed - skipping";
        return;
    }
    PLOG(lcApp) << "📋 Showing onboarding (first launch or incomplete onboarding)";
    PLOG(lcApp) << "🧹 Clearing stale data from UserDefaults...";
    for (const QString &key : {kHasLaunchedBefore, kOnboardingCompleted, SettingsKeys::hasViewedOnboarding})
        m_defaults.remove(key);
    PLOG(lcApp) << "✅ Stale data cleared - fresh start for onboarding";
    m_state.setShowingOnboarding(true);
    if (m_components.showOnboarding)
        m_components.showOnboarding();
}

void AppDelegate::syncAccountOnLaunch()
{
    if (!m_defaults.boolForKey(kOnboardingCompleted)) {
        PLOG(lcApp) << "ℹ️ Skipping account sync - onboarding not completed yet";
        return;
    }
    // Runs after start-up has finished; start-up never waits for the network.
    QMetaObject::invokeMethod(
        this,
        [this] {
            const std::optional<QString> email = m_state.userEmail();
            if (!email || email->isEmpty()) {
                PLOG(lcApp) << "ℹ️ No account linked - skipping sync on launch";
                return;
            }
            PLOG(lcApp) << "🔄 Syncing account data for " << *email << " on app launch...";
            if (m_components.syncAccount)
                m_components.syncAccount(*email);
        },
        Qt::QueuedConnection);
}

void AppDelegate::openURLs(const QStringList &urls)
{
    if (urls.isEmpty())
        return;
    const QString &first = urls.first();
    const std::optional<QString> scheme = rawScheme(first);
    if (scheme != QStringLiteral("parlino")) {
        PLOG(lcApp) << "⚠️ URL redirect ignored - wrong scheme: " << scheme.value_or(QStringLiteral("nil"));
        return;
    }
    const QUrl url(first);
    PLOG(lcApp) << "🔗 Received URL redirect: " << url.toString(QUrl::FullyEncoded);
    PLOG(lcApp) << "📍 URL path: " << url.host() << ", components: " << url.path();
    // Each action is a named host of the parlino scheme.
    if (url.host() == u"library" || url.host() == u"podcasts") {
        if (m_components.showLibrary)
            m_components.showLibrary(url.host() == u"library" ? LibraryTab::savedAudio : LibraryTab::podcasts);
        return;
    }
    // The other windows the user can open are hosts of the scheme too.
    if (m_components.openWindow && m_components.openWindow(url.host()))
        return;
    PLOG(lcApp) << "⚠️ Unknown URL path: " << url.host();
}

void AppDelegate::completeOnboarding()
{
    m_defaults.set(kOnboardingCompleted, true);
    m_defaults.set(kHasLaunchedBefore, true);
    m_state.setShowingOnboarding(false);
    setActivationPolicy(ActivationPolicy::accessory);
    PLOG(lcApp) << "✅ Onboarding completed - Parlino now lives in the system tray";
    if (m_permissions)
        m_permissions->startPolling();
}

void AppDelegate::setActivationPolicy(ActivationPolicy policy)
{
    m_activationPolicy = policy;
    if (m_components.applyActivationPolicy)
        m_components.applyActivationPolicy(policy);
    Q_EMIT activationPolicyChanged(policy);
}

} // namespace parlino
