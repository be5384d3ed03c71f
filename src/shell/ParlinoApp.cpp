#include "shell/ParlinoApp.h"

#include "app/AppDelegate.h"
#include "app/AppState.h"
#include "app/PermissionManager.h"
#include "app/ServicesProvider.h"
#include "backend/ModelAvailability.h"
#include "backend/OpenAIConnection.h"
#include "cli/LibraryCommands.h"
#include "cli/OpenAICommands.h"
#include "cli/ServiceClient.h"
#include "core/Logging.h"
#include "input/HotKeyID.h"
#include "input/KeyboardShortcutManager.h"
#include "library/PodcastStorageService.h"
#include "library/SavedAudioStorageService.h"
#include "platform/linux/DBusApplicationService.h"
#include "platform/linux/DBusServicesEndpoint.h"
#include "playback/AudioPlayerManager.h"
#include "shell/AppServices.h"
#include "ui/FloatingPlayerWindowController.h"
#include "ui/MenuPopoverView.h"
#include "ui/OnboardingWindow.h"
#include "ui/SettingsWindow.h"
#include "ui/StatusBarController.h"

#include <QApplication>
#include <QFileInfo>

#include <cstdio>

namespace parlino {

ParlinoApp::ParlinoApp()
    : m_services(std::make_unique<AppServices>())
    , m_bus(std::make_unique<DBusApplicationService>())
{
}

ParlinoApp::~ParlinoApp()
{
    delete m_onboarding;
    delete m_settings;
}

int ParlinoApp::runSubcommand(const LaunchRequest &request)
{
    if (request.command == u"library")
        return runLibraryCommand(SavedAudioStorageService(), PodcastStorageService(), request.arguments);
    AppServices services;
    if (request.command == u"synthesize")
        return runSynthesizeCommand(services.speechSynthesizer(), services.offlineSpeech(), request.arguments);
    return runSummarizeCommand(services.openAIClient(), request.arguments);
}

int ParlinoApp::runServiceRequest(const LaunchRequest &request)
{
    return runServiceCommand(request.command, request.arguments, &DBusServicesEndpoint::callStartingApp);
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
    default: forwarded = DBusApplicationService::forwardActivate(&error); break;
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
    AppServices &services = *m_services;

    AppComponents components;
    components.servicesProvider = [this, &services] {
        ServicesProvider &provider = services.servicesProvider();
        m_servicesEndpoint =
            std::make_unique<DBusServicesEndpoint>([&provider](const QString &method, const QString &text) {
                return method == u"ReadSummary" ? provider.readSummary(text) : provider.readAloud(text);
            });
        if (!m_servicesEndpoint->registerOn(m_bus->connection()))
            PWARN(lcApp) << "⚠️ Could not offer the read-aloud service on the session bus";
        return &provider;
    };
    components.keyboardManager = [&services] { return &services.shortcutManager(); };
    components.floatingPlayer = [&services] { return &services.floatingPlayer(); };
    components.stopPlayback = [&services] { services.player().stop(false); };
    components.statusBar = [this, &services] {
        m_statusBar = new StatusBarController([this, &services](QWidget *popover) {
            auto *view = new MenuPopoverView(services.appState(), popover);
            connect(view, &MenuPopoverView::settingsRequested, this, [this, popover] {
                popover->hide();
                showSettings();
            });
            connect(view, &MenuPopoverView::quitRequested, qApp, &QCoreApplication::quit);
            connect(view, &MenuPopoverView::stopRequested, this, [&services] { services.player().stop(false); });
            connect(view, &MenuPopoverView::readSelectionRequested, this, [popover, &services] {
                // The popover closes first so the selection is read from the application behind it.
                popover->hide();
                services.shortcutManager().handleHotKey(HotKeyID::readAloud);
            });
            return view;
        });
        m_statusBar->setParent(this);
        m_statusBar->setupStatusBar();
    };
    components.showOnboarding = [this] { showOnboarding(); };
    components.applyActivationPolicy = [this](ActivationPolicy policy) {
        if (policy == ActivationPolicy::accessory && m_onboarding)
            m_onboarding->hide();
    };

    m_delegate = std::make_unique<AppDelegate>(std::move(components), services.defaults(), services.appState(),
                                               &services.permissionManager());
    connect(qApp, &QCoreApplication::aboutToQuit, this, [this] { m_delegate->applicationWillTerminate(); });
    connect(m_bus.get(), &DBusApplicationService::openRequested, this,
            [this](const QStringList &uris) { m_delegate->openURLs(uris); });
    connect(m_bus.get(), &DBusApplicationService::activateRequested, this, [this] {
        if (m_statusBar)
            m_statusBar->showPopover();
    });
    connect(m_bus.get(), &DBusApplicationService::actionRequested, this,
            [this](const QString &action, const QVariantList &parameters) {
                if (action == u"play" && parameters.size() == 1)
                    playFile(parameters.first().toString());
                else
                    PLOG(lcApp) << "⚠️ Unknown action requested: " << action;
            });

    m_delegate->applicationDidFinishLaunching();
    // Announced shutdown dates for the settings window; asked after start-up, at most once a day.
    if (services.openAIConnection().apiKey())
        services.modelAvailability().start();
    // Usage events for the hosted database, when one is configured; nothing waits for it.
    services.startSync();
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
        m_services->servicesProvider().showError(
            QStringLiteral("Cannot play “%1”: the file does not exist or cannot be read.").arg(path));
        return;
    }
    PLOG(lcApp) << "▶️ Playing " << file.absoluteFilePath();
    m_services->appState().setCurrentPlayingTitle(file.completeBaseName());
    m_services->player().play(QUrl::fromLocalFile(file.absoluteFilePath()));
}

void ParlinoApp::showSettings()
{
    if (!m_settings)
        m_settings = new SettingsWindow(m_services->appState(), m_services->defaults(), m_services->modelSettings(),
                                        m_services->modelAvailability());
    m_settings->show();
    m_settings->raise();
    m_settings->activateWindow();
}

void ParlinoApp::showOnboarding()
{
    if (!m_onboarding) {
        m_onboarding = new OnboardingWindow(m_services->defaults(), m_services->permissionManager());
        connect(m_onboarding, &OnboardingWindow::finished, this, [this] { m_delegate->completeOnboarding(); });
    }
    m_onboarding->show();
    m_onboarding->raise();
    m_onboarding->activateWindow();
}

} // namespace parlino
