#include "shell/ParlinoApp.h"

#include "app/AppDelegate.h"
#include "app/AppShortcutActions.h"
#include "app/AppState.h"
#include "app/LibraryActions.h"
#include "app/PermissionManager.h"
#include "app/ServicesProvider.h"
#include "backend/ModelAvailability.h"
#include "backend/OpenAIConnection.h"
#include "cli/AccountCommands.h"
#include "cli/LibraryCommands.h"
#include "cli/OpenAICommands.h"
#include "cli/PodcastCommand.h"
#include "cli/ServiceClient.h"
#include "cli/UsageCommands.h"
#include "core/Clock.h"
#include "core/Error.h"
#include "core/Logging.h"
#include "core/Paths.h"
#include "input/HotKeyID.h"
#include "input/KeyboardShortcutManager.h"
#include "library/PodcastStorageService.h"
#include "library/SavedAudioStorageService.h"
#include "platform/linux/DBusApplicationService.h"
#include "platform/linux/DBusServicesEndpoint.h"
#include "platform/linux/FileManagerLauncher.h"
#include "platform/linux/XdgAutostart.h"
#include "playback/AudioFileType.h"
#include "playback/AudioPlayerManager.h"
#include "shell/AppServices.h"
#include "ui/AppearanceApplier.h"
#include "ui/DashboardWindow.h"
#include "ui/FloatingPlayerWindowController.h"
#include "ui/LibraryWindow.h"
#include "ui/MenuPopoverView.h"
#include "ui/OnboardingWindow.h"
#include "ui/SettingsWindow.h"
#include "ui/StatusBarController.h"
#include "usage/UsageTrackingService.h"

#include <QApplication>
#include <QFileInfo>

#include <cstdio>

namespace parlino {

namespace {

// A podcast asked for over the bus: in the named style, or the one chosen in the settings.
QCoro::Task<QString> createPodcast(AppServices &services, QString text, QString typeName)
{
    if (text.trimmed().isEmpty())
        throw Error(QStringLiteral("No text to make a podcast from"));
    PodcastType type = services.appState().selectedPodcastType();
    if (!typeName.isEmpty()) {
        const std::optional<PodcastType> named = podcastTypeNamed(typeName);
        if (!named)
            throw Error(unknownPodcastTypeMessage(typeName));
        type = *named;
    }
    QCoro::Task<Podcast> making = services.libraryActions().makePodcast(text, type);
    const Podcast podcast = co_await making;
    co_return podcast.title;
}

} // namespace

ParlinoApp::ParlinoApp()
    : m_services(std::make_unique<AppServices>())
    , m_bus(std::make_unique<DBusApplicationService>())
{
}

ParlinoApp::~ParlinoApp()
{
    delete m_onboarding;
    delete m_settings;
    delete m_dashboard;
    delete m_library;
}

int ParlinoApp::runSubcommand(const LaunchRequest &request)
{
    if (request.command == u"library")
        return runLibraryCommand(SavedAudioStorageService(), PodcastStorageService(), request.arguments);
    AppServices services;
    if (request.command == u"account") {
        return runAccountCommand(services.accountSync(), services.defaults(), request.arguments, [] {
            // A running app reads the account again; without one the settings file is all there is.
            QString unreached;
            (void)DBusApplicationService::forwardAction(QStringLiteral("account-changed"), {}, &unreached);
        });
    }
    if (request.command == u"usage") {
        const UsageTrackingService usage(services.defaults(), Clock::system());
        return runUsageCommand(usage, request.arguments);
    }
    if (request.command == u"synthesize")
        return runSynthesizeCommand(services.speechSynthesizer(), services.offlineSpeech(), request.arguments,
                                    services.maxTextLength());
    return runSummarizeCommand(services.openAIClient(), request.arguments, services.maxTextLength());
}

int ParlinoApp::runServiceRequest(const LaunchRequest &request)
{
    if (request.command == u"CreatePodcast")
        return runPodcastCommand(request.arguments, &DBusServicesEndpoint::createPodcastStartingApp);
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
    // Speech files a crash or a kill left behind; those of a command still running are kept.
    Paths::removeTemporaryLeftovers();

    AppComponents components;
    components.servicesProvider = [this, &services] {
        ServicesProvider &provider = services.servicesProvider();
        m_servicesEndpoint =
            std::make_unique<DBusServicesEndpoint>([&provider](const QString &method, const QString &text) {
                return method == u"ReadSummary" ? provider.readSummary(text) : provider.readAloud(text);
            });
        m_servicesEndpoint->setPodcastHandler([&services](QString text, QString type) {
            return createPodcast(services, std::move(text), std::move(type));
        });
        // Enough for a person or a desktop shortcut; a script calling in a loop is refused.
        m_servicesEndpoint->limitRate(5, std::chrono::seconds(10), Clock::system());
        if (!m_servicesEndpoint->registerOn(m_bus->connection()))
            PWARN(lcApp) << "⚠️ Could not offer the read-aloud service on the session bus";
        return &provider;
    };
    components.keyboardManager = [this, &services] {
        // The shortcut raises the window on the tab it shows, or opens it on the saved audio.
        services.shortcutActions().setLibraryOpener([this] {
            const bool podcasts = m_library && m_library->currentTab() == LibraryWindow::Tab::podcasts;
            showLibrary(podcasts ? LibraryTab::podcasts : LibraryTab::savedAudio);
        });
        return &services.shortcutManager();
    };
    components.showLibrary = [this](LibraryTab tab) { showLibrary(tab); };
    components.floatingPlayer = [this, &services] {
        // The voice questions' alert offers the settings where the recognizer is chosen.
        connect(&services.permissionManager(), &PermissionManager::recognizerSettingsRequested, this, [this] {
            showSettings();
            m_settings->showPage(QStringLiteral("Speech"));
        });
        return &services.floatingPlayer();
    };
    components.stopPlayback = [&services] { services.player().stop(false); };
    components.syncAccount = [&services](const QString &email) { services.syncAccount(email); };
    components.statusBar = [this, &services] {
        m_statusBar = new StatusBarController([this, &services](QWidget *popover) {
            auto *view =
                new MenuPopoverView(services.appState(), &services.savedAudio(), &services.podcasts(), popover);
            // The popover closes first, so a window it opens comes to the front and a selection is read from
            // the application behind it.
            const auto closing = [this, popover](std::function<void()> action) {
                return [popover, action = std::move(action)] {
                    popover->hide();
                    action();
                };
            };
            const auto hotKey = [&services](HotKeyID id) {
                return [&services, id] { services.shortcutManager().handleHotKey(id); };
            };
            connect(view, &MenuPopoverView::settingsRequested, this, closing([this] { showSettings(); }));
            connect(view, &MenuPopoverView::dashboardRequested, this, closing([this] { showDashboard(); }));
            connect(view, &MenuPopoverView::libraryRequested, this,
                    closing([this] { showLibrary(LibraryTab::savedAudio); }));
            connect(view, &MenuPopoverView::readSelectionRequested, this, closing(hotKey(HotKeyID::readAloud)));
            connect(view, &MenuPopoverView::readSummaryRequested, this, closing(hotKey(HotKeyID::readSummary)));
            connect(view, &MenuPopoverView::podcastRequested, this, closing(hotKey(HotKeyID::generatePodcast)));
            connect(view, &MenuPopoverView::recentItemPlayed, popover, &QWidget::hide);
            connect(view, &MenuPopoverView::quitRequested, qApp, &QCoreApplication::quit);
            connect(view, &MenuPopoverView::playPauseRequested, this,
                    [&services] { services.player().togglePlayPause(); });
            connect(view, &MenuPopoverView::stopRequested, this, [&services] { services.player().stop(false); });
            return view;
        });
        m_statusBar->setParent(this);
        m_statusBar->setupStatusBar();
    };
    components.showOnboarding = [this] { showOnboarding(); };
    components.openWindow = [this](const QString &host) {
        if (host == u"dashboard")
            showDashboard();
        else if (host == u"settings")
            showSettings();
        else
            return false;
        return true;
    };
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
                // "read-selection" and "settings" are the desktop entry's actions, which launchers send here.
                if (action == u"play" && parameters.size() == 1)
                    playFile(parameters.first().toString());
                else if (action == u"read-selection")
                    m_services->shortcutManager().handleHotKey(HotKeyID::readAloud);
                else if (action == u"settings")
                    showSettings();
                else if (action == u"account-changed")
                    m_services->reloadAccount();
                else
                    PLOG(lcApp) << "⚠️ Unknown action requested: " << action;
            });

    // The chosen appearance before the first window shows.
    new AppearanceApplier(services.appState(), this);
    m_delegate->applicationDidFinishLaunching();
    // Announced shutdown dates for the settings window; asked after start-up, at most once a day.
    // A key entered later (onboarding, settings) starts it then.
    if (services.openAIConnection().hasAPIKey())
        services.modelAvailability().start();
    connect(&services.openAIConnection(), &OpenAIConnection::apiKeyChanged, this, [&services] {
        if (services.openAIConnection().hasAPIKey())
            services.modelAvailability().start();
    });
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
    if (!isAudioFile(file.absoluteFilePath())) {
        m_services->servicesProvider().showError(
            QStringLiteral(
                "Cannot play “%1”: it is not an audio file Parlino can play (MP3, Ogg, Opus, FLAC, WAV, AAC or M4A).")
                .arg(path));
        return;
    }
    PLOG(lcApp) << "▶️ Playing " << file.absoluteFilePath();
    m_services->appState().setCurrentPlayingTitle(file.completeBaseName());
    m_services->player().play(QUrl::fromLocalFile(file.absoluteFilePath()));
}

void ParlinoApp::showSettings()
{
    if (!m_settings) {
        const OpenAIConnection *connection = &m_services->openAIConnection();
        m_settings = new SettingsWindow(SettingsContext{
            m_services->appState(), m_services->defaults(), m_services->modelSettings(),
            m_services->modelAvailability(), &m_services->shortcutPreferences(), &m_services->autostart(),
            &m_services->voicePreview(), [connection] { return connection->hasAPIKey(); }, &m_services->accountSync(),
            [services = m_services.get()] { services->reloadAccount(); }});
    }
    m_settings->show();
    m_settings->raise();
    m_settings->activateWindow();
}

void ParlinoApp::showDashboard()
{
    if (!m_dashboard)
        m_dashboard = new DashboardWindow(m_services->usageTracking(), m_services->usageTracker(),
                                          m_services->appState(), Clock::system());
    m_dashboard->show();
    m_dashboard->raise();
    m_dashboard->activateWindow();
}

void ParlinoApp::showLibrary(LibraryTab tab)
{
    if (!m_library)
        m_library = new LibraryWindow(m_services->savedAudio(), m_services->podcasts(), m_services->audioExport(),
                                      &FileManagerLauncher::showItem);
    m_library->present(tab == LibraryTab::podcasts ? LibraryWindow::Tab::podcasts : LibraryWindow::Tab::library);
}

void ParlinoApp::showOnboarding()
{
    if (!m_onboarding) {
        m_onboarding = new OnboardingWindow(m_services->defaults(), m_services->permissionManager(),
                                            m_services->openAIConnection(), m_services->apiKeyFile(),
                                            m_services->onboardingAudio());
        connect(m_onboarding, &OnboardingWindow::finished, this, [this] { m_delegate->completeOnboarding(); });
        // The test step's player opens beside the onboarding window.
        m_services->floatingPlayer().setOnboardingWindow(m_onboarding);
    }
    m_onboarding->show();
    m_onboarding->raise();
    m_onboarding->activateWindow();
}

} // namespace parlino
