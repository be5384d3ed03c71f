#pragma once

#include <QProcess>
#include <QStringList>

#include <chrono>

namespace parlino::test {

// The real parlino executable, started as a user would, with its console lines collected.
class AppProcess final {
public:
    explicit AppProcess(QStringList arguments = {});
    ~AppProcess();

    [[nodiscard]] bool start();
    // Waits until the app printed `line` (exactly); false on time-out or exit.
    [[nodiscard]] bool waitForLine(const QString &line, std::chrono::milliseconds timeout = std::chrono::seconds(15));
    [[nodiscard]] QStringList lines();
    void stop();

    // Runs parlino to completion (a command, or a launch that hands over to a running instance).
    static int runToEnd(const QStringList &arguments, QString *output = nullptr,
                        std::chrono::milliseconds timeout = std::chrono::seconds(30));
    static QString executable();

private:
    void collect();

    QProcess m_process;
    QStringList m_arguments;
    QStringList m_lines;
    QByteArray m_partial;
};

// Runs a desktop tool (xdotool, import, ...) and returns its standard output, trimmed.
QString runTool(const QString &program, const QStringList &arguments);

} // namespace parlino::test
