#pragma once

#include <QWidget>
#include <qcoro/qcorotask.h>

#include <functional>

class QLabel;
class QLineEdit;
class QPushButton;

namespace parlino {

class AccountSyncService;
class AppState;
class Defaults;

// The Parlino account: link an e-mail address (checked with the web backend), see whether its data is
// in sync, unlink it. The running app follows at once, as it does for `parlino account`.
class SettingsAccountPage final : public QWidget {
    Q_OBJECT
public:
    // accountChanged: the app reloads the account from the settings (and syncs a newly linked one).
    SettingsAccountPage(AppState &state, Defaults &defaults, AccountSyncService &accountSync,
                        std::function<void()> accountChanged, QWidget *parent = nullptr);

private:
    QCoro::Task<> link();
    void unlink();
    void refresh();

    AppState &m_state;
    Defaults &m_defaults;
    AccountSyncService &m_accountSync;
    std::function<void()> m_accountChanged;
    QLabel *m_status = nullptr;
    QLineEdit *m_email = nullptr;
    QPushButton *m_link = nullptr;
    QPushButton *m_unlink = nullptr;
    QLabel *m_message = nullptr;
    bool m_linking = false;
};

} // namespace parlino
