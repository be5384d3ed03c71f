#pragma once

#include <QString>

#include <optional>

namespace parlino {

// Read-only access to the user's keyring (the Secret Service on Linux). The app never writes items:
// the user stores the OpenAI key there, for example with
//   secret-tool store --label="Parlino OpenAI key" user openai_api_key server com.parlino.app type plaintext
class KeychainService final {
public:
    explicit KeychainService(QString service);

    static KeychainService &shared(); // service "com.parlino.app"

    // The item's text, or nothing when it is missing, locked, unreadable or not valid UTF-8.
    // Blocks until the keyring answers (a local event loop runs meanwhile).
    [[nodiscard]] std::optional<QString> get(const QString &key, const std::optional<QString> &service = {}) const;

    [[nodiscard]] const QString &service() const { return m_service; }

private:
    QString m_service;
};

} // namespace parlino
