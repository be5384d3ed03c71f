#pragma once

#include <QByteArray>
#include <QHash>
#include <QJsonObject>
#include <QList>
#include <QObject>
#include <QSet>
#include <QString>
#include <QStringList>
#include <QUrl>

#include <chrono>
#include <functional>
#include <optional>
#include <utility>

class QTimer;
class QWebSocket;
class QWebSocketServer;

namespace parlino::test {

// A stand-in for the OpenAI Realtime API on 127.0.0.1 (random port), speaking the events that a speech
// client needs, with real speech (espeak-ng, resampled to 24 kHz) as PCM16 audio deltas.
//
//   ws://127.0.0.1:PORT/v1/realtime?model=M   with "Authorization: Bearer KEY"
//
// A wrong key or a retired model gets an error event and the connection is closed; otherwise
// session.created. Client events: session.update (voice and speed checked as the service checks them,
// "session.type" required), conversation.item.create (a user text), response.create (text in "input" or
// the last user item; answered with response.created, response.output_item.added, the audio and
// transcript deltas, their done events, response.output_item.done and response.done; a second one while
// one runs is refused), response.cancel. Anything else gets an error event.
// Long texts are spoken only up to their first dozen words; the transcript still covers them whole.
//
// Lives on the thread that created it; every setter and getter is for that thread.
class RealtimeTestServer final : public QObject {
    Q_OBJECT
public:
    static constexpr int sampleRate = 24000;

    // Every client event, in arrival order, with the index of the connection it came on (0 for the
    // first connection the server accepted, refused ones included).
    struct ReceivedEvent {
        int connection = 0;
        QJsonObject event;
    };

    // What goes wrong with the next response: the connection drops (no closing handshake) after some
    // audio deltas, or the response ends as "failed" with this error before any audio. A response with
    // fewer deltas than afterDeltas completes.
    struct Failure {
        enum class Kind { DropConnection, FailResponse };
        Kind kind = Kind::FailResponse;
        int afterDeltas = 0;
        QString type;
        QString code;
        QString message;

        [[nodiscard]] static Failure dropAfterDeltas(int deltas) { return {Kind::DropConnection, deltas, {}, {}, {}}; }
        [[nodiscard]] static Failure failed(QString code = QStringLiteral("server_error"),
                                            QString message = QStringLiteral("The server had an error while "
                                                                             "processing your request."),
                                            QString type = QStringLiteral("server_error"))
        {
            return {Kind::FailResponse, 0, std::move(type), std::move(code), std::move(message)};
        }
    };

    explicit RealtimeTestServer(QObject *parent = nullptr);
    ~RealtimeTestServer() override;

    [[nodiscard]] bool isListening() const;
    // ws://127.0.0.1:PORT/v1
    [[nodiscard]] QUrl baseUrl() const;
    [[nodiscard]] QString baseUrlString() const { return baseUrl().toString(); }

    // An empty key (the default) accepts any non-empty key.
    void setExpectedKey(const QString &key);
    // Connections for these models are refused with model_not_found.
    void setRetiredModels(const QStringList &models);
    // Time from response.created to the first audio delta.
    void setFirstAudioDelay(std::chrono::milliseconds delay);
    // Shapes responses like a model that makes charactersPerSecond of text a second: the spoken words'
    // audio comes at that rate, and the response ends after the whole text's time. 0 sends at once.
    void setPace(double charactersPerSecond);
    // The transcript the model reports for a text (by default the text itself).
    void setTranscriptRewrite(std::function<QString(QString)> rewrite);
    // Applies to the next response only.
    void setFailure(const Failure &failure);
    void clearFailure();

    [[nodiscard]] QList<ReceivedEvent> receivedEvents() const { return m_received; }
    // The received events of one type, e.g. "response.create".
    [[nodiscard]] QList<QJsonObject> receivedEvents(const QString &type) const;
    void clearReceivedEvents() { m_received.clear(); }
    // Responses started (response.create events that got a response.created).
    [[nodiscard]] int responseCount() const { return m_responseCount; }
    [[nodiscard]] int connectionCount() const { return m_connectionCount; }

    // The PCM16 little-endian mono 24 kHz audio the server sends for text at speed (cached).
    [[nodiscard]] QByteArray audioFor(const QString &text, double speed = 1.0);

private:
    struct Response {
        QString id;
        QString itemId;
        QByteArray audio;
        QStringList transcriptPieces; // joined they are the transcript
        QString transcript;
        int deltaCount = 0;
        int deltasSent = 0;
        int transcriptPiecesSent = 0;
        int paceMs = 0; // between paced deltas; 0 sends them all at once
        // Paced: how long the response stays open after its last delta, for the words not spoken.
        int tailMs = 0;
        bool tailWaited = false;
        std::optional<Failure> failure;
        QTimer *timer = nullptr;
    };
    struct Connection {
        int index = 0;
        QJsonObject session;
        QString lastUserText;
        std::optional<Response> response;
    };

    void acceptConnection();
    // The error code and message a new connection is refused with, if it is.
    [[nodiscard]] std::optional<std::pair<QString, QString>> refusalFor(const QWebSocket &socket,
                                                                        const QString &model) const;
    void handleMessage(QWebSocket *socket, const QString &message);
    void updateSession(QWebSocket *socket, Connection &connection, const QJsonObject &event);
    void createItem(QWebSocket *socket, Connection &connection, const QJsonObject &event);
    void createResponse(QWebSocket *socket, Connection &connection, const QJsonObject &event);
    void cancelResponse(QWebSocket *socket, Connection &connection, const QJsonObject &event);
    void startAudio(QWebSocket *socket);
    void sendNextDelta(QWebSocket *socket);
    void sendDelta(QWebSocket *socket, Response &response);
    // The fields that place an audio or transcript event: response, item, output and content index.
    [[nodiscard]] static QJsonObject audioPlace(const Response &response);
    void dropConnection(QWebSocket *socket);
    void finishResponse(QWebSocket *socket, const QString &status, const QJsonObject &statusDetails);
    void sendEvent(QWebSocket *socket, const QString &type, QJsonObject fields);
    void sendError(QWebSocket *socket, const QString &type, const QString &code, const QString &message,
                   const QJsonObject &clientEvent = {}, const QString &param = {});
    QString nextId(const QString &prefix);

    QWebSocketServer *m_server;
    QHash<QWebSocket *, Connection> m_connections;
    QList<ReceivedEvent> m_received;
    QString m_expectedKey;
    QSet<QString> m_retiredModels;
    std::chrono::milliseconds m_firstAudioDelay{0};
    double m_pace = 0;
    std::function<QString(QString)> m_transcriptRewrite;
    std::optional<Failure> m_failure;
    QHash<QString, QByteArray> m_audioCache;
    int m_connectionCount = 0;
    int m_responseCount = 0;
    int m_idCounter = 0;
};

} // namespace parlino::test
