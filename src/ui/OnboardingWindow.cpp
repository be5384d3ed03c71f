#include "ui/OnboardingWindow.h"

#include "app/OnboardingAudio.h"
#include "app/PermissionManager.h"
#include "backend/APIKeyFile.h"
#include "backend/OpenAIConnection.h"
#include "core/Defaults.h"
#include "core/Error.h"
#include "core/Logging.h"
#include "core/SettingsKeys.h"
#include "ui/AccessibleHelp.h"

#include <QCheckBox>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPointer>
#include <QPushButton>
#include <QShortcut>
#include <QStackedWidget>
#include <QTimer>
#include <QVBoxLayout>

#include <array>

namespace parlino {

namespace {

QLabel *heading(const QString &text, QWidget *parent)
{
    auto *label = new QLabel(text, parent);
    QFont font = label->font();
    font.setPointSizeF(font.pointSizeF() * 1.6);
    font.setBold(true);
    label->setFont(font);
    label->setAccessibleName(text);
    return label;
}

QLabel *paragraph(const QString &text, QWidget *parent)
{
    auto *label = new QLabel(text, parent);
    label->setWordWrap(true);
    label->setTextFormat(Qt::RichText);
    label->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    return label;
}

// What each page says aloud once a key works (the test step speaks its own welcome instead).
const std::array<QString, OnboardingWindow::pageCount> narrations{
    QStringLiteral("Welcome to Parlino. Select text in any application, press Super, Shift and R, and Parlino "
                   "reads it to you."),
    QStringLiteral("Your OpenAI key is working. Parlino now speaks with OpenAI's natural voices."),
    QStringLiteral("Parlino reads the text you select through the desktop's accessibility service. If it is "
                   "off, turn it on here."),
    QString(),
    QStringLiteral("You are all set. Parlino now lives in the system tray. Press Super, Shift and R whenever "
                   "you want something read aloud."),
};

} // namespace

const QString OnboardingWindow::welcomeText =
    QStringLiteral("Welcome to Parlino! This is how your selected text sounds. Select text in any application, press "
                   "Super, Shift and R, and Parlino reads it to you in this little player.");

OnboardingWindow::OnboardingWindow(Defaults &defaults, PermissionManager &permissions, OpenAIConnection &connection,
                                   const APIKeyFile &keyFile, OnboardingAudio &audio, QWidget *parent)
    : QWidget(parent)
    , m_defaults(defaults)
    , m_permissions(permissions)
    , m_connection(connection)
    , m_keyFile(keyFile)
    , m_audio(audio)
{
    setObjectName(QStringLiteral("OnboardingWindow"));
    setWindowTitle(QStringLiteral("Welcome to Parlino"));
    setWindowIcon(QIcon::fromTheme(QStringLiteral("parlino"), QIcon::fromTheme(QStringLiteral("audio-volume-high"))));
    setMinimumSize(560, 420);

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(28, 24, 28, 20);
    layout->setSpacing(14);

    m_pages = new QStackedWidget(this);
    m_pages->addWidget(makeWelcomePage());
    m_pages->addWidget(makeKeyPage());
    m_pages->addWidget(makeAccessibilityPage());
    m_pages->addWidget(makeTryItPage());
    m_pages->addWidget(makeFinishPage());
    layout->addWidget(m_pages, 1);

    m_narrate = new QCheckBox(QStringLiteral("Narrate these pages"), this);
    describe(m_narrate, QStringLiteral("Narrate these pages"));
    m_narrate->setChecked(true);
    m_back = new QPushButton(QStringLiteral("Back"), this);
    describe(m_back, QStringLiteral("Back"));
    m_next = new QPushButton(QStringLiteral("Next"), this);
    describe(m_next, QStringLiteral("Next"));
    // As in a dialog: Enter activates the focused button, and Next when no control takes Enter itself.
    m_back->setAutoDefault(true);
    m_next->setAutoDefault(true);
    auto *buttons = new QHBoxLayout;
    buttons->addWidget(m_narrate);
    buttons->addStretch(1);
    buttons->addWidget(m_back);
    buttons->addWidget(m_next);
    layout->addLayout(buttons);

    connect(m_narrate, &QCheckBox::toggled, this, [this](bool on) {
        m_audio.setNarrationEnabled(on);
        if (on)
            m_audio.narrate(narrations.at(static_cast<std::size_t>(currentPage())));
    });
    connect(m_back, &QPushButton::clicked, this, [this] { showPage(currentPage() - 1); });
    // Alt+Left and Alt+Right page like a browser; Back and Next are also reachable with Tab.
    connect(new QShortcut(QKeySequence(Qt::ALT | Qt::Key_Left), this), &QShortcut::activated, this,
            [this] { showPage(currentPage() - 1); });
    connect(new QShortcut(QKeySequence(Qt::ALT | Qt::Key_Right), this), &QShortcut::activated, this, [this] {
        if (currentPage() < finishPage)
            showPage(currentPage() + 1);
    });
    connect(m_next, &QPushButton::clicked, this, [this] {
        if (currentPage() < finishPage) {
            showPage(currentPage() + 1);
            return;
        }
        PLOG(lcApp) << "🎓 Onboarding finished by the user";
        m_audio.stopNarration();
        m_audio.endTestStep();
        Q_EMIT finished();
        close();
    });
    connect(&m_connection, &OpenAIConnection::apiKeyChanged, this, &OnboardingWindow::refreshKeyState);
    connect(&m_permissions, &PermissionManager::accessibilityGrantedChanged, this,
            &OnboardingWindow::refreshAccessibility);
    connect(&m_audio, &OnboardingAudio::welcomePlaying, this, [this] {
        m_tryItStatus->setText(QStringLiteral("That is Parlino reading. Use the player to pause, seek or change "
                                              "the speed, then press Next."));
    });
    connect(&m_audio, &OnboardingAudio::welcomeFailed, this, [this](const QString &message) {
        m_tryItStatus->setText(QStringLiteral("The welcome could not be spoken: ") + message);
    });

    refreshKeyState();
    pageShown();
}

OnboardingWindow::~OnboardingWindow() = default;

QWidget *OnboardingWindow::makeWelcomePage()
{
    auto *page = new QWidget(this);
    auto *layout = new QVBoxLayout(page);
    layout->addWidget(heading(QStringLiteral("Welcome to Parlino"), page));
    layout->addWidget(paragraph(
        QStringLiteral("Parlino reads text aloud. Select text in any application and press <b>Super+Shift+R</b>: "
                       "Parlino speaks it in a small player that stays on top, with speed, seek and pause.<br><br>"
                       "<b>Super+Shift+H</b> plays a spoken summary instead. Parlino lives in the system tray; "
                       "click its icon for quick actions.<br><br>"
                       "The next pages set up the voice, check that Parlino can read your selection, and let you "
                       "try it."),
        page));
    layout->addStretch(1);
    return page;
}

QWidget *OnboardingWindow::makeKeyPage()
{
    auto *page = new QWidget(this);
    auto *layout = new QVBoxLayout(page);
    layout->addWidget(heading(QStringLiteral("Natural voices from OpenAI"), page));
    layout->addWidget(paragraph(
        QStringLiteral("Parlino already speaks with the offline voice of this computer. With an OpenAI API key it "
                       "reads with OpenAI's natural voices, and summaries, podcasts and questions work too. "
                       "Create a key at <b>platform.openai.com/api-keys</b> and paste it here."),
        page));

    auto *row = new QHBoxLayout;
    m_keyField = new QLineEdit(page);
    m_keyField->setEchoMode(QLineEdit::Password);
    m_keyField->setPlaceholderText(QStringLiteral("sk-…"));
    describe(m_keyField, QStringLiteral("OpenAI API key"));
    m_checkKey = new QPushButton(QStringLiteral("Check and Save"), page);
    describe(m_checkKey, QStringLiteral("Check the key with OpenAI and save it"));
    row->addWidget(m_keyField, 1);
    row->addWidget(m_checkKey);
    layout->addLayout(row);

    m_keyStatus = paragraph(QString(), page);
    m_keyStatus->setAccessibleName(QStringLiteral("Key status"));
    layout->addWidget(m_keyStatus);
    layout->addWidget(
        paragraph(QStringLiteral("The key is kept in <tt>%1</tt>, readable only by you. If you prefer the keyring: "
                                 "<tt>secret-tool store --label=\"Parlino OpenAI key\" user openai_api_key server "
                                 "com.parlino.app type plaintext</tt>. You can skip this page and add a key later.")
                      .arg(m_keyFile.path().toHtmlEscaped()),
                  page));
    layout->addStretch(1);

    connect(m_checkKey, &QPushButton::clicked, this, [this] { checkAndSaveKey(); });
    connect(m_keyField, &QLineEdit::returnPressed, this, [this] { checkAndSaveKey(); });
    return page;
}

QWidget *OnboardingWindow::makeAccessibilityPage()
{
    auto *page = new QWidget(this);
    auto *layout = new QVBoxLayout(page);
    layout->addWidget(heading(QStringLiteral("Reading your selection"), page));
    layout->addWidget(paragraph(
        QStringLiteral("Parlino reads selected text through the desktop's accessibility service (AT-SPI), the same "
                       "one screen readers use. Without it Parlino falls back to the selection and the "
                       "clipboard, which works in most applications but not in all."),
        page));
    m_accessibility = paragraph(QString(), page);
    m_accessibility->setAccessibleName(QStringLiteral("Accessibility status"));
    layout->addWidget(m_accessibility);
    m_enableAccessibility = new QPushButton(QStringLiteral("Open Accessibility Settings"), page);
    describe(m_enableAccessibility, QStringLiteral("Turn on the desktop's accessibility service"));
    auto *row = new QHBoxLayout;
    row->addWidget(m_enableAccessibility);
    row->addStretch(1);
    layout->addLayout(row);
    layout->addStretch(1);

    // A live check while the page is shown, so turning it on elsewhere shows here at once.
    m_accessibilityPoll = new QTimer(this);
    m_accessibilityPoll->setInterval(1000);
    connect(m_accessibilityPoll, &QTimer::timeout, this, [this] { m_permissions.checkAccessibilityPermission(); });
    connect(m_enableAccessibility, &QPushButton::clicked, this, [this] {
        m_permissions.requestAccessibilityPermission();
        refreshAccessibility();
    });
    return page;
}

QWidget *OnboardingWindow::makeTryItPage()
{
    auto *page = new QWidget(this);
    auto *layout = new QVBoxLayout(page);
    layout->addWidget(heading(QStringLiteral("Try it"), page));
    layout->addWidget(paragraph(QStringLiteral("Select the text below and press <b>Super+Shift+R</b>."), page));
    m_sample = new QPlainTextEdit(welcomeText, page);
    m_sample->setReadOnly(true);
    m_sample->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    describe(m_sample, QStringLiteral("Sample text to read aloud"));
    m_sample->setMaximumHeight(m_sample->fontMetrics().lineSpacing() * 5);
    layout->addWidget(m_sample);
    m_voiceNote = paragraph(QString(), page);
    m_voiceNote->setAccessibleName(QStringLiteral("Voice used"));
    layout->addWidget(m_voiceNote);
    m_tryItStatus = paragraph(QString(), page);
    m_tryItStatus->setAccessibleName(QStringLiteral("Test status"));
    layout->addWidget(m_tryItStatus);
    auto *play = new QPushButton(QStringLiteral("Read It to Me"), page);
    describe(play, QStringLiteral("Read the sample text aloud, as the shortcut does"));
    connect(play, &QPushButton::clicked, this, [this] { m_audio.playWelcome(); });
    auto *row = new QHBoxLayout;
    row->addWidget(play);
    row->addStretch(1);
    layout->addLayout(row);
    layout->addStretch(1);
    return page;
}

QWidget *OnboardingWindow::makeFinishPage()
{
    auto *page = new QWidget(this);
    auto *layout = new QVBoxLayout(page);
    layout->addWidget(heading(QStringLiteral("You are all set"), page));
    layout->addWidget(
        paragraph(QStringLiteral("Parlino now lives in the system tray.<br><br>"
                                 "<b>Super+Shift+R</b> reads the selection aloud<br>"
                                 "<b>Super+Shift+H</b> reads a summary of it<br>"
                                 "<b>Super+Shift+P</b> pauses and resumes<br><br>"
                                 "Voices, shortcuts and your account are in Settings, from the tray icon."),
                  page));
    layout->addStretch(1);
    return page;
}

int OnboardingWindow::currentPage() const
{
    return m_pages->currentIndex();
}

void OnboardingWindow::showPage(int page)
{
    if (page < 0 || page >= pageCount || page == currentPage())
        return;
    if (currentPage() == tryItPage)
        m_audio.endTestStep();
    m_pages->setCurrentIndex(page);
    pageShown();
}

void OnboardingWindow::pageShown()
{
    const int page = currentPage();
    m_back->setEnabled(page > welcomePage);
    const QString next = page == finishPage ? QStringLiteral("Finish") : QStringLiteral("Next");
    m_next->setText(next);
    describe(m_next, next);
    if (page == keyPage)
        m_keyField->setFocus();
    if (page == accessibilityPage) {
        m_permissions.checkAccessibilityPermission();
        refreshAccessibility();
    }
    if (isVisible() && page == accessibilityPage)
        m_accessibilityPoll->start();
    else
        m_accessibilityPoll->stop();

    if (!isVisible())
        return;
    if (page == tryItPage) {
        m_voiceNote->setText(m_connection.hasAPIKey()
                                 ? QStringLiteral("You will hear your OpenAI voice.")
                                 : QStringLiteral("You will hear the offline voice; with an OpenAI key Parlino "
                                                  "reads with natural voices."));
        m_tryItStatus->setText(QStringLiteral("Waiting for the shortcut…"));
        m_audio.beginTestStep(welcomeText);
        m_sample->setFocus();
        return;
    }
    m_audio.narrate(narrations.at(static_cast<std::size_t>(page)));
}

void OnboardingWindow::refreshKeyState()
{
    // Pages are narrated only with OpenAI's voices.
    m_narrate->setVisible(m_connection.hasAPIKey());
    if (m_checkingKey)
        return;
    m_keyStatus->setText(m_connection.hasAPIKey()
                             ? QStringLiteral("An OpenAI key is set up. Paste another one to replace it.")
                             : QStringLiteral("No key yet: Parlino reads with the offline voice."));
}

QCoro::Task<> OnboardingWindow::checkAndSaveKey()
{
    const QString key = m_keyField->text().trimmed();
    if (m_checkingKey)
        co_return;
    m_checkingKey = true;
    m_checkKey->setEnabled(false);
    m_keyStatus->setText(QStringLiteral("Checking the key with OpenAI…"));
    const QPointer<OnboardingWindow> alive(this);
    QCoro::Task<std::optional<QString>> checking = m_connection.checkAPIKey(key);
    const std::optional<QString> problem = co_await checking;
    if (!alive)
        co_return;
    m_checkingKey = false;
    m_checkKey->setEnabled(true);
    if (problem) {
        // A refused key is never stored.
        PLOG(lcApp) << "❌ OpenAI key not accepted: " << *problem;
        m_keyStatus->setText(QStringLiteral("<span style=\"color:#c01c28\">%1</span>").arg(problem->toHtmlEscaped()));
        co_return;
    }
    try {
        m_keyFile.write(key);
    } catch (const Error &error) {
        m_keyStatus->setText(error.description().toHtmlEscaped());
        co_return;
    }
    m_keyField->clear();
    m_connection.setAPIKey(key);
    PLOG(lcApp) << "✅ OpenAI key checked and saved to " << m_keyFile.path();
    m_keyStatus->setText(QStringLiteral("The key works and is saved. Parlino now reads with OpenAI's voices."));
    m_audio.narrate(narrations.at(keyPage));
}

void OnboardingWindow::refreshAccessibility()
{
    const bool granted = m_permissions.accessibilityGranted();
    m_accessibility->setText(granted ? QStringLiteral("Accessibility is on: Parlino can read selected text.")
                                     : QStringLiteral("Accessibility is off. Parlino can still use the selection "
                                                      "and the clipboard, but turning it on lets it read text "
                                                      "fields directly."));
    m_enableAccessibility->setVisible(!granted);
}

void OnboardingWindow::showEvent(QShowEvent *event)
{
    m_defaults.set(SettingsKeys::hasViewedOnboarding, true);
    QWidget::showEvent(event);
    // Narration and the live checks belong to the visible page.
    QTimer::singleShot(0, this, [this] { pageShown(); });
}

void OnboardingWindow::hideEvent(QHideEvent *event)
{
    m_accessibilityPoll->stop();
    m_audio.stopNarration();
    QWidget::hideEvent(event);
}

void OnboardingWindow::keyPressEvent(QKeyEvent *event)
{
    // The key field's Enter checks the key (and is not passed on); elsewhere Enter means Next.
    const bool enter = event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter;
    if (enter && event->modifiers() == Qt::NoModifier && focusWidget() != m_keyField) {
        m_next->click();
        return;
    }
    QWidget::keyPressEvent(event);
}

} // namespace parlino
