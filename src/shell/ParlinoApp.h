#pragma once

#include "cli/CommandLine.h"

#include <QObject>
#include <QPointer>

#include <memory>

namespace parlino {

class AppDelegate;
enum class LibraryTab;
class AppServices;
class DBusApplicationService;
class DBusServicesEndpoint;
class DashboardWindow;
class LibraryWindow;
class OnboardingWindow;
class SettingsWindow;
class StatusBarController;

// The application as the user sees it: composes the process's services into the start-up sequence,
// keeps to one instance per session, and owns the windows. Also runs the command-line requests that
// need no tray app.
class ParlinoApp final : public QObject {
    Q_OBJECT
public:
    ParlinoApp();
    ~ParlinoApp() override;

    // Runs the tray app for a request (plain start, play, URLs); returns the process exit code.
    int run(const LaunchRequest &request);

    // A subcommand (synthesize, summarize, library): needs a QCoreApplication, no display.
    static int runSubcommand(const LaunchRequest &request);
    // --read-aloud / --read-summary: hands the text to the running app, starting it when needed.
    static int runServiceRequest(const LaunchRequest &request);

private:
    bool becomePrimaryOrForward(const LaunchRequest &request, int *exitCode);
    void handleRequest(const LaunchRequest &request);
    void playFile(const QString &path);
    void showSettings();
    void showDashboard();
    void showOnboarding();
    void showLibrary(LibraryTab tab);

    std::unique_ptr<AppServices> m_services;
    std::unique_ptr<DBusApplicationService> m_bus;
    std::unique_ptr<DBusServicesEndpoint> m_servicesEndpoint;
    std::unique_ptr<AppDelegate> m_delegate;
    QPointer<OnboardingWindow> m_onboarding;
    QPointer<SettingsWindow> m_settings;
    QPointer<DashboardWindow> m_dashboard;
    QPointer<LibraryWindow> m_library;
    QPointer<StatusBarController> m_statusBar;
};

} // namespace parlino
