#pragma once

#include <QByteArray>
#include <QMutex>
#include <QObject>
#include <QSet>
#include <QSettings>
#include <QSizeF>
#include <QStringList>
#include <QVariant>

#include <memory>
#include <optional>

namespace parlino {

// The user-defaults store: a QSettings file with the reading rules the rest of the app relies on
// (an absent bool reads false, an absent number reads 0, an absent string reads as no value).
// Every write reaches the file at once, so another process (or the next launch) sees it.
// Safe to use from any thread.
class Defaults final : public QObject {
    Q_OBJECT
public:
    // A store backed by the given INI file, created on first write.
    explicit Defaults(const QString &filePath, QObject *parent = nullptr);
    ~Defaults() override;

    // The process's store at Paths::defaultsFile(), created on first use.
    static Defaults &shared();

    [[nodiscard]] bool boolForKey(const QString &key) const;
    [[nodiscard]] double doubleForKey(const QString &key) const;
    [[nodiscard]] qint64 integerForKey(const QString &key) const;
    [[nodiscard]] std::optional<QString> stringForKey(const QString &key) const;
    [[nodiscard]] QByteArray dataForKey(const QString &key) const;
    [[nodiscard]] QVariant value(const QString &key) const;

    // Range-checked reads for values a user or a damaged file may have changed. An absent key gives
    // `fallback`; so does a value that is not a number, is NaN or infinite, or lies outside
    // [min, max], with one warning per key and process.
    [[nodiscard]] double boundedDouble(const QString &key, double min, double max, double fallback) const;
    [[nodiscard]] qint64 boundedInteger(const QString &key, qint64 min, qint64 max, qint64 fallback) const;
    // Both sides checked as boundedDouble() does, against the sides of `min` and `max`.
    [[nodiscard]] QSizeF boundedSize(const QString &key, const QSizeF &min, const QSizeF &max,
                                     const QSizeF &fallback) const;

    [[nodiscard]] bool contains(const QString &key) const;
    [[nodiscard]] QStringList allKeys() const;
    [[nodiscard]] QString filePath() const;

    void set(const QString &key, const QVariant &value);
    void remove(const QString &key);
    // Writes pending changes and re-reads changes made by other processes.
    void synchronize();

Q_SIGNALS:
    void valueChanged(const QString &key);

private:
    void warnOnce(const QString &key, const QVariant &stored) const;

    mutable QMutex m_mutex;
    mutable QSet<QString> m_warnedKeys;
    std::unique_ptr<QSettings> m_settings;
};

} // namespace parlino
