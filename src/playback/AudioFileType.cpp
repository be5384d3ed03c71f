#include "playback/AudioFileType.h"

#include <QMimeDatabase>
#include <QMimeType>

#include <array>

namespace parlino {

bool isAudioFile(const QString &path)
{
    static constexpr std::array kAudioTypes{
        u"audio/mpeg",  u"audio/ogg", u"audio/x-vorbis+ogg", u"audio/x-opus+ogg", u"audio/flac", u"audio/x-flac+ogg",
        u"audio/x-wav", u"audio/aac", u"audio/mp4",          u"audio/x-m4a",      u"audio/webm", u"audio/x-matroska",
    };
    const QMimeType type = QMimeDatabase().mimeTypeForFile(path, QMimeDatabase::MatchContent);
    for (const auto *name : kAudioTypes) {
        if (type.inherits(QString::fromUtf16(name)))
            return true;
    }
    return false;
}

} // namespace parlino
