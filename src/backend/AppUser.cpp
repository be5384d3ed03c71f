#include "backend/AppUser.h"

#include "backend/SupabaseError.h"
#include "core/ReferenceDate.h"

#include <QJsonArray>
#include <QJsonDocument>

namespace parlino {

namespace {

const QString kId = QStringLiteral("id");
const QString kDeviceId = QStringLiteral("device_id");
const QString kPlatform = QStringLiteral("platform");
const QString kCreatedAt = QStringLiteral("created_at");
const QString kLastSeenAt = QStringLiteral("last_seen_at");

QString missing(const QString &key)
{
    return QStringLiteral("No value associated with key \"%1\".").arg(key);
}

} // namespace

QString convertFromSnakeCase(const QString &key)
{
    qsizetype first = 0;
    while (first < key.size() && key[first] == u'_')
        ++first;
    if (first == key.size())
        return key;
    qsizetype last = key.size() - 1;
    while (last > first && key[last] == u'_')
        --last;
    const QStringList words = key.mid(first, last - first + 1).split(u'_', Qt::SkipEmptyParts);
    QString converted = key.left(first);
    for (qsizetype i = 0; i < words.size(); ++i) {
        if (i == 0)
            converted += words[i].toLower();
        else
            converted += words[i].left(1).toUpper() + words[i].mid(1).toLower();
    }
    return converted + key.mid(last + 1);
}

QJsonObject AppUser::toJson() const
{
    QJsonObject json{{kId, id.toString(QUuid::WithoutBraces).toUpper()},
                     {kDeviceId, deviceId},
                     {kPlatform, platform},
                     {kCreatedAt, referenceDateSeconds(createdAt)}};
    if (lastSeenAt)
        json.insert(kLastSeenAt, referenceDateSeconds(*lastSeenAt));
    return json;
}

std::optional<AppUser> AppUser::fromJson(const QJsonObject &json)
{
    const QUuid id = QUuid::fromString(json.value(kId).toString());
    if (id.isNull() || !json.value(kDeviceId).isString() || !json.value(kPlatform).isString()
        || !json.value(kCreatedAt).isDouble())
        return std::nullopt;
    AppUser user{id, json.value(kDeviceId).toString(), json.value(kPlatform).toString(),
                 fromReferenceDateSeconds(json.value(kCreatedAt).toDouble()), std::nullopt};
    if (json.value(kLastSeenAt).isDouble())
        user.lastSeenAt = fromReferenceDateSeconds(json.value(kLastSeenAt).toDouble());
    return user;
}

QList<AppUser> AppUser::decodeServerList(const QByteArray &body)
{
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(body, &parseError);
    if (parseError.error != QJsonParseError::NoError)
        throw SupabaseError::decoding(parseError.errorString());
    if (!document.isArray())
        throw SupabaseError::decoding(QStringLiteral("Expected a list of rows."));
    QList<AppUser> users;
    for (const QJsonValue &row : document.array()) {
        if (!row.isObject())
            throw SupabaseError::decoding(QStringLiteral("Expected a row object."));
        QJsonObject converted;
        const QJsonObject object = row.toObject();
        for (auto it = object.begin(); it != object.end(); ++it)
            converted.insert(convertFromSnakeCase(it.key()), it.value());

        const auto date = [&converted](const QString &key) -> std::optional<QDateTime> {
            const QJsonValue value = converted.value(key);
            if (value.isUndefined() || value.isNull())
                return std::nullopt;
            const QDateTime parsed = QDateTime::fromString(value.toString(), Qt::ISODateWithMs);
            if (!parsed.isValid())
                throw SupabaseError::decoding(QStringLiteral("Expected date string to be ISO8601-formatted."));
            return parsed;
        };
        AppUser user;
        if (!converted.contains(kId))
            throw SupabaseError::decoding(missing(kId));
        user.id = QUuid::fromString(converted.value(kId).toString());
        if (user.id.isNull())
            throw SupabaseError::decoding(QStringLiteral("Attempted to decode UUID from invalid UUID string."));
        if (!converted.value(kDeviceId).isString())
            throw SupabaseError::decoding(missing(kDeviceId));
        user.deviceId = converted.value(kDeviceId).toString();
        if (!converted.value(kPlatform).isString())
            throw SupabaseError::decoding(missing(kPlatform));
        user.platform = converted.value(kPlatform).toString();
        const std::optional<QDateTime> created = date(kCreatedAt);
        if (!created)
            throw SupabaseError::decoding(missing(kCreatedAt));
        user.createdAt = *created;
        user.lastSeenAt = date(kLastSeenAt);
        users.append(user);
    }
    return users;
}

} // namespace parlino
