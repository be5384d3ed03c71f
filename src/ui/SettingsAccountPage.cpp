#include "ui/SettingsAccountPage.h"

#include "app/AppState.h"
#include "backend/AccountSyncService.h"
#include "core/Defaults.h"
#include "core/SettingsKeys.h"
#include "ui/AccessibleHelp.h"

#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPointer>
#include <QPushButton>

namespace parlino {

SettingsAccountPage::SettingsAccountPage(AppState &state, Defaults &defaults, AccountSyncService &accountSync,
                                         std::function<void()> accountChanged, QWidget *parent)
    : QWidget(parent)
    , m_state(state)
    , m_defaults(defaults)
    , m_accountSync(accountSync)
    , m_accountChanged(std::move(accountChanged))
{
    auto *form = new QFormLayout(this);
    form->setContentsMargins(18, 18, 18, 18);
    form->setSpacing(12);

    auto *intro = new QLabel(QStringLiteral("Link your Parlino account to keep your voice on every computer and to "
                                            "get your monthly usage e-mails."),
                             this);
    intro->setWordWrap(true);
    form->addRow(intro);

    m_status = new QLabel(this);
    m_status->setWordWrap(true);
    m_status->setAccessibleName(QStringLiteral("Account status"));
    form->addRow(QStringLiteral("Account:"), m_status);

    auto *row = new QHBoxLayout;
    m_email = new QLineEdit(this);
    m_email->setPlaceholderText(QStringLiteral("you@example.org"));
    describe(m_email, QStringLiteral("E-mail address of your account"));
    m_link = new QPushButton(QStringLiteral("Link"), this);
    describe(m_link, QStringLiteral("Link this e-mail address"));
    m_unlink = new QPushButton(QStringLiteral("Unlink"), this);
    describe(m_unlink, QStringLiteral("Unlink the account"));
    row->addWidget(m_email, 1);
    row->addWidget(m_link);
    row->addWidget(m_unlink);
    form->addRow(QStringLiteral("E-mail:"), row);

    m_message = new QLabel(this);
    m_message->setWordWrap(true);
    m_message->setAccessibleName(QStringLiteral("Account message"));
    form->addRow(QString(), m_message);

    connect(m_link, &QPushButton::clicked, this, [this] { link(); });
    connect(m_email, &QLineEdit::returnPressed, this, [this] { link(); });
    connect(m_unlink, &QPushButton::clicked, this, &SettingsAccountPage::unlink);
    connect(&m_state, &AppState::userEmailChanged, this, &SettingsAccountPage::refresh);
    connect(&m_state, &AppState::accountSyncStatusChanged, this, &SettingsAccountPage::refresh);
    refresh();
}

QCoro::Task<> SettingsAccountPage::link()
{
    if (m_linking)
        co_return;
    const QString email = m_email->text().trimmed();
    m_linking = true;
    m_link->setEnabled(false);
    m_message->setText(QStringLiteral("Linking…"));
    const QPointer<SettingsAccountPage> alive(this);
    QCoro::Task<AccountSyncService::LinkResult> linking = m_accountSync.link(email);
    const AccountSyncService::LinkResult result = co_await linking;
    if (!alive)
        co_return;
    m_linking = false;
    m_link->setEnabled(true);
    m_message->setText(result.message);
    if (!result)
        co_return;
    m_defaults.set(SettingsKeys::userEmail, email);
    m_defaults.remove(SettingsKeys::accountMonthCharacters);
    m_email->clear();
    if (m_accountChanged)
        m_accountChanged();
    refresh();
}

void SettingsAccountPage::unlink()
{
    const std::optional<QString> email = m_state.userEmail();
    m_defaults.remove(SettingsKeys::userEmail);
    m_defaults.remove(SettingsKeys::accountMonthCharacters);
    if (m_accountChanged)
        m_accountChanged();
    m_message->setText(email ? QStringLiteral("Account unlinked: ") + *email : QString());
    refresh();
}

void SettingsAccountPage::refresh()
{
    const std::optional<QString> email = m_state.userEmail();
    const bool linked = email && !email->isEmpty();
    m_unlink->setEnabled(linked);
    if (!linked) {
        m_status->setText(QStringLiteral("No account linked"));
        return;
    }
    const AccountSyncStatus &sync = m_state.accountSyncStatus();
    QString state;
    switch (sync.kind) {
    case AccountSyncStatus::Kind::notSynced: state = QStringLiteral("not synced yet"); break;
    case AccountSyncStatus::Kind::syncing: state = QStringLiteral("syncing…"); break;
    case AccountSyncStatus::Kind::synced: state = QStringLiteral("in sync"); break;
    case AccountSyncStatus::Kind::error: state = QStringLiteral("sync failed: ") + sync.message; break;
    }
    m_status->setText(QStringLiteral("%1 — %2").arg(*email, state));
}

} // namespace parlino
