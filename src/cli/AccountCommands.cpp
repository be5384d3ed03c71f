#include "cli/AccountCommands.h"

#include "backend/AccountSyncService.h"
#include "cli/CommandText.h"
#include "core/Defaults.h"
#include "core/SettingsKeys.h"

#include <QEventLoop>
#include <QLocale>

#include <cstdio>
#include <optional>

namespace parlino {

namespace {

const QString kUsage = QStringLiteral("Usage: parlino account link EMAIL | unlink | status");

// Runs the link to its end in a local event loop.
AccountSyncService::LinkResult linkToEnd(AccountSyncService &accountSync, const QString &email)
{
    QEventLoop loop;
    std::optional<AccountSyncService::LinkResult> result;
    auto linking = [&]() -> QCoro::Task<> {
        QCoro::Task<AccountSyncService::LinkResult> task = accountSync.link(email);
        result = co_await task;
        loop.quit();
    };
    auto running = linking();
    if (!result)
        loop.exec();
    return *result;
}

int link(AccountSyncService &accountSync, Defaults &defaults, const QString &email,
         const std::function<void()> &accountChanged)
{
    std::optional<qint64> characters;
    const QMetaObject::Connection counting =
        QObject::connect(&accountSync, &AccountSyncService::currentMonthCharactersReceived,
                         [&characters](const QString &, qint64 received) { characters = received; });
    const AccountSyncService::LinkResult result = linkToEnd(accountSync, email);
    QObject::disconnect(counting);
    if (!result) {
        printTo(stderr, result.message);
        return AccountSyncService::isValidEmail(email) ? exitFailure : exitUsage;
    }
    defaults.set(SettingsKeys::userEmail, email);
    // A count the backend did not send belongs to whichever account was linked before.
    if (characters)
        defaults.set(SettingsKeys::accountMonthCharacters, *characters);
    else
        defaults.remove(SettingsKeys::accountMonthCharacters);
    defaults.synchronize();
    printTo(stdout, result.message);
    accountChanged();
    return 0;
}

int unlink(Defaults &defaults, const std::function<void()> &accountChanged)
{
    const std::optional<QString> email = defaults.stringForKey(SettingsKeys::userEmail);
    if (!email || email->isEmpty()) {
        printTo(stdout, QStringLiteral("No account linked"));
        return 0;
    }
    defaults.remove(SettingsKeys::userEmail);
    defaults.remove(SettingsKeys::accountMonthCharacters);
    defaults.synchronize();
    printTo(stdout, QStringLiteral("Account unlinked: ") + *email);
    accountChanged();
    return 0;
}

int status(const Defaults &defaults)
{
    const std::optional<QString> email = defaults.stringForKey(SettingsKeys::userEmail);
    if (!email || email->isEmpty()) {
        printTo(stdout, QStringLiteral("No account linked"));
        return 0;
    }
    printTo(stdout, QStringLiteral("Account: ") + *email);
    if (defaults.contains(SettingsKeys::accountMonthCharacters)) {
        printTo(stdout, QStringLiteral("Characters this month (web backend): ")
                            + QLocale::c().toString(defaults.integerForKey(SettingsKeys::accountMonthCharacters)));
    }
    return 0;
}

} // namespace

int runAccountCommand(AccountSyncService &accountSync, Defaults &defaults, const QStringList &arguments,
                      const std::function<void()> &accountChanged)
{
    const QString action = arguments.value(0);
    if (action == u"link" && arguments.size() == 2)
        return link(accountSync, defaults, arguments.at(1), accountChanged);
    if (action == u"unlink" && arguments.size() == 1)
        return unlink(defaults, accountChanged);
    if (action == u"status" && arguments.size() == 1)
        return status(defaults);
    printTo(stderr, kUsage);
    return exitUsage;
}

} // namespace parlino
