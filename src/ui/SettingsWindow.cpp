#include "ui/SettingsWindow.h"

#include "ui/SettingsAccountPage.h"
#include "ui/SettingsGeneralPage.h"
#include "ui/SettingsShortcutsPage.h"
#include "ui/SettingsSpeechPage.h"
#include "ui/SettingsVoicePage.h"

#include <QKeySequence>
#include <QShortcut>
#include <QTabWidget>
#include <QVBoxLayout>

namespace parlino {

SettingsWindow::SettingsWindow(SettingsContext context, QWidget *parent)
    : QWidget(parent)
{
    setObjectName(QStringLiteral("SettingsWindow"));
    setWindowTitle(QStringLiteral("Parlino Settings"));
    setMinimumSize(660, 560);

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(12, 12, 12, 12);
    m_tabs = new QTabWidget(this);
    m_tabs->setAccessibleName(QStringLiteral("Settings pages"));
    m_tabs->addTab(new SettingsGeneralPage(context.state, context.loginItem, m_tabs), QStringLiteral("General"));
    m_tabs->addTab(new SettingsVoicePage(context, m_tabs), QStringLiteral("Voice"));
    m_tabs->addTab(new SettingsSpeechPage(context, m_tabs), QStringLiteral("Speech"));
    if (context.shortcuts)
        m_tabs->addTab(new SettingsShortcutsPage(*context.shortcuts, m_tabs), QStringLiteral("Shortcuts"));
    if (context.accountSync)
        m_tabs->addTab(new SettingsAccountPage(context.state, context.defaults, *context.accountSync,
                                               context.accountChanged, m_tabs),
                       QStringLiteral("Account"));
    layout->addWidget(m_tabs);

    // Escape closes, as in any settings dialog; Ctrl+Tab moves between the pages (QTabWidget's own).
    connect(new QShortcut(QKeySequence(Qt::Key_Escape), this), &QShortcut::activated, this, &QWidget::close);
}

void SettingsWindow::showPage(const QString &title)
{
    for (int index = 0; index < m_tabs->count(); ++index) {
        if (m_tabs->tabText(index) == title)
            m_tabs->setCurrentIndex(index);
    }
}

} // namespace parlino
