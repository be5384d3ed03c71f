#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QJsonObject>
#include <QList>
#include <QString>
#include <QUuid>

#include <optional>

namespace parlino {

// The device's row of the app_users table.
struct AppUser {
    QUuid id;
    QString deviceId;
    QString platform;
    QDateTime createdAt;
    std::optional<QDateTime> lastSeenAt;

    // The stored form (the "cachedUserProfile" value): the column names as keys, dates as seconds
    // since the 2001 reference date.
    [[nodiscard]] QJsonObject toJson() const;
    [[nodiscard]] static std::optional<AppUser> fromJson(const QJsonObject &json);

    // Reads the server's list of rows the way the profile fetch always has: every member name is first
    // converted from snake case to camel case ("device_id" becomes "deviceId") and then looked up under
    // the column names, so a row that carries "device_id" or "created_at" does not decode. Throws
    // SupabaseError (decoding) with the reason; dates are ISO 8601.
    [[nodiscard]] static QList<AppUser> decodeServerList(const QByteArray &body);

    friend bool operator==(const AppUser &, const AppUser &) = default;
};

// "device_id" → "deviceId"; leading and trailing underscores stay as they are.
[[nodiscard]] QString convertFromSnakeCase(const QString &key);

} // namespace parlino
