#pragma once

#include <QMutex>
#include <QString>
#include <QStringList>

namespace parlino::test {

// Records every message the process logs while it is alive (and still passes them on), so a test can
// check the app's console lines and their order.
class LogCapture final {
public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture &) = delete;
    LogCapture &operator=(const LogCapture &) = delete;

    [[nodiscard]] QStringList lines() const;
    [[nodiscard]] bool contains(const QString &line) const;
    // Index of the first line equal to `line` at or after `from`, or -1.
    [[nodiscard]] int indexOf(const QString &line, int from = 0) const;
    // True when every line appears, each after the one before it.
    [[nodiscard]] bool containsInOrder(const QStringList &expected) const;
    [[nodiscard]] int count(const QString &line) const;
    void clear();
};

} // namespace parlino::test
