#pragma once

#include <QDateTime>
#include <QJsonObject>
#include <QMap>
#include <QString>
#include <QUuid>

#include <optional>

namespace parlino {

// One speech request as the usage account keeps it: what was read, by which provider, model and voice,
// for which feature, what it cost and how fast it came. Stored as JSON with these member names; dates are
// seconds since 2001-01-01 00:00 UTC, the reference date of the stored format.
struct TTSUsageLog {
    QUuid id = QUuid::createUuid();
    QDateTime timestamp;
    QString provider;
    QString modelName;
    QString voiceName;
    QString voiceTier;
    qint64 characterCount = 0;
    // The provider's price per 1000 characters, in cents.
    double costPerKChars = 0;
    QString feature;
    QString requestSource;
    QString platform = QStringLiteral("linux");
    std::optional<qint64> generationDurationMs;
    std::optional<qint64> timeToFirstByteMs;
    std::optional<qint64> audioDurationMs;
    std::optional<double> throughputCharsPerSec;
    std::optional<int> daysInPeriod;
    std::optional<QString> sessionId;
    std::optional<QMap<QString, QString>> metadata;

    // characters ÷ 1000 × costPerKChars.
    [[nodiscard]] double costCents() const { return static_cast<double>(characterCount) / 1000.0 * costPerKChars; }

    [[nodiscard]] QJsonObject toJson() const;
    // Nothing when a required member is missing or of the wrong type.
    [[nodiscard]] static std::optional<TTSUsageLog> fromJson(const QJsonObject &json);
};

} // namespace parlino
