#include "AwaitTask.h"
#include "FileBytes.h"
#include "LocalOpenAI.h"
#include "LogCapture.h"
#include "ManualClock.h"
#include "OpenAITestServer.h"
#include "TestEnvironment.h"
#include "ai/OpenAIClient.h"
#include "backend/ModelSettings.h"
#include "backend/OpenAIConnection.h"
#include "core/Defaults.h"
#include "library/AudioExportService.h"
#include "library/SaveFileDialog.h"
#include "speech/SpeechSynthesizer.h"
#include "speech/TTSCacheService.h"

#include <QDir>
#include <QFile>
#include <QSignalSpy>
#include <QTest>
#include <QTimeZone>
#include <QTimer>

#include <ctime>

using namespace parlino;
using namespace parlino::test;

namespace {

// Answers the save dialog as a user would, a moment after it was opened.
class AnsweringSaveDialog final : public SaveFileDialog {
public:
    std::optional<QString> answer;
    QStringList asked; // suggested name and message of each question
    int answered = 0;

    void askForSaveLocation(const QString &suggestedFilename, const QString &message, Completion done) override
    {
        asked << suggestedFilename << message;
        QTimer::singleShot(0, [this, done = std::move(done), chosen = answer] {
            done(chosen);
            ++answered;
        });
    }
};

} // namespace

class AudioExportServiceTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanFilenameReplacesTheTenCharactersAndCutsTo50();
    void exportsIntoTheDownloadFolderUnderFreeNames();
    void withoutADownloadFolderTheDialogDecides();

private:
    TestEnvironment m_env;
    LocalOpenAI m_openAI{m_env};
    Defaults &m_defaults = m_openAI.defaults;
    OpenAITestServer &m_server = m_openAI.server;
    ModelSettings &m_models = m_openAI.models;
    OpenAIClient &m_client = m_openAI.client;
    ManualClock m_clock{QDateTime(QDate(2025, 1, 31), QTime(14, 5, 42), Qt::UTC)};
    AnsweringSaveDialog m_dialog;
    std::optional<QString> m_downloadFolder;
    AudioExportService m_export{[this](QString context) { return m_client.generateAudioTitle(std::move(context)); },
                                [this] { return m_downloadFolder; }, m_dialog, m_clock};
    QString m_mp3;
};

void AudioExportServiceTest::initTestCase()
{
    // The time-stamp name is local time; pin the zone so the expected names hold anywhere.
    qputenv("TZ", "UTC");
    tzset();
    m_mp3 = m_env.root() + QStringLiteral("/playing.mp3");
    QVERIFY(makeSpeechMp3(QStringLiteral("The quarterly numbers."), m_mp3));
}

void AudioExportServiceTest::init()
{
    m_server.clearFailures();
    m_server.setChatContent(QStringLiteral("Q3: Sales/Marketing <final>"));
    m_downloadFolder = m_env.root() + QStringLiteral("/Downloads");
    QDir(*m_downloadFolder).removeRecursively();
    QDir().mkpath(*m_downloadFolder);
    m_dialog.asked.clear();
}

void AudioExportServiceTest::cleanFilenameReplacesTheTenCharactersAndCutsTo50()
{
    QCOMPARE(AudioExportService::cleanFilename(QStringLiteral("Q3: Sales/Marketing <final>")),
             QStringLiteral("Q3- Sales-Marketing -final-"));
    QCOMPARE(AudioExportService::cleanFilename(QStringLiteral("a:b/c\\d?e%f*g|h\"i<j>k")),
             QStringLiteral("a-b-c-d-e-f-g-h-i-j-k"));
    const QString seventy = QString(20, u'a') + QString(30, u'b') + QString(20, u'c');
    QCOMPARE(AudioExportService::cleanFilename(seventy), QString(20, u'a') + QString(30, u'b'));
    QCOMPARE(AudioExportService::cleanFilename(QString(50, u'x')), QString(50, u'x'));
}

void AudioExportServiceTest::exportsIntoTheDownloadFolderUnderFreeNames()
{
    QSignalSpy notified(&m_export, &AudioExportService::notificationRequested);
    QSignalSpy exported(&m_export, &AudioExportService::audioExported);
    LogCapture log;
    const QUrl source = QUrl::fromLocalFile(m_mp3);
    QVERIFY(awaitTask(m_export.exportAudio(source, QStringLiteral("The quarterly numbers."))).value);
    QVERIFY(awaitTask(m_export.exportAudio(source, QStringLiteral("The quarterly numbers."))).value);

    const QString first = *m_downloadFolder + QStringLiteral("/Q3- Sales-Marketing -final-.mp3");
    const QString second = *m_downloadFolder + QStringLiteral("/Q3- Sales-Marketing -final-_1.mp3");
    QCOMPARE(readBytes(first), readBytes(m_mp3));
    QCOMPARE(readBytes(second), readBytes(m_mp3));
    QCOMPARE(notified.size(), 2);
    QCOMPARE(notified[1], (QVariantList{u"Audio Downloaded"_qs, u"Saved as Q3- Sales-Marketing -final-_1.mp3"_qs}));
    QCOMPARE(exported.size(), 2);
    QVERIFY(log.containsInOrder({u"📥 Starting audio export..."_qs, u"🤖 Generating smart filename from context..."_qs,
                                 QStringLiteral("✅ Audio saved to: ") + first}));
    QVERIFY(m_dialog.asked.isEmpty());

    // No title from the chat side: the file is named by the time.
    m_server.setChatFailure(OpenAITestServer::Failure::error(401, "{\"error\":{\"message\":\"Incorrect API key\"}}"));
    QVERIFY(awaitTask(m_export.exportAudio(source, QStringLiteral("Anything"))).value);
    QCOMPARE(readBytes(*m_downloadFolder + QStringLiteral("/2025-01-31_14-05.mp3")), readBytes(m_mp3));

    // A failed copy is logged and not announced.
    QVERIFY(!m_export.saveToLocation(QUrl::fromLocalFile(m_env.root() + QStringLiteral("/gone.mp3")), *m_downloadFolder,
                                     QStringLiteral("gone.mp3")));
    QCOMPARE(log.lines().filter(QStringLiteral("❌ Failed to copy audio file: ")).size(), 1);
    QCOMPARE(notified.size(), 3);
    QCOMPARE(exported.size(), 3);
}

void AudioExportServiceTest::withoutADownloadFolderTheDialogDecides()
{
    m_downloadFolder.reset();
    QSignalSpy notified(&m_export, &AudioExportService::notificationRequested);
    const QString chosen = m_env.root() + QStringLiteral("/elsewhere.mp3");
    QFile::remove(chosen);

    m_dialog.answer = std::nullopt;
    QVERIFY(awaitTask(m_export.exportAudio(QUrl::fromLocalFile(m_mp3), QStringLiteral("Numbers"))).value);
    QCOMPARE(m_dialog.asked, (QStringList{u"Q3- Sales-Marketing -final-.mp3"_qs, u"Save audio file"_qs}));
    QTRY_COMPARE(m_dialog.answered, 1);
    QVERIFY(!QFile::exists(chosen));
    QCOMPARE(notified.size(), 0);

    m_dialog.answer = chosen;
    QVERIFY(awaitTask(m_export.exportAudio(QUrl::fromLocalFile(m_mp3), QStringLiteral("Numbers"))).value);
    QTRY_COMPARE(notified.size(), 1);
    QCOMPARE(notified[0], (QVariantList{u"Audio Downloaded"_qs, u"Saved as elsewhere.mp3"_qs}));
    QCOMPARE(readBytes(chosen), readBytes(m_mp3));
}

QTEST_GUILESS_MAIN(AudioExportServiceTest)
#include "tst_AudioExportService.moc"
