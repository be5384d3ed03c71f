#pragma once

#include <memory>

namespace parlino {

class AppShortcutActions;
class AppState;
class AudioExportService;
class AudioPlayerManager;
class Defaults;
class DesktopNotifier;
class FloatingPlayerWindowController;
class KeyboardShortcutManager;
class KeyboardShortcutPreferences;
class KeychainService;
class LibraryActions;
class LinuxInputPlatform;
class LinuxPermissionProbe;
class MessageBoxPermissionDialogs;
class ModelAvailability;
class ModelSettings;
class MpvAudioEngine;
class OpenAIClient;
class OpenAIConnection;
class OfflineSpeechProvider;
class PermissionManager;
class PodcastManager;
class PodcastService;
class PodcastStorageService;
class QtSaveFileDialog;
class SavedAudioManager;
class SavedAudioStorageService;
class ServicesProvider;
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
    KeychainService &keychain();

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
    PermissionManager &permissionManager();
    // The saved-audio and podcast libraries, export, and the actions that keep the playing audio.
    SavedAudioManager &savedAudio();
    PodcastManager &podcasts();
    PodcastService &podcastService();
    AudioExportService &audioExport();
    LibraryActions &libraryActions();
    FloatingPlayerWindowController &floatingPlayer();

private:
    // Long texts report their progress into the application state, once both exist.
    void connectSpeechProgress();
    // A model the service retired was replaced: the desktop tells the user once.
    void connectModelSwitches();

    // Declared in the order of building, so each object goes before the objects it uses.
    std::unique_ptr<OpenAIConnection> m_openAIConnection;
    std::unique_ptr<ModelSettings> m_modelSettings;
    std::unique_ptr<ModelAvailability> m_modelAvailability;
    std::unique_ptr<TTSCacheService> m_speechCache;
    std::unique_ptr<SpeechSynthesizer> m_speechSynthesizer;
    OfflineSpeechProvider *m_offlineSpeech = nullptr; // owned by m_speechSynthesizer
    std::unique_ptr<OpenAIClient> m_openAIClient;
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
};

} // namespace parlino
