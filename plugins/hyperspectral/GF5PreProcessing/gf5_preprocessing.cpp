// Plug-in "GF5PreProcessing": merges the VNIR and SWIR images of a GF-5 AHSI product into one Float32
// radiance cube (radiance = gain * DN + offset from each detector's calibration file), leaving out the
// listed bands, with band wavelengths from the solar irradiance table and the VNIR image's RPC.
#include "../gf5_tables.h"
#include "raster_io.h"
#include "records/hyperspectral_records.h"

#include <QCoreApplication>
#include <QFileInfo>

namespace
{

// One output band: which detector image, which band of it, and its calibration.
struct SourceBand
{
    GDALDataset* image;
    int band;
    double gain;
    double offset;
    double centre = 0.0;
    double fwhm = 0.0;
};

class GF5PreProcessing : public algokit::PluginBase
{
public:
    GF5PreProcessing() : PluginBase(QStringLiteral("GF5PreProcessing")) {}

protected:
    bool run() override
    {
        const stGF5AhsiPreProcessingInfo& info = params<stGF5AhsiPreProcessingInfo>();
        algokit::DatasetPtr vnir = algokit::openRaster(info.vnirFile);
        algokit::DatasetPtr swir = algokit::openRaster(info.swirFile);
        const int width = vnir->GetRasterXSize();
        const int height = vnir->GetRasterYSize();
        if (swir->GetRasterXSize() != width || swir->GetRasterYSize() != height)
            return fail(QStringLiteral("The VNIR image is %1 x %2 but the SWIR image %3 x %4.")
                            .arg(width)
                            .arg(height)
                            .arg(swir->GetRasterXSize())
                            .arg(swir->GetRasterYSize()));
        const auto vnirCal = gf5::readPairs(info.vnirCalibrationFile, "VNIR calibration");
        const auto swirCal = gf5::readPairs(info.swirCalibrationFile, "SWIR calibration");
        std::vector<gf5::EsunRow> table;
        const QString tablePath =
            QCoreApplication::applicationDirPath() + "/../data/HypSpectral/GF5_AHSI_SpeRes_ESUN.txt";
        if (QFileInfo::exists(tablePath))
            table = gf5::readEsunTable(tablePath);

        std::vector<SourceBand> bands;
        addDetector(vnir.get(), "VNIR", vnirCal, info.vnirDropBands, table, bands);
        addDetector(swir.get(), "SWIR", swirCal, info.swirDropBands, table, bands);
        if (bands.empty())
            return fail(QStringLiteral("Every band is dropped; nothing to write."));

        const QString driver = algokit::driverForPath(info.outputFile);
        algokit::OutputRaster output(info.outputFile, driver, width, height, int(bands.size()), GDT_Float32,
                                     driver == "ENVI" ? QStringList{"INTERLEAVE=BSQ"} : QStringList());
        output.copyGeoreferencing(vnir.get());
        gf5::copyRpc(vnir.get(), output.get());
        const int step = algokit::rowsPerBlock(vnir.get(), 4);
        std::vector<float> buffer;
        int done = 0;
        for (size_t k = 0; k < bands.size(); ++k)
        {
            const SourceBand& source = bands[k];
            algokit::forEachRowBlock(height, step, [&](int row0, int rows) {
                algokit::readRows(source.image->GetRasterBand(source.band), row0, rows, buffer);
                for (float& value : buffer)
                    value = value == 0.0f ? 0.0f : float(source.gain * value + source.offset); // 0 is fill
                algokit::writeRows(output.band(int(k)), row0, rows, buffer);
            });
            progress(99.0 * double(++done) / double(bands.size()));
        }
        std::vector<double> centres, fwhm;
        for (const SourceBand& band : bands)
            if (band.centre > 0.0)
            {
                centres.push_back(band.centre);
                fwhm.push_back(band.fwhm);
            }
        if (centres.size() == bands.size())
            gf5::writeWavelengths(output.get(), centres, fwhm);
        output.commit();
        return true;
    }

private:
    void addDetector(GDALDataset* image, const char* detector, const std::vector<std::pair<double, double>>& cal,
                     const std::vector<int>& drop, const std::vector<gf5::EsunRow>& table,
                     std::vector<SourceBand>& bands)
    {
        const int count = image->GetRasterCount();
        if (int(cal.size()) != count)
            throw algokit::AlgoError(QStringLiteral("The %1 calibration file has %2 lines for %3 bands.")
                                         .arg(detector)
                                         .arg(cal.size())
                                         .arg(count));
        for (int band = 1; band <= count; ++band)
        {
            if (std::find(drop.begin(), drop.end(), band) != drop.end())
                continue;
            SourceBand source{image, band, cal[size_t(band - 1)].first, cal[size_t(band - 1)].second};
            for (const gf5::EsunRow& row : table)
                if (row.detector == detector && row.band == band)
                {
                    source.centre = row.centre;
                    source.fwhm = row.fwhm;
                }
            bands.push_back(source);
        }
    }
};

} // namespace

ALGO_PLUGIN_FACTORY(GF5PreProcessing)
