#include "ui/MenuPopoverView.h"

#include "app/AppState.h"
#include "library/PodcastManager.h"
#include "library/SavedAudioManager.h"
#include "playback/PlaybackSpeed.h"
#include "speech/TTSVoice.h"

#include <QFrame>
#include <QHBoxLayout>
#include <QIcon>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QVBoxLayout>

#include <algorithm>
#include <functional>

namespace parlino {

namespace {

QPushButton *actionButton(const QString &text, const char *iconName, QWidget *parent, const QString &help = QString())
{
    auto *button = new QPushButton(QIcon::fromTheme(QLatin1String(iconName)), text, parent);
    // The help text is the button's name for screen readers; without one, its label is.
    button->setToolTip(help);
    button->setAccessibleName(help.isEmpty() ? text : help);
    button->setFlat(true);
    button->setCursor(Qt::PointingHandCursor);
    button->setStyleSheet(QStringLiteral("QPushButton { text-align: left; padding: 8px 10px; }"));
    return button;
}

QFrame *separator(QWidget *parent)
{
    auto *line = new QFrame(parent);
    line->setFrameShape(QFrame::HLine);
    line->setFrameShadow(QFrame::Sunken);
    return line;
}

} // namespace

MenuPopoverView::MenuPopoverView(AppState &state, SavedAudioManager *savedAudio, PodcastManager *podcasts,
                                 QWidget *parent)
    : QWidget(parent)
    , m_state(state)
    , m_savedAudio(savedAudio)
    , m_podcasts(podcasts)
{
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(14, 14, 14, 14);
    layout->setSpacing(6);

    auto *title = new QLabel(QStringLiteral("Parlino"), this);
    QFont titleFont = title->font();
    titleFont.setPointSizeF(titleFont.pointSizeF() * 1.4);
    titleFont.setBold(true);
    title->setFont(titleFont);
    layout->addWidget(title);

    // Now playing, with its controls.
    m_status = new QLabel(this);
    m_status->setWordWrap(true);
    m_status->setAccessibleName(QStringLiteral("Now playing"));
    layout->addWidget(m_status);
    m_detail = new QLabel(this);
    m_detail->setWordWrap(true);
    m_detail->setEnabled(false); // drawn in the muted text colour
    layout->addWidget(m_detail);
    m_progress = new QProgressBar(this);
    m_progress->setRange(0, 100);
    m_progress->setTextVisible(false);
    m_progress->setMaximumHeight(6);
    m_progress->setAccessibleName(QStringLiteral("Progress"));
    layout->addWidget(m_progress);
    auto *controls = new QHBoxLayout;
    m_playPause = actionButton(QStringLiteral("Pause"), "media-playback-pause", this,
                               QStringLiteral("Pause or resume the reading (Super+Shift+P)"));
    m_stop = actionButton(QStringLiteral("Stop"), "media-playback-stop", this, QStringLiteral("Stop reading"));
    controls->addWidget(m_playPause);
    controls->addWidget(m_stop);
    controls->addStretch(1);
    layout->addLayout(controls);

    layout->addWidget(separator(this));
    QPushButton *read =
        actionButton(QStringLiteral("Read Selection Aloud"), "media-playback-start", this,
                     QStringLiteral("Reads the text selected in the application in front (Super+Shift+R)"));
    QPushButton *summary = actionButton(QStringLiteral("Read a Summary"), "format-justify-left", this,
                                        QStringLiteral("Reads a summary of the selected text (Super+Shift+H)"));
    QPushButton *podcast = actionButton(QStringLiteral("Make a Podcast"), "audio-x-generic", this,
                                        QStringLiteral("Makes a podcast of the selected text (Super+Shift+G)"));
    layout->addWidget(read);
    layout->addWidget(summary);
    layout->addWidget(podcast);

    // The latest saved readings and podcasts, to hear again.
    if (m_savedAudio || m_podcasts) {
        layout->addWidget(separator(this));
        m_recentHeading = new QLabel(QStringLiteral("Recent"), this);
        m_recentHeading->setEnabled(false);
        layout->addWidget(m_recentHeading);
        m_recent = new QVBoxLayout;
        m_recent->setSpacing(0);
        layout->addLayout(m_recent);
        if (m_savedAudio)
            connect(m_savedAudio, &SavedAudioManager::savedAudioListChanged, this, &MenuPopoverView::refreshRecent);
        if (m_podcasts)
            connect(m_podcasts, &PodcastManager::savedPodcastsChanged, this, &MenuPopoverView::refreshRecent);
        refreshRecent();
    }

    layout->addStretch(1);
    layout->addWidget(separator(this));
    QPushButton *library = actionButton(QStringLiteral("Library"), "folder-music", this,
                                        QStringLiteral("Saved readings and podcasts (Super+Shift+L)"));
    QPushButton *dashboard = actionButton(QStringLiteral("Dashboard"), "utilities-system-monitor", this,
                                          QStringLiteral("This month's characters, cost and listening time"));
    QPushButton *settings = actionButton(QStringLiteral("Settings…"), "preferences-system", this);
    QPushButton *quit = actionButton(QStringLiteral("Quit Parlino"), "application-exit", this);
    layout->addWidget(library);
    layout->addWidget(dashboard);
    layout->addWidget(settings);
    layout->addWidget(quit);

    connect(read, &QPushButton::clicked, this, &MenuPopoverView::readSelectionRequested);
    connect(summary, &QPushButton::clicked, this, &MenuPopoverView::readSummaryRequested);
    connect(podcast, &QPushButton::clicked, this, &MenuPopoverView::podcastRequested);
    connect(m_playPause, &QPushButton::clicked, this, &MenuPopoverView::playPauseRequested);
    connect(m_stop, &QPushButton::clicked, this, &MenuPopoverView::stopRequested);
    connect(library, &QPushButton::clicked, this, &MenuPopoverView::libraryRequested);
    connect(dashboard, &QPushButton::clicked, this, &MenuPopoverView::dashboardRequested);
    connect(settings, &QPushButton::clicked, this, &MenuPopoverView::settingsRequested);
    connect(quit, &QPushButton::clicked, this, &MenuPopoverView::quitRequested);

    for (auto signal :
         {&AppState::isPlayingChanged, &AppState::isProcessingChanged, &AppState::processingMessageChanged,
          &AppState::processingProgressChanged, &AppState::currentPlayingTitleChanged, &AppState::selectedVoiceChanged,
          &AppState::currentSpeedChanged, &AppState::totalTimeChanged})
        connect(&m_state, signal, this, &MenuPopoverView::refresh);
    refresh();
}

void MenuPopoverView::refreshRecent()
{
    // Newest first across both lists.
    struct Item {
        QString title;
        QDateTime when;
        std::function<void()> play;
    };
    QList<Item> items;
    if (m_savedAudio) {
        for (const SavedAudio &saved : m_savedAudio->savedAudioList())
            items.append({saved.title, saved.createdDate, [manager = m_savedAudio, saved] { manager->play(saved); }});
    }
    if (m_podcasts) {
        for (const Podcast &podcast : m_podcasts->savedPodcasts())
            items.append({podcast.title, podcast.generationDate,
                          [manager = m_podcasts, podcast] { manager->playPodcast(podcast); }});
    }
    std::stable_sort(items.begin(), items.end(), [](const Item &a, const Item &b) { return a.when > b.when; });

    while (QLayoutItem *old = m_recent->takeAt(0)) {
        delete old->widget();
        delete old;
    }
    for (int index = 0; index < std::min<qsizetype>(recentCount, items.size()); ++index) {
        const Item &item = items.at(index);
        QPushButton *button = actionButton(fontMetrics().elidedText(item.title, Qt::ElideRight, 230),
                                           "media-playback-start", this, QStringLiteral("Play “%1”").arg(item.title));
        connect(button, &QPushButton::clicked, this, [this, play = item.play] {
            play();
            Q_EMIT recentItemPlayed();
        });
        m_recent->addWidget(button);
    }
    m_recentHeading->setText(items.isEmpty() ? QStringLiteral("Nothing saved yet") : QStringLiteral("Recent"));
}

void MenuPopoverView::refresh()
{
    if (m_state.isProcessing()) {
        m_status->setText(m_state.processingMessage().isEmpty() ? QStringLiteral("Working…")
                                                                : m_state.processingMessage());
        m_progress->setValue(static_cast<int>(m_state.processingProgress() * 100));
        m_progress->setVisible(true);
    } else if (m_state.isPlaying()) {
        const QString title = m_state.currentPlayingTitle();
        m_status->setText(title.isEmpty() ? QStringLiteral("Playing") : QStringLiteral("Playing: ") + title);
        m_progress->setVisible(false);
    } else {
        m_status->setText(QStringLiteral("Select text anywhere and press Super+Shift+R to hear it."));
        m_progress->setVisible(false);
    }
    m_detail->setText(QStringLiteral("Voice: %1 · Speed: %2")
                          .arg(identifier(m_state.selectedVoice()), displayName(m_state.currentSpeed())));
    const bool loaded = m_state.isPlaying() || m_state.totalTime() > 0;
    m_playPause->setEnabled(loaded);
    m_playPause->setText(m_state.isPlaying() ? QStringLiteral("Pause") : QStringLiteral("Play"));
    m_playPause->setIcon(QIcon::fromTheme(m_state.isPlaying() ? QStringLiteral("media-playback-pause")
                                                              : QStringLiteral("media-playback-start")));
    m_stop->setEnabled(loaded || m_state.isProcessing());
}

} // namespace parlino
