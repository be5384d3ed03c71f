#pragma once

#include "ai/PodcastType.h"
#include "library/Podcast.h"

#include <QObject>
#include <QString>
#include <qcoro/qcorotask.h>

#include <functional>
#include <memory>
#include <optional>

namespace parlino {

class AppState;
class AudioExportService;
class AudioPlayerManager;
class Clock;
class PodcastService;
class SavedAudioManager;
class SpeechStream;
class UserNotifier;

// What the user can keep of the audio playing now: a podcast made from its text, a copy in the
// saved-audio library, an exported MP3 file. The floating player's buttons and the save and download
// shortcuts call it. Each flow marks its busy flag in AppState and tells the user the outcome.
//
// A reading that plays while it arrives has no file yet: the actions wait until it is complete (its
// bytes then go to a temporary file that this object owns) and isAudioArriving() says so meanwhile.
// Lives on the main thread.
class LibraryActions final : public QObject {
    Q_OBJECT

public:
    // A short title for a text (the chat side's generateAudioTitle); may throw.
    using TitleFunction = std::function<QCoro::Task<QString>(QString context)>;

    LibraryActions(AppState &state, AudioPlayerManager &player, SavedAudioManager &savedAudio, PodcastService &podcasts,
                   AudioExportService &exporter, TitleFunction title, UserNotifier &notifier, Clock &clock,
                   QObject *parent = nullptr);
    ~LibraryActions() override;

    // True while a streamed reading is still arriving, so there is nothing to keep yet.
    [[nodiscard]] bool isAudioArriving() const;
    // The local file of the audio playing now, or nothing (none loaded, still arriving, or failed).
    [[nodiscard]] std::optional<QString> currentAudioFile();

    // A podcast of the playing text in the chosen style.
    QCoro::Task<> generatePodcast();
    // A podcast of text in the style type: made, stored, played and announced; a failure is announced and
    // thrown. Refused (Error) while another podcast is being made.
    QCoro::Task<Podcast> makePodcast(QString text, PodcastType type);
    QCoro::Task<> saveForLater();
    // Into the download folder, or through the save dialog when none is chosen.
    QCoro::Task<> download();
    // Always through the save dialog.
    QCoro::Task<> saveWithDialog();

Q_SIGNALS:
    // isAudioArriving() or the current file may have changed.
    void audioAvailabilityChanged();

private:
    void watchPlayer();
    void forgetStreamFile();
    // The file and the playing text, or nothing after logging what is missing.
    [[nodiscard]] std::optional<std::pair<QString, QString>> audioAndContext();
    QCoro::Task<QString> titleFor(QString context);

    AppState &m_state;
    AudioPlayerManager &m_player;
    SavedAudioManager &m_savedAudio;
    PodcastService &m_podcasts;
    AudioExportService &m_exporter;
    TitleFunction m_title;
    UserNotifier &m_notifier;
    Clock &m_clock;

    // The finished stream written out, and which stream it came from.
    std::weak_ptr<SpeechStream> m_writtenStream;
    QString m_streamFile;
};

} // namespace parlino
