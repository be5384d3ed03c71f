#pragma once

#include <QProcess>

#include <cstdlib>

namespace parlino::test {

// What the sound server plays, recorded from its null sink's monitor.
class SoundRecorder final {
public:
    SoundRecorder()
    {
        m_process.start(QStringLiteral("parec"), {QStringLiteral("--device=null.monitor"), QStringLiteral("--raw"),
                                                  QStringLiteral("--format=s16le"), QStringLiteral("--rate=22050"),
                                                  QStringLiteral("--channels=1")});
        m_process.waitForStarted();
    }
    ~SoundRecorder()
    {
        m_process.kill();
        m_process.waitForFinished();
    }

    // Seconds of recorded samples above the null sink's silence.
    [[nodiscard]] double loudSeconds()
    {
        m_recorded += m_process.readAllStandardOutput();
        const auto *samples = reinterpret_cast<const qint16 *>(m_recorded.constData());
        qsizetype loud = 0;
        for (qsizetype i = 0; i < m_recorded.size() / 2; ++i)
            loud += std::abs(samples[i]) > 300 ? 1 : 0;
        return static_cast<double>(loud) / 22050;
    }

private:
    QProcess m_process;
    QByteArray m_recorded;
};

} // namespace parlino::test
