#pragma once

#include <QWidget>

class QLabel;
class QPushButton;

namespace parlino {

class Defaults;
class PermissionManager;

// The first-launch window: what Parlino does, the shortcut, and whether reading other applications'
// text is possible. Finishing it moves Parlino into the tray.
class OnboardingWindow final : public QWidget {
    Q_OBJECT
public:
    OnboardingWindow(Defaults &defaults, PermissionManager &permissions, QWidget *parent = nullptr);

Q_SIGNALS:
    void finished();

protected:
    void showEvent(QShowEvent *event) override;

private:
    void refreshAccessibility();

    Defaults &m_defaults;
    PermissionManager &m_permissions;
    QLabel *m_accessibility = nullptr;
    QPushButton *m_enableAccessibility = nullptr;
};

} // namespace parlino
