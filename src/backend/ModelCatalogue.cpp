// Dates and successors follow OpenAI's deprecations page; docs/models.md says where the chat request
// shapes come from.

#include "backend/ModelCatalogue.h"

#include "backend/OpenAIConnection.h"
#include "backend/OpenAIError.h"

#include <QJsonDocument>
#include <QJsonValue>
#include <QRegularExpression>

#include <algorithm>

namespace parlino {

namespace {

const QDate speechShutdown(2027, 1, 6);
const QDate chatShutdown(2027, 1, 14);
const QDate transcriptionShutdown(2027, 2, 26);

const QString realtimeSuccessor = QStringLiteral("gpt-realtime-2.1-mini");
const QString chatSuccessor = QStringLiteral("gpt-6-luna");
const QString transcriptionSuccessor = QStringLiteral("gpt-transcribe");

const QString legacyTokenLimit = QStringLiteral("max_tokens");
const QString currentTokenLimit = QStringLiteral("max_completion_tokens");

// What a refusal says when the model itself is gone, and that it speaks of a model at all (so "the
// parameter 'functions' is deprecated" is no retirement).
bool saysModelIsRetired(const QString &message)
{
    static const QRegularExpression retired(
        QStringLiteral("\\b(deprecated|shut\\s*down|no\\s+longer\\s+available|retired)\\b"),
        QRegularExpression::CaseInsensitiveOption);
    static const QRegularExpression model(QStringLiteral("\\bmodels?\\b"), QRegularExpression::CaseInsensitiveOption);
    return retired.match(message).hasMatch() && model.match(message).hasMatch();
}

// OpenAI's error object: {"message", "type", "param", "code"}. An error about a request parameter
// other than the model is never about the model being retired.
bool errorObjectSaysRetired(const QJsonObject &error, bool codeCounts)
{
    if (codeCounts && error.value(u"code").toString() == u"model_not_found")
        return true;
    const QJsonValue param = error.value(u"param");
    if (param.isString() && param.toString() != u"model")
        return false;
    return saysModelIsRetired(error.value(u"message").toString());
}

} // namespace

const QList<KnownModel> &ModelCatalogue::models()
{
    // The first model of each role is that setting's default.
    static const QList<KnownModel> known{
        {QStringLiteral("tts-1"), ModelRole::speech, speechShutdown, realtimeSuccessor},
        {QStringLiteral("tts-1-hd"), ModelRole::speech, speechShutdown, realtimeSuccessor},
        {QStringLiteral("gpt-4o-mini-tts"), ModelRole::speech, speechShutdown, realtimeSuccessor},
        {QStringLiteral("gpt-realtime-2.1-mini"), ModelRole::realtimeSpeech, {}, {}},
        {QStringLiteral("gpt-realtime-2.1"), ModelRole::realtimeSpeech, {}, {}},
        {QStringLiteral("gpt-realtime"), ModelRole::realtimeSpeech, {}, {}},
        {QStringLiteral("gpt-4o-mini"), ModelRole::chat, chatShutdown, chatSuccessor},
        {QStringLiteral("gpt-6-luna"), ModelRole::chat, {}, {}},
        // No date of its own here (the service reports one), but the same successor as its smaller
        // sibling, so a user who chose it keeps working once it is refused.
        {QStringLiteral("gpt-4o"), ModelRole::chat, {}, chatSuccessor},
        // Spoken questions go to gpt-transcribe from the start: its predecessors retire on 26 February 2027.
        {QStringLiteral("gpt-transcribe"), ModelRole::transcription, {}, {}},
        {QStringLiteral("whisper-1"), ModelRole::transcription, transcriptionShutdown, transcriptionSuccessor},
        {QStringLiteral("gpt-4o-transcribe"), ModelRole::transcription, transcriptionShutdown, transcriptionSuccessor},
        {QStringLiteral("gpt-4o-mini-transcribe"), ModelRole::transcription, transcriptionShutdown,
         transcriptionSuccessor},
    };
    return known;
}

QStringList ModelCatalogue::names(ModelRole role)
{
    QStringList result;
    for (const KnownModel &model : models()) {
        if (model.role == role)
            result.append(model.name);
    }
    return result;
}

std::optional<KnownModel> ModelCatalogue::find(const QString &name)
{
    const auto &all = models();
    const auto found = std::find_if(all.cbegin(), all.cend(), [&](const KnownModel &m) { return m.name == name; });
    if (found == all.cend())
        return std::nullopt;
    return *found;
}

bool ModelCatalogue::isKnown(const QString &name, ModelRole role)
{
    const auto model = find(name);
    return model && model->role == role;
}

std::optional<KnownModel> ModelCatalogue::successorOf(const QString &name)
{
    const auto model = find(name);
    if (!model || model->successor.isEmpty())
        return std::nullopt;
    return find(model->successor);
}

ChatRequestShape ModelCatalogue::chatRequestShape(const QString &model)
{
    // Kept exactly as the chat requests have always been sent.
    if (model == u"gpt-4o-mini")
        return {legacyTokenLimit, true, {}};
    // A reasoning model: its token limit counts the reasoning too, so with the default effort a small
    // budget (a 20-token title) can be spent before any answer. "none" keeps the budgets meaning what
    // they meant; temperature stays unsent because only the default is accepted at other efforts.
    if (model == u"gpt-6-luna")
        return {currentTokenLimit, false, QStringLiteral("none")};
    return {currentTokenLimit, true, {}};
}

bool ModelCatalogue::isRetirementError(int status, const QByteArray &body)
{
    if (status < 400 || status > 499)
        return false;
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(body, &parseError);
    if (parseError.error != QJsonParseError::NoError || !document.isObject())
        return saysModelIsRetired(errorMessageFromBody(body));
    const QJsonValue error = document.object().value(u"error");
    if (error.isObject())
        return errorObjectSaysRetired(error.toObject(), status == 404);
    // Some compatible servers answer {"error": "text"} or {"message": "text"}.
    if (error.isString())
        return saysModelIsRetired(error.toString());
    return saysModelIsRetired(document.object().value(u"message").toString());
}

bool ModelCatalogue::isRetirementError(const OpenAIError &error)
{
    return error.kind() == OpenAIError::Kind::apiError
           && isRetirementError(error.statusCode(), error.message().toUtf8());
}

bool ModelCatalogue::isRealtimeRetirementError(const QJsonObject &event)
{
    const QJsonValue inner = event.value(u"error");
    return errorObjectSaysRetired(inner.isObject() ? inner.toObject() : event, true);
}

QString ModelCatalogue::roleName(ModelRole role)
{
    switch (role) {
    case ModelRole::speech: return QStringLiteral("speech");
    case ModelRole::realtimeSpeech: return QStringLiteral("realtime speech");
    case ModelRole::chat: return QStringLiteral("chat");
    case ModelRole::transcription: return QStringLiteral("transcription");
    }
    return {};
}

} // namespace parlino
