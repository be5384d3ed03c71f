#pragma once

#include <QWidget>

class QButtonGroup;
class QCheckBox;
class QComboBox;
class QLabel;

namespace parlino {

class AppState;
class LoginItem;

// Start at login, light or dark appearance, the style of podcasts, and where downloads go.
class SettingsGeneralPage final : public QWidget {
    Q_OBJECT
public:
    // loginItem: nullptr leaves the start-at-login switch out.
    SettingsGeneralPage(AppState &state, LoginItem *loginItem, QWidget *parent = nullptr);

private:
    void chooseDownloadFolder();
    void refreshDownloadFolder();

    AppState &m_state;
    LoginItem *m_loginItem;
    QCheckBox *m_launchAtLogin = nullptr;
    QLabel *m_loginError = nullptr;
    QButtonGroup *m_appearance = nullptr;
    QComboBox *m_podcastType = nullptr;
    QLabel *m_folder = nullptr;
};

} // namespace parlino
