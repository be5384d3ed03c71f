#include "cli/CommandText.h"

#include <QFile>

#include <cstdio>

namespace parlino {

QString readCommandText(const QStringList &positional)
{
    if (!positional.isEmpty() && positional != QStringList{QStringLiteral("-")})
        return positional.join(u' ');
    QFile input;
    if (!input.open(stdin, QIODevice::ReadOnly))
        return {};
    return QString::fromUtf8(input.readAll());
}

void printTo(FILE *stream, const QString &text)
{
    const QByteArray bytes = text.toUtf8() + '\n';
    std::fwrite(bytes.constData(), 1, static_cast<size_t>(bytes.size()), stream);
    std::fflush(stream);
}

} // namespace parlino
