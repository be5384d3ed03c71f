#include "ui/MenuPopoverView.h"

#include "app/AppState.h"
#include "playback/PlaybackSpeed.h"
#include "speech/TTSVoice.h"

#include <QFrame>
#include <QIcon>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QVBoxLayout>

namespace parlino {

namespace {

QPushButton *actionButton(const QString &text, const char *iconName, QWidget *parent)
{
    auto *button = new QPushButton(QIcon::fromTheme(QLatin1String(iconName)), text, parent);
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

MenuPopoverView::MenuPopoverView(AppState &state, QWidget *parent)
    : QWidget(parent)
    , m_state(state)
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

    m_status = new QLabel(this);
    m_status->setWordWrap(true);
    layout->addWidget(m_status);
    m_detail = new QLabel(this);
    m_detail->setWordWrap(true);
    m_detail->setEnabled(false); // drawn in the muted text colour
    layout->addWidget(m_detail);
    m_progress = new QProgressBar(this);
    m_progress->setRange(0, 100);
    m_progress->setTextVisible(false);
    m_progress->setMaximumHeight(6);
    layout->addWidget(m_progress);

    layout->addWidget(separator(this));
    QPushButton *read = actionButton(QStringLiteral("Read Selection Aloud"), "media-playback-start", this);
    read->setToolTip(QStringLiteral("Reads the text selected in the application in front (Super+Shift+R)"));
    m_stop = actionButton(QStringLiteral("Stop Reading"), "media-playback-stop", this);
    layout->addWidget(read);
    layout->addWidget(m_stop);
    layout->addStretch(1);
    layout->addWidget(separator(this));
    QPushButton *dashboard = actionButton(QStringLiteral("Dashboard"), "utilities-system-monitor", this);
    dashboard->setToolTip(QStringLiteral("This month's characters, cost and listening time"));
    QPushButton *settings = actionButton(QStringLiteral("Settings…"), "preferences-system", this);
    QPushButton *quit = actionButton(QStringLiteral("Quit Parlino"), "application-exit", this);
    layout->addWidget(dashboard);
    layout->addWidget(settings);
    layout->addWidget(quit);

    connect(read, &QPushButton::clicked, this, &MenuPopoverView::readSelectionRequested);
    connect(m_stop, &QPushButton::clicked, this, &MenuPopoverView::stopRequested);
    connect(dashboard, &QPushButton::clicked, this, &MenuPopoverView::dashboardRequested);
    connect(settings, &QPushButton::clicked, this, &MenuPopoverView::settingsRequested);
    connect(quit, &QPushButton::clicked, this, &MenuPopoverView::quitRequested);

    for (auto signal :
         {&AppState::isPlayingChanged, &AppState::isProcessingChanged, &AppState::processingMessageChanged,
          &AppState::processingProgressChanged, &AppState::currentPlayingTitleChanged, &AppState::selectedVoiceChanged,
          &AppState::currentSpeedChanged})
        connect(&m_state, signal, this, &MenuPopoverView::refresh);
    refresh();
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
    m_stop->setEnabled(m_state.isPlaying() || m_state.isProcessing());
}

} // namespace parlino
