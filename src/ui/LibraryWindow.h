#pragma once

#include <QPointer>
#include <QString>
#include <QUuid>
#include <QWidget>
#include <qcoro/qcorotask.h>

#include <functional>

class QLabel;
class QLineEdit;
class QMessageBox;
class QPlainTextEdit;
class QPushButton;
class QStackedWidget;
class QTabWidget;
class QTreeWidget;
class QTreeWidgetItem;

namespace parlino {

class AudioExportService;
class PodcastManager;
class SavedAudioManager;
struct Podcast;
struct SavedAudio;

// The saved audio and the podcasts, newest first, on two tabs: play an item (the floating player takes
// over), export it, show its file in the file manager, delete it after a confirmation; saved audio can
// be renamed and carry notes. The search field keeps the items whose title or text holds the words.
// Follows both managers, so a save from the player appears at once. An item whose file is gone is
// marked and cannot be played or exported; an index that cannot be read shows its error instead of a list.
class LibraryWindow final : public QWidget {
    Q_OBJECT
public:
    enum class Tab { library, podcasts };

    // Shows a file in the desktop's file manager.
    using ShowInFolderFunction = std::function<void(const QString &path)>;

    LibraryWindow(SavedAudioManager &savedAudio, PodcastManager &podcasts, AudioExportService &exporter,
                  ShowInFolderFunction showInFolder, QWidget *parent = nullptr);

    // Shows the window on tab above the others and gives it the keyboard.
    void present(Tab tab);
    [[nodiscard]] Tab currentTab() const;

private:
    void buildLayout();
    void buildDetails(QWidget *parent);
    void setUpKeyboard();
    void fillSavedAudio();
    void fillPodcasts();
    void applySearch();
    void updateActions();
    void showDetails();

    [[nodiscard]] QTreeWidget *currentList() const;
    [[nodiscard]] const SavedAudio *selectedSavedAudio() const;
    [[nodiscard]] const Podcast *selectedPodcast() const;
    // The file of the selected item on the current tab, and whether it is on disk.
    [[nodiscard]] QString selectedFile() const;
    [[nodiscard]] bool selectedFileExists() const;

    void playSelected();
    void exportSelected();
    void showSelectedInFolder();
    void askToDeleteSelected();
    void saveDetails();
    QCoro::Task<> deleteItem(Tab tab, QUuid id);
    QCoro::Task<> updateSavedAudio(SavedAudio item);
    void showFailure(const QString &text);

    SavedAudioManager &m_savedAudio;
    PodcastManager &m_podcasts;
    AudioExportService &m_exporter;
    ShowInFolderFunction m_showInFolder;

    QLineEdit *m_search = nullptr;
    QTabWidget *m_tabs = nullptr;
    QStackedWidget *m_savedPages = nullptr;
    QStackedWidget *m_podcastPages = nullptr;
    QTreeWidget *m_savedList = nullptr;
    QTreeWidget *m_podcastList = nullptr;
    QLabel *m_savedError = nullptr;
    QLabel *m_podcastError = nullptr;
    QPushButton *m_playButton = nullptr;
    QPushButton *m_exportButton = nullptr;
    QPushButton *m_folderButton = nullptr;
    QPushButton *m_deleteButton = nullptr;
    QStackedWidget *m_details = nullptr;
    QLineEdit *m_titleEdit = nullptr;
    QPlainTextEdit *m_notesEdit = nullptr;
    QPushButton *m_saveDetailsButton = nullptr;
    QLabel *m_summary = nullptr;
    QLabel *m_failure = nullptr;
    QPointer<QMessageBox> m_confirmation;
};

} // namespace parlino
