// algofactory: run any algorithm of the library from the command line.
#include "batch_runner.h"
#include "commands.h"
#include "progress_display.h"

#include <QApplication>
#include <QDir>
#include <QFile>
#include <unistd.h>
#include <cstdlib>

namespace
{

// Charts and pictures need a GUI application; without a display, render off screen.
void prepareGuiEnvironment()
{
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
}

} // namespace

int main(int argc, char** argv)
{
    const QString command = argc > 1 ? QString::fromLocal8Bit(argv[1]) : QString();
    if (command.isEmpty())
    {
        cli::printUsage(true);
        return cli::kExitUsage;
    }
    if (command == "--help" || command == "-h" || command == "help")
    {
        cli::printUsage(false);
        return cli::kExitSuccess;
    }
    if (command == "list")
    {
        // Descriptions only: no GUI application, whose platform plug-in and font set-up cost more than the listing.
        QCoreApplication application(argc, argv);
        return cli::listAlgorithms(QCoreApplication::arguments().mid(2));
    }
    if (command == "batch")
    {
        // The lines run in child processes of their own; this one only schedules and reports.
        QCoreApplication application(argc, argv);
        return cli::runBatch(QCoreApplication::arguments().mid(2));
    }
    if (command != "run" && command != "call")
    {
        cli::printUsage(true);
        return cli::kExitUsage;
    }
    prepareGuiEnvironment();
    QApplication application(argc, argv);
    const QStringList args = QCoreApplication::arguments().mid(2);
    cli::installInterruptHandler();
    return command == "run" ? cli::runAlgorithm(args) : cli::callEntry(args);
}
