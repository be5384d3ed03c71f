#include "ui/SettingsWindow.h"

#include "app/AppState.h"
#include "playback/PlaybackSpeed.h"
#include "speech/TTSVoice.h"

#include <QComboBox>
#include <QFileDialog>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>

namespace parlino {

SettingsWindow::SettingsWindow(AppState &state, QWidget *parent)
    : QWidget(parent)
    , m_state(state)
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
    form->addRow(QStringLiteral("Default voice:"), m_voice);

    m_speed = new QComboBox(this);
    for (PlaybackSpeed speed : allPlaybackSpeeds)
        m_speed->addItem(displayName(speed), rawValue(speed));
    m_speed->setCurrentIndex(m_speed->findData(rawValue(m_state.currentSpeed())));
    form->addRow(QStringLiteral("Default speed:"), m_speed);

    auto *folderRow = new QHBoxLayout;
    m_folder = new QLabel(this);
    m_folder->setTextInteractionFlags(Qt::TextSelectableByMouse);
    auto *choose = new QPushButton(QStringLiteral("Choose…"), this);
    folderRow->addWidget(m_folder, 1);
    folderRow->addWidget(choose);
    form->addRow(QStringLiteral("Save downloads to:"), folderRow);
    refreshDownloadFolder();

    connect(m_voice, &QComboBox::currentIndexChanged, this, [this] {
        const QString id = m_voice->currentData().toString();
        if (const std::optional<TTSVoice> voice = ttsVoiceFromIdentifier(id))
            m_state.saveDefaultVoice(*voice);
    });
    connect(m_speed, &QComboBox::currentIndexChanged, this, [this] {
        const double rate = m_speed->currentData().toDouble();
        if (const std::optional<PlaybackSpeed> speed = playbackSpeedFromRawValue(rate))
            m_state.saveDefaultSpeed(*speed);
    });
    connect(choose, &QPushButton::clicked, this, &SettingsWindow::chooseDownloadFolder);
    connect(&m_state, &AppState::downloadLocationChanged, this, &SettingsWindow::refreshDownloadFolder);
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
