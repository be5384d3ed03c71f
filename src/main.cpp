#include "cli/CommandLine.h"
#include "core/Logging.h"
#include "shell/ParlinoApp.h"

#include <QApplication>
#include <QIcon>

#include <clocale>
#include <cstdio>

namespace {

void describeApplication()
{
    QCoreApplication::setApplicationName(QStringLiteral("Parlino"));
    QCoreApplication::setOrganizationName(QStringLiteral("Parlino"));
    QCoreApplication::setApplicationVersion(QStringLiteral(PARLINO_VERSION));
}

} // namespace

int main(int argc, char *argv[])
{
    QStringList arguments;
    for (int i = 1; i < argc; ++i)
        arguments << QString::fromLocal8Bit(argv[i]);
    const parlino::LaunchRequest request = parlino::parseCommandLine(arguments);
    parlino::installDefaultMessagePattern();

    switch (request.kind) {
    case parlino::LaunchRequest::Kind::help: std::fputs(qPrintable(parlino::usageText()), stdout); return 0;
    case parlino::LaunchRequest::Kind::version: std::printf("parlino %s\n", PARLINO_VERSION); return 0;
    case parlino::LaunchRequest::Kind::invalid:
        std::fprintf(stderr, "parlino: %s\n\n%s", qPrintable(request.error), qPrintable(parlino::usageText()));
        return 2;
    case parlino::LaunchRequest::Kind::subcommand: {
        // Commands for scripts: no display needed.
        QCoreApplication app(argc, argv);
        describeApplication();
        return parlino::ParlinoApp::runSubcommand(request);
    }
    case parlino::LaunchRequest::Kind::service: {
        QCoreApplication app(argc, argv);
        describeApplication();
        return parlino::ParlinoApp::runServiceRequest(request);
    }
    default: break;
    }

    QApplication app(argc, argv);
    describeApplication();
    // The desktop entry is named after the bus name, so the window manager links windows to it.
    QGuiApplication::setDesktopFileName(QStringLiteral("com.parlino.app"));
    // Every window (settings, library, dialogs) carries the app's icon from the theme, as the
    // package installs it.
    QApplication::setWindowIcon(
        QIcon::fromTheme(QStringLiteral("parlino"), QIcon::fromTheme(QStringLiteral("audio-volume-high"))));
    // The audio engine parses numbers with the C locale.
    std::setlocale(LC_NUMERIC, "C");

    parlino::ParlinoApp parlino;
    return parlino.run(request);
}
