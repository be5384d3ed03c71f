#pragma once

#include <QObject>
#include <QPalette>
#include <QString>

namespace parlino {

class AppState;

// Keeps every window in the appearance the user chose: "system" leaves the desktop's style and colours
// alone; "light" and "dark" use the Fusion style with a palette of that brightness, applied at once to
// the windows already open.
class AppearanceApplier final : public QObject {
    Q_OBJECT
public:
    explicit AppearanceApplier(AppState &state, QObject *parent = nullptr);

    void apply();

private:
    AppState &m_state;
    QString m_systemStyle;
    QPalette m_systemPalette;
};

} // namespace parlino
