#include "core/Paths.h"

#include <QCoreApplication>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QUuid>

#include <cerrno>
#include <csignal>
#include <limits>
#include <sys/stat.h>
#include <unistd.h>

namespace parlino::Paths {

namespace {

constexpr QFileDevice::Permissions privateFolder =
    QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner;
constexpr QFileDevice::Permissions privateFile = QFileDevice::ReadOwner | QFileDevice::WriteOwner;

QString xdgOr(const char *variable, const QString &fallbackBelowHome)
{
    const QString value = qEnvironmentVariable(variable);
    // The XDG rules ignore relative paths.
    if (!value.isEmpty() && QDir::isAbsolutePath(value))
        return QDir::cleanPath(value);
    return QDir::homePath() + u'/' + fallbackBelowHome;
}

// The runtime folder counts only when it is this user's own folder that others cannot write into.
bool isOwnRuntimeFolder(const QString &folder)
{
    struct stat info {};
    if (folder.isEmpty() || !QDir::isAbsolutePath(folder) || ::stat(QFile::encodeName(folder).constData(), &info) != 0)
        return false;
    return S_ISDIR(info.st_mode) && info.st_uid == ::getuid() && (info.st_mode & (S_IWGRP | S_IWOTH)) == 0
           && ::access(QFile::encodeName(folder).constData(), W_OK | X_OK) == 0;
}

bool processIsRunning(qint64 pid)
{
    if (pid <= 0 || pid > std::numeric_limits<pid_t>::max())
        return false;
    return ::kill(static_cast<pid_t>(pid), 0) == 0 || errno == EPERM;
}

} // namespace

QString defaultsFile()
{
    return xdgOr("XDG_CONFIG_HOME", QStringLiteral(".config")) + QStringLiteral("/Parlino/Parlino.conf");
}

QString apiKeyFile()
{
    return xdgOr("XDG_CONFIG_HOME", QStringLiteral(".config")) + QStringLiteral("/Parlino/openai-api-key");
}

QString applicationSupport()
{
    return xdgOr("XDG_DATA_HOME", QStringLiteral(".local/share"));
}

QString downloads()
{
    return QStandardPaths::writableLocation(QStandardPaths::DownloadLocation);
}

QString temporary()
{
    const QString runtime = QDir::cleanPath(qEnvironmentVariable("XDG_RUNTIME_DIR"));
    if (isOwnRuntimeFolder(runtime) && makePrivateFolder(runtime + QStringLiteral("/parlino")))
        return runtime + QStringLiteral("/parlino");
    const QString fallback = xdgOr("XDG_CACHE_HOME", QStringLiteral(".cache")) + QStringLiteral("/parlino/tmp");
    makePrivateFolder(fallback);
    return fallback;
}

QString newTemporaryFile(const QString &suffix)
{
    return temporary() + QStringLiteral("/parlino-") + QString::number(QCoreApplication::applicationPid()) + u'-'
           + QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper() + suffix;
}

void removeTemporaryLeftovers()
{
    static const QRegularExpression ownName(QStringLiteral("^parlino-(\\d+)-"));
    QDir folder(temporary());
    for (const QFileInfo &file : folder.entryInfoList(QDir::Files | QDir::System | QDir::Hidden)) {
        const QRegularExpressionMatch match = ownName.match(file.fileName());
        if (match.hasMatch() && processIsRunning(match.captured(1).toLongLong()))
            continue;
        QFile::remove(file.absoluteFilePath());
    }
}

bool isTemporary(const QString &path)
{
    return isInside(path, temporary());
}

bool makePrivateFolder(const QString &folder)
{
    if (!QDir().mkpath(folder))
        return false;
    QFile::setPermissions(folder, privateFolder);
    return true;
}

void makePrivateFile(const QString &file)
{
    if (QFileInfo(file).isFile() && !QFileInfo(file).isSymLink())
        QFile::setPermissions(file, privateFile);
}

void makePrivateTree(const QString &folder)
{
    if (!QFileInfo(folder).isDir() || QFileInfo(folder).isSymLink())
        return;
    QFile::setPermissions(folder, privateFolder);
    QDirIterator it(folder, QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QFileInfo entry(it.next());
        if (entry.isSymLink())
            continue;
        QFile::setPermissions(entry.filePath(), entry.isDir() ? privateFolder : privateFile);
    }
}

bool isInside(const QString &path, const QString &folder)
{
    const QString realFolder = QFileInfo(folder).canonicalFilePath();
    if (realFolder.isEmpty())
        return false;
    const QFileInfo info(path);
    QString real = info.canonicalFilePath();
    if (real.isEmpty()) {
        // A dangling link could still point anywhere: only a path that is not there at all counts by
        // its folder.
        if (info.isSymLink())
            return false;
        const QString parent = QFileInfo(info.absolutePath()).canonicalFilePath();
        if (parent.isEmpty() || info.fileName() == u"." || info.fileName() == u"..")
            return false;
        real = parent + u'/' + info.fileName();
    }
    return real.startsWith(realFolder + u'/');
}

} // namespace parlino::Paths
