#pragma once

#include <QString>
#include <QStringList>

namespace parlino {

// The speech endpoint takes at most this many user-perceived characters per request.
inline constexpr int maxChunkSize = 4000;

// Number of user-perceived characters (grapheme clusters): "é" written as e + combining accent is one,
// a family emoji is one.
[[nodiscard]] int characterCount(const QString &text);

// The longest text Parlino reads unless the settings say otherwise: a longer one would be hundreds of
// paid requests, so it is refused before the first.
inline constexpr qint64 defaultMaxTextLength = 100000;
// The refusal for a text of `length` characters over `limit`, for the user; empty when it is within.
[[nodiscard]] QString tooLongToReadMessage(qint64 length, qint64 limit);

// The text goes to the speech endpoint as one request, unsplit.
[[nodiscard]] inline bool fitsInOneChunk(const QString &text)
{
    return characterCount(text) <= maxChunkSize;
}

// The first `count` user-perceived characters of text (all of it when it is shorter).
[[nodiscard]] QString leadingCharacters(const QString &text, int count);

// Cuts text into pieces of at most maxSize characters for the speech endpoint. A text that fits is
// returned unchanged. Longer texts are cut at sentence ends (".", "!", "?"); every sentence comes back
// ending in a full stop, sentences joined by one blank. A sentence longer than the limit is cut at
// blanks; a single word longer than the limit is never cut and becomes an oversized piece of its own.
[[nodiscard]] QStringList splitTextIntoChunks(const QString &text, int maxSize = maxChunkSize);

// Cuts a chunk into sentence-sized pieces for a voice that is given its text a little at a time:
// whole sentences (ending in ".", "!", "?" or a line break) gathered up to about `targetSize`
// characters, a longer sentence cut at blanks. Nothing is added, dropped or moved: the pieces, trimmed
// and joined with single blanks, hold every word of the text exactly once and in order.
[[nodiscard]] QStringList splitIntoSpokenPieces(const QString &text, int targetSize = 300);

} // namespace parlino
