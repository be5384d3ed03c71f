#include "LogCapture.h"

#include <QtGlobal>

namespace parlino::test {

namespace {
QMutex g_mutex;
QStringList g_lines;
QtMessageHandler g_previous = nullptr;
int g_active = 0;

void handler(QtMsgType type, const QMessageLogContext &context, const QString &message)
{
    {
        QMutexLocker lock(&g_mutex);
        g_lines.append(message);
    }
    if (g_previous)
        g_previous(type, context, message);
}
} // namespace

LogCapture::LogCapture()
{
    QMutexLocker lock(&g_mutex);
    if (g_active++ == 0) {
        g_lines.clear();
        g_previous = qInstallMessageHandler(handler);
    }
}

LogCapture::~LogCapture()
{
    QMutexLocker lock(&g_mutex);
    if (--g_active == 0)
        qInstallMessageHandler(g_previous);
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
