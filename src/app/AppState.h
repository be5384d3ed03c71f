#pragma once

#include "ai/AIMessage.h"
#include "ai/PodcastType.h"
#include "app/AppearanceMode.h"
#include "backend/AccountSyncStatus.h"
#include "input/ShortcutContext.h"
#include "playback/PlaybackSpeed.h"
#include "speech/TTSVoice.h"

#include <QList>
#include <QObject>
#include <QSizeF>
#include <QString>
#include <qcoro/qcorotask.h>

#include <optional>

namespace parlino {

class AudioPlayerManager;
class Defaults;
class SupabaseService;

// The one observable state of the application: playback figures, progress flags and messages, the
// user's voice and speed, the download folder and the linked account. Views observe the change
// signals; services write through the setters. Lives on the main thread.
class AppState final : public QObject, public ShortcutContext {
    Q_OBJECT
    // clang-format off
    Q_PROPERTY(bool isPlaying READ isPlaying WRITE setIsPlaying NOTIFY isPlayingChanged)
    Q_PROPERTY(PlaybackSpeed currentSpeed READ currentSpeed WRITE setCurrentSpeed NOTIFY currentSpeedChanged)
    Q_PROPERTY(TTSVoice selectedVoice READ selectedVoice WRITE setSelectedVoice NOTIFY selectedVoiceChanged)
    Q_PROPERTY(double playbackProgress READ playbackProgress WRITE setPlaybackProgress NOTIFY playbackProgressChanged)
    Q_PROPERTY(double currentTime READ currentTime WRITE setCurrentTime NOTIFY currentTimeChanged)
    Q_PROPERTY(double totalTime READ totalTime WRITE setTotalTime NOTIFY totalTimeChanged)
    Q_PROPERTY(bool showingSettings READ showingSettings WRITE setShowingSettings NOTIFY showingSettingsChanged)
    Q_PROPERTY(bool showingOnboarding READ showingOnboarding WRITE setShowingOnboarding NOTIFY showingOnboardingChanged)
    Q_PROPERTY(bool isProcessing READ isProcessing WRITE setIsProcessing NOTIFY isProcessingChanged)
    Q_PROPERTY(QString processingMessage READ processingMessage WRITE setProcessingMessage NOTIFY processingMessageChanged)
    Q_PROPERTY(double processingProgress READ processingProgress WRITE setProcessingProgress NOTIFY processingProgressChanged)
    Q_PROPERTY(QString speechNotice READ speechNotice WRITE setSpeechNotice NOTIFY speechNoticeChanged)
    Q_PROPERTY(bool showFloatingPlayer READ showFloatingPlayer WRITE setShowFloatingPlayer NOTIFY showFloatingPlayerChanged)
    Q_PROPERTY(QString currentPlayingContext READ currentPlayingContext WRITE setCurrentPlayingContext NOTIFY currentPlayingContextChanged)
    Q_PROPERTY(QString currentPlayingTitle READ currentPlayingTitle WRITE setCurrentPlayingTitle NOTIFY currentPlayingTitleChanged)
    Q_PROPERTY(QSizeF floatingPlayerSize READ floatingPlayerSize WRITE setFloatingPlayerSize NOTIFY floatingPlayerSizeChanged)
    Q_PROPERTY(bool keepFloatingPlayerOpen READ keepFloatingPlayerOpen WRITE setKeepFloatingPlayerOpen NOTIFY keepFloatingPlayerOpenChanged)
    Q_PROPERTY(bool isAnsweringQuestion READ isAnsweringQuestion WRITE setIsAnsweringQuestion NOTIFY isAnsweringQuestionChanged)
    Q_PROPERTY(bool isListeningForQuestion READ isListeningForQuestion WRITE setIsListeningForQuestion NOTIFY isListeningForQuestionChanged)
    Q_PROPERTY(bool isReadyToSendQuestion READ isReadyToSendQuestion WRITE setIsReadyToSendQuestion NOTIFY isReadyToSendQuestionChanged)
    Q_PROPERTY(float questionAudioAmplitude READ questionAudioAmplitude WRITE setQuestionAudioAmplitude NOTIFY questionAudioAmplitudeChanged)
    Q_PROPERTY(QList<AIMessage> conversationHistory READ conversationHistory WRITE setConversationHistory NOTIFY conversationHistoryChanged)
    Q_PROPERTY(QString currentQuestion READ currentQuestion WRITE setCurrentQuestion NOTIFY currentQuestionChanged)
    Q_PROPERTY(bool isGeneratingPodcast READ isGeneratingPodcast WRITE setIsGeneratingPodcast NOTIFY isGeneratingPodcastChanged)
    Q_PROPERTY(QString podcastGenerationProgress READ podcastGenerationProgress WRITE setPodcastGenerationProgress NOTIFY podcastGenerationProgressChanged)
    Q_PROPERTY(PodcastType selectedPodcastType READ selectedPodcastType WRITE setSelectedPodcastType NOTIFY selectedPodcastTypeChanged)
    Q_PROPERTY(bool isDownloading READ isDownloading WRITE setIsDownloading NOTIFY isDownloadingChanged)
    Q_PROPERTY(bool isSavingAudio READ isSavingAudio WRITE setIsSavingAudio NOTIFY isSavingAudioChanged)
    Q_PROPERTY(AppearanceMode appearanceMode READ appearanceMode WRITE setAppearanceMode NOTIFY appearanceModeChanged)
    Q_PROPERTY(std::optional<QString> downloadLocation READ downloadLocation NOTIFY downloadLocationChanged)
    Q_PROPERTY(qint64 currentMonthCharacters READ currentMonthCharacters WRITE setCurrentMonthCharacters NOTIFY currentMonthCharactersChanged)
    Q_PROPERTY(QString usageSyncStatus READ usageSyncStatus WRITE setUsageSyncStatus NOTIFY usageSyncStatusChanged)
    Q_PROPERTY(std::optional<QString> userEmail READ userEmail NOTIFY userEmailChanged)
    Q_PROPERTY(bool isAccountLinked READ isAccountLinked WRITE setIsAccountLinked NOTIFY isAccountLinkedChanged)
    Q_PROPERTY(AccountSyncStatus accountSyncStatus READ accountSyncStatus WRITE setAccountSyncStatus NOTIFY accountSyncStatusChanged)
    Q_PROPERTY(bool isOnboardingMode READ isOnboardingMode WRITE setIsOnboardingMode NOTIFY isOnboardingModeChanged)
    Q_PROPERTY(std::optional<QString> pendingOnboardingAudioURL READ pendingOnboardingAudioURL WRITE setPendingOnboardingAudioURL NOTIFY pendingOnboardingAudioURLChanged)
    // clang-format on

public:
    // The floating player's size limits: the window keeps within them, and a stored size outside them
    // is not used.
    static constexpr int kFloatingPlayerMinWidth = 200;
    static constexpr int kFloatingPlayerMaxWidth = 500;
    static constexpr int kFloatingPlayerMinHeight = 180;
    static constexpr int kFloatingPlayerMaxHeight = 600;

    // Loads the download location, default speed, default voice and account from defaults, in that order.
    explicit AppState(Defaults &defaults, QObject *parent = nullptr);
    ~AppState() override;

    // Keeps the playback figures in step with the player, their owner: position, progress, duration,
    // playing flag and the matching speed; a ready file shows the floating player, a closing stop
    // hides it and forgets the text.
    void mirrorPlayer(const AudioPlayerManager &player);

    [[nodiscard]] bool isPlaying() const override { return m_isPlaying; }
    [[nodiscard]] PlaybackSpeed currentSpeed() const { return m_currentSpeed; }
    [[nodiscard]] TTSVoice selectedVoice() const { return m_selectedVoice; }
    [[nodiscard]] double playbackProgress() const { return m_playbackProgress; }
    [[nodiscard]] double currentTime() const { return m_currentTime; }
    [[nodiscard]] double totalTime() const { return m_totalTime; }
    [[nodiscard]] bool showingSettings() const { return m_showingSettings; }
    [[nodiscard]] bool showingOnboarding() const { return m_showingOnboarding; }
    [[nodiscard]] bool isProcessing() const override { return m_isProcessing; }
    [[nodiscard]] const QString &processingMessage() const { return m_processingMessage; }
    [[nodiscard]] double processingProgress() const { return m_processingProgress; }
    // Which voice reads the current text when it is not the one the user chose (the offline voice for
    // want of a key or a connection), in one line for the floating player; empty otherwise.
    [[nodiscard]] const QString &speechNotice() const { return m_speechNotice; }
    [[nodiscard]] bool showFloatingPlayer() const override { return m_showFloatingPlayer; }
    [[nodiscard]] const QString &currentPlayingContext() const { return m_currentPlayingContext; }
    [[nodiscard]] const QString &currentPlayingTitle() const { return m_currentPlayingTitle; }
    [[nodiscard]] const QSizeF &floatingPlayerSize() const { return m_floatingPlayerSize; }
    [[nodiscard]] bool keepFloatingPlayerOpen() const { return m_keepFloatingPlayerOpen; }
    [[nodiscard]] bool isAnsweringQuestion() const { return m_isAnsweringQuestion; }
    [[nodiscard]] bool isListeningForQuestion() const { return m_isListeningForQuestion; }
    [[nodiscard]] bool isReadyToSendQuestion() const { return m_isReadyToSendQuestion; }
    [[nodiscard]] float questionAudioAmplitude() const { return m_questionAudioAmplitude; }
    [[nodiscard]] const QList<AIMessage> &conversationHistory() const { return m_conversationHistory; }
    [[nodiscard]] const QString &currentQuestion() const { return m_currentQuestion; }
    [[nodiscard]] bool isGeneratingPodcast() const { return m_isGeneratingPodcast; }
    [[nodiscard]] const QString &podcastGenerationProgress() const { return m_podcastGenerationProgress; }
    [[nodiscard]] PodcastType selectedPodcastType() const { return m_selectedPodcastType; }
    [[nodiscard]] bool isDownloading() const { return m_isDownloading; }
    [[nodiscard]] bool isSavingAudio() const { return m_isSavingAudio; }
    [[nodiscard]] AppearanceMode appearanceMode() const { return m_appearanceMode; }
    [[nodiscard]] const std::optional<QString> &downloadLocation() const { return m_downloadLocation; }
    [[nodiscard]] qint64 currentMonthCharacters() const { return m_currentMonthCharacters; }
    [[nodiscard]] const QString &usageSyncStatus() const { return m_usageSyncStatus; }
    [[nodiscard]] const std::optional<QString> &userEmail() const { return m_userEmail; }
    [[nodiscard]] bool isAccountLinked() const { return m_isAccountLinked; }
    [[nodiscard]] const AccountSyncStatus &accountSyncStatus() const { return m_accountSyncStatus; }
    [[nodiscard]] bool isOnboardingMode() const override { return m_isOnboardingMode; }
    [[nodiscard]] const std::optional<QString> &pendingOnboardingAudioURL() const
    {
        return m_pendingOnboardingAudioURL;
    }
    [[nodiscard]] bool hasPendingOnboardingAudio() const override { return m_pendingOnboardingAudioURL.has_value(); }

    void setIsPlaying(bool value);
    void setCurrentSpeed(PlaybackSpeed value);
    void setSelectedVoice(TTSVoice value);
    void setPlaybackProgress(double value);
    void setCurrentTime(double value);
    void setTotalTime(double value);
    void setShowingSettings(bool value);
    void setShowingOnboarding(bool value);
    void setIsProcessing(bool value);
    void setProcessingMessage(const QString &value);
    void setProcessingProgress(double value);
    void setSpeechNotice(const QString &value);
    void setShowFloatingPlayer(bool value);
    void setCurrentPlayingContext(const QString &value);
    void setCurrentPlayingTitle(const QString &value);
    void setFloatingPlayerSize(const QSizeF &value);
    void setKeepFloatingPlayerOpen(bool value);
    void setIsAnsweringQuestion(bool value);
    void setIsListeningForQuestion(bool value);
    void setIsReadyToSendQuestion(bool value);
    void setQuestionAudioAmplitude(float value);
    void setConversationHistory(const QList<AIMessage> &value);
    void setCurrentQuestion(const QString &value);
    void setIsGeneratingPodcast(bool value);
    void setPodcastGenerationProgress(const QString &value);
    void setSelectedPodcastType(PodcastType value);
    void setIsDownloading(bool value);
    void setIsSavingAudio(bool value);
    void setAppearanceMode(AppearanceMode value);
    void setCurrentMonthCharacters(qint64 value);
    void setUsageSyncStatus(const QString &value);
    void setIsAccountLinked(bool value);
    void setAccountSyncStatus(const AccountSyncStatus &value);
    void setIsOnboardingMode(bool value);
    void setPendingOnboardingAudioURL(const std::optional<QString> &value);

    // Account: linking stores the e-mail; the account syncs at the next launch.
    void setUserEmail(const QString &email);
    void clearAccount();
    void loadAccountState();

    // The hosted database that the voice preference is reconciled with; without one the sync does nothing.
    void setSupabaseService(SupabaseService *service) { m_supabase = service; }
    // Reconciles the voice with the database for the linked e-mail: the server's preference wins and
    // becomes the default voice; the local one is uploaded only when the server has none. Failures
    // are the database client's log lines and leave the voice as it is.
    QCoro::Task<> syncVoicePreferenceFromSupabase();

    // Download location: a folder path kept under "downloadLocationBookmark"; a folder that no longer
    // exists counts as a stale bookmark.
    void setDownloadLocation(const QString &folder);
    void loadDownloadLocation();

    void loadDefaultPlaybackSpeed();
    void loadDefaultVoice();
    // The user's choice in settings: used from now on and kept as the default.
    void saveDefaultVoice(TTSVoice voice);
    void saveDefaultSpeed(PlaybackSpeed speed);
    // The floating player's size as last left, within the window's limits.
    void loadFloatingPlayerSize();
    void loadPodcastType();

Q_SIGNALS:
    void isPlayingChanged();
    void currentSpeedChanged();
    void selectedVoiceChanged();
    void playbackProgressChanged();
    void currentTimeChanged();
    void totalTimeChanged();
    void showingSettingsChanged();
    void showingOnboardingChanged();
    void isProcessingChanged();
    void processingMessageChanged();
    void processingProgressChanged();
    void speechNoticeChanged();
    void showFloatingPlayerChanged();
    void currentPlayingContextChanged();
    void currentPlayingTitleChanged();
    void floatingPlayerSizeChanged();
    void keepFloatingPlayerOpenChanged();
    void isAnsweringQuestionChanged();
    void isListeningForQuestionChanged();
    void isReadyToSendQuestionChanged();
    void questionAudioAmplitudeChanged();
    void conversationHistoryChanged();
    void currentQuestionChanged();
    void isGeneratingPodcastChanged();
    void podcastGenerationProgressChanged();
    void selectedPodcastTypeChanged();
    void isDownloadingChanged();
    void isSavingAudioChanged();
    void appearanceModeChanged();
    void downloadLocationChanged();
    void currentMonthCharactersChanged();
    void usageSyncStatusChanged();
    void userEmailChanged();
    void isAccountLinkedChanged();
    void accountSyncStatusChanged();
    void isOnboardingModeChanged();
    void pendingOnboardingAudioURLChanged();

private:
    void assignDownloadLocation(const std::optional<QString> &value);
    void assignUserEmail(const std::optional<QString> &value);

    Defaults &m_defaults;
    SupabaseService *m_supabase = nullptr;

    bool m_isPlaying{false};
    PlaybackSpeed m_currentSpeed{PlaybackSpeed::x1};
    TTSVoice m_selectedVoice{TTSVoice::alloy};
    double m_playbackProgress{0};
    double m_currentTime{0};
    double m_totalTime{0};
    bool m_showingSettings{false};
    bool m_showingOnboarding{false};
    bool m_isProcessing{false};
    QString m_processingMessage;
    double m_processingProgress{0};
    QString m_speechNotice;
    bool m_showFloatingPlayer{false};
    QString m_currentPlayingContext;
    QString m_currentPlayingTitle;
    QSizeF m_floatingPlayerSize{280, 380};
    bool m_keepFloatingPlayerOpen{false};
    bool m_isAnsweringQuestion{false};
    bool m_isListeningForQuestion{false};
    bool m_isReadyToSendQuestion{false};
    float m_questionAudioAmplitude{0};
    QList<AIMessage> m_conversationHistory;
    QString m_currentQuestion;
    bool m_isGeneratingPodcast{false};
    QString m_podcastGenerationProgress;
    PodcastType m_selectedPodcastType{PodcastType::educational};
    bool m_isDownloading{false};
    bool m_isSavingAudio{false};
    AppearanceMode m_appearanceMode{AppearanceMode::system};
    std::optional<QString> m_downloadLocation;
    qint64 m_currentMonthCharacters{0};
    QString m_usageSyncStatus{QStringLiteral("Idle")};
    std::optional<QString> m_userEmail;
    bool m_isAccountLinked{false};
    AccountSyncStatus m_accountSyncStatus;
    bool m_isOnboardingMode{false};
    std::optional<QString> m_pendingOnboardingAudioURL;
};

} // namespace parlino
