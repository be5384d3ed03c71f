#pragma once

#include <QString>
#include <QTemporaryDir>

namespace parlino::test {

// Points HOME and the XDG folders at a fresh temporary tree, so nothing a test does reaches a user's
// settings, cache or data. Restores nothing: each test executable is its own process.
class TestEnvironment final {
public:
    TestEnvironment();

    [[nodiscard]] QString root() const { return m_dir.path(); }
    [[nodiscard]] QString configHome() const { return root() + QStringLiteral("/config"); }
    [[nodiscard]] QString dataHome() const { return root() + QStringLiteral("/data"); }
    [[nodiscard]] QString defaultsFile() const;

private:
    QTemporaryDir m_dir;
};

// Writes `text` as real speech to an MP3 file with espeak-ng and lame; returns false (with a test
// warning) when either tool fails.
[[nodiscard]] bool makeSpeechMp3(const QString &text, const QString &mp3Path, const QString &voice = QString());

// The folder of source files next to the tests (for fixtures checked into the repository).
[[nodiscard]] QString sourceDir();

} // namespace parlino::test
