#pragma once

#include <QString>
#include <QUrl>
#include <QtGlobal>

#include <chrono>
#include <optional>

class QNetworkReply;
class QNetworkRequest;

namespace parlino {

class NetworkError;

// The rules every HTTP request of the app follows, whichever service it goes to: plain http only to
// this computer, redirects only within the origin that was asked (so a key never travels to another
// host), an overall deadline besides Qt's idle time-out (a server that drips a byte now and then never
// lets that one end), and a cap on the answer's size, checked as it arrives.
class RequestPolicy final {
public:
    struct Limits {
        std::chrono::milliseconds deadline;
        qint64 maxBodyBytes;
    };
    static constexpr qint64 maxJSONBytes = qint64(4) * 1024 * 1024;
    // Speech for 4096 characters is minutes of MP3: a few MB, far below this.
    static constexpr qint64 maxAudioBytes = qint64(32) * 1024 * 1024;
    // Model lists, database rows, account calls.
    static constexpr Limits smallJSON{std::chrono::seconds(30), maxJSONBytes};
    // Chat answers and uploads: a model may think for a while, the answer is still JSON.
    static constexpr Limits longJSON{std::chrono::seconds(120), maxJSONBytes};
    static constexpr Limits audio{std::chrono::seconds(120), maxAudioBytes};

    RequestPolicy() = delete;

    // 127.0.0.0/8, ::1 and "localhost".
    [[nodiscard]] static bool isLoopback(const QUrl &url);
    // Same scheme, host and port (a missing port counts as the scheme's own).
    [[nodiscard]] static bool isSameOrigin(const QUrl &a, const QUrl &b);
    // Why url may not be asked, or nothing: https and wss anywhere, http and ws only to a loopback host.
    [[nodiscard]] static std::optional<QString> refusalOf(const QUrl &url);
    // Throws NetworkError when refusalOf(url) says no; called before anything is sent.
    static void checkURL(const QUrl &url);
    // Lets the guard decide about each redirect before it is followed.
    static void prepare(QNetworkRequest &request);
    // Watches reply until it finishes: a redirect to another origin, the deadline passing or a body
    // over the cap aborts it, and failureOf() then says why.
    static void guard(QNetworkReply &reply, Limits limits);
    // Why the guard ended reply, or nothing when it did not.
    [[nodiscard]] static std::optional<NetworkError> failureOf(const QNetworkReply &reply);
    // 48000 as "48 000", for messages about sizes.
    [[nodiscard]] static QString groupedNumber(qint64 number);
};

} // namespace parlino
