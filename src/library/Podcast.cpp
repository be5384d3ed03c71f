#include "library/Podcast.h"

#include "library/LibraryError.h"

namespace parlino {

namespace {

QJsonValue required(const QJsonObject &json, const QString &key, QJsonValue::Type type)
{
    const QJsonValue value = json.value(key);
    if (value.type() != type)
        throw LibraryError(QStringLiteral("A podcast entry has no valid \"%1\"").arg(key));
    return value;
}

} // namespace

QJsonObject Podcast::toJson() const
{
    return {
        {QStringLiteral("id"), id.toString(QUuid::WithoutBraces).toUpper()},
        {QStringLiteral("title"), title},
        {QStringLiteral("summary"), summary},
        {QStringLiteral("generationDate"), generationDate.toUTC().toString(Qt::ISODate)},
        {QStringLiteral("duration"), duration},
        {QStringLiteral("audioURL"), audioURL.toString(QUrl::FullyEncoded)},
        {QStringLiteral("sourceText"), sourceText},
        {QStringLiteral("podcastType"), podcastType},
        {QStringLiteral("wordCount"), wordCount},
    };
}

Podcast Podcast::fromJson(const QJsonObject &json)
{
    Podcast podcast;
    podcast.id = QUuid::fromString(required(json, QStringLiteral("id"), QJsonValue::String).toString());
    if (podcast.id.isNull())
        throw LibraryError(QStringLiteral("A podcast entry has no valid \"id\""));
    podcast.title = required(json, QStringLiteral("title"), QJsonValue::String).toString();
    podcast.summary = required(json, QStringLiteral("summary"), QJsonValue::String).toString();
    const QString date = required(json, QStringLiteral("generationDate"), QJsonValue::String).toString();
    podcast.generationDate = QDateTime::fromString(date, Qt::ISODateWithMs);
    if (!podcast.generationDate.isValid())
        throw LibraryError(QStringLiteral("A podcast entry has no valid \"generationDate\""));
    podcast.duration = required(json, QStringLiteral("duration"), QJsonValue::Double).toDouble();
    podcast.audioURL = QUrl(required(json, QStringLiteral("audioURL"), QJsonValue::String).toString());
    podcast.sourceText = required(json, QStringLiteral("sourceText"), QJsonValue::String).toString();
    podcast.podcastType = required(json, QStringLiteral("podcastType"), QJsonValue::String).toString();
    podcast.wordCount = required(json, QStringLiteral("wordCount"), QJsonValue::Double).toInt();
    return podcast;
}

} // namespace parlino
