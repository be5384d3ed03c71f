// A small desktop application that end-to-end tests select text in. It takes the keyboard focus,
// prints "ready" on standard output once its window is mapped and focused, and offers its text in
// one way only, chosen with --mode:
//   accessible  a text field published on the accessibility bus, with --text selected in it
//               (--content gives the field's whole text; --no-selection leaves nothing selected)
//   primary     publishes nothing, but owns the primary selection with --text
//   copy        publishes nothing and owns no selection, but puts --text on the clipboard when it
//               receives the copy command (Ctrl+C, or Ctrl+Shift+C with --terminal, where the window
//               class is "xterm" and Ctrl+C prints "interrupted" instead)
//   none        offers nothing and ignores the copy command
// Every copy command it serves prints "copied".
#include "platform/linux/X11ActiveWindow.h"

#include <QAccessible>
#include <QApplication>
#include <QClipboard>
#include <QCommandLineParser>
#include <QKeyEvent>
#include <QLineEdit>
#include <QPainter>
#include <QTimer>
#include <QVBoxLayout>
#include <QWidget>
#include <QWindow>

#include <cstdio>

namespace {

void say(const char *line)
{
    std::fputs(line, stdout);
    std::fputc('\n', stdout);
    std::fflush(stdout);
}

// Shows its text by painting it, so nothing of it reaches the accessibility bus.
class PaintedText final : public QWidget {
public:
    PaintedText(const QString &text, const QString &mode, bool terminal)
        : m_text(text)
        , m_mode(mode)
        , m_terminal(terminal)
    {
        setFocusPolicy(Qt::StrongFocus);
        setMinimumSize(360, 120);
    }

protected:
    void paintEvent(QPaintEvent *) override
    {
        QPainter painter(this);
        painter.drawText(rect(), Qt::AlignCenter | Qt::TextWordWrap, m_text);
    }

    void keyPressEvent(QKeyEvent *event) override
    {
        if (event->key() != Qt::Key_C || !(event->modifiers() & Qt::ControlModifier))
            return QWidget::keyPressEvent(event);
        const bool withShift = event->modifiers() & Qt::ShiftModifier;
        if (m_terminal && !withShift) {
            say("interrupted");
            return;
        }
        if (m_mode != QLatin1String("copy") || withShift != m_terminal)
            return;
        QGuiApplication::clipboard()->setText(m_text, QClipboard::Clipboard);
        say("copied");
    }

private:
    QString m_text;
    QString m_mode;
    bool m_terminal;
};

} // namespace

using parlino::X11ActiveWindow;

int main(int argc, char *argv[])
{
    QString mode;
    for (int i = 1; i + 1 < argc; ++i) {
        if (qstrcmp(argv[i], "--mode") == 0)
            mode = QString::fromLocal8Bit(argv[i + 1]);
    }
    bool terminal = false;
    for (int i = 1; i < argc; ++i)
        terminal = terminal || qstrcmp(argv[i], "--terminal") == 0;
    // Both must be decided before the application object exists: the accessibility bridge starts with
    // it, and the window class is read from RESOURCE_NAME.
    if (mode == QLatin1String("accessible"))
        qputenv("QT_LINUX_ACCESSIBILITY_ALWAYS_ON", "1");
    else
        qunsetenv("QT_LINUX_ACCESSIBILITY_ALWAYS_ON");
    if (terminal)
        qputenv("RESOURCE_NAME", "xterm");

    QApplication app(argc, argv);
    QCommandLineParser parser;
    parser.addHelpOption();
    const QCommandLineOption modeOption(QStringLiteral("mode"), QStringLiteral("accessible, primary, copy or none"),
                                        QStringLiteral("mode"));
    const QCommandLineOption textOption(QStringLiteral("text"), QStringLiteral("The selected text"),
                                        QStringLiteral("text"));
    const QCommandLineOption contentOption(QStringLiteral("content"), QStringLiteral("The text field's whole text"),
                                           QStringLiteral("content"));
    const QCommandLineOption noSelectionOption(QStringLiteral("no-selection"), QStringLiteral("Select nothing"));
    const QCommandLineOption terminalOption(QStringLiteral("terminal"), QStringLiteral("Behave like a terminal"));
    parser.addOptions({modeOption, textOption, contentOption, noSelectionOption, terminalOption});
    parser.process(app);
    const QString text = parser.value(textOption);
    const QString content = parser.isSet(contentOption) ? parser.value(contentOption) : text;
    if (!QStringList{QStringLiteral("accessible"), QStringLiteral("primary"), QStringLiteral("copy"),
                     QStringLiteral("none")}
             .contains(mode)) {
        std::fputs("selection-app: --mode must be accessible, primary, copy or none\n", stderr);
        return 2;
    }

    QWidget window;
    window.setWindowTitle(QStringLiteral("Selection test (%1)").arg(mode));
    auto *layout = new QVBoxLayout(&window);
    QLineEdit *field = nullptr;
    QWidget *focusTarget = nullptr;
    if (mode == QLatin1String("accessible")) {
        field = new QLineEdit(content, &window);
        field->setMinimumWidth(360);
        layout->addWidget(field);
        focusTarget = field;
    } else {
        focusTarget = new PaintedText(text, mode, terminal);
        layout->addWidget(focusTarget);
    }
    window.show();
    window.activateWindow();
    focusTarget->setFocus(Qt::OtherFocusReason);

    // Ready once the window has the focus, the selection is in place and, for the accessible field,
    // the accessibility bridge is up.
    X11ActiveWindow activeWindow;
    auto *poll = new QTimer(&app);
    poll->setInterval(20);
    QObject::connect(poll, &QTimer::timeout, &app, [&, poll] {
        if (!window.isActiveWindow() || QApplication::focusWidget() != focusTarget)
            return;
        // The window manager says so too: the capture asks it which window is in front (a terminal is
        // sent another copy chord), and it can lag behind the focus this process was given.
        if (activeWindow.activeWindowProcessId() != QCoreApplication::applicationPid())
            return;
        if (field && !QAccessible::isActive())
            return;
        poll->stop();
        if (field && !parser.isSet(noSelectionOption)) {
            const qsizetype start = content.indexOf(text);
            field->setSelection(int(qMax<qsizetype>(start, 0)), int(text.size()));
        } else if (field) {
            field->deselect();
        }
        if (mode == QLatin1String("primary"))
            QGuiApplication::clipboard()->setText(text, QClipboard::Selection);
        say("ready");
    });
    poll->start();
    return app.exec();
}
