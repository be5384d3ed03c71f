#pragma once

#include "OpenAITestServer.h"
#include "TestEnvironment.h"
#include "ai/OpenAIClient.h"
#include "backend/ModelSettings.h"
#include "backend/OpenAIConnection.h"
#include "core/Defaults.h"
#include "speech/SpeechEndpointProvider.h"
#include "speech/SpeechSynthesizer.h"
#include "speech/TTSCacheService.h"

#include <memory>

namespace parlino::test {

// The OpenAI side as the app builds it, against the local test server: the settings of the test's
// folders, the speech cache in its data folder, the speech endpoint and the client over them.
struct LocalOpenAI {
    explicit LocalOpenAI(const TestEnvironment &environment)
        : defaults(environment.defaultsFile())
        , cache(environment.dataHome() + QStringLiteral("/TTSCache"))
        , connection(QStringLiteral("chat-key"), server.baseUrlString())
        , models(defaults)
        , speech(cache, models)
        , client(connection, speech, models)
    {
        speech.addProvider(std::make_unique<SpeechEndpointProvider>(connection, models));
    }

    Defaults defaults;
    OpenAITestServer server;
    TTSCacheService cache;
    OpenAIConnection connection;
    ModelSettings models;
    SpeechSynthesizer speech;
    OpenAIClient client;
};

} // namespace parlino::test
