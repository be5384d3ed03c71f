#pragma once

#include "core/RateLimiter.h"

#include <QDBusConnection>
#include <QDBusContext>
#include <QDBusMessage>
#include <QObject>
#include <qcoro/qcorotask.h>

#include <chrono>
#include <functional>
#include <optional>

namespace parlino {

// The desktop's way into the read-aloud flows: com.parlino.Services on /com/parlino/Services of the
// running instance, with ReadAloud(s) and ReadSummary(s). A call with no text answers the D-Bus error
// "No text selected". Desktop shortcuts, file managers and `parlino --read-aloud` use it. CreatePodcast(s text,
// s type) answers when the podcast is made, with its title (`parlino podcast`). Any process on the session
// bus can call it, so calls beyond a rate limit are refused with an error rather than started.
class DBusServicesEndpoint final : public QObject, protected QDBusContext {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "com.parlino.Services")
public:
    static const QString objectPath;
    static const QString interfaceName;
    static const QString errorName;

    // Starts the flow for `method` ("ReadAloud" or "ReadSummary"); returns an error text or nothing.
    using Handler = std::function<QString(const QString &method, const QString &text)>;

    // Makes a podcast of text in the style named type (empty: the user's choice) and gives its title; throws
    // parlino::Error with the text the caller sees.
    using PodcastHandler = std::function<QCoro::Task<QString>(QString text, QString type)>;

    explicit DBusServicesEndpoint(Handler handler, QObject *parent = nullptr);
    void setPodcastHandler(PodcastHandler handler) { m_podcastHandler = std::move(handler); }
    // At most `limit` calls of any method within `window`; later ones get an error until the window
    // has passed. Without this call every call is served.
    void limitRate(int limit, std::chrono::milliseconds window, const Clock &clock);
    // The error text of a call refused by the rate limit.
    [[nodiscard]] QString rateLimitMessage() const;

    [[nodiscard]] bool registerOn(QDBusConnection bus);

    // Calls the running instance; false with `error` set (the service's own text when it answered).
    static bool call(const QString &method, const QString &text, QString *error,
                     const QDBusConnection &bus = QDBusConnection::sessionBus());
    // Like call(), but first starts this program in the background when no instance runs in the
    // session, and waits until it offers its services.
    static bool callStartingApp(const QString &method, const QString &text, QString *error);
    // CreatePodcast on the running instance (started when none runs); waits until the podcast is made and
    // sets `title`, else false with `error` set.
    static bool createPodcastStartingApp(const QString &text, const QString &type, QString *title, QString *error);

public Q_SLOTS:
    Q_SCRIPTABLE void ReadAloud(const QString &text);
    Q_SCRIPTABLE void ReadSummary(const QString &text);
    Q_SCRIPTABLE QString CreatePodcast(const QString &text, const QString &type);

private:
    // False (and the error sent) when the call is over the rate limit.
    bool admit();
    void dispatch(const QString &method, const QString &text);

    QCoro::Task<> answerPodcast(QDBusMessage call, QDBusConnection bus, QString text, QString type);

    Handler m_handler;
    PodcastHandler m_podcastHandler;
    std::optional<RateLimiter> m_rateLimit;
};

} // namespace parlino
