#pragma once

#include <QString>

#include <optional>

namespace parlino {

// The OpenAI key a user entered in Parlino itself, kept in one file that only they can read (mode 0600,
// in a folder only they can enter). The keyring and the environment stay available to those who prefer
// them; the key lookup reads this file after both.
class APIKeyFile final {
public:
    explicit APIKeyFile(QString path);

    // The stored key without surrounding white space, or nothing when the file is absent or empty.
    [[nodiscard]] std::optional<QString> read() const;
    // Replaces the stored key atomically; the file is never readable by others, not even for a moment.
    // Throws Error with the reason when it cannot be written.
    void write(const QString &key) const;
    // Forgets the stored key; false when a file was there and could not be removed.
    bool remove() const;

    [[nodiscard]] const QString &path() const { return m_path; }

private:
    QString m_path;
};

} // namespace parlino
