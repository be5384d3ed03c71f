// A chat completion answer as it comes from the network.
#include "FuzzSupport.h"
#include "ai/ChatCompletionResponse.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    (void)parlino::ChatCompletionResponse::decode(parlino::fuzz::bytes(data, size));
    return 0;
}
