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

} // namespace parlino
