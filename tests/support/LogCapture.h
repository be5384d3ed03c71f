#pragma once

#include <QMutex>
#include <QString>
#include <QStringList>

namespace parlino::test {

// Records the app's own messages (its parlino.* categories) while it is alive, so a test can check
// the app's console lines and their order. Warnings are passed on at once; the ordinary chatter
// (debug and info lines, stack traces included) is held back and printed only when the test function
// fails, so a failure's report stays short enough to read and still shows what led up to it. Set
// PARLINO_TEST_VERBOSE=1 to see every line as it is logged. While one lives, the diagnostics category
// (off for users) is on, so its lines can be checked too.
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

// Holds back debug and info lines for as long as it lives (typically one test function, from init()
// to cleanup()) and prints them only when that function fails. LogCaptures inside it still see every
// line.
class QuietLog final {
public:
    QuietLog();
    ~QuietLog();
    QuietLog(const QuietLog &) = delete;
    QuietLog &operator=(const QuietLog &) = delete;
};

} // namespace parlino::test
