#pragma once

#include "PostgresCluster.h"

#include <QAbstractHttpServer>
#include <QByteArray>
#include <QHash>
#include <QJsonArray>
#include <QList>
#include <QPointer>
#include <QString>

struct pg_conn;

namespace parlino::test {

// A stand-in for a Supabase project's REST interface on 127.0.0.1 (random port), backed by a real
// PostgreSQL from a throw-away cluster with docs/backend/schema.sql applied. It answers the subset of
// PostgREST that Parlino uses, the way PostgREST does:
//
//   GET    /rest/v1/<table>?<column>=eq.<value>&select=<columns>   200, a JSON list of rows
//   POST   /rest/v1/<table>      a JSON object or list of objects   201, no body
//   PATCH  /rest/v1/<table>?<column>=eq.<value>   a JSON object      204, no body
//
// The query string is decoded as PostgREST's server decodes it ("+" is a space, %XX a byte). Every
// request needs the key as "apikey" and as "Authorization: Bearer"; bodies need
// "Content-Type: application/json". Statements run as the role "anon", so the schema's grants and
// row-level security apply. Errors carry PostgREST's body {"code", "details", "hint", "message"} and
// its status codes (400 for bad filters and columns, 401 for keys and privileges, 404 for unknown
// tables, 409 for conflicts, 415 for other media types).
class PostgrestTestServer final : public QAbstractHttpServer {
    Q_OBJECT
public:
    struct Request {
        QByteArray method;
        QString path;
        QByteArray query;                      // the raw query string, as sent
        QHash<QByteArray, QByteArray> headers; // names in lower case
        QByteArray body;

        [[nodiscard]] QByteArray header(const QByteArray &name) const { return headers.value(name.toLower()); }
    };

    static inline const QString apiKey = QStringLiteral("parlino-test-anon-key");

    explicit PostgrestTestServer(QObject *parent = nullptr);
    ~PostgrestTestServer() override;

    // True when the cluster runs, the schema is applied and the server listens.
    [[nodiscard]] bool isReady() const { return m_ready; }
    [[nodiscard]] const QString &failure() const { return m_failure; }
    // http://127.0.0.1:PORT (the project URL, without a path)
    [[nodiscard]] QString baseUrl() const;

    [[nodiscard]] QList<Request> requests() const { return m_requests; }
    void clearRequests() { m_requests.clear(); }

    // Every request is answered with this status and PostgREST's body for it (503: the database is
    // unreachable); 0 answers normally.
    void setFailureStatus(int status) { m_failureStatus = status; }
    // Requests are read and recorded but never answered while stalled.
    void setStalled(bool stalled) { m_stalled = stalled; }

    // Runs SQL as the superuser, outside row-level security: the rows as JSON objects (for checking
    // what arrived) or nothing for statements. A failing statement fails the test with its message.
    [[nodiscard]] QJsonArray rows(const QString &sql);
    void execute(const QString &sql);
    [[nodiscard]] int rowCount(const QString &table);

    // docs/backend/schema.sql in the source tree.
    [[nodiscard]] static QString schemaFile();

protected:
    bool handleRequest(const QHttpServerRequest &request, QTcpSocket *socket) override;
    void missingHandler(const QHttpServerRequest &request, QTcpSocket *socket) override;

private:
    struct Answer {
        int status = 200;
        QByteArray body;
    };

    Answer answer(const Request &request);
    // Runs one parameterised statement as "anon" in its own transaction; the first column of the first
    // row, or PostgREST's error answer.
    Answer runAsAnon(const QByteArray &sql, const QList<QByteArray> &parameters, int successStatus);
    [[nodiscard]] QStringList columnsOf(const QString &table);
    static Answer error(int status, const QString &code, const QString &message, const QString &details = {},
                        const QString &hint = {});
    static void send(QTcpSocket *socket, const Answer &answer);

    PostgresCluster m_cluster;
    pg_conn *m_connection = nullptr;
    bool m_ready = false;
    QString m_failure;
    quint16 m_port = 0;
    QList<Request> m_requests;
    int m_failureStatus = 0;
    bool m_stalled = false;
    QList<QPointer<QTcpSocket>> m_stalledSockets;
};

} // namespace parlino::test
