#include "ui/StatusBarController.h"

#include "core/Logging.h"

#include <QCoreApplication>
#include <QCursor>
#include <QDir>
#include <QFileInfo>
#include <QGuiApplication>
#include <QPixmap>
#include <QScreen>
#include <QSystemTrayIcon>
#include <QVBoxLayout>
#include <QWidget>

#include <algorithm>

namespace parlino {

namespace {

constexpr int kIconPoints = 18;
// The width is fixed; the height follows the content (recent items, larger fonts).
constexpr QSize kPopoverSize(320, 400);

// Scaled to the tray's 18-point size, kept sharp on high-density screens.
QIcon iconFrom(const QPixmap &pixmap)
{
    QIcon icon;
    for (int scale : {1, 2}) {
        QPixmap scaled =
            pixmap.scaled(kIconPoints * scale, kIconPoints * scale, Qt::KeepAspectRatio, Qt::SmoothTransformation);
        icon.addPixmap(scaled);
    }
    icon.setIsMask(true);
    return icon;
}

} // namespace

StatusBarController::StatusBarController(PopoverContentFactory contentFactory, std::optional<QString> resourcePath,
                                         QObject *parent)
    : QObject(parent)
    , m_contentFactory(std::move(contentFactory))
    , m_resourcePath(std::move(resourcePath))
{
}

StatusBarController::~StatusBarController()
{
    delete m_popover;
}

std::optional<QString> StatusBarController::defaultResourcePath()
{
    const QString fromEnvironment = qEnvironmentVariable("PARLINO_RESOURCE_DIR");
    if (!fromEnvironment.isEmpty())
        return fromEnvironment;
    const QString installed =
        QDir::cleanPath(QCoreApplication::applicationDirPath() + QStringLiteral("/../share/parlino"));
    if (QFileInfo(installed).isDir())
        return installed;
    return std::nullopt;
}

void StatusBarController::setupStatusBar()
{
    m_statusItem = std::make_unique<QSystemTrayIcon>();
    if (!QSystemTrayIcon::isSystemTrayAvailable()) {
        // The icon still appears as soon as a tray host starts.
        PLOG(lcApp) << "❌ StatusBarController: Failed to get status item button";
        PLOG(lcApp) << "   No system tray is running; the icon appears when one starts";
    }

    PLOG(lcApp) << "🔍 StatusBarController: Attempting to load custom menu bar icon...";
    if (std::optional<QIcon> custom = loadCustomMenuBarIcon()) {
        m_statusItem->setIcon(*custom);
        PLOG(lcApp) << "✅ StatusBarController: Custom menu bar icon set";
    } else {
        QIcon themed;
        for (const char *name :
             {"audio-volume-high-symbolic", "audio-volume-high", "audio-speakers", "audio-x-generic"}) {
            themed = QIcon::fromTheme(QLatin1String(name));
            if (!themed.isNull())
                break;
        }
        if (!themed.isNull()) {
            themed.setIsMask(true);
            m_statusItem->setIcon(themed);
            PLOG(lcApp) << "✅ StatusBarController: SF Symbol icon set";
        } else {
            PLOG(lcApp) << "❌ StatusBarController: Failed to load ANY icon";
        }
    }
    m_statusItem->setToolTip(QStringLiteral("Parlino"));
    connect(m_statusItem.get(), &QSystemTrayIcon::activated, this, [this](QSystemTrayIcon::ActivationReason reason) {
        if (reason == QSystemTrayIcon::Trigger || reason == QSystemTrayIcon::MiddleClick)
            togglePopover();
    });
    m_statusItem->show();

    setupPopover();
}

std::optional<QIcon> StatusBarController::loadIconFile(const QString &path, const char *lookingLine,
                                                       const char *loadedLine)
{
    PLOG(lcApp) << QString::fromUtf8(lookingLine) << path;
    if (!QFileInfo::exists(path)) {
        PLOG(lcApp) << "❌ StatusBarController: File does NOT exist at " << path;
        return std::nullopt;
    }
    PLOG(lcApp) << "✅ StatusBarController: File exists at " << path;
    QPixmap pixmap;
    if (!pixmap.load(path)) {
        PLOG(lcApp) << "❌ StatusBarController: File exists but NSImage failed to load from " << path;
        return std::nullopt;
    }
    PLOG(lcApp) << QString::fromUtf8(loadedLine) << path;
    return iconFrom(pixmap);
}

std::optional<QIcon> StatusBarController::loadCustomMenuBarIcon()
{
    PLOG(lcApp) << "🔍 StatusBarController.loadCustomMenuBarIcon: Starting...";
    if (!m_resourcePath) {
        PLOG(lcApp) << "❌ StatusBarController: Bundle.main.resourcePath is NIL";
        return std::nullopt;
    }
    const QString &resources = *m_resourcePath;
    PLOG(lcApp) << "🔍 StatusBarController: Bundle.main.resourcePath = " << resources;

    if (auto icon = loadIconFile(resources + QStringLiteral("/ParlinoMenuBarBW.png"),
                                 "🔍 StatusBarController: Looking for B&W icon at: ",
                                 "✅ StatusBarController: Loaded B&W menu bar icon from "))
        return icon;
    if (auto icon = loadIconFile(resources + QStringLiteral("/StatusBarIconTemplateBW.png"),
                                 "🔍 StatusBarController: Looking for B&W template icon at: ",
                                 "✅ StatusBarController: Loaded B&W template menu bar icon from "))
        return icon;

    const QString bundle = resources + QStringLiteral("/Parlino_Parlino.bundle");
    if (!QFileInfo(bundle).isDir())
        return std::nullopt;
    PLOG(lcApp) << "✅ StatusBarController: Found bundle at " << bundle;
    struct Named {
        const char *name;
        const char *note;
    };
    for (const Named &named :
         {Named{"ParlinoMenuBarTL@2x", ""}, Named{"ParlinoMenuBarTL", ""},
          Named{"ParlinoMenuBarTLLight@2x", " (fallback)"}, Named{"ParlinoMenuBarWhite@2x", " (white fallback)"},
          Named{"ParlinoMenuBarBW@2x", ""}}) {
        QPixmap pixmap;
        if (pixmap.load(bundle + u'/' + QLatin1String(named.name) + QStringLiteral(".png"))) {
            PLOG(lcApp) << "✅ StatusBarController: Loaded " << QLatin1String(named.name) << QLatin1String(named.note)
                        << " from bundle";
            return iconFrom(pixmap);
        }
    }
    return std::nullopt;
}

void StatusBarController::setupPopover()
{
    m_popover = new QWidget(nullptr, Qt::Popup | Qt::FramelessWindowHint);
    m_popover->setObjectName(QStringLiteral("ParlinoPopover"));
    m_popover->setWindowTitle(QStringLiteral("Parlino"));
    m_popover->setFixedWidth(kPopoverSize.width());
    m_popover->setMinimumHeight(kPopoverSize.height());
    auto *layout = new QVBoxLayout(m_popover);
    layout->setContentsMargins(0, 0, 0, 0);
    if (m_contentFactory) {
        if (QWidget *content = m_contentFactory(m_popover))
            layout->addWidget(content);
    }
}

void StatusBarController::togglePopover()
{
    if (!m_popover)
        return;
    if (m_popover->isVisible())
        m_popover->hide();
    else
        showPopover();
}

void StatusBarController::showPopover()
{
    if (!m_popover)
        return;
    // As tall as the content wants (adjustSize would stop at two thirds of the screen, too little at large
    // font sizes), but never taller than the screen.
    const QScreen *screen = m_popover->screen();
    const int available = screen ? screen->availableGeometry().height() : m_popover->sizeHint().height();
    m_popover->resize(m_popover->width(),
                      std::clamp(m_popover->sizeHint().height(), m_popover->minimumHeight(), available));
    placePopover();
    m_popover->show();
    m_popover->raise();
    m_popover->activateWindow();
}

void StatusBarController::placePopover()
{
    // Below (or above) the tray icon when the tray reports where it is, else at the pointer.
    QRect anchor = m_statusItem ? m_statusItem->geometry() : QRect();
    if (!anchor.isValid())
        anchor = QRect(QCursor::pos(), QSize(1, 1));
    QScreen *screen = QGuiApplication::screenAt(anchor.center());
    if (!screen)
        screen = QGuiApplication::primaryScreen();
    const QRect area = screen ? screen->availableGeometry() : QRect(QPoint(0, 0), kPopoverSize);
    QPoint topLeft(anchor.center().x() - kPopoverSize.width() / 2, anchor.bottom() + 4);
    if (topLeft.y() + kPopoverSize.height() > area.bottom())
        topLeft.setY(anchor.top() - 4 - kPopoverSize.height());
    topLeft.setX(std::clamp(topLeft.x(), area.left(), std::max(area.left(), area.right() - kPopoverSize.width())));
    topLeft.setY(std::clamp(topLeft.y(), area.top(), std::max(area.top(), area.bottom() - kPopoverSize.height())));
    m_popover->move(topLeft);
}

} // namespace parlino
