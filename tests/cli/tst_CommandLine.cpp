#include "cli/CommandLine.h"

#include <QTest>

using namespace parlino;
using Kind = LaunchRequest::Kind;

class TestCommandLine final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void parse_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<Kind>("kind");
        QTest::addColumn<QStringList>("rest");
        QTest::newRow("no arguments") << QStringList() << Kind::run << QStringList();
        QTest::newRow("help") << QStringList{QStringLiteral("--help")} << Kind::help << QStringList();
        QTest::newRow("version") << QStringList{QStringLiteral("-v")} << Kind::version << QStringList();
        QTest::newRow("play") << QStringList{QStringLiteral("play"), QStringLiteral("a b.mp3")} << Kind::play
                              << QStringList{QStringLiteral("a b.mp3")};
        QTest::newRow("play without file") << QStringList{QStringLiteral("play")} << Kind::invalid << QStringList();
        QTest::newRow("url from the desktop") << QStringList{QStringLiteral("parlino://open")} << Kind::openUrls
                                              << QStringList{QStringLiteral("parlino://open")};
        QTest::newRow("subcommand keeps its options")
            << QStringList{QStringLiteral("synthesize"), QStringLiteral("--voice"), QStringLiteral("nova"),
                           QStringLiteral("-")}
            << Kind::subcommand << QStringList{QStringLiteral("--voice"), QStringLiteral("nova"), QStringLiteral("-")};
        QTest::newRow("podcast goes to the running app")
            << QStringList{QStringLiteral("podcast"), QStringLiteral("--type"), QStringLiteral("deep-dive"),
                           QStringLiteral("-")}
            << Kind::service << QStringList{QStringLiteral("--type"), QStringLiteral("deep-dive"), QStringLiteral("-")};
        QTest::newRow("unknown option") << QStringList{QStringLiteral("--frobnicate")} << Kind::invalid
                                        << QStringList();
    }

    void parse()
    {
        QFETCH(QStringList, arguments);
        QFETCH(Kind, kind);
        QFETCH(QStringList, rest);
        const LaunchRequest request = parseCommandLine(arguments);
        QCOMPARE(request.kind, kind);
        QCOMPARE(request.arguments, rest);
        QCOMPARE(request.error.isEmpty(), kind != Kind::invalid);
    }
};

QTEST_GUILESS_MAIN(TestCommandLine)
#include "tst_CommandLine.moc"
