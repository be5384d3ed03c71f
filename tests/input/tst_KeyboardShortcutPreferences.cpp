#include "LogCapture.h"
#include "TestEnvironment.h"
#include "core/Defaults.h"
#include "input/KeyboardShortcutPreferences.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QSignalSpy>
#include <QTest>

using namespace parlino;
using namespace parlino::test;

class KeyboardShortcutPreferencesTest final : public QObject {
    Q_OBJECT

    TestEnvironment m_environment;
    std::unique_ptr<Defaults> m_defaults;

    void storeRaw(const QByteArray &data) { m_defaults->set(KeyboardShortcutPreferences::userDefaultsKey, data); }

private Q_SLOTS:
    void init()
    {
        QFile::remove(m_environment.defaultsFile());
        m_defaults = std::make_unique<Defaults>(m_environment.defaultsFile());
    }

    void defaultsWhenNothingIsStored()
    {
        LogCapture log;
        KeyboardShortcutPreferences preferences(*m_defaults);
        QCOMPARE(preferences.shortcuts().size(), 15);
        QCOMPARE(preferences.shortcuts().value(QStringLiteral("readAloud")), (KeyboardShortcut{15, 0x300}));
        QCOMPARE(preferences.shortcuts().value(QStringLiteral("saveAudio")), (KeyboardShortcut{1, 0x900}));
        QCOMPARE(preferences.shortcuts().value(QStringLiteral("stopReading")), (KeyboardShortcut{1, 0x300}));
        QCOMPARE(preferences.shortcuts().value(QStringLiteral("speedUp")), (KeyboardShortcut{124, 0x100}));
        QVERIFY(!log.lines().join(u'\n').contains(QStringLiteral("shortcuts")));
    }

    void displayStrings()
    {
        QCOMPARE((KeyboardShortcut{15, 0x300}).displayString(), QStringLiteral("Super+Shift+R"));
        QCOMPARE((KeyboardShortcut{1, 0x900}).displayString(), QStringLiteral("Super+Alt+S"));
        QCOMPARE((KeyboardShortcut{124, 0x100}).displayString(), QStringLiteral("Super+Right"));
        QCOMPARE((KeyboardShortcut{96, 0x1000 | 0x200}).displayString(), QStringLiteral("Ctrl+Shift+F5"));
        QCOMPARE((KeyboardShortcut{10, 0}).displayString(), QStringLiteral("Key 0x0a"));
    }

    void setSavesAnnouncesAndSurvivesARestart()
    {
        KeyboardShortcutPreferences preferences(*m_defaults);
        QSignalSpy changed(&preferences, &KeyboardShortcutPreferences::keyboardShortcutsChanged);
        preferences.set(KeyboardShortcut{17, 0x1800}, QStringLiteral("readAloud"));
        QCOMPARE(changed.count(), 1);

        LogCapture log;
        Defaults reopened(m_environment.defaultsFile());
        KeyboardShortcutPreferences reloaded(reopened);
        QVERIFY(log.contains(QStringLiteral("✅ Loaded 15 custom shortcuts")));
        QCOMPARE(reloaded.shortcuts(), preferences.shortcuts());
        QCOMPARE(reloaded.shortcuts().value(QStringLiteral("readAloud")), (KeyboardShortcut{17, 0x1800}));
        const QJsonObject stored =
            QJsonDocument::fromJson(reopened.dataForKey(KeyboardShortcutPreferences::userDefaultsKey)).object();
        QCOMPARE(stored.value(QStringLiteral("readAloud")).toObject(),
                 (QJsonObject{{QStringLiteral("keyCode"), 17}, {QStringLiteral("modifiers"), 0x1800}}));
    }

    // A stored binding without Super, Ctrl or Alt is never grabbed: its action gets its default, an
    // unknown action is dropped, and set() refuses one too.
    void storedDictionaryReplacesTheDefaults()
    {
        storeRaw(R"({"readAloud": {"keyCode": 3, "modifiers": 4352}, "playPause": {"keyCode": 49, "modifiers": 0},)"
                 R"( "stopReading": {"keyCode": 1, "modifiers": 512}, "later": {"keyCode": 2, "modifiers": 512}})");
        LogCapture log;
        KeyboardShortcutPreferences preferences(*m_defaults);
        QVERIFY(log.contains(QStringLiteral("✅ Loaded 3 custom shortcuts")));
        QVERIFY(log.contains(QStringLiteral(
            "⚠️ The stored shortcut Space for playPause has no Super, Ctrl or Alt; using the default")));
        QCOMPARE(log.lines().filter(QStringLiteral("has no Super, Ctrl or Alt")).size(), 3);
        const QMap<QString, KeyboardShortcut> defaults = KeyboardShortcutPreferences::defaultShortcuts();
        QCOMPARE(preferences.shortcuts(),
                 (QMap<QString, KeyboardShortcut>{
                     {QStringLiteral("readAloud"), {3, 4352}},
                     {QStringLiteral("playPause"), defaults[QStringLiteral("playPause")]},
                     {QStringLiteral("stopReading"), defaults[QStringLiteral("stopReading")]}}));

        QSignalSpy changed(&preferences, &KeyboardShortcutPreferences::keyboardShortcutsChanged);
        preferences.set(KeyboardShortcut{3, KeyboardShortcut::shift}, QStringLiteral("readAloud"));
        QCOMPARE(changed.count(), 0);
        QCOMPARE(preferences.shortcuts().value(QStringLiteral("readAloud")), (KeyboardShortcut{3, 4352}));
    }

    void unreadableStoredValueKeepsDefaultsAndIsNotLost_data()
    {
        QTest::addColumn<QByteArray>("stored");
        QTest::addColumn<QString>("reason");
        QTest::newRow("broken JSON") << QByteArray(R"({"readAloud": {"keyCode": 15,)") << QString();
        QTest::newRow("not an object") << QByteArray("[1, 2]")
                                       << QStringLiteral("the stored value is not a JSON object");
        QTest::newRow("negative key code")
            << QByteArray(R"({"readAloud": {"keyCode": -1, "modifiers": 768}})")
            << QStringLiteral(
                   "the binding for \"readAloud\": \"keyCode\" is missing or not a non-negative whole number");
        QTest::newRow("missing modifiers")
            << QByteArray(R"({"playPause": {"keyCode": 35}})")
            << QStringLiteral(
                   "the binding for \"playPause\": \"modifiers\" is missing or not a non-negative whole number");
    }

    void unreadableStoredValueKeepsDefaultsAndIsNotLost()
    {
        QFETCH(QByteArray, stored);
        QFETCH(QString, reason);
        storeRaw(stored);
        LogCapture log;
        KeyboardShortcutPreferences preferences(*m_defaults);
        QCOMPARE(preferences.shortcuts(), KeyboardShortcutPreferences::defaultShortcuts());
        const QStringList errors = log.lines().filter(QStringLiteral("❌ Failed to load shortcuts: "));
        QCOMPARE(errors.size(), 1);
        if (!reason.isEmpty())
            QCOMPARE(errors.constFirst(), QStringLiteral("❌ Failed to load shortcuts: ") + reason);
        QCOMPARE(m_defaults->dataForKey(KeyboardShortcutPreferences::userDefaultsKey), stored);

        // Saving new bindings moves the unreadable value aside instead of dropping it.
        preferences.set(KeyboardShortcut{15, 0x300}, QStringLiteral("readAloud"));
        QCOMPARE(m_defaults->dataForKey(KeyboardShortcutPreferences::unreadableBackupKey), stored);
        QVERIFY(
            QJsonDocument::fromJson(m_defaults->dataForKey(KeyboardShortcutPreferences::userDefaultsKey)).isObject());
    }
};

QTEST_GUILESS_MAIN(KeyboardShortcutPreferencesTest)
#include "tst_KeyboardShortcutPreferences.moc"
