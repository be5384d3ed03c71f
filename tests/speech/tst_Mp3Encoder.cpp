#include "PlaybackFixtures.h"
#include "RealtimeTestServer.h"
#include "core/Error.h"
#include "speech/Mp3Encoder.h"
#include "speech/SpeechStream.h"

#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>
#include <QtEndian>

#include <cmath>

using namespace parlino;

namespace {

// One MPEG-2 Layer III frame at 24 kHz: 576 samples.
constexpr double kFrameSeconds = 576.0 / 24000;

double pcmSeconds(const QByteArray &pcm)
{
    return static_cast<double>(pcm.size()) / 2 / test::RealtimeTestServer::sampleRate;
}

double rootMeanSquare(const QByteArray &pcm)
{
    double sum = 0;
    const qsizetype count = pcm.size() / 2;
    for (qsizetype i = 0; i < count; ++i) {
        const double sample = qFromLittleEndian<qint16>(pcm.constData() + 2 * i);
        sum += sample * sample;
    }
    return count > 0 ? std::sqrt(sum / static_cast<double>(count)) : 0;
}

// The whole output of one encoder: what encode() gave, then what flush() gave.
QByteArray encodeWhole(Mp3Encoder &encoder, const QByteArray &pcm)
{
    QByteArray mp3 = encoder.encode(pcm);
    mp3 += encoder.flush();
    return mp3;
}

// Frames only: no Xing/Info frame, no ID3 tag at either end. ("LAME3.100" does occur: LAME fills unused
// bits inside frames with its name.)
bool hasNoTag(const QByteArray &mp3)
{
    return !mp3.contains("Xing") && !mp3.contains("Info") && !mp3.contains("ID3") && !mp3.right(128).startsWith("TAG");
}

} // namespace

class TestMp3Encoder final : public QObject {
    Q_OBJECT

private:
    QTemporaryDir m_dir;
    test::RealtimeTestServer m_server;

    // mp3 as ffmpeg decodes it: PCM16 little-endian mono at the stream's own rate.
    QByteArray decode(const QByteArray &mp3)
    {
        const QString path = m_dir.filePath(QStringLiteral("decode.mp3"));
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly) || file.write(mp3) != mp3.size())
            return {};
        file.close();
        QProcess ffmpeg;
        ffmpeg.start(QStringLiteral("ffmpeg"),
                     {QStringLiteral("-nostdin"), QStringLiteral("-loglevel"), QStringLiteral("error"),
                      QStringLiteral("-i"), path, QStringLiteral("-f"), QStringLiteral("s16le"),
                      QStringLiteral("pipe:1")});
        if (!ffmpeg.waitForFinished(30000) || ffmpeg.exitCode() != 0)
            return {};
        return ffmpeg.readAllStandardOutput();
    }

private Q_SLOTS:
    // The Realtime server's speech (what its audio deltas carry), encoded in awkward pieces.
    void encodesRealtimeSpeechInPiecesAtItsOwnRate()
    {
        const QString text = QStringLiteral("-5 degrees tonight, and the roads will freeze before morning.");
        const QByteArray pcm = m_server.audioFor(text);

        // Real speech: as long as espeak-ng's own rendering of the text (resampling keeps the length).
        const double spoken = test::makeTimedSpeechMp3(text, m_dir.filePath(QStringLiteral("espeak.mp3")));
        QVERIFY(spoken > 2.0);
        QCOMPARE_LT(std::abs(pcmSeconds(pcm) - spoken), 0.01);
        QCOMPARE_GT(rootMeanSquare(pcm), 1000);

        // Odd pieces leave half a sample behind each time; single bytes arrive too. Cut or whole, the
        // encoder sees the same samples.
        Mp3Encoder encoder;
        QByteArray mp3;
        for (qsizetype at = 0, size = 1; at < pcm.size(); at += size, size = size == 1 ? 4801 : 1)
            mp3 += encoder.encode(pcm.mid(at, size));
        mp3 += encoder.flush();
        Mp3Encoder whole;
        QCOMPARE(mp3, encodeWhole(whole, pcm));

        const auto *header = reinterpret_cast<const unsigned char *>(mp3.constData());
        QCOMPARE(header[0], 0xFF);
        QCOMPARE((header[1] >> 3) & 0x03, 2); // MPEG-2
        QCOMPARE((header[1] >> 1) & 0x03, 1); // Layer III
        QCOMPARE((header[2] >> 2) & 0x03, 1); // 24 000 Hz
        QCOMPARE((header[2] >> 4) & 0x0F, 8); // 64 kbit/s
        QCOMPARE((header[3] >> 6) & 0x03, 3); // mono
        QVERIFY(hasNoTag(mp3));

        // LAME adds its encoder delay and pads the last frame: up to three frames more than went in.
        // The sound is the speech's, as loud as it went in (samples read in the wrong byte order would
        // be loud noise).
        const QByteArray decoded = decode(mp3);
        QCOMPARE_GE(pcmSeconds(decoded), pcmSeconds(pcm));
        QCOMPARE_LE(pcmSeconds(decoded), pcmSeconds(pcm) + 3 * kFrameSeconds);
        QCOMPARE_LT(std::abs(rootMeanSquare(decoded) / rootMeanSquare(pcm) - 1), 0.1);
        SpeechStream stream;
        stream.append(mp3);
        QCOMPARE_LT(std::abs(stream.arrivedSeconds() - pcmSeconds(decoded)), kFrameSeconds / 2);
    }

    void joinedOutputsOfSeveralEncodersMeasureTheirSum()
    {
        const QByteArray first = m_server.audioFor(QStringLiteral("The first chunk of a long reading."));
        const QByteArray second = m_server.audioFor(QStringLiteral("And the second chunk, which follows it."));
        QVERIFY(pcmSeconds(first) > 1.0 && pcmSeconds(second) > 1.0);

        Mp3Encoder reused;
        const QByteArray firstMp3 = encodeWhole(reused, first);
        Mp3Encoder fresh;
        const QByteArray secondMp3 = encodeWhole(fresh, second);
        // After flush() an encoder starts over, exactly as a new one does.
        QCOMPARE(encodeWhole(reused, second), secondMp3);

        const QByteArray joined = firstMp3 + secondMp3;
        QVERIFY(hasNoTag(joined));
        const double sum = pcmSeconds(decode(firstMp3)) + pcmSeconds(decode(secondMp3));
        QCOMPARE_LE(sum, pcmSeconds(first) + pcmSeconds(second) + 6 * kFrameSeconds);
        QCOMPARE_LT(std::abs(pcmSeconds(decode(joined)) - sum), kFrameSeconds / 2);
        SpeechStream stream;
        for (qsizetype at = 0; at < joined.size(); at += 999)
            stream.append(joined.mid(at, 999));
        QCOMPARE_LT(std::abs(stream.arrivedSeconds() - sum), kFrameSeconds / 2);

        // MP3 has no frames for 23 kHz, nor for 320 kbit/s at 24 kHz; LAME would quietly pick others.
        for (const auto &[rate, bitrate] : {std::pair{23000, 64}, std::pair{24000, 320}}) {
            try {
                Mp3Encoder unsupported(rate, bitrate);
                QFAIL("an encoder was made for settings MP3 has no frames for");
            } catch (const Error &error) {
                QCOMPARE(error.description(),
                         QStringLiteral("The MP3 encoder cannot write %1 Hz at %2 kbit/s.").arg(rate).arg(bitrate));
            }
        }
    }
};

QTEST_GUILESS_MAIN(TestMp3Encoder)
#include "tst_Mp3Encoder.moc"
