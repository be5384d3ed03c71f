#include "ui/ParlinoApp.h"

#include "app/AppDelegate.h"
#include "app/AppShortcutActions.h"
#include "app/ServicesProvider.h"
#include "input/HotKeyID.h"
#include "input/KeyboardShortcutManager.h"
#include "playback/AudioPlayerManager.h"
#include "playback/FloatingPlayerWindowController.h"
#include "platform/linux/DBusServicesEndpoint.h"
#include "platform/linux/DesktopNotifier.h"
#include "platform/linux/LinuxInputPlatform.h"
#include "app/AppState.h"
#include "app/PermissionManager.h"
#include "app/StatusBarController.h"
#include "core/Defaults.h"
#include "core/Logging.h"
#include "platform/linux/DBusApplicationService.h"
#include "ui/FloatingPlayerView.h"
#include "ui/MenuPopoverView.h"
#include "ui/OnboardingWindow.h"
#include "ui/SettingsWindow.h"

#include <QApplication>
#include <QFileInfo>

#include <cstdio>

namespace parlino {

ParlinoApp::ParlinoApp()
    : m_bus(std::make_unique<DBusApplicationService>())
{
}

ParlinoApp::~ParlinoApp()
{
    delete m_onboarding;
    delete m_settings;
}

bool ParlinoApp::becomePrimaryOrForward(const LaunchRequest &request, int *exitCode)
{
    QString error;
    if (m_bus->registerPrimary(&error))
        return true;
    if (!m_bus->connection().isConnected()) {
        PWARN(lcApp) << "⚠️ No D-Bus session bus (" << error << "); running without single-instance support";
        return true;
    }

    // Another Parlino runs in this session: hand it the request.
    bool forwarded = false;
    switch (request.kind) {
    case LaunchRequest::Kind::play:
        forwarded = DBusApplicationService::forwardAction(
            QStringLiteral("play"), {QFileInfo(request.arguments.first()).absoluteFilePath()}, &error);
        break;
    case LaunchRequest::Kind::openUrls:
        forwarded = DBusApplicationService::forwardOpen(request.arguments, &error);
        break;
    default:
        forwarded = DBusApplicationService::forwardActivate(&error);
        break;
    }
    if (!forwarded)
        std::fprintf(stderr, "parlino: could not reach the running instance: %s\n", qPrintable(error));
    *exitCode = forwarded ? 0 : 1;
    return false;
}

int ParlinoApp::run(const LaunchRequest &request)
{
    int exitCode = 0;
    if (!becomePrimaryOrForward(request, &exitCode))
        return exitCode;

    QApplication::setQuitOnLastWindowClosed(false);
    LinuxInputPlatform::install();

    AppComponents components;
    components.servicesProvider = [this] {
        ServicesProvider &services = ServicesProvider::shared();
        m_servicesEndpoint = std::make_unique<DBusServicesEndpoint>([&services](const QString &method, const QString &text) {
            return method == u"ReadSummary" ? services.readSummary(text) : services.readAloud(text);
        });
        if (!m_servicesEndpoint->registerOn(m_bus->connection()))
            PWARN(lcApp) << "⚠️ Could not offer the read-aloud service on the session bus";
        return &services;
    };
    components.keyboardManager = [] {
        KeyboardShortcutManager &shortcuts = KeyboardShortcutManager::shared();
        shortcuts.setActions(&AppShortcutActions::shared());
        return &shortcuts;
    };
    components.floatingPlayer = [] {
        FloatingPlayerWindowController &controller = FloatingPlayerWindowController::shared();
        installFloatingPlayerView();
        return &controller;
    };
    components.stopPlayback = [] { AudioPlayerManager::shared().stop(false); };
    components.statusBar = [this] {
        return new StatusBarController([this](QWidget *popover) {
            auto *view = new MenuPopoverView(AppState::shared(), popover);
            connect(view, &MenuPopoverView::settingsRequested, this, [this, popover] {
                popover->hide();
                showSettings();
            });
            connect(view, &MenuPopoverView::quitRequested, qApp, &QCoreApplication::quit);
            connect(view, &MenuPopoverView::stopRequested, this, [] { AudioPlayerManager::shared().stop(false); });
            connect(view, &MenuPopoverView::readSelectionRequested, this, [popover] {
                // The popover closes first so the selection is read from the application behind it.
                popover->hide();
                KeyboardShortcutManager::shared().handleHotKey(HotKeyID::readAloud);
            });
            return view;
        });
    };
    components.showOnboarding = [this] { showOnboarding(); };
    components.applyActivationPolicy = [this](ActivationPolicy policy) {
        if (policy == ActivationPolicy::accessory && m_onboarding)
            m_onboarding->hide();
    };

    m_delegate = std::make_unique<AppDelegate>(std::move(components), Defaults::shared(), AppState::shared(),
                                               &PermissionManager::shared());
    connect(qApp, &QCoreApplication::aboutToQuit, this, [this] { m_delegate->applicationWillTerminate(); });
    connect(m_bus.get(), &DBusApplicationService::openRequested, this,
            [this](const QStringList &uris) { m_delegate->openURLs(uris); });
    connect(m_bus.get(), &DBusApplicationService::activateRequested, this, [this] {
        if (StatusBarController *statusBar = m_delegate->statusBarController())
            statusBar->showPopover();
    });
    connect(m_bus.get(), &DBusApplicationService::actionRequested, this,
            [this](const QString &action, const QVariantList &parameters) {
                if (action == u"play" && parameters.size() == 1)
                    playFile(parameters.first().toString());
                else
                    PLOG(lcApp) << "⚠️ Unknown action requested: " << action;
            });

    m_delegate->applicationDidFinishLaunching();
    handleRequest(request);
    return QApplication::exec();
}

void ParlinoApp::handleRequest(const LaunchRequest &request)
{
    if (request.kind == LaunchRequest::Kind::openUrls)
        m_delegate->openURLs(request.arguments);
    else if (request.kind == LaunchRequest::Kind::play)
        playFile(QFileInfo(request.arguments.first()).absoluteFilePath());
}

void ParlinoApp::playFile(const QString &path)
{
    const QFileInfo file(path);
    if (!file.isFile() || !file.isReadable()) {
        ServicesProvider::shared().showError(QStringLiteral("Cannot play “%1”: the file does not exist or cannot be read.")
                                                 .arg(path));
        return;
    }
    PLOG(lcApp) << "▶️ Playing " << file.absoluteFilePath();
    AppState::shared().setCurrentPlayingTitle(file.completeBaseName());
    AudioPlayerManager::shared().play(QUrl::fromLocalFile(file.absoluteFilePath()));
}

void ParlinoApp::showSettings()
{
    if (!m_settings)
        m_settings = new SettingsWindow(AppState::shared(), Defaults::shared());
    m_settings->show();
    m_settings->raise();
    m_settings->activateWindow();
}

void ParlinoApp::showOnboarding()
{
    if (!m_onboarding) {
        m_onboarding = new OnboardingWindow(Defaults::shared(), PermissionManager::shared());
        connect(m_onboarding, &OnboardingWindow::finished, this, [this] { m_delegate->completeOnboarding(); });
    }
    m_onboarding->show();
    m_onboarding->raise();
    m_onboarding->activateWindow();
}

} // namespace parlino
