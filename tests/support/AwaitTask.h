#pragma once

#include "core/Error.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QEventLoop>
#include <qcoro/qcorotask.h>

#include <chrono>
#include <optional>
#include <type_traits>
#include <variant>

namespace parlino::test {

// The end of an asynchronous call: its value, or the description of the parlino::Error it threw.
template <typename T> struct TaskOutcome {
    using Value = std::conditional_t<std::is_void_v<T>, std::monostate, T>;
    std::optional<Value> value;
    std::optional<QString> error;
    bool finished = false;
};

namespace detail {

template <typename T> QCoro::Task<> capture(QCoro::Task<T> task, TaskOutcome<T> *outcome)
{
    try {
        if constexpr (std::is_void_v<T>) {
            co_await std::move(task);
            outcome->value = std::monostate{};
        } else {
            outcome->value = co_await std::move(task);
        }
    } catch (const parlino::Error &error) {
        outcome->error = error.description();
    }
    outcome->finished = true;
}

} // namespace detail

// Runs the event loop until task ends (a throwing task is safe here, unlike QCoro::waitFor). The limit
// only keeps a broken test from hanging; `finished` tells whether the task ended.
template <typename T>
TaskOutcome<T> awaitTask(QCoro::Task<T> task, std::chrono::milliseconds limit = std::chrono::seconds(90))
{
    TaskOutcome<T> outcome;
    auto running = detail::capture(std::move(task), &outcome);
    const QDeadlineTimer deadline(limit);
    while (!outcome.finished && !deadline.hasExpired())
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 50);
    return outcome;
}

} // namespace parlino::test
