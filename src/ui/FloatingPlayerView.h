#pragma once

#include <QFrame>
#include <QPointer>
#include <QString>

#include <functional>

class QLabel;
class QProgressBar;
class QToolButton;

namespace parlino {

class AppState;
class AudioPlayerManager;
class LibraryActions;
class QuestionActions;
class FloatingPlayerResizeGrip;
class FloatingPlayerWindowController;
class SnapSlider;

// The content of the floating player: what is playing, its progress with times, skip back 15 s,
// play/pause, skip forward 30 s, a speed slider that rests on the playback speeds, and a close
// button; with the library actions set, podcast, save and download buttons; while a request is being prepared, its
// progress line; when the offline voice reads instead of the chosen one, a line that says so. Dragging the background
// moves the window, the corner handle resizes it. Observes AppState and forwards actions to the player.
class FloatingPlayerView final : public QFrame {
    Q_OBJECT
public:
    static constexpr double kSkipBackSeconds = 15;
    static constexpr double kSkipForwardSeconds = 30;

    FloatingPlayerView(AppState &appState, AudioPlayerManager &player, FloatingPlayerWindowController &controller,
                       QWidget *parent = nullptr);

    // Shows the podcast, save and download buttons, which act through `actions`.
    void setLibraryActions(LibraryActions &actions);
    // Shows the estimated cost of reading the playing text, priced for the model that `speechModel`
    // names when the text changes.
    void setCostEstimate(std::function<QString()> speechModel);
    // Shows the question button and, while a question is listened for, the microphone's level;
    // Escape then drops the question.
    void setQuestionActions(QuestionActions &actions);

    // Whole seconds as minutes:seconds ("0:07", "12:30"); negative or unknown times read "0:00".
    [[nodiscard]] static QString formatTime(double seconds);

protected:
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;

private:
    void buildLayout();
    void connectState();
    void updateTitle();
    void updateArtwork();
    void updatePlayButton();
    void updateProgress();
    void updateSpeed();
    void updateProcessing();
    void updateSpeechNotice();
    void updateCost();
    void updateLibraryButtons();
    void updateQuestionButton();
    void updateQuestionLevel();
    void handleCloseButton();

    AppState &m_appState;
    AudioPlayerManager &m_player;
    FloatingPlayerWindowController &m_controller;

    QLabel *m_title = nullptr;
    QLabel *m_status = nullptr;
    QToolButton *m_closeButton = nullptr;
    QLabel *m_speechNotice = nullptr;
    QLabel *m_processingLabel = nullptr;
    QProgressBar *m_processingBar = nullptr;
    QLabel *m_artwork = nullptr;
    QProgressBar *m_progress = nullptr;
    QLabel *m_elapsed = nullptr;
    QLabel *m_total = nullptr;
    QLabel *m_cost = nullptr;
    std::function<QString()> m_speechModel;
    QToolButton *m_skipBackButton = nullptr;
    QToolButton *m_playPauseButton = nullptr;
    QToolButton *m_skipForwardButton = nullptr;
    QLabel *m_speedValue = nullptr;
    SnapSlider *m_speedSlider = nullptr;
    FloatingPlayerResizeGrip *m_resizeGrip = nullptr;
    QWidget *m_libraryRow = nullptr;
    QToolButton *m_podcastButton = nullptr;
    QToolButton *m_saveButton = nullptr;
    QToolButton *m_downloadButton = nullptr;
    QPointer<LibraryActions> m_library;
    QWidget *m_questionRow = nullptr;
    QToolButton *m_questionButton = nullptr;
    QProgressBar *m_questionLevel = nullptr;
    QPointer<QuestionActions> m_questions;

    QPoint m_dragLastGlobal;
    bool m_dragging = false;
};

} // namespace parlino
