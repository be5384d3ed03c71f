#pragma once

#include "speech/OfflineVoice.h"
#include "speech/SpeechProvider.h"

#include <QList>
#include <QLocale>
#include <QMutex>
#include <QSet>

#include <optional>

namespace parlino {

class Defaults;

// The voice that needs neither a key nor a network: eSpeak NG on this machine. It speaks with the
// "offlineVoice" setting's language (the OpenAI voice asked for does not matter), at 175 words a
// minute times the speed, and its 22050 Hz PCM is encoded to MP3 while it is made, so the player
// starts with the first sentence as it does for OpenAI's audio.
//
// eSpeak NG keeps global state and blocks while it speaks, so every call into it runs on one worker
// thread that all offline providers of the process share; the MP3 pieces reach the caller's thread
// through its event loop.
class OfflineSpeechProvider final : public SpeechProvider {
public:
    static constexpr auto providerName = "offline";
    // eSpeak NG's own pace, in words per minute, for speed 1.
    static constexpr int normalWordsPerMinute = 175;
    static constexpr int bitrateKbps = 48;

    explicit OfflineSpeechProvider(Defaults &defaults);
    ~OfflineSpeechProvider() override;

    [[nodiscard]] QString name() const override;
    [[nodiscard]] QString model() const override;
    // "espeak:<voice>", so offline audio never answers a look-up for an OpenAI voice and each offline
    // voice has entries of its own.
    [[nodiscard]] QString cacheVoice(TTSVoice voice) const override;
    [[nodiscard]] bool worksOffline() const override { return true; }
    // Stops between eSpeak NG's buffers (a few hundredths of a second of speech) once shouldStop says so.
    QCoro::Task<QString> synthesize(QString text, TTSVoice voice, double speed, AudioReceiver onAudio,
                                    StopCheck shouldStop) override;

    // The eSpeak NG voice that reads: the one set with setVoiceName(), else the "offlineVoice" setting,
    // else defaultVoiceName(). A name eSpeak NG does not have reads as the default, with one warning
    // per name; a language is given as the name the voice list shows ("en-gb" reads as "en").
    [[nodiscard]] QString voiceName() const;
    // Reads with `name` instead of the setting, for this object's life (the command line's --voice).
    // False, with nothing changed, for a name that hasVoice() refuses.
    bool setVoiceName(const QString &name);

    // The languages eSpeak NG has, by display name; empty when it cannot start.
    [[nodiscard]] static QList<OfflineVoice> voices();
    // The variants (how the voice sounds) that may follow a language after "+".
    [[nodiscard]] static QList<OfflineVoice> variants();
    // A language eSpeak NG has (a listed name such as "en" or one of its codes such as "en-gb"),
    // optionally with "+variant".
    [[nodiscard]] static bool hasVoice(const QString &name);
    // The locale's language and country when eSpeak NG has them ("en-us"), else its language ("de"),
    // else English; always a name that voices() lists.
    [[nodiscard]] static QString defaultVoiceName(const QLocale &locale = QLocale::system());
    // 175 × speed words per minute, within what eSpeak NG takes (80 to 450).
    [[nodiscard]] static int wordsPerMinute(double speed);
    // Starts eSpeak NG on its thread now, so the first reading does not wait for it to load.
    static void prepare();

    // The voice-list name for `name` ("en-gb" → "en", "FR-FR+f3" → "fr+f3"), or nothing when eSpeak NG
    // does not have it.
    [[nodiscard]] static std::optional<QString> listedName(const QString &name);

private:
    Defaults &m_defaults;
    std::optional<QString> m_voiceName;
    mutable QMutex m_warnedMutex;
    mutable QSet<QString> m_warnedNames;
};

} // namespace parlino
