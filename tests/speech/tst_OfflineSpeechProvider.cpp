#include "AwaitTask.h"
#include "LogCapture.h"
#include "PlaybackFixtures.h"
#include "TestEnvironment.h"
#include "backend/ModelSettings.h"
#include "core/Defaults.h"
#include "core/SettingsKeys.h"
#include "speech/OfflineSpeechProvider.h"
#include "speech/SpeechStream.h"
#include "speech/SpeechSynthesizer.h"
#include "speech/TTSCacheService.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QSignalSpy>
#include <QTest>
#include <QThread>

#include <memory>
#include <optional>

using namespace parlino;
using namespace parlino::test;

namespace {

// The length of what the espeak-ng program says for the same text and voice, from its WAV header.
double espeakSeconds(const QString &text, const QString &voice, const QString &wavPath)
{
    QProcess espeak;
    espeak.start(QStringLiteral("espeak-ng"), {QStringLiteral("-v"), voice, QStringLiteral("-w"), wavPath, text});
    espeak.waitForFinished(60000);
    QFile wav(wavPath);
    if (espeak.exitCode() != 0 || !wav.open(QIODevice::ReadOnly) || wav.size() <= 44)
        return -1;
    return static_cast<double>(wav.size() - 44) / (22050 * 2);
}

const QString kGerman = QStringLiteral("Guten Morgen. Heute lesen wir einen kurzen Text über das Wetter in Berlin, "
                                       "wo es am Nachmittag regnen soll.");

} // namespace

class TestOfflineSpeechProvider final : public QObject {
    Q_OBJECT

private:
    TestEnvironment m_env;
    QuietLog m_quiet;
    Defaults m_defaults{m_env.defaultsFile()};
    ModelSettings m_models{m_defaults};

    QString path(const QString &name) const { return m_env.root() + u'/' + name; }

private Q_SLOTS:
    void initTestCase()
    {
        qputenv("TMPDIR", m_env.root().toUtf8());
        QVERIFY2(!OfflineSpeechProvider::voices().isEmpty(), "eSpeak NG did not start");
    }

    void voiceNamesFollowTheVoiceList()
    {
        // The list's own names, a language code and variants are taken; the list spells them.
        QVERIFY(OfflineSpeechProvider::hasVoice(QStringLiteral("en-us")));
        QVERIFY(OfflineSpeechProvider::hasVoice(QStringLiteral("DE+f3")));
        QVERIFY(!OfflineSpeechProvider::hasVoice(QStringLiteral("de+nobody")));
        QVERIFY(!OfflineSpeechProvider::hasVoice(QStringLiteral("xx")));

        QCOMPARE(OfflineSpeechProvider::defaultVoiceName(QLocale(QStringLiteral("de_AT"))), QStringLiteral("de"));
        QCOMPARE(OfflineSpeechProvider::defaultVoiceName(QLocale(QStringLiteral("en_US"))), QStringLiteral("en-us"));
        QCOMPARE(OfflineSpeechProvider::defaultVoiceName(QLocale(QStringLiteral("fr_FR"))), QStringLiteral("fr"));
        QCOMPARE(OfflineSpeechProvider::defaultVoiceName(QLocale::c()), QStringLiteral("en"));

        OfflineSpeechProvider provider(m_defaults);
        m_defaults.set(SettingsKeys::offlineVoice, QStringLiteral("en-GB"));
        QCOMPARE(provider.voiceName(), QStringLiteral("en"));
        QCOMPARE(provider.cacheVoice(TTSVoice::alloy), QStringLiteral("espeak:en"));
        QCOMPARE(provider.cacheVoice(TTSVoice::onyx), QStringLiteral("espeak:en"));

        // An unknown name reads as the default, with one warning however often it is asked for.
        LogCapture log;
        m_defaults.set(SettingsKeys::offlineVoice, QStringLiteral("klingon"));
        QCOMPARE(provider.voiceName(), OfflineSpeechProvider::defaultVoiceName());
        QCOMPARE(provider.voiceName(), OfflineSpeechProvider::defaultVoiceName());
        QCOMPARE(log.lines().filter(QStringLiteral("klingon")).size(), 1);

        // The command line's choice wins over the setting, and only a known name is taken.
        QVERIFY(!provider.setVoiceName(QStringLiteral("klingon")));
        QVERIFY(provider.setVoiceName(QStringLiteral("de+f3")));
        QCOMPARE(provider.voiceName(), QStringLiteral("de+f3"));
        m_defaults.remove(SettingsKeys::offlineVoice);

        // eSpeak NG takes 80 to 450 words a minute.
        QCOMPARE(OfflineSpeechProvider::wordsPerMinute(0.25), 80);
        QCOMPARE(OfflineSpeechProvider::wordsPerMinute(4.0), 450);
    }

    void germanSpeechIsPlayableMp3OfItsOwnLengthAndCachedApart()
    {
        TTSCacheService cache(path(QStringLiteral("cache-german")));
        SpeechSynthesizer speech(cache, m_models, [] { return false; });
        auto &provider = static_cast<OfflineSpeechProvider &>(
            speech.addProvider(std::make_unique<OfflineSpeechProvider>(m_defaults)));

        m_defaults.set(SettingsKeys::offlineVoice, QStringLiteral("de"));
        const auto german = awaitTask(speech.generateSpeech(kGerman, TTSVoice::alloy, 1.0));
        QVERIFY2(german.value, qPrintable(german.error.value_or(QString())));
        const double expected = espeakSeconds(kGerman, QStringLiteral("de"), path(QStringLiteral("german.wav")));
        QVERIFY(expected > 3);
        const double heard = decodedSeconds(*german.value);
        QVERIFY2(std::abs(heard - expected) < 0.15 * expected,
                 qPrintable(QStringLiteral("%1 s decoded, espeak-ng says %2 s").arg(heard).arg(expected)));

        // Twice the speed is read faster by eSpeak NG itself, not by the player.
        const auto fast = awaitTask(provider.synthesize(kGerman, TTSVoice::alloy, 2.0, {}, {}));
        QVERIFY(fast.value);
        QVERIFY(decodedSeconds(*fast.value) < 0.65 * heard);

        // The same text in English is another entry; asked again, German comes from the cache.
        m_defaults.set(SettingsKeys::offlineVoice, QStringLiteral("en-us"));
        QVERIFY(awaitTask(speech.generateSpeech(kGerman, TTSVoice::alloy, 1.0)).value);
        m_defaults.set(SettingsKeys::offlineVoice, QStringLiteral("de"));
        const auto again = awaitTask(speech.generateSpeech(kGerman, TTSVoice::nova, 1.0));
        QVERIFY(cache.ownsFile(*again.value));
        const auto entries = awaitTask(cache.entries());
        QStringList voices;
        for (const TTSCacheEntry &entry : *entries.value)
            voices << entry.voice;
        voices.sort();
        QCOMPARE(voices, QStringList({QStringLiteral("espeak:de"), QStringLiteral("espeak:en-us")}));
        m_defaults.remove(SettingsKeys::offlineVoice);
    }

    void streamsPiecesOnTheCallersThreadAndStops()
    {
        TTSCacheService cache(path(QStringLiteral("cache-stream")));
        SpeechSynthesizer speech(cache, m_models);
        speech.addProvider(std::make_unique<OfflineSpeechProvider>(m_defaults));
        m_models.setSpeechProvider(ModelSettings::offlineProvider);

        QString text;
        for (int i = 1; i <= 12; ++i)
            text += QStringLiteral("This is sentence %1 of a text that is read without a network. ").arg(i);
        auto stream = std::make_shared<SpeechStream>();
        QSignalSpy grown(stream.get(), &SpeechStream::grown);
        QSignalSpy finished(stream.get(), &SpeechStream::finished);
        QVERIFY(awaitTask(speech.streamSpeech(text, TTSVoice::alloy, 1.0, stream)).error == std::nullopt);
        QCOMPARE(finished.size(), 1);
        // Sound arrives in many pieces while it is made, not as one file at the end.
        QVERIFY2(grown.size() > 10, qPrintable(QString::number(grown.size())));
        QVERIFY(stream->arrivedSeconds() > 20);

        // A listener who stops after the first piece: the rest is not made and nothing is kept.
        OfflineSpeechProvider provider(m_defaults);
        int pieces = 0;
        bool onCallersThread = true;
        const auto stopped = awaitTask(provider.synthesize(
            text + QStringLiteral("Once more."), TTSVoice::alloy, 1.0,
            [&](const QByteArray &) {
                ++pieces;
                onCallersThread = onCallersThread && QThread::currentThread() == thread();
            },
            [&] { return pieces > 0; }));
        QVERIFY(stopped.value);
        QVERIFY(stopped.value->isEmpty());
        QVERIFY(onCallersThread);
        QCOMPARE(pieces, 1);
        m_defaults.remove(SettingsKeys::speechProvider);
    }
};

QTEST_GUILESS_MAIN(TestOfflineSpeechProvider)
#include "tst_OfflineSpeechProvider.moc"
