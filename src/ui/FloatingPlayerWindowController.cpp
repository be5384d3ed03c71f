#include "ui/FloatingPlayerWindowController.h"

#include "app/AppState.h"
#include "core/Logging.h"
#include "playback/AudioPlayerManager.h"

#include <QApplication>
#include <QKeyEvent>
#include <QParallelAnimationGroup>
#include <QPropertyAnimation>
#include <QScreen>
#include <QVBoxLayout>
#include <QWidget>

#include <algorithm>

namespace parlino {

namespace {

// Like std::clamp, but a window larger than the room left keeps to the low edge instead of being undefined.
int clampToRange(int value, int low, int high)
{
    return std::max(low, std::min(value, high));
}

void logGeometry(const QRect &frame)
{
    PLOG(lcPlayback) << "   - x: " << frame.x() << ", y: " << frame.y();
    PLOG(lcPlayback) << "   - size: " << frame.width() << "x" << frame.height();
}

} // namespace

FloatingPlayerWindowController::FloatingPlayerWindowController(AppState &appState, AudioPlayerManager &player,
                                                               WindowHint placeOnAllDesktops, QObject *parent)
    : QObject(parent)
    , m_appState(appState)
    , m_player(player)
    , m_placeOnAllDesktops(std::move(placeOnAllDesktops))
{
    setupWindow();
    observeAppState();
}

FloatingPlayerWindowController::~FloatingPlayerWindowController()
{
    delete m_window.data();
}

void FloatingPlayerWindowController::setupWindow()
{
    auto *window = new QWidget(nullptr, Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint);
    window->setObjectName(QStringLiteral("FloatingPlayerWindow"));
    window->setWindowTitle(QStringLiteral("Parlino Player"));
    // Appearing must not take the keyboard from the application the user reads from: the next shortcut
    // reads that application's selection. A click on the player gives it the keys (Space, Escape).
    window->setAttribute(Qt::WA_ShowWithoutActivating);
    window->setMinimumSize(kMinWidth, kMinHeight);
    window->setMaximumSize(kMaxWidth, kMaxHeight);
    auto *layout = new QVBoxLayout(window);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    // The window's size is the controller's business (limits, saved size), not the content's.
    layout->setSizeConstraint(QLayout::SetNoConstraint);

    const QSizeF stored = m_appState.floatingPlayerSize();
    window->resize(std::clamp(qRound(stored.width()), kMinWidth, kMaxWidth),
                   std::clamp(qRound(stored.height()), kMinHeight, kMaxHeight));
    window->move(0, 0);
    m_window = window;

    m_hideAnimation = new QParallelAnimationGroup(this);
    auto *fade = new QPropertyAnimation(window, "windowOpacity", m_hideAnimation);
    fade->setDuration(kHideDurationMs);
    auto *slide = new QPropertyAnimation(window, "pos", m_hideAnimation);
    slide->setDuration(kHideDurationMs);
    slide->setEasingCurve(QEasingCurve::InQuad);
    connect(m_hideAnimation, &QAbstractAnimation::finished, this, [this] {
        if (m_window)
            m_window->hide();
    });

    if (m_placeOnAllDesktops)
        m_placeOnAllDesktops(window);
    qApp->installEventFilter(this);
    positionWindow();
    PLOG(lcPlayback) << "🪟 Floating player window created at level: floating (always on top)";
}

void FloatingPlayerWindowController::setContentView(QWidget *view)
{
    if (!m_window || m_contentView == view)
        return;
    if (QWidget *old = m_contentView) {
        m_window->layout()->removeWidget(old);
        old->hide();
        old->deleteLater();
    }
    m_contentView = view;
    if (view)
        m_window->layout()->addWidget(view);
}

bool FloatingPlayerWindowController::isShown() const
{
    return m_window && m_window->isVisible() && m_hideAnimation->state() != QAbstractAnimation::Running;
}

void FloatingPlayerWindowController::observeAppState()
{
    PLOG(lcPlayback) << "🔄 Setting up floating player observer";
    connect(&m_appState, &AppState::showFloatingPlayerChanged, this,
            &FloatingPlayerWindowController::scheduleEvaluation);
    connect(&m_appState, &AppState::keepFloatingPlayerOpenChanged, this,
            &FloatingPlayerWindowController::scheduleEvaluation);
    connect(&m_player, &AudioPlayerManager::itemReady, this, [this] {
        m_newItemReady = true;
        scheduleEvaluation();
    });
    scheduleEvaluation();
}

void FloatingPlayerWindowController::scheduleEvaluation()
{
    // One decision per turn of the event loop, on the settled state: a burst of changes (stop with
    // force-close writes several fields) is judged once, as a periodic check would.
    if (m_evaluationQueued)
        return;
    m_evaluationQueued = true;
    QMetaObject::invokeMethod(
        this,
        [this] {
            m_evaluationQueued = false;
            evaluateVisibility();
        },
        Qt::QueuedConnection);
}

void FloatingPlayerWindowController::evaluateVisibility()
{
    const bool showRequested = m_appState.showFloatingPlayer();
    const bool keepOpen = m_appState.keepFloatingPlayerOpen();
    const bool playing = m_appState.isPlaying();
    const bool newItem = std::exchange(m_newItemReady, false);

    if (showRequested == m_lastShowFloatingPlayer && keepOpen == m_lastKeepFloatingPlayerOpen) {
        // A newly loaded file asks for the player even when the flag was already set, for example
        // after the close button hid the window and left the flag alone.
        if (newItem && showRequested && !isShown()) {
            PLOG(lcPlayback) << "📱 FloatingPlayer state changed: showFloatingPlayer=true, calling show()";
            show();
        }
        return;
    }
    m_lastShowFloatingPlayer = showRequested;
    m_lastKeepFloatingPlayerOpen = keepOpen;

    if (showRequested) {
        PLOG(lcPlayback) << "📱 FloatingPlayer state changed: showFloatingPlayer=true, calling show()";
        show();
    } else if (keepOpen || playing) {
        if (playing)
            PLOG(lcPlayback) << "📱 FloatingPlayer: Keeping window visible (audio is playing)";
    } else if (m_window && m_window->isVisible()) {
        PLOG(lcPlayback) << "📱 FloatingPlayer state changed: showFloatingPlayer=false, calling hide()";
        hide();
    }
}

void FloatingPlayerWindowController::show()
{
    PLOG(lcPlayback) << "👁️ SHOW: Starting show() method (onboarding: " << boolText(m_appState.isOnboardingMode())
                     << ")";
    if (!m_window) {
        PLOG(lcPlayback) << "❌ SHOW: No window to show!";
        return;
    }
    m_hideAnimation->stop();
    positionWindow();
    m_window->setWindowOpacity(1.0);
    m_window->show();
    m_window->raise();
    if (m_placeOnAllDesktops)
        m_placeOnAllDesktops(m_window);
    PLOG(lcPlayback) << "✅ SHOW: Completed show() method";
}

void FloatingPlayerWindowController::hide()
{
    if (!m_window || !m_window->isVisible() || m_hideAnimation->state() == QAbstractAnimation::Running)
        return;
    const QPoint start = m_window->pos();
    auto *fade = static_cast<QPropertyAnimation *>(m_hideAnimation->animationAt(0));
    auto *slide = static_cast<QPropertyAnimation *>(m_hideAnimation->animationAt(1));
    fade->setStartValue(m_window->windowOpacity());
    fade->setEndValue(0.0);
    slide->setStartValue(start);
    slide->setEndValue(start + QPoint(0, kHideSlideDistance));
    m_hideAnimation->start();
}

void FloatingPlayerWindowController::positionWindow()
{
    if (!m_window)
        return;
    const QSize size = m_window->size();
    if (m_appState.isOnboardingMode() && m_onboardingWindow && m_onboardingWindow->isVisible()) {
        const QRect onboarding = m_onboardingWindow->frameGeometry();
        m_window->move(onboarding.x() + onboarding.width() + kEdgeGap,
                       onboarding.y() + onboarding.height() / 2 - size.height() / 2);
        PLOG(lcPlayback) << "📍 Positioned floating player NEXT TO ONBOARDING WINDOW:";
        logGeometry(m_window->geometry());
        return;
    }
    QScreen *screen = QGuiApplication::primaryScreen();
    if (!screen) {
        PWARN(lcPlayback) << "⚠️ Could not detect primary monitor!";
        return;
    }
    const QRect area = screen->availableGeometry();
    const int x =
        clampToRange(area.x() + (area.width() - size.width()) / 2, area.x(), area.x() + area.width() - size.width());
    const int y = clampToRange(area.y() + (area.height() - size.height()) / 2, area.y(),
                               area.y() + area.height() - size.height());
    m_window->move(x, y);
    PLOG(lcPlayback) << "📍 Positioned floating player at CENTER:";
    logGeometry(m_window->geometry());
}

QScreen *FloatingPlayerWindowController::windowScreen() const
{
    if (m_window && m_window->screen())
        return m_window->screen();
    return QGuiApplication::primaryScreen();
}

void FloatingPlayerWindowController::move(QPoint delta)
{
    QScreen *screen = windowScreen();
    if (!m_window || !screen) {
        PLOG(lcPlayback) << "❌ moveWindow: No window to move or no screen";
        return;
    }
    const QRect area = screen->availableGeometry();
    const QRect frame = m_window->geometry();
    const int x = clampToRange(frame.x() + delta.x(), area.x(), area.x() + area.width() - frame.width() + kEdgeGap);
    const int y = clampToRange(frame.y() + delta.y(), area.y() - kEdgeGap, area.y() + area.height() - frame.height());
    m_window->move(x, y);
    PLOG(lcPlayback) << "📍 moveWindow: (" << x << ", " << y << ")"
                     << " (constrained to screen)";
}

void FloatingPlayerWindowController::resize(QSize delta)
{
    if (!m_window) {
        PLOG(lcPlayback) << "❌ resizeWindow: No window available";
        return;
    }
    const QRect frame = m_window->geometry();
    const int width = std::min(kMaxWidth, std::max(kMinWidth, frame.width() + delta.width()));
    const int height = std::min(kMaxHeight, std::max(kMinHeight, frame.height() + delta.height()));
    // The top edge stays where it is; the window grows or shrinks downwards.
    m_window->setGeometry(frame.x(), frame.y(), width, height);
    m_appState.setFloatingPlayerSize(QSizeF(width, height));
    PLOG(lcPlayback) << "✅ Saved new size to AppState: " << width << "x" << height;
}

bool FloatingPlayerWindowController::eventFilter(QObject *watched, QEvent *event)
{
    if (event->type() != QEvent::KeyPress || !m_window)
        return false;
    auto *widget = qobject_cast<QWidget *>(watched);
    if (!widget || widget->window() != m_window || !m_appState.isPlaying())
        return false;
    const auto *key = static_cast<QKeyEvent *>(event);
    if (key->modifiers() & (Qt::ShiftModifier | Qt::ControlModifier | Qt::AltModifier | Qt::MetaModifier))
        return false;
    switch (key->key()) {
    case Qt::Key_Space:
        if (!key->isAutoRepeat())
            m_player.togglePlayPause();
        return true;
    case Qt::Key_Escape: m_player.stop(false); return true;
    default: return false;
    }
}

} // namespace parlino
