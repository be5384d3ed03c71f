#pragma once

#include <QString>
#include <QStringList>

namespace parlino::test {

// Real MP3 files for the player tests, made at test time with espeak-ng and lame.

// Speech of `text` as MP3 at `mp3Path`; returns the length of the spoken audio in seconds (read from
// espeak-ng's WAV before encoding), or a negative value when a tool failed.
[[nodiscard]] double makeTimedSpeechMp3(const QString &text, const QString &mp3Path);

// A pure sine tone as MP3 (mono, 44.1 kHz); false when lame failed.
[[nodiscard]] bool makeToneMp3(double frequency, double seconds, const QString &mp3Path);

// Seconds of audio in an audio file as ffprobe reads it, or -1 when ffprobe cannot read it cleanly.
[[nodiscard]] double decodedSeconds(const QString &path);

// Joins the files byte for byte, as the speech client joins its chunks.
[[nodiscard]] bool concatenateFiles(const QStringList &parts, const QString &outputPath);

// Length in seconds and the number of sign changes per second of the first channel of a PCM WAV file
// (16-bit or float), for pitch checks. The header's sizes are ignored: the data runs to the file's end.
struct WavAnalysis {
    bool valid = false;
    double seconds = 0;
    double dominantFrequency = 0;
};
[[nodiscard]] WavAnalysis analyseWav(const QString &wavPath);

} // namespace parlino::test
