// The chat side has five request kinds over the chat-completions endpoint, each with its own prompt,
// temperature and token budget. The prompts are product copy; change them only on purpose.

#include "ai/OpenAIClient.h"

#include "ai/ChatCompletionResponse.h"
#include "backend/ModelCatalogue.h"
#include "backend/ModelSettings.h"
#include "backend/OpenAIConnection.h"
#include "backend/OpenAIError.h"
#include "core/Logging.h"
#include "speech/SpeechSynthesizer.h"
#include "speech/TextChunker.h"

#include <QJsonDocument>
#include <QRegularExpression>

namespace parlino {

namespace {

constexpr int historyTurnsSent = 6;
// Named, not a temporary: GCC 12 destroys temporaries inside a co_await expression twice.
const QJsonObject noResponseFormat;

QJsonObject message(const QString &role, const QString &content)
{
    return QJsonObject{{QStringLiteral("role"), role}, {QStringLiteral("content"), content}};
}

const QString summaryPrompt = QStringLiteral(
    "You are creating an AUDIO SUMMARY that will be narrated to a listener. Write in a natural, conversational "
    "speaking voice as if you're explaining the key points to someone.\n\nGuidelines:\n- Use a friendly, engaging "
    "tone suitable for listening\n- Structure the summary as spoken narration, not written text\n- Include natural "
    "transitions between points (\"First...\", \"Additionally...\", \"Most importantly...\")\n- Avoid bullet points, "
    "lists, or written formatting - speak in complete sentences\n- Make it flow naturally when read aloud\n- Focus "
    "on the most important insights and takeaways\n\nTarget length: ");

QString styleInstructions(PodcastType type)
{
    switch (type) {
    case PodcastType::educational:
        return QStringLiteral(
            "You are an expert educational podcast creator. Convert the provided content into an engaging "
            "educational podcast script.\n\nStructure:\n1. Introduction - Hook the listener and preview key "
            "topics\n2. Key Concepts - Explain main ideas clearly with examples\n3. Practical Applications - How to "
            "use this information\n4. Summary - Recap main points and takeaways\n\nStyle: Clear, friendly, "
            "informative. Use analogies and examples. Break down complex ideas.\nTone: Enthusiastic teacher helping "
            "someone learn");
    case PodcastType::fictional:
        return QStringLiteral(
            "You are a creative storyteller. Transform the provided content into an engaging fictional narrative "
            "podcast.\n\nStructure:\n1. Set the scene - Create a compelling scenario\n2. Develop characters - Make "
            "concepts into characters/personas\n3. Build narrative - Weave information through story\n4. Resolution "
            "- Conclude with key insights\n\nStyle: Dramatic, engaging, creative. Use vivid descriptions and "
            "dialogue.\nTone: Storyteller bringing content to life");
    case PodcastType::business:
        return QStringLiteral(
            "You are a business strategy consultant creating analysis podcasts. Transform the content into "
            "professional business insights.\n\nStructure:\n1. Context - Market situation and background\n2. "
            "Analysis - Deep dive into implications\n3. Strategic Insights - What this means for business\n4. "
            "Recommendations - Actionable next steps\n\nStyle: Professional, analytical, strategic. Use business "
            "terminology.\nTone: Expert consultant providing valuable insights");
    case PodcastType::conversational:
        return QStringLiteral(
            "You are creating an interview-style podcast with two hosts discussing the content. Make it feel like a "
            "natural conversation.\n\nStructure:\n1. Introduction - Hosts introduce topic casually\n2. Discussion - "
            "Back-and-forth exploring ideas\n3. Questions & Answers - Hosts ask each other clarifying questions\n4. "
            "Wrap-up - Key takeaways from discussion\n\nStyle: Conversational, friendly, engaging. Natural dialogue "
            "between Host A and Host B.\nTone: Two knowledgeable friends discussing fascinating topic");
    case PodcastType::deepDive:
        return QStringLiteral(
            "You are an expert researcher creating in-depth analysis podcasts. Provide comprehensive exploration of "
            "the content.\n\nStructure:\n1. Overview - Comprehensive introduction\n2. Detailed Analysis - Thorough "
            "examination of each aspect\n3. Connections - How ideas interrelate\n4. Implications - Broader "
            "significance and impact\n\nStyle: Thorough, academic yet accessible, comprehensive. Leave no stone "
            "unturned.\nTone: Knowledgeable expert providing deep understanding");
    case PodcastType::quickSummary:
        return QStringLiteral(
            "You are creating a fast-paced summary podcast. Distill the content to its essence.\n\nStructure:\n1. "
            "Quick intro - What we're covering\n2. Key Points - 3-5 main ideas (numbered)\n3. Main Takeaways - "
            "Bottom line\n4. Quick wrap - Final thought\n\nStyle: Concise, efficient, focused. Get to the point "
            "quickly.\nTone: Energetic narrator delivering essentials");
    }
    return {};
}

int wordCount(const QString &text)
{
    static const QRegularExpression whitespace(QStringLiteral("\\s+"));
    return static_cast<int>(text.split(whitespace, Qt::SkipEmptyParts).size());
}

// Prompt texts are built outside the coroutines below (GCC 12 rejects some string-builder
// expressions inside a coroutine body).

QString questionSystemPrompt(const QString &context)
{
    return QStringLiteral("You are a helpful learning assistant. The user is listening to audio narration of the "
                          "following content:\n\n---\n")
           + leadingCharacters(context, 3000)
           + QStringLiteral("\n---\n\nAnswer their question clearly and concisely, referencing the content they're "
                            "listening to. Keep your answer under 60 seconds when spoken (about 150 words). Focus on "
                            "helping them understand the material.");
}

QString podcastScriptMessage(const QString &text, PodcastType podcastType)
{
    const int words = wordCount(text);
    return styleInstructions(podcastType) + QStringLiteral("\n\nTarget Duration: ")
           + estimateDuration(podcastType, words) + QStringLiteral("\nSource Word Count: ") + QString::number(words)
           + QStringLiteral(" words\n\nPlease create an engaging podcast script based on this content:\n\n---\n") + text
           + QStringLiteral("\n---\n\nRemember:\n- Make it conversational and engaging for audio\n- Maintain the key "
                            "information and insights\n- Length should match the target duration\n- Write ONLY the "
                            "script content (no stage directions or meta-commentary)");
}

QString podcastMetadataMessage(const QString &script)
{
    return QStringLiteral("Based on this podcast script and source material, generate a compelling title and "
                          "summary.\n\nPodcast Script Preview:\n")
           + leadingCharacters(script, 1000)
           + QStringLiteral("...\n\nGenerate:\n1. A compelling, descriptive title (max 60 characters)\n2. A concise "
                            "2-sentence summary of what this podcast covers\n\nReturn ONLY valid JSON in this exact "
                            "format:\n{\"title\": \"Your Title Here\", \"summary\": \"Your summary here.\"}");
}

QString audioTitleMessage(const QString &context)
{
    return QStringLiteral("Based on this text content, generate a concise, descriptive filename (3-5 words max, no "
                          "special characters).\nMake it clear what the audio is about.\n\nContent:\n")
           + leadingCharacters(context, 500)
           + QStringLiteral("...\n\nReturn ONLY the title text, nothing else. Use hyphens instead of spaces.\nExample: "
                            "Market-Analysis-Report or Product-Launch-Summary");
}

QString summaryUserMessage(const QString &text)
{
    return QStringLiteral("Create an audio summary of this content that I can listen to:\n\n") + text;
}

} // namespace

OpenAIClient::OpenAIClient(OpenAIConnection &connection, SpeechSynthesizer &speech, ModelSettings &models,
                           QObject *parent)
    : QObject(parent)
    , m_connection(connection)
    , m_speech(speech)
    , m_models(models)
{
}

OpenAIClient::~OpenAIClient() = default;

QCoro::Task<QString> OpenAIClient::generateSpeech(QString text, TTSVoice voice, double speed,
                                                  std::function<bool()> shouldStop)
{
    // Named, not a temporary: GCC 12 destroys temporaries inside a co_await expression twice.
    QCoro::Task<QString> speech = m_speech.generateSpeech(text, voice, speed, std::move(shouldStop));
    co_return co_await speech;
}

QCoro::Task<> OpenAIClient::streamSpeech(QString text, TTSVoice voice, double speed,
                                         std::shared_ptr<SpeechStream> stream)
{
    QCoro::Task<> streaming = m_speech.streamSpeech(text, voice, speed, std::move(stream));
    co_await streaming;
}

QString OpenAIClient::speechCacheVoice(TTSVoice voice) const
{
    return m_speech.cacheVoice(voice);
}

QString OpenAIClient::speechProviderName() const
{
    return m_speech.currentProvider().name();
}

QString OpenAIClient::speechModelName() const
{
    return m_speech.currentProvider().model();
}

QCoro::Task<QString> OpenAIClient::chatCompletion(QJsonArray messages, double temperature, int maxTokens,
                                                  QJsonObject responseFormat)
{
    const QString model = m_models.chatModel();
    std::optional<OpenAIError> refused;
    try {
        QCoro::Task<QString> asking = chatCompletionWith(model, messages, temperature, maxTokens, responseFormat);
        co_return co_await asking;
    } catch (const OpenAIError &error) {
        if (!ModelCatalogue::isRetirementError(error))
            throw;
        refused = error;
    }
    PLOG(lcAi) << "🔄 The service has retired " << model << " - switching to its successor";
    m_models.switchToSuccessor(ModelRole::chat, model);
    // Another request may have switched first; either way the repeat goes to the model in use now.
    const QString successor = m_models.chatModel();
    if (successor == model)
        throw *refused;
    QCoro::Task<QString> again = chatCompletionWith(successor, messages, temperature, maxTokens, responseFormat);
    co_return co_await again;
}

QCoro::Task<QString> OpenAIClient::chatCompletionWith(QString model, QJsonArray messages, double temperature,
                                                      int maxTokens, QJsonObject responseFormat)
{
    const auto url = m_connection.endpoint(QStringLiteral("/chat/completions"));
    if (!url)
        throw OpenAIError::invalidURL();

    // Newer models take another name for the token budget and only their default temperature.
    const ChatRequestShape shape = ModelCatalogue::chatRequestShape(model);
    QJsonObject body{{QStringLiteral("model"), model}, {QStringLiteral("messages"), messages}};
    if (shape.sendsTemperature)
        body.insert(QStringLiteral("temperature"), temperature);
    body.insert(shape.tokenLimitMember, maxTokens);
    if (!shape.reasoningEffort.isEmpty())
        body.insert(QStringLiteral("reasoning_effort"), shape.reasoningEffort);
    if (!responseFormat.isEmpty())
        body.insert(QStringLiteral("response_format"), responseFormat);

    QCoro::Task<OpenAIConnection::HttpAnswer> posting = m_connection.postJSON(*url, body);
    const OpenAIConnection::HttpAnswer answer = co_await posting;
    if (answer.statusCode != 200)
        throw OpenAIError::apiError(answer.statusCode, errorMessageFromBody(answer.body));

    const auto response = ChatCompletionResponse::decode(answer.body);
    if (!response)
        throw OpenAIError::invalidResponse();
    if (response->choices.isEmpty())
        throw OpenAIError::noResponse();
    co_return response->choices.first().message.content;
}

QCoro::Task<QString> OpenAIClient::summarize(QString text, SummaryLength targetLength)
{
    const QJsonArray messages{message(QStringLiteral("system"), QString(summaryPrompt + instruction(targetLength))),
                              message(QStringLiteral("user"), summaryUserMessage(text))};
    const int budget = maxTokens(targetLength);
    co_return co_await chatCompletion(messages, 0.3, budget, noResponseFormat);
}

QCoro::Task<QString> OpenAIClient::answerQuestion(QString question, QString context,
                                                  QList<AIMessage> conversationHistory)
{
    QJsonArray messages{message(QStringLiteral("system"), questionSystemPrompt(context))};
    // Older turns are dropped to keep the request small; the recent ones carry the thread.
    const qsizetype first = std::max<qsizetype>(0, conversationHistory.size() - historyTurnsSent);
    for (qsizetype i = first; i < conversationHistory.size(); ++i)
        messages.append(message(rawValue(conversationHistory[i].role), conversationHistory[i].content));
    messages.append(message(QStringLiteral("user"), question));
    co_return co_await chatCompletion(messages, 0.7, 200, noResponseFormat);
}

QCoro::Task<QString> OpenAIClient::generatePodcastScript(QString text, PodcastType podcastType)
{
    PLOG(lcAi) << "📝 Generating podcast script for type: " << rawValue(podcastType);
    const QJsonArray messages{message(QStringLiteral("user"), podcastScriptMessage(text, podcastType))};
    const QString script = co_await chatCompletion(messages, 0.8, 4000, noResponseFormat);
    PLOG(lcAi) << "✅ Podcast script generated (" << characterCount(script) << " characters)";
    co_return script;
}

QCoro::Task<PodcastMetadata> OpenAIClient::generatePodcastMetadata(QString script, QString sourceText)
{
    Q_UNUSED(sourceText)
    PLOG(lcAi) << "📋 Generating podcast metadata";
    const QJsonArray messages{message(QStringLiteral("user"), podcastMetadataMessage(script))};
    const QJsonObject jsonFormat{{QStringLiteral("type"), QStringLiteral("json_object")}};
    const QString answer = co_await chatCompletion(messages, 0.7, 200, jsonFormat);

    const QJsonDocument document = QJsonDocument::fromJson(answer.toUtf8());
    const QJsonValue title = document.object().value(u"title");
    const QJsonValue summary = document.object().value(u"summary");
    if (!document.isObject() || !title.isString() || !summary.isString())
        throw OpenAIError::invalidResponse();
    PodcastMetadata metadata{title.toString(), summary.toString()};
    PLOG(lcAi) << "✅ Podcast metadata generated: " << metadata.title;
    co_return metadata;
}

QCoro::Task<QString> OpenAIClient::generateAudioTitle(QString context)
{
    PLOG(lcAi) << "🏷️ Generating audio title from context";
    const QJsonArray messages{message(QStringLiteral("user"), audioTitleMessage(context))};
    const QString title = (co_await chatCompletion(messages, 0.5, 20, noResponseFormat)).trimmed();
    PLOG(lcAi) << "✅ Generated title: " << title;
    co_return title;
}

} // namespace parlino
