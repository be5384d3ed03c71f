#pragma once

#include <QByteArray>
#include <QDate>
#include <QJsonObject>
#include <QList>
#include <QString>
#include <QStringList>

#include <optional>

namespace parlino {

class OpenAIError;

// What a model is for. Speech models are served by /audio/speech, realtime speech models only by the
// Realtime API's WebSocket.
enum class ModelRole { speech, realtimeSpeech, chat, transcription };

// A model the app knows by name.
struct KnownModel {
    QString name;
    ModelRole role = ModelRole::chat;
    // The day OpenAI has announced it stops serving the model; null when none is announced.
    QDate shutdownDate;
    // What takes over once the service refuses the model; empty when nothing does. Its role is the
    // successor's own entry's (tts-1 is followed by a realtime speech model).
    QString successor;
};

// How a chat-completions request for a model is shaped: older models take "max_tokens", newer ones
// refuse it and take "max_completion_tokens"; reasoning models refuse any temperature but their default.
struct ChatRequestShape {
    QString tokenLimitMember;
    bool sendsTemperature = true;
    // "reasoning_effort" to send, empty to send none.
    QString reasoningEffort;

    friend bool operator==(const ChatRequestShape &, const ChatRequestShape &) = default;
};

// The models Parlino knows: what each is for, when it shuts down, what follows it, and how chat
// requests for it are shaped. Also tells a refusal because a model is retired from other refusals.
class ModelCatalogue final {
public:
    ModelCatalogue() = delete;

    [[nodiscard]] static const QList<KnownModel> &models();
    // The names of the models for role, in catalogue order (the setting's default first).
    [[nodiscard]] static QStringList names(ModelRole role);
    [[nodiscard]] static std::optional<KnownModel> find(const QString &name);
    [[nodiscard]] static bool isKnown(const QString &name, ModelRole role);
    // The entry of the model that follows name, or nothing when none does.
    [[nodiscard]] static std::optional<KnownModel> successorOf(const QString &name);

    // A model the catalogue does not know gets the current shape (max_completion_tokens, temperature).
    [[nodiscard]] static ChatRequestShape chatRequestShape(const QString &model);

    // An HTTP answer that refuses a request because its model is retired: 404 with the code
    // "model_not_found", or any 4xx whose message says the model is deprecated, shut down, no longer
    // available or retired. body is OpenAI's {"error": {...}} object; any other body is read as text.
    [[nodiscard]] static bool isRetirementError(int status, const QByteArray &body);
    // The same for a refusal already raised as an OpenAIError.
    [[nodiscard]] static bool isRetirementError(const OpenAIError &error);
    // The same for the Realtime API's "error" server event: the event itself or its "error" member
    // ({"type", "code", "message", "param"}).
    [[nodiscard]] static bool isRealtimeRetirementError(const QJsonObject &event);

    // "speech", "realtime speech", "chat", "transcription", for log lines and messages.
    [[nodiscard]] static QString roleName(ModelRole role);
};

} // namespace parlino
