#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

#include <optional>

namespace parlino {

// The part of a chat-completions answer the app reads: choices[].message.content.
struct ChatCompletionResponse {
    struct Message {
        QString content;
    };
    struct Choice {
        Message message;
    };
    QList<Choice> choices;

    // Nothing when the body is not JSON of that shape; other members of the answer are ignored.
    [[nodiscard]] static std::optional<ChatCompletionResponse> decode(const QByteArray &json);
};

} // namespace parlino
