#pragma once

#include <QString>

// Every key the app keeps in the settings file, in one place, so a key is spelled once and a reader
// can see at a glance what the file holds.
namespace parlino::SettingsKeys {

// First start and onboarding.
inline const QString onboardingCompleted = QStringLiteral("onboardingCompleted");
inline const QString hasLaunchedBefore = QStringLiteral("hasLaunchedBefore");
inline const QString hasViewedOnboarding = QStringLiteral("hasViewedOnboarding");

// The user's choices.
inline const QString defaultVoice = QStringLiteral("defaultVoice");
inline const QString defaultSpeed = QStringLiteral("defaultSpeed");
// The style of the next podcast, by its display name ("Deep Dive").
inline const QString podcastType = QStringLiteral("podcastType");
inline const QString downloadLocation = QStringLiteral("downloadLocationBookmark");
// "Start speaking before the whole text is ready" (true when absent).
inline const QString streamSpeech = QStringLiteral("streamSpeech");
// "light", "dark" or "system" (the desktop's own, when absent).
inline const QString appearanceMode = QStringLiteral("appearanceMode");
// The longest text Parlino reads, in characters (100 000 when absent or not a positive number).
inline const QString maxTextLength = QStringLiteral("maxTextLength");
inline const QString customKeyboardShortcuts = QStringLiteral("customKeyboardShortcuts");
// Where a shortcuts value that could not be read is kept, so a bad edit loses nothing.
inline const QString customKeyboardShortcutsUnreadable = QStringLiteral("customKeyboardShortcutsUnreadable");

// Which service speaks ("openai-speech" | "openai-realtime" | "offline") and the model of each use; read
// through backend/ModelSettings, which falls back to the defaults for values it does not know.
inline const QString speechProvider = QStringLiteral("speechProvider");
inline const QString speechModel = QStringLiteral("speechModel");
inline const QString realtimeSpeechModel = QStringLiteral("realtimeSpeechModel");
inline const QString chatModel = QStringLiteral("chatModel");
inline const QString transcriptionModel = QStringLiteral("transcriptionModel");
// The eSpeak NG voice of the offline voice: a language ("en-us", "de"), optionally with a variant ("de+f3").
inline const QString offlineVoice = QStringLiteral("offlineVoice");
// Which engine hears spoken questions: "openai" (the transcription service) or "offline" (PocketSphinx);
// absent: the service when a key is configured, else the offline engine.
inline const QString questionRecognizer = QStringLiteral("questionRecognizer");

// The OpenAI key, as the last place the key lookup tries (also the keyring item's account name).
inline const QString openAIAPIKey = QStringLiteral("openai_api_key");

// Account and backend.
inline const QString userEmail = QStringLiteral("userEmail");
// The web backend's count of the linked account's characters this month, as its last sync told it.
inline const QString accountMonthCharacters = QStringLiteral("accountCurrentMonthCharacters");
// The backend's device identifier; the older spelling "deviceId" is app data that a reset removes.
inline const QString deviceID = QStringLiteral("deviceID");
inline const QString legacyDeviceId = QStringLiteral("deviceId");
// The device's app_users row as last fetched (JSON).
inline const QString cachedUserProfile = QStringLiteral("cachedUserProfile");
// The sync engine's three queues of events still to send and its counters (JSON).
inline const QString syncHighPriorityQueue = QStringLiteral("syncEngine_highPriorityQueue");
inline const QString syncMediumPriorityQueue = QStringLiteral("syncEngine_mediumPriorityQueue");
inline const QString syncLowPriorityQueue = QStringLiteral("syncEngine_lowPriorityQueue");
inline const QString syncStatistics = QStringLiteral("syncEngine_statistics");

// The usage account: this month's speech requests, those not yet sent, the month's statistics (JSON).
inline const QString usageLogs = QStringLiteral("ttsUsageLogs");
inline const QString pendingUsageLogs = QStringLiteral("pendingTTSUsageLogs");
inline const QString monthlyUsageStats = QStringLiteral("monthlyUsageStats");
inline const QString lastUsageSync = QStringLiteral("lastUsageSync");

// Listening figures.
inline const QString totalListeningTime = QStringLiteral("totalListeningTime");
inline const QString playbackSpeedSum = QStringLiteral("playbackSpeedSum");
inline const QString playbackSpeedCount = QStringLiteral("playbackSpeedCount");

// Not a setting anyone edits: the floating player's last size, so it opens as the user left it.
inline const QString floatingPlayerSize = QStringLiteral("floatingPlayerSize");

} // namespace parlino::SettingsKeys
