#include "input/QtSelectionClipboard.h"

#include <QClipboard>
#include <QCoreApplication>
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

QtSelectionClipboard::QtSelectionClipboard(QObject *parent)
    : QObject(parent)
{
    connect(QGuiApplication::clipboard(), &QClipboard::changed, this, [this](QClipboard::Mode mode) {
        if (mode != QClipboard::Clipboard)
            return;
        // Only another application writing counts. The notice that an owner quit (the clipboard is
        // then empty) can arrive late, after newer content, and must not pass for a fresh copy.
        QClipboard *clipboard = QGuiApplication::clipboard();
        if (clipboard->ownsClipboard())
            return;
        const QMimeData *data = clipboard->mimeData(QClipboard::Clipboard);
        if (!data || data->formats().isEmpty())
            return;
        ++m_changeCount;
        Q_EMIT changed();
    });
}

std::optional<QString> QtSelectionClipboard::primarySelectionText()
{
    // Ownership notices still queued would leave the selection's owner unknown to Qt.
    QCoreApplication::processEvents(QEventLoop::ExcludeUserInputEvents);
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
