#pragma once

#include <QString>

#include <exception>

namespace parlino {

// Base of every error the app raises to a caller. description() is the text a user may see.
class Error : public std::exception {
public:
    explicit Error(QString description);

    [[nodiscard]] const QString &description() const noexcept { return m_description; }
    [[nodiscard]] const char *what() const noexcept override { return m_utf8.constData(); }

private:
    QString m_description;
    QByteArray m_utf8;
};

} // namespace parlino
