#pragma once

#include "input/ShortcutActions.h"

#include <QStringList>

namespace parlino::test {

// Records every action the shortcut manager starts, as "name" or "name(argument)".
class RecordingShortcutActions final : public ShortcutActions {
public:
    QStringList calls;

    void readAloud(const QString &text) override { calls << QStringLiteral("readAloud(%1)").arg(text); }
    void readSummary(const QString &text) override { calls << QStringLiteral("readSummary(%1)").arg(text); }
    void createPodcast(const QString &text) override { calls << QStringLiteral("createPodcast(%1)").arg(text); }
    void showNoTextSelected(const QString &message) override
    {
        calls << QStringLiteral("showNoTextSelected(%1)").arg(message);
    }
    void togglePlayPause() override { calls << QStringLiteral("togglePlayPause"); }
    void stopReading() override { calls << QStringLiteral("stopReading"); }
    void adjustSpeed(bool increase) override { calls << QStringLiteral("adjustSpeed(%1)").arg(word(increase)); }
    void adjustSpeedFaster(bool increase) override
    {
        calls << QStringLiteral("adjustSpeedFaster(%1)").arg(word(increase));
    }
    void downloadAudio() override { calls << QStringLiteral("downloadAudio"); }
    void saveAudio() override { calls << QStringLiteral("saveAudio"); }
    void summarizeText() override { calls << QStringLiteral("summarizeText"); }
    void openLibrary() override { calls << QStringLiteral("openLibrary"); }
    void askQuestion() override { calls << QStringLiteral("askQuestion"); }
    void handleOnboardingAudioReplay() override { calls << QStringLiteral("handleOnboardingAudioReplay"); }

private:
    static QString word(bool value) { return value ? QStringLiteral("true") : QStringLiteral("false"); }
};

} // namespace parlino::test
