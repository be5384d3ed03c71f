#include "speech/OfflineSpeechProvider.h"

#include "core/Defaults.h"
#include "core/Error.h"
#include "core/Logging.h"
#include "core/SettingsKeys.h"
#include "speech/Mp3Encoder.h"
#include "speech/TemporaryAudio.h"
#include "speech/TextChunker.h"

#include <QHash>
#include <QMutexLocker>
#include <QThreadPool>
#include <QtConcurrent/QtConcurrentRun>
#include <QtEndian>
#include <qcoro/qcorosignal.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstring>
#include <espeak-ng/speak_lib.h>
#include <memory>

namespace parlino {

namespace {

// Length of the PCM buffers eSpeak NG hands over: short, so the first MP3 frames leave early.
constexpr int kBufferMilliseconds = 50;

// What eSpeak NG has, read once.
struct VoiceCatalogue {
    QList<OfflineVoice> languages;
    QList<OfflineVoice> variants;
    // Every language code (lower case) → the listed voice that prefers it most ("en" → "en-gb").
    QHash<QString, QString> listedNameFor;
};

class OfflineReading;

// One reading handed to the eSpeak NG thread. The worker fills in the pieces and the end; the
// caller's side receives them through its event loop. `receiver` goes null (under the mutex) when the
// caller's side goes away, so the worker never posts to a deleted object.
struct OfflineJob {
    QString text;
    QString voice;
    int wordsPerMinute = OfflineSpeechProvider::normalWordsPerMinute;
    std::atomic_bool stop{false};
    QMutex mutex;
    OfflineReading *receiver = nullptr;
};

// The caller's side of a reading: collects the MP3, hands each piece on and asks whether to stop.
class OfflineReading final : public QObject {
    Q_OBJECT
public:
    OfflineReading(std::shared_ptr<OfflineJob> job, SpeechProvider::AudioReceiver onAudio,
                   SpeechProvider::StopCheck shouldStop)
        : m_job(std::move(job))
        , m_onAudio(std::move(onAudio))
        , m_shouldStop(std::move(shouldStop))
    {
        m_job->receiver = this;
    }

    // The caller no longer waits: the worker stops at its next buffer and posts nothing more.
    void abandon()
    {
        m_job->stop = true;
        QMutexLocker lock(&m_job->mutex);
        m_job->receiver = nullptr;
    }

    void receive(const QByteArray &mp3)
    {
        if (m_job->stop)
            return;
        m_mp3.append(mp3);
        if (m_onAudio)
            m_onAudio(mp3);
        if (m_shouldStop && m_shouldStop())
            m_job->stop = true;
    }

    void finish(const QString &error, bool stopped)
    {
        m_done = true;
        m_error = error;
        m_stopped = stopped;
        Q_EMIT done();
    }

    [[nodiscard]] bool isDone() const { return m_done; }
    [[nodiscard]] bool wasStopped() const { return m_stopped; }
    [[nodiscard]] const QString &error() const { return m_error; }
    [[nodiscard]] const QByteArray &mp3() const { return m_mp3; }

Q_SIGNALS:
    void done();

private:
    std::shared_ptr<OfflineJob> m_job;
    SpeechProvider::AudioReceiver m_onAudio;
    SpeechProvider::StopCheck m_shouldStop;
    QByteArray m_mp3;
    QString m_error;
    bool m_done = false;
    bool m_stopped = false;
};

// Runs `call` on the caller's side of the job, through the caller's event loop, unless it has gone.
template <typename Call> void post(OfflineJob &job, Call call)
{
    QMutexLocker lock(&job.mutex);
    OfflineReading *reading = job.receiver;
    if (reading)
        QMetaObject::invokeMethod(
            reading, [reading, call] { call(*reading); }, Qt::QueuedConnection);
}

// eSpeak NG's one thread: every call into the library is made there, one after another.
QThreadPool &espeakThread()
{
    static QThreadPool pool;
    static const bool configured = [] {
        pool.setMaxThreadCount(1);
        pool.setExpiryTimeout(-1);
        return true;
    }();
    Q_UNUSED(configured);
    return pool;
}

// The library's state as this program left it. Touched on the eSpeak NG thread only.
struct EngineState {
    bool started = false;
    int sampleRate = -1;
    QString loadedVoice;
    VoiceCatalogue catalogue;
    // The reading being spoken, for the sample callback.
    OfflineJob *job = nullptr;
    Mp3Encoder *encoder = nullptr;
    QString failure;
    bool aborted = false;
};

EngineState &engine()
{
    static EngineState state;
    return state;
}

// eSpeak NG's "languages" field: pairs of a priority byte and a code, ended by a zero byte.
QList<std::pair<int, QString>> languageCodes(const char *field)
{
    QList<std::pair<int, QString>> codes;
    for (const char *at = field; at && *at;) {
        const int priority = static_cast<unsigned char>(*at++);
        const QString code = QString::fromUtf8(at).toLower();
        at += std::strlen(at) + 1;
        codes.append({priority, code});
    }
    return codes;
}

QString displayName(const char *voiceName)
{
    return QString::fromUtf8(voiceName).replace(u'_', u' ');
}

// The name eSpeak NG loads a voice by: its file's name ("gmw/en-US" → "en-us").
QString fileName(const char *identifier)
{
    const QString path = QString::fromUtf8(identifier);
    return path.mid(path.lastIndexOf(u'/') + 1);
}

VoiceCatalogue readCatalogue()
{
    VoiceCatalogue catalogue;
    QHash<QString, int> bestPriority;
    // Without a voice spec eSpeak NG lists the languages and leaves out the variants.
    for (const espeak_VOICE **voice = espeak_ListVoices(nullptr); voice && *voice; ++voice) {
        const QString listed = fileName((*voice)->identifier).toLower();
        if (listed.isEmpty())
            continue;
        catalogue.languages.append(OfflineVoice{listed, displayName((*voice)->name)});
        // A voice's own name always means that voice; its language codes ("en-gb", "en") go to the
        // voice that prefers them most.
        catalogue.listedNameFor.insert(listed, listed);
        bestPriority.insert(listed, -1);
        for (const auto &[priority, code] : languageCodes((*voice)->languages)) {
            if (!bestPriority.contains(code) || priority < bestPriority.value(code)) {
                bestPriority.insert(code, priority);
                catalogue.listedNameFor.insert(code, listed);
            }
        }
    }
    std::sort(catalogue.languages.begin(), catalogue.languages.end(),
              [](const OfflineVoice &a, const OfflineVoice &b) { return a.displayName < b.displayName; });

    espeak_VOICE spec{};
    spec.languages = "variant";
    for (const espeak_VOICE **voice = espeak_ListVoices(&spec); voice && *voice; ++voice) {
        // The identifier is "!v/<file>"; the file's name is what follows "+" in a voice name.
        const QString file = fileName((*voice)->identifier);
        if (!file.isEmpty())
            catalogue.variants.append(OfflineVoice{file, displayName((*voice)->name)});
    }
    return catalogue;
}

// The sample callback: encodes each buffer and posts the MP3 to the caller; 1 tells eSpeak NG to stop.
int receiveSamples(short *samples, int count, espeak_EVENT * /*events*/)
{
    EngineState &state = engine();
    if (!state.job || state.job->stop) {
        state.aborted = true;
        return 1;
    }
    if (!samples || count <= 0)
        return 0;
    QByteArray pcm(static_cast<qsizetype>(count) * 2, Qt::Uninitialized);
    qToLittleEndian<qint16>(samples, count, pcm.data());
    try {
        const QByteArray mp3 = state.encoder->encode(pcm);
        if (!mp3.isEmpty())
            post(*state.job, [mp3](OfflineReading &reading) { reading.receive(mp3); });
    } catch (const Error &error) {
        // No exception may cross the C library.
        state.failure = error.description();
        state.aborted = true;
        return 1;
    }
    return 0;
}

bool startEngine()
{
    EngineState &state = engine();
    if (state.started)
        return state.sampleRate > 0;
    state.started = true;
    // Synchronous output hands every buffer to the callback and never opens the sound card; without
    // DONT_EXIT the library ends the process when its data is missing.
    state.sampleRate =
        espeak_Initialize(AUDIO_OUTPUT_SYNCHRONOUS, kBufferMilliseconds, nullptr, espeakINITIALIZE_DONT_EXIT);
    if (state.sampleRate <= 0) {
        PWARN(lcSpeech) << "❌ eSpeak NG could not start - is espeak-ng-data installed?";
        return false;
    }
    espeak_SetSynthCallback(&receiveSamples);
    state.catalogue = readCatalogue();
    PLOG(lcSpeech) << "✅ Offline voice ready: eSpeak NG with " << state.catalogue.languages.size() << " languages at "
                   << state.sampleRate << " Hz";
    return true;
}

// Speaks one job on the eSpeak NG thread and posts its end.
void speak(const std::shared_ptr<OfflineJob> &job)
{
    EngineState &state = engine();
    QString failure;
    bool stopped = false;
    if (!startEngine()) {
        failure = QStringLiteral("The offline voice is not available: eSpeak NG could not start.");
    } else if (state.loadedVoice != job->voice && espeak_SetVoiceByName(job->voice.toUtf8().constData()) != EE_OK) {
        failure = QStringLiteral("The offline voice has no voice named ") + job->voice + u'.';
    } else {
        state.loadedVoice = job->voice;
        espeak_SetParameter(espeakRATE, job->wordsPerMinute, 0);
        try {
            Mp3Encoder encoder(state.sampleRate, OfflineSpeechProvider::bitrateKbps);
            state.job = job.get();
            state.encoder = &encoder;
            state.failure.clear();
            state.aborted = false;
            const QByteArray utf8 = job->text.toUtf8();
            // The pause at the end keeps sentences of joined chunks apart.
            const espeak_ERROR result =
                espeak_Synth(utf8.constData(), static_cast<size_t>(utf8.size()) + 1, 0, POS_CHARACTER, 0,
                             espeakCHARS_UTF8 | espeakENDPAUSE, nullptr, nullptr);
            state.job = nullptr;
            state.encoder = nullptr;
            failure = state.failure;
            stopped = state.aborted && failure.isEmpty();
            if (failure.isEmpty() && result != EE_OK)
                failure = QStringLiteral("The offline voice could not read the text (eSpeak NG error %1).").arg(result);
            if (failure.isEmpty() && !stopped) {
                const QByteArray rest = encoder.flush();
                post(*job, [rest](OfflineReading &reading) { reading.receive(rest); });
            }
        } catch (const Error &error) {
            state.job = nullptr;
            state.encoder = nullptr;
            failure = error.description();
        }
    }
    post(*job, [failure, stopped](OfflineReading &reading) { reading.finish(failure, stopped); });
}

// What eSpeak NG has; asked of its thread the first time, then remembered.
VoiceCatalogue catalogue()
{
    static QMutex mutex;
    static std::optional<VoiceCatalogue> known;
    QMutexLocker lock(&mutex);
    if (!known) {
        known = QtConcurrent::run(&espeakThread(), [] {
                    startEngine();
                    return engine().catalogue;
                }).result();
    }
    return *known;
}

} // namespace

OfflineSpeechProvider::OfflineSpeechProvider(Defaults &defaults)
    : m_defaults(defaults)
{
}

OfflineSpeechProvider::~OfflineSpeechProvider() = default;

QString OfflineSpeechProvider::name() const
{
    return QString::fromLatin1(providerName);
}

QString OfflineSpeechProvider::model() const
{
    return QStringLiteral("espeak-ng");
}

QString OfflineSpeechProvider::cacheVoice(TTSVoice /*voice*/) const
{
    return QStringLiteral("espeak:") + voiceName();
}

QString OfflineSpeechProvider::voiceName() const
{
    const QString wanted =
        m_voiceName.value_or(m_defaults.stringForKey(SettingsKeys::offlineVoice).value_or(QString()));
    if (!wanted.trimmed().isEmpty()) {
        if (const std::optional<QString> known = listedName(wanted))
            return *known;
        const QString fallback = defaultVoiceName();
        QMutexLocker lock(&m_warnedMutex);
        if (!m_warnedNames.contains(wanted)) {
            m_warnedNames.insert(wanted);
            PWARN(lcSpeech) << "⚠️ The offline voice has no voice named '" << wanted << "' - reading with "
                            << fallback;
        }
        return fallback;
    }
    return defaultVoiceName();
}

bool OfflineSpeechProvider::setVoiceName(const QString &name)
{
    if (!hasVoice(name))
        return false;
    m_voiceName = name;
    return true;
}

QList<OfflineVoice> OfflineSpeechProvider::voices()
{
    return catalogue().languages;
}

QList<OfflineVoice> OfflineSpeechProvider::variants()
{
    return catalogue().variants;
}

bool OfflineSpeechProvider::hasVoice(const QString &name)
{
    return listedName(name).has_value();
}

std::optional<QString> OfflineSpeechProvider::listedName(const QString &name)
{
    const qsizetype plus = name.indexOf(u'+');
    const QString language = (plus < 0 ? name : name.left(plus)).trimmed().toLower();
    const QString variant = plus < 0 ? QString() : name.mid(plus + 1).trimmed();
    const VoiceCatalogue known = catalogue();
    const QString listed = known.listedNameFor.value(language);
    if (listed.isEmpty())
        return std::nullopt;
    if (plus < 0)
        return listed;
    for (const OfflineVoice &candidate : known.variants) {
        if (candidate.name.compare(variant, Qt::CaseInsensitive) == 0)
            return listed + u'+' + candidate.name;
    }
    return std::nullopt;
}

QString OfflineSpeechProvider::defaultVoiceName(const QLocale &locale)
{
    if (locale.language() != QLocale::C && locale.language() != QLocale::AnyLanguage) {
        const QString language = QLocale::languageToCode(locale.language()).toLower();
        const QString territory = QLocale::territoryToCode(locale.territory()).toLower();
        if (!territory.isEmpty()) {
            if (const std::optional<QString> exact = listedName(language + u'-' + territory))
                return *exact;
        }
        if (const std::optional<QString> general = listedName(language))
            return *general;
    }
    return listedName(QStringLiteral("en")).value_or(QStringLiteral("en"));
}

int OfflineSpeechProvider::wordsPerMinute(double speed)
{
    const double rate = std::isfinite(speed) ? normalWordsPerMinute * speed : normalWordsPerMinute;
    return static_cast<int>(std::lround(std::clamp<double>(rate, espeakRATE_MINIMUM, espeakRATE_MAXIMUM)));
}

void OfflineSpeechProvider::prepare()
{
    // Loading the voice data takes a moment; the first reading then starts at once.
    QThreadPool &thread = espeakThread();
    thread.start([] { startEngine(); });
}

QCoro::Task<QString> OfflineSpeechProvider::synthesize(QString text, TTSVoice /*voice*/, double speed,
                                                       AudioReceiver onAudio, StopCheck shouldStop)
{
    if (text.trimmed().isEmpty())
        throw Error(QStringLiteral("The text has nothing to read aloud"));
    auto job = std::make_shared<OfflineJob>();
    job->text = text;
    job->voice = voiceName();
    job->wordsPerMinute = wordsPerMinute(speed);
    PLOG(lcSpeech) << "🎙️ Offline voice " << job->voice << " reads " << characterCount(text) << " characters at "
                   << job->wordsPerMinute << " words a minute";

    // The reading may outlive this frame by a queued piece or two, so it is deleted later; a frame
    // destroyed while waiting stops the worker at its next buffer.
    const std::unique_ptr<OfflineReading, void (*)(OfflineReading *)> reading(
        new OfflineReading(job, std::move(onAudio), std::move(shouldStop)), [](OfflineReading *finished) {
            finished->abandon();
            finished->deleteLater();
        });
    espeakThread().start([job] { speak(job); });
    if (!reading->isDone()) {
        OfflineReading *pending = reading.get();
        co_await qCoro(pending, &OfflineReading::done);
    }
    if (!reading->error().isEmpty()) {
        PLOG(lcSpeech) << "❌ Offline voice failed: " << reading->error();
        throw Error(reading->error());
    }
    if (reading->wasStopped()) {
        PLOG(lcSpeech) << "⏹️ Offline reading stopped after " << reading->mp3().size() << " bytes of MP3";
        co_return QString();
    }
    PLOG(lcSpeech) << "📥 Offline speech complete: " << reading->mp3().size() << " bytes of MP3";
    co_return writeTemporaryMp3(reading->mp3());
}

} // namespace parlino

#include "OfflineSpeechProvider.moc"
