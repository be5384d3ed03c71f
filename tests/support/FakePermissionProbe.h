#pragma once

#include "app/PermissionDialogs.h"
#include "app/PermissionProbe.h"

#include <QStringList>

// The desktop's permission answers, set by the test; records what the app asked of it.
class FakePermissionProbe final : public parlino::PermissionProbe {
public:
    bool accessibility = false;
    bool microphone = false;
    bool speech = false;
    QStringList calls;

    bool isAccessibilityEnabled() override { return accessibility; }
    bool isMicrophoneAvailable() override { return microphone; }
    bool isSpeechRecognitionAvailable() override { return speech; }
    void promptForAccessibility() override { calls << QStringLiteral("prompt"); }
    bool openAccessibilitySettings() override
    {
        calls << QStringLiteral("openSettings");
        return true;
    }
};

// Answers the alerts as a user would, and counts them.
class ScriptedDialogs final : public parlino::PermissionDialogs {
public:
    Answer accessibilityAnswer = Answer::openSettings;
    int accessibilityAsked = 0;
    int questionAsked = 0;

    Answer askForAccessibility() override
    {
        ++accessibilityAsked;
        return accessibilityAnswer;
    }
    Answer askForQuestionPermissions(bool, bool) override
    {
        ++questionAsked;
        return Answer::later;
    }
};
