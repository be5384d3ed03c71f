#include "usage/TTSUsageLog.h"

#include "core/ReferenceDate.h"

#include <QJsonValue>

namespace parlino {

namespace {

template <typename T> void insertOptional(QJsonObject &json, const QString &key, const std::optional<T> &value)
{
    if (value)
        json.insert(key, *value);
}

std::optional<qint64> optionalInteger(const QJsonObject &json, const QString &key)
{
    const QJsonValue value = json.value(key);
    return value.isDouble() ? std::optional<qint64>(value.toInteger()) : std::nullopt;
}

} // namespace

QJsonObject TTSUsageLog::toJson() const
{
    QJsonObject json{{QStringLiteral("id"), id.toString(QUuid::WithoutBraces).toUpper()},
                     {QStringLiteral("timestamp"), referenceDateSeconds(timestamp)},
                     {QStringLiteral("provider"), provider},
                     {QStringLiteral("modelName"), modelName},
                     {QStringLiteral("voiceName"), voiceName},
                     {QStringLiteral("voiceTier"), voiceTier},
                     {QStringLiteral("characterCount"), characterCount},
                     {QStringLiteral("costPerKChars"), costPerKChars},
                     {QStringLiteral("feature"), feature},
                     {QStringLiteral("requestSource"), requestSource},
                     {QStringLiteral("platform"), platform}};
    insertOptional(json, QStringLiteral("generationDurationMs"), generationDurationMs);
    insertOptional(json, QStringLiteral("timeToFirstByteMs"), timeToFirstByteMs);
    insertOptional(json, QStringLiteral("audioDurationMs"), audioDurationMs);
    insertOptional(json, QStringLiteral("throughputCharsPerSec"), throughputCharsPerSec);
    insertOptional(json, QStringLiteral("daysInPeriod"), daysInPeriod);
    insertOptional(json, QStringLiteral("sessionId"), sessionId);
    if (metadata) {
        QJsonObject extra;
        for (auto it = metadata->cbegin(); it != metadata->cend(); ++it)
            extra.insert(it.key(), it.value());
        json.insert(QStringLiteral("metadata"), extra);
    }
    return json;
}

std::optional<TTSUsageLog> TTSUsageLog::fromJson(const QJsonObject &json)
{
    const QUuid id = QUuid::fromString(json.value(u"id").toString());
    const QJsonValue timestamp = json.value(u"timestamp");
    const QJsonValue characters = json.value(u"characterCount");
    // A count that is negative or not a whole number within qint64 is damage, not usage.
    if (id.isNull() || !timestamp.isDouble() || !characters.isDouble() || characters.toInteger(-1) < 0)
        return std::nullopt;
    for (const char16_t *key :
         {u"provider", u"modelName", u"voiceName", u"voiceTier", u"feature", u"requestSource", u"platform"}) {
        if (!json.value(QStringView(key)).isString())
            return std::nullopt;
    }
    TTSUsageLog log;
    log.id = id;
    log.timestamp = fromReferenceDateSeconds(timestamp.toDouble());
    log.provider = json.value(u"provider").toString();
    log.modelName = json.value(u"modelName").toString();
    log.voiceName = json.value(u"voiceName").toString();
    log.voiceTier = json.value(u"voiceTier").toString();
    log.characterCount = characters.toInteger();
    log.costPerKChars = json.value(u"costPerKChars").toDouble();
    log.feature = json.value(u"feature").toString();
    log.requestSource = json.value(u"requestSource").toString();
    log.platform = json.value(u"platform").toString();
    log.generationDurationMs = optionalInteger(json, QStringLiteral("generationDurationMs"));
    log.timeToFirstByteMs = optionalInteger(json, QStringLiteral("timeToFirstByteMs"));
    log.audioDurationMs = optionalInteger(json, QStringLiteral("audioDurationMs"));
    if (const QJsonValue value = json.value(u"throughputCharsPerSec"); value.isDouble())
        log.throughputCharsPerSec = value.toDouble();
    if (const auto days = optionalInteger(json, QStringLiteral("daysInPeriod")))
        log.daysInPeriod = static_cast<int>(*days);
    if (const QJsonValue value = json.value(u"sessionId"); value.isString())
        log.sessionId = value.toString();
    if (const QJsonValue value = json.value(u"metadata"); value.isObject()) {
        QMap<QString, QString> extra;
        const QJsonObject object = value.toObject();
        for (auto it = object.constBegin(); it != object.constEnd(); ++it)
            extra.insert(it.key(), it.value().toString());
        log.metadata = extra;
    }
    return log;
}

} // namespace parlino
