#include "LogCapture.h"

#include <QLoggingCategory>
#include <QTest>
#include <QtGlobal>

#include <vector>

namespace parlino::test {

namespace {

struct HeldMessage {
    QtMsgType type;
    QByteArray category;
    QString text;
};

QMutex g_mutex;
QStringList g_lines;
std::vector<HeldMessage> g_held;
QtMessageHandler g_captureNext = nullptr;
QtMessageHandler g_quietNext = nullptr;
int g_captures = 0;
bool g_quiet = false;

bool verbose()
{
    static const bool on = qEnvironmentVariableIntValue("PARLINO_TEST_VERBOSE") != 0;
    return on;
}

// Holds back debug and info lines; the caller forwards the rest. Called with g_mutex held.
bool hold(QtMsgType type, const QMessageLogContext &context, const QString &message)
{
    if (verbose() || (type != QtDebugMsg && type != QtInfoMsg))
        return false;
    g_held.push_back({type, QByteArray(context.category ? context.category : "default"), message});
    return true;
}

void quietHandler(QtMsgType type, const QMessageLogContext &context, const QString &message)
{
    QtMessageHandler next = nullptr;
    {
        QMutexLocker lock(&g_mutex);
        if (hold(type, context, message))
            return;
        next = g_quietNext;
    }
    if (next)
        next(type, context, message);
}

void captureHandler(QtMsgType type, const QMessageLogContext &context, const QString &message)
{
    QtMessageHandler next = nullptr;
    {
        QMutexLocker lock(&g_mutex);
        // Only the app's own lines: what Qt or a library says depends on the desktop and its timing.
        if (context.category && qstrncmp(context.category, "parlino", 7) == 0)
            g_lines.append(message);
        // Under a QuietLog the next handler holds the line back itself.
        if (!g_quiet && hold(type, context, message))
            return;
        next = g_captureNext;
    }
    if (next)
        next(type, context, message);
}

// Prints what was held back when the running test function has failed; forgets it otherwise.
void releaseHeld(QtMessageHandler to)
{
    std::vector<HeldMessage> held;
    {
        QMutexLocker lock(&g_mutex);
        held.swap(g_held);
    }
    if (!to || !QTest::currentTestFailed())
        return;
    for (const HeldMessage &message : held) {
        const QMessageLogContext context(nullptr, 0, nullptr, message.category.constData());
        to(message.type, context, message.text);
    }
}

} // namespace

QuietLog::QuietLog()
{
    QMutexLocker lock(&g_mutex);
    Q_ASSERT(!g_quiet && g_captures == 0);
    g_quiet = true;
    g_held.clear();
    g_quietNext = qInstallMessageHandler(quietHandler);
}

QuietLog::~QuietLog()
{
    QtMessageHandler next = nullptr;
    {
        QMutexLocker lock(&g_mutex);
        g_quiet = false;
        next = g_quietNext;
        qInstallMessageHandler(next);
    }
    releaseHeld(next);
}

LogCapture::LogCapture()
{
    QMutexLocker lock(&g_mutex);
    if (g_captures++ == 0) {
        g_lines.clear();
        g_captureNext = qInstallMessageHandler(captureHandler);
        // The diagnostics a user turns on by hand are part of what a test checks.
        QLoggingCategory::setFilterRules(QStringLiteral("parlino.diagnostics.info=true"));
    }
}

LogCapture::~LogCapture()
{
    QtMessageHandler next = nullptr;
    bool release = false;
    {
        QMutexLocker lock(&g_mutex);
        if (--g_captures != 0)
            return;
        QLoggingCategory::setFilterRules(QString());
        next = g_captureNext;
        qInstallMessageHandler(next);
        release = !g_quiet;
    }
    // The test function is returning: a failed check shows what led up to it.
    if (release)
        releaseHeld(next);
}
QStringList LogCapture::lines() const
{
    QMutexLocker lock(&g_mutex);
    return g_lines;
}

bool LogCapture::contains(const QString &line) const
{
    return indexOf(line) >= 0;
}

int LogCapture::indexOf(const QString &line, int from) const
{
    return lines().indexOf(line, from);
}

bool LogCapture::containsInOrder(const QStringList &expected) const
{
    const QStringList all = lines();
    int at = 0;
    for (const QString &line : expected) {
        at = all.indexOf(line, at);
        if (at < 0)
            return false;
        ++at;
    }
    return true;
}

int LogCapture::count(const QString &line) const
{
    return static_cast<int>(lines().count(line));
}

void LogCapture::clear()
{
    QMutexLocker lock(&g_mutex);
    g_lines.clear();
}

} // namespace parlino::test
