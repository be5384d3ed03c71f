#pragma once

#include <QProcess>
#include <QStringList>
#include <QTest>

namespace parlino::test {

// Runs tests/support/selection-app and waits until its window has the focus ("ready"). Its later
// output lines ("copied", "interrupted") are collected in output().
class SelectionApp final {
public:
    explicit SelectionApp(const QStringList &arguments)
    {
        m_process.setProgram(QStringLiteral(PARLINO_SELECTION_APP));
        m_process.setArguments(arguments);
        m_process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        m_process.start();
    }
    ~SelectionApp()
    {
        m_process.kill();
        m_process.waitForFinished();
    }
    SelectionApp(const SelectionApp &) = delete;
    SelectionApp &operator=(const SelectionApp &) = delete;

    // True once the application said "ready"; false when it exited or stayed silent for 20 s.
    [[nodiscard]] bool waitUntilReady() { return waitForLine(QStringLiteral("ready")); }

    // Waits until the application has printed `line` (or exited, or stayed silent for 20 s).
    [[nodiscard]] bool waitForLine(const QString &line)
    {
        while (!output().contains(line)) {
            if (m_process.state() == QProcess::NotRunning || !m_process.waitForReadyRead(20000))
                return false;
        }
        return true;
    }

    [[nodiscard]] QStringList output()
    {
        m_output += QString::fromUtf8(m_process.readAllStandardOutput());
        return m_output.split(u'\n', Qt::SkipEmptyParts);
    }

    [[nodiscard]] qint64 processId() const { return m_process.processId(); }

private:
    QProcess m_process;
    QString m_output;
};

} // namespace parlino::test
