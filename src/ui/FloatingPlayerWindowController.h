#pragma once

#include "app/AppState.h"

#include <QObject>
#include <QPoint>
#include <QPointer>
#include <QSize>
#include <QWidget>

#include <functional>

class QParallelAnimationGroup;
class QScreen;

namespace parlino {

class AudioPlayerManager;

// Owns the floating player: a small frameless window that stays above other windows on every virtual
// desktop while audio is loaded. It shows and hides the window as the application state asks, places
// it on the primary screen, moves and resizes it within its limits for the view's handles, remembers
// the size in AppState, and gives Space (play/pause) and Escape (stop) to the player while audio
// plays. The view itself is handed in with setContentView(). Lives on the main thread.
class FloatingPlayerWindowController final : public QObject {
    Q_OBJECT
public:
    static constexpr int kMinWidth = AppState::kFloatingPlayerMinWidth;
    static constexpr int kMaxWidth = AppState::kFloatingPlayerMaxWidth;
    static constexpr int kMinHeight = AppState::kFloatingPlayerMinHeight;
    static constexpr int kMaxHeight = AppState::kFloatingPlayerMaxHeight;
    // Gap beside the onboarding window, and how far a drag may push the window past the right and top
    // edges of the screen.
    static constexpr int kEdgeGap = 20;
    static constexpr int kHideSlideDistance = 50;
    static constexpr int kHideDurationMs = 200;

    // Asks the window system to keep a window on every virtual desktop.
    using WindowHint = std::function<void(QWidget *)>;

    // Creates the window (hidden) and starts watching the application state.
    FloatingPlayerWindowController(AppState &appState, AudioPlayerManager &player, WindowHint placeOnAllDesktops = {},
                                   QObject *parent = nullptr);
    ~FloatingPlayerWindowController() override;

    // Puts `view` into the window, replacing (and deleting) an earlier one. The window owns it.
    void setContentView(QWidget *view);
    [[nodiscard]] QWidget *contentView() const { return m_contentView; }
    [[nodiscard]] QWidget *window() const { return m_window; }
    // The window is on screen and not fading out.
    [[nodiscard]] bool isShown() const;

    // While the application state's onboarding mode is on, the player opens beside this window.
    void setOnboardingWindow(QWidget *window) { m_onboardingWindow = window; }

    void show();
    void hide();
    // Drag: moves by the pointer's travel (y grows downwards), kept on the screen except for a
    // 20-point overhang at the right and top edges.
    void move(QPoint delta);
    // Resize handle: grows or shrinks within 200–500 × 180–600 with the top edge fixed, and saves the
    // size in AppState.
    void resize(QSize delta);

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void setupWindow();
    void observeAppState();
    void scheduleEvaluation();
    void evaluateVisibility();
    void positionWindow();
    [[nodiscard]] QScreen *windowScreen() const;

    AppState &m_appState;
    AudioPlayerManager &m_player;
    WindowHint m_placeOnAllDesktops;
    QPointer<QWidget> m_window;
    QPointer<QWidget> m_contentView;
    QPointer<QWidget> m_onboardingWindow;
    QParallelAnimationGroup *m_hideAnimation = nullptr;

    bool m_lastShowFloatingPlayer = false;
    bool m_lastKeepFloatingPlayerOpen = false;
    bool m_evaluationQueued = false;
    bool m_newItemReady = false;
};

} // namespace parlino
