#pragma once

#include <QDateTime>
#include <QString>
#include <QUuid>

#include <optional>

namespace parlino {

enum class MessageRole { user, assistant, system };

[[nodiscard]] inline QString rawValue(MessageRole role)
{
    switch (role) {
    case MessageRole::user: return QStringLiteral("user");
    case MessageRole::assistant: return QStringLiteral("assistant");
    case MessageRole::system: return QStringLiteral("system");
    }
    return {};
}

[[nodiscard]] inline std::optional<MessageRole> messageRoleFromRawValue(const QString &raw)
{
    for (MessageRole role : {MessageRole::user, MessageRole::assistant, MessageRole::system}) {
        if (rawValue(role) == raw)
            return role;
    }
    return std::nullopt;
}

// One turn of the question-and-answer conversation about the text being read.
struct AIMessage {
    QUuid id = QUuid::createUuid();
    MessageRole role = MessageRole::user;
    QString content;
    QDateTime timestamp = QDateTime::currentDateTimeUtc();

    friend bool operator==(const AIMessage &, const AIMessage &) = default;
};

} // namespace parlino
