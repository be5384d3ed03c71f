#include "ui/OnboardingWindow.h"

#include "app/PermissionManager.h"
#include "core/Defaults.h"
#include "core/SettingsKeys.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

namespace parlino {

OnboardingWindow::OnboardingWindow(Defaults &defaults, PermissionManager &permissions, QWidget *parent)
    : QWidget(parent)
    , m_defaults(defaults)
    , m_permissions(permissions)
{
    setObjectName(QStringLiteral("OnboardingWindow"));
    setWindowTitle(QStringLiteral("Welcome to Parlino"));
    setWindowIcon(QIcon::fromTheme(QStringLiteral("parlino"), QIcon::fromTheme(QStringLiteral("audio-volume-high"))));
    setMinimumSize(520, 380);

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(28, 24, 28, 24);
    layout->setSpacing(14);

    auto *title = new QLabel(QStringLiteral("Welcome to Parlino"), this);
    QFont titleFont = title->font();
    titleFont.setPointSizeF(titleFont.pointSizeF() * 1.8);
    titleFont.setBold(true);
    title->setFont(titleFont);
    layout->addWidget(title);

    auto *intro = new QLabel(
        QStringLiteral("Parlino reads text aloud. Select text in any application and press "
                       "<b>Super+Shift+R</b> — Parlino speaks it in a small player that stays on top, "
                       "with speed, seek and pause.<br><br>"
                       "<b>Super+Shift+H</b> plays a spoken summary instead. Parlino lives in the system tray; "
                       "click its icon for quick actions."),
        this);
    intro->setWordWrap(true);
    intro->setTextFormat(Qt::RichText);
    layout->addWidget(intro);

    auto *row = new QHBoxLayout;
    m_accessibility = new QLabel(this);
    m_accessibility->setWordWrap(true);
    m_enableAccessibility = new QPushButton(QStringLiteral("Turn On Accessibility"), this);
    row->addWidget(m_accessibility, 1);
    row->addWidget(m_enableAccessibility);
    layout->addLayout(row);

    auto *key = new QLabel(QStringLiteral("Speech comes from OpenAI. Set OPENAI_API_KEY, or store your key in "
                                          "the keyring: <tt>secret-tool store --label=\"Parlino OpenAI key\" "
                                          "user openai_api_key server com.parlino.app type plaintext</tt>"),
                           this);
    key->setWordWrap(true);
    key->setTextInteractionFlags(Qt::TextSelectableByMouse);
    layout->addWidget(key);
    layout->addStretch(1);

    auto *finish = new QPushButton(QStringLiteral("Finish Setup"), this);
    finish->setObjectName(QStringLiteral("finishButton"));
    finish->setDefault(true);
    auto *buttons = new QHBoxLayout;
    buttons->addStretch(1);
    buttons->addWidget(finish);
    layout->addLayout(buttons);

    connect(m_enableAccessibility, &QPushButton::clicked, this, [this] {
        m_permissions.requestAccessibilityPermission();
        refreshAccessibility();
    });
    connect(&m_permissions, &PermissionManager::accessibilityGrantedChanged, this,
            &OnboardingWindow::refreshAccessibility);
    connect(finish, &QPushButton::clicked, this, [this] {
        Q_EMIT finished();
        close();
    });
}

void OnboardingWindow::showEvent(QShowEvent *event)
{
    m_defaults.set(SettingsKeys::hasViewedOnboarding, true);
    m_permissions.checkAccessibilityPermission();
    refreshAccessibility();
    QWidget::showEvent(event);
}

void OnboardingWindow::refreshAccessibility()
{
    const bool granted = m_permissions.accessibilityGranted();
    m_accessibility->setText(granted ? QStringLiteral("Accessibility is on: Parlino can read selected text.")
                                     : QStringLiteral("Accessibility is off. Parlino can still use the "
                                                      "selection and the clipboard, but turning it on lets it "
                                                      "read text fields directly."));
    m_enableAccessibility->setVisible(!granted);
}

} // namespace parlino
