#include "shell/AppServices.h"

#include "ai/OpenAIClient.h"
#include "ai/OpenAITranscriptionRecognizer.h"
#include "ai/PocketSphinxRecognizer.h"
#include "ai/SpeechRecognitionService.h"
#include "app/AIQuestionService.h"
#include "app/AppShortcutActions.h"
#include "app/AppState.h"
#include "app/LibraryActions.h"
#include "app/OnboardingAudio.h"
#include "app/PermissionManager.h"
#include "app/PodcastService.h"
#include "app/QuestionActions.h"
#include "app/ServicesProvider.h"
#include "app/VoicePreview.h"
#include "backend/APIKeyFile.h"
#include "backend/AccountSyncService.h"
#include "backend/CertificatePinningDelegate.h"
#include "backend/EmailNotificationService.h"
#include "backend/KeychainService.h"
#include "backend/ModelAvailability.h"
#include "backend/ModelSettings.h"
#include "backend/OpenAIConnection.h"
#include "backend/SupabaseService.h"
#include "backend/SupabaseSyncEngine.h"
#include "backend/WebBackend.h"
#include "core/Clock.h"
#include "core/Defaults.h"
#include "core/Error.h"
#include "core/Paths.h"
#include "core/SettingsKeys.h"
#include "input/KeyboardShortcutManager.h"
#include "input/KeyboardShortcutPreferences.h"
#include "input/TextCaptureService.h"
#include "library/AudioExportService.h"
#include "library/PodcastManager.h"
#include "library/PodcastStorageService.h"
#include "library/SavedAudioManager.h"
#include "library/SavedAudioStorageService.h"
#include "platform/linux/DesktopNotifier.h"
#include "platform/linux/LinuxInputPlatform.h"
#include "platform/linux/LinuxPermissionProbe.h"
#include "platform/linux/X11WindowHints.h"
#include "platform/linux/XdgAutostart.h"
#include "playback/AudioPlayerManager.h"
#include "playback/MpvAudioEngine.h"
#include "speech/OfflineSpeechProvider.h"
#include "speech/RealtimeSpeechProvider.h"
#include "speech/SpeechEndpointProvider.h"
#include "speech/SpeechStream.h"
#include "speech/SpeechSynthesizer.h"
#include "speech/TTSCacheService.h"
#include "speech/TextChunker.h"
#include "ui/FloatingPlayerView.h"
#include "ui/FloatingPlayerWindowController.h"
#include "ui/MessageBoxPermissionDialogs.h"
#include "ui/MessageBoxQuestionAlerts.h"
#include "ui/QtSaveFileDialog.h"
#include "usage/UsageTracker.h"
#include "usage/UsageTrackingService.h"

#include <QCoreApplication>
#include <QFile>
#include <QNetworkAccessManager>
#include <QUrl>

#include <limits>

namespace parlino {

namespace {

// Seconds of audio in an MP3 file, counted from its frames as a stream of it would be.
QCoro::Task<double> measureMp3(QString path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        throw Error(QStringLiteral("Could not read the audio to measure it: ") + file.errorString());
    SpeechStream stream;
    stream.append(file.readAll());
    stream.finish();
    co_return stream.arrivedSeconds();
}

// A sync nobody waits for: its failure is already logged and in the sync status.
QCoro::Task<> syncQuietly(AccountSyncService &service, QString email)
{
    try {
        QCoro::Task<AccountSyncService::AccountData> syncing = service.syncAccountData(email);
        co_await syncing;
    } catch (const Error &) {
    }
}

} // namespace

AppServices::AppServices() = default;

AppServices::~AppServices() = default;

Defaults &AppServices::defaults()
{
    return Defaults::shared();
}

qint64 AppServices::maxTextLength()
{
    // Absent, unreadable, zero or negative values give the default.
    return defaults().boundedInteger(SettingsKeys::maxTextLength, 1, std::numeric_limits<qint64>::max(),
                                     defaultMaxTextLength);
}

KeychainService &AppServices::keychain()
{
    return KeychainService::shared();
}

const APIKeyFile &AppServices::apiKeyFile()
{
    if (!m_apiKeyFile)
        m_apiKeyFile = std::make_unique<APIKeyFile>(Paths::apiKeyFile());
    return *m_apiKeyFile;
}

OpenAIConnection &AppServices::openAIConnection()
{
    // The key is looked up when the connection is made; a key entered later is handed to it.
    if (!m_openAIConnection)
        m_openAIConnection = std::make_unique<OpenAIConnection>(
            OpenAIConnection::lookUpAPIKey(keychain(), apiKeyFile(), defaults()), OpenAIConnection::defaultBaseURL());
    return *m_openAIConnection;
}

ModelSettings &AppServices::modelSettings()
{
    if (!m_modelSettings) {
        m_modelSettings = std::make_unique<ModelSettings>(defaults());
        if (m_notifier)
            connectModelSwitches();
    }
    return *m_modelSettings;
}

ModelAvailability &AppServices::modelAvailability()
{
    if (!m_modelAvailability)
        m_modelAvailability = std::make_unique<ModelAvailability>(openAIConnection(), Clock::system(),
                                                                  ModelAvailability::defaultFilePath());
    return *m_modelAvailability;
}

void AppServices::connectModelSwitches()
{
    QObject::connect(m_modelSettings.get(), &ModelSettings::switchedToSuccessor, m_modelSettings.get(),
                     [notifier = m_notifier.get()](ModelRole role, const QString &oldModel, const QString &newModel) {
                         const QString how = role == ModelRole::speech
                                                 ? QStringLiteral(" Reading now goes through OpenAI's Realtime API.")
                                                 : QString();
                         notifier->notify(QStringLiteral("Parlino switched to ") + newModel,
                                          QStringLiteral("OpenAI no longer serves ") + oldModel
                                              + QStringLiteral(", so Parlino uses ") + newModel
                                              + QStringLiteral(" from now on.") + how);
                     });
}

TTSCacheService &AppServices::speechCache()
{
    if (!m_speechCache)
        m_speechCache = std::make_unique<TTSCacheService>();
    return *m_speechCache;
}

SpeechSynthesizer &AppServices::speechSynthesizer()
{
    if (!m_speechSynthesizer) {
        // Without a key the offline voice reads, so Parlino speaks from the first start.
        const OpenAIConnection *connection = &openAIConnection();
        m_speechSynthesizer = std::make_unique<SpeechSynthesizer>(speechCache(), modelSettings(),
                                                                  [connection] { return connection->hasAPIKey(); });
        // The first is the default when the settings name none.
        m_speechSynthesizer->addProvider(std::make_unique<SpeechEndpointProvider>(openAIConnection(), modelSettings()));
        m_speechSynthesizer->addProvider(std::make_unique<RealtimeSpeechProvider>(openAIConnection(), modelSettings()));
        auto offline = std::make_unique<OfflineSpeechProvider>(defaults());
        m_offlineSpeech = offline.get();
        m_speechSynthesizer->addProvider(std::move(offline));
        OfflineSpeechProvider::prepare();
        // The desktop shows a long text's progress; the command line has no state to show it in.
        if (m_appState)
            connectSpeechProgress();
    }
    return *m_speechSynthesizer;
}

OfflineSpeechProvider &AppServices::offlineSpeech()
{
    speechSynthesizer();
    return *m_offlineSpeech;
}

OpenAIClient &AppServices::openAIClient()
{
    if (!m_openAIClient)
        m_openAIClient = std::make_unique<OpenAIClient>(openAIConnection(), speechSynthesizer(), modelSettings());
    return *m_openAIClient;
}

AppState &AppServices::appState()
{
    if (!m_appState) {
        m_appState = std::make_unique<AppState>(defaults());
        m_appState->setSupabaseService(&supabase());
        if (m_speechSynthesizer)
            connectSpeechProgress();
    }
    return *m_appState;
}

void AppServices::connectSpeechProgress()
{
    QObject::connect(m_speechSynthesizer.get(), &SpeechSynthesizer::progressChanged, m_appState.get(),
                     [state = m_appState.get()](double progress, const QString &message) {
                         state->setProcessingProgress(progress);
                         state->setProcessingMessage(message);
                     });
}

DesktopNotifier &AppServices::notifier()
{
    if (!m_notifier) {
        m_notifier = std::make_unique<DesktopNotifier>();
        if (m_modelSettings)
            connectModelSwitches();
    }
    return *m_notifier;
}

SupabaseService &AppServices::supabase()
{
    if (!m_supabase)
        m_supabase =
            std::make_unique<SupabaseService>(SupabaseCredentials::fromEnvironment(), defaults(), Clock::system());
    return *m_supabase;
}

SupabaseSyncEngine &AppServices::syncEngine()
{
    if (!m_syncEngine)
        m_syncEngine = std::make_unique<SupabaseSyncEngine>(supabase(), defaults(), Clock::system());
    return *m_syncEngine;
}

void AppServices::startSync()
{
    if (!supabase().isConfigured() || syncEngine().isStarted())
        return;
    syncEngine().start();
    UsageTrackingService &usage = usageTracking();
    AppState *state = &appState();
    QObject::connect(&usage, &UsageTrackingService::usageSyncStatusChanged, state, &AppState::setUsageSyncStatus);
    usage.setSyncEngine(syncEngine());
    state->setUsageSyncStatus(usage.usageSyncStatus());
}

UsageTracker &AppServices::usageTracker()
{
    if (!m_usageTracker)
        m_usageTracker = std::make_unique<UsageTracker>(defaults());
    return *m_usageTracker;
}

UsageTrackingService &AppServices::usageTracking()
{
    if (!m_usageTracking) {
        m_usageTracking = std::make_unique<UsageTrackingService>(defaults(), Clock::system());
        // The month's characters are shown wherever the application state is.
        AppState *state = &appState();
        state->setCurrentMonthCharacters(m_usageTracking->currentMonthCharacters());
        QObject::connect(m_usageTracking.get(), &UsageTrackingService::currentMonthCharactersChanged, state,
                         &AppState::setCurrentMonthCharacters);
    }
    return *m_usageTracking;
}

AudioPlayerManager &AppServices::player()
{
    if (!m_player) {
        // libmpv on PulseAudio (or ALSA).
        m_audioEngine = std::make_unique<MpvAudioEngine>();
        // The sound server is opened now, so the first reading does not wait for it.
        m_audioEngine->warmUpOutput();
        m_player = std::make_unique<AudioPlayerManager>(*m_audioEngine, usageTracker(), defaults(), Clock::system());
        appState().mirrorPlayer(*m_player);
        // A cached file that will not play is dropped, so the next reading asks for it again.
        QObject::connect(m_player.get(), &AudioPlayerManager::fileFailedToLoad, m_player.get(),
                         [this](const QString &path) { speechCache().removeFile(path); });
        // Leave the sound server cleanly while the event loop still runs.
        QObject::connect(qApp, &QCoreApplication::aboutToQuit, m_audioEngine.get(),
                         [engine = m_audioEngine.get()] { engine->shutdown(); });
    }
    return *m_player;
}

AccountSyncService &AppServices::accountSync()
{
    if (!m_accountSync) {
        if (!m_webBackendNetwork) {
            m_webBackendNetwork = std::make_unique<QNetworkAccessManager>();
            m_webBackendPinning =
                std::make_unique<CertificatePinningDelegate>(CertificatePinningService::loadConfigured());
            m_webBackendPinning->install(*m_webBackendNetwork);
        }
        m_accountSync = std::make_unique<AccountSyncService>(WebBackend::origin(), m_webBackendNetwork.get());
        Defaults *settings = &defaults();
        QObject::connect(m_accountSync.get(), &AccountSyncService::currentMonthCharactersReceived, settings,
                         [settings](const QString &, qint64 characters) {
                             settings->set(SettingsKeys::accountMonthCharacters, characters);
                         });
        // The command line links without the desktop parts; the app's state follows when it exists.
        if (m_appState) {
            QObject::connect(m_accountSync.get(), &AccountSyncService::syncStatusChanged, m_appState.get(),
                             &AppState::setAccountSyncStatus);
            // A known account brings its voice from the hosted database, or gives it the local one.
            QObject::connect(m_accountSync.get(), &AccountSyncService::voicePreferenceSyncRequested, m_appState.get(),
                             [state = m_appState.get()] { state->syncVoicePreferenceFromSupabase(); });
        }
    }
    return *m_accountSync;
}

EmailNotificationService &AppServices::emailNotifications()
{
    if (!m_emailNotifications) {
        (void)accountSync(); // builds the pinned connections both share
        m_emailNotifications = std::make_unique<EmailNotificationService>(Clock::system(), WebBackend::origin(),
                                                                          m_webBackendNetwork.get());
    }
    return *m_emailNotifications;
}

void AppServices::noticeUsageActivity()
{
    const std::optional<QString> email = defaults().stringForKey(SettingsKeys::userEmail);
    if (email && !email->isEmpty())
        emailNotifications().notifyUsageActivityThrottled(*email);
}

void AppServices::syncAccount(const QString &email)
{
    syncQuietly(accountSync(), email);
}

void AppServices::reloadAccount()
{
    defaults().synchronize(); // reads what the other process wrote
    AppState &state = appState();
    const std::optional<QString> email = defaults().stringForKey(SettingsKeys::userEmail);
    if (!email || email->isEmpty()) {
        if (state.isAccountLinked()) {
            state.clearAccount();
            state.setAccountSyncStatus(AccountSyncStatus::notSynced());
        }
        return;
    }
    if (state.userEmail() == email)
        return;
    state.loadAccountState();
    syncAccount(*email);
}

ServicesProvider &AppServices::servicesProvider()
{
    if (!m_servicesProvider) {
        AudioPlayerManager *audioPlayer = &player();
        m_servicesProvider = std::make_unique<ServicesProvider>(
            appState(), openAIClient(), speechCache(),
            [audioPlayer](const QUrl &url) { audioPlayer->playTemporaryFile(url.toLocalFile()); }, notifier());
        m_servicesProvider->enableUsageTracking(usageTracking());
        m_servicesProvider->enableActivityNotices([this] { noticeUsageActivity(); });
        m_servicesProvider->setMaxTextLength([this] { return maxTextLength(); });
        Defaults *settings = &defaults();
        m_servicesProvider->enableStreaming(
            [audioPlayer](std::shared_ptr<SpeechStream> stream) { audioPlayer->playStream(std::move(stream)); },
            [settings] {
                return !settings->contains(SettingsKeys::streamSpeech)
                       || settings->boolForKey(SettingsKeys::streamSpeech);
            });
    }
    return *m_servicesProvider;
}

TextCaptureService &AppServices::textCapture()
{
    if (!m_textCapture) {
        m_inputPlatform = std::make_unique<LinuxInputPlatform>();
        m_textCapture = std::make_unique<TextCaptureService>(defaults(), m_inputPlatform->textCapturePlatform());
    }
    return *m_textCapture;
}

KeyboardShortcutManager &AppServices::shortcutManager()
{
    if (!m_shortcutManager) {
        m_shortcutActions =
            std::make_unique<AppShortcutActions>(servicesProvider(), player(), appState(), textCapture(), notifier());
        m_shortcutActions->setLibraryActions(&libraryActions());
        m_shortcutActions->setOnboardingAudio(&onboardingAudio());
        m_shortcutActions->setQuestionActions(&questionActions());
        m_shortcutPreferences = std::make_unique<KeyboardShortcutPreferences>(defaults());
        m_shortcutManager =
            std::make_unique<KeyboardShortcutManager>(LinuxInputPlatform::createHotKeyBackend(), *m_shortcutPreferences,
                                                      textCapture(), appState(), m_shortcutActions.get());
    }
    return *m_shortcutManager;
}

AppShortcutActions &AppServices::shortcutActions()
{
    shortcutManager();
    return *m_shortcutActions;
}

PermissionManager &AppServices::permissionManager()
{
    if (!m_permissionManager) {
        m_permissionProbe = std::make_unique<LinuxPermissionProbe>();
        // Speech recognition is granted when one of the app's recognizers can work.
        m_permissionProbe->setSpeechRecognitionCheck(
            [this] { return speechRecognition().isSpeechRecognitionAvailable(); });
        m_permissionDialogs = std::make_unique<MessageBoxPermissionDialogs>();
        m_permissionManager =
            std::make_unique<PermissionManager>(*m_permissionProbe, *m_permissionDialogs, appState(), Clock::system());
        QObject::connect(m_permissionManager.get(), &PermissionManager::quitRequested, qApp, &QCoreApplication::quit,
                         Qt::QueuedConnection);
    }
    return *m_permissionManager;
}

SavedAudioManager &AppServices::savedAudio()
{
    if (!m_savedAudio) {
        m_savedAudioStorage = std::make_unique<SavedAudioStorageService>();
        AudioPlayerManager *audioPlayer = &player();
        AppState *state = &appState();
        // The player shows the item's own title and text, found by its file.
        m_savedAudio =
            std::make_unique<SavedAudioManager>(*m_savedAudioStorage, [this, audioPlayer, state](const QString &path) {
                for (const SavedAudio &item : m_savedAudio->savedAudioList()) {
                    if (item.audioURL.toLocalFile() == path) {
                        state->setCurrentPlayingTitle(item.title);
                        state->setCurrentPlayingContext(item.sourceText);
                    }
                }
                audioPlayer->play(QUrl::fromLocalFile(path));
            });
    }
    return *m_savedAudio;
}

PodcastManager &AppServices::podcasts()
{
    if (!m_podcasts) {
        m_podcastStorage = std::make_unique<PodcastStorageService>();
        AudioPlayerManager *audioPlayer = &player();
        AppState *state = &appState();
        m_podcasts = std::make_unique<PodcastManager>(*m_podcastStorage, [audioPlayer, state](const Podcast &podcast) {
            state->setCurrentPlayingTitle(podcast.title);
            state->setCurrentPlayingContext(podcast.sourceText);
            audioPlayer->play(podcast.audioURL);
        });
    }
    return *m_podcasts;
}

PodcastService &AppServices::podcastService()
{
    if (!m_podcastService) {
        m_podcastService =
            std::make_unique<PodcastService>(openAIClient(), podcasts(), appState(), &measureMp3, Clock::system());
        m_podcastService->enableActivityNotices([this] { noticeUsageActivity(); });
        m_podcastService->enableUsageTracking(usageTracking());
    }
    return *m_podcastService;
}

AudioExportService &AppServices::audioExport()
{
    if (!m_audioExport) {
        m_saveDialog = std::make_unique<QtSaveFileDialog>();
        OpenAIClient *client = &openAIClient();
        AppState *state = &appState();
        m_audioExport = std::make_unique<AudioExportService>(
            [client](QString context) { return client->generateAudioTitle(std::move(context)); },
            [state] { return state->downloadLocation(); }, *m_saveDialog, Clock::system());
        QObject::connect(
            m_audioExport.get(), &AudioExportService::notificationRequested, m_audioExport.get(),
            [notifier = &notifier()](const QString &title, const QString &body) { notifier->notify(title, body); });
    }
    return *m_audioExport;
}

LibraryActions &AppServices::libraryActions()
{
    if (!m_libraryActions) {
        OpenAIClient *client = &openAIClient();
        m_libraryActions = std::make_unique<LibraryActions>(
            appState(), player(), savedAudio(), podcastService(), audioExport(),
            [client](QString context) { return client->generateAudioTitle(std::move(context)); }, notifier(),
            Clock::system());
    }
    return *m_libraryActions;
}

FloatingPlayerWindowController &AppServices::floatingPlayer()
{
    if (!m_floatingPlayer) {
        m_floatingPlayer =
            std::make_unique<FloatingPlayerWindowController>(appState(), player(), &X11WindowHints::placeOnAllDesktops);
        auto *view = new FloatingPlayerView(appState(), player(), *m_floatingPlayer);
        view->setLibraryActions(libraryActions());
        OpenAIClient *client = &openAIClient();
        view->setCostEstimate([client] { return client->speechModelName(); });
        view->setQuestionActions(questionActions());
        m_floatingPlayer->setContentView(view);
    }
    return *m_floatingPlayer;
}

OnboardingAudio &AppServices::onboardingAudio()
{
    if (!m_onboardingAudio) {
        const OpenAIConnection *connection = &openAIConnection();
        m_onboardingAudio =
            std::make_unique<OnboardingAudio>(speechSynthesizer(), narrationEngine(), player(), appState(),
                                              [connection] { return connection->hasAPIKey(); });
    }
    return *m_onboardingAudio;
}

MpvAudioEngine &AppServices::narrationEngine()
{
    if (!m_narrationEngine) {
        m_narrationEngine = std::make_unique<MpvAudioEngine>();
        QObject::connect(qApp, &QCoreApplication::aboutToQuit, m_narrationEngine.get(),
                         [engine = m_narrationEngine.get()] { engine->shutdown(); });
    }
    return *m_narrationEngine;
}

VoicePreview &AppServices::voicePreview()
{
    if (!m_voicePreview)
        m_voicePreview = std::make_unique<VoicePreview>(speechSynthesizer(), narrationEngine());
    return *m_voicePreview;
}

KeyboardShortcutPreferences &AppServices::shortcutPreferences()
{
    shortcutManager();
    return *m_shortcutPreferences;
}

XdgAutostart &AppServices::autostart()
{
    if (!m_autostart)
        m_autostart = std::make_unique<XdgAutostart>();
    return *m_autostart;
}

SpeechRecognitionService &AppServices::speechRecognition()
{
    if (!m_speechRecognition) {
        m_speechRecognition = std::make_unique<SpeechRecognitionService>(defaults());
        // The service first: the automatic choice takes it whenever a key is configured.
        m_speechRecognition->addRecognizer(
            std::make_unique<OpenAITranscriptionRecognizer>(openAIConnection(), modelSettings()));
        auto offline = std::make_unique<PocketSphinxRecognizer>();
        PocketSphinxRecognizer *offlineEngine = offline.get();
        m_speechRecognition->addRecognizer(std::move(offline));
        // Its model takes a moment to load: ahead of the first question when it is the one that listens.
        if (m_speechRecognition->recognizer() == offlineEngine)
            offlineEngine->preload();
    }
    return *m_speechRecognition;
}

AIQuestionService &AppServices::questions()
{
    if (!m_questions) {
        m_questionAlerts = std::make_unique<MessageBoxQuestionAlerts>();
        m_questions = std::make_unique<AIQuestionService>(appState(), player(), openAIClient(), speechRecognition(),
                                                          *m_questionAlerts, Clock::system());
        m_questions->enableUsageTracking(usageTracking());
    }
    return *m_questions;
}

QuestionActions &AppServices::questionActions()
{
    if (!m_questionActions)
        m_questionActions = std::make_unique<QuestionActions>(appState(), questions(), permissionManager());
    return *m_questionActions;
}

} // namespace parlino
