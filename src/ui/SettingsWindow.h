#pragma once

#include <QWidget>

class QComboBox;
class QLabel;

namespace parlino {

class AppState;

// General settings: the default voice and speed and the folder for exported audio.
class SettingsWindow final : public QWidget {
    Q_OBJECT
public:
    explicit SettingsWindow(AppState &state, QWidget *parent = nullptr);

private:
    void chooseDownloadFolder();
    void refreshDownloadFolder();

    AppState &m_state;
    QComboBox *m_voice = nullptr;
    QComboBox *m_speed = nullptr;
    QLabel *m_folder = nullptr;
};

} // namespace parlino
