// Plug-in "HypGF5RadiometricCalibrate": AHSI digital numbers to radiance (gain * DN + offset per band from
// the calibration file) and, on request, to top-of-atmosphere reflectance
// rho = pi * L * d^2 / (ESUN * cos(solar zenith)), with ESUN from the irradiance table at each band's
// centre wavelength and the solar geometry and date from the product's XML metadata.
#include "../gf5_tables.h"
#include "raster_io.h"
#include "records/hyperspectral_records.h"

#include <QDate>
#include <QXmlStreamReader>
#include <cmath>

namespace
{

// Solar zenith (degrees) and acquisition date from the product XML. Element names differ between
// product generations, so the first of several known names wins (compared without case).
struct SolarGeometry
{
    double zenith = std::nan("");
    QDate date;
};

SolarGeometry readSolarGeometry(const QString& path)
{
    QFile file(path);
    if (path.isEmpty() || !file.open(QIODevice::ReadOnly))
        throw algokit::AlgoError(QStringLiteral("The metadata file %1 cannot be read.").arg(path));
    SolarGeometry geometry;
    QXmlStreamReader xml(&file);
    while (!xml.atEnd())
    {
        if (xml.readNext() != QXmlStreamReader::StartElement)
            continue;
        const QString name = xml.name().toString().toLower();
        if (name == "solarzenith" || name == "sunzenith")
        {
            geometry.zenith = xml.readElementText().trimmed().toDouble();
        }
        else if ((name == "solarelevation" || name == "sunelevation" || name == "solaraltitude") &&
                 std::isnan(geometry.zenith))
        {
            geometry.zenith = 90.0 - xml.readElementText().trimmed().toDouble();
        }
        else if (!geometry.date.isValid() &&
                 (name == "starttime" || name == "centertime" || name == "imagingtime" || name == "scenedate" ||
                  name == "imagingstarttime" || name == "receivetime"))
        {
            geometry.date = QDate::fromString(xml.readElementText().trimmed().left(10), Qt::ISODate);
        }
    }
    if (xml.hasError())
        throw algokit::AlgoError(QStringLiteral("The metadata file %1 is not valid XML: %2").arg(path, xml.errorString()));
    if (std::isnan(geometry.zenith) || geometry.zenith < 0.0 || geometry.zenith >= 90.0)
        throw algokit::AlgoError(QStringLiteral("The metadata file %1 gives no usable solar zenith or elevation.").arg(path));
    if (!geometry.date.isValid())
        throw algokit::AlgoError(QStringLiteral("The metadata file %1 gives no acquisition date.").arg(path));
    return geometry;
}

// Earth-Sun distance in astronomical units for a day of the year.
double earthSunDistance(int dayOfYear)
{
    const double kDegree = M_PI / 180.0;
    return 1.0 - 0.01672 * std::cos(0.9856 * (dayOfYear - 4) * kDegree);
}

class HypGF5RadiometricCalibrate : public algokit::PluginBase
{
public:
    HypGF5RadiometricCalibrate() : PluginBase(QStringLiteral("HypGF5RadiometricCalibrate")) {}

protected:
    bool run() override
    {
        const stGF5AhsiRadiometricCalibrateInfo& info = params<stGF5AhsiRadiometricCalibrateInfo>();
        if (info.outputFile.isEmpty())
            return fail(QStringLiteral("No output path is given."));
        algokit::DatasetPtr input = algokit::openRaster(info.inputFile);
        const int count = input->GetRasterCount();
        const int width = input->GetRasterXSize();
        const int height = input->GetRasterYSize();

        std::vector<double> gain(size_t(count), 1.0), offset(size_t(count), 0.0);
        if (!info.calibrationFile.isEmpty())
        {
            const auto cal = gf5::readPairs(info.calibrationFile, "calibration");
            if (int(cal.size()) != count)
                return fail(QStringLiteral("The calibration file has %1 lines for %2 bands.").arg(cal.size()).arg(count));
            for (int k = 0; k < count; ++k)
            {
                gain[size_t(k)] = cal[size_t(k)].first;
                offset[size_t(k)] = cal[size_t(k)].second;
            }
        }
        std::vector<double> centres, fwhm;
        readCentres(info, input.get(), centres, fwhm);

        // Per band: output = factor * (gain * DN + offset).
        const double scale = info.scaleFlag > 1 ? double(info.scaleFlag) : 1.0;
        std::vector<double> factor(size_t(count), scale * (info.unitFlag != 0 ? 0.1 : 1.0));
        if (info.calibrationType != 0)
        {
            if (centres.size() != size_t(count))
                return fail(QStringLiteral("Reflectance needs the centre wavelength of every band (spectral response "
                                           "file or band metadata)."));
            const auto table = gf5::readEsunTable(info.esunFile);
            const SolarGeometry sun = readSolarGeometry(info.metaFile);
            const double d = earthSunDistance(sun.date.dayOfYear());
            const double cosZenith = std::cos(sun.zenith * M_PI / 180.0);
            for (int k = 0; k < count; ++k)
                factor[size_t(k)] = scale * M_PI * d * d / (gf5::esunAt(table, centres[size_t(k)]) * cosZenith);
        }

        const QString driver = algokit::driverForPath(info.outputFile);
        algokit::OutputRaster output(info.outputFile, driver, width, height, count, GDT_Float32,
                                     driver == "ENVI" ? QStringList{"INTERLEAVE=BSQ"} : QStringList());
        output.copyGeoreferencing(input.get());
        gf5::copyRpc(input.get(), output.get());
        const int step = algokit::rowsPerBlock(input.get(), 4);
        std::vector<float> buffer;
        for (int k = 0; k < count; ++k)
        {
            algokit::forEachRowBlock(height, step, [&](int row0, int rows) {
                algokit::readRows(input->GetRasterBand(k + 1), row0, rows, buffer);
                const double g = gain[size_t(k)], o = offset[size_t(k)], f = factor[size_t(k)];
                for (float& value : buffer)
                    value = value == 0.0f ? 0.0f : float(f * (g * value + o)); // 0 is the products' fill value
                algokit::writeRows(output.band(k), row0, rows, buffer);
            });
            progress(99.0 * (k + 1) / count);
        }
        if (centres.size() == size_t(count))
            gf5::writeWavelengths(output.get(), centres, fwhm);
        output.commit();
        return true;
    }

private:
    // Centre wavelengths in nm: the spectral response file, else the band metadata (micrometres converted).
    void readCentres(const stGF5AhsiRadiometricCalibrateInfo& info, GDALDataset* input, std::vector<double>& centres,
                     std::vector<double>& fwhm)
    {
        const int count = input->GetRasterCount();
        if (!info.spectralResponseFile.isEmpty())
        {
            const auto response = gf5::readPairs(info.spectralResponseFile, "spectral response");
            if (int(response.size()) != count)
                throw algokit::AlgoError(QStringLiteral("The spectral response file has %1 lines for %2 bands.")
                                             .arg(response.size())
                                             .arg(count));
            for (const auto& [centre, width] : response)
            {
                centres.push_back(centre);
                fwhm.push_back(width);
            }
            return;
        }
        for (int band = 1; band <= count; ++band)
        {
            const char* item = input->GetRasterBand(band)->GetMetadataItem("wavelength");
            const double value = item ? QString::fromUtf8(item).toDouble() : 0.0;
            if (value <= 0.0)
            {
                centres.clear();
                return;
            }
            centres.push_back(value < 100.0 ? value * 1000.0 : value);
        }
    }
};

} // namespace

ALGO_PLUGIN_FACTORY(HypGF5RadiometricCalibrate)
