#include "AppProcess.h"

#include <QDeadlineTimer>
#include <QEventLoop>
#include <QTest>
#include <QTimer>

namespace parlino::test {

AppProcess::AppProcess(QStringList arguments)
    : m_arguments(std::move(arguments))
{
    m_process.setProcessChannelMode(QProcess::MergedChannels);
    QObject::connect(&m_process, &QProcess::readyRead, [this] { collect(); });
}

AppProcess::~AppProcess()
{
    stop();
}

QString AppProcess::executable()
{
    return QStringLiteral(PARLINO_EXECUTABLE);
}

bool AppProcess::start()
{
    m_process.start(executable(), m_arguments);
    return m_process.waitForStarted();
}

void AppProcess::collect()
{
    m_partial += m_process.readAll();
    qsizetype newline = 0;
    while ((newline = m_partial.indexOf('\n')) >= 0) {
        m_lines << QString::fromUtf8(m_partial.left(newline));
        m_partial.remove(0, newline + 1);
    }
}

bool AppProcess::waitForLine(const QString &line, std::chrono::milliseconds timeout)
{
    QDeadlineTimer deadline(timeout);
    while (!m_lines.contains(line)) {
        if (deadline.hasExpired() || m_process.state() == QProcess::NotRunning)
            return m_lines.contains(line);
        QTest::qWait(20);
    }
    return true;
}

QStringList AppProcess::lines()
{
    collect();
    return m_lines;
}

void AppProcess::stop()
{
    if (m_process.state() == QProcess::NotRunning)
        return;
    m_process.terminate();
    if (!m_process.waitForFinished(5000)) {
        m_process.kill();
        m_process.waitForFinished(5000);
    }
    collect();
}

int AppProcess::runToEnd(const QStringList &arguments, QString *output, std::chrono::milliseconds timeout)
{
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    // This process's event loop keeps running meanwhile, so local servers of the test can answer the run.
    QEventLoop loop;
    QObject::connect(&process, &QProcess::finished, &loop, &QEventLoop::quit);
    QObject::connect(&process, &QProcess::errorOccurred, &loop, &QEventLoop::quit);
    QTimer::singleShot(timeout, &loop, &QEventLoop::quit);
    process.start(executable(), arguments);
    loop.exec();
    if (process.state() != QProcess::NotRunning) {
        process.kill();
        process.waitForFinished();
        return -1;
    }
    if (output)
        *output = QString::fromUtf8(process.readAll());
    return process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
}

QString runTool(const QString &program, const QStringList &arguments)
{
    QProcess process;
    process.start(program, arguments);
    process.waitForFinished(10000);
    return QString::fromUtf8(process.readAllStandardOutput()).trimmed();
}

} // namespace parlino::test
