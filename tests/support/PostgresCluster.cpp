#include "PostgresCluster.h"

#include <QDir>
#include <QFile>
#include <QProcess>

#include <pwd.h>
#include <unistd.h>

namespace parlino::test {

namespace {

constexpr int kPort = 54329; // names the socket file only: nothing listens on TCP
const QString kSuperuser = QStringLiteral("parlino");

} // namespace

QString PostgresCluster::binDir()
{
    const QString preferred = QStringLiteral("/usr/lib/postgresql/15/bin");
    if (QFile::exists(preferred + QStringLiteral("/initdb")))
        return preferred;
    const QStringList versions =
        QDir(QStringLiteral("/usr/lib/postgresql")).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString &version : versions) {
        const QString dir = QStringLiteral("/usr/lib/postgresql/") + version + QStringLiteral("/bin");
        if (QFile::exists(dir + QStringLiteral("/initdb")))
            return dir;
    }
    return {};
}

PostgresCluster::PostgresCluster()
{
    if (binDir().isEmpty()) {
        m_failure = QStringLiteral("PostgreSQL is not installed (scripts/install-deps installs postgresql-15)");
        return;
    }
    if (!m_dir.isValid()) {
        m_failure = QStringLiteral("no temporary folder for the cluster");
        return;
    }
    if (::geteuid() == 0) {
        const passwd *account = ::getpwnam("postgres");
        if (!account)
            account = ::getpwnam("nobody");
        if (!account) {
            m_failure = QStringLiteral("running as root, and there is no account to run PostgreSQL as");
            return;
        }
        m_runAs = QString::fromLocal8Bit(account->pw_name);
        if (::chown(QFile::encodeName(m_dir.path()).constData(), account->pw_uid, account->pw_gid) != 0) {
            m_failure = QStringLiteral("could not hand the cluster folder to ") + m_runAs;
            return;
        }
    }
    const QString data = m_dir.filePath(QStringLiteral("data"));
    if (!run(QStringLiteral("initdb"),
             {QStringLiteral("-D"), data, QStringLiteral("-U"), kSuperuser, QStringLiteral("--auth=trust"),
              QStringLiteral("-E"), QStringLiteral("UTF8"), QStringLiteral("--no-locale"), QStringLiteral("--no-sync")},
             120000))
        return;
    const QString options =
        QStringLiteral("-k %1 -p %2 -c listen_addresses='' -c fsync=off").arg(m_dir.path()).arg(kPort);
    if (!run(QStringLiteral("pg_ctl"),
             {QStringLiteral("-D"), data, QStringLiteral("-l"), m_dir.filePath(QStringLiteral("server.log")),
              QStringLiteral("-o"), options, QStringLiteral("-w"), QStringLiteral("start")},
             120000)) {
        QFile log(m_dir.filePath(QStringLiteral("server.log")));
        if (log.open(QIODevice::ReadOnly))
            m_failure += QStringLiteral("\n") + QString::fromLocal8Bit(log.readAll());
        return;
    }
    m_running = true;
}

PostgresCluster::~PostgresCluster()
{
    if (m_running)
        run(QStringLiteral("pg_ctl"),
            {QStringLiteral("-D"), m_dir.filePath(QStringLiteral("data")), QStringLiteral("-m"),
             QStringLiteral("immediate"), QStringLiteral("-w"), QStringLiteral("stop")},
            60000);
}

QString PostgresCluster::connectionString() const
{
    return QStringLiteral("host=%1 port=%2 user=%3 dbname=postgres").arg(m_dir.path()).arg(kPort).arg(kSuperuser);
}

bool PostgresCluster::run(const QString &program, const QStringList &arguments, int timeoutMs)
{
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.setWorkingDirectory(m_dir.path());
    const QString path = binDir() + u'/' + program;
    if (m_runAs.isEmpty())
        process.start(path, arguments);
    else
        process.start(QStringLiteral("runuser"),
                      QStringList{QStringLiteral("-u"), m_runAs, QStringLiteral("--"), path} + arguments);
    if (!process.waitForFinished(timeoutMs) || process.exitStatus() != QProcess::NormalExit
        || process.exitCode() != 0) {
        m_failure = program + QStringLiteral(" failed: ") + QString::fromLocal8Bit(process.readAll());
        return false;
    }
    return true;
}

} // namespace parlino::test
