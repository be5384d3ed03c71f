#include "speech/TextChunker.h"

#include <QTest>

using namespace parlino;

class TestTextChunker final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void countsUserPerceivedCharacters()
    {
        // e + combining acute, a flag (two code points), a family emoji (five code points, ZWJ sequence).
        QCOMPARE(characterCount(QStringLiteral("e\u0301")), 1);
        QCOMPARE(characterCount(QStringLiteral("\U0001F1E9\U0001F1EA")), 1);
        QCOMPARE(characterCount(QStringLiteral("\U0001F468\u200D\U0001F469\u200D\U0001F467")), 1);
        QCOMPARE(characterCount(QString()), 0);
        QCOMPARE(leadingCharacters(QStringLiteral("e\u0301tude"), 2), QStringLiteral("e\u0301t"));
        QCOMPARE(leadingCharacters(QStringLiteral("abc"), 10), QStringLiteral("abc"));
    }

    void textWithinLimitComesBackUnchanged()
    {
        const QString text = QStringLiteral("  Hi! Untrimmed?  ");
        QCOMPARE(splitTextIntoChunks(text, 20), QStringList{text});
        // Limits count characters, not UTF-16 units: 4000 emoji are 8000 units but fit.
        QString emoji;
        for (int i = 0; i < 4000; ++i)
            emoji += QStringLiteral("\U0001F600");
        QCOMPARE(splitTextIntoChunks(emoji), QStringList{emoji});
    }

    void everySentenceEndsInAFullStop()
    {
        const QString text = QStringLiteral("Wow! Really?") + QString(20, u' ');
        QCOMPARE(splitTextIntoChunks(text, 20), QStringList{QStringLiteral("Wow. Really.")});
    }

    void delimiterRunsAndBlankPiecesAreSkipped()
    {
        QCOMPARE(splitTextIntoChunks(QStringLiteral("Wait... what?!  \n Yes.   "), 10),
                 (QStringList{QStringLiteral("Wait."), QStringLiteral("what. Yes.")}));
        QCOMPARE(splitTextIntoChunks(QString(30, u'.'), 10), QStringList());
    }

    void sentencesArePackedUpToTheLimit()
    {
        // "Aaaa. " (6, with the blank that follows it) + "Bbbb." (5) fills 11 exactly; the blank after
        // the sentence being added is not counted.
        const QString text = QStringLiteral("Aaaa. Bbbb. Cccc. Dddd. Eeee.");
        QCOMPARE(splitTextIntoChunks(text, 11),
                 (QStringList{QStringLiteral("Aaaa. Bbbb."), QStringLiteral("Cccc. Dddd."), QStringLiteral("Eeee.")}));
        QCOMPARE(splitTextIntoChunks(text, 10).size(), 5);
    }

    void longSentenceIsCutAtBlanksAndItsTailContinues()
    {
        // 9000 characters without a delimiter: pieces of at most 4000, none with a trailing blank.
        QStringList words;
        while (words.join(u' ').size() < 9000)
            words << QStringLiteral("word%1").arg(words.size() % 10);
        const QString sentence = words.join(u' ').left(9000);
        const QStringList chunks = splitTextIntoChunks(sentence);
        QCOMPARE(chunks.size(), 3);
        for (const QString &chunk : chunks) {
            QVERIFY(characterCount(chunk) <= maxChunkSize);
            QVERIFY(!chunk.endsWith(u' '));
        }
        // Nothing is lost: the pieces joined are the sentence with its added full stop.
        QCOMPARE(chunks.join(u' '), sentence.trimmed() + u'.');

        // The tail of a cut sentence takes the next sentences after it.
        QCOMPARE(splitTextIntoChunks(QStringLiteral("aaa bbb ccc ddd. Ee."), 8),
                 (QStringList{QStringLiteral("aaa bbb"), QStringLiteral("ccc"), QStringLiteral("ddd. Ee.")}));
    }

    void wordsAreNeverCut()
    {
        const QString longWord(12, u'x');
        QCOMPARE(splitTextIntoChunks(QStringLiteral("ab ") + longWord + QStringLiteral(" cd."), 10),
                 (QStringList{QStringLiteral("ab"), longWord, QStringLiteral("cd.")}));
    }

    void newlinesSplitSentencesButNotWords()
    {
        // A newline is no blank: "one\ntwo" is a single word when a sentence must be cut.
        QCOMPARE(splitTextIntoChunks(QStringLiteral("one\ntwo three"), 8),
                 (QStringList{QStringLiteral("one\ntwo"), QStringLiteral("three.")}));
    }

    void spokenPiecesKeepEveryWordOnceAndInOrder()
    {
        // Sentences stay whole and keep their own punctuation ("?" stays "?", "3.5" is no sentence end);
        // short ones are gathered, an over-long one is cut at blanks; no word is lost, doubled or moved.
        const QString text = QStringLiteral("Is 3.5 enough? Yes!\nIt is.   ")
                             + QString(QStringLiteral("word ")).repeated(30) + QStringLiteral("end. Last one");
        const QStringList pieces = splitIntoSpokenPieces(text, 40);
        QCOMPARE(pieces.join(u' ').simplified(), text.simplified());
        QCOMPARE(pieces.first(), QStringLiteral("Is 3.5 enough? Yes!\nIt is."));
        QCOMPARE(pieces.last(), QStringLiteral("Last one"));
        for (const QString &piece : pieces) {
            QVERIFY2(characterCount(piece) <= 40, qPrintable(piece));
            QCOMPARE(piece, piece.trimmed());
        }
        QVERIFY(splitIntoSpokenPieces(QStringLiteral(" \n ")).isEmpty());
    }
};

QTEST_GUILESS_MAIN(TestTextChunker)
#include "tst_TextChunker.moc"
