#include "RealtimeTestServer.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QNetworkRequest>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTimer>
#include <QUrlQuery>
#include <QWebSocket>
#include <QWebSocketServer>

#include <algorithm>
#include <cmath>

namespace parlino::test {

namespace {

constexpr int spokenWordsPerAnswer = 12;
// Each audio delta carries this much sound (PCM16 mono at 24 kHz).
constexpr int deltaMilliseconds = 200;
constexpr int deltaBytes = RealtimeTestServer::sampleRate / 1000 * deltaMilliseconds * 2;
// espeak-ng's words per minute at speed 1.0.
constexpr int espeakWordsPerMinute = 175;

const QStringList &knownVoices()
{
    static const QStringList voices{QStringLiteral("alloy"),   QStringLiteral("ash"),   QStringLiteral("ballad"),
                                    QStringLiteral("coral"),   QStringLiteral("echo"),  QStringLiteral("sage"),
                                    QStringLiteral("shimmer"), QStringLiteral("verse"), QStringLiteral("marin"),
                                    QStringLiteral("cedar")};
    return voices;
}

// `update` laid over `base`: objects are merged key by key, anything else replaces.
QJsonObject merged(QJsonObject base, const QJsonObject &update)
{
    for (auto it = update.begin(); it != update.end(); ++it) {
        const QJsonValue old = base.value(it.key());
        if (old.isObject() && it->isObject())
            base.insert(it.key(), merged(old.toObject(), it->toObject()));
        else
            base.insert(it.key(), *it);
    }
    return base;
}

// The texts of the input_text (or text) parts of a message item.
QString itemText(const QJsonObject &item)
{
    QStringList texts;
    for (const QJsonValue &part : item.value(u"content").toArray()) {
        const QJsonObject object = part.toObject();
        const QString type = object.value(u"type").toString();
        if (type == u"input_text" || type == u"text")
            texts.append(object.value(u"text").toString());
    }
    return texts.join(u' ');
}

// The transcript cut where words start, so the pieces joined give it back exactly: "Hello", " world.".
QStringList transcriptPieces(const QString &transcript)
{
    QStringList pieces;
    qsizetype start = 0;
    for (qsizetype i = 1; i < transcript.size(); ++i) {
        if (transcript.at(i - 1).isSpace() && !transcript.at(i).isSpace() && i > start) {
            pieces.append(transcript.mid(start, i - start));
            start = i;
        }
    }
    if (start < transcript.size())
        pieces.append(transcript.mid(start));
    return pieces;
}

// espeak-ng reads the text from standard input, so any text (even one starting with "-") is spoken;
// ffmpeg turns its 22 050 Hz WAV into raw 24 kHz samples.
QByteArray synthesizePcm(const QString &text, double speed)
{
    QTemporaryDir dir;
    const QString wav = dir.filePath(QStringLiteral("speech.wav"));
    QProcess espeak;
    const int wordsPerMinute = static_cast<int>(std::lround(espeakWordsPerMinute * speed));
    espeak.start(QStringLiteral("espeak-ng"), {QStringLiteral("--stdin"), QStringLiteral("-s"),
                                               QString::number(wordsPerMinute), QStringLiteral("-w"), wav});
    espeak.write(text.toUtf8());
    espeak.closeWriteChannel();
    if (!espeak.waitForFinished(30000) || espeak.exitCode() != 0) {
        qWarning("RealtimeTestServer: espeak-ng failed");
        return {};
    }
    QProcess ffmpeg;
    ffmpeg.start(QStringLiteral("ffmpeg"),
                 {QStringLiteral("-nostdin"), QStringLiteral("-loglevel"), QStringLiteral("error"),
                  QStringLiteral("-i"), wav, QStringLiteral("-ac"), QStringLiteral("1"), QStringLiteral("-ar"),
                  QString::number(RealtimeTestServer::sampleRate), QStringLiteral("-f"), QStringLiteral("s16le"),
                  QStringLiteral("pipe:1")});
    if (!ffmpeg.waitForFinished(30000) || ffmpeg.exitCode() != 0) {
        qWarning("RealtimeTestServer: ffmpeg failed: %s", ffmpeg.readAllStandardError().constData());
        return {};
    }
    return ffmpeg.readAllStandardOutput();
}

// The assistant's message item of a response; its content is the spoken transcript once there is one.
QJsonObject assistantItem(const QString &id, const QString &status, const std::optional<QString> &transcript = {})
{
    QJsonArray content;
    if (transcript)
        content.append(QJsonObject{{QStringLiteral("type"), QStringLiteral("output_audio")},
                                   {QStringLiteral("transcript"), *transcript}});
    return {{QStringLiteral("id"), id},
            {QStringLiteral("object"), QStringLiteral("realtime.item")},
            {QStringLiteral("type"), QStringLiteral("message")},
            {QStringLiteral("status"), status},
            {QStringLiteral("role"), QStringLiteral("assistant")},
            {QStringLiteral("content"), content}};
}

// A session as the service starts it: audio out as 24 kHz PCM in the default voice.
QJsonObject newSession(const QString &id, const QString &model)
{
    const QJsonObject format{{QStringLiteral("type"), QStringLiteral("audio/pcm")},
                             {QStringLiteral("rate"), RealtimeTestServer::sampleRate}};
    const QJsonObject output{{QStringLiteral("format"), format},
                             {QStringLiteral("voice"), QStringLiteral("alloy")},
                             {QStringLiteral("speed"), 1.0}};
    return {{QStringLiteral("type"), QStringLiteral("realtime")},
            {QStringLiteral("object"), QStringLiteral("realtime.session")},
            {QStringLiteral("id"), id},
            {QStringLiteral("model"), model},
            {QStringLiteral("output_modalities"), QJsonArray{QStringLiteral("audio")}},
            {QStringLiteral("instructions"), QString()},
            {QStringLiteral("audio"), QJsonObject{{QStringLiteral("output"), output}}},
            {QStringLiteral("max_output_tokens"), QStringLiteral("inf")}};
}

} // namespace

RealtimeTestServer::RealtimeTestServer(QObject *parent)
    : QObject(parent)
    , m_server(new QWebSocketServer(QStringLiteral("parlino-realtime-test"), QWebSocketServer::NonSecureMode, this))
{
    if (!m_server->listen(QHostAddress::LocalHost, 0))
        qWarning("RealtimeTestServer: could not listen on 127.0.0.1");
    connect(m_server, &QWebSocketServer::newConnection, this, &RealtimeTestServer::acceptConnection);
}

RealtimeTestServer::~RealtimeTestServer()
{
    // The sockets go first, while the table their handlers look into still exists.
    const QList<QWebSocket *> sockets = findChildren<QWebSocket *>(Qt::FindDirectChildrenOnly);
    for (QWebSocket *socket : sockets) {
        disconnect(socket, nullptr, this, nullptr);
        delete socket;
    }
}

bool RealtimeTestServer::isListening() const
{
    return m_server->isListening();
}

QUrl RealtimeTestServer::baseUrl() const
{
    return QUrl(QStringLiteral("ws://127.0.0.1:%1/v1").arg(m_server->serverPort()));
}

void RealtimeTestServer::setExpectedKey(const QString &key)
{
    m_expectedKey = key;
}

void RealtimeTestServer::setRetiredModels(const QStringList &models)
{
    m_retiredModels = QSet<QString>(models.begin(), models.end());
}

void RealtimeTestServer::setFirstAudioDelay(std::chrono::milliseconds delay)
{
    m_firstAudioDelay = delay;
}

void RealtimeTestServer::setPace(double charactersPerSecond)
{
    m_pace = charactersPerSecond;
}

void RealtimeTestServer::setTranscriptRewrite(std::function<QString(QString)> rewrite)
{
    m_transcriptRewrite = std::move(rewrite);
}

void RealtimeTestServer::setFailure(const Failure &failure)
{
    m_failure = failure;
}

void RealtimeTestServer::clearFailure()
{
    m_failure.reset();
}

QList<QJsonObject> RealtimeTestServer::receivedEvents(const QString &type) const
{
    QList<QJsonObject> events;
    for (const ReceivedEvent &received : m_received) {
        if (received.event.value(u"type").toString() == type)
            events.append(received.event);
    }
    return events;
}

QByteArray RealtimeTestServer::audioFor(const QString &text, double speed)
{
    // Only the opening words are spoken: the audio stays short however long the text is.
    static const QRegularExpression whitespace(QStringLiteral("\\s+"));
    const QString spoken = text.split(whitespace, Qt::SkipEmptyParts).mid(0, spokenWordsPerAnswer).join(u' ');
    const QString key = QString::number(speed) + u'|' + spoken;
    if (const auto found = m_audioCache.constFind(key); found != m_audioCache.constEnd())
        return *found;
    const QByteArray pcm = synthesizePcm(spoken, speed);
    if (!pcm.isEmpty())
        m_audioCache.insert(key, pcm);
    return pcm;
}

QString RealtimeTestServer::nextId(const QString &prefix)
{
    return prefix + u'_' + QString::number(++m_idCounter);
}

void RealtimeTestServer::acceptConnection()
{
    while (QWebSocket *socket = m_server->nextPendingConnection()) {
        socket->setParent(this);
        const int index = m_connectionCount++;
        // Queued: a write to a peer that went away can report the disconnection while a handler below
        // still holds the connection's state.
        connect(
            socket, &QWebSocket::disconnected, this,
            [this, socket] {
                m_connections.remove(socket);
                socket->deleteLater();
            },
            Qt::QueuedConnection);

        const QString model = QUrlQuery(socket->requestUrl()).queryItemValue(QStringLiteral("model"));
        if (const auto refusal = refusalFor(*socket, model)) {
            sendError(socket, QStringLiteral("invalid_request_error"), refusal->first, refusal->second);
            socket->close(QWebSocketProtocol::CloseCodePolicyViolated, refusal->first);
            continue;
        }
        Connection connection;
        connection.index = index;
        connection.session = newSession(nextId(QStringLiteral("sess")), model);
        m_connections.insert(socket, connection);
        connect(socket, &QWebSocket::textMessageReceived, this,
                [this, socket](const QString &message) { handleMessage(socket, message); });
        sendEvent(socket, QStringLiteral("session.created"), {{QStringLiteral("session"), connection.session}});
    }
}

std::optional<std::pair<QString, QString>> RealtimeTestServer::refusalFor(const QWebSocket &socket,
                                                                          const QString &model) const
{
    const QByteArray authorization = socket.request().rawHeader("Authorization");
    const QString key =
        QString::fromUtf8(authorization.startsWith("Bearer ") ? authorization.mid(7) : QByteArray()).trimmed();
    if (key.isEmpty() || (!m_expectedKey.isEmpty() && key != m_expectedKey))
        return std::pair{QStringLiteral("invalid_api_key"), QStringLiteral("Incorrect API key provided.")};
    if (socket.requestUrl().path() != u"/v1/realtime")
        return std::pair{QStringLiteral("unknown_url"),
                         QStringLiteral("Unknown request URL: ") + socket.requestUrl().path()};
    if (model.isEmpty())
        return std::pair{QStringLiteral("missing_model"), QStringLiteral("You must provide a model parameter.")};
    if (m_retiredModels.contains(model))
        return std::pair{QStringLiteral("model_not_found"),
                         QStringLiteral("The model `%1` has been deprecated and is no longer available.").arg(model)};
    return std::nullopt;
}

void RealtimeTestServer::handleMessage(QWebSocket *socket, const QString &message)
{
    const auto found = m_connections.find(socket);
    if (found == m_connections.end())
        return;
    Connection &connection = *found;
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(message.toUtf8(), &parseError);
    if (!document.isObject()) {
        sendError(socket, QStringLiteral("invalid_request_error"), QStringLiteral("invalid_json"),
                  QStringLiteral("The event is not a JSON object: ") + parseError.errorString());
        return;
    }
    const QJsonObject event = document.object();
    m_received.append({connection.index, event});

    const QString type = event.value(u"type").toString();
    if (type == u"session.update")
        updateSession(socket, connection, event);
    else if (type == u"conversation.item.create")
        createItem(socket, connection, event);
    else if (type == u"response.create")
        createResponse(socket, connection, event);
    else if (type == u"response.cancel")
        cancelResponse(socket, connection, event);
    else
        sendError(socket, QStringLiteral("invalid_request_error"), QStringLiteral("invalid_value"),
                  QStringLiteral("Invalid value: '%1'. This server knows session.update, conversation.item.create, "
                                 "response.create and response.cancel.")
                      .arg(type),
                  event, QStringLiteral("type"));
}

void RealtimeTestServer::updateSession(QWebSocket *socket, Connection &connection, const QJsonObject &event)
{
    const QJsonObject session = event.value(u"session").toObject();
    if (session.value(u"type").toString() != u"realtime") {
        sendError(socket, QStringLiteral("invalid_request_error"), QStringLiteral("missing_required_parameter"),
                  QStringLiteral("Missing required parameter: 'session.type'."), event, QStringLiteral("session.type"));
        return;
    }
    const QJsonObject output = session.value(u"audio").toObject().value(u"output").toObject();
    if (output.contains(u"voice") && !knownVoices().contains(output.value(u"voice").toString())) {
        QStringList quoted;
        for (const QString &voice : knownVoices())
            quoted.append(u'\'' + voice + u'\'');
        sendError(socket, QStringLiteral("invalid_request_error"), QStringLiteral("invalid_value"),
                  QStringLiteral("Invalid value: '%1'. Supported values are: %2.")
                      .arg(output.value(u"voice").toString(), quoted.join(QStringLiteral(", "))),
                  event, QStringLiteral("session.audio.output.voice"));
        return;
    }
    if (output.contains(u"speed")) {
        const double speed = output.value(u"speed").toDouble(-1);
        if (speed < 0.25 || speed > 1.5) {
            const bool above = speed > 1.5;
            sendError(socket, QStringLiteral("invalid_request_error"),
                      above ? QStringLiteral("decimal_above_max_value") : QStringLiteral("decimal_below_min_value"),
                      QStringLiteral("Invalid 'session.audio.output.speed': decimal %1 than %2.")
                          .arg(above ? QStringLiteral("above maximum value. Expected a value less or equal")
                                     : QStringLiteral("below minimum value. Expected a value greater or equal"),
                               above ? QStringLiteral("1.5") : QStringLiteral("0.25")),
                      event, QStringLiteral("session.audio.output.speed"));
            return;
        }
    }
    QJsonObject update = session;
    update.remove(QStringLiteral("id")); // the session keeps its identity
    update.remove(QStringLiteral("model"));
    connection.session = merged(connection.session, update);
    sendEvent(socket, QStringLiteral("session.updated"), {{QStringLiteral("session"), connection.session}});
}

void RealtimeTestServer::createItem(QWebSocket *socket, Connection &connection, const QJsonObject &event)
{
    QJsonObject item = event.value(u"item").toObject();
    if (item.value(u"type").toString() == u"message" && item.value(u"role").toString() == u"user")
        connection.lastUserText = itemText(item);
    if (!item.contains(u"id"))
        item.insert(QStringLiteral("id"), nextId(QStringLiteral("item")));
    item.insert(QStringLiteral("object"), QStringLiteral("realtime.item"));
    item.insert(QStringLiteral("status"), QStringLiteral("completed"));
    sendEvent(socket, QStringLiteral("conversation.item.added"),
              {{QStringLiteral("previous_item_id"), QJsonValue::Null}, {QStringLiteral("item"), item}});
}

void RealtimeTestServer::createResponse(QWebSocket *socket, Connection &connection, const QJsonObject &event)
{
    if (connection.response) {
        sendError(socket, QStringLiteral("invalid_request_error"),
                  QStringLiteral("conversation_already_has_active_response"),
                  QStringLiteral("Conversation already has an active response in progress: %1. Wait until the "
                                 "response is finished before creating a new one.")
                      .arg(connection.response->id),
                  event);
        return;
    }
    const QJsonObject request = event.value(u"response").toObject();
    QString text;
    if (request.contains(u"input")) {
        QStringList texts;
        for (const QJsonValue &item : request.value(u"input").toArray()) {
            if (item.toObject().value(u"type").toString() == u"message")
                texts.append(itemText(item.toObject()));
        }
        text = texts.join(u' ');
    } else {
        text = connection.lastUserText;
    }
    if (text.trimmed().isEmpty()) {
        sendError(socket, QStringLiteral("invalid_request_error"), QStringLiteral("empty_input"),
                  QStringLiteral("The response has no text to speak: give it an input message or create a user "
                                 "item first."),
                  event);
        return;
    }

    // A voice or speed given with the response wins over the session's.
    const QJsonObject sessionOutput = connection.session.value(u"audio").toObject().value(u"output").toObject();
    const QJsonObject output = merged(sessionOutput, request.value(u"audio").toObject().value(u"output").toObject());
    ++m_responseCount;
    Response response;
    response.id = nextId(QStringLiteral("resp"));
    response.itemId = nextId(QStringLiteral("item"));
    response.failure = std::exchange(m_failure, std::nullopt);
    const QJsonObject created{{QStringLiteral("id"), response.id},
                              {QStringLiteral("object"), QStringLiteral("realtime.response")},
                              {QStringLiteral("status"), QStringLiteral("in_progress")},
                              {QStringLiteral("status_details"), QJsonValue::Null},
                              {QStringLiteral("output"), QJsonArray()},
                              {QStringLiteral("conversation_id"), QJsonValue::Null},
                              {QStringLiteral("output_modalities"), QJsonArray{QStringLiteral("audio")}},
                              {QStringLiteral("audio"), QJsonObject{{QStringLiteral("output"), output}}},
                              {QStringLiteral("usage"), QJsonValue::Null}};
    sendEvent(socket, QStringLiteral("response.created"), {{QStringLiteral("response"), created}});

    if (!response.failure || response.failure->kind != Failure::Kind::FailResponse) {
        response.audio = audioFor(text, output.value(u"speed").toDouble(1.0));
        if (response.audio.isEmpty())
            response.failure = Failure::failed(QStringLiteral("server_error"),
                                               QStringLiteral("The test server could not make speech."));
    }
    response.transcript = m_transcriptRewrite ? m_transcriptRewrite(text) : text;
    response.transcriptPieces = transcriptPieces(response.transcript);
    response.deltaCount = static_cast<int>((response.audio.size() + deltaBytes - 1) / deltaBytes);
    response.timer = new QTimer(socket);
    response.timer->setSingleShot(true);
    response.timer->setInterval(m_firstAudioDelay);
    if (m_pace > 0 && response.deltaCount > 0) {
        // The spoken words' audio comes at the pace a model makes them; the response stays open for the
        // words it did not speak, so it ends after the whole text's time.
        static const QRegularExpression whitespace(QStringLiteral("\\s+"));
        const qsizetype spoken =
            text.split(whitespace, Qt::SkipEmptyParts).mid(0, spokenWordsPerAnswer).join(u' ').size();
        const double spreadMs = static_cast<double>(spoken) / m_pace * 1000;
        response.paceMs = std::max(1, static_cast<int>(spreadMs / response.deltaCount));
        response.tailMs = static_cast<int>(static_cast<double>(text.size() - spoken) / m_pace * 1000);
    }
    connect(response.timer, &QTimer::timeout, this, [this, socket] { sendNextDelta(socket); });
    response.timer->start();
    connection.response = std::move(response);
}

void RealtimeTestServer::sendNextDelta(QWebSocket *socket)
{
    const auto found = m_connections.find(socket);
    if (found == m_connections.end() || !found->response)
        return;
    Response &response = *found->response;

    if (response.failure && response.failure->kind == Failure::Kind::FailResponse) {
        const Failure &failure = *response.failure;
        const QJsonObject error{{QStringLiteral("type"), failure.type},
                                {QStringLiteral("code"), failure.code},
                                {QStringLiteral("message"), failure.message}};
        finishResponse(socket, QStringLiteral("failed"),
                       {{QStringLiteral("type"), QStringLiteral("failed")}, {QStringLiteral("error"), error}});
        return;
    }
    if (response.deltasSent == 0) {
        sendEvent(socket, QStringLiteral("response.output_item.added"),
                  {{QStringLiteral("response_id"), response.id},
                   {QStringLiteral("output_index"), 0},
                   {QStringLiteral("item"), assistantItem(response.itemId, QStringLiteral("in_progress"))}});
        if (response.paceMs > 0) {
            response.timer->setSingleShot(false);
            response.timer->start(response.paceMs);
        }
    }
    // Unpaced, every delta goes now; paced, one per tick (the tail's tick finds none left).
    while (response.deltasSent < response.deltaCount) {
        if (response.failure && response.failure->kind == Failure::Kind::DropConnection
            && response.deltasSent >= response.failure->afterDeltas) {
            dropConnection(socket);
            return;
        }
        sendDelta(socket, response);
        if (response.paceMs > 0)
            break;
    }
    if (response.deltasSent < response.deltaCount)
        return;
    if (response.tailMs > 0 && !response.tailWaited) {
        response.tailWaited = true;
        response.timer->setSingleShot(true);
        response.timer->start(response.tailMs);
        return;
    }

    sendEvent(socket, QStringLiteral("response.output_audio.done"), audioPlace(response));
    QJsonObject transcriptDone = audioPlace(response);
    transcriptDone.insert(QStringLiteral("transcript"), response.transcript);
    sendEvent(socket, QStringLiteral("response.output_audio_transcript.done"), transcriptDone);
    sendEvent(
        socket, QStringLiteral("response.output_item.done"),
        {{QStringLiteral("response_id"), response.id},
         {QStringLiteral("output_index"), 0},
         {QStringLiteral("item"), assistantItem(response.itemId, QStringLiteral("completed"), response.transcript)}});
    finishResponse(socket, QStringLiteral("completed"), {});
}

void RealtimeTestServer::sendDelta(QWebSocket *socket, Response &response)
{
    QJsonObject audio = audioPlace(response);
    const QByteArray piece = response.audio.mid(qsizetype(response.deltasSent) * deltaBytes, deltaBytes);
    audio.insert(QStringLiteral("delta"), QString::fromLatin1(piece.toBase64()));
    sendEvent(socket, QStringLiteral("response.output_audio.delta"), audio);
    ++response.deltasSent;

    // The words keep step with the audio: after delta i of n, i/n of the transcript has gone out.
    const auto wordsDue = static_cast<int>(std::llround(static_cast<double>(response.transcriptPieces.size())
                                                        * response.deltasSent / response.deltaCount));
    if (wordsDue <= response.transcriptPiecesSent)
        return;
    QJsonObject words = audioPlace(response);
    words.insert(QStringLiteral("delta"),
                 response.transcriptPieces.mid(response.transcriptPiecesSent, wordsDue - response.transcriptPiecesSent)
                     .join(QString()));
    response.transcriptPiecesSent = wordsDue;
    sendEvent(socket, QStringLiteral("response.output_audio_transcript.delta"), words);
}

QJsonObject RealtimeTestServer::audioPlace(const Response &response)
{
    return {{QStringLiteral("response_id"), response.id},
            {QStringLiteral("item_id"), response.itemId},
            {QStringLiteral("output_index"), 0},
            {QStringLiteral("content_index"), 0}};
}

void RealtimeTestServer::dropConnection(QWebSocket *socket)
{
    // The server says nothing more on it; what was sent still goes out before the connection is cut
    // without a closing handshake, as when a network goes away.
    const auto found = m_connections.find(socket);
    if (found != m_connections.end() && found->response)
        found->response->timer->stop();
    m_connections.remove(socket);
    socket->flush();
    QTimer::singleShot(50, socket, [socket] { socket->abort(); });
}

void RealtimeTestServer::cancelResponse(QWebSocket *socket, Connection &connection, const QJsonObject &event)
{
    if (!connection.response) {
        sendError(socket, QStringLiteral("invalid_request_error"), QStringLiteral("response_cancel_not_active"),
                  QStringLiteral("Cancellation failed: no active response found"), event);
        return;
    }
    finishResponse(socket, QStringLiteral("cancelled"),
                   {{QStringLiteral("type"), QStringLiteral("cancelled")},
                    {QStringLiteral("reason"), QStringLiteral("client_cancelled")}});
}

void RealtimeTestServer::finishResponse(QWebSocket *socket, const QString &status, const QJsonObject &statusDetails)
{
    const auto found = m_connections.find(socket);
    if (found == m_connections.end() || !found->response)
        return;
    Response response = std::move(*found->response);
    found->response.reset();
    response.timer->stop();
    response.timer->deleteLater(); // this may be its own timeout

    // A cancelled response keeps what it said so far; a failed one said nothing.
    QJsonArray output;
    if (status == u"completed")
        output.append(assistantItem(response.itemId, status, response.transcript));
    else if (status == u"cancelled")
        output.append(assistantItem(response.itemId, QStringLiteral("incomplete"),
                                    response.transcriptPieces.mid(0, response.transcriptPiecesSent).join(QString())));
    const QJsonObject done{
        {QStringLiteral("id"), response.id},
        {QStringLiteral("object"), QStringLiteral("realtime.response")},
        {QStringLiteral("status"), status},
        {QStringLiteral("status_details"), statusDetails.isEmpty() ? QJsonValue(QJsonValue::Null) : statusDetails},
        {QStringLiteral("output"), output},
        {QStringLiteral("conversation_id"), QJsonValue::Null},
        {QStringLiteral("output_modalities"), QJsonArray{QStringLiteral("audio")}},
        {QStringLiteral("usage"), QJsonValue::Null}};
    sendEvent(socket, QStringLiteral("response.done"), {{QStringLiteral("response"), done}});
}

void RealtimeTestServer::sendEvent(QWebSocket *socket, const QString &type, QJsonObject fields)
{
    fields.insert(QStringLiteral("type"), type);
    fields.insert(QStringLiteral("event_id"), nextId(QStringLiteral("event")));
    socket->sendTextMessage(QString::fromUtf8(QJsonDocument(fields).toJson(QJsonDocument::Compact)));
}

void RealtimeTestServer::sendError(QWebSocket *socket, const QString &type, const QString &code, const QString &message,
                                   const QJsonObject &clientEvent, const QString &param)
{
    const QJsonValue clientEventId = clientEvent.contains(u"event_id") ? clientEvent.value(u"event_id") : QJsonValue();
    const QJsonObject error{{QStringLiteral("type"), type},
                            {QStringLiteral("code"), code},
                            {QStringLiteral("message"), message},
                            {QStringLiteral("param"), param.isEmpty() ? QJsonValue() : QJsonValue(param)},
                            {QStringLiteral("event_id"), clientEventId}};
    sendEvent(socket, QStringLiteral("error"), {{QStringLiteral("error"), error}});
}

} // namespace parlino::test
