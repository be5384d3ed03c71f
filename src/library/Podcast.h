#pragma once

#include <QDateTime>
#include <QJsonObject>
#include <QString>
#include <QUrl>
#include <QUuid>

namespace parlino {

// One generated podcast. In the index the keys are the field names, the id is an upper-case UUID,
// generationDate an ISO 8601 string and audioURL an absolute file URL. podcastType is the style's
// raw value ("Deep Dive"); the styles themselves belong to the chat side.
struct Podcast {
    QUuid id;
    QString title;
    QString summary;
    QDateTime generationDate;
    double duration = 0;
    QUrl audioURL;
    QString sourceText;
    QString podcastType;
    int wordCount = 0;

    [[nodiscard]] QJsonObject toJson() const;
    // Throws LibraryError when a required key is missing or has the wrong type.
    [[nodiscard]] static Podcast fromJson(const QJsonObject &json);

    friend bool operator==(const Podcast &, const Podcast &) = default;
};

} // namespace parlino
