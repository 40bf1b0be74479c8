// Plug-in "Batch_GF3_Strip_DataImport": the products of one folder into complex images and SAR parameter files,
// under the names the entry chose.
#include "gf3_import.h"
#include "plugin_base.h"
#include "raster_io.h"
#include "records/sar_records.h"

namespace
{

class BatchGf3StripDataImport : public algokit::PluginBase
{
public:
    BatchGf3StripDataImport() : PluginBase(QStringLiteral("Batch_GF3_Strip_DataImport")) {}

protected:
    bool run() override
    {
        const BatchGf3ImportParams& params = this->params<BatchGf3ImportParams>();
        const int count = params.inputImages.size();
        if (count == 0)
            return fail(QStringLiteral("No product to import"));
        if (params.metaXmlFiles.size() != count || params.outputImages.size() != count ||
            params.outputParameterFiles.size() != count)
            return fail(QStringLiteral("The lists of images, meta.xml files and outputs differ in length"));
        std::vector<sarimport::Gf3ImportJob> jobs;
        for (int i = 0; i < count; ++i)
            jobs.push_back({params.inputImages[i], params.metaXmlFiles[i], params.polarization,
                            params.outputImages[i], params.outputParameterFiles[i]});
        setResult(sarimport::importGf3Jobs(jobs, params.format, false, [this](double percent) { progress(percent); },
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
    QStringList m_written;
};

} // namespace

ALGO_PLUGIN_FACTORY(BatchGf3StripDataImport)
