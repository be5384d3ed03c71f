#include "library/SavedAudio.h"

#include "core/ReferenceDate.h"
#include "library/LibraryError.h"

namespace parlino {

namespace {

QJsonValue required(const QJsonObject &json, const QString &key, QJsonValue::Type type)
{
    const QJsonValue value = json.value(key);
    if (value.type() != type)
        throw LibraryError(QStringLiteral("A saved audio entry has no valid \"%1\"").arg(key));
    return value;
}

} // namespace

QString SavedAudio::formattedDuration() const
{
    const int seconds = static_cast<int>(duration);
    return QStringLiteral("%1:%2").arg(seconds / 60).arg(seconds % 60, 2, 10, QLatin1Char('0'));
}

QJsonObject SavedAudio::toJson() const
{
    QJsonObject json{
        {QStringLiteral("id"), id.toString(QUuid::WithoutBraces).toUpper()},
        {QStringLiteral("title"), title},
        {QStringLiteral("audioURL"), audioURL.toString(QUrl::FullyEncoded)},
        {QStringLiteral("sourceText"), sourceText},
        {QStringLiteral("createdDate"), referenceDateSeconds(createdDate)},
        {QStringLiteral("duration"), duration},
        {QStringLiteral("wordCount"), wordCount},
    };
    if (notes)
        json.insert(QStringLiteral("notes"), *notes);
    return json;
}

SavedAudio SavedAudio::fromJson(const QJsonObject &json)
{
    SavedAudio item;
    item.id = QUuid::fromString(required(json, QStringLiteral("id"), QJsonValue::String).toString());
    if (item.id.isNull())
        throw LibraryError(QStringLiteral("A saved audio entry has no valid \"id\""));
    item.title = required(json, QStringLiteral("title"), QJsonValue::String).toString();
    item.audioURL = QUrl(required(json, QStringLiteral("audioURL"), QJsonValue::String).toString());
    item.sourceText = required(json, QStringLiteral("sourceText"), QJsonValue::String).toString();
    const double created = required(json, QStringLiteral("createdDate"), QJsonValue::Double).toDouble();
    item.createdDate = fromReferenceDateSeconds(created);
    if (json.value(QStringLiteral("notes")).isString())
        item.notes = json.value(QStringLiteral("notes")).toString();
    item.duration = required(json, QStringLiteral("duration"), QJsonValue::Double).toDouble();
    item.wordCount = required(json, QStringLiteral("wordCount"), QJsonValue::Double).toInt();
    return item;
}

} // namespace parlino
