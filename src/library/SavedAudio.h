#pragma once

#include <QDateTime>
#include <QJsonObject>
#include <QString>
#include <QUrl>
#include <QUuid>

#include <optional>

namespace parlino {

// One item of the saved-audio library. In the index the keys are the field names, the id is an
// upper-case UUID, audioURL an absolute file URL and createdDate seconds since 1 January 2001 (UTC).
struct SavedAudio {
    QUuid id;
    QString title;
    QUrl audioURL;
    QString sourceText;
    QDateTime createdDate;
    std::optional<QString> notes;
    double duration = 0;
    int wordCount = 0;

    // "m:ss" of the duration.
    [[nodiscard]] QString formattedDuration() const;

    [[nodiscard]] QJsonObject toJson() const;
    // Throws LibraryError when a required key is missing or has the wrong type.
    [[nodiscard]] static SavedAudio fromJson(const QJsonObject &json);

    friend bool operator==(const SavedAudio &, const SavedAudio &) = default;
};

} // namespace parlino
