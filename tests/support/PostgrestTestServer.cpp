#include "PostgrestTestServer.h"

#include <QFile>
#include <QHttpServerRequest>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QTcpSocket>
#include <QTest>

#include <libpq-fe.h>

namespace parlino::test {

namespace {

QByteArray reasonPhrase(int status)
{
    switch (status) {
    case 200: return "OK";
    case 201: return "Created";
    case 204: return "No Content";
    case 400: return "Bad Request";
    case 401: return "Unauthorized";
    case 403: return "Forbidden";
    case 404: return "Not Found";
    case 405: return "Method Not Allowed";
    case 409: return "Conflict";
    case 415: return "Unsupported Media Type";
    case 500: return "Internal Server Error";
    case 503: return "Service Unavailable";
    default: return "Status";
    }
}

QByteArray methodName(QHttpServerRequest::Method method)
{
    switch (method) {
    case QHttpServerRequest::Method::Get: return "GET";
    case QHttpServerRequest::Method::Post: return "POST";
    case QHttpServerRequest::Method::Patch: return "PATCH";
    case QHttpServerRequest::Method::Put: return "PUT";
    case QHttpServerRequest::Method::Delete: return "DELETE";
    default: return "OTHER";
    }
}

// The query-string decoding of PostgREST's web server: "+" is a space, then %XX escapes.
QString decodeQueryPart(QByteArray part)
{
    part.replace('+', ' ');
    return QString::fromUtf8(QByteArray::fromPercentEncoding(part));
}

bool isIdentifier(const QString &name)
{
    static const QRegularExpression pattern(QStringLiteral("^[a-z_][a-z0-9_]*$"));
    return pattern.match(name).hasMatch();
}

QByteArray quoted(const QString &identifier)
{
    return '"' + identifier.toUtf8() + '"';
}

// PostgREST's status for a PostgreSQL error, by SQLSTATE.
int statusForSqlState(const QString &state)
{
    if (state == u"42501")
        return 401; // insufficient privilege for the anonymous role
    if (state == u"23505" || state == u"23503")
        return 409;
    if (state == u"42P01")
        return 404;
    if (state.startsWith(u"22") || state.startsWith(u"23") || state == u"42703" || state == u"42883")
        return 400;
    return 500;
}

} // namespace

QString PostgrestTestServer::schemaFile()
{
    return QStringLiteral(PARLINO_SOURCE_DIR "/docs/backend/schema.sql");
}

PostgrestTestServer::PostgrestTestServer(QObject *parent)
    : QAbstractHttpServer(parent)
{
    if (!m_cluster.isRunning()) {
        m_failure = m_cluster.failure();
        return;
    }
    m_connection = PQconnectdb(m_cluster.connectionString().toUtf8().constData());
    if (PQstatus(m_connection) != CONNECTION_OK) {
        m_failure =
            QStringLiteral("could not connect to the cluster: ") + QString::fromUtf8(PQerrorMessage(m_connection));
        return;
    }
    QFile schema(schemaFile());
    if (!schema.open(QIODevice::ReadOnly)) {
        m_failure = QStringLiteral("could not read ") + schemaFile();
        return;
    }
    // The roles every Supabase project has, which the schema grants to.
    const QByteArray setup =
        "set client_min_messages = warning; create role anon nologin; create role authenticated nologin;\n"
        + schema.readAll();
    PGresult *result = PQexec(m_connection, setup.constData());
    const bool applied = PQresultStatus(result) == PGRES_COMMAND_OK || PQresultStatus(result) == PGRES_TUPLES_OK;
    if (!applied)
        m_failure = QStringLiteral("the schema failed: ") + QString::fromUtf8(PQresultErrorMessage(result));
    PQclear(result);
    if (!applied)
        return;
    m_port = listen(QHostAddress::LocalHost, 0);
    if (m_port == 0) {
        m_failure = QStringLiteral("could not listen on 127.0.0.1");
        return;
    }
    m_ready = true;
}

PostgrestTestServer::~PostgrestTestServer()
{
    if (m_connection)
        PQfinish(m_connection);
}

QString PostgrestTestServer::baseUrl() const
{
    return QStringLiteral("http://127.0.0.1:%1").arg(m_port);
}

QJsonArray PostgrestTestServer::rows(const QString &sql)
{
    const QByteArray wrapped = "select coalesce(json_agg(t), '[]'::json)::text from (" + sql.toUtf8() + ") t";
    PGresult *result = PQexec(m_connection, wrapped.constData());
    QJsonArray array;
    if (PQresultStatus(result) == PGRES_TUPLES_OK)
        array = QJsonDocument::fromJson(PQgetvalue(result, 0, 0)).array();
    else
        QTest::qFail(PQresultErrorMessage(result), __FILE__, __LINE__);
    PQclear(result);
    return array;
}

void PostgrestTestServer::execute(const QString &sql)
{
    PGresult *result = PQexec(m_connection, sql.toUtf8().constData());
    if (PQresultStatus(result) != PGRES_COMMAND_OK && PQresultStatus(result) != PGRES_TUPLES_OK)
        QTest::qFail(PQresultErrorMessage(result), __FILE__, __LINE__);
    PQclear(result);
}

int PostgrestTestServer::rowCount(const QString &table)
{
    const QJsonArray counted = rows(QStringLiteral("select count(*) as n from public.") + table);
    return counted.isEmpty() ? -1 : counted.first().toObject().value(QStringLiteral("n")).toInt();
}

QStringList PostgrestTestServer::columnsOf(const QString &table)
{
    const QByteArray name = table.toUtf8();
    const char *values[] = {name.constData()};
    PGresult *result = PQexecParams(m_connection,
                                    "select column_name from information_schema.columns "
                                    "where table_schema = 'public' and table_name = $1 order by ordinal_position",
                                    1, nullptr, values, nullptr, nullptr, 0);
    QStringList columns;
    if (PQresultStatus(result) == PGRES_TUPLES_OK) {
        for (int row = 0; row < PQntuples(result); ++row)
            columns.append(QString::fromUtf8(PQgetvalue(result, row, 0)));
    }
    PQclear(result);
    return columns;
}

PostgrestTestServer::Answer PostgrestTestServer::error(int status, const QString &code, const QString &message,
                                                       const QString &details, const QString &hint)
{
    const auto orNull = [](const QString &text) { return text.isEmpty() ? QJsonValue() : QJsonValue(text); };
    const QJsonObject body{{QStringLiteral("code"), code},
                           {QStringLiteral("details"), orNull(details)},
                           {QStringLiteral("hint"), orNull(hint)},
                           {QStringLiteral("message"), message}};
    return {status, QJsonDocument(body).toJson(QJsonDocument::Compact)};
}

PostgrestTestServer::Answer PostgrestTestServer::runAsAnon(const QByteArray &sql, const QList<QByteArray> &parameters,
                                                           int successStatus)
{
    PQclear(PQexec(m_connection, "begin; set local role anon;"));
    QList<const char *> values;
    for (const QByteArray &parameter : parameters)
        values.append(parameter.constData());
    PGresult *result = PQexecParams(m_connection, sql.constData(), static_cast<int>(values.size()), nullptr,
                                    values.constData(), nullptr, nullptr, 0);
    Answer answer;
    const ExecStatusType status = PQresultStatus(result);
    if (status == PGRES_TUPLES_OK || status == PGRES_COMMAND_OK) {
        answer.status = successStatus;
        if (status == PGRES_TUPLES_OK && PQntuples(result) > 0)
            answer.body = PQgetvalue(result, 0, 0);
        PQclear(PQexec(m_connection, "commit"));
    } else {
        const QString state = QString::fromUtf8(PQresultErrorField(result, PG_DIAG_SQLSTATE));
        const auto field = [result](int code) {
            const char *text = PQresultErrorField(result, code);
            return text ? QString::fromUtf8(text) : QString();
        };
        answer = error(statusForSqlState(state), state, field(PG_DIAG_MESSAGE_PRIMARY), field(PG_DIAG_MESSAGE_DETAIL),
                       field(PG_DIAG_MESSAGE_HINT));
        PQclear(PQexec(m_connection, "rollback"));
    }
    PQclear(result);
    return answer;
}

PostgrestTestServer::Answer PostgrestTestServer::answer(const Request &request)
{
    if (m_failureStatus == 503)
        return error(503, QStringLiteral("PGRST001"), QStringLiteral("Database client error. Retrying the connection."),
                     QStringLiteral("connection to server failed: Connection refused"));
    if (m_failureStatus != 0)
        return error(m_failureStatus, QStringLiteral("PGRST000"), QStringLiteral("Failure switched on by the test"));

    const QString prefix = QStringLiteral("/rest/v1/");
    if (!request.path.startsWith(prefix))
        return error(404, QStringLiteral("PGRST125"), QStringLiteral("Invalid path specified in request URL"));
    if (request.header("apikey").isEmpty())
        return {
            401,
            R"({"message":"No API key found in request","hint":"No `apikey` request header or url param was found."})"};
    if (request.header("apikey") != apiKey.toUtf8())
        return {
            401,
            R"({"message":"Invalid API key","hint":"Double check your Supabase `anon` or `service_role` API key."})"};
    if (request.header("authorization") != "Bearer " + apiKey.toUtf8())
        return error(401, QStringLiteral("PGRST301"), QStringLiteral("JWSError JWSInvalidSignature"));

    const QString table = request.path.mid(prefix.size());
    const QStringList columns = isIdentifier(table) ? columnsOf(table) : QStringList();
    if (columns.isEmpty())
        return error(404, QStringLiteral("42P01"), QStringLiteral("relation \"public.%1\" does not exist").arg(table));

    // The query string: filters "column=eq.value" and "select=a,b".
    QStringList selected;
    QList<QPair<QString, QString>> filters;
    for (const QByteArray &part : request.query.split('&')) {
        if (part.isEmpty())
            continue;
        const qsizetype equals = part.indexOf('=');
        const QString key = decodeQueryPart(part.left(equals));
        const QString value = equals < 0 ? QString() : decodeQueryPart(part.mid(equals + 1));
        if (key == u"select") {
            selected = value.split(u',', Qt::SkipEmptyParts);
            continue;
        }
        if (!value.startsWith(u"eq."))
            return error(400, QStringLiteral("PGRST100"), QStringLiteral("\"failed to parse filter (%1)\"").arg(value),
                         QStringLiteral("unexpected \"%1\" expecting operator").arg(value.left(1)));
        filters.append({key, value.mid(3)});
    }
    for (const QString &column : selected + [&filters] {
             QStringList names;
             for (const auto &filter : filters)
                 names.append(filter.first);
             return names;
         }()) {
        if (!isIdentifier(column) || !columns.contains(column))
            return error(400, QStringLiteral("42703"),
                         QStringLiteral("column %1.%2 does not exist").arg(table, column));
    }

    QList<QByteArray> parameters;
    QByteArray where;
    for (const auto &[column, value] : filters) {
        parameters.append(value.toUtf8());
        where += QByteArray(where.isEmpty() ? " where " : " and ") + "public." + quoted(table) + '.' + quoted(column)
                 + " = $" + QByteArray::number(parameters.size());
    }
    const QByteArray relation = "public." + quoted(table);

    if (request.method == "GET") {
        QByteArray list = "*";
        if (!selected.isEmpty()) {
            list.clear();
            for (const QString &column : selected)
                list += (list.isEmpty() ? "" : ", ") + quoted(column);
        }
        return runAsAnon("select coalesce(json_agg(t), '[]'::json)::text from (select " + list + " from " + relation
                             + where + ") t",
                         parameters, 200);
    }
    if (request.method != "POST" && request.method != "PATCH")
        return error(405, QStringLiteral("PGRST117"),
                     QStringLiteral("Unsupported HTTP method: ") + QString::fromLatin1(request.method));
    if (!request.header("content-type").startsWith("application/json"))
        return error(415, QStringLiteral("PGRST107"),
                     QStringLiteral("None of these media types are available: ")
                         + QString::fromLatin1(request.header("content-type")));

    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(request.body, &parseError);
    if (parseError.error != QJsonParseError::NoError || (!document.isObject() && !document.isArray()))
        return error(400, QStringLiteral("PGRST102"), QStringLiteral("Empty or invalid json"));
    const QJsonArray objects = document.isArray() ? document.array() : QJsonArray{document.object()};
    QStringList bodyColumns;
    for (const QJsonValue &object : objects) {
        for (const QString &key : object.toObject().keys()) {
            if (!columns.contains(key))
                return error(
                    400, QStringLiteral("PGRST204"),
                    QStringLiteral("Could not find the '%1' column of '%2' in the schema cache").arg(key, table));
            if (!bodyColumns.contains(key))
                bodyColumns.append(key);
        }
    }
    QByteArray list;
    QByteArray assignments;
    for (const QString &column : bodyColumns) {
        list += (list.isEmpty() ? "" : ", ") + quoted(column);
        assignments += (assignments.isEmpty() ? "" : ", ") + quoted(column) + " = r." + quoted(column);
    }
    parameters.append(QJsonDocument(objects).toJson(QJsonDocument::Compact));
    const QByteArray json = "$" + QByteArray::number(parameters.size()) + "::json";
    if (request.method == "POST")
        return runAsAnon("insert into " + relation + " (" + list + ") select " + list
                             + " from json_populate_recordset(null::" + relation + ", " + json + ")",
                         parameters, 201);
    if (objects.size() != 1)
        return error(400, QStringLiteral("PGRST102"), QStringLiteral("A PATCH body must be one JSON object"));
    return runAsAnon("update " + relation + " set " + assignments + " from json_populate_record(null::" + relation
                         + ", (" + json + ")->0) r" + where,
                     parameters, 204);
}

bool PostgrestTestServer::handleRequest(const QHttpServerRequest &httpRequest, QTcpSocket *socket)
{
    Request request;
    request.method = methodName(httpRequest.method());
    request.path = httpRequest.url().path();
    request.query = httpRequest.url().query(QUrl::FullyEncoded).toUtf8();
    for (const auto &[name, value] : httpRequest.headers())
        request.headers.insert(name.toLower(), value);
    request.body = httpRequest.body();
    m_requests.append(request);
    if (m_stalled) {
        m_stalledSockets.append(socket);
        return true;
    }
    send(socket, answer(request));
    return true;
}

void PostgrestTestServer::missingHandler(const QHttpServerRequest &, QTcpSocket *socket)
{
    send(socket, error(404, QStringLiteral("PGRST125"), QStringLiteral("Invalid path specified in request URL")));
}

void PostgrestTestServer::send(QTcpSocket *socket, const Answer &answer)
{
    QByteArray out = "HTTP/1.1 " + QByteArray::number(answer.status) + ' ' + reasonPhrase(answer.status) + "\r\n";
    if (answer.status != 204) {
        out += "Content-Type: application/json; charset=utf-8\r\n";
        out += "Content-Length: " + QByteArray::number(answer.body.size()) + "\r\n";
    }
    out += "\r\n";
    if (answer.status != 204)
        out += answer.body;
    socket->write(out);
}

} // namespace parlino::test
