#pragma once

#include <QWidget>

class QLabel;
class QProgressBar;
class QPushButton;

namespace parlino {

class AppState;

// The tray popover's content: what Parlino is doing now and the quick actions.
class MenuPopoverView final : public QWidget {
    Q_OBJECT
public:
    explicit MenuPopoverView(AppState &state, QWidget *parent = nullptr);

Q_SIGNALS:
    void readSelectionRequested();
    void stopRequested();
    void dashboardRequested();
    void settingsRequested();
    void quitRequested();

private:
    void refresh();

    AppState &m_state;
    QLabel *m_status = nullptr;
    QLabel *m_detail = nullptr;
    QProgressBar *m_progress = nullptr;
    QPushButton *m_stop = nullptr;
};

} // namespace parlino
