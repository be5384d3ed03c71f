#include "usage/SpeechPrices.h"

#include <QHash>

#include <cmath>

namespace parlino {

double speechCentsPerThousandCharacters(const QString &model)
{
    static const QHash<QString, double> prices{
        {QStringLiteral("tts-1"), 1.5},           // $15 per million characters
        {QStringLiteral("tts-1-hd"), 3.0},        // $30 per million characters
        {QStringLiteral("gpt-4o-mini-tts"), 1.5}, // about $0.015 a minute, a minute being about 1000 characters
        {QStringLiteral("gpt-realtime-2.1-mini"), 2.0},
        {QStringLiteral("gpt-realtime-2.1"), 6.4},
        {QStringLiteral("gpt-realtime"), 6.4},
        {QStringLiteral("espeak-ng"), 0.0},
    };
    return prices.value(model, 1.5);
}

QString dollarText(double cents)
{
    if (cents > 0 && cents < 0.5)
        return QStringLiteral("less than $0.01");
    return QStringLiteral("$") + QString::number(static_cast<double>(std::llround(cents)) / 100.0, 'f', 2);
}

} // namespace parlino
