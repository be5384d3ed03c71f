#pragma once

#include <QStringList>

#include <functional>

namespace parlino {

class AccountSyncService;
class Defaults;

// `parlino account`: the linked account, changed in the settings file and announced to the running app.
// `arguments` are those after the subcommand word. Exit codes: 0 success, 1 the backend refused or could
// not be reached (its message on standard error), 2 bad usage or an invalid address.
//
//   parlino account link EMAIL   validates the address, fetches the account from the web backend and,
//                                when that worked (or the backend does not know the address yet),
//                                stores it as the linked account
//   parlino account unlink       forgets the linked account
//   parlino account status       the linked address and the backend's count of this month's characters
//
// The command does the work itself, so its exit code tells whether linking worked, and then calls
// `accountChanged`, which tells a running app to read the account again (nothing when none runs).
int runAccountCommand(AccountSyncService &accountSync, Defaults &defaults, const QStringList &arguments,
                      const std::function<void()> &accountChanged);

} // namespace parlino
