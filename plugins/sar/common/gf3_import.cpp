// The conversion shared by the GF-3 import plug-ins.
#include "gf3_import.h"

#include "complex_image.h"
#include "gf3_metadata.h"
#include "raster_io.h"

#include <QDir>
#include <QFileInfo>
#include <QSet>

namespace sarimport
{

QString suffixForFormat(const QString& format)
{
    return driverForFormat(format) == "GTiff" ? QStringLiteral(".tif") : QStringLiteral(".img");
}

SarImportResult importGf3Jobs(const std::vector<Gf3ImportJob>& jobs, const QString& format, bool equalSizes,
                              const std::function<void(double)>& progress, QStringList* written)
{
    driverForFormat(format);
    std::vector<algokit::DatasetPtr> sources;
    std::vector<SarParameterRecord> records;
    QSet<QString> inputs, outputs;
    for (const Gf3ImportJob& job : jobs)
        inputs << QFileInfo(job.image).absoluteFilePath() << QFileInfo(job.metaXml).absoluteFilePath();
    for (const Gf3ImportJob& job : jobs)
    {
        sources.push_back(algokit::openRaster(job.image));
        GDALDataset* source = sources.back().get();
        if (equalSizes && (source->GetRasterXSize() != sources.front()->GetRasterXSize() ||
                           source->GetRasterYSize() != sources.front()->GetRasterYSize()))
            throw algokit::AlgoError(QStringLiteral("The channel images differ in size: %1 is %2 x %3, %4 is %5 x %6")
                                         .arg(jobs.front().image)
                                         .arg(sources.front()->GetRasterXSize())
                                         .arg(sources.front()->GetRasterYSize())
                                         .arg(job.image)
                                         .arg(source->GetRasterXSize())
                                         .arg(source->GetRasterYSize()));
        for (const QString& output : {job.outputImage, job.outputParameterFile})
        {
            const QString absolute = QFileInfo(output).absoluteFilePath();
            if (inputs.contains(absolute))
                throw algokit::AlgoError(QStringLiteral("The output %1 would overwrite an input file").arg(output));
            if (outputs.contains(absolute))
                throw algokit::AlgoError(QStringLiteral("Two outputs would be written to %1").arg(output));
            outputs << absolute;
        }
        const QString folder = QFileInfo(job.outputImage).absolutePath();
        if (!QDir().mkpath(folder) || !QFileInfo(folder).isWritable())
            throw algokit::AlgoError(QStringLiteral("The output folder %1 cannot be written").arg(folder));
        records.push_back(
            gf3ParameterRecord(job.metaXml, job.channel, source->GetRasterXSize(), source->GetRasterYSize()));
    }

    SarImportResult result;
    const double share = jobs.empty() ? 0.0 : 100.0 / double(jobs.size());
    for (size_t i = 0; i < jobs.size(); ++i)
    {
        const Gf3ImportJob& job = jobs[i];
        *written << job.outputImage;
        copyChannelImage(sources[i].get(), job.outputImage, format, job.channel,
                         [&](double fraction) { progress(share * (double(i) + fraction)); });
        *written << job.outputParameterFile;
        QString error;
        if (!WriteSarParameterFile(job.outputParameterFile, records[i], &error))
            throw algokit::AlgoError(error);
        result.images << job.outputImage;
        result.parameterFiles << job.outputParameterFile;
    }
    return result;
}

} // namespace sarimport
