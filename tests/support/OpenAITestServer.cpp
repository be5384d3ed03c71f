#include "OpenAITestServer.h"

#include "backend/ModelCatalogue.h"

#include <QDateTime>
#include <QFile>
#include <QHttpServerRequest>
#include <QJsonArray>
#include <QJsonDocument>
#include <QMutexLocker>
#include <QPointer>
#include <QProcess>
#include <QRegularExpression>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QTimer>

#include <algorithm>
#include <memory>

namespace parlino::test {

namespace {

constexpr int spokenWordsPerAnswer = 12;

QByteArray reasonPhrase(int status)
{
    switch (status) {
    case 200: return "OK";
    case 400: return "Bad Request";
    case 401: return "Unauthorized";
    case 404: return "Not Found";
    case 429: return "Too Many Requests";
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
    case QHttpServerRequest::Method::Put: return "PUT";
    case QHttpServerRequest::Method::Delete: return "DELETE";
    default: return "OTHER";
    }
}

QByteArray openAIErrorBody(const QString &message, const QString &type)
{
    const QJsonObject error{{QStringLiteral("message"), message},
                            {QStringLiteral("type"), type},
                            {QStringLiteral("param"), QJsonValue::Null},
                            {QStringLiteral("code"), QJsonValue::Null}};
    return QJsonDocument(QJsonObject{{QStringLiteral("error"), error}}).toJson();
}

// espeak-ng reads the text from standard input, so any text (even one starting with "-") is spoken.
QByteArray synthesizeMp3(const QString &text)
{
    QTemporaryDir dir;
    const QString wav = dir.filePath(QStringLiteral("speech.wav"));
    const QString mp3 = dir.filePath(QStringLiteral("speech.mp3"));
    QProcess espeak;
    espeak.start(QStringLiteral("espeak-ng"), {QStringLiteral("--stdin"), QStringLiteral("-w"), wav});
    espeak.write(text.toUtf8());
    espeak.closeWriteChannel();
    if (!espeak.waitForFinished(30000) || espeak.exitCode() != 0) {
        qWarning("OpenAITestServer: espeak-ng failed");
        return {};
    }
    if (QProcess::execute(QStringLiteral("lame"),
                          {QStringLiteral("--quiet"), QStringLiteral("-b"), QStringLiteral("64"), wav, mp3})
        != 0) {
        qWarning("OpenAITestServer: lame failed");
        return {};
    }
    QFile file(mp3);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

} // namespace

OpenAITestServer::OpenAITestServer(QObject *parent)
    : QAbstractHttpServer(parent)
{
    m_port = listen(QHostAddress::LocalHost, 0);
    if (m_port == 0)
        qWarning("OpenAITestServer: could not listen on 127.0.0.1");
}

OpenAITestServer::~OpenAITestServer() = default;

QUrl OpenAITestServer::baseUrl() const
{
    return QUrl(QStringLiteral("http://127.0.0.1:%1/v1").arg(m_port));
}

QList<OpenAITestServer::Request> OpenAITestServer::requests() const
{
    QMutexLocker lock(&m_mutex);
    return m_requests;
}

QList<OpenAITestServer::Request> OpenAITestServer::requests(const QString &pathSuffix) const
{
    QList<Request> matching;
    for (const Request &request : requests()) {
        if (request.path.endsWith(pathSuffix))
            matching.append(request);
    }
    return matching;
}

void OpenAITestServer::clearRequests()
{
    QMutexLocker lock(&m_mutex);
    m_requests.clear();
}

void OpenAITestServer::setChatContent(const QString &content)
{
    QMutexLocker lock(&m_mutex);
    m_chatContent = content;
}

QString OpenAITestServer::chatContent() const
{
    QMutexLocker lock(&m_mutex);
    return m_chatContent;
}

void OpenAITestServer::setSpeechFailure(const Failure &failure, int afterSuccesses)
{
    QMutexLocker lock(&m_mutex);
    m_speechFailure = {failure, afterSuccesses};
}

void OpenAITestServer::setChatFailure(const Failure &failure, int afterSuccesses)
{
    QMutexLocker lock(&m_mutex);
    m_chatFailure = {failure, afterSuccesses};
}

void OpenAITestServer::setModelsFailure(const Failure &failure, int afterSuccesses)
{
    QMutexLocker lock(&m_mutex);
    m_modelsFailure = {failure, afterSuccesses};
}

void OpenAITestServer::clearFailures()
{
    QMutexLocker lock(&m_mutex);
    m_speechFailure = {};
    m_chatFailure = {};
    m_modelsFailure = {};
}

void OpenAITestServer::setRetiredModels(const QStringList &models)
{
    QMutexLocker lock(&m_mutex);
    m_retiredModels = models;
}

QStringList OpenAITestServer::retiredModels() const
{
    QMutexLocker lock(&m_mutex);
    return m_retiredModels;
}

void OpenAITestServer::setModelList(const QJsonArray &models)
{
    QMutexLocker lock(&m_mutex);
    m_modelList = models;
}

void OpenAITestServer::resetModelList()
{
    setModelList(defaultModelList());
}

QJsonArray OpenAITestServer::defaultModelList()
{
    QJsonArray list;
    for (const KnownModel &model : ModelCatalogue::models()) {
        const QJsonValue date =
            model.shutdownDate.isValid() ? QJsonValue(model.shutdownDate.toString(Qt::ISODate)) : QJsonValue::Null;
        list.append(QJsonObject{{QStringLiteral("id"), model.name},
                                {QStringLiteral("object"), QStringLiteral("model")},
                                {QStringLiteral("created"), 1698785189},
                                {QStringLiteral("owned_by"), QStringLiteral("system")},
                                {QStringLiteral("shutdown_date"), date}});
    }
    return list;
}

QByteArray OpenAITestServer::retiredModelBody(const QString &model)
{
    const QJsonObject error{
        {QStringLiteral("message"),
         QStringLiteral(
             "The model `%1` has been deprecated, learn more here: https://platform.openai.com/docs/deprecations")
             .arg(model)},
        {QStringLiteral("type"), QStringLiteral("invalid_request_error")},
        {QStringLiteral("param"), QJsonValue::Null},
        {QStringLiteral("code"), QStringLiteral("model_not_found")}};
    return QJsonDocument(QJsonObject{{QStringLiteral("error"), error}}).toJson();
}

std::optional<OpenAITestServer::Answer> OpenAITestServer::retiredAnswer(const Request &request) const
{
    const QString model = request.json.value(u"model").toString();
    if (!m_retiredModels.contains(model))
        return std::nullopt;
    return Answer{404, "application/json", retiredModelBody(model)};
}

void OpenAITestServer::setSpeechPace(double charactersPerSecond)
{
    QMutexLocker lock(&m_mutex);
    m_speechPace = charactersPerSecond;
}

void OpenAITestServer::setAcceptedKey(const QString &key)
{
    QMutexLocker lock(&m_mutex);
    m_acceptedKey = key;
}

void OpenAITestServer::setDelay(std::chrono::milliseconds delay)
{
    QMutexLocker lock(&m_mutex);
    m_delay = delay;
}

QByteArray OpenAITestServer::speechFor(const QString &input)
{
    // Only the opening words are spoken: the audio stays short however long the input is.
    static const QRegularExpression whitespace(QStringLiteral("\\s+"));
    const QString spoken = input.split(whitespace, Qt::SkipEmptyParts).mid(0, spokenWordsPerAnswer).join(u' ');
    {
        QMutexLocker lock(&m_mutex);
        if (const auto found = m_speechCache.constFind(spoken); found != m_speechCache.constEnd())
            return *found;
    }
    const QByteArray mp3 = synthesizeMp3(spoken);
    QMutexLocker lock(&m_mutex);
    if (!mp3.isEmpty())
        m_speechCache.insert(spoken, mp3);
    return mp3;
}

std::optional<OpenAITestServer::Answer> OpenAITestServer::failureAnswer(FailurePlan &plan)
{
    if (!plan.failure)
        return std::nullopt;
    if (plan.successesLeft > 0) {
        --plan.successesLeft;
        return std::nullopt;
    }
    return Answer{plan.failure->status, "application/json", plan.failure->body, plan.failure->dropConnection,
                  plan.failure->cutShort};
}

OpenAITestServer::Answer OpenAITestServer::answerSpeech(const Request &request)
{
    bool cutShort = false;
    double pace = 0;
    {
        QMutexLocker lock(&m_mutex);
        pace = m_speechPace;
        if (auto retired = retiredAnswer(request))
            return *retired;
        if (auto failure = failureAnswer(m_speechFailure)) {
            if (!failure->cutShort)
                return *failure;
            cutShort = true;
        }
    }
    const QString input = request.json.value(u"input").toString();
    if (input.trimmed().isEmpty())
        return {400, "application/json",
                openAIErrorBody(QStringLiteral("Input should not be empty."), QStringLiteral("invalid_request_error"))};
    const QByteArray mp3 = speechFor(input);
    if (mp3.isEmpty())
        return {
            500, "application/json",
            openAIErrorBody(QStringLiteral("The test server could not make speech."), QStringLiteral("server_error"))};
    if (pace <= 0)
        return {200, "audio/mpeg", mp3, false, cutShort};
    static const QRegularExpression whitespace(QStringLiteral("\\s+"));
    const qsizetype spoken = input.split(whitespace, Qt::SkipEmptyParts).mid(0, spokenWordsPerAnswer).join(u' ').size();
    return {200,
            "audio/mpeg",
            mp3,
            false,
            cutShort,
            static_cast<double>(spoken) / pace,
            static_cast<double>(input.size()) / pace};
}

OpenAITestServer::Answer OpenAITestServer::answerChat(const Request &request)
{
    QMutexLocker lock(&m_mutex);
    if (auto retired = retiredAnswer(request))
        return *retired;
    if (auto failure = failureAnswer(m_chatFailure))
        return *failure;
    const QJsonObject message{{QStringLiteral("role"), QStringLiteral("assistant")},
                              {QStringLiteral("content"), m_chatContent}};
    const QJsonObject choice{{QStringLiteral("index"), 0},
                             {QStringLiteral("message"), message},
                             {QStringLiteral("finish_reason"), QStringLiteral("stop")}};
    const QJsonObject answer{{QStringLiteral("id"), QStringLiteral("chatcmpl-test")},
                             {QStringLiteral("object"), QStringLiteral("chat.completion")},
                             {QStringLiteral("created"), QDateTime::currentSecsSinceEpoch()},
                             {QStringLiteral("model"), QStringLiteral("gpt-4o-mini")},
                             {QStringLiteral("choices"), QJsonArray{choice}}};
    return {200, "application/json", QJsonDocument(answer).toJson(QJsonDocument::Compact)};
}

OpenAITestServer::Answer OpenAITestServer::answerModels()
{
    QMutexLocker lock(&m_mutex);
    if (auto failure = failureAnswer(m_modelsFailure))
        return *failure;
    const QJsonObject answer{{QStringLiteral("object"), QStringLiteral("list")}, {QStringLiteral("data"), m_modelList}};
    return {200, "application/json", QJsonDocument(answer).toJson(QJsonDocument::Compact)};
}

OpenAITestServer::Answer OpenAITestServer::answerConfig(const Request &request)
{
    const QJsonObject &config = request.json;
    const auto failureFrom = [](const QJsonValue &value) -> FailurePlan {
        if (!value.isObject())
            return {};
        const QJsonObject object = value.toObject();
        const Failure failure{object.value(u"status").toInt(500), object.value(u"body").toString().toUtf8(),
                              object.value(u"drop").toBool()};
        return {failure, object.value(u"afterSuccesses").toInt()};
    };
    QMutexLocker lock(&m_mutex);
    if (config.contains(u"chatContent"))
        m_chatContent = config.value(u"chatContent").toString();
    if (config.contains(u"delayMs"))
        m_delay = std::chrono::milliseconds(config.value(u"delayMs").toInteger());
    if (config.contains(u"speechCharactersPerSecond"))
        m_speechPace = config.value(u"speechCharactersPerSecond").toDouble();
    if (config.contains(u"speechFailure"))
        m_speechFailure = failureFrom(config.value(u"speechFailure"));
    if (config.contains(u"chatFailure"))
        m_chatFailure = failureFrom(config.value(u"chatFailure"));
    if (config.contains(u"modelsFailure"))
        m_modelsFailure = failureFrom(config.value(u"modelsFailure"));
    if (config.contains(u"retiredModels")) {
        m_retiredModels.clear();
        for (const QJsonValue &model : config.value(u"retiredModels").toArray())
            m_retiredModels.append(model.toString());
    }
    if (config.contains(u"models")) {
        const QJsonValue models = config.value(u"models");
        m_modelList = models.isArray() ? models.toArray() : defaultModelList();
    }
    return {200, "application/json", "{}"};
}

OpenAITestServer::Answer OpenAITestServer::answerRequestLog() const
{
    QJsonArray list;
    for (const Request &request : requests()) {
        QJsonObject headers;
        for (auto it = request.headers.constBegin(); it != request.headers.constEnd(); ++it)
            headers.insert(QString::fromLatin1(it.key()), QString::fromUtf8(it.value()));
        list.append(QJsonObject{{QStringLiteral("method"), QString::fromLatin1(request.method)},
                                {QStringLiteral("path"), request.path},
                                {QStringLiteral("headers"), headers},
                                {QStringLiteral("body"), QString::fromUtf8(request.body)}});
    }
    return {200, "application/json", QJsonDocument(list).toJson(QJsonDocument::Compact)};
}

bool OpenAITestServer::handleRequest(const QHttpServerRequest &httpRequest, QTcpSocket *socket)
{
    Request request;
    request.method = methodName(httpRequest.method());
    request.path = httpRequest.url().path();
    for (const auto &[name, value] : httpRequest.headers())
        request.headers.insert(name.toLower(), value);
    request.body = httpRequest.body();
    request.json = QJsonDocument::fromJson(request.body).object();

    Answer answer;
    if (request.path.startsWith(u"/_test/")) {
        if (request.path == u"/_test/requests")
            answer = answerRequestLog();
        else if (request.path == u"/_test/config" && request.method == "POST")
            answer = answerConfig(request);
        else
            answer = {404, "application/json",
                      openAIErrorBody(QStringLiteral("Unknown test path"), QStringLiteral("not_found"))};
        send(socket, answer);
        return true;
    }

    {
        QMutexLocker lock(&m_mutex);
        m_requests.append(request);
    }
    QString acceptedKey;
    {
        QMutexLocker lock(&m_mutex);
        acceptedKey = m_acceptedKey;
    }
    const QByteArray bearer = request.headers.value("authorization").mid(7);
    if (!acceptedKey.isEmpty() && bearer != acceptedKey.toUtf8()) {
        // The service's own answer, with the key shortened as it does.
        QJsonObject error = QJsonDocument::fromJson(
                                openAIErrorBody(QStringLiteral("Incorrect API key provided: %1. You can find your "
                                                               "API key at https://platform.openai.com/account/"
                                                               "api-keys.")
                                                    .arg(QString::fromUtf8(bearer.left(3) + "***" + bearer.right(4))),
                                                QStringLiteral("invalid_request_error")))
                                .object()
                                .value(u"error")
                                .toObject();
        error.insert(QStringLiteral("code"), QStringLiteral("invalid_api_key"));
        answer = {401, "application/json", QJsonDocument(QJsonObject{{QStringLiteral("error"), error}}).toJson()};
    } else if (request.method == "POST" && request.path == u"/v1/audio/speech")
        answer = answerSpeech(request);
    else if (request.method == "POST" && request.path == u"/v1/chat/completions")
        answer = answerChat(request);
    else if (request.method == "GET" && request.path == u"/v1/models")
        answer = answerModels();
    else
        answer = {404, "application/json",
                  openAIErrorBody(QStringLiteral("Unknown request URL: ") + request.path,
                                  QStringLiteral("invalid_request_error"))};

    std::chrono::milliseconds delay;
    {
        QMutexLocker lock(&m_mutex);
        delay = m_delay;
    }
    // Answered from the event loop, so a delay keeps the connection open without blocking the server;
    // a socket the client closed meanwhile takes the answer with it.
    QTimer::singleShot(delay, socket, [socket, answer] { send(socket, answer); });
    return true;
}

void OpenAITestServer::missingHandler(const QHttpServerRequest &, QTcpSocket *socket)
{
    send(socket, {404, "application/json", openAIErrorBody(QStringLiteral("Not found"), QStringLiteral("not_found"))});
}

void OpenAITestServer::send(QTcpSocket *socket, const Answer &answer)
{
    if (answer.drop) {
        socket->abort();
        return;
    }
    QByteArray out = "HTTP/1.1 " + QByteArray::number(answer.status) + ' ' + reasonPhrase(answer.status) + "\r\n";
    if (!answer.contentType.isEmpty())
        out += "Content-Type: " + answer.contentType + "\r\n";
    // A cut-short body still announces its whole length, as a proxy that loses the connection does.
    out += "Content-Length: " + QByteArray::number(answer.body.size()) + "\r\n\r\n";
    const qsizetype sent = answer.cutShort ? answer.body.size() / 2 : answer.body.size();
    if (answer.spreadSeconds <= 0) {
        socket->write(out + answer.body.left(sent));
        if (answer.cutShort) {
            socket->flush();
            QTimer::singleShot(50, socket, [socket] { socket->abort(); });
        }
        return;
    }
    // Paced: the headers and a first piece now, then equal pieces every 50 ms; the last byte waits until
    // the whole input would have been made.
    constexpr int kIntervalMs = 50;
    const qsizetype paced = std::max<qsizetype>(0, sent - 1);
    const int pieces = std::max(1, static_cast<int>(answer.audioSeconds * 1000 / kIntervalMs));
    const qsizetype pieceSize = std::max<qsizetype>(1, (paced + pieces - 1) / pieces);
    socket->write(out + answer.body.left(std::min(pieceSize, paced)));
    auto *timer = new QTimer(socket);
    auto position = std::make_shared<qsizetype>(std::min(pieceSize, paced));
    QObject::connect(timer, &QTimer::timeout, socket, [socket, timer, position, answer, paced, pieceSize] {
        if (*position >= paced) {
            timer->stop();
            return;
        }
        socket->write(answer.body.mid(*position, std::min(pieceSize, paced - *position)));
        *position += pieceSize;
    });
    timer->start(kIntervalMs);
    QTimer::singleShot(static_cast<int>(answer.spreadSeconds * 1000), socket,
                       [socket, timer, position, answer, paced, sent] {
                           // Whatever of the paced part is still due goes first, so the bytes stay in order.
                           timer->stop();
                           if (*position < paced)
                               socket->write(answer.body.mid(*position, paced - *position));
                           *position = paced;
                           if (sent > paced)
                               socket->write(answer.body.mid(paced, sent - paced));
                           if (answer.cutShort) {
                               socket->flush();
                               QTimer::singleShot(50, socket, [socket] { socket->abort(); });
                           }
                       });
}

} // namespace parlino::test
