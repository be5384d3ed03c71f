#include "LocalOpenAI.h"
#include "ManualClock.h"
#include "OpenAITestServer.h"
#include "TestEnvironment.h"
#include "WebBackendTestServer.h"
#include "app/AppState.h"
#include "app/VoicePreview.h"
#include "backend/AccountSyncService.h"
#include "backend/ModelAvailability.h"
#include "backend/ModelCatalogue.h"
#include "backend/ModelSettings.h"
#include "backend/OpenAIConnection.h"
#include "core/Defaults.h"
#include "core/SettingsKeys.h"
#include "input/KeyboardShortcutPreferences.h"
#include "platform/linux/XdgAutostart.h"
#include "playback/MpvAudioEngine.h"
#include "speech/OfflineSpeechProvider.h"
#include "ui/AppearanceApplier.h"
#include "ui/SettingsWindow.h"

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QDir>
#include <QFile>
#include <QKeySequenceEdit>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QRadioButton>
#include <QSignalSpy>
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
        SettingsWindow window(
            SettingsContext{state, m_defaults, models, availability, nullptr, nullptr, nullptr, {}, nullptr, {}});
        window.show();
        window.showPage(QStringLiteral("Speech"));

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

        if (const QString folder = qEnvironmentVariable("PARLINO_SCREENSHOT_DIR"); !folder.isEmpty())
            window.grab().save(QDir(folder).filePath(QStringLiteral("settings-speech.png")));

        // Choosing the Realtime API is kept, and the voice page says which voice reads for Nova.
        auto *voiceNote = control<QLabel>(window, QStringLiteral("Voice that reads instead"));
        window.showPage(QStringLiteral("Voice"));
        QVERIFY(voiceNote && !voiceNote->isVisible());
        choose(provider, QStringLiteral("OpenAI Realtime API"));
        QCOMPARE(m_defaults.stringForKey(SettingsKeys::speechProvider), QStringLiteral("openai-realtime"));
        QCOMPARE(voiceNote->text(), QStringLiteral("The Realtime API has no Nova voice; Coral, the nearest one, reads "
                                                   "instead."));
        QVERIFY(voiceNote->isVisible());

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

        // The recognizer of spoken questions: automatic until the offline one is chosen.
        auto *recognizer = control<QComboBox>(window, QStringLiteral("Speech recognizer for questions"));
        QVERIFY(recognizer);
        QCOMPARE(recognizer->currentText(), QStringLiteral("Automatic (OpenAI with a key, else offline)"));
        choose(recognizer, QStringLiteral("Offline (PocketSphinx, no key needed)"));
        QCOMPARE(m_defaults.stringForKey(SettingsKeys::questionRecognizer), QStringLiteral("offline"));

        // A switch made elsewhere (a retired chat model) shows at once.
        window.showPage(QStringLiteral("Speech"));
        QVERIFY(models.switchToSuccessor(ModelRole::chat, QStringLiteral("gpt-4o-mini")));
        QCOMPARE(chatModel->currentText(), QStringLiteral("gpt-6-luna"));
    }

    void generalVoiceAndShortcutPagesApplyAtOnce()
    {
        test::LocalOpenAI openAI(m_env);
        AppState state(openAI.defaults);
        OpenAIConnection connection(QStringLiteral("key"), openAI.server.baseUrlString());
        ModelAvailability availability(connection, m_clock, m_env.dataHome() + QStringLiteral("/availability.json"));
        KeyboardShortcutPreferences shortcuts(openAI.defaults);
        XdgAutostart autostart(m_env.configHome() + QStringLiteral("/autostart/parlino.desktop"),
                               QStringLiteral("/opt/Parlino Build/parlino"));
        MpvAudioEngine engine;
        VoicePreview preview(openAI.speech, engine);
        AppearanceApplier appearance(state);
        const QColor systemWindow = QApplication::palette().window().color();
        SettingsWindow window(SettingsContext{state,
                                              openAI.defaults,
                                              openAI.models,
                                              availability,
                                              &shortcuts,
                                              &autostart,
                                              &preview,
                                              [] { return true; },
                                              nullptr,
                                              {}});
        window.show();

        // Start at login: the desktop entry is written with the program quoted, and removed again.
        auto *login = control<QCheckBox>(window, QStringLiteral("Start Parlino when I log in"));
        QVERIFY(login && !login->isChecked());
        login->click();
        QFile entry(m_env.configHome() + QStringLiteral("/autostart/parlino.desktop"));
        QVERIFY(entry.open(QIODevice::ReadOnly));
        QVERIFY(entry.readAll().contains("\nExec=\"/opt/Parlino Build/parlino\"\n"));
        entry.close();
        login->click();
        QVERIFY(!entry.exists());

        // The podcast style is kept for the next start.
        choose(control<QComboBox>(window, QStringLiteral("Podcast type")), QStringLiteral("Deep Dive"));
        QCOMPARE(AppState(openAI.defaults).selectedPodcastType(), PodcastType::deepDive);

        // Dark applies to the open windows at once and is kept; "like the desktop" brings its colours back.
        control<QRadioButton>(window, QStringLiteral("Appearance: Dark"))->click();
        QVERIFY(QApplication::palette().window().color().lightness() < 80);
        QCOMPARE(openAI.defaults.stringForKey(SettingsKeys::appearanceMode), QStringLiteral("dark"));
        control<QRadioButton>(window, QStringLiteral("Appearance: Like the desktop"))->click();
        QCOMPARE(QApplication::palette().window().color(), systemWindow);

        // A voice is heard before it is chosen: its sample is spoken by OpenAI in that voice.
        window.showPage(QStringLiteral("Voice"));
        QSignalSpy started(&preview, &VoicePreview::started);
        control<QPushButton>(window, QStringLiteral("Preview the Nova voice"))->click();
        QVERIFY(started.wait(10000));
        const auto requests = openAI.server.requests();
        QCOMPARE(requests.size(), 1);
        QCOMPARE(requests.first().json.value(u"voice").toString(), QStringLiteral("nova"));
        QCOMPARE(requests.first().json.value(u"input").toString(), VoicePreview::sampleText(QStringLiteral("Nova")));

        // A new binding is taken as it is pressed; one that another action uses is refused by name.
        window.showPage(QStringLiteral("Shortcuts"));
        auto *readAloud = control<QKeySequenceEdit>(window, QStringLiteral("Shortcut for Read aloud"));
        auto *status = control<QLabel>(window, QStringLiteral("Shortcut status"));
        QVERIFY(readAloud && status);
        QSignalSpy rebound(&shortcuts, &KeyboardShortcutPreferences::keyboardShortcutsChanged);
        readAloud->setFocus();
        QTest::keyClick(readAloud, Qt::Key_X, Qt::MetaModifier | Qt::ShiftModifier);
        QTRY_COMPARE_WITH_TIMEOUT(rebound.size(), 1, 5000);
        QCOMPARE(shortcuts.shortcuts().value(QStringLiteral("readAloud")).displayString(),
                 QStringLiteral("Super+Shift+X"));
        QCOMPARE(status->text(), QStringLiteral("“Read aloud” is now Super+Shift+X."));

        readAloud->clear();
        QTest::keyClick(readAloud, Qt::Key_H, Qt::MetaModifier | Qt::ShiftModifier);
        QTRY_VERIFY_WITH_TIMEOUT(status->text().contains(QStringLiteral("already")), 5000);
        QCOMPARE(status->text(), QStringLiteral("Super+Shift+H is already the shortcut for “Read a summary”. Choose "
                                                "another combination, or change that one first."));
        QCOMPARE(shortcuts.shortcuts().value(QStringLiteral("readAloud")).displayString(),
                 QStringLiteral("Super+Shift+X"));
        QCOMPARE(readAloud->keySequence(), QKeySequence(QStringLiteral("Meta+Shift+X")));

        // Shift alone would take the key away from typing everywhere.
        readAloud->clear();
        QTest::keyClick(readAloud, Qt::Key_Y, Qt::ShiftModifier);
        QTRY_VERIFY_WITH_TIMEOUT(status->text().contains(QStringLiteral("needs")), 5000);
        QCOMPARE(status->text(), QStringLiteral("Shift+Y cannot be a global shortcut: it needs Super, Ctrl or Alt "
                                                "(Shift alone is not enough)."));
        QCOMPARE(shortcuts.shortcuts().value(QStringLiteral("readAloud")).displayString(),
                 QStringLiteral("Super+Shift+X"));

        control<QPushButton>(window, QStringLiteral("Reset every shortcut to its default"))->click();
        QCOMPARE(shortcuts.shortcuts(), KeyboardShortcutPreferences::defaultShortcuts());
        QCOMPARE(readAloud->keySequence(), QKeySequence(QStringLiteral("Meta+Shift+R")));
        QCOMPARE(readAloud->findChild<QLineEdit *>()->text(), QStringLiteral("Super+Shift+R"));
    }

    // The account page links through the web backend: a bad address is refused before any request, a
    // known one is kept and the app is told, and unlinking forgets it.
    void accountPageLinksAndUnlinks()
    {
        test::WebBackendTestServer backend;
        backend.addCustomer(QStringLiteral("reader@example.org"), 4200);
        qputenv("API_KEY", test::WebBackendTestServer::apiKey());
        AccountSyncService accountSync(backend.origin());
        AppState state(m_defaults);
        ModelSettings models(m_defaults);
        OpenAIConnection connection(QStringLiteral("key"), m_server.baseUrlString());
        ModelAvailability availability(connection, m_clock, m_env.dataHome() + QStringLiteral("/availability.json"));
        int reloads = 0;
        SettingsWindow window(
            SettingsContext{state, m_defaults, models, availability, nullptr, nullptr, nullptr, {}, &accountSync, [&] {
                                ++reloads;
                                state.loadAccountState();
                            }});
        window.show();
        window.showPage(QStringLiteral("Account"));
        auto *email = control<QLineEdit>(window, QStringLiteral("E-mail address of your account"));
        auto *link = control<QPushButton>(window, QStringLiteral("Link this e-mail address"));
        auto *unlink = control<QPushButton>(window, QStringLiteral("Unlink the account"));
        auto *message = control<QLabel>(window, QStringLiteral("Account message"));
        auto *status = control<QLabel>(window, QStringLiteral("Account status"));
        QVERIFY(email && link && unlink && message && status);
        QCOMPARE(status->text(), QStringLiteral("No account linked"));
        QVERIFY(!unlink->isEnabled());

        email->setText(QStringLiteral("reader@example"));
        link->click();
        QTRY_COMPARE(message->text(), QStringLiteral("Invalid email format"));
        QVERIFY(backend.requests(QStringLiteral("/api/account/fetch")).isEmpty());
        QCOMPARE(reloads, 0);

        email->setText(QStringLiteral("reader@example.org"));
        link->click();
        QTRY_COMPARE_WITH_TIMEOUT(message->text(), QStringLiteral("Account linked successfully"), 10000);
        QCOMPARE(m_defaults.stringForKey(SettingsKeys::userEmail), QStringLiteral("reader@example.org"));
        QCOMPARE(reloads, 1);
        QVERIFY(status->text().startsWith(QStringLiteral("reader@example.org — ")));
        QVERIFY(unlink->isEnabled());

        unlink->click();
        QVERIFY(!m_defaults.contains(SettingsKeys::userEmail));
        QCOMPARE(reloads, 2);
        QCOMPARE(message->text(), QStringLiteral("Account unlinked: reader@example.org"));
    }
};

QTEST_MAIN(TestSettingsWindow)
#include "tst_SettingsWindow.moc"
