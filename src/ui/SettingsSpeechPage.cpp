#include "ui/SettingsSpeechPage.h"

#include "ai/SpeechRecognitionService.h"
#include "backend/ModelAvailability.h"
#include "backend/ModelCatalogue.h"
#include "backend/ModelSettings.h"
#include "core/Defaults.h"
#include "core/SettingsKeys.h"
#include "ui/AccessibleHelp.h"
#include "ui/SettingsWindow.h"

#include <QCheckBox>
#include <QComboBox>
#include <QFormLayout>
#include <QLabel>
#include <QLocale>

namespace parlino {

SettingsSpeechPage::SettingsSpeechPage(const SettingsContext &context, QWidget *parent)
    : QWidget(parent)
    , m_defaults(context.defaults)
    , m_models(context.models)
    , m_availability(context.availability)
{
    m_form = new QFormLayout(this);
    m_form->setContentsMargins(18, 18, 18, 18);
    m_form->setSpacing(12);

    m_streamSpeech = new QCheckBox(QStringLiteral("Start speaking before the whole text is ready"), this);
    describe(m_streamSpeech, QStringLiteral("Start speaking before the whole text is ready"));
    m_streamSpeech->setChecked(!m_defaults.contains(SettingsKeys::streamSpeech)
                               || m_defaults.boolForKey(SettingsKeys::streamSpeech));
    m_form->addRow(QString(), m_streamSpeech);

    m_provider = new QComboBox(this);
    m_provider->addItem(QStringLiteral("OpenAI speech endpoint"), ModelSettings::openAISpeechProvider);
    m_provider->addItem(QStringLiteral("OpenAI Realtime API"), ModelSettings::openAIRealtimeProvider);
    m_provider->addItem(QStringLiteral("Offline voice (eSpeak NG, no key needed)"), ModelSettings::offlineProvider);
    describe(m_provider, QStringLiteral("Speech provider"));
    m_form->addRow(QStringLiteral("Speech provider:"), m_provider);

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
    // Which engine hears spoken questions; the automatic choice uses the service whenever a key exists.
    auto *recognizer = new QComboBox(this);
    recognizer->addItem(QStringLiteral("Automatic (OpenAI with a key, else offline)"),
                        SpeechRecognitionService::automaticChoice);
    recognizer->addItem(QStringLiteral("OpenAI transcription"), QStringLiteral("openai"));
    recognizer->addItem(QStringLiteral("Offline (PocketSphinx, no key needed)"), QStringLiteral("offline"));
    describe(recognizer, QStringLiteral("Speech recognizer for questions"));
    const QString chosenRecognizer =
        m_defaults.stringForKey(SettingsKeys::questionRecognizer).value_or(SpeechRecognitionService::automaticChoice);
    recognizer->setCurrentIndex(std::max(0, recognizer->findData(chosenRecognizer)));
    m_form->addRow(QStringLiteral("Question recognizer:"), recognizer);
    connect(recognizer, &QComboBox::activated, this, [this, recognizer] {
        m_defaults.set(SettingsKeys::questionRecognizer, recognizer->currentData().toString());
    });

    m_shutdownNotes = new QLabel(this);
    m_shutdownNotes->setWordWrap(true);
    m_shutdownNotes->setAccessibleName(QStringLiteral("Model shutdown dates"));
    m_form->addRow(QString(), m_shutdownNotes);
    refresh();

    connect(m_streamSpeech, &QCheckBox::toggled, this,
            [this](bool on) { m_defaults.set(SettingsKeys::streamSpeech, on); });
    connect(m_provider, &QComboBox::activated, this,
            [this] { m_models.setSpeechProvider(m_provider->currentData().toString()); });
    connect(&m_models, &ModelSettings::changed, this, &SettingsSpeechPage::refresh);
    connect(&m_availability, &ModelAvailability::changed, this, &SettingsSpeechPage::refresh);
}

QComboBox *SettingsSpeechPage::addModelChoice(int role, const QString &label, const QString &help)
{
    auto *choice = new QComboBox(this);
    const auto modelRole = static_cast<ModelRole>(role);
    for (const QString &name : ModelCatalogue::names(modelRole))
        choice->addItem(name, name);
    choice->setProperty("modelRole", role);
    describe(choice, help);
    m_form->addRow(label, choice);
    connect(choice, &QComboBox::activated, this,
            [this, choice, modelRole] { m_models.setModel(modelRole, choice->currentData().toString()); });
    return choice;
}

void SettingsSpeechPage::refresh()
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
}

} // namespace parlino
