#include "AwaitTask.h"
#include "TestEnvironment.h"
#include "app/AppState.h"
#include "core/Defaults.h"
#include "library/PodcastManager.h"
#include "library/PodcastStorageService.h"
#include "library/SavedAudioManager.h"
#include "library/SavedAudioStorageService.h"
#include "ui/MenuPopoverView.h"

#include <QFile>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>

using namespace parlino;
using namespace parlino::test;

namespace {

QPushButton *button(QWidget &view, const QString &name)
{
    for (QPushButton *candidate : view.findChildren<QPushButton *>())
        if (candidate->accessibleName() == name)
            return candidate;
    return nullptr;
}

QStringList recentNames(QWidget &view)
{
    QStringList names;
    for (QPushButton *candidate : view.findChildren<QPushButton *>())
        if (candidate->accessibleName().startsWith(QStringLiteral("Play “")))
            names << candidate->accessibleName();
    return names;
}

} // namespace

// The tray popover as a user meets it: the latest saved readings and podcasts to play again, the player's
// controls following what plays, and every action a named button.
class TestMenuPopoverView final : public QObject {
    Q_OBJECT

    TestEnvironment m_env;
    Defaults m_defaults{m_env.defaultsFile()};

    QString audioFile(const QString &name)
    {
        const QString path = m_env.root() + u'/' + name + QStringLiteral(".mp3");
        QFile file(path);
        if (file.open(QIODevice::WriteOnly))
            file.write(QByteArray(2048, 'a'));
        return path;
    }

private Q_SLOTS:
    void recentItemsControlsAndActions()
    {
        QStringList played;
        SavedAudioStorageService savedStorage;
        SavedAudioManager saved(savedStorage, [&](const QString &path) { played << path; });
        PodcastStorageService podcastStorage;
        PodcastManager podcasts(podcastStorage, [&](const Podcast &podcast) { played << podcast.title; });
        const QDateTime start(QDate(2026, 11, 20), QTime(9, 0), Qt::UTC);
        for (int day = 0; day < 3; ++day) {
            SavedAudio item;
            item.id = QUuid::createUuid();
            item.title = QStringLiteral("Reading %1").arg(day);
            item.audioURL = QUrl::fromLocalFile(audioFile(item.title));
            item.createdDate = start.addDays(day * 2);
            QVERIFY(awaitTask(saved.save(item)).value);
        }
        Podcast podcast;
        podcast.id = QUuid::createUuid();
        podcast.title = QStringLiteral("Tides Explained");
        podcast.audioURL = QUrl::fromLocalFile(audioFile(podcast.title));
        podcast.generationDate = start.addDays(3);
        podcast.podcastType = QStringLiteral("Educational");
        QVERIFY(awaitTask(podcasts.save(podcast)).value);

        AppState state(m_defaults);
        MenuPopoverView view(state, &saved, &podcasts);
        // The three newest of both lists, newest first.
        QCOMPARE(recentNames(view),
                 (QStringList{QStringLiteral("Play “Reading 2”"), QStringLiteral("Play “Tides Explained”"),
                              QStringLiteral("Play “Reading 1”")}));
        QSignalSpy closed(&view, &MenuPopoverView::recentItemPlayed);
        button(view, QStringLiteral("Play “Tides Explained”"))->click();
        QCOMPARE(played, QStringList{QStringLiteral("Tides Explained")});
        QCOMPARE(closed.size(), 1);

        // A reading saved while the popover exists is listed at once.
        SavedAudio newest;
        newest.id = QUuid::createUuid();
        newest.title = QStringLiteral("Just Now");
        newest.audioURL = QUrl::fromLocalFile(audioFile(newest.title));
        newest.createdDate = start.addDays(10);
        QVERIFY(awaitTask(saved.save(newest)).value);
        QCOMPARE(recentNames(view).first(), QStringLiteral("Play “Just Now”"));
        QCOMPARE(recentNames(view).size(), MenuPopoverView::recentCount);

        // Pause follows the player; with nothing loaded it cannot be pressed.
        QPushButton *playPause = button(view, QStringLiteral("Pause or resume the reading (Super+Shift+P)"));
        QVERIFY(playPause && !playPause->isEnabled());
        state.setTotalTime(12);
        state.setIsPlaying(true);
        QVERIFY(playPause->isEnabled());
        QCOMPARE(playPause->text(), QStringLiteral("Pause"));
        state.setIsPlaying(false);
        QCOMPARE(playPause->text(), QStringLiteral("Play"));

        // Every action is a button a screen reader can name and press.
        const QList<std::pair<QString, void (MenuPopoverView::*)()>> actions{
            {QStringLiteral("Reads a summary of the selected text (Super+Shift+H)"),
             &MenuPopoverView::readSummaryRequested},
            {QStringLiteral("Makes a podcast of the selected text (Super+Shift+G)"),
             &MenuPopoverView::podcastRequested},
            {QStringLiteral("Saved readings and podcasts (Super+Shift+L)"), &MenuPopoverView::libraryRequested},
            {QStringLiteral("Pause or resume the reading (Super+Shift+P)"), &MenuPopoverView::playPauseRequested},
        };
        for (const auto &[name, signal] : actions) {
            QSignalSpy spy(&view, signal);
            button(view, name)->click();
            QVERIFY2(spy.size() == 1, qPrintable(name));
        }
    }
};

QTEST_MAIN(TestMenuPopoverView)
#include "tst_MenuPopoverView.moc"
