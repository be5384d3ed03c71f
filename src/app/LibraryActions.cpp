#include "app/LibraryActions.h"

#include "app/AppState.h"
#include "app/PodcastService.h"
#include "app/UserNotifier.h"
#include "core/Clock.h"
#include "core/Error.h"
#include "core/Logging.h"
#include "library/AudioExportService.h"
#include "library/SavedAudioManager.h"
#include "playback/AudioPlayerManager.h"
#include "speech/SpeechStream.h"
#include "speech/TemporaryAudio.h"

#include <QFile>
#include <QPointer>
#include <QRegularExpression>
#include <QUrl>
#include <QUuid>

namespace parlino {

namespace {

// Words of the text that name a saved item when neither the player nor the chat model gives a title.
constexpr qsizetype kTitleWords = 6;

QStringList words(const QString &text)
{
    static const QRegularExpression whitespace(QStringLiteral("\\s+"));
    return text.split(whitespace, Qt::SkipEmptyParts);
}

QString describe(const std::exception &error)
{
    if (const auto *own = dynamic_cast<const Error *>(&error))
        return own->description();
    return QString::fromUtf8(error.what());
}

} // namespace

LibraryActions::LibraryActions(AppState &state, AudioPlayerManager &player, SavedAudioManager &savedAudio,
                               PodcastService &podcasts, AudioExportService &exporter, TitleFunction title,
                               UserNotifier &notifier, Clock &clock, QObject *parent)
    : QObject(parent)
    , m_state(state)
    , m_player(player)
    , m_savedAudio(savedAudio)
    , m_podcasts(podcasts)
    , m_exporter(exporter)
    , m_title(std::move(title))
    , m_notifier(notifier)
    , m_clock(clock)
{
    watchPlayer();
}

LibraryActions::~LibraryActions()
{
    forgetStreamFile();
}

void LibraryActions::watchPlayer()
{
    // A stream reports its end itself; the player reports a new item.
    auto changed = [this] {
        if (const std::shared_ptr<SpeechStream> &stream = m_player.currentStream()) {
            connect(stream.get(), &SpeechStream::finished, this, &LibraryActions::audioAvailabilityChanged,
                    Qt::UniqueConnection);
            connect(stream.get(), &SpeechStream::failed, this, &LibraryActions::audioAvailabilityChanged,
                    Qt::UniqueConnection);
        }
        Q_EMIT audioAvailabilityChanged();
    };
    connect(&m_player, &AudioPlayerManager::currentURLChanged, this, changed);
    connect(&m_player, &AudioPlayerManager::itemReady, this, changed);
    connect(&m_player, &AudioPlayerManager::isPlayingChanged, this, changed);
}

bool LibraryActions::isAudioArriving() const
{
    const std::shared_ptr<SpeechStream> &stream = m_player.currentStream();
    return stream && !stream->isClosed();
}

std::optional<QString> LibraryActions::currentAudioFile()
{
    const std::shared_ptr<SpeechStream> &stream = m_player.currentStream();
    if (!stream) {
        const std::optional<QUrl> &url = m_player.currentURL();
        if (!url || !url->isLocalFile())
            return std::nullopt;
        return url->toLocalFile();
    }
    // Part of a reading is not worth keeping: only a stream that arrived whole.
    if (!stream->isClosed() || stream->hasFailed() || stream->isCancelled())
        return std::nullopt;
    if (m_writtenStream.lock() == stream && QFile::exists(m_streamFile))
        return m_streamFile;
    forgetStreamFile();
    try {
        m_streamFile = writeTemporaryMp3(stream->bytes());
    } catch (const Error &error) {
        PWARN(lcApp) << "⚠️ Could not write the streamed audio to a file: " << error.description();
        return std::nullopt;
    }
    m_writtenStream = stream;
    return m_streamFile;
}

void LibraryActions::forgetStreamFile()
{
    if (!m_streamFile.isEmpty())
        QFile::remove(m_streamFile);
    m_streamFile.clear();
    m_writtenStream.reset();
}

std::optional<std::pair<QString, QString>> LibraryActions::audioAndContext()
{
    const std::optional<QString> file = currentAudioFile();
    if (!file) {
        PWARN(lcApp) << "⚠️ No audio URL available";
        return std::nullopt;
    }
    const QString &context = m_state.currentPlayingContext();
    if (context.isEmpty()) {
        PWARN(lcApp) << "⚠️ No context available";
        return std::nullopt;
    }
    return std::pair{*file, context};
}

QCoro::Task<QString> LibraryActions::titleFor(QString context)
{
    if (!m_state.currentPlayingTitle().trimmed().isEmpty())
        co_return m_state.currentPlayingTitle().trimmed();
    try {
        QCoro::Task<QString> titling = m_title(context);
        const QString title = (co_await titling).trimmed();
        if (!title.isEmpty())
            co_return title;
    } catch (const std::exception &error) {
        PWARN(lcApp) << "⚠️ No title from the chat model: " << describe(error);
    }
    co_return words(context).mid(0, kTitleWords).join(u' ');
}

QCoro::Task<> LibraryActions::generatePodcast()
{
    PLOG(lcApp) << "🎙️ handleGeneratePodcastButton called";
    const QString context = m_state.currentPlayingContext();
    PLOG(lcApp) << "   - Context length: " << context.size();
    if (context.isEmpty()) {
        PWARN(lcApp) << "⚠️ No context available for podcast generation";
        co_return;
    }
    if (m_state.isGeneratingPodcast())
        co_return;
    try {
        QCoro::Task<Podcast> making = makePodcast(context, m_state.selectedPodcastType());
        co_await making;
    } catch (const std::exception &) {
        // The user has been told already.
    }
}

QCoro::Task<Podcast> LibraryActions::makePodcast(QString text, PodcastType type)
{
    if (m_state.isGeneratingPodcast())
        throw Error(QStringLiteral("A podcast is being made already; try again when it is done"));
    QPointer<LibraryActions> self(this);
    m_state.setIsGeneratingPodcast(true);
    std::optional<Podcast> made;
    QString failure;
    try {
        QCoro::Task<Podcast> generating = m_podcasts.generatePodcast(text, type);
        made = co_await generating;
    } catch (const std::exception &error) {
        failure = describe(error);
    }
    if (self) {
        if (made) {
            m_notifier.notify(
                QStringLiteral("Podcast Generated!"),
                u'\'' + made->title
                    + QStringLiteral("' has been created and is now playing. Find it in the Podcasts tab."));
        } else {
            PLOG(lcApp) << "❌ Podcast generation failed: " << failure;
            m_notifier.notify(QStringLiteral("Podcast Generation Failed"),
                              QStringLiteral("Failed to generate podcast: ") + failure);
        }
        m_state.setIsGeneratingPodcast(false);
        m_state.setPodcastGenerationProgress(QString());
    }
    if (!made)
        throw Error(failure);
    co_return *made;
}

QCoro::Task<> LibraryActions::saveForLater()
{
    PLOG(lcApp) << "💾 handleSaveForLaterButton called";
    if (m_state.isSavingAudio())
        co_return;
    const auto source = audioAndContext();
    if (!source)
        co_return;
    const auto &[file, context] = *source;
    PLOG(lcApp) << "💾 Saving audio for later...";
    QPointer<LibraryActions> self(this);
    m_state.setIsSavingAudio(true);
    try {
        SavedAudio item;
        item.id = QUuid::createUuid();
        item.audioURL = QUrl::fromLocalFile(file);
        item.sourceText = context;
        item.createdDate = m_clock.now();
        item.duration = m_player.duration();
        item.wordCount = static_cast<int>(words(context).size());
        QCoro::Task<QString> titling = titleFor(context);
        item.title = co_await titling;
        if (!self)
            co_return;
        QCoro::Task<SavedAudio> saving = m_savedAudio.save(item);
        const SavedAudio saved = co_await saving;
        if (!self)
            co_return;
        m_notifier.notify(QStringLiteral("Saved to Library"),
                          u'\'' + saved.title
                              + QStringLiteral("' has been saved to your library. Access it in the Library tab."));
    } catch (const std::exception &error) {
        if (!self)
            co_return;
        PLOG(lcApp) << "❌ Save failed: " << describe(error);
    }
    m_state.setIsSavingAudio(false);
}

QCoro::Task<> LibraryActions::download()
{
    PLOG(lcApp) << "📥 handleDownloadButton called";
    if (m_state.isDownloading())
        co_return;
    const auto source = audioAndContext();
    if (!source)
        co_return;
    PLOG(lcApp) << "📥 Starting audio download...";
    QPointer<LibraryActions> self(this);
    m_state.setIsDownloading(true);
    // The export announces the file it wrote itself, so the user hears of it once.
    try {
        QCoro::Task<> exporting = m_exporter.exportAudio(QUrl::fromLocalFile(source->first), source->second);
        co_await exporting;
    } catch (const std::exception &error) {
        if (!self)
            co_return;
        PLOG(lcApp) << "❌ Download failed: " << describe(error);
    }
    if (self)
        m_state.setIsDownloading(false);
}

QCoro::Task<> LibraryActions::saveWithDialog()
{
    const auto source = audioAndContext();
    if (!source)
        co_return;
    QPointer<LibraryActions> self(this);
    QCoro::Task<QString> naming = m_exporter.generateSmartFilename(source->second);
    const QString filename = co_await naming;
    if (self)
        m_exporter.showSavePanel(QUrl::fromLocalFile(source->first), filename);
}

} // namespace parlino
