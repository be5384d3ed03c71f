#pragma once

#include <QObject>
#include <QString>
#include <QUrl>
#include <qcoro/qcorotask.h>

#include <functional>
#include <optional>

namespace parlino {

class Clock;
class SaveFileDialog;

// Writes the playing audio to a file the user keeps: straight into the chosen download folder, or
// through a save dialog when none is chosen. The file is named after a short title the chat model
// gives the content, or after the time when that fails. Copy failures are logged only. Lives on the
// main thread.
class AudioExportService final : public QObject {
    Q_OBJECT

public:
    // A short title for the content (the chat side's generateAudioTitle); may throw.
    using TitleFunction = std::function<QCoro::Task<QString>(QString context)>;
    // The download folder the user chose, if any.
    using DownloadLocationFunction = std::function<std::optional<QString>()>;

    AudioExportService(TitleFunction title, DownloadLocationFunction downloadLocation, SaveFileDialog &dialog,
                       Clock &clock, QObject *parent = nullptr);

    QCoro::Task<> exportAudio(QUrl url, QString context);
    // "<clean title>.mp3", or "yyyy-MM-dd_HH-mm.mp3" of the local time when no title comes; never throws.
    QCoro::Task<QString> generateSmartFilename(QString context);
    // Every character a file name should not hold becomes "-"; the result is cut to 50 characters.
    [[nodiscard]] static QString cleanFilename(const QString &name);
    // Copies the source into folder as filename, or as "<stem>_1<ext>", "<stem>_2<ext>" … when taken.
    // Returns the path written, or nothing after a failure.
    std::optional<QString> saveToLocation(const QUrl &sourceURL, const QString &destinationFolder,
                                          const QString &filename);
    // Asks where to save and copies there; cancelling does nothing.
    void showSavePanel(const QUrl &sourceURL, const QString &suggestedFilename);
    void showSuccessNotification(const QString &filename);

Q_SIGNALS:
    // For the desktop notification.
    void notificationRequested(const QString &title, const QString &body);
    // One file was exported, for the usage figures; path is where it went.
    void audioExported(const QString &path);

private:
    bool copy(const QString &source, const QString &destination);

    TitleFunction m_title;
    DownloadLocationFunction m_downloadLocation;
    SaveFileDialog &m_dialog;
    Clock &m_clock;
};

} // namespace parlino
