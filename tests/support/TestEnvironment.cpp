#include "TestEnvironment.h"

#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QtGlobal>

namespace parlino::test {

TestEnvironment::TestEnvironment()
    : m_dir(QDir::tempPath() + QStringLiteral("/parlino-test-XXXXXX"))
{
    const QString base = m_dir.path();
    for (const char *sub : {"config", "data", "cache", "home/Downloads", "runtime"})
        QDir().mkpath(base + u'/' + QLatin1String(sub));
    QFile::setPermissions(base + QStringLiteral("/runtime"),
                          QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
    qputenv("HOME", (base + QStringLiteral("/home")).toUtf8());
    qputenv("XDG_CONFIG_HOME", configHome().toUtf8());
    qputenv("XDG_DATA_HOME", dataHome().toUtf8());
    qputenv("XDG_CACHE_HOME", (base + QStringLiteral("/cache")).toUtf8());
    qputenv("XDG_DOWNLOAD_DIR", (base + QStringLiteral("/home/Downloads")).toUtf8());
}

QString TestEnvironment::defaultsFile() const
{
    return configHome() + QStringLiteral("/Parlino/Parlino.conf");
}

bool makeSpeechMp3(const QString &text, const QString &mp3Path, const QString &voice)
{
    const QString wav = mp3Path + QStringLiteral(".wav");
    QStringList espeakArgs{QStringLiteral("-w"), wav};
    if (!voice.isEmpty())
        espeakArgs << QStringLiteral("-v") << voice;
    espeakArgs << text;
    if (QProcess::execute(QStringLiteral("espeak-ng"), espeakArgs) != 0) {
        qWarning("espeak-ng failed");
        return false;
    }
    const int lame = QProcess::execute(
        QStringLiteral("lame"), {QStringLiteral("--quiet"), QStringLiteral("-b"), QStringLiteral("64"), wav, mp3Path});
    QFile::remove(wav);
    if (lame != 0) {
        qWarning("lame failed");
        return false;
    }
    return QFileInfo(mp3Path).size() > 0;
}

QString sourceDir()
{
    return QStringLiteral(PARLINO_TEST_SOURCE_DIR);
}

} // namespace parlino::test
