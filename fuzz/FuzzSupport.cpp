#include "FuzzSupport.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <cstdlib>
#include <memory>

namespace parlino::fuzz {

namespace {

std::unique_ptr<QTemporaryDir> root;
// Never deleted: libFuzzer ends the process with exit(), after Qt's own globals are gone, and the
// application's destructor would then touch them.
QCoreApplication *application = nullptr;

void quiet(QtMsgType, const QMessageLogContext &, const QString &)
{
}

} // namespace

void initialize(int *argc, char ***argv)
{
    root = std::make_unique<QTemporaryDir>();
    for (const char *variable : {"HOME", "XDG_CONFIG_HOME", "XDG_DATA_HOME", "XDG_CACHE_HOME"}) {
        const QString folder = root->path() + u'/' + QString::fromLatin1(variable);
        QDir().mkpath(folder);
        qputenv(variable, QFile::encodeName(folder));
    }
    if (!qEnvironmentVariableIsSet("PARLINO_FUZZ_VERBOSE"))
        qInstallMessageHandler(quiet);
    application = new QCoreApplication(*argc, *argv);
}

QString emptyFolder()
{
    const QString folder = root->path() + QStringLiteral("/input");
    QDir(folder).removeRecursively();
    QDir().mkpath(folder);
    return folder;
}

void writeFile(const QString &path, const QByteArray &data)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        std::abort(); // the harness itself is broken, not the loader
    file.write(data);
}

} // namespace parlino::fuzz

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv)
{
    parlino::fuzz::initialize(argc, argv);
    return 0;
}
