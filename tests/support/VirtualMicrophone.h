#pragma once

#include <QProcess>
#include <QString>

#include <memory>

namespace parlino::test {

// A microphone for the desktop rig's sound server: a sink that discards what it plays and, over its
// monitor, an input device that applications see as an ordinary microphone (Qt lists no monitors).
// Whatever play() plays into the sink is what the app hears. Unplugged when destroyed.
class VirtualMicrophone final {
public:
    VirtualMicrophone();
    ~VirtualMicrophone();
    VirtualMicrophone(const VirtualMicrophone &) = delete;
    VirtualMicrophone &operator=(const VirtualMicrophone &) = delete;

    // Adds the device and makes it the default input; false when the sound server refused.
    bool plugIn();
    void unplug();
    [[nodiscard]] bool isPluggedIn() const { return !m_sinkModule.isEmpty(); }

    // Starts playing a WAV file into the microphone; waitForPlayback() waits for its end.
    bool play(const QString &wavPath);
    bool waitForPlayback(int milliseconds = 30000);

    // Speech of text as a WAV file (espeak-ng); returns its length in seconds, negative on failure.
    [[nodiscard]] static double makeSpokenWav(const QString &text, const QString &wavPath);

private:
    QString m_sinkModule;
    QString m_sourceModule;
    std::unique_ptr<QProcess> m_player;
};

} // namespace parlino::test
