#include "core/StackTrace.h"

#include "core/Logging.h"

#include <QDateTime>

#include <array>
#include <cstdlib>
#include <cxxabi.h>
#include <execinfo.h>
#include <memory>

namespace parlino {

namespace {

// "binary(mangled+0x12) [0x...]" → "binary(demangled+0x12) [0x...]"
QString demangleFrame(const char *frame)
{
    QString text = QString::fromLocal8Bit(frame);
    const qsizetype open = text.indexOf(u'(');
    const qsizetype plus = text.indexOf(u'+', open);
    if (open < 0 || plus <= open + 1)
        return text;
    const QByteArray mangled = text.mid(open + 1, plus - open - 1).toLocal8Bit();
    int status = 0;
    std::unique_ptr<char, decltype(&std::free)> demangled(
        abi::__cxa_demangle(mangled.constData(), nullptr, nullptr, &status), &std::free);
    if (status != 0 || !demangled)
        return text;
    return text.left(open + 1) + QString::fromLocal8Bit(demangled.get()) + text.mid(plus);
}

} // namespace

QStringList currentStackTrace(int skipFrames)
{
    std::array<void *, 64> addresses{};
    const int count = backtrace(addresses.data(), static_cast<int>(addresses.size()));
    std::unique_ptr<char *, decltype(&std::free)> symbols(backtrace_symbols(addresses.data(), count), &std::free);
    QStringList frames;
    for (int i = skipFrames; i < count; ++i)
        frames << (symbols ? demangleFrame(symbols.get()[i])
                           : QStringLiteral("0x%1").arg(quintptr(addresses[i]), 0, 16));
    return frames;
}

void logAccessibilityQuery(const QString &caller, const QDateTime &when)
{
    if (!lcDiagnostics().isInfoEnabled())
        return; // the stack is not even walked
    const QLoggingCategory &category = lcDiagnostics();
    PLOG(category) << "🔍 DEBUG: About to call AXIsProcessTrusted() from " << caller << "()";
    PLOG(category) << "   Timestamp: "
                   << QString::number(static_cast<double>(when.toMSecsSinceEpoch()) / 1000.0, 'f', 3);
    PLOG(category) << "   Stack trace:";
    // Skips this function and the frame that called it for the trace.
    for (const QString &frame : currentStackTrace(3))
        PLOG(category) << "      " << frame;
}

} // namespace parlino
