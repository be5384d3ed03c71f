// Time from a read-aloud request until the player plays the new reading (its first audio decoded,
// AudioPlayerManager::itemReady) when no OpenAI key is configured, so the offline voice (eSpeak NG)
// reads: uncached texts of 300 and 4000 characters, streamed (the default) and whole-file, and the same
// texts again from the cache for comparison, through the app's own services in-process. From there to
// sound the sound server takes over, the same for every source (see the Playback benchmark). Needs the
// headless desktop for its sound server:
//   scripts/desktop-rig build/<preset>/bench/speech/bench_OfflineFirstSound [runs]
#include "TestEnvironment.h"
#include "app/ServicesProvider.h"
#include "core/Defaults.h"
#include "core/SettingsKeys.h"
#include "playback/AudioPlayerManager.h"
#include "shell/AppServices.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QTest>
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

// Asks for a reading and returns the milliseconds until the player plays it (nothing after 60 s), then
// stops it and lets its flow end.
std::optional<double> untilPlaying(AppServices &services, const QString &text)
{
    std::optional<double> playing;
    QElapsedTimer clock;
    QEventLoop loop;
    const auto ready = QObject::connect(&services.player(), &AudioPlayerManager::itemReady, &loop, [&] {
        playing = static_cast<double>(clock.nsecsElapsed()) / 1e6;
        loop.quit();
    });
    QTimer::singleShot(60s, &loop, &QEventLoop::quit);
    ServicesProvider &provider = services.servicesProvider();
    bool flowEnded = false;
    const auto ended = QObject::connect(&provider, &ServicesProvider::flowFinished, [&] { flowEnded = true; });
    clock.start();
    provider.processReadAloud(text);
    loop.exec();
    QObject::disconnect(ready);

    services.player().stop(false);
    QElapsedTimer settling;
    settling.start();
    while (!flowEnded && settling.elapsed() < 120000)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    QObject::disconnect(ended);
    // The sound server lets go of the stopped item before the next one starts.
    QTest::qWait(300);
    return playing;
}

// Every sentence carries the run's tag, so no chunk of any run is in the cache already.
QString textOf(int length, int run)
{
    QString text;
    for (int i = 1; text.size() < length; ++i)
        text += QStringLiteral("Run %1, sentence %2, is new to the cache. ").arg(run).arg(i);
    text.truncate(length - 1);
    return text + u'.';
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values.empty() ? -1.0 : values[values.size() / 2];
}

} // namespace

int main(int argc, char *argv[])
{
    test::TestEnvironment environment;
    if (qEnvironmentVariableIsEmpty("QT_LOGGING_RULES"))
        qputenv("QT_LOGGING_RULES", "parlino.*=false");
    // No key and no server: the keyring of the rig is empty and nothing listens at this address.
    qunsetenv("OPENAI_API_KEY");
    qputenv("OPENAI_BASE_URL", "http://127.0.0.1:9/v1");
    QApplication app(argc, argv);
    std::setlocale(LC_NUMERIC, "C");
    const int runs = argc > 1 ? std::max(1, atoi(argv[1])) : 5;

    AppServices services;
    services.defaults().set(SettingsKeys::onboardingCompleted, true);
    services.defaults().set(SettingsKeys::hasLaunchedBefore, true);
    services.defaults().set(SettingsKeys::offlineVoice, QStringLiteral("en-us"));
    // As at the app's start: eSpeak NG loads while the app comes up, before the first shortcut.
    services.servicesProvider();
    QTest::qWait(500);

    std::printf("request → player playing, no OpenAI key (offline voice), median of %d runs\n", runs);
    std::printf("%7s  %-10s  %12s  %12s\n", "chars", "path", "new ms", "cached ms");
    int run = 0;
    for (const int length : {300, 4000}) {
        for (const bool streamed : {true, false}) {
            services.defaults().set(SettingsKeys::streamSpeech, streamed);
            std::vector<double> fresh;
            std::vector<double> cached;
            for (int i = 0; i < runs; ++i) {
                const QString text = textOf(length, ++run);
                if (const auto ms = untilPlaying(services, text))
                    fresh.push_back(*ms);
                if (const auto ms = untilPlaying(services, text))
                    cached.push_back(*ms);
            }
            std::printf("%7d  %-10s  %12.0f  %12.0f\n", length, streamed ? "streamed" : "whole file", median(fresh),
                        median(cached));
            std::fflush(stdout);
        }
    }
    return 0;
}
