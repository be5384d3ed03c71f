#pragma once

#include <QWidget>

#include <functional>

class QComboBox;
class QLabel;

namespace parlino {

class AppState;
class Defaults;
class ModelSettings;
class VoicePreview;
struct SettingsContext;

// The voice Parlino reads with: the default OpenAI voice and speed, a preview of every voice, and the
// offline voice (eSpeak NG's language and variant) that reads without a key.
class SettingsVoicePage final : public QWidget {
    Q_OBJECT
public:
    SettingsVoicePage(const SettingsContext &context, QWidget *parent = nullptr);

protected:
    // A key added since the page was made enables the previews of OpenAI's voices.
    void showEvent(QShowEvent *event) override;

private:
    // Which voice really reads for the default one (the Realtime API has no Fable, Onyx or Nova).
    void refreshVoiceNote();
    // The offline voice's language and variant as the settings hold them now.
    void refreshOfflineVoice();
    void saveOfflineVoice();
    void refreshPreviewAvailability();

    AppState &m_state;
    Defaults &m_defaults;
    ModelSettings &m_models;
    VoicePreview *m_preview;
    std::function<bool()> m_hasKey;
    QComboBox *m_voice = nullptr;
    QLabel *m_voiceNote = nullptr;
    QComboBox *m_speed = nullptr;
    QComboBox *m_offlineLanguage = nullptr;
    QComboBox *m_offlineVariant = nullptr;
    QList<QWidget *> m_openAIPreviews;
    QLabel *m_previewStatus = nullptr;
};

} // namespace parlino
