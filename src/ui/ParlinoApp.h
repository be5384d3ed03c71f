#pragma once

#include "app/CommandLine.h"

#include <QObject>
#include <QPointer>

#include <memory>

namespace parlino {

class AppDelegate;
class DBusApplicationService;
class DBusServicesEndpoint;
class OnboardingWindow;
class SettingsWindow;

// The application as the user sees it: composes the shared services into the start-up sequence,
// keeps to one instance per session, and owns the windows.
class ParlinoApp final : public QObject {
    Q_OBJECT
public:
    ParlinoApp();
    ~ParlinoApp() override;

    // Runs the tray app for a request (plain start, play, URLs); returns the process exit code.
    int run(const LaunchRequest &request);

private:
    bool becomePrimaryOrForward(const LaunchRequest &request, int *exitCode);
    void handleRequest(const LaunchRequest &request);
    void playFile(const QString &path);
    void showSettings();
    void showOnboarding();

    std::unique_ptr<DBusApplicationService> m_bus;
    std::unique_ptr<DBusServicesEndpoint> m_servicesEndpoint;
    std::unique_ptr<AppDelegate> m_delegate;
    QPointer<OnboardingWindow> m_onboarding;
    QPointer<SettingsWindow> m_settings;
};

} // namespace parlino
