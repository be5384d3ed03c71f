#include "app/AppState.h"

#include "backend/SupabaseService.h"
#include "core/Defaults.h"
#include "core/Logging.h"
#include "core/Paths.h"
#include "core/SettingsKeys.h"
#include "playback/AudioPlayerManager.h"

#include <QDir>
#include <QFileInfo>
#include <QPointer>

#include <algorithm>

namespace parlino {

AppState::AppState(Defaults &defaults, QObject *parent)
    : QObject(parent)
    , m_defaults(defaults)
{
    loadDownloadLocation();
    loadDefaultPlaybackSpeed();
    loadDefaultVoice();
    loadAccountState();
    loadFloatingPlayerSize();
    if (const std::optional<QString> stored = m_defaults.stringForKey(SettingsKeys::appearanceMode))
        m_appearanceMode = appearanceModeFromRawValue(*stored).value_or(AppearanceMode::system);
    loadPodcastType();
}

AppState::~AppState() = default;

void AppState::loadFloatingPlayerSize()
{
    // A hand-edited or corrupt value keeps the default size.
    m_floatingPlayerSize = m_defaults.boundedSize(
        SettingsKeys::floatingPlayerSize, QSizeF(kFloatingPlayerMinWidth, kFloatingPlayerMinHeight),
        QSizeF(kFloatingPlayerMaxWidth, kFloatingPlayerMaxHeight), m_floatingPlayerSize);
}

void AppState::mirrorPlayer(const AudioPlayerManager &player)
{
    const auto mirrorFigures = [this, &player] {
        const double duration = player.duration();
        setCurrentTime(player.currentTime());
        setPlaybackProgress(duration > 0 ? std::clamp(player.currentTime() / duration, 0.0, 1.0) : 0.0);
        setTotalTime(duration);
        setIsPlaying(player.isPlaying());
    };
    connect(&player, &AudioPlayerManager::currentTimeChanged, this, mirrorFigures);
    connect(&player, &AudioPlayerManager::durationChanged, this, mirrorFigures);
    connect(&player, &AudioPlayerManager::isPlayingChanged, this, mirrorFigures);
    // A rate between the selectable speeds leaves the chosen speed as it is.
    connect(&player, &AudioPlayerManager::playbackRateChanged, this, [this, &player] {
        if (const std::optional<PlaybackSpeed> speed = playbackSpeedFromRawValue(player.playbackRate()))
            setCurrentSpeed(*speed);
    });
    connect(&player, &AudioPlayerManager::itemReady, this, [this] { setShowFloatingPlayer(true); });
    connect(&player, &AudioPlayerManager::closeRequested, this, [this] {
        setShowFloatingPlayer(false);
        setCurrentPlayingContext(QString());
    });
}

void AppState::saveDefaultVoice(TTSVoice voice)
{
    setSelectedVoice(voice);
    m_defaults.set(SettingsKeys::defaultVoice, persistedVoiceValue(voice));
}

void AppState::saveDefaultSpeed(PlaybackSpeed speed)
{
    setCurrentSpeed(speed);
    m_defaults.set(SettingsKeys::defaultSpeed, rawValue(speed));
}

void AppState::loadDefaultVoice()
{
    const std::optional<QString> stored = m_defaults.stringForKey(SettingsKeys::defaultVoice);
    if (!stored)
        return;
    PLOG(lcApp) << "✅ Loaded default voice from UserDefaults: " << *stored;
    const QStringList pieces = stored->split(u':', Qt::SkipEmptyParts);
    if (pieces.size() != 2) {
        PLOG(lcApp) << "⚠️ Invalid voice format in UserDefaults: " << *stored;
        return;
    }
    if (pieces[0].toLower() != u"openai") {
        PLOG(lcApp) << "⚠️ Non-OpenAI provider (" << pieces[0]
                    << ") selected, but only OpenAI is currently supported for TTS";
        PLOG(lcApp) << "   Defaulting to OpenAI Alloy voice";
        setSelectedVoice(TTSVoice::alloy);
        return;
    }
    const std::optional<TTSVoice> voice = ttsVoiceFromIdentifier(pieces[1]);
    if (!voice) {
        PLOG(lcApp) << "⚠️ Unknown OpenAI voice: " << pieces[1] << ", defaulting to alloy";
        setSelectedVoice(TTSVoice::alloy);
        return;
    }
    setSelectedVoice(*voice);
    PLOG(lcApp) << "✅ Set selectedVoice to: " << identifier(*voice);
}

QCoro::Task<> AppState::syncVoicePreferenceFromSupabase()
{
    if (!m_userEmail || m_userEmail->isEmpty()) {
        PLOG(lcApp) << "ℹ️ No email set, skipping voice preference sync";
        co_return;
    }
    if (!m_supabase)
        co_return;
    const QString email = *m_userEmail;
    SupabaseService &supabase = *m_supabase;
    const QPointer<AppState> self(this);
    PLOG(lcApp) << "🔄 Syncing voice preference from Supabase for: " << email;
    QCoro::Task<std::optional<VoicePreference>> fetch = supabase.fetchVoicePreference(email);
    const std::optional<VoicePreference> server = co_await fetch;
    if (!self)
        co_return;

    if (!server) {
        const std::optional<QString> local = m_defaults.stringForKey(SettingsKeys::defaultVoice);
        const QStringList pieces = local ? local->split(u':', Qt::SkipEmptyParts) : QStringList();
        if (pieces.size() != 2) {
            PLOG(lcApp) << "ℹ️ No voice preference in Supabase or locally, using default";
            co_return;
        }
        PLOG(lcApp) << "ℹ️ No server preference found, uploading local preference: " << *local;
        QCoro::Task<bool> upload = supabase.updateVoicePreference(email, pieces[0], pieces[1]);
        co_await upload;
        co_return;
    }

    const QString preference = server->provider + u':' + server->voice;
    PLOG(lcApp) << "✅ Applying voice preference from Supabase: " << preference;
    if (server->provider != u"openai") {
        PLOG(lcApp) << "⚠️ Non-OpenAI voice from server: " << preference;
        PLOG(lcApp) << "   Only OpenAI voices supported for TTS, keeping current";
        co_return;
    }
    const std::optional<TTSVoice> voice = ttsVoiceFromIdentifier(server->voice);
    if (!voice) {
        PLOG(lcApp) << "⚠️ Unknown OpenAI voice from server: " << server->voice << ", keeping current";
        co_return;
    }
    setSelectedVoice(*voice);
    m_defaults.set(SettingsKeys::defaultVoice, preference);
    PLOG(lcApp) << "✅ Updated selectedVoice to: " << server->voice;
}

void AppState::loadDefaultPlaybackSpeed()
{
    const double stored = m_defaults.boundedDouble(SettingsKeys::defaultSpeed, 0, kFastestPlaybackRate, 0);
    if (stored <= 0)
        return;
    // A stored rate that is none of the selectable speeds keeps the current one.
    if (const std::optional<PlaybackSpeed> speed = playbackSpeedFromRawValue(stored)) {
        setCurrentSpeed(*speed);
        PLOG(lcApp) << "✅ Loaded default playback speed: " << stored;
    }
}

void AppState::setUserEmail(const QString &email)
{
    if (email.isEmpty()) {
        PLOG(lcApp) << "⚠️ Cannot set empty email";
        return;
    }
    assignUserEmail(std::optional<QString>(email));
    setIsAccountLinked(true);
    m_defaults.set(SettingsKeys::userEmail, email);
    PLOG(lcApp) << "✅ User email set: " << email;
    PLOG(lcApp) << "ℹ️ Account will sync on next app launch";
}

void AppState::clearAccount()
{
    assignUserEmail(std::optional<QString>());
    setIsAccountLinked(false);
    m_defaults.remove(SettingsKeys::userEmail);
    PLOG(lcApp) << "🔓 Account cleared";
}

void AppState::loadAccountState()
{
    const std::optional<QString> email = m_defaults.stringForKey(SettingsKeys::userEmail);
    if (email && !email->isEmpty()) {
        assignUserEmail(email);
        setIsAccountLinked(true);
        PLOG(lcApp) << "✅ Account state loaded: " << *email;
    } else {
        PLOG(lcApp) << "ℹ️ No account linked yet";
    }
}

void AppState::setDownloadLocation(const QString &folder)
{
    const QFileInfo info(folder);
    if (!info.exists() || !info.isDir()) {
        PLOG(lcApp) << "❌ Failed to create bookmark for download location: The folder “" << folder
                    << "” does not exist.";
        return;
    }
    const QString path = info.absoluteFilePath();
    m_defaults.set(SettingsKeys::downloadLocation, path.toUtf8());
    assignDownloadLocation(std::optional<QString>(path));
    PLOG(lcApp) << "✅ Set download location: " << path;
}

void AppState::loadDownloadLocation()
{
    const auto useDefault = [this] {
        const QString downloads = Paths::downloads();
        assignDownloadLocation(downloads.isEmpty() ? std::optional<QString>() : std::optional<QString>(downloads));
        PLOG(lcApp) << "ℹ️ Using default download location: "
                    << (downloads.isEmpty() ? QStringLiteral("none") : downloads);
    };

    const QByteArray bookmark = m_defaults.dataForKey(SettingsKeys::downloadLocation);
    if (bookmark.isEmpty()) {
        useDefault();
        return;
    }
    const QString path = QString::fromUtf8(bookmark);
    if (!QDir::isAbsolutePath(path) || path.contains(QChar::ReplacementCharacter)) {
        PLOG(lcApp) << "❌ Failed to resolve download location bookmark: the stored location is not a folder path";
        useDefault();
        return;
    }
    if (!QFileInfo(path).isDir()) {
        PLOG(lcApp) << "⚠️ Download location bookmark is stale";
        return;
    }
    assignDownloadLocation(std::optional<QString>(path));
    PLOG(lcApp) << "✅ Loaded download location: " << path;
}

void AppState::setIsPlaying(bool value)
{
    if (m_isPlaying == value)
        return;
    m_isPlaying = value;
    Q_EMIT isPlayingChanged();
}

void AppState::setCurrentSpeed(PlaybackSpeed value)
{
    if (m_currentSpeed == value)
        return;
    m_currentSpeed = value;
    Q_EMIT currentSpeedChanged();
}

void AppState::setSelectedVoice(TTSVoice value)
{
    if (m_selectedVoice == value)
        return;
    m_selectedVoice = value;
    Q_EMIT selectedVoiceChanged();
}

void AppState::setPlaybackProgress(double value)
{
    if (m_playbackProgress == value)
        return;
    m_playbackProgress = value;
    Q_EMIT playbackProgressChanged();
}

void AppState::setCurrentTime(double value)
{
    if (m_currentTime == value)
        return;
    m_currentTime = value;
    Q_EMIT currentTimeChanged();
}

void AppState::setTotalTime(double value)
{
    if (m_totalTime == value)
        return;
    m_totalTime = value;
    Q_EMIT totalTimeChanged();
}

void AppState::setShowingSettings(bool value)
{
    if (m_showingSettings == value)
        return;
    m_showingSettings = value;
    Q_EMIT showingSettingsChanged();
}

void AppState::setShowingOnboarding(bool value)
{
    if (m_showingOnboarding == value)
        return;
    m_showingOnboarding = value;
    Q_EMIT showingOnboardingChanged();
}

void AppState::setIsProcessing(bool value)
{
    if (m_isProcessing == value)
        return;
    m_isProcessing = value;
    Q_EMIT isProcessingChanged();
}

void AppState::setProcessingMessage(const QString &value)
{
    if (m_processingMessage == value)
        return;
    m_processingMessage = value;
    Q_EMIT processingMessageChanged();
}

void AppState::setSpeechNotice(const QString &value)
{
    if (m_speechNotice == value)
        return;
    m_speechNotice = value;
    Q_EMIT speechNoticeChanged();
}

void AppState::setProcessingProgress(double value)
{
    if (m_processingProgress == value)
        return;
    m_processingProgress = value;
    Q_EMIT processingProgressChanged();
}

void AppState::setShowFloatingPlayer(bool value)
{
    if (m_showFloatingPlayer == value)
        return;
    m_showFloatingPlayer = value;
    Q_EMIT showFloatingPlayerChanged();
}

void AppState::setCurrentPlayingContext(const QString &value)
{
    if (m_currentPlayingContext == value)
        return;
    m_currentPlayingContext = value;
    Q_EMIT currentPlayingContextChanged();
}

void AppState::setCurrentPlayingTitle(const QString &value)
{
    if (m_currentPlayingTitle == value)
        return;
    m_currentPlayingTitle = value;
    Q_EMIT currentPlayingTitleChanged();
}

void AppState::setFloatingPlayerSize(const QSizeF &value)
{
    if (m_floatingPlayerSize == value)
        return;
    m_floatingPlayerSize = value;
    m_defaults.set(SettingsKeys::floatingPlayerSize, value);
    Q_EMIT floatingPlayerSizeChanged();
}

void AppState::setKeepFloatingPlayerOpen(bool value)
{
    if (m_keepFloatingPlayerOpen == value)
        return;
    m_keepFloatingPlayerOpen = value;
    Q_EMIT keepFloatingPlayerOpenChanged();
}

void AppState::setIsAnsweringQuestion(bool value)
{
    if (m_isAnsweringQuestion == value)
        return;
    m_isAnsweringQuestion = value;
    Q_EMIT isAnsweringQuestionChanged();
}

void AppState::setIsListeningForQuestion(bool value)
{
    if (m_isListeningForQuestion == value)
        return;
    m_isListeningForQuestion = value;
    Q_EMIT isListeningForQuestionChanged();
}

void AppState::setIsReadyToSendQuestion(bool value)
{
    if (m_isReadyToSendQuestion == value)
        return;
    m_isReadyToSendQuestion = value;
    Q_EMIT isReadyToSendQuestionChanged();
}

void AppState::setQuestionAudioAmplitude(float value)
{
    if (m_questionAudioAmplitude == value)
        return;
    m_questionAudioAmplitude = value;
    Q_EMIT questionAudioAmplitudeChanged();
}

void AppState::setConversationHistory(const QList<AIMessage> &value)
{
    if (m_conversationHistory == value)
        return;
    m_conversationHistory = value;
    Q_EMIT conversationHistoryChanged();
}

void AppState::setCurrentQuestion(const QString &value)
{
    if (m_currentQuestion == value)
        return;
    m_currentQuestion = value;
    Q_EMIT currentQuestionChanged();
}

void AppState::setIsGeneratingPodcast(bool value)
{
    if (m_isGeneratingPodcast == value)
        return;
    m_isGeneratingPodcast = value;
    Q_EMIT isGeneratingPodcastChanged();
}

void AppState::setPodcastGenerationProgress(const QString &value)
{
    if (m_podcastGenerationProgress == value)
        return;
    m_podcastGenerationProgress = value;
    Q_EMIT podcastGenerationProgressChanged();
}

// The style is the user's choice in the settings and lasts across restarts.
void AppState::setSelectedPodcastType(PodcastType value)
{
    if (m_selectedPodcastType == value)
        return;
    m_selectedPodcastType = value;
    m_defaults.set(SettingsKeys::podcastType, rawValue(value));
    Q_EMIT selectedPodcastTypeChanged();
}

void AppState::loadPodcastType()
{
    const std::optional<QString> stored = m_defaults.stringForKey(SettingsKeys::podcastType);
    if (const std::optional<PodcastType> type = stored ? podcastTypeFromRawValue(*stored) : std::nullopt)
        m_selectedPodcastType = *type;
}

void AppState::setIsDownloading(bool value)
{
    if (m_isDownloading == value)
        return;
    m_isDownloading = value;
    Q_EMIT isDownloadingChanged();
}

void AppState::setIsSavingAudio(bool value)
{
    if (m_isSavingAudio == value)
        return;
    m_isSavingAudio = value;
    Q_EMIT isSavingAudioChanged();
}

void AppState::setAppearanceMode(AppearanceMode value)
{
    if (m_appearanceMode == value)
        return;
    m_appearanceMode = value;
    m_defaults.set(SettingsKeys::appearanceMode, rawValue(value));
    Q_EMIT appearanceModeChanged();
}

void AppState::assignDownloadLocation(const std::optional<QString> &value)
{
    if (m_downloadLocation == value)
        return;
    m_downloadLocation = value;
    Q_EMIT downloadLocationChanged();
}

void AppState::setCurrentMonthCharacters(qint64 value)
{
    if (m_currentMonthCharacters == value)
        return;
    m_currentMonthCharacters = value;
    Q_EMIT currentMonthCharactersChanged();
}

void AppState::setUsageSyncStatus(const QString &value)
{
    if (m_usageSyncStatus == value)
        return;
    m_usageSyncStatus = value;
    Q_EMIT usageSyncStatusChanged();
}

void AppState::assignUserEmail(const std::optional<QString> &value)
{
    if (m_userEmail == value)
        return;
    m_userEmail = value;
    Q_EMIT userEmailChanged();
}

void AppState::setIsAccountLinked(bool value)
{
    if (m_isAccountLinked == value)
        return;
    m_isAccountLinked = value;
    Q_EMIT isAccountLinkedChanged();
}

void AppState::setAccountSyncStatus(const AccountSyncStatus &value)
{
    if (m_accountSyncStatus == value)
        return;
    m_accountSyncStatus = value;
    Q_EMIT accountSyncStatusChanged();
}

void AppState::setIsOnboardingMode(bool value)
{
    if (m_isOnboardingMode == value)
        return;
    m_isOnboardingMode = value;
    Q_EMIT isOnboardingModeChanged();
}

void AppState::setPendingOnboardingAudioURL(const std::optional<QString> &value)
{
    if (m_pendingOnboardingAudioURL == value)
        return;
    m_pendingOnboardingAudioURL = value;
    Q_EMIT pendingOnboardingAudioURLChanged();
}
} // namespace parlino
