#pragma once

#include <QString>

namespace parlino {

// What a thousand characters of speech cost, in US cents, by model: the one table every usage figure and
// estimate is priced from. The speech endpoint's models are priced per character by OpenAI; the Realtime
// and token-priced models are estimates from their audio-token prices at an average reading pace (see
// docs/usage.md). The offline voice costs nothing; a model not listed is priced like tts-1.
[[nodiscard]] double speechCentsPerThousandCharacters(const QString &model);

// A cost in cents as a user reads it: dollars to the cent ("$0.08"), "less than $0.01" for a cost that
// would round to nothing, "$0.00" for none.
[[nodiscard]] QString dollarText(double cents);

} // namespace parlino
