#include "platform/linux/XdgAutostart.h"

#include "core/Logging.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

namespace parlino {

namespace {

// The Exec key quotes arguments with double quotes and escapes \ " ` $ inside them.
QString quotedForExec(const QString &path)
{
    QString escaped = path;
    for (const QChar special : {u'\\', u'"', u'`', u'$'})
        escaped.replace(special, QStringLiteral("\\") + special);
    return u'"' + escaped + u'"';
}

} // namespace

XdgAutostart::XdgAutostart(QString entryPath, QString executable)
    : m_entryPath(std::move(entryPath))
    , m_executable(std::move(executable))
{
}

QString XdgAutostart::defaultEntryPath()
{
    QString config = qEnvironmentVariable("XDG_CONFIG_HOME");
    if (config.isEmpty() || !QDir::isAbsolutePath(config))
        config = QDir::homePath() + QStringLiteral("/.config");
    return config + QStringLiteral("/autostart/parlino.desktop");
}

bool XdgAutostart::isEnabled() const
{
    // An entry the user switched off elsewhere ("Hidden=true") does not start Parlino.
    QFile entry(m_entryPath);
    if (!entry.open(QIODevice::ReadOnly))
        return false;
    return !entry.readAll().contains("\nHidden=true");
}

QString XdgAutostart::setEnabled(bool enabled)
{
    if (!enabled) {
        if (QFile::exists(m_entryPath) && !QFile::remove(m_entryPath))
            return QStringLiteral("Could not remove %1.").arg(m_entryPath);
        PLOG(lcApp) << "🚪 Parlino no longer starts at login";
        return {};
    }
    const QString executable = m_executable.isEmpty() ? QCoreApplication::applicationFilePath() : m_executable;
    if (!QDir().mkpath(QFileInfo(m_entryPath).absolutePath()))
        return QStringLiteral("Could not create the folder of %1.").arg(m_entryPath);
    QSaveFile entry(m_entryPath);
    if (!entry.open(QIODevice::WriteOnly))
        return QStringLiteral("Could not write %1: %2").arg(m_entryPath, entry.errorString());
    const QString text = QStringLiteral("[Desktop Entry]\n"
                                        "Type=Application\n"
                                        "Name=Parlino\n"
                                        "Comment=Reads selected text aloud\n"
                                        "Exec=%1\n"
                                        "Icon=parlino\n"
                                        "Terminal=false\n"
                                        "X-GNOME-Autostart-enabled=true\n")
                             .arg(quotedForExec(executable));
    entry.write(text.toUtf8());
    if (!entry.commit())
        return QStringLiteral("Could not write %1: %2").arg(m_entryPath, entry.errorString());
    PLOG(lcApp) << "🚪 Parlino starts at login: " << m_entryPath;
    return {};
}

} // namespace parlino
