// Plug-in "UploadAlgo": uploads a product (a file, or a folder packed as .tar.gz) by HTTP PUT or multipart
// POST, with retries, progress by bytes and its SHA-256 in the headers X-Checksum-Sha256 and Digest.
#include "generic_params.h"
#include "http_transfer.h"
#include "plugin_base.h"

#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>

namespace
{

class UploadAlgo : public algokit::PluginBase
{
public:
    UploadAlgo() : PluginBase(QStringLiteral("UploadAlgo")) {}

protected:
    bool run() override
    {
        const auto& record = params<GenericAlgoRecord>();
        algokit::GenericParams args(record, GetName());
        const QString input = args.text("InputFile").existingPath();
        const QString url = args.text("Url").required();
        const QString problem = catalogue::urlProblem(url);
        if (!problem.isEmpty())
            args.refuse("Url", url, problem);
        const QString method = args.text("Method").orDefault("PUT").oneOf({"PUT", "POST"}).value().toUpper();
        const QString field = args.text("FieldName").orDefault("file");
        catalogue::TransferPolicy policy;
        policy.attempts = args.integer("Attempts").orDefault(4).range(1, 20);
        policy.connectTimeoutSeconds = args.integer("TimeoutSeconds").orDefault(15).range(1, 600);
        policy.firstDelaySeconds = args.real("RetryDelaySeconds").orDefault(0.5).range(0.0, 60.0);

        // A folder travels as one archive, made in a temporary folder that goes away with the run.
        QString file = input;
        QTemporaryDir packing;
        const QFileInfo info(input);
        if (info.isDir())
        {
            if (!packing.isValid())
                return fail(QStringLiteral("UploadAlgo: no temporary folder for packing %1").arg(input));
            file = QDir(packing.path()).filePath(info.fileName() + QStringLiteral(".tar.gz"));
            QProcess tar;
            tar.start(QStringLiteral("tar"),
                      {QStringLiteral("-czf"), file, QStringLiteral("-C"), info.absoluteDir().path(), info.fileName()});
            if (!tar.waitForStarted() || !tar.waitForFinished(-1) || tar.exitStatus() != QProcess::NormalExit ||
                tar.exitCode() != 0)
                return fail(QStringLiteral("UploadAlgo: %1 could not be packed").arg(input));
            progress(5.0);
        }

        const double start = info.isDir() ? 5.0 : 0.0;
        bool stopped = false;
        const catalogue::UploadResult sent =
            catalogue::upload(file, url, method, field, policy, [&](qint64 done, qint64 total) {
                try
                {
                    if (total > 0)
                        progress(start + (100.0 - start) * double(done) / double(total));
                    return true;
                }
                catch (const algokit::Cancelled&)
                {
                    stopped = true;
                    return false;
                }
            });
        if (stopped || sent.cancelled)
            throw algokit::Cancelled();
        if (!sent.ok)
            return fail(QStringLiteral("UploadAlgo: %1: %2").arg(url, sent.error));
        progress(100.0);
        setResult(algokit::GenericOutputs()
                      .add("UploadedFile", QFileInfo(file).fileName())
                      .add("UploadedBytes", QString::number(sent.bytes))
                      .add("Checksum", QStringLiteral("SHA-256:") + sent.sha256)
                      .add("HttpStatus", QString::number(sent.status))
                      .result());
        return true;
    }
};

} // namespace

ALGO_PLUGIN_FACTORY(UploadAlgo)
