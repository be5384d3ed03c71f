#include "input/QtSelectionClipboard.h"

#include <QClipboard>
#include <QEventLoop>
#include <QGuiApplication>
#include <QMimeData>
#include <QTimer>

namespace parlino {

namespace {

std::optional<QString> plainText(QClipboard::Mode mode)
{
    QClipboard *clipboard = QGuiApplication::clipboard();
    if (mode == QClipboard::Selection && !clipboard->supportsSelection())
        return std::nullopt;
    // Only the text form is asked for: converting every offered format would take longer and some
    // owners answer slowly for images.
    const QMimeData *data = clipboard->mimeData(mode);
    if (!data || !data->hasText())
        return std::nullopt;
    return data->text();
}

} // namespace

QtSelectionClipboard::QtSelectionClipboard(QObject *parent) : QObject(parent)
{
    connect(QGuiApplication::clipboard(), &QClipboard::changed, this, [this](QClipboard::Mode mode) {
        if (mode != QClipboard::Clipboard)
            return;
        ++m_changeCount;
        Q_EMIT changed();
    });
}

std::optional<QString> QtSelectionClipboard::primarySelectionText()
{
    return plainText(QClipboard::Selection);
}

std::optional<QString> QtSelectionClipboard::clipboardText()
{
    return plainText(QClipboard::Clipboard);
}

bool QtSelectionClipboard::waitForChange(quint64 changeCount, std::chrono::milliseconds timeout)
{
    if (m_changeCount > changeCount)
        return true;
    QEventLoop loop;
    QTimer timer;
    timer.setSingleShot(true);
    connect(&timer, &QTimer::timeout, &loop, &QEventLoop::quit);
    connect(this, &QtSelectionClipboard::changed, &loop, &QEventLoop::quit);
    timer.start(timeout);
    // User input waits, so a second hot-key press cannot start a capture inside this one.
    loop.exec(QEventLoop::ExcludeUserInputEvents);
    return m_changeCount > changeCount;
}

} // namespace parlino
