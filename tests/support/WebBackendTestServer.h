#pragma once

#include <QAbstractHttpServer>
#include <QByteArray>
#include <QHash>
#include <QJsonObject>
#include <QList>
#include <QString>

#include <optional>
#include <utility>

class QTcpSocket;

namespace parlino::test {

// A stand-in for Parlino's web backend on 127.0.0.1 (random port); point PARLINO_BACKEND_URL (or a
// service's base URL) at origin(). It answers as the backend does:
//
//   POST /api/account/fetch       401 without an "X-API-Key" header, 403 with another key than
//                                 apiKey(), 404 for an address it does not know, else 200 with
//                                 {"email", "current_month_characters", "plan"}
//   POST /api/email/usage-tracked 200 for a known address, 404 for an unknown one (no key needed)
//
// A fixed answer can replace either endpoint's (a server error, a body that is not JSON). Every
// request is recorded.
class WebBackendTestServer final : public QAbstractHttpServer {
    Q_OBJECT
public:
    struct Request {
        QString path;
        QHash<QByteArray, QByteArray> headers; // names in lower case
        QJsonObject json;

        [[nodiscard]] bool hasHeader(const QByteArray &name) const { return headers.contains(name.toLower()); }
        [[nodiscard]] QByteArray header(const QByteArray &name) const { return headers.value(name.toLower()); }
    };
    using FixedAnswer = std::pair<int, QByteArray>;

    explicit WebBackendTestServer(QObject *parent = nullptr);

    // http://127.0.0.1:PORT
    [[nodiscard]] QString origin() const;
    [[nodiscard]] static QByteArray apiKey() { return QByteArrayLiteral("test-backend-key"); }

    void addCustomer(const QString &email, qint64 currentMonthCharacters);
    void setAccountFetchAnswer(std::optional<FixedAnswer> answer) { m_fetchAnswer = std::move(answer); }
    void setUsageTrackedAnswer(std::optional<FixedAnswer> answer) { m_usageAnswer = std::move(answer); }

    [[nodiscard]] QList<Request> requests(const QString &path) const;
    void clearRequests() { m_requests.clear(); }

protected:
    bool handleRequest(const QHttpServerRequest &request, QTcpSocket *socket) override;
    void missingHandler(const QHttpServerRequest &request, QTcpSocket *socket) override;

private:
    [[nodiscard]] FixedAnswer answerAccountFetch(const Request &request) const;
    [[nodiscard]] FixedAnswer answerUsageTracked(const Request &request) const;
    static void send(QTcpSocket *socket, const FixedAnswer &answer);

    QList<Request> m_requests;
    QHash<QString, qint64> m_customers;
    std::optional<FixedAnswer> m_fetchAnswer;
    std::optional<FixedAnswer> m_usageAnswer;
    quint16 m_port = 0;
};

} // namespace parlino::test
