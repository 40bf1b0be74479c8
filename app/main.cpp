// algofactory: run any algorithm of the library from the command line.
#include "commands.h"
#include "progress_display.h"

#include <QApplication>
#include <QDir>
#include <QFile>
#include <unistd.h>
#include <cstdlib>

int main(int argc, char** argv)
{
    // Charts and pictures need a GUI application; without a display, render off screen.
    if (qEnvironmentVariableIsEmpty("DISPLAY") && qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY") &&
        qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    if (qEnvironmentVariableIsEmpty("XDG_RUNTIME_DIR"))
    {
        const QByteArray runtimeDir = QDir::tempPath().toLocal8Bit() + "/algofactory-runtime-" + QByteArray::number(getuid());
        if (QDir().mkpath(QString::fromLocal8Bit(runtimeDir)))
        {
            QFile::setPermissions(QString::fromLocal8Bit(runtimeDir), QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
            qputenv("XDG_RUNTIME_DIR", runtimeDir);
        }
    }
    QApplication application(argc, argv);
    QStringList args = QCoreApplication::arguments().mid(1);
    if (args.isEmpty())
    {
        cli::printUsage(true);
        return cli::kExitUsage;
    }
    const QString command = args.takeFirst();
    if (command == "--help" || command == "-h" || command == "help")
    {
        cli::printUsage(false);
        return cli::kExitSuccess;
    }
    cli::installInterruptHandler();
    if (command == "list")
        return cli::listAlgorithms(args);
    if (command == "run")
        return cli::runAlgorithm(args);
    if (command == "call")
        return cli::callEntry(args);
    cli::printUsage(true);
    return cli::kExitUsage;
}
