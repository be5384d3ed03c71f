#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QList>
#include <QPair>
#include <QString>
#include <QUrl>
#include <qcoro/qcorotask.h>

#include <chrono>
#include <optional>

class QNetworkAccessManager;

// What the account sync and the activity notices share: the web backend's origin and its one kind of
// request, a JSON POST.
namespace parlino::WebBackend {

inline constexpr std::chrono::milliseconds requestTimeout{60000};

// PARLINO_BACKEND_URL when set (a staging backend, the test server), else the app's own backend.
[[nodiscard]] QString origin();
// origin + path, or nothing when that is no usable http(s) URL.
[[nodiscard]] std::optional<QUrl> endpoint(const QString &origin, const QString &path);

struct Answer {
    int statusCode = 0;
    QByteArray body;
};

// POSTs body as JSON with the extra headers; any HTTP answer comes back whatever its status. Throws
// NetworkError when no answer came (refused, dropped, timed out, refused by certificate pinning).
QCoro::Task<Answer> postJSON(QNetworkAccessManager &network, QUrl url, QJsonObject body,
                             QList<QPair<QByteArray, QByteArray>> headers, std::chrono::milliseconds timeout);

} // namespace parlino::WebBackend
