#include "ui/SettingsVoicePage.h"

#include "app/AppState.h"
#include "app/VoicePreview.h"
#include "backend/ModelSettings.h"
#include "core/Defaults.h"
#include "core/SettingsKeys.h"
#include "playback/PlaybackSpeed.h"
#include "speech/OfflineSpeechProvider.h"
#include "speech/RealtimeSpeechProvider.h"
#include "ui/AccessibleHelp.h"
#include "ui/SettingsWindow.h"

#include <QComboBox>
#include <QFormLayout>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

namespace parlino {

namespace {

QString capitalised(QString name)
{
    if (!name.isEmpty())
        name[0] = name[0].toUpper();
    return name;
}

} // namespace

SettingsVoicePage::SettingsVoicePage(const SettingsContext &context, QWidget *parent)
    : QWidget(parent)
    , m_state(context.state)
    , m_defaults(context.defaults)
    , m_models(context.models)
    , m_preview(context.preview)
    , m_hasKey(context.hasKey)
{
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(18, 18, 18, 18);
    layout->setSpacing(14);

    auto *openAI = new QGroupBox(QStringLiteral("OpenAI voice"), this);
    auto *form = new QFormLayout(openAI);
    m_voice = new QComboBox(openAI);
    for (TTSVoice voice : allTTSVoices)
        m_voice->addItem(capitalised(identifier(voice)), identifier(voice));
    m_voice->setCurrentIndex(m_voice->findData(identifier(m_state.selectedVoice())));
    describe(m_voice, QStringLiteral("Default voice"));
    form->addRow(QStringLiteral("Default voice:"), m_voice);
    m_voiceNote = new QLabel(openAI);
    m_voiceNote->setWordWrap(true);
    m_voiceNote->setAccessibleName(QStringLiteral("Voice that reads instead"));
    form->addRow(QString(), m_voiceNote);

    m_speed = new QComboBox(openAI);
    for (PlaybackSpeed speed : allPlaybackSpeeds)
        m_speed->addItem(displayName(speed), rawValue(speed));
    m_speed->setCurrentIndex(m_speed->findData(rawValue(m_state.currentSpeed())));
    describe(m_speed, QStringLiteral("Default speed"));
    form->addRow(QStringLiteral("Default speed:"), m_speed);

    if (m_preview) {
        // One button per voice, so each can be heard before it is chosen.
        auto *previews = new QGridLayout;
        int index = 0;
        for (TTSVoice voice : allTTSVoices) {
            const QString name = capitalised(identifier(voice));
            auto *button = new QPushButton(QStringLiteral("▶ ") + name, openAI);
            describe(button, QStringLiteral("Preview the %1 voice").arg(name));
            connect(button, &QPushButton::clicked, this, [this, voice] { m_preview->preview(voice); });
            previews->addWidget(button, index / 3, index % 3);
            m_openAIPreviews << button;
            ++index;
        }
        form->addRow(QStringLiteral("Preview:"), previews);
    }
    layout->addWidget(openAI);

    // The offline voice also reads whenever no OpenAI key is configured.
    auto *offline = new QGroupBox(QStringLiteral("Offline voice"), this);
    auto *offlineForm = new QFormLayout(offline);
    auto *offlineRow = new QHBoxLayout;
    m_offlineLanguage = new QComboBox(offline);
    for (const OfflineVoice &voice : OfflineSpeechProvider::voices())
        m_offlineLanguage->addItem(QStringLiteral("%1 (%2)").arg(voice.displayName, voice.name), voice.name);
    describe(m_offlineLanguage, QStringLiteral("Language of the offline voice"));
    m_offlineVariant = new QComboBox(offline);
    m_offlineVariant->addItem(QStringLiteral("Standard"), QString());
    for (const OfflineVoice &variant : OfflineSpeechProvider::variants())
        m_offlineVariant->addItem(variant.displayName, variant.name);
    describe(m_offlineVariant, QStringLiteral("Variant of the offline voice"));
    offlineRow->addWidget(m_offlineLanguage, 2);
    offlineRow->addWidget(m_offlineVariant, 1);
    if (m_preview) {
        auto *button = new QPushButton(QStringLiteral("▶ Preview"), offline);
        describe(button, QStringLiteral("Preview the offline voice"));
        connect(button, &QPushButton::clicked, this, [this] { m_preview->previewOffline(); });
        offlineRow->addWidget(button);
    }
    offlineForm->addRow(QStringLiteral("Voice:"), offlineRow);
    offlineForm->addRow(new QLabel(QStringLiteral("Reads when no OpenAI key is set up, or when OpenAI cannot be "
                                                  "reached."),
                                   offline));
    layout->addWidget(offline);

    m_previewStatus = new QLabel(this);
    m_previewStatus->setWordWrap(true);
    m_previewStatus->setAccessibleName(QStringLiteral("Preview status"));
    layout->addWidget(m_previewStatus);
    layout->addStretch(1);

    refreshVoiceNote();
    refreshOfflineVoice();
    refreshPreviewAvailability();

    connect(m_voice, &QComboBox::currentIndexChanged, this, [this] {
        if (const std::optional<TTSVoice> voice = ttsVoiceFromIdentifier(m_voice->currentData().toString()))
            m_state.saveDefaultVoice(*voice);
        refreshVoiceNote();
    });
    connect(m_speed, &QComboBox::currentIndexChanged, this, [this] {
        if (const std::optional<PlaybackSpeed> speed = playbackSpeedFromRawValue(m_speed->currentData().toDouble()))
            m_state.saveDefaultSpeed(*speed);
    });
    connect(m_offlineLanguage, &QComboBox::activated, this, &SettingsVoicePage::saveOfflineVoice);
    connect(m_offlineVariant, &QComboBox::activated, this, &SettingsVoicePage::saveOfflineVoice);
    connect(&m_models, &ModelSettings::changed, this, &SettingsVoicePage::refreshVoiceNote);
    if (m_preview) {
        connect(m_preview, &VoicePreview::started, this, [this](const QString &name) {
            m_previewStatus->setText(QStringLiteral("Playing a sample of %1.").arg(name));
        });
        connect(m_preview, &VoicePreview::failed, this, [this](const QString &message) {
            m_previewStatus->setText(QStringLiteral("The sample could not be made: ") + message);
        });
    }
}

void SettingsVoicePage::refreshVoiceNote()
{
    const TTSVoice voice = m_state.selectedVoice();
    const bool realtime = m_models.speechProvider() == ModelSettings::openAIRealtimeProvider;
    const bool substituted = realtime && !RealtimeSpeechProvider::hasOwnVoice(voice);
    m_voiceNote->setText(substituted ? QStringLiteral("The Realtime API has no %1 voice; %2, the nearest one, reads "
                                                      "instead.")
                                           .arg(capitalised(identifier(voice)),
                                                capitalised(RealtimeSpeechProvider::realtimeVoice(voice)))
                                     : QString());
    m_voiceNote->setVisible(substituted);
}

void SettingsVoicePage::showEvent(QShowEvent *event)
{
    refreshPreviewAvailability();
    QWidget::showEvent(event);
}

void SettingsVoicePage::refreshPreviewAvailability()
{
    // Without a key OpenAI's voices cannot be heard; the offline one always can.
    const bool keyed = !m_hasKey || m_hasKey();
    for (QWidget *button : std::as_const(m_openAIPreviews))
        button->setEnabled(keyed);
    if (!keyed)
        m_previewStatus->setText(QStringLiteral("Add an OpenAI key to hear OpenAI's voices."));
}

void SettingsVoicePage::refreshOfflineVoice()
{
    // What reads now: the setting when eSpeak NG has it, else the default it falls back to.
    const std::optional<QString> stored = m_defaults.stringForKey(SettingsKeys::offlineVoice);
    const QString name = OfflineSpeechProvider::listedName(stored.value_or(QString()))
                             .value_or(OfflineSpeechProvider::defaultVoiceName());
    const qsizetype plus = name.indexOf(u'+');
    const QString language = plus < 0 ? name : name.left(plus);
    const QString variant = plus < 0 ? QString() : name.mid(plus + 1);
    m_offlineLanguage->setCurrentIndex(m_offlineLanguage->findData(language));
    m_offlineVariant->setCurrentIndex(std::max(0, m_offlineVariant->findData(variant)));
}

void SettingsVoicePage::saveOfflineVoice()
{
    const QString language = m_offlineLanguage->currentData().toString();
    const QString variant = m_offlineVariant->currentData().toString();
    if (language.isEmpty())
        return;
    m_defaults.set(SettingsKeys::offlineVoice, variant.isEmpty() ? language : language + u'+' + variant);
}

} // namespace parlino
