#include "ui/AppearanceApplier.h"

#include "app/AppState.h"
#include "core/Logging.h"

#include <QApplication>
#include <QStyle>
#include <QStyleFactory>

namespace parlino {

namespace {

QPalette darkPalette()
{
    QPalette palette;
    const QColor window(0x2b, 0x2b, 0x2e);
    const QColor base(0x1e, 0x1e, 0x20);
    const QColor text(0xe8, 0xe8, 0xea);
    const QColor muted(0x8a, 0x8a, 0x90);
    const QColor accent(0x35, 0x84, 0xe4);
    palette.setColor(QPalette::Window, window);
    palette.setColor(QPalette::WindowText, text);
    palette.setColor(QPalette::Base, base);
    palette.setColor(QPalette::AlternateBase, window);
    palette.setColor(QPalette::ToolTipBase, base);
    palette.setColor(QPalette::ToolTipText, text);
    palette.setColor(QPalette::PlaceholderText, muted);
    palette.setColor(QPalette::Text, text);
    palette.setColor(QPalette::Button, window.lighter(115));
    palette.setColor(QPalette::ButtonText, text);
    palette.setColor(QPalette::BrightText, Qt::white);
    palette.setColor(QPalette::Link, accent.lighter(130));
    palette.setColor(QPalette::Highlight, accent);
    palette.setColor(QPalette::HighlightedText, Qt::white);
    for (const QPalette::ColorRole role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText})
        palette.setColor(QPalette::Disabled, role, muted);
    return palette;
}

} // namespace

AppearanceApplier::AppearanceApplier(AppState &state, QObject *parent)
    : QObject(parent)
    , m_state(state)
    , m_systemStyle(QApplication::style() ? QApplication::style()->name() : QString())
    , m_systemPalette(QApplication::palette())
{
    connect(&m_state, &AppState::appearanceModeChanged, this, &AppearanceApplier::apply);
    apply();
}

void AppearanceApplier::apply()
{
    const AppearanceMode mode = m_state.appearanceMode();
    if (mode == AppearanceMode::system) {
        if (!m_systemStyle.isEmpty() && QApplication::style()->name() != m_systemStyle)
            QApplication::setStyle(QStyleFactory::create(m_systemStyle));
        QApplication::setPalette(m_systemPalette);
    } else {
        if (QApplication::style()->name() != u"fusion")
            QApplication::setStyle(QStyleFactory::create(QStringLiteral("Fusion")));
        QApplication::setPalette(mode == AppearanceMode::dark ? darkPalette()
                                                              : QApplication::style()->standardPalette());
    }
    PLOG(lcApp) << "🎨 Appearance: " << rawValue(mode);
}

} // namespace parlino
