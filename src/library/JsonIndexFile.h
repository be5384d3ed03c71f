#pragma once

#include <QByteArray>
#include <QJsonArray>
#include <QList>
#include <QString>
#include <QStringList>
#include <QUuid>

#include <functional>
#include <optional>

namespace parlino {

// One JSON array on disk that a storage service is the only writer of. Writes are atomic (a temporary
// file renamed over the old one), so a failed write leaves the previous index whole. An index that
// exists but cannot be read as an array is never replaced: read() throws, and so every change, which
// reads before it writes, fails and leaves the file as the user can still recover it.
class JsonIndexFile final {
public:
    explicit JsonIndexFile(QString path);

    [[nodiscard]] const QString &path() const { return m_path; }
    // The array, or nothing when no file exists. Throws LibraryError for an unreadable or corrupt file.
    [[nodiscard]] std::optional<QJsonArray> read() const;
    // Replaces the file with `json`, creating its folder first; folder 0700, file 0600. Throws
    // LibraryError on failure.
    void write(const QByteArray &json) const;
    // For the start of a run: makes the folder and everything in it readable by the user only, and
    // removes the files beside the index that are neither the index nor in keptNames (what a crash
    // between copying a file and listing it leaves). A link is removed itself, never followed.
    void tidyFolder(const QStringList &keptNames) const;
    // The same, keeping the audio files of the items listedIDs names; a damaged index (listedIDs
    // throws) leaves the folder untouched.
    void tidyFolder(const std::function<QList<QUuid>()> &listedIDs) const;
    // An item's audio file name in its folder, made from its ID and never taken from an index.
    [[nodiscard]] static QString audioFileName(const QUuid &id);

private:
    QString m_path;
};

} // namespace parlino
