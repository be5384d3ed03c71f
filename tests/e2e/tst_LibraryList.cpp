// The library as the command line lists it: the real executable reads the index files the library
// services wrote into the test's data folder. Then the library window of the real app, read through the
// accessibility bus as a screen reader reads it, after `parlino podcast` made a podcast and the app restarted.
#include "AppProcess.h"
#include "OpenAITestServer.h"
#include "TestEnvironment.h"
#include "library/Podcast.h"
#include "library/PodcastStorageService.h"
#include "library/SavedAudio.h"
#include "library/SavedAudioStorageService.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>
#include <QUuid>

#include <atspi/atspi.h>

namespace {

void collectNames(AtspiAccessible *node, QStringList &names, int depth)
{
    gchar *name = atspi_accessible_get_name(node, nullptr);
    if (name && *name)
        names.append(QString::fromUtf8(name));
    g_free(name);
    const gint count = depth < 40 ? atspi_accessible_get_child_count(node, nullptr) : 0;
    for (gint index = 0; index < count; ++index) {
        if (AtspiAccessible *child = atspi_accessible_get_child_at_index(node, index, nullptr)) {
            collectNames(child, names, depth + 1);
            g_object_unref(child);
        }
    }
}

// Every name shown in the window titled `title` of any application on the accessibility bus.
QStringList namesInWindow(const QString &title)
{
    QStringList names;
    AtspiAccessible *desktop = atspi_get_desktop(0);
    const gint applications = atspi_accessible_get_child_count(desktop, nullptr);
    for (gint app = 0; app < applications; ++app) {
        AtspiAccessible *application = atspi_accessible_get_child_at_index(desktop, app, nullptr);
        if (!application)
            continue;
        atspi_accessible_clear_cache(application);
        const gint windows = atspi_accessible_get_child_count(application, nullptr);
        for (gint index = 0; index < windows; ++index) {
            AtspiAccessible *window = atspi_accessible_get_child_at_index(application, index, nullptr);
            if (!window)
                continue;
            gchar *name = atspi_accessible_get_name(window, nullptr);
            if (name && QString::fromUtf8(name) == title)
                collectNames(window, names, 0);
            g_free(name);
            g_object_unref(window);
        }
        g_object_unref(application);
    }
    g_object_unref(desktop);
    return names;
}

} // namespace

using namespace parlino;

class LibraryListTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void listsSavedAudioAndPodcastsNewestFirst();
    void theWindowShowsWhatWasKeptAfterARestart();

private:
    struct Run {
        int exitCode = -1;
        QString out;
    };
    [[nodiscard]] static Run list(const QStringList &arguments);

    test::TestEnvironment m_env;
    test::OpenAITestServer m_server;
};

void LibraryListTest::initTestCase()
{
    QDir().mkpath(QFileInfo(m_env.defaultsFile()).absolutePath());
    QFile defaults(m_env.defaultsFile());
    QVERIFY(defaults.open(QIODevice::WriteOnly));
    defaults.write("[General]\nonboardingCompleted=true\nhasLaunchedBefore=true\n");
    defaults.close();
    qputenv("OPENAI_BASE_URL", m_server.baseUrlString().toUtf8());
    qputenv("OPENAI_API_KEY", "sk-test");
    // The app's widgets on the accessibility bus, as for a screen reader.
    qputenv("QT_LINUX_ACCESSIBILITY_ALWAYS_ON", "1");
    QVERIFY(atspi_init() >= 0);
}

LibraryListTest::Run LibraryListTest::list(const QStringList &arguments)
{
    QProcess process;
    process.start(test::AppProcess::executable(), QStringList{QStringLiteral("library")} + arguments);
    if (!process.waitForFinished(30000))
        return {};
    return {process.exitCode(), QString::fromUtf8(process.readAllStandardOutput())};
}

void LibraryListTest::listsSavedAudioAndPodcastsNewestFirst()
{
    Run empty = list({QStringLiteral("list")});
    QCOMPARE(empty.exitCode, 0);
    QCOMPARE(empty.out, QStringLiteral("Saved audio (0)\nPodcasts (0)\n"));
    QCOMPARE(list({QStringLiteral("show")}).exitCode, 2);
    QCOMPARE(list({QStringLiteral("list"), QStringLiteral("--xml")}).exitCode, 2);

    QTemporaryDir dir;
    const QString mp3 = dir.filePath(QStringLiteral("speech.mp3"));
    QVERIFY(test::makeSpeechMp3(QStringLiteral("Tides follow the moon."), mp3));
    SavedAudioStorageService saved;
    const QDateTime start(QDate(2026, 3, 1), QTime(9, 0), Qt::UTC);
    for (int i = 0; i < 2; ++i) {
        SavedAudio item;
        item.id = QUuid::createUuid();
        item.title = i == 0 ? QStringLiteral("Older reading") : QStringLiteral("Newer reading");
        item.audioURL = QUrl::fromLocalFile(mp3);
        item.sourceText = QStringLiteral("Tides follow the moon.");
        item.createdDate = start.addDays(i);
        item.duration = 65;
        (void)saved.save(item);
    }
    PodcastStorageService podcasts;
    Podcast podcast;
    podcast.id = QUuid::createUuid();
    podcast.title = QStringLiteral("Tides Explained");
    podcast.generationDate = start;
    podcast.duration = 125;
    podcast.audioURL = QUrl::fromLocalFile(mp3);
    podcast.podcastType = QStringLiteral("Deep Dive");
    (void)podcasts.savePodcast(podcast);

    const Run text = list({QStringLiteral("list")});
    QCOMPARE(text.exitCode, 0);
    const QStringList lines = text.out.split(u'\n', Qt::SkipEmptyParts);
    QCOMPARE(lines.size(), 5);
    QCOMPARE(lines[0], QStringLiteral("Saved audio (2)"));
    QVERIFY2(lines[1].contains(QStringLiteral("1:05  Newer reading  ") + saved.folder()), qPrintable(lines[1]));
    QVERIFY2(lines[2].contains(QStringLiteral("Older reading")), qPrintable(lines[2]));
    QCOMPARE(lines[3], QStringLiteral("Podcasts (1)"));
    QVERIFY2(lines[4].contains(QStringLiteral("2:05  Tides Explained [Deep Dive]  ") + podcasts.folder()),
             qPrintable(lines[4]));

    const Run json = list({QStringLiteral("list"), QStringLiteral("--json")});
    QCOMPARE(json.exitCode, 0);
    const QJsonObject root = QJsonDocument::fromJson(json.out.toUtf8()).object();
    const QJsonArray savedItems = root.value(u"savedAudio").toArray();
    QCOMPARE(savedItems.size(), 2);
    QCOMPARE(SavedAudio::fromJson(savedItems[0].toObject()).title, QStringLiteral("Newer reading"));
    const QJsonArray podcastItems = root.value(u"podcasts").toArray();
    QCOMPARE(podcastItems.size(), 1);
    QCOMPARE(Podcast::fromJson(podcastItems[0].toObject()).podcastType, QStringLiteral("Deep Dive"));
}

void LibraryListTest::theWindowShowsWhatWasKeptAfterARestart()
{
    // The saved audio and the podcast of the test before are on disk; the app makes one more podcast.
    {
        test::AppProcess app;
        QVERIFY(app.start());
        QVERIFY(app.waitForLine(QStringLiteral("ℹ️ Keyboard shortcuts already active")));

        QString output;
        QCOMPARE(test::AppProcess::runToEnd({QStringLiteral("podcast"), QStringLiteral("--type"),
                                             QStringLiteral("radio play"), QStringLiteral("Rivers")},
                                            &output),
                 2);
        QVERIFY2(output.contains(QStringLiteral("Unknown podcast type “radio play”. Choose one of: Educational, "
                                                "Fictional Narrative, Business Analysis, Interview Style, Deep Dive, "
                                                "Quick Summary.")),
                 qPrintable(output));

        m_server.setChatContent(
            QStringLiteral(R"({"title": "Rivers Explained", "summary": "Where rivers begin and end."})"));
        QProcess podcast;
        podcast.setProcessChannelMode(QProcess::MergedChannels);
        podcast.start(test::AppProcess::executable(),
                      {QStringLiteral("podcast"), QStringLiteral("--type"), QStringLiteral("deep-dive"), u"-"_qs});
        podcast.write("Rivers begin in the hills and end in the sea.");
        podcast.closeWriteChannel();
        // The local server answers from this process, so the wait keeps its event loop running.
        QTRY_COMPARE_WITH_TIMEOUT(podcast.state(), QProcess::NotRunning, 120000);
        const QString said = QString::fromUtf8(podcast.readAll());
        QCOMPARE(podcast.exitCode(), 0);
        QCOMPARE(said, QStringLiteral("Podcast made and playing: Rivers Explained\n"));
        QVERIFY(app.waitForLine(QStringLiteral("✅ Podcast generation complete!")));
        PodcastStorageService stored;
        const QList<Podcast> podcasts = stored.loadAllPodcasts();
        QCOMPARE(podcasts.size(), 2);
        QCOMPARE(podcasts.last().podcastType, QStringLiteral("Deep Dive"));
        QCOMPARE(podcasts.last().sourceText, QStringLiteral("Rivers begin in the hills and end in the sea."));
    }

    // After a restart the window lists both kinds, each on its own tab.
    test::AppProcess app;
    QVERIFY(app.start());
    QVERIFY(app.waitForLine(QStringLiteral("ℹ️ Keyboard shortcuts already active")));
    QCOMPARE(test::AppProcess::runToEnd({QStringLiteral("parlino://library")}), 0);
    QStringList names;
    QTRY_VERIFY_WITH_TIMEOUT((names = namesInWindow(QStringLiteral("Parlino Library"))).contains(u"Newer reading"_qs),
                             15000);
    QVERIFY2(names.contains(u"Older reading"_qs), qPrintable(names.join(u'|')));
    QCOMPARE(test::AppProcess::runToEnd({QStringLiteral("parlino://podcasts")}), 0);
    QTRY_VERIFY_WITH_TIMEOUT(
        (names = namesInWindow(QStringLiteral("Parlino Library"))).contains(u"Rivers Explained"_qs), 15000);
    QVERIFY2(names.contains(u"Tides Explained"_qs), qPrintable(names.join(u'|')));
    QVERIFY2(names.contains(u"Deep Dive"_qs), qPrintable(names.join(u'|')));
}

QTEST_GUILESS_MAIN(LibraryListTest)
#include "tst_LibraryList.moc"
