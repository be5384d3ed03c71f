#pragma once

#include <span>

namespace parlino {

// Tells whether someone spoke into the microphone: speech is heard once the loudness (the root mean
// square of a buffer) stays above kThreshold for kMinimumSeconds in a row. Room noise and a click stay
// below it; a spoken word does not.
class SpeechActivityDetector final {
public:
    // About -34 dBFS: well above a quiet room through a laptop microphone, well below speech.
    static constexpr float kThreshold = 0.02F;
    static constexpr double kMinimumSeconds = 0.15;

    explicit SpeechActivityDetector(int sampleRate);

    // One buffer of mono samples; true once speech has been heard (and from then on, until reset()).
    bool feed(std::span<const float> samples);
    [[nodiscard]] bool heard() const { return m_heard; }
    void reset();

    [[nodiscard]] static float rootMeanSquare(std::span<const float> samples);

private:
    int m_sampleRate;
    double m_loudSeconds = 0;
    bool m_heard = false;
};

} // namespace parlino
