#include "core/Paths.h"

#include <QDir>
#include <QStandardPaths>

namespace parlino::Paths {

namespace {

QString xdgOr(const char *variable, const QString &fallbackBelowHome)
{
    const QString value = qEnvironmentVariable(variable);
    // The XDG rules ignore relative paths.
    if (!value.isEmpty() && QDir::isAbsolutePath(value))
        return QDir::cleanPath(value);
    return QDir::homePath() + u'/' + fallbackBelowHome;
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
    return QDir::tempPath();
}

} // namespace parlino::Paths
