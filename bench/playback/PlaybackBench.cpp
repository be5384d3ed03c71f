// Playback figures: time from play(url) to the first position update, and the process's CPU share
// while a file plays and while it is paused. Real MP3 speech, real libmpv, null audio output.
//   bench/playback/PlaybackBench [runs]
#include "PlaybackFixtures.h"
#include "core/Clock.h"
#include "core/Defaults.h"
#include "playback/AudioPlayerManager.h"
#include "playback/MpvAudioEngine.h"
#include "usage/UsageTracker.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QTemporaryDir>
#include <QTimer>
#include <QUrl>

#include <algorithm>
#include <cstdio>
#include <sys/resource.h>

using namespace parlino;

namespace {

double processCpuSeconds()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec)
           + static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

void spin(int milliseconds)
{
    QEventLoop loop;
    QTimer::singleShot(milliseconds, &loop, &QEventLoop::quit);
    loop.exec();
}

double median(QList<double> values)
{
    std::sort(values.begin(), values.end());
    const qsizetype n = values.size();
    return n == 0 ? 0 : (n % 2 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2);
}

// CPU seconds per wall second over `milliseconds`.
double cpuShare(int milliseconds)
{
    const double cpuStart = processCpuSeconds();
    QElapsedTimer wall;
    wall.start();
    spin(milliseconds);
    return (processCpuSeconds() - cpuStart) / (static_cast<double>(wall.elapsed()) / 1000.0);
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const int runs = argc > 1 ? std::max(1, QString::fromLocal8Bit(argv[1]).toInt()) : 9;

    QTemporaryDir dir;
    const QString speech = dir.filePath(QStringLiteral("speech.mp3"));
    if (test::makeTimedSpeechMp3(QStringLiteral("A benchmark reads this sentence aloud, slowly and clearly, "
                                                "so that there is time to measure the player while it plays."),
                                 speech)
        < 5) {
        std::fprintf(stderr, "could not make the MP3 (espeak-ng, lame)\n");
        return 1;
    }
    Defaults defaults(dir.filePath(QStringLiteral("bench.conf")));
    UsageTracker tracker(defaults);
    MpvAudioEngine engine(QStringLiteral("null"));
    AudioPlayerManager player(engine, tracker, defaults, Clock::system());

    // play() → first position update that shows the file moving.
    QList<double> startMs;
    QList<double> readyMs;
    for (int i = 0; i < runs; ++i) {
        QEventLoop loop;
        QElapsedTimer timer;
        const auto ready = QObject::connect(&player, &AudioPlayerManager::itemReady, &loop,
                                            [&] { readyMs << static_cast<double>(timer.nsecsElapsed()) / 1e6; });
        const auto connection = QObject::connect(&player, &AudioPlayerManager::currentTimeChanged, &loop, [&] {
            if (player.currentTime() > 0)
                loop.quit();
        });
        QTimer::singleShot(5000, &loop, &QEventLoop::quit);
        timer.start();
        player.play(QUrl::fromLocalFile(speech));
        loop.exec();
        startMs << static_cast<double>(timer.nsecsElapsed()) / 1e6;
        QObject::disconnect(connection);
        QObject::disconnect(ready);
        player.stop();
        spin(100);
    }

    player.play(QUrl::fromLocalFile(speech));
    spin(500);
    QList<double> playing;
    QList<double> paused;
    for (int i = 0; i < 3; ++i) {
        if (!player.isPlaying())
            player.togglePlayPause();
        playing << cpuShare(1000);
        player.togglePlayPause();
        paused << cpuShare(1000);
    }
    player.stop();

    std::printf("play() to first position update: median %.0f ms over %d runs (min %.0f, max %.0f)\n", median(startMs),
                runs, *std::min_element(startMs.begin(), startMs.end()),
                *std::max_element(startMs.begin(), startMs.end()));
    std::printf("play() to playing (file loaded, output started): median %.1f ms\n", median(readyMs));
    std::printf("CPU while playing: median %.1f%% of one core\n", median(playing) * 100);
    std::printf("CPU while paused:  median %.1f%% of one core\n", median(paused) * 100);
    return 0;
}
