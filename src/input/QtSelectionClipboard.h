#pragma once

#include "input/SelectionClipboard.h"

#include <QObject>

namespace parlino {

// The selections through QClipboard. The change count is kept by counting clipboard changes from the
// moment this object exists, so create it before the first capture.
class QtSelectionClipboard final : public QObject, public SelectionClipboard {
    Q_OBJECT
public:
    explicit QtSelectionClipboard(QObject *parent = nullptr);

    [[nodiscard]] std::optional<QString> primarySelectionText() override;
    [[nodiscard]] std::optional<QString> clipboardText() override;
    [[nodiscard]] quint64 changeCount() override { return m_changeCount; }
    bool waitForChange(quint64 changeCount, std::chrono::milliseconds timeout) override;

Q_SIGNALS:
    void changed();

private:
    quint64 m_changeCount{0};
};

} // namespace parlino
