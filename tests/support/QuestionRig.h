#pragma once

#include "LocalOpenAI.h"
#include "PlaybackFixtures.h"
#include "TestEnvironment.h"
#include "VirtualMicrophone.h"
#include "ai/OpenAITranscriptionRecognizer.h"
#include "ai/SpeechRecognitionService.h"
#include "app/AppState.h"
#include "core/Clock.h"
#include "core/SettingsKeys.h"
#include "playback/AudioPlayerManager.h"
#include "playback/MpvAudioEngine.h"
#include "usage/UsageTracker.h"

#include <QTemporaryDir>
#include <QTest>

#include <memory>

namespace parlino::test {

// What a spoken question needs on the test desktop: the local OpenAI side, a reading on disk, a spoken
// question and a virtual microphone to say it into, and the real player (reading at the default speed
// of 2) with the OpenAI transcription engine listening.
struct QuestionRig {
    explicit QuestionRig(const TestEnvironment &environment)
        : openAI(environment)
    {
    }

    // Makes the files and the objects; false when a file could not be made.
    bool setUp(const QString &reading)
    {
        if (!dir.isValid())
            return false;
        readingFile = dir.filePath(QStringLiteral("reading.mp3"));
        questionWav = dir.filePath(QStringLiteral("question.wav"));
        if (makeTimedSpeechMp3(reading, readingFile) <= 8
            || VirtualMicrophone::makeSpokenWav(QStringLiteral("what is this about"), questionWav) <= 0.8)
            return false;
        openAI.defaults.set(SettingsKeys::defaultSpeed, 2.0);
        state = std::make_unique<AppState>(openAI.defaults);
        tracker = std::make_unique<UsageTracker>(openAI.defaults);
        engine = std::make_unique<MpvAudioEngine>(QStringLiteral("null"));
        player = std::make_unique<AudioPlayerManager>(*engine, *tracker, openAI.defaults, Clock::system());
        state->mirrorPlayer(*player);
        recognition = std::make_unique<SpeechRecognitionService>(openAI.defaults);
        recognition->addRecognizer(std::make_unique<OpenAITranscriptionRecognizer>(openAI.connection, openAI.models));
        return true;
    }

    // Says the question into the microphone; true once it was heard.
    bool speak()
    {
        if (!microphone.play(questionWav) || !microphone.waitForPlayback())
            return false;
        QTest::qWait(400);
        return state->isReadyToSendQuestion();
    }

    LocalOpenAI openAI;
    QTemporaryDir dir;
    QString readingFile;
    QString questionWav;
    VirtualMicrophone microphone;
    std::unique_ptr<AppState> state;
    std::unique_ptr<UsageTracker> tracker;
    std::unique_ptr<MpvAudioEngine> engine;
    std::unique_ptr<AudioPlayerManager> player;
    std::unique_ptr<SpeechRecognitionService> recognition;
};

} // namespace parlino::test
