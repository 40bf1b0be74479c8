// ExcuteAlgo_Decompress: unpack an archive into a fresh folder with the system's archive tools.
#include "AlgoFactory.h"
#include "entry_guard.h"
#include "shell_quote.h"

#include <QDir>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QUuid>

#include <cstdio>
#include <cstdlib>
#include <iostream>

using namespace algofactory;

namespace
{

// Runs one command through the shell; true when it ran and exited with status 0.
bool runCommand(const QString& command)
{
    std::fflush(stdout);
    const int status = std::system(command.toLocal8Bit().constData());
    return status != -1 && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

// The single-file compressors unpack in place: copy the archive into the folder, unpack the copy there.
bool copyThenUnpack(const QString& archive, const QString& folder, const QString& unpack)
{
    const QString copy = QDir(folder).filePath(QFileInfo(archive).fileName());
    if (!runCommand(QStringLiteral("cp %1 %2").arg(shellQuote(archive), shellQuote(copy))))
        return false;
    return runCommand(unpack.arg(shellQuote(copy)));
}

} // namespace

ALGO_API bool ExcuteAlgo_Decompress(const char* jsonText)
{
    return guardEntry("ExcuteAlgo_Decompress", [&] {
        const QJsonObject object = QJsonDocument::fromJson(QByteArray(jsonText ? jsonText : "")).object();
        QString archivePath, targetRoot, suffix;
        for (auto it = object.begin(); it != object.end(); ++it)
        {
            if (it.key() == QLatin1String("decompressFile"))
                archivePath = it.value().toString();
            else if (it.key() == QLatin1String("decompressPath"))
                targetRoot = it.value().toString();
            else if (it.key() == QLatin1String("suffix"))
                suffix = it.value().toString(); // kept: the tool follows the file name
        }
        // The braces-free text form with its '-' removed: 32 hexadecimal digits.
        const QString uuid = QUuid::createUuid().toString(QUuid::WithoutBraces).remove(QLatin1Char('-'));

        const QFileInfo archive(archivePath);
        if (archivePath.isEmpty() || !archive.exists())
        {
            std::cout << "[ERROR] The src file does not exist!" << std::endl;
            return false;
        }
        const QStringList parts = archive.fileName().split(QLatin1Char('.'));
        if (parts.size() < 2)
        {
            std::cout << "[ERROR] The input src file have incorrcted format!" << std::endl;
            return false;
        }

        // <decompressPath>/<name before the first '.'>_<uuid>: a fresh folder per run, so nothing earlier is
        // overwritten and the archive's contents never mix with another run's.
        const QString folderName = parts.first() + QLatin1Char('_') + uuid;
        const QString target = QDir(QFileInfo(targetRoot).absoluteFilePath()).filePath(folderName);
        if (targetRoot.isEmpty() || (!QDir(target).exists() && !QDir().mkdir(target)))
        {
            std::cout << "The path can not be created!" << std::endl;
            return false;
        }
        std::cout << "[OUTPUT] " << "decompresPath=\"" << target.toLocal8Bit().constData() << "\"" << std::endl;

        // Absolute paths, each one single-quoted argument: a name with blanks, quotes, ';' or "$(...)" stays a
        // name, and none can start with '-' and pass for an option.
        const QString file = archive.absoluteFilePath();
        const QString name = archive.fileName();
        const QString quotedFile = shellQuote(file);
        const QString quotedTarget = shellQuote(target);
        if (name.endsWith(QLatin1String(".tar.gz")) || name.endsWith(QLatin1String(".tgz")))
            return runCommand(QStringLiteral("tar zxvf %1 -C %2").arg(quotedFile, quotedTarget));
        if (name.endsWith(QLatin1String(".tar.bz")) || name.endsWith(QLatin1String(".tar.bz2")))
            return runCommand(QStringLiteral("tar jxvf %1 -C %2").arg(quotedFile, quotedTarget));
        if (name.endsWith(QLatin1String(".tar.xz")) || name.endsWith(QLatin1String(".tar")))
            return runCommand(QStringLiteral("tar xvf %1 -C %2").arg(quotedFile, quotedTarget));
        if (name.endsWith(QLatin1String(".zip")))
            return runCommand(QStringLiteral("unzip -d %1 %2").arg(quotedTarget, quotedFile));
        if (name.endsWith(QLatin1String(".rar")))
            return runCommand(QStringLiteral("rar -a %1 %2").arg(quotedFile, quotedTarget));
        if (name.endsWith(QLatin1String(".gz")))
            return copyThenUnpack(file, target, QStringLiteral("gunzip %1"));
        if (name.endsWith(QLatin1String(".bz")) || name.endsWith(QLatin1String(".bz2")))
            return copyThenUnpack(file, target, QStringLiteral("bunzip2 %1"));
        if (name.endsWith(QLatin1String(".xz")))
            return copyThenUnpack(file, target, QStringLiteral("xz -d %1"));
        // No tool unpacks any other suffix: the folder stays empty and the run failed.
        return false;
    });
}
