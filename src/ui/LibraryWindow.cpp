#include "ui/LibraryWindow.h"

#include "core/Logging.h"
#include "library/AudioExportService.h"
#include "library/Podcast.h"
#include "library/PodcastManager.h"
#include "library/SavedAudio.h"
#include "library/SavedAudioManager.h"

#include <QFileInfo>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QLocale>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QShortcut>
#include <QStackedWidget>
#include <QTabWidget>
#include <QTreeWidget>
#include <QVBoxLayout>

#include <algorithm>
#include <exception>

namespace parlino {

namespace {

constexpr int kListPage = 0;
constexpr int kEmptyPage = 1;
constexpr int kErrorPage = 2;
constexpr int kIdRole = Qt::UserRole;
constexpr int kSearchTextRole = Qt::UserRole + 1;

const QString kFileMissing = QStringLiteral("File missing");

// Tool tip and accessible name are one text, so a screen reader says what the pointer shows.
template <typename Widget> Widget *named(Widget *widget, const QString &objectName, const QString &help)
{
    widget->setObjectName(objectName);
    widget->setToolTip(help);
    widget->setAccessibleName(help);
    return widget;
}

QPushButton *makeButton(QWidget *parent, const QString &text, const QString &objectName, const QString &help)
{
    return named(new QPushButton(text, parent), objectName, help);
}

QTreeWidget *makeList(QWidget *parent, const QString &objectName, const QString &help, const QStringList &headers)
{
    auto *list = named(new QTreeWidget(parent), objectName, help);
    list->setHeaderLabels(headers);
    list->setRootIsDecorated(false);
    list->setUniformRowHeights(true);
    list->setAllColumnsShowFocus(true);
    list->setSelectionMode(QAbstractItemView::SingleSelection);
    list->header()->setStretchLastSection(false);
    list->header()->setSectionResizeMode(0, QHeaderView::Stretch);
    for (int column = 1; column < headers.size(); ++column)
        list->header()->setSectionResizeMode(column, QHeaderView::ResizeToContents);
    return list;
}

QLabel *makeNotice(QWidget *parent, const QString &objectName, const QString &text = QString())
{
    auto *label = new QLabel(text, parent);
    label->setObjectName(objectName);
    label->setAlignment(Qt::AlignCenter);
    label->setWordWrap(true);
    label->setMargin(24);
    label->setTextInteractionFlags(Qt::TextSelectableByMouse);
    return label;
}

// One page for the list, one telling how to fill it, one for an index that cannot be read.
QStackedWidget *makePages(QWidget *parent, QTreeWidget *list, QLabel *empty, QLabel *error)
{
    auto *pages = new QStackedWidget(parent);
    pages->insertWidget(kListPage, list);
    pages->insertWidget(kEmptyPage, empty);
    pages->insertWidget(kErrorPage, error);
    return pages;
}

QString minutesAndSeconds(double seconds)
{
    const qint64 whole = seconds > 0 ? static_cast<qint64>(seconds) : 0;
    return QStringLiteral("%1:%2").arg(whole / 60).arg(whole % 60, 2, 10, QLatin1Char('0'));
}

QString shortDate(const QDateTime &date)
{
    // Day and minute are enough to tell items apart; the locale names the month.
    return QLocale().toString(date.toLocalTime(), QStringLiteral("d MMM yyyy, HH:mm"));
}

// A missing file greys the row and says so in its last column.
void markFile(QTreeWidgetItem *row, const QUrl &audioURL)
{
    const QString path = audioURL.toLocalFile();
    const int last = row->columnCount() - 1;
    if (QFileInfo::exists(path)) {
        row->setToolTip(0, path);
        return;
    }
    row->setText(last, kFileMissing);
    row->setToolTip(0, kFileMissing + QStringLiteral(": ") + path);
    for (int column = 0; column <= last; ++column)
        row->setForeground(column, QPalette().brush(QPalette::Disabled, QPalette::Text));
}

QString loadErrorText(const QString &error)
{
    return QStringLiteral("The list could not be read, so nothing is shown and nothing can be added until the file "
                          "is repaired or removed.\n\n")
           + error;
}

} // namespace

LibraryWindow::LibraryWindow(SavedAudioManager &savedAudio, PodcastManager &podcasts, AudioExportService &exporter,
                             ShowInFolderFunction showInFolder, QWidget *parent)
    : QWidget(parent, Qt::Window)
    , m_savedAudio(savedAudio)
    , m_podcasts(podcasts)
    , m_exporter(exporter)
    , m_showInFolder(std::move(showInFolder))
{
    setObjectName(QStringLiteral("LibraryWindow"));
    setWindowTitle(QStringLiteral("Parlino Library"));
    resize(720, 520);
    buildLayout();
    setUpKeyboard();

    connect(&m_savedAudio, &SavedAudioManager::savedAudioListChanged, this, &LibraryWindow::fillSavedAudio);
    connect(&m_podcasts, &PodcastManager::savedPodcastsChanged, this, &LibraryWindow::fillPodcasts);
    fillSavedAudio();
    fillPodcasts();
}

void LibraryWindow::buildLayout()
{
    auto *root = new QVBoxLayout(this);

    m_search = named(new QLineEdit(this), QStringLiteral("searchField"), QStringLiteral("Search titles and text"));
    m_search->setPlaceholderText(QStringLiteral("Search titles and text (Ctrl+F)"));
    m_search->setClearButtonEnabled(true);
    root->addWidget(m_search);

    m_savedList =
        makeList(this, QStringLiteral("savedAudioList"), QStringLiteral("Saved audio"),
                 {QStringLiteral("Title"), QStringLiteral("Saved"), QStringLiteral("Length"), QStringLiteral("File")});
    m_podcastList = makeList(this, QStringLiteral("podcastList"), QStringLiteral("Podcasts"),
                             {QStringLiteral("Title"), QStringLiteral("Type"), QStringLiteral("Made"),
                              QStringLiteral("Length"), QStringLiteral("File")});
    m_savedError = makeNotice(this, QStringLiteral("savedAudioError"));
    m_podcastError = makeNotice(this, QStringLiteral("podcastError"));
    m_savedPages = makePages(this, m_savedList,
                             makeNotice(this, QStringLiteral("savedAudioEmpty"),
                                        QStringLiteral("Nothing saved yet.\nPress Save in the player to keep a reading "
                                                       "here.")),
                             m_savedError);
    m_podcastPages = makePages(
        this, m_podcastList,
        makeNotice(this, QStringLiteral("podcastEmpty"),
                   QStringLiteral("No podcasts yet.\nPress the podcast button in the player while a reading plays, or "
                                  "run “parlino podcast” with a text, to make one here.")),
        m_podcastError);

    m_tabs = named(new QTabWidget(this), QStringLiteral("libraryTabs"), QStringLiteral("Saved audio and podcasts"));
    m_tabs->addTab(m_savedPages, QStringLiteral("Library"));
    m_tabs->addTab(m_podcastPages, QStringLiteral("Podcasts"));
    root->addWidget(m_tabs, 1);

    auto *actions = new QHBoxLayout;
    m_playButton = makeButton(this, QStringLiteral("Play"), QStringLiteral("playButton"),
                              QStringLiteral("Play the selected item in the player"));
    m_exportButton = makeButton(this, QStringLiteral("Export…"), QStringLiteral("exportButton"),
                                QStringLiteral("Export the selected item as an MP3 file"));
    m_folderButton = makeButton(this, QStringLiteral("Show in Folder"), QStringLiteral("showInFolderButton"),
                                QStringLiteral("Show the selected item's file in the file manager"));
    m_deleteButton = makeButton(this, QStringLiteral("Delete…"), QStringLiteral("deleteButton"),
                                QStringLiteral("Delete the selected item and its audio file"));
    actions->addWidget(m_playButton);
    actions->addWidget(m_exportButton);
    actions->addWidget(m_folderButton);
    actions->addStretch(1);
    actions->addWidget(m_deleteButton);
    root->addLayout(actions);

    buildDetails(this);
    root->addWidget(m_details);

    m_failure = new QLabel(this);
    m_failure->setObjectName(QStringLiteral("failureLabel"));
    m_failure->setWordWrap(true);
    m_failure->setForegroundRole(QPalette::BrightText);
    m_failure->hide();
    root->addWidget(m_failure);

    connect(m_search, &QLineEdit::textChanged, this, &LibraryWindow::applySearch);
    connect(m_tabs, &QTabWidget::currentChanged, this, [this] {
        updateActions();
        showDetails();
    });
    for (QTreeWidget *list : {m_savedList, m_podcastList}) {
        connect(list, &QTreeWidget::currentItemChanged, this, [this] {
            updateActions();
            showDetails();
        });
        // Enter and a double click.
        connect(list, &QTreeWidget::itemActivated, this, &LibraryWindow::playSelected);
    }
    connect(m_playButton, &QPushButton::clicked, this, &LibraryWindow::playSelected);
    connect(m_exportButton, &QPushButton::clicked, this, &LibraryWindow::exportSelected);
    connect(m_folderButton, &QPushButton::clicked, this, &LibraryWindow::showSelectedInFolder);
    connect(m_deleteButton, &QPushButton::clicked, this, &LibraryWindow::askToDeleteSelected);
    connect(m_saveDetailsButton, &QPushButton::clicked, this, &LibraryWindow::saveDetails);
    connect(m_titleEdit, &QLineEdit::returnPressed, this, &LibraryWindow::saveDetails);
    connect(m_titleEdit, &QLineEdit::textEdited, this, &LibraryWindow::updateActions);
    connect(m_notesEdit, &QPlainTextEdit::textChanged, this, &LibraryWindow::updateActions);

    setTabOrder(m_search, m_tabs);
    setTabOrder(m_tabs, m_savedList);
    setTabOrder(m_savedList, m_podcastList);
    setTabOrder(m_podcastList, m_playButton);
    setTabOrder(m_playButton, m_exportButton);
    setTabOrder(m_exportButton, m_folderButton);
    setTabOrder(m_folderButton, m_deleteButton);
    setTabOrder(m_deleteButton, m_titleEdit);
    setTabOrder(m_titleEdit, m_notesEdit);
    setTabOrder(m_notesEdit, m_saveDetailsButton);
}

// Below the list: title and notes of the selected saved audio, or the selected podcast's summary.
void LibraryWindow::buildDetails(QWidget *parent)
{
    m_details = new QStackedWidget(parent);

    auto *editor = new QWidget(m_details);
    auto *form = new QVBoxLayout(editor);
    form->setContentsMargins(0, 0, 0, 0);
    auto *titleRow = new QHBoxLayout;
    auto *titleLabel = new QLabel(QStringLiteral("Title:"), editor);
    m_titleEdit =
        named(new QLineEdit(editor), QStringLiteral("titleField"), QStringLiteral("Title of the saved audio"));
    titleLabel->setBuddy(m_titleEdit);
    titleRow->addWidget(titleLabel);
    titleRow->addWidget(m_titleEdit, 1);
    form->addLayout(titleRow);
    m_notesEdit = named(new QPlainTextEdit(editor), QStringLiteral("notesField"),
                        QStringLiteral("Your notes on the saved audio"));
    m_notesEdit->setPlaceholderText(QStringLiteral("Notes"));
    m_notesEdit->setTabChangesFocus(true);
    m_notesEdit->setFixedHeight(m_notesEdit->fontMetrics().lineSpacing() * 4 + 12);
    form->addWidget(m_notesEdit);
    auto *saveRow = new QHBoxLayout;
    saveRow->addStretch(1);
    m_saveDetailsButton = makeButton(editor, QStringLiteral("Save Changes"), QStringLiteral("saveDetailsButton"),
                                     QStringLiteral("Save the title and notes of the saved audio"));
    saveRow->addWidget(m_saveDetailsButton);
    form->addLayout(saveRow);
    m_details->addWidget(editor);

    m_summary = named(new QLabel(m_details), QStringLiteral("podcastSummary"),
                      QStringLiteral("Summary of the selected podcast"));
    m_summary->setWordWrap(true);
    m_summary->setAlignment(Qt::AlignTop | Qt::AlignLeft);
    m_summary->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_details->addWidget(m_summary);
}

void LibraryWindow::setUpKeyboard()
{
    auto *find = new QShortcut(QKeySequence::Find, this);
    connect(find, &QShortcut::activated, this, [this] {
        m_search->setFocus(Qt::ShortcutFocusReason);
        m_search->selectAll();
    });
    auto *escape = new QShortcut(QKeySequence(Qt::Key_Escape), this);
    connect(escape, &QShortcut::activated, this, &QWidget::close);
    // Delete acts on the list that has the focus only, so it never takes a key from the text fields.
    for (QTreeWidget *list : {m_savedList, m_podcastList}) {
        auto *remove = new QShortcut(QKeySequence::Delete, list);
        remove->setContext(Qt::WidgetShortcut);
        connect(remove, &QShortcut::activated, this, &LibraryWindow::askToDeleteSelected);
    }
}

void LibraryWindow::present(Tab tab)
{
    m_tabs->setCurrentIndex(tab == Tab::library ? 0 : 1);
    show();
    raise();
    activateWindow();
    if (QTreeWidget *list = currentList(); list->topLevelItemCount() > 0)
        list->setFocus(Qt::OtherFocusReason);
}

LibraryWindow::Tab LibraryWindow::currentTab() const
{
    return m_tabs->currentIndex() == 0 ? Tab::library : Tab::podcasts;
}

QTreeWidget *LibraryWindow::currentList() const
{
    return currentTab() == Tab::library ? m_savedList : m_podcastList;
}

void LibraryWindow::fillSavedAudio()
{
    const QTreeWidgetItem *current = m_savedList->currentItem();
    const QString keep = current ? current->data(0, kIdRole).toString() : QString();
    m_savedList->clear();
    for (const SavedAudio &item : m_savedAudio.savedAudioList()) {
        auto *row = new QTreeWidgetItem(m_savedList,
                                        {item.title, shortDate(item.createdDate), item.formattedDuration(), QString()});
        row->setData(0, kIdRole, item.id.toString());
        row->setData(0, kSearchTextRole,
                     QString(item.title + u'\n' + item.sourceText + u'\n' + item.notes.value_or(QString())));
        markFile(row, item.audioURL);
        if (row->data(0, kIdRole).toString() == keep)
            m_savedList->setCurrentItem(row);
    }
    const QString error = m_savedAudio.loadError();
    m_savedError->setText(loadErrorText(error));
    m_savedPages->setCurrentIndex(!error.isEmpty()                   ? kErrorPage
                                  : m_savedList->topLevelItemCount() ? kListPage
                                                                     : kEmptyPage);
    applySearch();
}

void LibraryWindow::fillPodcasts()
{
    const QTreeWidgetItem *current = m_podcastList->currentItem();
    const QString keep = current ? current->data(0, kIdRole).toString() : QString();
    m_podcastList->clear();
    for (const Podcast &podcast : m_podcasts.savedPodcasts()) {
        auto *row =
            new QTreeWidgetItem(m_podcastList, {podcast.title, podcast.podcastType, shortDate(podcast.generationDate),
                                                minutesAndSeconds(podcast.duration), QString()});
        row->setData(0, kIdRole, podcast.id.toString());
        row->setData(0, kSearchTextRole, QString(podcast.title + u'\n' + podcast.summary + u'\n' + podcast.sourceText));
        markFile(row, podcast.audioURL);
        if (row->data(0, kIdRole).toString() == keep)
            m_podcastList->setCurrentItem(row);
    }
    const QString error = m_podcasts.loadError();
    m_podcastError->setText(loadErrorText(error));
    m_podcastPages->setCurrentIndex(!error.isEmpty()                     ? kErrorPage
                                    : m_podcastList->topLevelItemCount() ? kListPage
                                                                         : kEmptyPage);
    applySearch();
}

// Every word of the query must occur in the title or the text, in any case.
void LibraryWindow::applySearch()
{
    const QStringList words = m_search->text().split(u' ', Qt::SkipEmptyParts);
    for (QTreeWidget *list : {m_savedList, m_podcastList}) {
        QTreeWidgetItem *firstShown = nullptr;
        for (int index = 0; index < list->topLevelItemCount(); ++index) {
            QTreeWidgetItem *row = list->topLevelItem(index);
            const QString text = row->data(0, kSearchTextRole).toString();
            const bool shown = std::all_of(words.begin(), words.end(), [&](const QString &word) {
                return text.contains(word, Qt::CaseInsensitive);
            });
            row->setHidden(!shown);
            if (shown && !firstShown)
                firstShown = row;
        }
        if (!list->currentItem() || list->currentItem()->isHidden())
            list->setCurrentItem(firstShown);
    }
    updateActions();
    showDetails();
}

const SavedAudio *LibraryWindow::selectedSavedAudio() const
{
    const QTreeWidgetItem *row = m_savedList->currentItem();
    if (!row || row->isHidden())
        return nullptr;
    const QUuid id(row->data(0, kIdRole).toString());
    const QList<SavedAudio> &items = m_savedAudio.savedAudioList();
    const auto found = std::find_if(items.begin(), items.end(), [&](const SavedAudio &item) { return item.id == id; });
    return found == items.end() ? nullptr : &*found;
}

const Podcast *LibraryWindow::selectedPodcast() const
{
    const QTreeWidgetItem *row = m_podcastList->currentItem();
    if (!row || row->isHidden())
        return nullptr;
    const QUuid id(row->data(0, kIdRole).toString());
    const QList<Podcast> &podcasts = m_podcasts.savedPodcasts();
    const auto found =
        std::find_if(podcasts.begin(), podcasts.end(), [&](const Podcast &podcast) { return podcast.id == id; });
    return found == podcasts.end() ? nullptr : &*found;
}

QString LibraryWindow::selectedFile() const
{
    if (currentTab() == Tab::library) {
        const SavedAudio *item = selectedSavedAudio();
        return item ? item->audioURL.toLocalFile() : QString();
    }
    const Podcast *podcast = selectedPodcast();
    return podcast ? podcast->audioURL.toLocalFile() : QString();
}

bool LibraryWindow::selectedFileExists() const
{
    const QString file = selectedFile();
    return !file.isEmpty() && QFileInfo::exists(file);
}

void LibraryWindow::updateActions()
{
    const bool selected = !selectedFile().isEmpty();
    const bool onDisk = selected && selectedFileExists();
    m_playButton->setEnabled(onDisk);
    m_exportButton->setEnabled(onDisk);
    m_folderButton->setEnabled(selected);
    m_deleteButton->setEnabled(selected);

    const SavedAudio *item = currentTab() == Tab::library ? selectedSavedAudio() : nullptr;
    const bool changed = item
                         && ((!m_titleEdit->text().trimmed().isEmpty() && m_titleEdit->text().trimmed() != item->title)
                             || m_notesEdit->toPlainText() != item->notes.value_or(QString()));
    m_saveDetailsButton->setEnabled(changed);
}

void LibraryWindow::showDetails()
{
    if (currentTab() == Tab::podcasts) {
        const Podcast *podcast = selectedPodcast();
        m_summary->setText(podcast ? podcast->summary : QString());
        m_details->setCurrentWidget(m_summary);
        return;
    }
    const SavedAudio *item = selectedSavedAudio();
    // Refilling the fields would throw away what the user is typing about the same item.
    const QString id = item ? item->id.toString() : QString();
    if (m_titleEdit->property("itemId").toString() != id || !m_saveDetailsButton->isEnabled()) {
        m_titleEdit->setProperty("itemId", id);
        m_titleEdit->setText(item ? item->title : QString());
        m_notesEdit->setPlainText(item ? item->notes.value_or(QString()) : QString());
    }
    m_titleEdit->setEnabled(item != nullptr);
    m_notesEdit->setEnabled(item != nullptr);
    m_details->setCurrentIndex(0);
    updateActions();
}

void LibraryWindow::playSelected()
{
    if (!selectedFileExists())
        return;
    if (currentTab() == Tab::library) {
        if (const SavedAudio *item = selectedSavedAudio())
            m_savedAudio.play(*item);
    } else if (const Podcast *podcast = selectedPodcast()) {
        m_podcasts.playPodcast(*podcast);
    }
}

void LibraryWindow::exportSelected()
{
    if (!selectedFileExists())
        return;
    const QString file = selectedFile();
    QString context;
    if (const SavedAudio *item = currentTab() == Tab::library ? selectedSavedAudio() : nullptr)
        context = item->sourceText;
    else if (const Podcast *podcast = selectedPodcast())
        context = podcast->title + u'\n' + podcast->summary;
    // The export names the file itself and reports the outcome with its own notification.
    QCoro::Task<> exporting = m_exporter.exportAudio(QUrl::fromLocalFile(file), context);
    Q_UNUSED(exporting);
}

void LibraryWindow::showSelectedInFolder()
{
    const QString file = selectedFile();
    if (!file.isEmpty() && m_showInFolder)
        m_showInFolder(file);
}

void LibraryWindow::askToDeleteSelected()
{
    const Tab tab = currentTab();
    QUuid id;
    QString title;
    if (const SavedAudio *item = tab == Tab::library ? selectedSavedAudio() : nullptr) {
        id = item->id;
        title = item->title;
    } else if (const Podcast *podcast = tab == Tab::podcasts ? selectedPodcast() : nullptr) {
        id = podcast->id;
        title = podcast->title;
    }
    if (id.isNull())
        return;
    delete m_confirmation;
    m_confirmation = new QMessageBox(QMessageBox::Question, QStringLiteral("Delete from Library"),
                                     QStringLiteral("Delete “%1”?").arg(title), QMessageBox::Cancel, this);
    m_confirmation->setObjectName(QStringLiteral("deleteConfirmation"));
    m_confirmation->setInformativeText(QStringLiteral("Its audio file is removed too. This cannot be undone."));
    QPushButton *confirm = m_confirmation->addButton(QStringLiteral("Delete"), QMessageBox::DestructiveRole);
    m_confirmation->setDefaultButton(QMessageBox::Cancel);
    m_confirmation->setAttribute(Qt::WA_DeleteOnClose);
    connect(m_confirmation, &QMessageBox::buttonClicked, this, [this, confirm, tab, id](QAbstractButton *button) {
        if (button != confirm)
            return;
        QCoro::Task<> deleting = deleteItem(tab, id);
        Q_UNUSED(deleting);
    });
    m_confirmation->open();
}

QCoro::Task<> LibraryWindow::deleteItem(Tab tab, QUuid id)
{
    QPointer<LibraryWindow> self(this);
    try {
        if (tab == Tab::library) {
            QCoro::Task<> removing = m_savedAudio.remove(id);
            co_await removing;
        } else {
            QCoro::Task<> removing = m_podcasts.deletePodcast(id);
            co_await removing;
        }
        if (self)
            m_failure->hide();
    } catch (const std::exception &error) {
        PLOG(lcUi) << "❌ Could not delete from the library: " << error.what();
        if (self)
            showFailure(QStringLiteral("Could not delete: ") + QString::fromUtf8(error.what()));
    }
}

void LibraryWindow::saveDetails()
{
    const SavedAudio *selected = currentTab() == Tab::library ? selectedSavedAudio() : nullptr;
    if (!selected || !m_saveDetailsButton->isEnabled())
        return;
    SavedAudio item = *selected;
    const QString title = m_titleEdit->text().trimmed();
    if (!title.isEmpty())
        item.title = title;
    const QString notes = m_notesEdit->toPlainText();
    item.notes = notes.isEmpty() ? std::nullopt : std::optional<QString>(notes);
    QCoro::Task<> updating = updateSavedAudio(std::move(item));
    Q_UNUSED(updating);
}

QCoro::Task<> LibraryWindow::updateSavedAudio(SavedAudio item)
{
    QPointer<LibraryWindow> self(this);
    try {
        QCoro::Task<> updating = m_savedAudio.update(item);
        co_await updating;
        if (self) {
            m_failure->hide();
            m_saveDetailsButton->setEnabled(false);
            showDetails();
        }
    } catch (const std::exception &error) {
        PLOG(lcUi) << "❌ Could not change the saved audio: " << error.what();
        if (self)
            showFailure(QStringLiteral("Could not save the changes: ") + QString::fromUtf8(error.what()));
    }
}

void LibraryWindow::showFailure(const QString &text)
{
    m_failure->setText(text);
    m_failure->show();
}

} // namespace parlino
