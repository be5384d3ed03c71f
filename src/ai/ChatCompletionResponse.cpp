#include "ai/ChatCompletionResponse.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace parlino {

std::optional<ChatCompletionResponse> ChatCompletionResponse::decode(const QByteArray &json)
{
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(json, &parseError);
    if (parseError.error != QJsonParseError::NoError || !document.isObject())
        return std::nullopt;
    const QJsonValue choices = document.object().value(u"choices");
    if (!choices.isArray())
        return std::nullopt;

    ChatCompletionResponse response;
    for (const QJsonValueConstRef choice : choices.toArray()) {
        const QJsonValue content = choice.toObject().value(u"message").toObject().value(u"content");
        if (!content.isString())
            return std::nullopt;
        response.choices.append(Choice{Message{content.toString()}});
    }
    return response;
}

} // namespace parlino
