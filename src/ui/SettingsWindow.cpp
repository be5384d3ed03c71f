#include "ui/SettingsWindow.h"

#include "app/AppState.h"
#include "backend/ModelAvailability.h"
#include "backend/ModelCatalogue.h"
#include "backend/ModelSettings.h"
#include "core/Defaults.h"
#include "core/SettingsKeys.h"
#include "playback/PlaybackSpeed.h"
#include "speech/OfflineSpeechProvider.h"
#include "speech/RealtimeSpeechProvider.h"
#include "speech/TTSVoice.h"

#include <QCheckBox>
#include <QComboBox>
#include <QFileDialog>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLocale>
#include <QPushButton>

namespace parlino {

namespace {

// The control's help text is also its name for screen readers.
void describe(QWidget *control, const QString &help)
{
    control->setToolTip(help);
    control->setAccessibleName(help);
}

QString capitalised(QString name)
{
    if (!name.isEmpty())
        name[0] = name[0].toUpper();
    return name;
}

} // namespace

SettingsWindow::SettingsWindow(AppState &state, Defaults &defaults, ModelSettings &models,
                               ModelAvailability &availability, QWidget *parent)
    : QWidget(parent)
    , m_state(state)
    , m_defaults(defaults)
    , m_models(models)
    , m_availability(availability)
{
    setObjectName(QStringLiteral("SettingsWindow"));
    setWindowTitle(QStringLiteral("Parlino Settings"));
    setMinimumSize(650, 550);

    auto *form = new QFormLayout(this);
    form->setContentsMargins(24, 24, 24, 24);
    form->setSpacing(12);

    m_voice = new QComboBox(this);
    for (TTSVoice voice : allTTSVoices) {
        QString name = identifier(voice);
        name[0] = name[0].toUpper();
        m_voice->addItem(name, identifier(voice));
    }
    m_voice->setCurrentIndex(m_voice->findData(identifier(m_state.selectedVoice())));
    describe(m_voice, QStringLiteral("Default voice"));
    form->addRow(QStringLiteral("Default voice:"), m_voice);
    m_voiceNote = new QLabel(this);
    m_voiceNote->setWordWrap(true);
    m_voiceNote->setAccessibleName(QStringLiteral("Voice that reads instead"));
    form->addRow(QString(), m_voiceNote);

    m_speed = new QComboBox(this);
    for (PlaybackSpeed speed : allPlaybackSpeeds)
        m_speed->addItem(displayName(speed), rawValue(speed));
    m_speed->setCurrentIndex(m_speed->findData(rawValue(m_state.currentSpeed())));
    describe(m_speed, QStringLiteral("Default speed"));
    form->addRow(QStringLiteral("Default speed:"), m_speed);

    m_podcastType = new QComboBox(this);
    for (PodcastType type : allPodcastTypes)
        m_podcastType->addItem(rawValue(type), rawValue(type));
    m_podcastType->setCurrentIndex(m_podcastType->findData(rawValue(m_state.selectedPodcastType())));
    describe(m_podcastType, QStringLiteral("Podcast type"));
    form->addRow(QStringLiteral("Podcast type:"), m_podcastType);

    auto *folderRow = new QHBoxLayout;
    m_folder = new QLabel(this);
    m_folder->setTextInteractionFlags(Qt::TextSelectableByMouse);
    auto *choose = new QPushButton(QStringLiteral("Choose…"), this);
    describe(choose, QStringLiteral("Choose the folder for downloads"));
    folderRow->addWidget(m_folder, 1);
    folderRow->addWidget(choose);
    form->addRow(QStringLiteral("Save downloads to:"), folderRow);
    refreshDownloadFolder();

    // How speech is made.
    m_streamSpeech = new QCheckBox(QStringLiteral("Start speaking before the whole text is ready"), this);
    describe(m_streamSpeech, QStringLiteral("Start speaking before the whole text is ready"));
    m_streamSpeech->setChecked(!m_defaults.contains(SettingsKeys::streamSpeech)
                               || m_defaults.boolForKey(SettingsKeys::streamSpeech));
    form->addRow(QString(), m_streamSpeech);

    m_provider = new QComboBox(this);
    m_provider->addItem(QStringLiteral("OpenAI speech endpoint"), ModelSettings::openAISpeechProvider);
    m_provider->addItem(QStringLiteral("OpenAI Realtime API"), ModelSettings::openAIRealtimeProvider);
    m_provider->addItem(QStringLiteral("Offline voice (eSpeak NG, no key needed)"), ModelSettings::offlineProvider);
    describe(m_provider, QStringLiteral("Speech provider"));
    form->addRow(QStringLiteral("Speech provider:"), m_provider);

    // The offline voice also reads whenever no OpenAI key is configured.
    auto *offlineRow = new QHBoxLayout;
    m_offlineLanguage = new QComboBox(this);
    for (const OfflineVoice &voice : OfflineSpeechProvider::voices())
        m_offlineLanguage->addItem(QStringLiteral("%1 (%2)").arg(voice.displayName, voice.name), voice.name);
    describe(m_offlineLanguage, QStringLiteral("Language of the offline voice"));
    m_offlineVariant = new QComboBox(this);
    m_offlineVariant->addItem(QStringLiteral("Standard"), QString());
    for (const OfflineVoice &variant : OfflineSpeechProvider::variants())
        m_offlineVariant->addItem(variant.displayName, variant.name);
    describe(m_offlineVariant, QStringLiteral("Variant of the offline voice"));
    offlineRow->addWidget(m_offlineLanguage, 2);
    offlineRow->addWidget(m_offlineVariant, 1);
    form->addRow(QStringLiteral("Offline voice:"), offlineRow);
    refreshOfflineVoice();
    m_modelChoices = {
        addModelChoice(static_cast<int>(ModelRole::speech), QStringLiteral("Speech model:"),
                       QStringLiteral("Model of the speech endpoint")),
        addModelChoice(static_cast<int>(ModelRole::realtimeSpeech), QStringLiteral("Realtime model:"),
                       QStringLiteral("Model of the Realtime API")),
        addModelChoice(static_cast<int>(ModelRole::chat), QStringLiteral("Chat model:"),
                       QStringLiteral("Model for summaries, answers and podcast scripts")),
        addModelChoice(static_cast<int>(ModelRole::transcription), QStringLiteral("Transcription model:"),
                       QStringLiteral("Model that transcribes spoken questions")),
    };
    m_shutdownNotes = new QLabel(this);
    m_shutdownNotes->setWordWrap(true);
    m_shutdownNotes->setAccessibleName(QStringLiteral("Model shutdown dates"));
    form->addRow(QString(), m_shutdownNotes);
    refreshSpeech();

    connect(m_voice, &QComboBox::currentIndexChanged, this, [this] {
        const QString id = m_voice->currentData().toString();
        if (const std::optional<TTSVoice> voice = ttsVoiceFromIdentifier(id))
            m_state.saveDefaultVoice(*voice);
        refreshSpeech();
    });
    connect(m_streamSpeech, &QCheckBox::toggled, this,
            [this](bool on) { m_defaults.set(SettingsKeys::streamSpeech, on); });
    connect(m_provider, &QComboBox::activated, this,
            [this] { m_models.setSpeechProvider(m_provider->currentData().toString()); });
    connect(m_offlineLanguage, &QComboBox::activated, this, &SettingsWindow::saveOfflineVoice);
    connect(m_offlineVariant, &QComboBox::activated, this, &SettingsWindow::saveOfflineVoice);
    connect(&m_models, &ModelSettings::changed, this, &SettingsWindow::refreshSpeech);
    connect(&m_availability, &ModelAvailability::changed, this, &SettingsWindow::refreshSpeech);
    connect(m_speed, &QComboBox::currentIndexChanged, this, [this] {
        const double rate = m_speed->currentData().toDouble();
        if (const std::optional<PlaybackSpeed> speed = playbackSpeedFromRawValue(rate))
            m_state.saveDefaultSpeed(*speed);
    });
    connect(m_podcastType, &QComboBox::activated, this, [this] {
        if (const std::optional<PodcastType> type = podcastTypeFromRawValue(m_podcastType->currentData().toString()))
            m_state.setSelectedPodcastType(*type);
    });
    connect(&m_state, &AppState::selectedPodcastTypeChanged, this, [this] {
        m_podcastType->setCurrentIndex(m_podcastType->findData(rawValue(m_state.selectedPodcastType())));
    });
    connect(choose, &QPushButton::clicked, this, &SettingsWindow::chooseDownloadFolder);
    connect(&m_state, &AppState::downloadLocationChanged, this, &SettingsWindow::refreshDownloadFolder);
}

QComboBox *SettingsWindow::addModelChoice(int role, const QString &label, const QString &help)
{
    auto *choice = new QComboBox(this);
    const auto modelRole = static_cast<ModelRole>(role);
    for (const QString &name : ModelCatalogue::names(modelRole))
        choice->addItem(name, name);
    choice->setProperty("modelRole", role);
    describe(choice, help);
    qobject_cast<QFormLayout *>(layout())->addRow(label, choice);
    connect(choice, &QComboBox::activated, this,
            [this, choice, modelRole] { m_models.setModel(modelRole, choice->currentData().toString()); });
    return choice;
}

void SettingsWindow::refreshSpeech()
{
    m_provider->setCurrentIndex(m_provider->findData(m_models.speechProvider()));
    QStringList notes;
    for (QComboBox *choice : std::as_const(m_modelChoices)) {
        const auto role = static_cast<ModelRole>(choice->property("modelRole").toInt());
        const QString model = m_models.model(role);
        choice->setCurrentIndex(choice->findData(model));
        if (const std::optional<QDate> date = m_availability.shutdownDate(model)) {
            const QString when = QLocale().toString(*date, QLocale::LongFormat);
            const QString successor =
                ModelCatalogue::successorOf(model) ? ModelCatalogue::successorOf(model)->name : QString();
            notes << (successor.isEmpty()
                          ? QStringLiteral("OpenAI stops serving %1 on %2.").arg(model, when)
                          : QStringLiteral("OpenAI stops serving %1 on %2; Parlino then switches to %3 by itself.")
                                .arg(model, when, successor));
        }
    }
    m_shutdownNotes->setText(notes.join(u'\n'));
    m_shutdownNotes->setVisible(!notes.isEmpty());

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

void SettingsWindow::refreshOfflineVoice()
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

void SettingsWindow::saveOfflineVoice()
{
    const QString language = m_offlineLanguage->currentData().toString();
    const QString variant = m_offlineVariant->currentData().toString();
    if (language.isEmpty())
        return;
    m_defaults.set(SettingsKeys::offlineVoice, variant.isEmpty() ? language : language + u'+' + variant);
}

void SettingsWindow::chooseDownloadFolder()
{
    const QString folder = QFileDialog::getExistingDirectory(this, QStringLiteral("Choose Download Folder"),
                                                             m_state.downloadLocation().value_or(QString()));
    if (!folder.isEmpty())
        m_state.setDownloadLocation(folder);
}

void SettingsWindow::refreshDownloadFolder()
{
    m_folder->setText(m_state.downloadLocation().value_or(QStringLiteral("(none)")));
}

} // namespace parlino
