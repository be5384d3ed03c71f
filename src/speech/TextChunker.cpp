#include "speech/TextChunker.h"

#include <QLocale>
#include <QTextBoundaryFinder>

namespace parlino {

namespace {

bool isSentenceDelimiter(QChar c)
{
    return c == u'.' || c == u'!' || c == u'?';
}

// Pieces between delimiters; runs of delimiters give empty pieces, as a plain split does.
QStringList splitAtSentenceDelimiters(const QString &text)
{
    QStringList pieces;
    qsizetype start = 0;
    for (qsizetype i = 0; i < text.size(); ++i) {
        if (isSentenceDelimiter(text.at(i))) {
            pieces.append(text.mid(start, i - start));
            start = i + 1;
        }
    }
    pieces.append(text.mid(start));
    return pieces;
}

// Blanks only: a newline inside an over-long sentence stays part of its word.
QStringList splitAtBlanks(const QString &sentence)
{
    QStringList words;
    qsizetype start = 0;
    for (qsizetype i = 0; i < sentence.size(); ++i) {
        const QChar c = sentence.at(i);
        if (c == u' ' || c == u'\t') {
            words.append(sentence.mid(start, i - start));
            start = i + 1;
        }
    }
    words.append(sentence.mid(start));
    return words;
}

} // namespace

int characterCount(const QString &text)
{
    if (text.isEmpty())
        return 0;
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, text);
    int count = 0;
    while (finder.toNextBoundary() != -1)
        ++count;
    return count;
}

QString leadingCharacters(const QString &text, int count)
{
    if (count <= 0)
        return {};
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, text);
    qsizetype end = 0;
    for (int i = 0; i < count; ++i) {
        const qsizetype next = finder.toNextBoundary();
        if (next == -1)
            return text;
        end = next;
    }
    return text.left(end);
}

QStringList splitTextIntoChunks(const QString &text, int maxSize)
{
    if (characterCount(text) <= maxSize)
        return {text};

    QStringList chunks;
    QString current;
    for (const QString &piece : splitAtSentenceDelimiters(text)) {
        const QString trimmed = piece.trimmed();
        if (trimmed.isEmpty())
            continue;
        // Every sentence ends in a full stop, whatever ended it in the input.
        const QString sentence = trimmed + u'.';
        const int sentenceCount = characterCount(sentence);

        if (characterCount(current) + sentenceCount <= maxSize) {
            current += sentence + u' ';
            continue;
        }

        if (!current.isEmpty()) {
            chunks.append(current.trimmed());
            current.clear();
        }
        if (sentenceCount <= maxSize) {
            current = sentence + u' ';
            continue;
        }

        // One sentence above the limit: fill pieces word by word.
        QString buffer;
        for (const QString &word : splitAtBlanks(sentence)) {
            if (characterCount(buffer) + characterCount(word) + 1 > maxSize && !buffer.isEmpty()) {
                chunks.append(buffer.trimmed());
                buffer.clear();
            }
            buffer += word + u' ';
        }
        // The tail keeps its trailing blank: later sentences are appended to it.
        current = buffer;
    }
    if (!current.isEmpty())
        chunks.append(current.trimmed());
    return chunks;
}

QStringList splitIntoSpokenPieces(const QString &text, int targetSize)
{
    // Sentences with their delimiters and the blanks after them, so joining them gives the text back.
    QStringList sentences;
    qsizetype start = 0;
    for (qsizetype i = 0; i < text.size(); ++i) {
        const QChar c = text.at(i);
        const bool end = c == u'\n' || (isSentenceDelimiter(c) && (i + 1 == text.size() || text.at(i + 1).isSpace()));
        if (!end)
            continue;
        while (i + 1 < text.size() && text.at(i + 1).isSpace())
            ++i;
        sentences.append(text.mid(start, i + 1 - start));
        start = i + 1;
    }
    if (start < text.size())
        sentences.append(text.mid(start));

    QStringList pieces;
    QString current;
    const auto flush = [&pieces, &current] {
        if (!current.trimmed().isEmpty())
            pieces.append(current.trimmed());
        current.clear();
    };
    for (const QString &sentence : std::as_const(sentences)) {
        const int length = characterCount(sentence);
        if (characterCount(current) + length > targetSize)
            flush();
        if (length <= targetSize) {
            current += sentence;
            continue;
        }
        // Blanks inside a sentence separate its words; the pieces break only there.
        for (const QString &word : splitAtBlanks(sentence)) {
            if (!current.isEmpty() && characterCount(current) + characterCount(word) + 1 > targetSize)
                flush();
            current += word + u' ';
        }
    }
    flush();
    return pieces;
}

QString tooLongToReadMessage(qint64 length, qint64 limit)
{
    if (length <= limit)
        return {};
    const QLocale locale;
    return QStringLiteral("This text is too long to read: %1 characters, and the limit is %2. Select a shorter part, "
                          "or raise \"maxTextLength\" in the settings.")
        .arg(locale.toString(length), locale.toString(limit));
}

} // namespace parlino
