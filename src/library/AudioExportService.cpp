#include "library/AudioExportService.h"

#include "core/Clock.h"
#include "core/Logging.h"
#include "library/SaveFileDialog.h"

#include <QFile>
#include <QFileInfo>
#include <QPointer>

namespace parlino {

namespace {

constexpr qsizetype maximumStemLength = 50;
// Characters that break a path or trouble a file manager or shell.
constexpr QStringView removedCharacters = u":/\\?%*|\"<>";

} // namespace

AudioExportService::AudioExportService(TitleFunction title, DownloadLocationFunction downloadLocation,
                                       SaveFileDialog &dialog, Clock &clock, QObject *parent)
    : QObject(parent)
    , m_title(std::move(title))
    , m_downloadLocation(std::move(downloadLocation))
    , m_dialog(dialog)
    , m_clock(clock)
{
}

QCoro::Task<> AudioExportService::exportAudio(QUrl url, QString context)
{
    PLOG(lcLibrary) << "📥 Starting audio export...";
    QPointer<AudioExportService> self(this);
    QCoro::Task<QString> naming = generateSmartFilename(std::move(context));
    const QString filename = co_await naming;
    if (!self)
        co_return;
    if (const std::optional<QString> folder = m_downloadLocation())
        (void)saveToLocation(url, *folder, filename);
    else
        showSavePanel(url, filename);
}

QCoro::Task<QString> AudioExportService::generateSmartFilename(QString context)
{
    PLOG(lcLibrary) << "🤖 Generating smart filename from context...";
    const QDateTime asked = m_clock.now();
    try {
        QCoro::Task<QString> titling = m_title(std::move(context));
        const QString title = co_await titling;
        co_return cleanFilename(title) + QStringLiteral(".mp3");
    } catch (const std::exception &) {
        // The time stamp stands in silently: the user still gets a file.
    }
    co_return asked.toLocalTime().toString(QStringLiteral("yyyy-MM-dd_HH-mm")) + QStringLiteral(".mp3");
}

QString AudioExportService::cleanFilename(const QString &name)
{
    QString cleaned = name;
    for (QChar c : removedCharacters)
        cleaned.replace(c, u'-');
    return cleaned.left(maximumStemLength);
}

std::optional<QString> AudioExportService::saveToLocation(const QUrl &sourceURL, const QString &destinationFolder,
                                                          const QString &filename)
{
    const QFileInfo name(filename);
    const QString stem = name.completeBaseName();
    const QString extension = name.suffix().isEmpty() ? QString() : u'.' + name.suffix();
    QString finalName = filename;
    for (int n = 1; QFileInfo::exists(destinationFolder + u'/' + finalName); ++n)
        finalName = stem + u'_' + QString::number(n) + extension;

    const QString destination = destinationFolder + u'/' + finalName;
    if (!copy(sourceURL.toLocalFile(), destination))
        return std::nullopt;
    showSuccessNotification(finalName);
    return destination;
}

void AudioExportService::showSavePanel(const QUrl &sourceURL, const QString &suggestedFilename)
{
    QPointer<AudioExportService> self(this);
    const QString source = sourceURL.toLocalFile();
    m_dialog.askForSaveLocation(suggestedFilename, QStringLiteral("Save audio file"),
                                [self, source](std::optional<QString> chosen) {
                                    if (!self || !chosen)
                                        return;
                                    if (self->copy(source, *chosen))
                                        self->showSuccessNotification(QFileInfo(*chosen).fileName());
                                });
}

void AudioExportService::showSuccessNotification(const QString &filename)
{
    Q_EMIT notificationRequested(QStringLiteral("Audio Downloaded"), QStringLiteral("Saved as ") + filename);
}

bool AudioExportService::copy(const QString &source, const QString &destination)
{
    QFile file(source);
    if (!file.copy(destination)) {
        PLOG(lcLibrary) << "❌ Failed to copy audio file: " << file.errorString();
        return false;
    }
    PLOG(lcLibrary) << "✅ Audio saved to: " << destination;
    Q_EMIT audioExported(destination);
    return true;
}

} // namespace parlino
