#pragma once

#include <QString>
#include <QTemporaryDir>

#include <memory>

namespace parlino::test {

// A throw-away PostgreSQL cluster for one test process: initdb into a temporary folder, the server
// listening only on a Unix socket in that folder, everything removed when it goes. When the tests run
// as root (where initdb refuses), the cluster belongs to the "postgres" account (else "nobody") and
// its programs run as that account.
class PostgresCluster final {
public:
    PostgresCluster();
    ~PostgresCluster();
    PostgresCluster(const PostgresCluster &) = delete;
    PostgresCluster &operator=(const PostgresCluster &) = delete;

    [[nodiscard]] bool isRunning() const { return m_running; }
    // Why the cluster did not start, with the programs' output.
    [[nodiscard]] const QString &failure() const { return m_failure; }
    // A libpq connection string for the cluster's superuser and its "postgres" database.
    [[nodiscard]] QString connectionString() const;

    // The folder of initdb and pg_ctl (PostgreSQL 15 preferred), empty when none is installed.
    [[nodiscard]] static QString binDir();

private:
    // Runs one of the cluster's programs (as the cluster's account when needed); false with m_failure set.
    bool run(const QString &program, const QStringList &arguments, int timeoutMs);

    QTemporaryDir m_dir;
    QString m_runAs; // empty: the current user
    bool m_running = false;
    QString m_failure;
};

} // namespace parlino::test
