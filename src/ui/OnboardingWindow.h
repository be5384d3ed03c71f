#pragma once

#include <QString>
#include <QWidget>
#include <qcoro/qcorotask.h>

class QCheckBox;
class QLabel;
class QLineEdit;
class QPlainTextEdit;
class QPushButton;
class QStackedWidget;
class QTimer;

namespace parlino {

class APIKeyFile;
class Defaults;
class OnboardingAudio;
class OpenAIConnection;
class PermissionManager;

// The first-launch window, page by page: what Parlino does, the OpenAI key (checked with the service and
// kept in a file only the user can read), the accessibility bus, a test step where the user hears
// Parlino through the shortcut, and the finish that moves Parlino into the tray.
class OnboardingWindow final : public QWidget {
    Q_OBJECT
public:
    enum Page { welcomePage, keyPage, accessibilityPage, tryItPage, finishPage, pageCount };

    // The sample text of the test step, which is also what the user hears.
    static const QString welcomeText;

    OnboardingWindow(Defaults &defaults, PermissionManager &permissions, OpenAIConnection &connection,
                     const APIKeyFile &keyFile, OnboardingAudio &audio, QWidget *parent = nullptr);
    ~OnboardingWindow() override;

    [[nodiscard]] int currentPage() const;
    void showPage(int page);

Q_SIGNALS:
    void finished();

protected:
    void showEvent(QShowEvent *event) override;
    void hideEvent(QHideEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;

private:
    [[nodiscard]] QWidget *makeWelcomePage();
    [[nodiscard]] QWidget *makeKeyPage();
    [[nodiscard]] QWidget *makeAccessibilityPage();
    [[nodiscard]] QWidget *makeTryItPage();
    [[nodiscard]] QWidget *makeFinishPage();
    void pageShown();
    void refreshKeyState();
    void refreshAccessibility();
    QCoro::Task<> checkAndSaveKey();

    Defaults &m_defaults;
    PermissionManager &m_permissions;
    OpenAIConnection &m_connection;
    const APIKeyFile &m_keyFile;
    OnboardingAudio &m_audio;

    QStackedWidget *m_pages = nullptr;
    QPushButton *m_back = nullptr;
    QPushButton *m_next = nullptr;
    QCheckBox *m_narrate = nullptr;
    QLineEdit *m_keyField = nullptr;
    QPushButton *m_checkKey = nullptr;
    QLabel *m_keyStatus = nullptr;
    QLabel *m_accessibility = nullptr;
    QPushButton *m_enableAccessibility = nullptr;
    QTimer *m_accessibilityPoll = nullptr;
    QPlainTextEdit *m_sample = nullptr;
    QLabel *m_tryItStatus = nullptr;
    QLabel *m_voiceNote = nullptr;
    bool m_checkingKey = false;
};

} // namespace parlino
