#pragma once

#include <QString>

#include <memory>

class QNetworkAccessManager;

namespace parlino {

class APIKeyFile;
class AccountSyncService;
class AIQuestionService;
class AppShortcutActions;
class AppState;
class AudioExportService;
class AudioPlayerManager;
class CertificatePinningDelegate;
class Defaults;
class DesktopNotifier;
class EmailNotificationService;
class FloatingPlayerWindowController;
class KeyboardShortcutManager;
class KeyboardShortcutPreferences;
class KeychainService;
class LibraryActions;
class LinuxInputPlatform;
class LinuxPermissionProbe;
class MessageBoxPermissionDialogs;
class MessageBoxQuestionAlerts;
class ModelAvailability;
class ModelSettings;
class OnboardingAudio;
class VoicePreview;
class XdgAutostart;
class MpvAudioEngine;
class OpenAIClient;
class OpenAIConnection;
class OfflineSpeechProvider;
class PermissionManager;
class PodcastManager;
class PodcastService;
class PodcastStorageService;
class QuestionActions;
class QtSaveFileDialog;
class SavedAudioManager;
class SavedAudioStorageService;
class ServicesProvider;
class SpeechRecognitionService;
class SupabaseService;
class SupabaseSyncEngine;
class SpeechSynthesizer;
class TTSCacheService;
class TextCaptureService;
class UsageTracker;
class UsageTrackingService;

// The process's long-lived objects, each built on first use with the others it needs, and wired
// together: the one place that knows which concrete class stands behind each interface. The command
// line subcommands ask only for what they use, so they never build the desktop parts.
class AppServices final {
public:
    AppServices();
    ~AppServices();
    AppServices(const AppServices &) = delete;
    AppServices &operator=(const AppServices &) = delete;

    Defaults &defaults();
    // The longest text Parlino reads ("maxTextLength", 100 000 characters unless set to a positive number).
    [[nodiscard]] qint64 maxTextLength();
    KeychainService &keychain();
    // The OpenAI key entered in the app itself.
    const APIKeyFile &apiKeyFile();

    OpenAIConnection &openAIConnection();
    // The speech provider and the models, as the settings choose them.
    ModelSettings &modelSettings();
    // The shutdown dates the service announces, refreshed at most once a day once started.
    ModelAvailability &modelAvailability();
    TTSCacheService &speechCache();
    SpeechSynthesizer &speechSynthesizer();
    // The offline voice among the synthesizer's providers.
    OfflineSpeechProvider &offlineSpeech();
    OpenAIClient &openAIClient();
    // The hosted database (SUPABASE_URL, SUPABASE_KEY from the environment; without them every call is
    // a logged no-op) and the engine that sends events to it.
    SupabaseService &supabase();
    SupabaseSyncEngine &syncEngine();
    // After start-up, and only with a configured database: starts the engine and hands the usage
    // account's pending logs to it. Command-line runs never call it, so only the app sends.
    void startSync();

    // The web backend: account linking and activity notices, over connections checked against the
    // certificate pins of pins.json (none: not pinned).
    AccountSyncService &accountSync();
    EmailNotificationService &emailNotifications();
    // The activity notice of a finished reading, summary, podcast or answered question: sent (after
    // the quiet minute) only when an account is linked.
    void noticeUsageActivity();
    // Syncs the account data; failures are logged and shown through the sync status only.
    void syncAccount(const QString &email);
    // The settings' account changed in another process (`parlino account`): the state follows, and a
    // newly linked account is synced.
    void reloadAccount();

    // Everything below needs the application object of a desktop session.
    AppState &appState();
    DesktopNotifier &notifier();
    UsageTracker &usageTracker();
    // The account of synthesised characters and their cost, this month's and the logs still to send.
    UsageTrackingService &usageTracking();
    AudioPlayerManager &player();
    ServicesProvider &servicesProvider();
    TextCaptureService &textCapture();
    KeyboardShortcutManager &shortcutManager();
    // What the shortcuts do; built with the shortcut manager.
    AppShortcutActions &shortcutActions();
    PermissionManager &permissionManager();
    // The saved-audio and podcast libraries, export, and the actions that keep the playing audio.
    SavedAudioManager &savedAudio();
    PodcastManager &podcasts();
    PodcastService &podcastService();
    AudioExportService &audioExport();
    LibraryActions &libraryActions();
    FloatingPlayerWindowController &floatingPlayer();
    // Onboarding's narration (through an engine of its own) and the welcome of its test step.
    OnboardingAudio &onboardingAudio();
    // Samples of the voices for the settings, on the same engine as onboarding's narration.
    VoicePreview &voicePreview();
    // The shortcut bindings (made with the shortcut manager, which registers them).
    KeyboardShortcutPreferences &shortcutPreferences();
    XdgAutostart &autostart();
    // Voice questions: the microphone and its recognizers, the question flow, the button's behaviour.
    SpeechRecognitionService &speechRecognition();
    AIQuestionService &questions();
    QuestionActions &questionActions();

private:
    // A second sound output for short spoken samples (onboarding's narration, voice previews).
    MpvAudioEngine &narrationEngine();
    // Long texts report their progress into the application state, once both exist.
    void connectSpeechProgress();
    // A model the service retired was replaced: the desktop tells the user once.
    void connectModelSwitches();

    // Declared in the order of building, so each object goes before the objects it uses.
    std::unique_ptr<APIKeyFile> m_apiKeyFile;
    std::unique_ptr<OpenAIConnection> m_openAIConnection;
    std::unique_ptr<ModelSettings> m_modelSettings;
    std::unique_ptr<ModelAvailability> m_modelAvailability;
    std::unique_ptr<TTSCacheService> m_speechCache;
    std::unique_ptr<SpeechSynthesizer> m_speechSynthesizer;
    OfflineSpeechProvider *m_offlineSpeech = nullptr; // owned by m_speechSynthesizer
    std::unique_ptr<OpenAIClient> m_openAIClient;
    std::unique_ptr<QNetworkAccessManager> m_webBackendNetwork;
    std::unique_ptr<CertificatePinningDelegate> m_webBackendPinning;
    std::unique_ptr<AccountSyncService> m_accountSync;
    std::unique_ptr<EmailNotificationService> m_emailNotifications;
    std::unique_ptr<SupabaseService> m_supabase;
    std::unique_ptr<SupabaseSyncEngine> m_syncEngine;
    std::unique_ptr<AppState> m_appState;
    std::unique_ptr<DesktopNotifier> m_notifier;
    std::unique_ptr<UsageTracker> m_usageTracker;
    std::unique_ptr<UsageTrackingService> m_usageTracking;
    std::unique_ptr<MpvAudioEngine> m_audioEngine;
    std::unique_ptr<AudioPlayerManager> m_player;
    std::unique_ptr<ServicesProvider> m_servicesProvider;
    std::unique_ptr<LinuxInputPlatform> m_inputPlatform;
    std::unique_ptr<TextCaptureService> m_textCapture;
    std::unique_ptr<AppShortcutActions> m_shortcutActions;
    std::unique_ptr<KeyboardShortcutPreferences> m_shortcutPreferences;
    std::unique_ptr<KeyboardShortcutManager> m_shortcutManager;
    std::unique_ptr<LinuxPermissionProbe> m_permissionProbe;
    std::unique_ptr<MessageBoxPermissionDialogs> m_permissionDialogs;
    std::unique_ptr<PermissionManager> m_permissionManager;
    std::unique_ptr<SavedAudioStorageService> m_savedAudioStorage;
    std::unique_ptr<SavedAudioManager> m_savedAudio;
    std::unique_ptr<PodcastStorageService> m_podcastStorage;
    std::unique_ptr<PodcastManager> m_podcasts;
    std::unique_ptr<PodcastService> m_podcastService;
    std::unique_ptr<QtSaveFileDialog> m_saveDialog;
    std::unique_ptr<AudioExportService> m_audioExport;
    std::unique_ptr<LibraryActions> m_libraryActions;
    std::unique_ptr<FloatingPlayerWindowController> m_floatingPlayer;
    std::unique_ptr<MpvAudioEngine> m_narrationEngine;
    std::unique_ptr<OnboardingAudio> m_onboardingAudio;
    std::unique_ptr<VoicePreview> m_voicePreview;
    std::unique_ptr<XdgAutostart> m_autostart;
    std::unique_ptr<SpeechRecognitionService> m_speechRecognition;
    std::unique_ptr<MessageBoxQuestionAlerts> m_questionAlerts;
    std::unique_ptr<AIQuestionService> m_questions;
    std::unique_ptr<QuestionActions> m_questionActions;
};

} // namespace parlino
