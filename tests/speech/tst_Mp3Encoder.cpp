#include "PlaybackFixtures.h"
#include "RealtimeTestServer.h"
#include "core/Error.h"
#include "speech/Mp3Encoder.h"
#include "speech/SpeechStream.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkRequest>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>
#include <QWebSocket>
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
    // The Realtime server's speech, as a client receives it, encoded in awkward pieces.
    void encodesRealtimeSpeechInPiecesAtItsOwnRate()
    {
        const QString text = QStringLiteral("-5 degrees tonight, and the roads will freeze before morning.");
        QWebSocket client;
        QList<QJsonObject> events;
        connect(&client, &QWebSocket::textMessageReceived, this, [&events](const QString &message) {
            events.append(QJsonDocument::fromJson(message.toUtf8()).object());
        });
        const auto lastType = [&events] { return events.isEmpty() ? QString() : events.last()[u"type"].toString(); };
        const auto send = [&client](const QJsonObject &event) {
            client.sendTextMessage(QString::fromUtf8(QJsonDocument(event).toJson(QJsonDocument::Compact)));
        };
        QNetworkRequest request(
            QUrl(m_server.baseUrlString() + QStringLiteral("/realtime?model=gpt-realtime-2.1-mini")));
        request.setRawHeader("Authorization", "Bearer sk-test");
        client.open(request);
        QTRY_COMPARE_WITH_TIMEOUT(lastType(), QStringLiteral("session.created"), 10000);

        const QJsonObject format{{QStringLiteral("type"), QStringLiteral("audio/pcm")},
                                 {QStringLiteral("rate"), 24000}};
        const QJsonObject output{{QStringLiteral("format"), format},
                                 {QStringLiteral("voice"), QStringLiteral("coral")}};
        const QJsonObject session{{QStringLiteral("type"), QStringLiteral("realtime")},
                                  {QStringLiteral("audio"), QJsonObject{{QStringLiteral("output"), output}}}};
        send({{QStringLiteral("type"), QStringLiteral("session.update")}, {QStringLiteral("session"), session}});
        QTRY_COMPARE_WITH_TIMEOUT(lastType(), QStringLiteral("session.updated"), 10000);
        QCOMPARE(events.last()[u"session"][u"audio"][u"output"][u"voice"].toString(), QStringLiteral("coral"));

        const QJsonObject content{{QStringLiteral("type"), QStringLiteral("input_text")},
                                  {QStringLiteral("text"), text}};
        const QJsonObject message{{QStringLiteral("type"), QStringLiteral("message")},
                                  {QStringLiteral("role"), QStringLiteral("user")},
                                  {QStringLiteral("content"), QJsonArray{content}}};
        const QJsonObject response{{QStringLiteral("conversation"), QStringLiteral("none")},
                                   {QStringLiteral("output_modalities"), QJsonArray{QStringLiteral("audio")}},
                                   {QStringLiteral("input"), QJsonArray{message}}};
        send({{QStringLiteral("type"), QStringLiteral("response.create")}, {QStringLiteral("response"), response}});
        QTRY_COMPARE_WITH_TIMEOUT(lastType(), QStringLiteral("response.done"), 30000);
        QCOMPARE(events.last()[u"response"][u"status"].toString(), QStringLiteral("completed"));

        QByteArray pcm;
        QString transcript;
        for (const QJsonObject &event : std::as_const(events)) {
            if (event[u"type"].toString() == u"response.output_audio.delta")
                pcm += QByteArray::fromBase64(event[u"delta"].toString().toLatin1());
            else if (event[u"type"].toString() == u"response.output_audio_transcript.delta")
                transcript += event[u"delta"].toString();
        }
        QCOMPARE(transcript, text);

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
