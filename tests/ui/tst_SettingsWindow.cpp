#include "ManualClock.h"
#include "OpenAITestServer.h"
#include "TestEnvironment.h"
#include "app/AppState.h"
#include "backend/ModelAvailability.h"
#include "backend/ModelCatalogue.h"
#include "backend/ModelSettings.h"
#include "backend/OpenAIConnection.h"
#include "core/Defaults.h"
#include "core/SettingsKeys.h"
#include "speech/OfflineSpeechProvider.h"
#include "ui/SettingsWindow.h"

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QDir>
#include <QLabel>
#include <QTest>

#include <memory>

using namespace parlino;

namespace {

// A control the way a screen reader finds it: by its accessible name.
template <typename Widget> Widget *control(QWidget &window, const QString &name)
{
    for (Widget *candidate : window.findChildren<Widget *>()) {
        if (candidate->accessibleName() == name)
            return candidate;
    }
    return nullptr;
}

void choose(QComboBox *box, const QString &text)
{
    box->setCurrentIndex(box->findText(text));
    Q_EMIT box->activated(box->currentIndex());
}

} // namespace

class TestSettingsWindow final : public QObject {
    Q_OBJECT

private:
    test::TestEnvironment m_env;
    Defaults m_defaults{m_env.defaultsFile()};
    test::OpenAITestServer m_server;
    ManualClock m_clock;

private Q_SLOTS:
    void speechChoicesAreShownAndKept()
    {
        AppState state(m_defaults);
        state.saveDefaultVoice(TTSVoice::nova);
        ModelSettings models(m_defaults);
        OpenAIConnection connection(QStringLiteral("key"), m_server.baseUrlString());
        ModelAvailability availability(connection, m_clock, m_env.dataHome() + QStringLiteral("/availability.json"));
        SettingsWindow window(state, m_defaults, models, availability);
        window.show();

        // Every control is reachable by its name; reading starts early unless the user says otherwise.
        auto *stream = control<QCheckBox>(window, QStringLiteral("Start speaking before the whole text is ready"));
        auto *provider = control<QComboBox>(window, QStringLiteral("Speech provider"));
        auto *speechModel = control<QComboBox>(window, QStringLiteral("Model of the speech endpoint"));
        auto *chatModel =
            control<QComboBox>(window, QStringLiteral("Model for summaries, answers and podcast scripts"));
        auto *dates = control<QLabel>(window, QStringLiteral("Model shutdown dates"));
        QVERIFY(stream && provider && speechModel && chatModel && dates);
        QVERIFY(stream->isChecked());
        stream->click();
        QCOMPARE(m_defaults.value(SettingsKeys::streamSpeech).toBool(), false);

        // The models in use and the days OpenAI stops serving them.
        QCOMPARE(provider->currentText(), QStringLiteral("OpenAI speech endpoint"));
        QCOMPARE(speechModel->currentText(), QStringLiteral("tts-1"));
        QCOMPARE(chatModel->currentText(), QStringLiteral("gpt-4o-mini"));
        QVERIFY(dates->isVisible());
        const QString tts1Date = QLocale().toString(QDate(2027, 1, 6), QLocale::LongFormat);
        QVERIFY2(dates->text().contains(QStringLiteral("OpenAI stops serving tts-1 on ") + tts1Date),
                 qPrintable(dates->text()));

        // Choosing the Realtime API is kept, and the window says which voice reads for Nova.
        auto *voiceNote = control<QLabel>(window, QStringLiteral("Voice that reads instead"));
        QVERIFY(voiceNote && !voiceNote->isVisible());
        choose(provider, QStringLiteral("OpenAI Realtime API"));
        QCOMPARE(m_defaults.stringForKey(SettingsKeys::speechProvider), QStringLiteral("openai-realtime"));
        QCOMPARE(voiceNote->text(), QStringLiteral("The Realtime API has no Nova voice; Coral, the nearest one, reads "
                                                   "instead."));
        QVERIFY(voiceNote->isVisible());

        if (const QString folder = qEnvironmentVariable("PARLINO_SCREENSHOT_DIR"); !folder.isEmpty())
            window.grab().save(QDir(folder).filePath(QStringLiteral("settings-speech.png")));

        // The offline voice: the default language until one is chosen, then the choice with its variant.
        auto *offlineLanguage = control<QComboBox>(window, QStringLiteral("Language of the offline voice"));
        auto *offlineVariant = control<QComboBox>(window, QStringLiteral("Variant of the offline voice"));
        QVERIFY(offlineLanguage && offlineVariant);
        QCOMPARE(offlineLanguage->currentData().toString(), OfflineSpeechProvider::defaultVoiceName());
        QCOMPARE(offlineVariant->currentText(), QStringLiteral("Standard"));
        choose(offlineLanguage, QStringLiteral("German (de)"));
        QCOMPARE(m_defaults.stringForKey(SettingsKeys::offlineVoice), QStringLiteral("de"));
        offlineVariant->setCurrentIndex(offlineVariant->findData(QStringLiteral("f3")));
        Q_EMIT offlineVariant->activated(offlineVariant->currentIndex());
        QCOMPARE(m_defaults.stringForKey(SettingsKeys::offlineVoice), QStringLiteral("de+f3"));
        choose(provider, QStringLiteral("Offline voice (eSpeak NG, no key needed)"));
        QCOMPARE(m_defaults.stringForKey(SettingsKeys::speechProvider), QStringLiteral("offline"));

        // A switch made elsewhere (a retired chat model) shows at once.
        QVERIFY(models.switchToSuccessor(ModelRole::chat, QStringLiteral("gpt-4o-mini")));
        QCOMPARE(chatModel->currentText(), QStringLiteral("gpt-6-luna"));
    }

    void podcastTypeIsChosenAndKept()
    {
        ModelSettings models(m_defaults);
        OpenAIConnection connection(QStringLiteral("key"), m_server.baseUrlString());
        ModelAvailability availability(connection, m_clock, m_env.dataHome() + QStringLiteral("/availability.json"));
        {
            AppState state(m_defaults);
            SettingsWindow window(state, m_defaults, models, availability);
            auto *type = control<QComboBox>(window, QStringLiteral("Podcast type"));
            QVERIFY(type);
            QCOMPARE(type->count(), 6);
            QCOMPARE(type->currentText(), QStringLiteral("Educational"));
            choose(type, QStringLiteral("Deep Dive"));
            QCOMPARE(state.selectedPodcastType(), PodcastType::deepDive);
        }
        // The next start uses the same style, and the window shows it.
        AppState restarted(m_defaults);
        QCOMPARE(restarted.selectedPodcastType(), PodcastType::deepDive);
        SettingsWindow window(restarted, m_defaults, models, availability);
        QCOMPARE(control<QComboBox>(window, QStringLiteral("Podcast type"))->currentText(),
                 QStringLiteral("Deep Dive"));
    }
};

QTEST_MAIN(TestSettingsWindow)
#include "tst_SettingsWindow.moc"
