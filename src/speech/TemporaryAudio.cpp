#include "speech/TemporaryAudio.h"

#include "core/Error.h"
#include "core/Paths.h"

#include <QSaveFile>
#include <QUuid>

namespace parlino {

QString writeTemporaryMp3(const QByteArray &data)
{
    QString path = Paths::temporary() + u'/' + QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper()
                   + QStringLiteral(".mp3");
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(data) != data.size() || !file.commit())
        throw Error(QStringLiteral("Could not write the audio file ") + path + QStringLiteral(": ")
                    + file.errorString());
    return path;
}

} // namespace parlino
