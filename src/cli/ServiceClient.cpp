#include "cli/ServiceClient.h"

#include "cli/CommandText.h"

#include <cstdio>

namespace parlino {

int runServiceCommand(const QString &method, const QStringList &arguments, const ServiceCall &call)
{
    // Only "-" reads standard input: an empty argument is an empty selection, which the service refuses.
    const QString text = arguments.value(0) == u"-" ? readCommandText({}) : arguments.value(0);
    QString error;
    if (!call(method, text, &error)) {
        std::fprintf(stderr, "parlino: %s\n", qPrintable(error));
        return 1;
    }
    return 0;
}

} // namespace parlino
