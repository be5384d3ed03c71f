// Time from a read-aloud request to the first sound at the sound server, for uncached texts of 300,
// 4000 and 12 000 characters: streamed and whole-file, through the speech endpoint, the Realtime API and
// the offline voice. The local servers are shaped like the real ones as users measure tts-1: the first
// audio after 1 s, then about 90 characters per second. The app's own services run in-process; what
// they play is recorded from the PulseAudio null sink's monitor, and the first sample above the
// noise floor counts. Needs the headless desktop:
//   scripts/desktop-rig build/<preset>/bench/speech/bench_FirstSound [streamed runs] [providers,...]
#include "OpenAITestServer.h"
#include "RealtimeTestServer.h"
#include "TestEnvironment.h"
#include "app/ServicesProvider.h"
#include "core/Defaults.h"
#include "core/SettingsKeys.h"
#include "playback/AudioPlayerManager.h"
#include "shell/AppServices.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QProcess>
#include <QTimer>

#include <algorithm>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <vector>

using namespace parlino;
using namespace std::chrono_literals;

namespace {

constexpr double kCharactersPerSecond = 90;
constexpr auto kFirstByte = 1s;
// Samples (16 bit) above this are sound, below it the null sink's silence.
constexpr int kSoundThreshold = 300;

// Records the null sink's monitor and notes when the first sound arrives.
class SoundWatch final {
public:
    SoundWatch()
    {
        QObject::connect(&m_recorder, &QProcess::readyReadStandardOutput, [this] { read(); });
        m_recorder.start(QStringLiteral("parec"), {QStringLiteral("--device=null.monitor"), QStringLiteral("--raw"),
                                                   QStringLiteral("--format=s16le"), QStringLiteral("--rate=24000"),
                                                   QStringLiteral("--channels=1"), QStringLiteral("--latency-msec=5")});
        m_recorder.waitForStarted();
    }
    ~SoundWatch()
    {
        m_recorder.kill();
        m_recorder.waitForFinished();
    }

    // Watches from now on; the result is milliseconds since `since` started.
    void arm(const QElapsedTimer &since)
    {
        m_recorder.readAllStandardOutput();
        m_since = &since;
        m_heardAfter.reset();
    }
    [[nodiscard]] std::optional<double> heardAfter() const { return m_heardAfter; }

private:
    void read()
    {
        const QByteArray data = m_recorder.readAllStandardOutput();
        if (!m_since || m_heardAfter)
            return;
        const auto *samples = reinterpret_cast<const qint16 *>(data.constData());
        for (qsizetype i = 0; i < data.size() / 2; ++i) {
            if (std::abs(samples[i]) > kSoundThreshold) {
                m_heardAfter = static_cast<double>(m_since->nsecsElapsed()) / 1e6;
                return;
            }
        }
    }

    QProcess m_recorder;
    const QElapsedTimer *m_since = nullptr;
    std::optional<double> m_heardAfter;
};

// Every sentence carries the run's tag, so no chunk of any run is in the cache already.
QString textOf(int length, const QString &tag)
{
    QString text;
    for (int i = 1; text.size() < length; ++i)
        text += QStringLiteral("%1, sentence %2, is new to the cache. ").arg(tag).arg(i);
    text.truncate(length - 1);
    return text + u'.';
}

// Asks for a reading and waits for its first sound, then stops it and lets its flow end.
std::optional<double> firstSound(AppServices &services, SoundWatch &watch, const QString &text)
{
    ServicesProvider &provider = services.servicesProvider();
    QEventLoop loop;
    QTimer poll;
    QObject::connect(&poll, &QTimer::timeout, &loop, [&] {
        if (watch.heardAfter())
            loop.quit();
    });
    poll.start(5);
    QTimer::singleShot(400s, &loop, &QEventLoop::quit);
    QElapsedTimer clock;
    clock.start();
    watch.arm(clock);
    bool flowEnded = false;
    const auto ended = QObject::connect(&provider, &ServicesProvider::flowFinished, &loop, [&] { flowEnded = true; });
    provider.processReadAloud(text);
    loop.exec();
    const std::optional<double> heard = watch.heardAfter();

    services.player().stop(false);
    QEventLoop settle;
    QTimer done;
    QObject::connect(&done, &QTimer::timeout, &settle, [&] {
        if (flowEnded)
            settle.quit();
    });
    done.start(20);
    QTimer::singleShot(200s, &settle, &QEventLoop::quit);
    settle.exec();
    QObject::disconnect(ended);
    return heard;
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values.empty() ? 0.0 : values[values.size() / 2];
}

} // namespace

int main(int argc, char *argv[])
{
    test::TestEnvironment environment;
    qputenv("QT_LOGGING_RULES", "parlino.*=false");
    QApplication app(argc, argv);
    std::setlocale(LC_NUMERIC, "C");
    const int streamedRuns = argc > 1 ? std::max(1, atoi(argv[1])) : 3;

    test::OpenAITestServer http;
    test::RealtimeTestServer realtime;
    http.setDelay(kFirstByte);
    http.setSpeechPace(kCharactersPerSecond);
    realtime.setFirstAudioDelay(kFirstByte);
    realtime.setPace(kCharactersPerSecond);
    qputenv("OPENAI_BASE_URL", http.baseUrlString().toUtf8());
    qputenv("OPENAI_WEBSOCKET_BASE_URL", realtime.baseUrlString().toUtf8());
    qputenv("OPENAI_API_KEY", "sk-bench");

    AppServices services;
    services.defaults().set(SettingsKeys::onboardingCompleted, true);
    services.defaults().set(SettingsKeys::hasLaunchedBefore, true);
    SoundWatch watch;

    std::printf("request → first sound at the sound server (first audio after 1 s, then %.0f characters/s)\n",
                kCharactersPerSecond);
    std::printf("%-16s %7s  %14s  %14s  %7s\n", "provider", "chars", "whole file ms", "streamed ms", "ratio");
    int run = 0;
    const QStringList providers = argc > 2 ? QString::fromLocal8Bit(argv[2]).split(u',', Qt::SkipEmptyParts)
                                           : QStringList{QStringLiteral("openai-speech"),
                                                         QStringLiteral("openai-realtime"), QStringLiteral("offline")};
    for (const QString &provider : providers) {
        services.defaults().set(SettingsKeys::speechProvider, provider);
        for (const int length : {300, 4000, 12000}) {
            services.defaults().set(SettingsKeys::streamSpeech, false);
            const std::optional<double> whole =
                firstSound(services, watch, textOf(length, QStringLiteral("Run %1").arg(++run)));
            services.defaults().set(SettingsKeys::streamSpeech, true);
            std::vector<double> streamed;
            for (int i = 0; i < streamedRuns; ++i)
                if (const auto ms = firstSound(services, watch, textOf(length, QStringLiteral("Run %1").arg(++run))))
                    streamed.push_back(*ms);
            const double streamedMedian = median(streamed);
            std::printf("%-16s %7d  %14.0f  %14.0f  %6.1fx\n", qPrintable(provider), length, whole.value_or(-1),
                        streamed.empty() ? -1.0 : streamedMedian,
                        whole && !streamed.empty() ? *whole / streamedMedian : 0.0);
            std::fflush(stdout);
        }
    }
    return 0;
}
