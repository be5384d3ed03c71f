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
#include <cmath>
#include <memory>

namespace parlino::test {

namespace {

constexpr int spokenWordsPerAnswer = 12;

QByteArray reasonPhrase(int status)
{
    switch (status) {
    case 200: return "OK";
    case 307: return "Temporary Redirect";
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

// The parts of a multipart/form-data body by their names.
QHash<QString, QByteArray> formFields(const QByteArray &contentType, const QByteArray &body)
{
    QHash<QString, QByteArray> fields;
    const qsizetype at = contentType.indexOf("boundary=");
    if (!contentType.startsWith("multipart/form-data") || at < 0)
        return fields;
    QByteArray boundary = contentType.mid(at + 9);
    if (const qsizetype end = boundary.indexOf(';'); end >= 0)
        boundary.truncate(end);
    if (boundary.startsWith('"') && boundary.endsWith('"'))
        boundary = boundary.mid(1, boundary.size() - 2);
    const QByteArray delimiter = "--" + boundary;
    static const QRegularExpression nameField(QStringLiteral("name=\"([^\"]*)\""));
    qsizetype position = body.indexOf(delimiter);
    while (position >= 0) {
        const qsizetype start = position + delimiter.size();
        if (body.mid(start, 2) == "--")
            break;
        const qsizetype next = body.indexOf(delimiter, start);
        if (next < 0)
            break;
        const QByteArray part = body.mid(start + 2, next - start - 2 - 2); // without the CRLFs around it
        const qsizetype headerEnd = part.indexOf("\r\n\r\n");
        if (headerEnd >= 0) {
            const QString headers = QString::fromUtf8(part.left(headerEnd));
            const QRegularExpressionMatch match = nameField.match(headers);
            if (match.hasMatch())
                fields.insert(match.captured(1), part.mid(headerEnd + 4));
        }
        position = next;
    }
    return fields;
}

quint32 littleEndian32(const QByteArray &bytes, qsizetype at)
{
    quint32 value = 0;
    for (int i = 3; i >= 0; --i)
        value = (value << 8) | static_cast<quint8>(bytes.at(at + i));
    return value;
}

quint16 littleEndian16(const QByteArray &bytes, qsizetype at)
{
    return static_cast<quint16>(static_cast<quint8>(bytes.at(at)) | (static_cast<quint8>(bytes.at(at + 1)) << 8));
}

} // namespace

OpenAITestServer::WavInfo OpenAITestServer::inspectWav(const QByteArray &wav)
{
    WavInfo info;
    if (wav.size() < 12 || !wav.startsWith("RIFF") || wav.mid(8, 4) != "WAVE") {
        info.problem = QStringLiteral("not a WAV file");
        return info;
    }
    int bitsPerSample = 0;
    int format = 0;
    qsizetype at = 12;
    while (at + 8 <= wav.size()) {
        const QByteArray id = wav.mid(at, 4);
        const qsizetype size = littleEndian32(wav, at + 4);
        const qsizetype content = at + 8;
        if (id == "fmt " && content + 16 <= wav.size()) {
            format = littleEndian16(wav, content);
            info.channels = littleEndian16(wav, content + 2);
            info.sampleRate = static_cast<int>(littleEndian32(wav, content + 4));
            bitsPerSample = littleEndian16(wav, content + 14);
        } else if (id == "data") {
            if (format != 1 || bitsPerSample != 16 || info.channels < 1 || info.sampleRate <= 0) {
                info.problem = QStringLiteral("not 16-bit PCM");
                return info;
            }
            if (content + size > wav.size()) {
                info.problem = QStringLiteral("the data is shorter than its header says");
                return info;
            }
            const qsizetype samples = size / 2;
            double sum = 0;
            for (qsizetype i = 0; i < samples; ++i) {
                const auto sample = static_cast<qint16>(littleEndian16(wav, content + i * 2));
                sum += (sample / 32768.0) * (sample / 32768.0);
            }
            info.seconds = static_cast<double>(samples) / info.channels / info.sampleRate;
            info.rootMeanSquare = samples > 0 ? std::sqrt(sum / static_cast<double>(samples)) : 0;
            info.valid = true;
            return info;
        }
        at = content + size + (size % 2);
    }
    info.problem = QStringLiteral("no audio data");
    return info;
}

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

void OpenAITestServer::setTranscriptionFailure(const Failure &failure, int afterSuccesses)
{
    QMutexLocker lock(&m_mutex);
    m_transcriptionFailure = {failure, afterSuccesses};
}

void OpenAITestServer::setTranscription(const Transcription &transcription)
{
    QMutexLocker lock(&m_mutex);
    m_transcription = transcription;
}

void OpenAITestServer::clearFailures()
{
    QMutexLocker lock(&m_mutex);
    m_transcriptionFailure = {};
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
    const QString model = request.json.contains(u"model")
                              ? request.json.value(u"model").toString()
                              : QString::fromUtf8(request.formFields.value(QStringLiteral("model")));
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

void OpenAITestServer::setFault(const QString &path, Fault fault, int count)
{
    QMutexLocker lock(&m_mutex);
    m_faults.insert(path, {fault, count});
}

void OpenAITestServer::setDripInterval(std::chrono::milliseconds interval)
{
    QMutexLocker lock(&m_mutex);
    m_dripInterval = interval;
}

void OpenAITestServer::setRedirectTarget(const QUrl &target)
{
    QMutexLocker lock(&m_mutex);
    m_redirectTarget = target;
}

OpenAITestServer::Answer OpenAITestServer::withFault(const QString &path, Answer answer)
{
    QMutexLocker lock(&m_mutex);
    const auto plan = m_faults.find(path);
    if (plan == m_faults.end() || plan->fault == Fault::none || plan->remaining == 0)
        return answer;
    if (plan->remaining > 0)
        --plan->remaining;
    answer.fault = plan->fault;
    answer.spreadSeconds = 0;
    switch (plan->fault) {
    case Fault::none: break;
    case Fault::cutShort: answer.status = 200; break;
    case Fault::stall:
    case Fault::drip: answer.dripMs = static_cast<int>(m_dripInterval.count()); break;
    case Fault::redirect:
        answer = {307, "application/json", "{}"};
        answer.fault = Fault::redirect;
        answer.location = m_redirectTarget.toEncoded();
        break;
    case Fault::htmlPage:
        answer = {200, "text/html; charset=utf-8",
                  "<!DOCTYPE html><html><head><title>Network login</title></head><body><h1>Please sign in to "
                  "use this network</h1></body></html>"};
        break;
    case Fault::emptyBody:
        answer.status = 200;
        answer.body.clear();
        break;
    case Fault::oversized: answer.status = 200; break;
    }
    return answer;
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

OpenAITestServer::Answer OpenAITestServer::answerTranscription(const Request &request)
{
    Transcription expected;
    {
        QMutexLocker lock(&m_mutex);
        if (auto retired = retiredAnswer(request))
            return *retired;
        if (auto failure = failureAnswer(m_transcriptionFailure))
            return *failure;
        expected = m_transcription;
    }
    const auto refuse = [](const QString &message) {
        return Answer{400, "application/json", openAIErrorBody(message, QStringLiteral("invalid_request_error"))};
    };
    if (!request.formFields.contains(QStringLiteral("file")))
        return refuse(QStringLiteral("No file was uploaded."));
    if (request.formFields.value(QStringLiteral("model")).isEmpty())
        return refuse(QStringLiteral("No model was named."));
    const WavInfo wav = inspectWav(request.formFields.value(QStringLiteral("file")));
    if (!wav.valid)
        return refuse(QStringLiteral("The upload is not usable audio: ") + wav.problem);
    if (wav.rootMeanSquare < kSpeechEnergy)
        return refuse(QStringLiteral("The upload is silent."));
    if (wav.seconds < expected.minSeconds || wav.seconds > expected.maxSeconds)
        return refuse(QStringLiteral("The upload lasts %1 s, not %2 to %3 s.")
                          .arg(wav.seconds, 0, 'f', 2)
                          .arg(expected.minSeconds)
                          .arg(expected.maxSeconds));
    const QJsonObject answer{{QStringLiteral("text"), expected.text}};
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
    if (config.contains(u"transcriptionFailure"))
        m_transcriptionFailure = failureFrom(config.value(u"transcriptionFailure"));
    if (config.contains(u"transcription")) {
        const QJsonObject transcription = config.value(u"transcription").toObject();
        m_transcription = {transcription.value(u"text").toString(), transcription.value(u"minSeconds").toDouble(0),
                           transcription.value(u"maxSeconds").toDouble(600)};
    }
    if (config.contains(u"retiredModels")) {
        m_retiredModels.clear();
        for (const QJsonValue &model : config.value(u"retiredModels").toArray())
            m_retiredModels.append(model.toString());
    }
    if (config.contains(u"fault")) {
        static const QHash<QString, Fault> kinds{
            {QStringLiteral("none"), Fault::none},           {QStringLiteral("cutShort"), Fault::cutShort},
            {QStringLiteral("stall"), Fault::stall},         {QStringLiteral("drip"), Fault::drip},
            {QStringLiteral("redirect"), Fault::redirect},   {QStringLiteral("htmlPage"), Fault::htmlPage},
            {QStringLiteral("emptyBody"), Fault::emptyBody}, {QStringLiteral("oversized"), Fault::oversized}};
        const QJsonObject fault = config.value(u"fault").toObject();
        m_faults.insert(fault.value(u"path").toString(),
                        {kinds.value(fault.value(u"kind").toString(), Fault::none), fault.value(u"count").toInt(-1)});
        if (fault.contains(u"redirectTo"))
            m_redirectTarget = QUrl(fault.value(u"redirectTo").toString());
        if (fault.contains(u"dripMs"))
            m_dripInterval = std::chrono::milliseconds(fault.value(u"dripMs").toInteger());
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
    request.formFields = formFields(request.header("content-type"), request.body);

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
    else if (request.method == "POST" && request.path == u"/v1/audio/transcriptions")
        answer = answerTranscription(request);
    else if (request.method == "GET" && request.path == u"/v1/models")
        answer = answerModels();
    else
        answer = {404, "application/json",
                  openAIErrorBody(QStringLiteral("Unknown request URL: ") + request.path,
                                  QStringLiteral("invalid_request_error"))};

    answer = withFault(request.path, std::move(answer));
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

void OpenAITestServer::sendFaulty(QTcpSocket *socket, const Answer &answer, QByteArray head)
{
    constexpr int kOversizedPieceBytes = 256 * 1024;
    constexpr qint64 kOversizedBytes = qint64(64) * 1024 * 1024;
    if (answer.fault == Fault::oversized) {
        // No length: the body runs until the connection closes, so only counting it can stop it.
        socket->write(head + "Connection: close\r\n\r\n");
        auto *timer = new QTimer(socket);
        auto sent = std::make_shared<qint64>(0);
        QObject::connect(timer, &QTimer::timeout, socket, [socket, timer, sent] {
            if (*sent >= kOversizedBytes || socket->state() != QAbstractSocket::ConnectedState) {
                timer->stop();
                socket->disconnectFromHost();
                return;
            }
            socket->write(QByteArray(kOversizedPieceBytes, 'x'));
            *sent += kOversizedPieceBytes;
        });
        timer->start(5);
        return;
    }
    socket->write(head + "Content-Length: " + QByteArray::number(answer.body.size()) + "\r\n\r\n");
    if (answer.fault == Fault::cutShort) {
        // Half the body, then an orderly close, as a proxy that gives up does.
        socket->write(answer.body.left(answer.body.size() / 2));
        socket->disconnectFromHost();
        return;
    }
    if (answer.fault == Fault::stall)
        return;
    auto *timer = new QTimer(socket);
    auto position = std::make_shared<qsizetype>(0);
    QObject::connect(timer, &QTimer::timeout, socket, [socket, timer, position, body = answer.body] {
        if (*position >= body.size()) {
            timer->stop();
            return;
        }
        socket->write(body.mid(*position, 1));
        ++*position;
    });
    timer->start(std::max(1, answer.dripMs));
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
    if (!answer.location.isEmpty())
        out += "Location: " + answer.location + "\r\n";
    if (answer.fault != Fault::none && answer.fault != Fault::redirect && answer.fault != Fault::htmlPage
        && answer.fault != Fault::emptyBody) {
        sendFaulty(socket, answer, out);
        return;
    }
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
