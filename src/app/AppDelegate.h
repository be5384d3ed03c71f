#pragma once

#include "core/Clock.h"

#include <QObject>
#include <QPointer>
#include <QStringList>

#include <functional>

namespace parlino {

class AppState;
class Defaults;
class PermissionManager;

enum class ActivationPolicy { regular, accessory };
// The tab the library window opens on.
enum class LibraryTab { savedAudio, podcasts };

// The long-lived parts that start-up creates, in order. Each is optional: a part that does not exist
// in this build is skipped. main() fills this with the production singletons.
struct AppComponents {
    std::function<QObject *()> servicesProvider;
    std::function<QObject *()> keyboardManager;
    std::function<QObject *()> floatingPlayer;
    std::function<void()> statusBar; // creates and sets up the tray icon
    std::function<void()> showOnboarding;
    std::function<void()> stopPlayback;
    std::function<void(const QString &email)> syncAccount;
    std::function<void(ActivationPolicy)> applyActivationPolicy;
    // Opens the window a parlino:// URL names by its host ("dashboard", "settings"); false when there is
    // no such window.
    std::function<bool(const QString &host)> openWindow;
    std::function<void(LibraryTab)> showLibrary; // parlino://library and parlino://podcasts
};

// Start-up and shutdown: validates the persisted state, creates the services in a fixed order, picks
// tray-only or regular mode, shows onboarding on a first launch and handles parlino:// URLs.
class AppDelegate final : public QObject {
    Q_OBJECT
public:
    AppDelegate(AppComponents components, Defaults &defaults, AppState &state, PermissionManager *permissions,
                Clock &clock = Clock::system(), QObject *parent = nullptr);
    ~AppDelegate() override;

    void applicationDidFinishLaunching();
    void applicationWillTerminate();
    // URLs handed to the app (command line or a second launch); only the first one is handled.
    void openURLs(const QStringList &urls);
    // The onboarding flow's last step: remembers it, switches to tray-only mode, starts permission polling.
    void completeOnboarding();

    [[nodiscard]] ActivationPolicy activationPolicy() const { return m_activationPolicy; }

Q_SIGNALS:
    void activationPolicyChanged(parlino::ActivationPolicy policy);

private:
    void clearCacheIfNeeded();
    void makeSettingsWindowResizable();
    void checkPermissions();
    void checkFirstLaunch();
    void syncAccountOnLaunch();
    void setActivationPolicy(ActivationPolicy policy);

    AppComponents m_components;
    Defaults &m_defaults;
    AppState &m_state;
    PermissionManager *m_permissions;
    Clock &m_clock;

    QPointer<QObject> m_servicesProvider;
    QPointer<QObject> m_keyboardManager;
    QPointer<QObject> m_floatingPlayerController;
    ActivationPolicy m_activationPolicy = ActivationPolicy::regular;
};

} // namespace parlino
