#include "PlaybackFixtures.h"

#include <QDataStream>
#include <QFile>
#include <QProcess>
#include <QtEndian>

#include <cmath>
#include <numbers>

namespace parlino::test {

namespace {

struct WavFormat {
    int format = 0; // 1 PCM integer, 3 IEEE float
    int channels = 0;
    int sampleRate = 0;
    int bitsPerSample = 0;
    qint64 dataOffset = -1;
};

WavFormat readWavFormat(const QByteArray &bytes)
{
    WavFormat wav;
    if (bytes.size() < 12 || !bytes.startsWith("RIFF") || bytes.mid(8, 4) != "WAVE")
        return wav;
    qint64 offset = 12;
    while (offset + 8 <= bytes.size()) {
        const QByteArray id = bytes.mid(offset, 4);
        const quint32 size = qFromLittleEndian<quint32>(bytes.constData() + offset + 4);
        const char *body = bytes.constData() + offset + 8;
        if (id == "fmt " && offset + 8 + 16 <= bytes.size()) {
            wav.format = qFromLittleEndian<quint16>(body);
            wav.channels = qFromLittleEndian<quint16>(body + 2);
            wav.sampleRate = static_cast<int>(qFromLittleEndian<quint32>(body + 4));
            wav.bitsPerSample = qFromLittleEndian<quint16>(body + 14);
            if (wav.format == 0xFFFE && size >= 40) // extensible: the real format is the sub-format's first word
                wav.format = qFromLittleEndian<quint16>(body + 24);
        } else if (id == "data") {
            wav.dataOffset = offset + 8;
            break;
        }
        offset += 8 + size + (size & 1);
    }
    return wav;
}

} // namespace

double makeTimedSpeechMp3(const QString &text, const QString &mp3Path)
{
    const QString wavPath = mp3Path + QStringLiteral(".wav");
    // The text goes in on standard input, so one that starts with "-" is spoken, not taken for an option.
    QProcess espeak;
    espeak.start(QStringLiteral("espeak-ng"), {QStringLiteral("--stdin"), QStringLiteral("-w"), wavPath});
    espeak.write(text.toUtf8());
    espeak.closeWriteChannel();
    if (!espeak.waitForFinished(30000) || espeak.exitStatus() != QProcess::NormalExit || espeak.exitCode() != 0)
        return -1;
    QFile wavFile(wavPath);
    if (!wavFile.open(QIODevice::ReadOnly))
        return -1;
    const QByteArray bytes = wavFile.readAll();
    wavFile.close();
    const WavFormat wav = readWavFormat(bytes);
    if (wav.dataOffset < 0 || wav.sampleRate <= 0)
        return -1;
    const double seconds =
        static_cast<double>(bytes.size() - wav.dataOffset) / (wav.sampleRate * wav.channels * (wav.bitsPerSample / 8));
    const int lame = QProcess::execute(QStringLiteral("lame"), {QStringLiteral("--quiet"), QStringLiteral("-b"),
                                                                QStringLiteral("64"), wavPath, mp3Path});
    QFile::remove(wavPath);
    return lame == 0 ? seconds : -1;
}

bool makeToneMp3(double frequency, double seconds, const QString &mp3Path)
{
    constexpr int rate = 44100;
    const int frames = static_cast<int>(seconds * rate);
    QByteArray wav;
    QDataStream out(&wav, QIODevice::WriteOnly);
    out.setByteOrder(QDataStream::LittleEndian);
    out.writeRawData("RIFF", 4);
    out << quint32(36 + frames * 2);
    out.writeRawData("WAVEfmt ", 8);
    out << quint32(16) << quint16(1) << quint16(1) << quint32(rate) << quint32(rate * 2) << quint16(2) << quint16(16);
    out.writeRawData("data", 4);
    out << quint32(frames * 2);
    for (int i = 0; i < frames; ++i)
        out << qint16(std::lround(12000 * std::sin(2 * std::numbers::pi * frequency * i / rate)));
    const QString wavPath = mp3Path + QStringLiteral(".wav");
    QFile file(wavPath);
    if (!file.open(QIODevice::WriteOnly) || file.write(wav) != wav.size())
        return false;
    file.close();
    const int lame = QProcess::execute(QStringLiteral("lame"), {QStringLiteral("--quiet"), QStringLiteral("-b"),
                                                                QStringLiteral("128"), wavPath, mp3Path});
    QFile::remove(wavPath);
    return lame == 0;
}

bool concatenateFiles(const QStringList &parts, const QString &outputPath)
{
    QFile output(outputPath);
    if (!output.open(QIODevice::WriteOnly))
        return false;
    for (const QString &part : parts) {
        QFile input(part);
        if (!input.open(QIODevice::ReadOnly) || output.write(input.readAll()) < 0)
            return false;
    }
    return true;
}

WavAnalysis analyseWav(const QString &wavPath)
{
    QFile file(wavPath);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    const QByteArray bytes = file.readAll();
    const WavFormat wav = readWavFormat(bytes);
    const int sampleBytes = wav.bitsPerSample / 8;
    if (wav.dataOffset < 0 || wav.sampleRate <= 0 || wav.channels <= 0
        || !((wav.format == 1 && sampleBytes == 2) || (wav.format == 3 && sampleBytes == 4)))
        return {};
    const qint64 frameBytes = qint64(sampleBytes) * wav.channels;
    const qint64 frames = (bytes.size() - wav.dataOffset) / frameBytes;
    const char *data = bytes.constData() + wav.dataOffset;
    auto sample = [&](qint64 frame) -> double {
        const char *at = data + frame * frameBytes;
        if (wav.format == 1)
            return qFromLittleEndian<qint16>(at) / 32768.0;
        return static_cast<double>(qFromLittleEndian<float>(at));
    };

    // Count upward zero crossings over the loud part only (skip encoder padding and fades).
    qint64 crossings = 0;
    qint64 first = -1;
    qint64 last = -1;
    for (qint64 i = 1; i < frames; ++i) {
        const double previous = sample(i - 1);
        const double current = sample(i);
        if (previous < 0 && current >= 0 && std::abs(current - previous) > 0.01) {
            if (first < 0)
                first = i;
            last = i;
            ++crossings;
        }
    }
    WavAnalysis result;
    result.valid = true;
    result.seconds = static_cast<double>(frames) / wav.sampleRate;
    if (crossings > 1 && last > first)
        result.dominantFrequency = (crossings - 1) / (static_cast<double>(last - first) / wav.sampleRate);
    return result;
}

double decodedSeconds(const QString &path)
{
    QProcess ffprobe;
    ffprobe.start(QStringLiteral("ffprobe"),
                  {QStringLiteral("-v"), QStringLiteral("error"), QStringLiteral("-show_entries"),
                   QStringLiteral("format=duration"), QStringLiteral("-of"), QStringLiteral("csv=p=0"), path});
    ffprobe.waitForFinished(60000);
    bool ok = false;
    const double seconds = ffprobe.readAllStandardOutput().trimmed().toDouble(&ok);
    return ffprobe.exitCode() == 0 && ok && ffprobe.readAllStandardError().isEmpty() ? seconds : -1;
}

} // namespace parlino::test
