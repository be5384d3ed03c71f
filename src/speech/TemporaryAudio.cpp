#include "speech/TemporaryAudio.h"

#include "core/Error.h"
#include "core/Paths.h"

#include <QSaveFile>

namespace parlino {

QString writeTemporaryMp3(const QByteArray &data)
{
    QString path = Paths::newTemporaryFile(QStringLiteral(".mp3"));
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || !file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner)
        || file.write(data) != data.size() || !file.commit())
        throw Error(QStringLiteral("Could not write the audio file ") + path + QStringLiteral(": ")
                    + file.errorString());
    return path;
}

} // namespace parlino
