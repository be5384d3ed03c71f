#include "ai/SpeechActivityDetector.h"

#include <cmath>

namespace parlino {

SpeechActivityDetector::SpeechActivityDetector(int sampleRate)
    : m_sampleRate(sampleRate > 0 ? sampleRate : 1)
{
}

float SpeechActivityDetector::rootMeanSquare(std::span<const float> samples)
{
    if (samples.empty())
        return 0;
    double sum = 0;
    for (const float sample : samples) {
        if (std::isfinite(sample))
            sum += static_cast<double>(sample) * sample;
    }
    return static_cast<float>(std::sqrt(sum / static_cast<double>(samples.size())));
}

bool SpeechActivityDetector::feed(std::span<const float> samples)
{
    if (m_heard || samples.empty())
        return m_heard;
    if (rootMeanSquare(samples) > kThreshold)
        m_loudSeconds += static_cast<double>(samples.size()) / m_sampleRate;
    else
        m_loudSeconds = 0;
    m_heard = m_loudSeconds >= kMinimumSeconds;
    return m_heard;
}

void SpeechActivityDetector::reset()
{
    m_loudSeconds = 0;
    m_heard = false;
}

} // namespace parlino
