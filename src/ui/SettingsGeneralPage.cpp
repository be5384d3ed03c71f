#include "ui/SettingsGeneralPage.h"

#include "ai/PodcastType.h"
#include "app/AppState.h"
#include "app/LoginItem.h"
#include "ui/AccessibleHelp.h"

#include <QButtonGroup>
#include <QCheckBox>
#include <QComboBox>
#include <QFileDialog>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QRadioButton>

namespace parlino {

SettingsGeneralPage::SettingsGeneralPage(AppState &state, LoginItem *loginItem, QWidget *parent)
    : QWidget(parent)
    , m_state(state)
    , m_loginItem(loginItem)
{
    auto *form = new QFormLayout(this);
    form->setContentsMargins(18, 18, 18, 18);
    form->setSpacing(12);

    if (m_loginItem) {
        m_launchAtLogin = new QCheckBox(QStringLiteral("Start Parlino when I log in"), this);
        describe(m_launchAtLogin, QStringLiteral("Start Parlino when I log in"));
        m_launchAtLogin->setChecked(m_loginItem->isEnabled());
        form->addRow(QString(), m_launchAtLogin);
        m_loginError = new QLabel(this);
        m_loginError->setWordWrap(true);
        m_loginError->setAccessibleName(QStringLiteral("Start at login problem"));
        m_loginError->hide();
        form->addRow(QString(), m_loginError);
        connect(m_launchAtLogin, &QCheckBox::toggled, this, [this](bool on) {
            const QString problem = m_loginItem->setEnabled(on);
            m_loginError->setText(problem);
            m_loginError->setVisible(!problem.isEmpty());
            if (!problem.isEmpty()) {
                const QSignalBlocker quiet(m_launchAtLogin);
                m_launchAtLogin->setChecked(m_loginItem->isEnabled());
            }
        });
    }

    // Light, dark, or whatever the desktop uses; applied to every window at once.
    auto *appearanceRow = new QHBoxLayout;
    m_appearance = new QButtonGroup(this);
    for (const auto &[mode, label] : {std::pair{AppearanceMode::system, QStringLiteral("Like the desktop")},
                                      std::pair{AppearanceMode::light, QStringLiteral("Light")},
                                      std::pair{AppearanceMode::dark, QStringLiteral("Dark")}}) {
        auto *button = new QRadioButton(label, this);
        describe(button, QStringLiteral("Appearance: ") + label);
        button->setChecked(m_state.appearanceMode() == mode);
        m_appearance->addButton(button, static_cast<int>(mode));
        appearanceRow->addWidget(button);
    }
    appearanceRow->addStretch(1);
    form->addRow(QStringLiteral("Appearance:"), appearanceRow);
    connect(m_appearance, &QButtonGroup::idClicked, this,
            [this](int id) { m_state.setAppearanceMode(static_cast<AppearanceMode>(id)); });
    connect(&m_state, &AppState::appearanceModeChanged, this, [this] {
        if (QAbstractButton *button = m_appearance->button(static_cast<int>(m_state.appearanceMode())))
            button->setChecked(true);
    });

    // The style of podcasts made from the player's button, the shortcut or `parlino podcast`.
    m_podcastType = new QComboBox(this);
    for (PodcastType type : allPodcastTypes)
        m_podcastType->addItem(rawValue(type), rawValue(type));
    m_podcastType->setCurrentIndex(m_podcastType->findData(rawValue(m_state.selectedPodcastType())));
    describe(m_podcastType, QStringLiteral("Podcast type"));
    form->addRow(QStringLiteral("Podcast type:"), m_podcastType);
    connect(m_podcastType, &QComboBox::activated, this, [this] {
        if (const std::optional<PodcastType> type = podcastTypeFromRawValue(m_podcastType->currentData().toString()))
            m_state.setSelectedPodcastType(*type);
    });
    connect(&m_state, &AppState::selectedPodcastTypeChanged, this, [this] {
        m_podcastType->setCurrentIndex(m_podcastType->findData(rawValue(m_state.selectedPodcastType())));
    });

    auto *folderRow = new QHBoxLayout;
    m_folder = new QLabel(this);
    m_folder->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_folder->setAccessibleName(QStringLiteral("Download folder"));
    auto *choose = new QPushButton(QStringLiteral("Choose…"), this);
    describe(choose, QStringLiteral("Choose the folder for downloads"));
    folderRow->addWidget(m_folder, 1);
    folderRow->addWidget(choose);
    form->addRow(QStringLiteral("Save downloads to:"), folderRow);
    refreshDownloadFolder();
    connect(choose, &QPushButton::clicked, this, &SettingsGeneralPage::chooseDownloadFolder);
    connect(&m_state, &AppState::downloadLocationChanged, this, &SettingsGeneralPage::refreshDownloadFolder);
}

void SettingsGeneralPage::chooseDownloadFolder()
{
    const QString folder = QFileDialog::getExistingDirectory(this, QStringLiteral("Choose Download Folder"),
                                                             m_state.downloadLocation().value_or(QString()));
    if (!folder.isEmpty())
        m_state.setDownloadLocation(folder);
}

void SettingsGeneralPage::refreshDownloadFolder()
{
    m_folder->setText(m_state.downloadLocation().value_or(QStringLiteral("(none)")));
}

} // namespace parlino
