#include "ai/PocketSphinxRecognizer.h"

#include "ai/SpeechRecognitionError.h"
#include "core/Logging.h"

#include <QFileInfo>
#include <QList>
#include <QtConcurrent>

#include <algorithm>
#include <cmath>
#include <pocketsphinx.h>
#include <sphinxbase/err.h>

namespace parlino {

namespace {

QString modelPath(const QString &folder, const char *name)
{
    return folder + u'/' + QLatin1String(name);
}

} // namespace

PocketSphinxRecognizer::PocketSphinxRecognizer(QString modelFolder, QObject *parent)
    : SpeechRecognizer(parent)
    , m_modelFolder(std::move(modelFolder))
{
}

PocketSphinxRecognizer::~PocketSphinxRecognizer()
{
    if (m_loading.isValid()) {
        const Decoder loaded = m_loading.result();
        if (loaded.decoder)
            ps_free(loaded.decoder);
        if (loaded.config)
            cmd_ln_free_r(loaded.config);
    }
    if (m_decoder)
        ps_free(m_decoder);
    if (m_config)
        cmd_ln_free_r(m_config);
}

QString PocketSphinxRecognizer::defaultModelFolder()
{
    const QString fromEnvironment = qEnvironmentVariable("PARLINO_POCKETSPHINX_MODEL_DIR");
    return fromEnvironment.isEmpty() ? QStringLiteral("/usr/share/pocketsphinx/model/en-us") : fromEnvironment;
}

bool PocketSphinxRecognizer::isAvailable() const
{
    return QFileInfo(modelPath(m_modelFolder, "en-us")).isDir()
           && QFileInfo::exists(modelPath(m_modelFolder, "en-us.lm.bin"))
           && QFileInfo::exists(modelPath(m_modelFolder, "cmudict-en-us.dict"));
}

PocketSphinxRecognizer::Decoder PocketSphinxRecognizer::loadDecoder(const QString &modelFolder)
{
    // The library's own trace would flood the console; the app logs what matters.
    err_set_logfp(nullptr);
    const QByteArray hmm = modelPath(modelFolder, "en-us").toLocal8Bit();
    const QByteArray lm = modelPath(modelFolder, "en-us.lm.bin").toLocal8Bit();
    const QByteArray dict = modelPath(modelFolder, "cmudict-en-us.dict").toLocal8Bit();
    const QByteArray rate = QByteArray::number(kSampleRate);
    Decoder loaded;
    loaded.config = cmd_ln_init(nullptr, ps_args(), TRUE, "-hmm", hmm.constData(), "-lm", lm.constData(), "-dict",
                                dict.constData(), "-samprate", rate.constData(), nullptr);
    loaded.decoder = loaded.config ? ps_init(loaded.config) : nullptr;
    return loaded;
}

void PocketSphinxRecognizer::preload()
{
    if (m_decoder || m_loading.isValid() || !isAvailable())
        return;
    m_loading = QtConcurrent::run(&PocketSphinxRecognizer::loadDecoder, m_modelFolder);
}

void PocketSphinxRecognizer::begin()
{
    if (!m_decoder) {
        if (!m_loading.isValid()) {
            if (!isAvailable())
                throw SpeechRecognitionError::recognizerUnavailable();
            preload();
        }
        const Decoder loaded = m_loading.result();
        m_loading = {};
        m_config = loaded.config;
        m_decoder = loaded.decoder;
        if (!m_decoder && m_config) {
            cmd_ln_free_r(m_config);
            m_config = nullptr;
        }
        if (!m_decoder)
            throw SpeechRecognitionError::recognitionFailed(QStringLiteral("the offline speech model did not load"));
        PLOG(lcAi) << "✅ Offline speech recognizer loaded from " << m_modelFolder;
    }
    cancel();
    if (ps_start_utt(m_decoder) < 0)
        throw SpeechRecognitionError::recognitionFailed(QStringLiteral("the offline recognizer did not start"));
    m_inUtterance = true;
}

void PocketSphinxRecognizer::feed(std::span<const float> samples)
{
    if (!m_inUtterance || samples.empty())
        return;
    QList<int16> pcm(static_cast<qsizetype>(samples.size()));
    std::transform(samples.begin(), samples.end(), pcm.begin(), [](float sample) {
        const float clipped = std::isfinite(sample) ? std::clamp(sample, -1.0F, 1.0F) : 0.0F;
        return static_cast<int16>(std::lround(clipped * 32767.0F));
    });
    ps_process_raw(m_decoder, pcm.constData(), static_cast<size_t>(pcm.size()), FALSE, FALSE);
    const QString partial = hypothesis();
    if (!partial.isEmpty() && partial != m_lastPartial) {
        m_lastPartial = partial;
        Q_EMIT partialResult(partial);
    }
}

QCoro::Task<QString> PocketSphinxRecognizer::finish()
{
    if (!m_inUtterance)
        co_return QString();
    ps_end_utt(m_decoder);
    m_inUtterance = false;
    m_lastPartial.clear();
    co_return hypothesis();
}

void PocketSphinxRecognizer::cancel()
{
    if (m_inUtterance)
        ps_end_utt(m_decoder);
    m_inUtterance = false;
    m_lastPartial.clear();
}

QString PocketSphinxRecognizer::hypothesis() const
{
    int32 score = 0;
    const char *text = ps_get_hyp(m_decoder, &score);
    return text ? QString::fromUtf8(text).trimmed() : QString();
}

} // namespace parlino
