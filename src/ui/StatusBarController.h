#pragma once

#include <QIcon>
#include <QObject>
#include <QPointer>
#include <QWidget>

#include <functional>
#include <memory>
#include <optional>

class QSystemTrayIcon;

namespace parlino {

// Owns the tray icon and its popover. The icon comes from the first source that loads: the installed
// PNG files, the named images of the resource bundle folder, then the desktop theme's speaker icon.
class StatusBarController final : public QObject {
    Q_OBJECT
public:
    // Builds the popover's content inside the given popover window.
    using PopoverContentFactory = std::function<QWidget *(QWidget *popover)>;

    explicit StatusBarController(PopoverContentFactory contentFactory = {},
                                 std::optional<QString> resourcePath = defaultResourcePath(),
                                 QObject *parent = nullptr);
    ~StatusBarController() override;

    // Where the installed resources live: $PARLINO_RESOURCE_DIR, else <prefix>/share/parlino next to the
    // executable; nothing if neither exists.
    static std::optional<QString> defaultResourcePath();

    void setupStatusBar();
    void togglePopover();
    void showPopover();

    [[nodiscard]] QSystemTrayIcon *statusItem() const { return m_statusItem.get(); }
    [[nodiscard]] QWidget *popover() const { return m_popover; }

private:
    std::optional<QIcon> loadCustomMenuBarIcon();
    std::optional<QIcon> loadIconFile(const QString &path, const char *lookingLine, const char *loadedLine);
    void setupPopover();
    void placePopover();

    PopoverContentFactory m_contentFactory;
    std::optional<QString> m_resourcePath;
    std::unique_ptr<QSystemTrayIcon> m_statusItem;
    QPointer<QWidget> m_popover;
};

} // namespace parlino
