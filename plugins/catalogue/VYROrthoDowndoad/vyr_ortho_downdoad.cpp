// Plug-in "VYROrthoDowndoad": downloads ordered data over HTTP(S) into a folder - resuming, retrying with
// back-off, checking the checksum the server states - and unpacks the archive when the address asks for it
// with the fragment "#unpack" (a fragment is never sent to the server).
#include "archive_unpack.h"
#include "generic_params.h"
#include "http_transfer.h"
#include "plugin_base.h"

#include <QDir>
#include <QFileInfo>
#include <QUrl>

namespace
{

class VYROrthoDowndoad : public algokit::PluginBase
{
public:
    VYROrthoDowndoad() : PluginBase(QStringLiteral("VYROrthoDowndoad")) {}

protected:
    bool run() override
    {
        const auto& record = params<GenericAlgoRecord>();
        algokit::GenericParams args(record, GetName());
        const QString url = args.text("Url").required();
        const QString problem = catalogue::urlProblem(url);
        if (!problem.isEmpty())
            args.refuse("Url", url, problem);
        catalogue::TransferPolicy policy;
        policy.attempts = args.integer("Attempts").orDefault(4).range(1, 20);
        policy.connectTimeoutSeconds = args.integer("TimeoutSeconds").orDefault(15).range(1, 600);
        policy.firstDelaySeconds = args.real("RetryDelaySeconds").orDefault(0.5).range(0.0, 60.0);
        const QString folder = args.text("OutputDir").required();
        const QFileInfo folderInfo(folder);
        if (folderInfo.exists() && !folderInfo.isDir())
            args.refuse("OutputDir", folder, "is a file, not a folder");
        if (!folderInfo.exists())
        {
            if (!QDir().mkpath(folder))
                args.refuse("OutputDir", folder, "cannot be created");
            m_madeFolder = folder;
        }
        const bool unpack = QUrl(url).fragment().split(QLatin1Char('&')).contains(QStringLiteral("unpack"));

        const double downloadShare = unpack ? 90.0 : 100.0;
        bool stopped = false;
        const catalogue::DownloadResult got = catalogue::download(url, folder, policy, [&](qint64 done, qint64 total) {
            try
            {
                if (total > 0)
                    progress(downloadShare * double(done) / double(total));
                return true;
            }
            catch (const algokit::Cancelled&)
            {
                // Not through libcurl's C frames: the transfer stops and the stop is rethrown below.
                stopped = true;
                return false;
            }
        });
        if (stopped || got.cancelled)
            throw algokit::Cancelled();
        if (!got.ok)
            return fail(QStringLiteral("VYROrthoDowndoad: %1: %2").arg(url, got.error));
        m_downloaded = got.path;

        algokit::GenericOutputs outputs;
        outputs.add("DownloadedFile", got.path);
        if (!got.checksumKind.isEmpty())
            outputs.add("Checksum", got.checksumKind + QLatin1Char(':') + got.checksum);
        if (unpack)
        {
            if (!catalogue::isArchive(got.path))
                return fail(QStringLiteral("VYROrthoDowndoad: %1 is not an archive this library unpacks")
                                .arg(QFileInfo(got.path).fileName()));
            QString target = QDir(folder).filePath(catalogue::archiveStem(got.path));
            for (int n = 2; QFileInfo::exists(target); ++n)
                target = QDir(folder).filePath(catalogue::archiveStem(got.path) + QStringLiteral("_%1").arg(n));
            QDir().mkpath(target);
            m_unpacked = target;
            QString error;
            if (!catalogue::unpackArchive(got.path, target, &error))
                return fail(QStringLiteral("VYROrthoDowndoad: %1").arg(error));
            outputs.add("UnpackedDir", target);
        }
        progress(100.0);
        setResult(outputs.result());
        return true;
    }

    void discardOutputs() override
    {
        if (!m_unpacked.isEmpty())
            QDir(m_unpacked).removeRecursively();
        if (!m_downloaded.isEmpty())
            QFile::remove(m_downloaded);
        if (!m_madeFolder.isEmpty())
            QDir().rmdir(m_madeFolder); // only when empty
    }

private:
    QString m_madeFolder, m_downloaded, m_unpacked;
};

} // namespace

ALGO_PLUGIN_FACTORY(VYROrthoDowndoad)
