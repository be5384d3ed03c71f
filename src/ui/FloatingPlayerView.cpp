#include "ui/FloatingPlayerView.h"

#include "app/AppState.h"
#include "app/LibraryActions.h"
#include "app/QuestionActions.h"
#include "core/Logging.h"
#include "playback/AudioPlayerManager.h"
#include "playback/PlaybackSpeed.h"
#include "ui/FloatingPlayerResizeGrip.h"
#include "ui/FloatingPlayerWindowController.h"
#include "ui/SnapSlider.h"
#include "usage/SpeechPrices.h"

#include <QFileInfo>
#include <QHBoxLayout>
#include <QIcon>
#include <QKeyEvent>
#include <QLabel>
#include <QMouseEvent>
#include <QProgressBar>
#include <QStyle>
#include <QToolButton>
#include <QVBoxLayout>

#include <algorithm>
#include <cmath>

namespace parlino {

namespace {

constexpr int kProgressScale = 1000;
const QString kArrivingNote = QStringLiteral("Available once the whole reading has arrived");

QList<double> speedPoints()
{
    QList<double> points;
    for (PlaybackSpeed speed : allPlaybackSpeeds)
        points << rawValue(speed);
    return points;
}

QIcon themedIcon(const QWidget *widget, const QString &name, QStyle::StandardPixmap fallback)
{
    const QIcon icon = QIcon::fromTheme(name);
    return icon.isNull() ? widget->style()->standardIcon(fallback) : icon;
}

QToolButton *makeButton(QWidget *parent, const QString &objectName, const QString &toolTip)
{
    auto *button = new QToolButton(parent);
    button->setObjectName(objectName);
    button->setToolTip(toolTip);
    button->setAccessibleName(toolTip);
    button->setAutoRaise(true);
    // Clicks leave the keyboard focus alone, so Space stays play/pause.
    button->setFocusPolicy(Qt::TabFocus);
    return button;
}

QLabel *makeCaption(QWidget *parent, const QString &objectName)
{
    auto *label = new QLabel(parent);
    label->setObjectName(objectName);
    QFont font = label->font();
    font.setPointSizeF(font.pointSizeF() * 0.85);
    label->setFont(font);
    label->setForegroundRole(QPalette::PlaceholderText);
    return label;
}

} // namespace

FloatingPlayerView::FloatingPlayerView(AppState &appState, AudioPlayerManager &player,
                                       FloatingPlayerWindowController &controller, QWidget *parent)
    : QFrame(parent)
    , m_appState(appState)
    , m_player(player)
    , m_controller(controller)
{
    setObjectName(QStringLiteral("FloatingPlayerView"));
    setFrameShape(QFrame::StyledPanel);
    setAutoFillBackground(true);
    // Desktops without an icon theme of their own still get the familiar media icons.
    const QString fallbackTheme = QIcon::fallbackThemeName();
    if (fallbackTheme.isEmpty() || fallbackTheme == QLatin1String("hicolor"))
        QIcon::setFallbackThemeName(QStringLiteral("Adwaita"));
    buildLayout();
    connectState();
    updateTitle();
    updatePlayButton();
    updateProgress();
    updateSpeed();
    updateProcessing();
    updateSpeechNotice();
}

QString FloatingPlayerView::formatTime(double seconds)
{
    const qint64 whole = std::isfinite(seconds) && seconds > 0 ? static_cast<qint64>(std::floor(seconds)) : 0;
    return QStringLiteral("%1:%2").arg(whole / 60).arg(whole % 60, 2, 10, QLatin1Char('0'));
}

void FloatingPlayerView::buildLayout()
{
    auto *root = new QVBoxLayout(this);
    root->setContentsMargins(12, 8, 8, 8);
    root->setSpacing(4);

    // What is playing, and the close button.
    auto *header = new QHBoxLayout;
    header->setSpacing(6);
    auto *titles = new QVBoxLayout;
    titles->setSpacing(0);
    m_title = new QLabel(this);
    m_title->setObjectName(QStringLiteral("titleLabel"));
    QFont titleFont = m_title->font();
    titleFont.setBold(true);
    m_title->setFont(titleFont);
    m_title->setMinimumWidth(40);
    m_title->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
    m_status = makeCaption(this, QStringLiteral("statusLabel"));
    titles->addWidget(m_title);
    titles->addWidget(m_status);
    header->addLayout(titles, 1);
    m_closeButton = makeButton(this, QStringLiteral("closeButton"), QStringLiteral("Close"));
    m_closeButton->setIcon(themedIcon(this, QStringLiteral("window-close"), QStyle::SP_TitleBarCloseButton));
    m_closeButton->setIconSize(QSize(16, 16));
    header->addWidget(m_closeButton, 0, Qt::AlignTop);
    root->addLayout(header);

    // Which voice reads, when it is not the chosen one.
    m_speechNotice = makeCaption(this, QStringLiteral("speechNoticeLabel"));
    m_speechNotice->setWordWrap(true);
    m_speechNotice->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
    root->addWidget(m_speechNotice);

    // While a request is prepared: its message and progress.
    m_processingLabel = makeCaption(this, QStringLiteral("processingLabel"));
    m_processingLabel->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
    m_processingBar = new QProgressBar(this);
    m_processingBar->setObjectName(QStringLiteral("processingBar"));
    m_processingBar->setRange(0, kProgressScale);
    m_processingBar->setTextVisible(false);
    m_processingBar->setFixedHeight(4);
    root->addWidget(m_processingLabel);
    root->addWidget(m_processingBar);

    // Artwork in the room left over; it gives way when the window is small.
    m_artwork = new QLabel(this);
    m_artwork->setObjectName(QStringLiteral("artwork"));
    m_artwork->setAlignment(Qt::AlignCenter);
    m_artwork->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Ignored);
    root->addWidget(m_artwork, 1);

    // Progress with elapsed and total time.
    m_progress = new QProgressBar(this);
    m_progress->setObjectName(QStringLiteral("progressBar"));
    m_progress->setRange(0, kProgressScale);
    m_progress->setTextVisible(false);
    m_progress->setFixedHeight(6);
    root->addWidget(m_progress);
    auto *times = new QHBoxLayout;
    m_elapsed = makeCaption(this, QStringLiteral("elapsedLabel"));
    m_total = makeCaption(this, QStringLiteral("totalLabel"));
    times->addWidget(m_elapsed);
    times->addStretch(1);
    times->addWidget(m_total);
    root->addLayout(times);
    m_cost = makeCaption(this, QStringLiteral("costLabel"));
    m_cost->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
    m_cost->hide();
    root->addWidget(m_cost);

    // Transport.
    auto *transport = new QHBoxLayout;
    transport->setSpacing(10);
    m_skipBackButton = makeButton(this, QStringLiteral("skipBackButton"), QStringLiteral("Skip back 15 seconds"));
    m_skipBackButton->setIcon(themedIcon(this, QStringLiteral("media-seek-backward"), QStyle::SP_MediaSeekBackward));
    m_skipBackButton->setText(QStringLiteral("15"));
    m_playPauseButton = makeButton(this, QStringLiteral("playPauseButton"), QStringLiteral("Play/Pause (Space)"));
    m_playPauseButton->setIconSize(QSize(36, 36));
    m_skipForwardButton =
        makeButton(this, QStringLiteral("skipForwardButton"), QStringLiteral("Skip forward 30 seconds"));
    m_skipForwardButton->setIcon(themedIcon(this, QStringLiteral("media-seek-forward"), QStyle::SP_MediaSeekForward));
    m_skipForwardButton->setText(QStringLiteral("30"));
    for (QToolButton *skip : {m_skipBackButton, m_skipForwardButton}) {
        skip->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
        skip->setIconSize(QSize(20, 20));
    }
    transport->addStretch(1);
    transport->addWidget(m_skipBackButton);
    transport->addWidget(m_playPauseButton);
    transport->addWidget(m_skipForwardButton);
    transport->addStretch(1);
    root->addLayout(transport);

    // Speed.
    auto *speedRow = new QHBoxLayout;
    auto *speedCaption = makeCaption(this, QStringLiteral("speedCaption"));
    speedCaption->setText(QStringLiteral("Speed"));
    m_speedValue = makeCaption(this, QStringLiteral("speedValueLabel"));
    speedRow->addWidget(speedCaption);
    speedRow->addStretch(1);
    speedRow->addWidget(m_speedValue);
    speedRow->addSpacing(6);
    root->addLayout(speedRow);
    m_speedSlider = new SnapSlider(speedPoints(), this);
    m_speedSlider->setObjectName(QStringLiteral("speedSlider"));
    m_speedSlider->setToolTip(QStringLiteral("Playback speed"));
    m_speedSlider->setAccessibleName(QStringLiteral("Playback speed"));
    auto *sliderRow = new QHBoxLayout;
    sliderRow->setContentsMargins(0, 0, 10, 0);
    sliderRow->addWidget(m_speedSlider);
    root->addLayout(sliderRow);

    // Questions about what plays: shown once the question actions are set.
    m_questionRow = new QWidget(this);
    auto *questionRow = new QHBoxLayout(m_questionRow);
    questionRow->setContentsMargins(0, 0, 10, 0);
    questionRow->setSpacing(6);
    m_questionButton = makeButton(m_questionRow, QStringLiteral("questionButton"),
                                  QStringLiteral("Ask a question about what you're listening to (?)"));
    m_questionButton->setIcon(themedIcon(this, QStringLiteral("help-about"), QStyle::SP_MessageBoxQuestion));
    m_questionButton->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    m_questionButton->setIconSize(QSize(18, 18));
    questionRow->addWidget(m_questionButton);
    // The listening indicator: the microphone's level while a question is listened for.
    m_questionLevel = new QProgressBar(m_questionRow);
    m_questionLevel->setObjectName(QStringLiteral("questionLevel"));
    m_questionLevel->setAccessibleName(QStringLiteral("Microphone level"));
    m_questionLevel->setToolTip(QStringLiteral("Microphone level"));
    m_questionLevel->setRange(0, kProgressScale);
    m_questionLevel->setTextVisible(false);
    m_questionLevel->setMaximumHeight(6);
    m_questionLevel->hide();
    questionRow->addWidget(m_questionLevel, 1);
    m_questionRow->hide();
    root->addWidget(m_questionRow);

    // Keeping what plays: shown once the library actions are set.
    m_libraryRow = new QWidget(this);
    auto *library = new QHBoxLayout(m_libraryRow);
    library->setContentsMargins(0, 0, 10, 0);
    library->setSpacing(4);
    m_podcastButton = makeButton(m_libraryRow, QStringLiteral("podcastButton"),
                                 QStringLiteral("Generate an AI podcast from this content"));
    m_podcastButton->setIcon(themedIcon(this, QStringLiteral("audio-input-microphone"), QStyle::SP_MediaVolume));
    m_saveButton = makeButton(m_libraryRow, QStringLiteral("saveButton"), QStringLiteral("Save audio to library"));
    m_saveButton->setIcon(themedIcon(this, QStringLiteral("document-save"), QStyle::SP_DialogSaveButton));
    m_downloadButton = makeButton(m_libraryRow, QStringLiteral("downloadButton"), QStringLiteral("Download MP3 file"));
    m_downloadButton->setIcon(themedIcon(this, QStringLiteral("document-save-as"), QStyle::SP_ArrowDown));
    for (QToolButton *button : {m_podcastButton, m_saveButton, m_downloadButton}) {
        button->setToolButtonStyle(Qt::ToolButtonTextUnderIcon);
        button->setIconSize(QSize(18, 18));
        button->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Preferred);
        library->addWidget(button);
    }
    m_libraryRow->hide();
    root->addWidget(m_libraryRow);

    // The resize handle sits in the corner, over the layout.
    m_resizeGrip = new FloatingPlayerResizeGrip(this);
}

void FloatingPlayerView::connectState()
{
    connect(m_closeButton, &QToolButton::clicked, this, &FloatingPlayerView::handleCloseButton);
    connect(m_playPauseButton, &QToolButton::clicked, &m_player, &AudioPlayerManager::togglePlayPause);
    connect(m_skipBackButton, &QToolButton::clicked, this, [this] { m_player.skip(-kSkipBackSeconds); });
    connect(m_skipForwardButton, &QToolButton::clicked, this, [this] { m_player.skip(kSkipForwardSeconds); });
    connect(m_speedSlider, &SnapSlider::snappedValueChanged, this,
            [this](double speed) { m_player.setSpeed(static_cast<float>(speed)); });
    connect(m_resizeGrip, &FloatingPlayerResizeGrip::resizeRequested, &m_controller,
            &FloatingPlayerWindowController::resize);

    connect(&m_appState, &AppState::currentPlayingTitleChanged, this, &FloatingPlayerView::updateTitle);
    connect(&m_player, &AudioPlayerManager::currentURLChanged, this, &FloatingPlayerView::updateTitle);
    connect(&m_appState, &AppState::isPlayingChanged, this, &FloatingPlayerView::updatePlayButton);
    connect(&m_appState, &AppState::currentTimeChanged, this, &FloatingPlayerView::updateProgress);
    connect(&m_appState, &AppState::totalTimeChanged, this, &FloatingPlayerView::updateProgress);
    connect(&m_appState, &AppState::playbackProgressChanged, this, &FloatingPlayerView::updateProgress);
    connect(&m_appState, &AppState::totalTimeChanged, this, &FloatingPlayerView::updatePlayButton);
    connect(&m_appState, &AppState::currentSpeedChanged, this, &FloatingPlayerView::updateSpeed);
    connect(&m_player, &AudioPlayerManager::playbackRateChanged, this, &FloatingPlayerView::updateSpeed);
    connect(&m_appState, &AppState::isProcessingChanged, this, &FloatingPlayerView::updateProcessing);
    connect(&m_appState, &AppState::processingMessageChanged, this, &FloatingPlayerView::updateProcessing);
    connect(&m_appState, &AppState::processingProgressChanged, this, &FloatingPlayerView::updateProcessing);
    connect(&m_appState, &AppState::speechNoticeChanged, this, &FloatingPlayerView::updateSpeechNotice);
}

void FloatingPlayerView::updateTitle()
{
    QString title = m_appState.currentPlayingTitle();
    if (title.isEmpty() && m_player.currentURL())
        title = QFileInfo(m_player.currentURL()->path()).completeBaseName();
    if (title.isEmpty())
        title = QStringLiteral("Parlino");
    m_title->setToolTip(title);
    m_title->setText(m_title->fontMetrics().elidedText(title, Qt::ElideRight, std::max(40, m_title->width())));
}

void FloatingPlayerView::updateArtwork()
{
    const int side = std::min({96, m_artwork->height() - 8, m_artwork->width() - 8});
    if (side < 40) {
        m_artwork->clear();
        return;
    }
    const QIcon icon = themedIcon(this, QStringLiteral("audio-x-generic"), QStyle::SP_MediaVolume);
    m_artwork->setPixmap(icon.pixmap(QSize(side, side), devicePixelRatio()));
}

void FloatingPlayerView::updatePlayButton()
{
    const bool playing = m_appState.isPlaying();
    m_playPauseButton->setIcon(
        themedIcon(this, playing ? QStringLiteral("media-playback-pause") : QStringLiteral("media-playback-start"),
                   playing ? QStyle::SP_MediaPause : QStyle::SP_MediaPlay));
    const bool loaded = m_appState.totalTime() > 0;
    m_skipBackButton->setEnabled(loaded);
    m_skipForwardButton->setEnabled(loaded);
    m_status->setText(playing ? QStringLiteral("Playing") : loaded ? QStringLiteral("Paused") : QString());
}

void FloatingPlayerView::updateProgress()
{
    const double progress = std::clamp(m_appState.playbackProgress(), 0.0, 1.0);
    m_progress->setValue(static_cast<int>(std::lround(progress * kProgressScale)));
    m_elapsed->setText(formatTime(m_appState.currentTime()));
    m_total->setText(formatTime(m_appState.totalTime()));
}

void FloatingPlayerView::updateSpeed()
{
    const PlaybackSpeed speed = m_appState.currentSpeed();
    m_speedSlider->setSnappedValue(rawValue(speed));
    // A rate between the listed speeds (from the settings) is shown as it is.
    const double rate = m_player.playbackRate();
    m_speedValue->setText(playbackSpeedFromRawValue(rate) || !m_player.hasItem()
                              ? displayName(speed)
                              : QString::number(rate, 'g', 4) + u'x');
}

void FloatingPlayerView::updateProcessing()
{
    const bool processing = m_appState.isProcessing();
    m_processingLabel->setVisible(processing);
    m_processingBar->setVisible(processing);
    m_processingLabel->setText(m_appState.processingMessage());
    const double progress = std::clamp(m_appState.processingProgress(), 0.0, 1.0);
    m_processingBar->setValue(static_cast<int>(std::lround(progress * kProgressScale)));
}

void FloatingPlayerView::updateSpeechNotice()
{
    const QString &notice = m_appState.speechNotice();
    m_speechNotice->setText(notice);
    m_speechNotice->setAccessibleName(notice);
    m_speechNotice->setVisible(!notice.isEmpty());
}

void FloatingPlayerView::setCostEstimate(std::function<QString()> speechModel)
{
    m_speechModel = std::move(speechModel);
    connect(&m_appState, &AppState::currentPlayingContextChanged, this, &FloatingPlayerView::updateCost,
            Qt::UniqueConnection);
    updateCost();
}

void FloatingPlayerView::updateCost()
{
    const QString &text = m_appState.currentPlayingContext();
    m_cost->setVisible(m_speechModel && !text.isEmpty());
    if (!m_cost->isVisible())
        return;
    const QString model = m_speechModel();
    const double centsPerThousand = speechCentsPerThousandCharacters(model);
    const QString cost = dollarText(static_cast<double>(text.size()) / 1000.0 * centsPerThousand);
    m_cost->setText(QStringLiteral("Estimated cost: ") + cost);
    m_cost->setAccessibleName(QStringLiteral("Estimated cost of this reading: ") + cost);
    m_cost->setToolTip(QStringLiteral("%1 characters read with %2 at %3 cents per 1000 characters")
                           .arg(text.size())
                           .arg(model)
                           .arg(centsPerThousand));
}

void FloatingPlayerView::setLibraryActions(LibraryActions &actions)
{
    m_library = &actions;
    connect(m_podcastButton, &QToolButton::clicked, this, [this] { m_library->generatePodcast(); });
    connect(m_saveButton, &QToolButton::clicked, this, [this] { m_library->saveForLater(); });
    connect(m_downloadButton, &QToolButton::clicked, this, [this] { m_library->download(); });
    connect(m_library, &LibraryActions::audioAvailabilityChanged, this, &FloatingPlayerView::updateLibraryButtons);
    for (auto changed : {&AppState::isGeneratingPodcastChanged, &AppState::isSavingAudioChanged,
                         &AppState::isDownloadingChanged, &AppState::currentPlayingContextChanged})
        connect(&m_appState, changed, this, &FloatingPlayerView::updateLibraryButtons);
    m_libraryRow->show();
    updateLibraryButtons();
}

void FloatingPlayerView::setQuestionActions(QuestionActions &actions)
{
    m_questions = &actions;
    connect(m_questionButton, &QToolButton::clicked, this, [this] {
        if (m_questions)
            m_questions->handleQuestionButton();
    });
    for (auto changed : {&AppState::isListeningForQuestionChanged, &AppState::isReadyToSendQuestionChanged,
                         &AppState::isAnsweringQuestionChanged})
        connect(&m_appState, changed, this, &FloatingPlayerView::updateQuestionButton);
    connect(&m_appState, &AppState::questionAudioAmplitudeChanged, this, &FloatingPlayerView::updateQuestionLevel);
    m_questionRow->show();
    updateQuestionButton();
}

void FloatingPlayerView::updateQuestionButton()
{
    m_questionButton->setText(QuestionActions::buttonLabel(m_appState));
    m_questionButton->setEnabled(!m_appState.isAnsweringQuestion() || m_appState.isListeningForQuestion());
    m_questionLevel->setVisible(m_appState.isListeningForQuestion());
    updateQuestionLevel();
}

void FloatingPlayerView::updateQuestionLevel()
{
    const double level = std::clamp(static_cast<double>(m_appState.questionAudioAmplitude()), 0.0, 1.0);
    m_questionLevel->setValue(
        m_appState.isListeningForQuestion() ? static_cast<int>(std::lround(level * kProgressScale)) : 0);
}

void FloatingPlayerView::keyPressEvent(QKeyEvent *event)
{
    if (event->key() == Qt::Key_Escape && m_questions
        && (m_appState.isListeningForQuestion() || m_appState.isReadyToSendQuestion())) {
        m_questions->cancel();
        event->accept();
        return;
    }
    QFrame::keyPressEvent(event);
}

void FloatingPlayerView::updateLibraryButtons()
{
    if (!m_library)
        return;
    const bool hasText = !m_appState.currentPlayingContext().isEmpty();
    const bool generating = m_appState.isGeneratingPodcast();
    m_podcastButton->setText(generating ? QStringLiteral("Generating...") : QStringLiteral("Generate Podcast"));
    m_podcastButton->setEnabled(hasText && !generating);

    // A reading that still arrives has no file to keep yet; the help text says why the buttons wait.
    const bool arriving = m_library->isAudioArriving();
    const bool saving = m_appState.isSavingAudio();
    const bool downloading = m_appState.isDownloading();
    m_saveButton->setText(saving ? QStringLiteral("Saving...") : QStringLiteral("Save"));
    m_downloadButton->setText(downloading ? QStringLiteral("Downloading...") : QStringLiteral("Download"));
    m_saveButton->setEnabled(hasText && !arriving && !saving);
    m_downloadButton->setEnabled(hasText && !arriving && !downloading);
    for (QToolButton *button : {m_saveButton, m_downloadButton}) {
        const QString help = button->accessibleName();
        button->setToolTip(arriving ? help + QStringLiteral(" (") + kArrivingNote + u')' : help);
        button->setAccessibleDescription(arriving ? kArrivingNote : QString());
    }
}

void FloatingPlayerView::handleCloseButton()
{
    PLOG(lcUi) << "❌ Close button pressed";
    PLOG(lcUi) << "   - Onboarding mode: " << boolText(m_appState.isOnboardingMode());
    PLOG(lcUi) << "   - Is playing: " << boolText(m_player.isPlaying());
    if (m_player.isPlaying()) {
        PLOG(lcUi) << "   - Stopping audio playback";
        m_player.stop(false);
    }
    if (m_appState.pendingOnboardingAudioURL()) {
        PLOG(lcUi) << "   - Clearing pending onboarding audio";
        m_appState.setPendingOnboardingAudioURL(std::nullopt);
    }
    PLOG(lcUi) << "   - Hiding floating player";
    m_controller.hide();
    PLOG(lcUi) << "✅ Close button handled successfully";
}

void FloatingPlayerView::mousePressEvent(QMouseEvent *event)
{
    if (event->button() != Qt::LeftButton)
        return QFrame::mousePressEvent(event);
    m_dragging = true;
    m_dragLastGlobal = event->globalPosition().toPoint();
    event->accept();
}

void FloatingPlayerView::mouseMoveEvent(QMouseEvent *event)
{
    if (!m_dragging)
        return QFrame::mouseMoveEvent(event);
    const QPoint global = event->globalPosition().toPoint();
    const QPoint travel = global - m_dragLastGlobal;
    m_dragLastGlobal = global;
    if (!travel.isNull())
        m_controller.move(travel);
    event->accept();
}

void FloatingPlayerView::mouseReleaseEvent(QMouseEvent *event)
{
    m_dragging = false;
    event->accept();
}

void FloatingPlayerView::resizeEvent(QResizeEvent *event)
{
    QFrame::resizeEvent(event);
    m_resizeGrip->move(width() - m_resizeGrip->width() - 2, height() - m_resizeGrip->height() - 2);
    m_resizeGrip->raise();
    updateTitle();
    updateArtwork();
}

} // namespace parlino
