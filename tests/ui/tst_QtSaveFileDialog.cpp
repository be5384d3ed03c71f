// Runs inside the headless desktop: the real file dialog, answered from the keyboard.
#include "TestEnvironment.h"
#include "ui/QtSaveFileDialog.h"

#include <QApplication>
#include <QFileDialog>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

using namespace parlino;

class QtSaveFileDialogTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void typedNameIsTheAnswerAndEscapeCancels();

private:
    static QFileDialog *openDialog()
    {
        for (QWidget *widget : QApplication::topLevelWidgets())
            if (auto *dialog = qobject_cast<QFileDialog *>(widget); dialog && dialog->isVisible())
                return dialog;
        return nullptr;
    }
    static bool xdotool(const QStringList &arguments)
    {
        QProcess process;
        process.start(QStringLiteral("xdotool"), arguments);
        return process.waitForFinished() && process.exitCode() == 0;
    }

    test::TestEnvironment m_env;
};

void QtSaveFileDialogTest::typedNameIsTheAnswerAndEscapeCancels()
{
    QVERIFY2(QGuiApplication::platformName() == QLatin1String("xcb"), "run inside scripts/desktop-rig");
    QTemporaryDir dir;
    QtSaveFileDialog dialog;
    std::optional<std::optional<QString>> answer;
    const auto remember = [&answer](std::optional<QString> path) { answer = std::move(path); };

    // The suggested name is offered; the user types a folder and a name without extension.
    dialog.askForSaveLocation(QStringLiteral("Listening Notes.mp3"), QStringLiteral("Save audio file"), remember);
    QTRY_VERIFY(openDialog());
    QFileDialog *shown = openDialog();
    QCOMPARE(shown->windowTitle(), QStringLiteral("Save audio file"));
    QVERIFY(QTest::qWaitForWindowActive(shown));
    QVERIFY(xdotool({QStringLiteral("key"), QStringLiteral("ctrl+a")}));
    QVERIFY(xdotool({QStringLiteral("type"), dir.filePath(QStringLiteral("kept"))}));
    QVERIFY(xdotool({QStringLiteral("key"), QStringLiteral("Return")}));
    QTRY_VERIFY(answer.has_value());
    QCOMPARE(*answer, std::optional<QString>(dir.filePath(QStringLiteral("kept.mp3"))));

    answer.reset();
    dialog.askForSaveLocation(QStringLiteral("Other.mp3"), QStringLiteral("Save audio file"), remember);
    QTRY_VERIFY(openDialog());
    QVERIFY(QTest::qWaitForWindowActive(openDialog()));
    QVERIFY(xdotool({QStringLiteral("key"), QStringLiteral("Escape")}));
    QTRY_VERIFY(answer.has_value());
    QCOMPARE(*answer, std::optional<QString>());
}

QTEST_MAIN(QtSaveFileDialogTest)
#include "tst_QtSaveFileDialog.moc"
