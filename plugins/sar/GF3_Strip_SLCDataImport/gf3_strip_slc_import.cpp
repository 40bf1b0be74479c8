// Plug-in "GF3_Strip_SLCDataImport": the selected channels of one GF-3 product into complex images, each with its
// SAR parameter file, named by the caller's rule.
#include "gf3_import.h"
#include "plugin_base.h"
#include "raster_io.h"
#include "records/sar_records.h"
#include "sar_parameter_file.h"

#include <QDir>
#include <QFileInfo>

namespace
{

class Gf3StripSlcDataImport : public algokit::PluginBase
{
public:
    Gf3StripSlcDataImport() : PluginBase(QStringLiteral("GF3_Strip_SLCDataImport")) {}

protected:
    bool run() override
    {
        const Gf3ImportParams& params = this->params<Gf3ImportParams>();
        const QString format = params.outputOption.isEmpty() ? QStringLiteral("GTiff") : params.outputOption;
        const QString suffix = sarimport::suffixForFormat(format);
        const QString folder = params.outputLocation.isEmpty() ? QFileInfo(params.metaXmlFile).absolutePath()
                                                               : QDir(params.outputLocation).absolutePath();
        const QString images[4] = {params.hhImage, params.hvImage, params.vhImage, params.vvImage};
        const bool selected[4] = {params.importHH, params.importHV, params.importVH, params.importVV};
        const char* const channels[4] = {"HH", "HV", "VH", "VV"};

        std::vector<sarimport::Gf3ImportJob> jobs;
        for (int slot = 0; slot < 4; ++slot)
        {
            if (!selected[slot])
                continue;
            if (images[slot].isEmpty())
                return fail(QStringLiteral("The product has no %1 channel image").arg(channels[slot]));
            sarimport::Gf3ImportJob job;
            job.image = images[slot];
            job.metaXml = params.metaXmlFile;
            job.channel = QString::fromLatin1(channels[slot]);
            job.outputImage = folder + "/" + outputName(params, job) + suffix;
            job.outputParameterFile = sarParameterFilePath(job.outputImage);
            jobs.push_back(job);
        }
        if (jobs.empty())
            return fail(QStringLiteral("No polarisation channel was selected for import"));
        setResult(sarimport::importGf3Jobs(jobs, format, true, [this](double percent) { progress(percent); },
                                           &m_written));
        m_written.clear();
        return true;
    }

    void discardOutputs() override
    {
        for (const QString& path : m_written)
            algokit::deleteRasterFiles(path);
        m_written.clear();
    }

private:
    // Rule 2 keeps the channel image's own name, which carries its channel; the other stems get the channel
    // appended so that channels of one product never share a file.
    static QString outputName(const Gf3ImportParams& params, const sarimport::Gf3ImportJob& job)
    {
        if (params.namingRule == 2)
            return QFileInfo(job.image).completeBaseName();
        if (params.nameStem.isEmpty())
            return job.channel;
        return params.nameStem + (params.nameStem.endsWith('_') ? "" : "_") + job.channel;
    }

    QStringList m_written;
};

} // namespace

ALGO_PLUGIN_FACTORY(Gf3StripSlcDataImport)
