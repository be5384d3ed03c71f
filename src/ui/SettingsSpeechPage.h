#pragma once

#include <QWidget>

class QCheckBox;
class QComboBox;
class QFormLayout;
class QLabel;

namespace parlino {

class Defaults;
class ModelAvailability;
class ModelSettings;
struct SettingsContext;

// How speech is made: the provider, the model of each use with the day OpenAI stops serving it, and
// whether reading starts before the whole text is ready.
class SettingsSpeechPage final : public QWidget {
    Q_OBJECT
public:
    SettingsSpeechPage(const SettingsContext &context, QWidget *parent = nullptr);

private:
    [[nodiscard]] QComboBox *addModelChoice(int role, const QString &label, const QString &help);
    // The provider, the models and their dates as the settings hold them now.
    void refresh();

    Defaults &m_defaults;
    ModelSettings &m_models;
    ModelAvailability &m_availability;
    QFormLayout *m_form = nullptr;
    QCheckBox *m_streamSpeech = nullptr;
    QComboBox *m_provider = nullptr;
    QList<QComboBox *> m_modelChoices;
    QLabel *m_shutdownNotes = nullptr;
};

} // namespace parlino
