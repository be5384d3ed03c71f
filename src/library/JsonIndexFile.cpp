#include "library/JsonIndexFile.h"

#include "core/Logging.h"
#include "core/Paths.h"
#include "library/LibraryError.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonParseError>
#include <QSaveFile>

namespace parlino {

JsonIndexFile::JsonIndexFile(QString path)
    : m_path(std::move(path))
{
}

std::optional<QJsonArray> JsonIndexFile::read() const
{
    QFile file(m_path);
    if (!file.exists())
        return std::nullopt;
    if (!file.open(QIODevice::ReadOnly))
        throw LibraryError(QStringLiteral("Could not read %1: %2").arg(m_path, file.errorString()));
    QJsonParseError parseError{};
    const QJsonDocument document = QJsonDocument::fromJson(file.readAll(), &parseError);
    if (parseError.error != QJsonParseError::NoError)
        throw LibraryError(QStringLiteral("%1 is damaged (%2 at byte %3); it was left as it is")
                               .arg(m_path, parseError.errorString())
                               .arg(parseError.offset));
    if (!document.isArray())
        throw LibraryError(QStringLiteral("%1 is damaged (not a list); it was left as it is").arg(m_path));
    return document.array();
}

void JsonIndexFile::write(const QByteArray &json) const
{
    const QString folder = QFileInfo(m_path).absolutePath();
    if (!Paths::makePrivateFolder(folder))
        throw LibraryError(QStringLiteral("Could not create the folder %1").arg(folder));
    QSaveFile file(m_path);
    if (!file.open(QIODevice::WriteOnly) || !file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner)
        || file.write(json) != json.size() || !file.commit())
        throw LibraryError(QStringLiteral("Could not write %1: %2").arg(m_path, file.errorString()));
}

void JsonIndexFile::tidyFolder(const QStringList &keptNames) const
{
    const QFileInfo index(m_path);
    const QDir folder = index.absoluteDir();
    if (!folder.exists())
        return;
    Paths::makePrivateTree(folder.absolutePath());
    for (const QFileInfo &file : folder.entryInfoList(QDir::Files | QDir::Hidden | QDir::System)) {
        if (file.fileName() == index.fileName() || keptNames.contains(file.fileName()))
            continue;
        PLOG(lcLibrary) << "🔍 Removing a file no library entry names: " << file.absoluteFilePath();
        QFile::remove(file.absoluteFilePath());
    }
}

void JsonIndexFile::tidyFolder(const std::function<QList<QUuid>()> &listedIDs) const
{
    QStringList kept;
    try {
        for (const QUuid &id : listedIDs())
            kept.append(audioFileName(id));
    } catch (const LibraryError &error) {
        PWARN(lcLibrary) << "⚠️ The library folder was not tidied: " << error.description();
        return;
    }
    tidyFolder(kept);
}

QString JsonIndexFile::audioFileName(const QUuid &id)
{
    return id.toString(QUuid::WithoutBraces).toUpper() + QStringLiteral(".mp3");
}

} // namespace parlino
