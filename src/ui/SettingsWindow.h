#pragma once

#include <QWidget>

#include <functional>

class QTabWidget;

namespace parlino {

class AccountSyncService;
class AppState;
class Defaults;
class KeyboardShortcutPreferences;
class LoginItem;
class ModelAvailability;
class ModelSettings;
class VoicePreview;

// What the settings pages show and change. The optional parts leave their controls out when absent.
struct SettingsContext {
    AppState &state;
    Defaults &defaults;
    ModelSettings &models;
    ModelAvailability &availability;
    KeyboardShortcutPreferences *shortcuts = nullptr;
    LoginItem *loginItem = nullptr;
    VoicePreview *preview = nullptr;
    // Whether OpenAI can be asked (voice previews of OpenAI's voices need it).
    std::function<bool()> hasKey;
    // The account page: linking through the web backend, then the app reloads the account.
    AccountSyncService *accountSync = nullptr;
    std::function<void()> accountChanged;
};

// The settings, in pages: General (start at login, appearance, download folder), Voice (the default
// voice and speed with a preview of each voice, the offline voice), Speech (provider, models and their
// shutdown days, streaming, the question recognizer), Shortcuts (every global shortcut, rebindable) and
// Account (link or unlink the Parlino account). Every change applies at
// once; there is nothing to confirm.
class SettingsWindow final : public QWidget {
    Q_OBJECT
public:
    explicit SettingsWindow(SettingsContext context, QWidget *parent = nullptr);

    // Brings a page forward by its title ("General", "Voice", "Speech", "Shortcuts", "Account").
    void showPage(const QString &title);

private:
    QTabWidget *m_tabs = nullptr;
};

} // namespace parlino
