// Time from a real key press (xdotool, through the X server) to the first position update of the
// player, for a cached text and for an uncached 4000-character text with the speech server answering
// after 1 s. Runs the app's own services in-process against the local OpenAI test server and a
// selection application. Needs the headless desktop:
//   scripts/desktop-rig build/<preset>/bench/input/bench_ReadAloudLatency [runs]
#include "OpenAITestServer.h"
#include "TestEnvironment.h"
#include "app/AppState.h"
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

// Presses the read-aloud shortcut and waits for the player's first position update; milliseconds.
std::optional<double> pressAndWaitForPosition(AppServices &services)
{
    AppState &state = services.appState();
    QEventLoop loop;
    QElapsedTimer clock;
    std::optional<double> elapsed;
    const QMetaObject::Connection positionSeen = QObject::connect(&state, &AppState::currentTimeChanged, &loop, [&] {
        if (state.currentTime() > 0 && !elapsed) {
            elapsed = static_cast<double>(clock.nsecsElapsed()) / 1e6;
            loop.quit();
        }
    });
    QTimer::singleShot(30s, &loop, &QEventLoop::quit);
    clock.start();
    QProcess::startDetached(QStringLiteral("xdotool"), {QStringLiteral("key"), QStringLiteral("super+shift+r")});
    loop.exec();
    QObject::disconnect(positionSeen);
    services.player().stop(false);
    QEventLoop settle;
    QTimer::singleShot(300ms, &settle, &QEventLoop::quit);
    settle.exec();
    return elapsed;
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values.empty() ? 0.0 : values[values.size() / 2];
}

class SelectionApp {
public:
    explicit SelectionApp(const QString &text)
    {
        m_process.start(QStringLiteral(PARLINO_SELECTION_APP),
                        {QStringLiteral("--mode"), QStringLiteral("primary"), QStringLiteral("--text"), text});
        for (int i = 0; i < 100 && !m_ready; ++i) {
            m_process.waitForReadyRead(100);
            m_ready = m_process.readAll().contains("ready");
        }
    }
    ~SelectionApp()
    {
        m_process.kill();
        m_process.waitForFinished();
    }
    [[nodiscard]] bool ready() const { return m_ready; }

private:
    QProcess m_process;
    bool m_ready = false;
};

} // namespace

int main(int argc, char *argv[])
{
    test::TestEnvironment environment;
    qputenv("QT_LOGGING_RULES", "parlino.*=false");
    QApplication app(argc, argv);
    std::setlocale(LC_NUMERIC, "C");
    const int runs = argc > 1 ? std::max(1, atoi(argv[1])) : 7;

    test::OpenAITestServer server;
    qputenv("OPENAI_BASE_URL", server.baseUrlString().toUtf8());
    qputenv("OPENAI_API_KEY", "sk-bench");
    AppServices services;
    services.defaults().set(SettingsKeys::onboardingCompleted, true);
    services.defaults().set(SettingsKeys::hasLaunchedBefore, true);
    // The shortcuts, the capture and the player, wired as the app wires them.
    services.shortcutManager();

    std::vector<double> cached;
    {
        SelectionApp selection(QStringLiteral("A short sentence that the cache already holds."));
        if (!selection.ready() || !pressAndWaitForPosition(services)) { // fills the cache
            std::fprintf(stderr, "the first read-aloud did not play; is this running inside scripts/desktop-rig?\n");
            return 1;
        }
        for (int i = 0; i < runs; ++i)
            if (const auto ms = pressAndWaitForPosition(services))
                cached.push_back(*ms);
    }

    server.setDelay(1s);
    std::vector<double> uncached;
    for (int i = 0; i < runs; ++i) {
        QString text = QStringLiteral("Run %1 of the uncached measurement. ").arg(i);
        while (text.size() < 4000)
            text += QStringLiteral("Every sentence here is new to the cache. ");
        text.truncate(3999);
        text += u'.';
        SelectionApp selection(text);
        if (selection.ready())
            if (const auto ms = pressAndWaitForPosition(services))
                uncached.push_back(*ms);
    }

    std::printf("key press to first position update (median of %d runs)\n", runs);
    std::printf("  cached text:                               %8.1f ms (%zu runs)\n", median(cached), cached.size());
    std::printf("  uncached 4000 characters, server after 1 s: %8.1f ms (%zu runs)\n", median(uncached),
                uncached.size());
    return 0;
}
