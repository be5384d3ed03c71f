// Drives the library window as a user would, in the headless desktop: controls are found by the names a
// screen reader announces, the libraries are real folders, and the file manager is a service on the bus.
#include "AwaitTask.h"
#include "FileBytes.h"
#include "LogCapture.h"
#include "ManualClock.h"
#include "TestEnvironment.h"
#include "library/AudioExportService.h"
#include "library/PodcastManager.h"
#include "library/PodcastStorageService.h"
#include "library/SaveFileDialog.h"
#include "library/SavedAudioManager.h"
#include "library/SavedAudioStorageService.h"
#include "platform/linux/FileManagerLauncher.h"
#include "ui/LibraryWindow.h"

#include <QApplication>
#include <QDBusConnection>
#include <QDir>
#include <QFile>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QStackedWidget>
#include <QTabWidget>
#include <QTest>
#include <QTreeWidget>

#include <memory>
#include <stdexcept>

using namespace parlino;
using namespace parlino::test;

namespace {

// Stands in for the desktop's file manager on the session bus and remembers what it was asked to show.
class FileManagerService final : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.FileManager1")
public:
    QStringList shown;

public Q_SLOTS:
    Q_SCRIPTABLE void ShowItems(const QStringList &uris, const QString &startupId)
    {
        Q_UNUSED(startupId);
        shown.append(uris);
    }
};

class NoSaveDialog final : public SaveFileDialog {
public:
    void askForSaveLocation(const QString &, const QString &, Completion done) override { done(std::nullopt); }
};

template <typename Widget> Widget *control(const QWidget &window, const QString &accessibleName)
{
    for (Widget *candidate : window.findChildren<Widget *>()) {
        if (candidate->accessibleName() == accessibleName)
            return candidate;
    }
    return nullptr;
}

QStringList rowTitles(const QTreeWidget &list)
{
    QStringList titles;
    for (int index = 0; index < list.topLevelItemCount(); ++index) {
        if (!list.topLevelItem(index)->isHidden())
            titles.append(list.topLevelItem(index)->text(0));
    }
    return titles;
}

// The page of a tab that is showing: the list, the hint of an empty list, or an error.
QWidget *visiblePage(const QTreeWidget &list)
{
    return qobject_cast<QStackedWidget *>(list.parentWidget())->currentWidget();
}

} // namespace

class LibraryWindowTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();
    void emptyListsTellHowToFillThemAndSavesAppearAtOnce();
    void playsRenamesAndKeepsNotesButNeverPlaysAMissingFile();
    void deletesOnlyWhenConfirmed();
    void searchKeepsMatchingTitlesAndTexts();
    void exportsShowsInFolderAndClosesOnEscape();
    void aDamagedIndexShowsItsErrorInsteadOfAList();

private:
    [[nodiscard]] SavedAudio savedItem(const QString &title, const QString &text, int hour) const
    {
        return {QUuid::createUuid(),
                title,
                QUrl::fromLocalFile(m_mp3),
                text,
                QDateTime(QDate(2026, 3, 1), QTime(hour, 0), Qt::UTC),
                std::nullopt,
                2.0,
                4};
    }
    [[nodiscard]] Podcast podcast(const QString &title, int hour) const
    {
        return {QUuid::createUuid(),
                title,
                QStringLiteral("Two hosts talk it over."),
                QDateTime(QDate(2026, 3, 2), QTime(hour, 0), Qt::UTC),
                65,
                QUrl::fromLocalFile(m_mp3),
                QStringLiteral("The source."),
                QStringLiteral("Deep Dive"),
                120};
    }
    void makeWindow();

    TestEnvironment m_env;
    QString m_mp3;
    int m_round = 0;
    QStringList m_played;
    ManualClock m_clock;
    NoSaveDialog m_dialog;
    std::unique_ptr<SavedAudioStorageService> m_savedStorage;
    std::unique_ptr<PodcastStorageService> m_podcastStorage;
    std::unique_ptr<SavedAudioManager> m_savedAudio;
    std::unique_ptr<PodcastManager> m_podcasts;
    std::unique_ptr<AudioExportService> m_exporter;
    std::unique_ptr<LibraryWindow> m_window;
    QStringList m_shownInFolder;
    std::unique_ptr<QuietLog> m_quiet;
};

void LibraryWindowTest::initTestCase()
{
    m_mp3 = m_env.root() + QStringLiteral("/reading.mp3");
    QVERIFY(makeSpeechMp3(QStringLiteral("Kept for later."), m_mp3));
}

// Each function starts with empty library folders of its own.
void LibraryWindowTest::init()
{
    m_quiet = std::make_unique<QuietLog>();
    const QString root = m_env.dataHome() + QStringLiteral("/round%1").arg(++m_round);
    m_savedStorage = std::make_unique<SavedAudioStorageService>(root + QStringLiteral("/SavedAudio"));
    m_podcastStorage = std::make_unique<PodcastStorageService>(root + QStringLiteral("/Podcasts"));
    QDir().mkpath(root + QStringLiteral("/Downloads"));
    m_played.clear();
    m_shownInFolder.clear();
}

void LibraryWindowTest::makeWindow()
{
    m_savedAudio =
        std::make_unique<SavedAudioManager>(*m_savedStorage, [this](const QString &path) { m_played.append(path); });
    m_podcasts = std::make_unique<PodcastManager>(
        *m_podcastStorage, [this](const Podcast &podcast) { m_played.append(podcast.audioURL.toLocalFile()); });
    const QString downloads = QFileInfo(m_savedStorage->folder()).path() + QStringLiteral("/Downloads");
    m_exporter = std::make_unique<AudioExportService>(
        [](QString) -> QCoro::Task<QString> { throw std::runtime_error("no chat key"); },
        [downloads] { return std::optional<QString>(downloads); }, m_dialog, m_clock);
    m_window = std::make_unique<LibraryWindow>(*m_savedAudio, *m_podcasts, *m_exporter,
                                               [this](const QString &path) { m_shownInFolder.append(path); });
    m_window->present(LibraryWindow::Tab::library);
    QVERIFY(QTest::qWaitForWindowActive(m_window.get()));
}

void LibraryWindowTest::cleanup()
{
    m_window.reset();
    m_exporter.reset();
    m_podcasts.reset();
    m_savedAudio.reset();
    m_quiet.reset();
}

void LibraryWindowTest::emptyListsTellHowToFillThemAndSavesAppearAtOnce()
{
    makeWindow();
    const LibraryWindow &window = *m_window;
    auto *saved = control<QTreeWidget>(window, QStringLiteral("Saved audio"));
    auto *podcasts = control<QTreeWidget>(window, QStringLiteral("Podcasts"));
    QVERIFY(saved && podcasts);
    auto *savedHint = qobject_cast<QLabel *>(visiblePage(*saved));
    QVERIFY(savedHint);
    // What a screen reader announces for a control is what its tool tip shows.
    for (QWidget *widget : window.findChildren<QWidget *>()) {
        const bool control = qobject_cast<QPushButton *>(widget) || qobject_cast<QLineEdit *>(widget)
                             || qobject_cast<QPlainTextEdit *>(widget) || qobject_cast<QAbstractItemView *>(widget);
        if (control && !widget->objectName().isEmpty() && !widget->objectName().startsWith(u"qt_")) {
            QVERIFY2(!widget->accessibleName().isEmpty(), qPrintable(widget->objectName()));
            QCOMPARE(widget->accessibleName(), widget->toolTip());
        }
    }
    QVERIFY(savedHint->text().contains(QStringLiteral("Press Save in the player to keep a reading here.")));
    auto *podcastHint = qobject_cast<QLabel *>(visiblePage(*podcasts));
    QVERIFY(podcastHint && podcastHint->text().contains(QStringLiteral("parlino podcast")));
    for (const QString &name :
         {u"Play the selected item in the player"_qs, u"Delete the selected item and its audio file"_qs,
          u"Export the selected item as an MP3 file"_qs})
        QVERIFY2(!control<QPushButton>(window, name)->isEnabled(), qPrintable(name));

    // What the player keeps shows up without reopening the window, newest first.
    QVERIFY(awaitTask(m_savedAudio->save(savedItem(QStringLiteral("Morning"), QStringLiteral("a"), 8))).value);
    QVERIFY(awaitTask(m_savedAudio->save(savedItem(QStringLiteral("Evening"), QStringLiteral("b"), 20))).value);
    QVERIFY(awaitTask(m_podcasts->save(podcast(QStringLiteral("First episode"), 9))).value);
    QCOMPARE(visiblePage(*saved), saved);
    QCOMPARE(rowTitles(*saved), (QStringList{u"Evening"_qs, u"Morning"_qs}));
    QCOMPARE(visiblePage(*podcasts), podcasts);
    QCOMPARE(rowTitles(*podcasts), QStringList{u"First episode"_qs});
    QCOMPARE(podcasts->topLevelItem(0)->text(1), QStringLiteral("Deep Dive"));
    QCOMPARE(podcasts->topLevelItem(0)->text(3), QStringLiteral("1:05"));
    QVERIFY(control<QPushButton>(window, QStringLiteral("Play the selected item in the player"))->isEnabled());

    // The podcast tab shows the summary of the chosen podcast.
    m_window->present(LibraryWindow::Tab::podcasts);
    QCOMPARE(control<QLabel>(window, QStringLiteral("Summary of the selected podcast"))->text(),
             QStringLiteral("Two hosts talk it over."));
}

void LibraryWindowTest::playsRenamesAndKeepsNotesButNeverPlaysAMissingFile()
{
    const SavedAudio kept = m_savedStorage->save(savedItem(QStringLiteral("Kept"), QStringLiteral("kept"), 10));
    const SavedAudio lost = m_savedStorage->save(savedItem(QStringLiteral("Lost"), QStringLiteral("lost"), 11));
    QVERIFY(QFile::remove(lost.audioURL.toLocalFile()));
    const Podcast episode = m_podcastStorage->savePodcast(podcast(QStringLiteral("Episode"), 9));
    makeWindow();
    const LibraryWindow &window = *m_window;
    auto *list = control<QTreeWidget>(window, QStringLiteral("Saved audio"));
    auto *play = control<QPushButton>(window, QStringLiteral("Play the selected item in the player"));

    // The newest is chosen first; its file is gone, so it says so and does not play, by button or Enter.
    QCOMPARE(list->currentItem()->text(0), QStringLiteral("Lost"));
    QCOMPARE(list->currentItem()->text(3), QStringLiteral("File missing"));
    QVERIFY(!play->isEnabled());
    QVERIFY(list->hasFocus());
    QTest::keyClick(list, Qt::Key_Return);
    QVERIFY(m_played.isEmpty());

    QTest::keyClick(list, Qt::Key_Down);
    QCOMPARE(list->currentItem()->text(0), QStringLiteral("Kept"));
    QVERIFY(list->currentItem()->text(3).isEmpty());
    QTest::keyClick(list, Qt::Key_Return);
    QCOMPARE(m_played, QStringList{kept.audioURL.toLocalFile()});
    QTest::mouseClick(play, Qt::LeftButton);
    QCOMPARE(m_played.size(), 2);

    // Rename and notes reach the index on disk.
    auto *title = control<QLineEdit>(window, QStringLiteral("Title of the saved audio"));
    auto *notes = control<QPlainTextEdit>(window, QStringLiteral("Your notes on the saved audio"));
    auto *saveChanges = control<QPushButton>(window, QStringLiteral("Save the title and notes of the saved audio"));
    QCOMPARE(title->text(), QStringLiteral("Kept"));
    QVERIFY(!saveChanges->isEnabled());
    title->selectAll();
    QTest::keyClicks(title, QStringLiteral("Kept and renamed"));
    notes->setFocus();
    QTest::keyClicks(notes, QStringLiteral("Listen again on Friday."));
    QVERIFY(saveChanges->isEnabled());
    QTest::mouseClick(saveChanges, Qt::LeftButton);
    QCOMPARE(rowTitles(*list), (QStringList{u"Lost"_qs, u"Kept and renamed"_qs}));
    QCOMPARE(list->currentItem()->text(0), QStringLiteral("Kept and renamed"));
    QVERIFY(!saveChanges->isEnabled());
    const QList<SavedAudio> stored = SavedAudioStorageService(m_savedStorage->folder()).loadAll();
    const auto renamed =
        std::find_if(stored.begin(), stored.end(), [&](const auto &item) { return item.id == kept.id; });
    QCOMPARE(renamed->title, QStringLiteral("Kept and renamed"));
    QCOMPARE(renamed->notes, std::optional<QString>(QStringLiteral("Listen again on Friday.")));
    // Enter in the title field saves as well; an emptied title keeps the old one.
    title->setFocus();
    title->clear();
    QTest::keyClick(title, Qt::Key_Return);
    QCOMPARE(m_savedAudio->savedAudioList().last().title, QStringLiteral("Kept and renamed"));

    // A podcast plays through the podcast library.
    m_window->present(LibraryWindow::Tab::podcasts);
    m_played.clear();
    QTest::mouseClick(play, Qt::LeftButton);
    QCOMPARE(m_played, QStringList{episode.audioURL.toLocalFile()});
}

void LibraryWindowTest::deletesOnlyWhenConfirmed()
{
    const SavedAudio item = m_savedStorage->save(savedItem(QStringLiteral("Unwanted"), QStringLiteral("x"), 10));
    const Podcast episode = m_podcastStorage->savePodcast(podcast(QStringLiteral("Old episode"), 9));
    makeWindow();
    const LibraryWindow &window = *m_window;
    auto *list = control<QTreeWidget>(window, QStringLiteral("Saved audio"));
    const auto answer = [&](const QString &button) {
        QMessageBox *box = nullptr;
        QTRY_VERIFY((box = m_window->findChild<QMessageBox *>()) && box->isVisible());
        QVERIFY(box->text().contains(QStringLiteral("Unwanted")) || box->text().contains(QStringLiteral("Old")));
        for (QAbstractButton *candidate : box->buttons()) {
            if (candidate->text().remove(u'&') == button)
                QTest::mouseClick(candidate, Qt::LeftButton);
        }
        QTRY_VERIFY(!m_window->findChild<QMessageBox *>());
    };

    // The Delete key asks first; Cancel keeps the item and its file.
    QTest::keyClick(list, Qt::Key_Delete);
    answer(QStringLiteral("Cancel"));
    QVERIFY(!QTest::currentTestFailed());
    QCOMPARE(rowTitles(*list), QStringList{u"Unwanted"_qs});
    QVERIFY(QFile::exists(item.audioURL.toLocalFile()));
    QTest::keyClick(list, Qt::Key_Delete);
    answer(QStringLiteral("Delete"));
    QVERIFY(!QTest::currentTestFailed());
    QVERIFY(rowTitles(*list).isEmpty());
    QVERIFY(!QFile::exists(item.audioURL.toLocalFile()));
    QVERIFY(m_savedStorage->loadAll().isEmpty());
    QVERIFY(qobject_cast<QLabel *>(visiblePage(*list)));

    // The button does the same on the podcasts tab.
    m_window->present(LibraryWindow::Tab::podcasts);
    QTest::mouseClick(control<QPushButton>(window, QStringLiteral("Delete the selected item and its audio file")),
                      Qt::LeftButton);
    answer(QStringLiteral("Delete"));
    QVERIFY(!QTest::currentTestFailed());
    QVERIFY(m_podcasts->savedPodcasts().isEmpty());
    QVERIFY(m_podcastStorage->loadAllPodcasts().isEmpty());
    QVERIFY(!QFile::exists(episode.audioURL.toLocalFile()));
}

void LibraryWindowTest::searchKeepsMatchingTitlesAndTexts()
{
    m_savedStorage->save(savedItem(QStringLiteral("Weather"), QStringLiteral("Rain in the north tomorrow."), 8));
    m_savedStorage->save(savedItem(QStringLiteral("Markets"), QStringLiteral("Shares rose after the rain."), 9));
    m_savedStorage->save(savedItem(QStringLiteral("Recipe"), QStringLiteral("Bake for forty minutes."), 10));
    makeWindow();
    const LibraryWindow &window = *m_window;
    auto *list = control<QTreeWidget>(window, QStringLiteral("Saved audio"));
    auto *search = control<QLineEdit>(window, QStringLiteral("Search titles and text"));
    QVERIFY(!search->hasFocus());
    QTest::keyClick(m_window.get(), Qt::Key_F, Qt::ControlModifier);
    QVERIFY(search->hasFocus());
    // Tab goes from the search field to the tabs, the list, and on to its buttons.
    QTest::keyClick(search, Qt::Key_Tab);
    QVERIFY(m_window->focusWidget()
            && m_window->focusWidget()->parentWidget()
                   == control<QTabWidget>(window, QStringLiteral("Saved audio and podcasts")));
    QTest::keyClick(m_window->focusWidget(), Qt::Key_Tab);
    QCOMPARE(m_window->focusWidget(), list);
    QTest::keyClick(list, Qt::Key_Tab);
    QCOMPARE(m_window->focusWidget(),
             control<QPushButton>(window, QStringLiteral("Play the selected item in the player")));
    search->setFocus();

    QTest::keyClicks(search, QStringLiteral("RAIN"));
    QCOMPARE(rowTitles(*list), (QStringList{u"Markets"_qs, u"Weather"_qs}));
    QTest::keyClicks(search, QStringLiteral(" north"));
    QCOMPARE(rowTitles(*list), QStringList{u"Weather"_qs});
    // The chosen item follows what is shown, so Play never acts on a hidden row.
    QCOMPARE(list->currentItem()->text(0), QStringLiteral("Weather"));
    search->setText(QStringLiteral("recipe"));
    QCOMPARE(rowTitles(*list), QStringList{u"Recipe"_qs});
    search->setText(QStringLiteral("nothing like this"));
    QVERIFY(rowTitles(*list).isEmpty());
    QVERIFY(!control<QPushButton>(window, QStringLiteral("Play the selected item in the player"))->isEnabled());
    search->clear();
    QCOMPARE(rowTitles(*list), (QStringList{u"Recipe"_qs, u"Markets"_qs, u"Weather"_qs}));
}

void LibraryWindowTest::exportsShowsInFolderAndClosesOnEscape()
{
    const SavedAudio item = m_savedStorage->save(savedItem(QStringLiteral("Export me"), QStringLiteral("x"), 10));
    makeWindow();
    const LibraryWindow &window = *m_window;
    // Without a chat key the export is named after the time, in the download folder.
    m_clock.setNow(QDateTime(QDate(2026, 4, 5), QTime(14, 5)));
    QTest::mouseClick(control<QPushButton>(window, QStringLiteral("Export the selected item as an MP3 file")),
                      Qt::LeftButton);
    const QString exported =
        QFileInfo(m_savedStorage->folder()).path() + QStringLiteral("/Downloads/2026-04-05_14-05.mp3");
    QTRY_VERIFY(QFile::exists(exported));
    QCOMPARE(readBytes(exported), readBytes(item.audioURL.toLocalFile()));

    QTest::mouseClick(control<QPushButton>(window, QStringLiteral("Show the selected item's file in the file manager")),
                      Qt::LeftButton);
    QCOMPARE(m_shownInFolder, QStringList{item.audioURL.toLocalFile()});

    // The desktop's file manager is asked over the session bus to show the file selected.
    QDBusConnection bus = QDBusConnection::sessionBus();
    FileManagerService fileManager;
    QVERIFY(bus.registerObject(QStringLiteral("/org/freedesktop/FileManager1"), &fileManager,
                               QDBusConnection::ExportScriptableSlots));
    QVERIFY(bus.registerService(QStringLiteral("org.freedesktop.FileManager1")));
    FileManagerLauncher::showItem(item.audioURL.toLocalFile());
    QTRY_COMPARE(fileManager.shown, QStringList{item.audioURL.toString()});
    bus.unregisterService(QStringLiteral("org.freedesktop.FileManager1"));
    bus.unregisterObject(QStringLiteral("/org/freedesktop/FileManager1"));

    QVERIFY(m_window->isVisible());
    QTest::keyClick(m_window.get(), Qt::Key_Escape);
    QVERIFY(!m_window->isVisible());
}

void LibraryWindowTest::aDamagedIndexShowsItsErrorInsteadOfAList()
{
    QVERIFY(QDir().mkpath(m_savedStorage->folder()));
    QVERIFY(writeBytes(m_savedStorage->indexPath(), "[{\"title\": \"half"));
    QVERIFY(QDir().mkpath(m_podcastStorage->folder()));
    QVERIFY(writeBytes(m_podcastStorage->indexPath(), "{\"not\": \"a list\"}"));
    makeWindow();
    for (const QString &name : {u"Saved audio"_qs, u"Podcasts"_qs}) {
        auto *page = qobject_cast<QLabel *>(visiblePage(*control<QTreeWidget>(*m_window, name)));
        QVERIFY2(page, qPrintable(name));
        QVERIFY2(page->text().contains(QStringLiteral("could not be read")), qPrintable(page->text()));
        QVERIFY2(!page->text().contains(QStringLiteral("Press")), qPrintable(page->text()));
    }
    auto *savedError = qobject_cast<QLabel *>(visiblePage(*control<QTreeWidget>(*m_window, u"Saved audio"_qs)));
    QVERIFY2(savedError->text().contains(QStringLiteral("saved_audio.json")), qPrintable(savedError->text()));
}

QTEST_MAIN(LibraryWindowTest)
#include "tst_LibraryWindow.moc"
