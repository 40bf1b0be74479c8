// Plug-in "HyspecPrePro": converts a hyperspectral image into ENVI (band sequential) and makes sure the
// header carries band wavelengths: the input's own, else those of the reference ENVI image.
#include "../gf5_tables.h"
#include "raster_io.h"
#include "records/hyperspectral_records.h"

#include <gdal_utils.h>

#include <QFileInfo>

namespace
{

int CPL_STDCALL translateProgress(double complete, const char*, void* data)
{
    auto* report = static_cast<std::function<bool(double)>*>(data);
    return (*report)(complete * 95.0) ? TRUE : FALSE;
}

// Wavelengths (nm) and FWHM of a dataset's bands; empty when a band has none.
void bandWavelengths(GDALDataset* dataset, std::vector<double>& centres, std::vector<double>& fwhm)
{
    centres.clear();
    fwhm.clear();
    for (int band = 1; band <= dataset->GetRasterCount(); ++band)
    {
        const char* item = dataset->GetRasterBand(band)->GetMetadataItem("wavelength");
        const double value = item ? QString::fromUtf8(item).toDouble() : 0.0;
        if (value <= 0.0)
        {
            centres.clear();
            fwhm.clear();
            return;
        }
        centres.push_back(value < 100.0 ? value * 1000.0 : value);
        const char* width = dataset->GetRasterBand(band)->GetMetadataItem("fwhm");
        if (width)
            fwhm.push_back(value < 100.0 ? QString::fromUtf8(width).toDouble() * 1000.0 : QString::fromUtf8(width).toDouble());
    }
    if (fwhm.size() != centres.size())
        fwhm.clear();
}

class HyspecPrePro : public algokit::PluginBase
{
public:
    HyspecPrePro() : PluginBase(QStringLiteral("HyspecPrePro")) {}

protected:
    bool run() override
    {
        const stHyspecPreProInfo& info = params<stHyspecPreProInfo>();
        if (info.outputFile.isEmpty())
            return fail(QStringLiteral("No output path is given."));
        if (QFileInfo(info.inputFile).absoluteFilePath() == QFileInfo(info.outputFile).absoluteFilePath())
            return fail(QStringLiteral("The output file must differ from the input file."));
        algokit::DatasetPtr source = algokit::openRaster(info.inputFile);
        std::vector<double> centres, fwhm;
        bandWavelengths(source.get(), centres, fwhm);
        if (centres.empty() && QFileInfo::exists(info.referenceFile))
        {
            algokit::DatasetPtr reference = algokit::openRaster(info.referenceFile);
            if (reference->GetRasterCount() == source->GetRasterCount())
                bandWavelengths(reference.get(), centres, fwhm);
        }

        CPLStringList argv;
        argv.AddString("-of");
        argv.AddString(info.format.isEmpty() ? "ENVI" : info.format.toUtf8().constData());
        argv.AddString("-co");
        argv.AddString("INTERLEAVE=BSQ");
        GDALTranslateOptions* options = GDALTranslateOptionsNew(argv.List(), nullptr);
        bool cancelled = false;
        std::function<bool(double)> report = [&](double percent) {
            try
            {
                progress(percent);
                return true;
            }
            catch (const algokit::Cancelled&)
            {
                cancelled = true;
                return false;
            }
        };
        GDALTranslateOptionsSetProgress(options, translateProgress, &report);
        claimOutput(info.outputFile);
        int usageError = 0;
        GDALDatasetH converted = GDALTranslate(info.outputFile.toUtf8().constData(), GDALDataset::ToHandle(source.get()),
                                               options, &usageError);
        GDALTranslateOptionsFree(options);
        if (converted && !centres.empty())
            gf5::writeWavelengths(GDALDataset::FromHandle(converted), centres, fwhm);
        if (converted)
            GDALClose(converted);
        if (cancelled)
            throw algokit::Cancelled();
        if (!converted || usageError)
            return fail(QStringLiteral("Conversion to ENVI failed: %1").arg(QString::fromUtf8(CPLGetLastErrorMsg())));
        progress(100.0);
        return true;
    }
};

} // namespace

ALGO_PLUGIN_FACTORY(HyspecPrePro)
