#pragma once

#include <QWidget>

class QCheckBox;
class QComboBox;
class QLabel;

namespace parlino {

class AppState;
class Defaults;
class ModelAvailability;
class ModelSettings;

// General settings: the default voice and speed, the folder for exported audio, and how speech is
// made: the provider, the offline voice (eSpeak NG's language and variant), the model of each use with
// the day OpenAI stops serving it, and whether reading starts before the whole text is ready.
class SettingsWindow final : public QWidget {
    Q_OBJECT
public:
    SettingsWindow(AppState &state, Defaults &defaults, ModelSettings &models, ModelAvailability &availability,
                   QWidget *parent = nullptr);

private:
    void chooseDownloadFolder();
    void refreshDownloadFolder();
    // The provider, the models and their dates as the settings hold them now.
    void refreshSpeech();
    [[nodiscard]] QComboBox *addModelChoice(int role, const QString &label, const QString &help);
    // The offline voice's language and variant as the settings hold them now.
    void refreshOfflineVoice();
    void saveOfflineVoice();

    AppState &m_state;
    Defaults &m_defaults;
    ModelSettings &m_models;
    ModelAvailability &m_availability;
    QComboBox *m_voice = nullptr;
    QLabel *m_voiceNote = nullptr;
    QComboBox *m_speed = nullptr;
    QComboBox *m_podcastType = nullptr;
    QLabel *m_folder = nullptr;
    QCheckBox *m_streamSpeech = nullptr;
    QComboBox *m_provider = nullptr;
    QComboBox *m_offlineLanguage = nullptr;
    QComboBox *m_offlineVariant = nullptr;
    QList<QComboBox *> m_modelChoices;
    QLabel *m_shutdownNotes = nullptr;
};

} // namespace parlino
