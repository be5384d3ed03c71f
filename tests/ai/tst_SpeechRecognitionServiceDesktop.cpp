#include "AwaitTask.h"
#include "LocalOpenAI.h"
#include "OpenAITestServer.h"
#include "TestEnvironment.h"
#include "VirtualMicrophone.h"
#include "ai/OpenAITranscriptionRecognizer.h"
#include "ai/PocketSphinxRecognizer.h"
#include "ai/SpeechRecognitionService.h"
#include "backend/ModelSettings.h"
#include "core/SettingsKeys.h"

#include <QAudioDevice>
#include <QMediaDevices>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <algorithm>

using namespace parlino;
using namespace parlino::test;

namespace {

const QString kQuestion = QStringLiteral("what is the main point of this article");

} // namespace

// Listening through a real input device of the rig's sound server, fed with espeak-ng speech.
class TestSpeechRecognitionServiceDesktop final : public QObject {
    Q_OBJECT

private:
    TestEnvironment m_env;
    LocalOpenAI m_openAI{m_env};
    QTemporaryDir m_dir;
    QString m_questionWav;
    double m_questionSeconds = 0;
    VirtualMicrophone m_microphone;

    std::unique_ptr<SpeechRecognitionService> makeService(const QString &offlineModels = QString())
    {
        auto service = std::make_unique<SpeechRecognitionService>(m_openAI.defaults);
        service->addRecognizer(std::make_unique<OpenAITranscriptionRecognizer>(m_openAI.connection, m_openAI.models));
        service->addRecognizer(std::make_unique<PocketSphinxRecognizer>(
            offlineModels.isEmpty() ? PocketSphinxRecognizer::defaultModelFolder() : offlineModels));
        return service;
    }

    // Speaks the question into the microphone while the service listens, and waits until it is heard.
    bool speakQuestion(SpeechRecognitionService &service)
    {
        QSignalSpy heard(&service, &SpeechRecognitionService::speechHeard);
        if (!m_microphone.play(m_questionWav) || !m_microphone.waitForPlayback())
            return false;
        // The device hands over what it recorded a little after the player is done.
        QTest::qWait(400);
        return heard.count() == 1;
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_dir.isValid());
        m_questionWav = m_dir.filePath(QStringLiteral("question.wav"));
        m_questionSeconds = VirtualMicrophone::makeSpokenWav(kQuestion, m_questionWav);
        QVERIFY(m_questionSeconds > 1.0);
    }

    void init()
    {
        m_openAI.server.clearRequests();
        m_openAI.server.clearFailures();
        m_openAI.server.setRetiredModels({});
        m_openAI.defaults.remove(SettingsKeys::questionRecognizer);
        m_openAI.defaults.remove(SettingsKeys::transcriptionModel);
    }

    void refusesToStartWithoutMicrophoneOrEngine()
    {
        m_microphone.unplug();
        QTRY_VERIFY(QMediaDevices::audioInputs().isEmpty());
        auto service = makeService();
        QVERIFY(!service->isMicrophoneAvailable());
        QVERIFY(!service->requestPermissions());
        auto starting = [&service] {
            try {
                service->startListening();
            } catch (const Error &error) {
                return error.description();
            }
            return QString();
        };
        QCOMPARE(starting(), QStringLiteral("Microphone access not authorized. Please enable it in System Settings."));

        QVERIFY(m_microphone.plugIn());
        QTRY_VERIFY(service->isMicrophoneAvailable());
        SpeechRecognitionService bare(m_openAI.defaults);
        try {
            bare.startListening();
            QFAIL("started without any recognizer");
        } catch (const Error &error) {
            QCOMPARE(error.description(), QStringLiteral("Speech recognizer is not available."));
        }

        // No key and no offline model: no engine can work.
        OpenAIConnection keyless(std::nullopt, m_openAI.server.baseUrlString());
        SpeechRecognitionService unusable(m_openAI.defaults);
        unusable.addRecognizer(std::make_unique<OpenAITranscriptionRecognizer>(keyless, m_openAI.models));
        unusable.addRecognizer(std::make_unique<PocketSphinxRecognizer>(m_dir.filePath(QStringLiteral("none"))));
        QVERIFY(!unusable.isSpeechRecognitionAvailable());
        try {
            unusable.startListening();
            QFAIL("started without a usable engine");
        } catch (const Error &error) {
            QCOMPARE(error.description(),
                     QStringLiteral("Speech recognition not authorized. Please enable it in System Settings."));
        }
        QVERIFY(!unusable.isListening());
    }

    void transcribesTheSpokenQuestionThroughTheService()
    {
        QVERIFY(m_microphone.plugIn());
        QTRY_VERIFY(!QMediaDevices::audioInputs().isEmpty());
        m_openAI.server.setTranscription(
            {QStringLiteral("What is the main point of this article?"), m_questionSeconds, m_questionSeconds + 6});
        auto service = makeService();
        QCOMPARE(service->recognizer()->name(), QStringLiteral("openai"));
        QSignalSpy levels(service.get(), &SpeechRecognitionService::levelChanged);

        service->startListening();
        try {
            service->startListening();
            QFAIL("a second start succeeded");
        } catch (const Error &error) {
            QCOMPARE(error.description(), QStringLiteral("Already listening for speech."));
        }
        QVERIFY(service->isListening());
        QVERIFY(!service->hasHeardSpeech());
        QVERIFY(speakQuestion(*service));
        // Nothing leaves the machine before the question is sent.
        QVERIFY(m_openAI.server.requests(QStringLiteral("/audio/transcriptions")).isEmpty());
        QVERIFY(levels.count() > 10);
        QVERIFY(std::any_of(levels.cbegin(), levels.cend(),
                            [](const QList<QVariant> &arguments) { return arguments.at(0).toFloat() > 0.01F; }));

        const auto text = awaitTask(service->finishListening());
        QVERIFY2(!text.error, qPrintable(text.error.value_or(QString())));
        QCOMPARE(*text.value, QStringLiteral("What is the main point of this article?"));
        QVERIFY(!service->isListening());

        const auto uploads = m_openAI.server.requests(QStringLiteral("/audio/transcriptions"));
        QCOMPARE(uploads.size(), 1);
        QCOMPARE(uploads[0].header("Authorization"), QByteArray("Bearer chat-key"));
        QCOMPARE(uploads[0].formFields.value(QStringLiteral("model")),
                 ModelSettings::defaultModel(ModelRole::transcription).toUtf8());
        const auto wav = OpenAITestServer::inspectWav(uploads[0].formFields.value(QStringLiteral("file")));
        QVERIFY2(wav.valid, qPrintable(wav.problem));
        QCOMPARE(wav.sampleRate, 16000);
        QCOMPARE(wav.channels, 1);
        QVERIFY(wav.rootMeanSquare > OpenAITestServer::kSpeechEnergy);
    }

    void nothingSaidSendsNothing()
    {
        QVERIFY(m_microphone.plugIn());
        QTRY_VERIFY(!QMediaDevices::audioInputs().isEmpty());
        auto service = makeService();
        service->startListening();
        QTest::qWait(1000);
        QVERIFY(!service->hasHeardSpeech());
        const auto text = awaitTask(service->finishListening());
        QVERIFY(text.value && text.value->isEmpty());
        QVERIFY(m_openAI.server.requests(QStringLiteral("/audio/transcriptions")).isEmpty());

        // Cancelled after speech: dropped, not sent, and listening can start again.
        service->startListening();
        QVERIFY(speakQuestion(*service));
        service->stopListening();
        QVERIFY(!service->isListening());
        QVERIFY(m_openAI.server.requests(QStringLiteral("/audio/transcriptions")).isEmpty());
        service->startListening();
        service->stopListening();
    }

    void retiredModelSwitchesAndFailuresAreRecognitionErrors()
    {
        QVERIFY(m_microphone.plugIn());
        QTRY_VERIFY(!QMediaDevices::audioInputs().isEmpty());
        m_openAI.server.setTranscription({QStringLiteral("Why?"), 1.0, 60});
        m_openAI.models.setModel(ModelRole::transcription, QStringLiteral("whisper-1"));
        m_openAI.server.setRetiredModels({QStringLiteral("whisper-1")});
        QSignalSpy switched(&m_openAI.models, &ModelSettings::switchedToSuccessor);
        auto service = makeService();

        service->startListening();
        QVERIFY(speakQuestion(*service));
        const auto text = awaitTask(service->finishListening());
        QCOMPARE(text.value.value_or(QString()), QStringLiteral("Why?"));
        QCOMPARE(switched.count(), 1);
        QCOMPARE(m_openAI.models.transcriptionModel(), QStringLiteral("gpt-transcribe"));
        const auto uploads = m_openAI.server.requests(QStringLiteral("/audio/transcriptions"));
        QCOMPARE(uploads.size(), 2);
        QCOMPARE(uploads[0].formFields.value(QStringLiteral("model")), QByteArray("whisper-1"));
        QCOMPARE(uploads[1].formFields.value(QStringLiteral("model")), QByteArray("gpt-transcribe"));

        m_openAI.server.setTranscriptionFailure(OpenAITestServer::Failure::error(500, "overloaded"));
        service->startListening();
        QVERIFY(speakQuestion(*service));
        const auto failed = awaitTask(service->finishListening());
        QCOMPARE(failed.error.value_or(QString()), QStringLiteral("Recognition error: API Error (500): overloaded"));
        QVERIFY(!service->isListening());
    }

    void offlineEngineHearsARealPhrase()
    {
        QVERIFY(m_microphone.plugIn());
        QTRY_VERIFY(!QMediaDevices::audioInputs().isEmpty());
        m_openAI.defaults.set(SettingsKeys::questionRecognizer, QStringLiteral("offline"));
        SpeechRecognitionService recognition(m_openAI.defaults);
        auto offline = std::make_unique<PocketSphinxRecognizer>();
        offline->preload(); // loading on a worker, taken over by the first question
        recognition.addRecognizer(
            std::make_unique<OpenAITranscriptionRecognizer>(m_openAI.connection, m_openAI.models));
        recognition.addRecognizer(std::move(offline));
        QCOMPARE(recognition.recognizer()->name(), QStringLiteral("offline"));
        QSignalSpy readings(&recognition, &SpeechRecognitionService::transcriptionReceived);

        recognition.startListening();
        QVERIFY(speakQuestion(recognition));
        QVERIFY(readings.count() >= 1); // partial readings while it was spoken
        const auto text = awaitTask(recognition.finishListening());
        QVERIFY(text.value);
        qInfo() << "offline reading:" << *text.value;
        const QStringList spoken = kQuestion.split(u' ');
        const QStringList heard = text.value->toLower().split(u' ', Qt::SkipEmptyParts);
        const auto shared = std::count_if(heard.cbegin(), heard.cend(),
                                          [&spoken](const QString &word) { return spoken.contains(word); });
        QVERIFY2(shared >= 2, qPrintable(*text.value));
        QVERIFY(m_openAI.server.requests(QStringLiteral("/audio/transcriptions")).isEmpty());
    }
};

QTEST_GUILESS_MAIN(TestSpeechRecognitionServiceDesktop)
#include "tst_SpeechRecognitionServiceDesktop.moc"
