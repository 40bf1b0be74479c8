// Archive unpacking through tar, unzip and the single-file decompressors, each started without a shell.
#include "archive_unpack.h"

#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QStringList>

namespace catalogue
{

namespace
{

constexpr int kToolTimeoutMs = 60 * 60 * 1000;

struct Rule
{
    const char* suffix;
    const char* tool;
    QStringList (*arguments)(const QString& archive, const QString& folder);
    bool toStdout; // a single-file decompressor writing the one member to standard output
};

const Rule* ruleFor(const QString& fileName)
{
    static const Rule rules[] = {
        {".tar.gz", "tar",
         [](const QString& a, const QString& f) {
             return QStringList{"-xzf", a, "-C", f};
         },
         false},
        {".tgz", "tar",
         [](const QString& a, const QString& f) {
             return QStringList{"-xzf", a, "-C", f};
         },
         false},
        {".tar.bz2", "tar",
         [](const QString& a, const QString& f) {
             return QStringList{"-xjf", a, "-C", f};
         },
         false},
        {".tar.bz", "tar",
         [](const QString& a, const QString& f) {
             return QStringList{"-xjf", a, "-C", f};
         },
         false},
        {".tar.xz", "tar",
         [](const QString& a, const QString& f) {
             return QStringList{"-xJf", a, "-C", f};
         },
         false},
        {".tar", "tar",
         [](const QString& a, const QString& f) {
             return QStringList{"-xf", a, "-C", f};
         },
         false},
        {".zip", "unzip",
         [](const QString& a, const QString& f) {
             return QStringList{"-q", "-o", a, "-d", f};
         },
         false},
        {".gz", "gzip",
         [](const QString& a, const QString&) {
             return QStringList{"-dc", a};
         },
         true},
        {".bz2", "bzip2",
         [](const QString& a, const QString&) {
             return QStringList{"-dc", a};
         },
         true},
        {".bz", "bzip2",
         [](const QString& a, const QString&) {
             return QStringList{"-dc", a};
         },
         true},
        {".xz", "xz",
         [](const QString& a, const QString&) {
             return QStringList{"-dc", a};
         },
         true},
    };
    for (const Rule& rule : rules)
        if (fileName.endsWith(QLatin1String(rule.suffix), Qt::CaseInsensitive))
            return &rule;
    return nullptr;
}

} // namespace

bool isArchive(const QString& fileName)
{
    return ruleFor(QFileInfo(fileName).fileName()) != nullptr;
}

QString archiveStem(const QString& fileName)
{
    const QString name = QFileInfo(fileName).fileName();
    const Rule* rule = ruleFor(name);
    return rule ? name.chopped(int(qstrlen(rule->suffix))) : QFileInfo(name).completeBaseName();
}

bool unpackArchive(const QString& archive, const QString& folder, QString* error)
{
    const QFileInfo info(archive);
    const Rule* rule = ruleFor(info.fileName());
    if (!rule)
    {
        *error = QStringLiteral("%1 has no archive suffix this library unpacks").arg(info.fileName());
        return false;
    }
    // Absolute paths: a name starting with '-' never passes for an option.
    const QString source = info.absoluteFilePath();
    const QString target = QFileInfo(folder).absoluteFilePath();
    QProcess process;
    process.setProcessChannelMode(QProcess::SeparateChannels);
    const QString member = QDir(target).filePath(archiveStem(info.fileName()));
    if (rule->toStdout)
        process.setStandardOutputFile(member, QIODevice::Truncate);
    process.start(QString::fromLatin1(rule->tool), rule->arguments(source, target));
    const bool finished = process.waitForStarted() && process.waitForFinished(kToolTimeoutMs);
    if (!finished || process.exitStatus() != QProcess::NormalExit || process.exitCode() != 0)
    {
        if (!finished)
            process.kill();
        const QString detail = QString::fromLocal8Bit(process.readAllStandardError()).trimmed().section('\n', 0, 0);
        *error = QStringLiteral("%1 could not be unpacked%2")
                     .arg(info.fileName(), detail.isEmpty() ? QString() : QStringLiteral(" (%1)").arg(detail));
        if (rule->toStdout)
            QFile::remove(member);
        return false;
    }
    return true;
}

} // namespace catalogue
