#include "VirtualMicrophone.h"

#include <QFile>
#include <QtEndian>
#include <QtGlobal>

namespace parlino::test {

namespace {

constexpr auto kSink = "parlino_mic";
constexpr auto kSource = "parlino_microphone";

// The module index that pactl prints, or empty when it failed.
QString loadModule(const QStringList &arguments)
{
    QProcess pactl;
    pactl.start(QStringLiteral("pactl"), QStringList{QStringLiteral("load-module")} + arguments);
    if (!pactl.waitForFinished(10000) || pactl.exitCode() != 0) {
        qWarning("VirtualMicrophone: pactl load-module %s failed: %s", qPrintable(arguments.join(u' ')),
                 pactl.readAllStandardError().constData());
        return {};
    }
    return QString::fromUtf8(pactl.readAllStandardOutput()).trimmed();
}

void run(const QStringList &arguments)
{
    QProcess::execute(QStringLiteral("pactl"), arguments);
}

} // namespace

VirtualMicrophone::VirtualMicrophone() = default;

VirtualMicrophone::~VirtualMicrophone()
{
    unplug();
}

bool VirtualMicrophone::plugIn()
{
    if (isPluggedIn())
        return true;
    m_sinkModule =
        loadModule({QStringLiteral("module-null-sink"), QStringLiteral("sink_name=") + QLatin1String(kSink)});
    if (m_sinkModule.isEmpty())
        return false;
    m_sourceModule = loadModule({QStringLiteral("module-remap-source"),
                                 QStringLiteral("master=") + QLatin1String(kSink) + QStringLiteral(".monitor"),
                                 QStringLiteral("source_name=") + QLatin1String(kSource)});
    if (m_sourceModule.isEmpty()) {
        unplug();
        return false;
    }
    run({QStringLiteral("set-default-source"), QLatin1String(kSource)});
    return true;
}

void VirtualMicrophone::unplug()
{
    if (m_player) {
        m_player->kill();
        m_player->waitForFinished(5000);
        m_player.reset();
    }
    if (!m_sourceModule.isEmpty())
        run({QStringLiteral("unload-module"), m_sourceModule});
    if (!m_sinkModule.isEmpty())
        run({QStringLiteral("unload-module"), m_sinkModule});
    m_sourceModule.clear();
    m_sinkModule.clear();
}

bool VirtualMicrophone::play(const QString &wavPath)
{
    if (!isPluggedIn())
        return false;
    m_player = std::make_unique<QProcess>();
    m_player->start(QStringLiteral("paplay"), {QStringLiteral("--device=") + QLatin1String(kSink), wavPath});
    return m_player->waitForStarted(5000);
}

bool VirtualMicrophone::waitForPlayback(int milliseconds)
{
    return m_player && m_player->waitForFinished(milliseconds) && m_player->exitCode() == 0;
}

double VirtualMicrophone::makeSpokenWav(const QString &text, const QString &wavPath)
{
    if (QProcess::execute(QStringLiteral("espeak-ng"), {QStringLiteral("-w"), wavPath, text}) != 0)
        return -1;
    QFile file(wavPath);
    if (!file.open(QIODevice::ReadOnly))
        return -1;
    const QByteArray wav = file.readAll();
    // espeak-ng writes a plain 44-byte header: 16-bit mono at the rate in bytes 24..27.
    if (wav.size() <= 44 || !wav.startsWith("RIFF"))
        return -1;
    const quint32 rate = qFromLittleEndian<quint32>(wav.constData() + 24);
    return rate > 0 ? static_cast<double>(wav.size() - 44) / 2.0 / rate : -1;
}

} // namespace parlino::test
