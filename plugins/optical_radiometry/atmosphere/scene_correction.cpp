// Scene plumbing of the atmospheric corrections.
#include "scene_correction.h"

#include "band_description.h"
#include "raster_io.h"

#include <QFileInfo>

#include <algorithm>
#include <cmath>

namespace atmosphere
{
namespace
{

const char* kindName(radiometry::ProductKind kind)
{
    switch (kind)
    {
    case radiometry::ProductKind::Landsat:
        return "a Landsat MTL";
    case radiometry::ProductKind::Sentinel2:
        return "a Sentinel-2 product XML";
    default:
        return "a coefficient table";
    }
}

int sensorCodeOf(radiometry::ProductKind kind)
{
    return kind == radiometry::ProductKind::Landsat ? 1 : kind == radiometry::ProductKind::Sentinel2 ? 2 : 3;
}

std::string sensorName(const radiometry::SceneMetadata& scene)
{
    if (scene.kind == radiometry::ProductKind::Landsat)
        return scene.landsat.sensor;
    return scene.kind == radiometry::ProductKind::Sentinel2 ? "MSI" : kFourBandCamera;
}

} // namespace

PreparedScene prepareScene(const algokit::GenericParams& args, GDALDataset* input, const QString& inputPath,
                           const QString& metaPath, int sensorType, int month, int day)
{
    PreparedScene prepared;
    try
    {
        prepared.metadata = radiometry::loadSceneMetadata(metaPath, inputPath);
    }
    catch (const optical::ProductError& error)
    {
        args.refuse(QStringLiteral("MetaFile"), metaPath, QStringLiteral("cannot be used: ") + error.what());
    }
    radiometry::SceneMetadata& scene = prepared.metadata;
    if (sensorType != kAnySensor && sensorType != sensorCodeOf(scene.kind))
        args.refuse(QStringLiteral("SensorType"), QString::number(sensorType),
                    QStringLiteral("does not match MetaFile, which is ") + kindName(scene.kind));
    if (!optical::known(scene.sun.elevation) || scene.sun.elevation <= 0)
        args.refuse(QStringLiteral("MetaFile"), metaPath, QStringLiteral("gives no sun elevation above the horizon"));
    if (!optical::known(scene.sun.earthSunDistance))
    {
        optical::AcquisitionDate date = scene.date;
        if (month > 0)
        {
            date.month = month;
            date.day = day > 0 ? day : 15;
            date.year = date.year > 0 ? date.year : 2001;
        }
        if (!date.valid())
            args.refuse(QStringLiteral("Month"), QString::number(month),
                        QStringLiteral("is needed: MetaFile gives neither the Earth-Sun distance nor the date"));
        scene.sun.earthSunDistance = optical::earthSunDistance(date.dayOfYear());
    }

    // A raster our calibration wrote says what it holds; anything else is the product's DN.
    const QString held =
        QString::fromUtf8(input->GetMetadataItem("CALIBRATION") ? input->GetMetadataItem("CALIBRATION") : "");
    const std::vector<std::string> ids = radiometry::bandIdsOf(input, inputPath, scene);
    for (int b = 0; b < input->GetRasterCount(); ++b)
    {
        const std::string& id = ids[size_t(b)];
        if (id.empty() || !scene.band(id))
            args.refuse(QStringLiteral("MetaFile"), metaPath,
                        QStringLiteral("does not tell which of its bands is band %1 of the input").arg(b + 1));
        SceneBand band;
        band.coefficients = *scene.band(id);
        if (band.coefficients.thermal)
            args.refuse(QStringLiteral("InputFile"), inputPath,
                        QStringLiteral("holds the thermal band %1, which has no surface reflectance")
                            .arg(QString::fromStdString(id)));
        band.spectral = spectralBand(sensorName(scene), id, band.coefficients.wavelengthUm);
        if (band.spectral.highUm <= 0)
            args.refuse(QStringLiteral("MetaFile"), metaPath,
                        QStringLiteral("gives no wavelength for band %1").arg(QString::fromStdString(id)));
        if (!optical::known(band.coefficients.wavelengthUm))
            band.coefficients.wavelengthUm = 0.5 * (band.spectral.lowUm + band.spectral.highUm);
        GDALRasterBand* raster = input->GetRasterBand(b + 1);
        try
        {
            if (held == QLatin1String("TOA reflectance"))
                band.toReflectance = {1.0, 0.0};
            else
            {
                const radiometry::LinearCalibration reflectance =
                    radiometry::reflectanceOf(band.coefficients, scene.sun);
                if (held == QLatin1String("radiance"))
                {
                    const radiometry::LinearCalibration radiance = radiometry::radianceOf(band.coefficients);
                    band.toReflectance.gain = reflectance.gain / radiance.gain;
                    band.toReflectance.bias = reflectance.bias - band.toReflectance.gain * radiance.bias;
                }
                else
                    band.toReflectance = reflectance;
            }
        }
        catch (const optical::ProductError& error)
        {
            args.refuse(QStringLiteral("MetaFile"), metaPath, QStringLiteral("cannot be used: ") + error.what());
        }
        if (held.isEmpty())
            band.noData = radiometry::noDataRuleOf(raster, scene);
        else
        {
            int hasValue = 0;
            const double value = raster->GetNoDataValue(&hasValue);
            band.noData.hasValue = hasValue != 0;
            band.noData.value = value;
        }
        prepared.bands.push_back(band);
    }
    prepared.geometry.sunZenithDeg = scene.sun.zenith();
    prepared.geometry.viewZenithDeg = 0.0; // the products read here are nadir-looking
    prepared.geometry.relativeAzimuthDeg = optical::known(scene.sun.azimuth) ? scene.sun.azimuth : 0.0;
    return prepared;
}

void readReflectance(GDALDataset* input, const PreparedScene& scene, int b, int row0, int rows,
                     std::vector<double>& scratch, std::vector<float>& out)
{
    algokit::readRows(input->GetRasterBand(b + 1), row0, rows, scratch);
    out.resize(scratch.size());
    const SceneBand& band = scene.bands[size_t(b)];
    radiometry::applyLinear(scratch.data(), scratch.size(), band.toReflectance, band.noData, out.data());
}

void writeSurfaceReflectance(GDALDataset* input, const PreparedScene& scene,
                             const std::vector<BandCorrection>& corrections, const QString& outputPath,
                             const std::function<void(double)>& progress)
{
    const int width = input->GetRasterXSize(), height = input->GetRasterYSize(), bands = input->GetRasterCount();
    const QString driver = algokit::driverForPath(outputPath);
    const QStringList options = driver == QLatin1String("GTiff")
                                    ? QStringList{QStringLiteral("TILED=YES"), QStringLiteral("BIGTIFF=IF_SAFER")}
                                    : QStringList{};
    algokit::OutputRaster output(outputPath, driver, width, height, bands, GDT_Float32, options);
    output.copyGeoreferencing(input);
    output.get()->SetMetadataItem("CALIBRATION", "surface reflectance");
    for (int b = 0; b < bands; ++b)
    {
        GDALRasterBand* band = output.band(b);
        band->SetNoDataValue(radiometry::kOutputNoData);
        radiometry::describeBand(band, scene.bands[size_t(b)].coefficients, QString());
        const BandCorrection& c = corrections[size_t(b)];
        band->SetMetadataItem("PATH_REFLECTANCE", QByteArray::number(c.pathReflectance, 'g', 6).constData());
        band->SetMetadataItem("TOTAL_TRANSMITTANCE", QByteArray::number(c.transmittance, 'g', 6).constData());
        band->SetMetadataItem("SPHERICAL_ALBEDO", QByteArray::number(c.sphericalAlbedo, 'g', 6).constData());
        band->SetMetadataItem("GAS_TRANSMITTANCE", QByteArray::number(c.gasTransmittance, 'g', 6).constData());
    }
    const int step = algokit::rowsPerBlock(input, 16); // a double read, a float TOA and a float out per pixel
    std::vector<std::vector<double>> scratch{size_t(bands)};
    std::vector<std::vector<float>> toa{size_t(bands)}, out{size_t(bands)};
    algokit::forEachRowBlock(height, step, [&](int row0, int rows) {
        for (int b = 0; b < bands; ++b)
            readReflectance(input, scene, b, row0, rows, scratch[size_t(b)], toa[size_t(b)]);
        // Pixels are independent: each band's block is split over the cores.
        constexpr size_t kChunk = 1 << 16;
        for (int b = 0; b < bands; ++b)
        {
            const std::vector<float>& in = toa[size_t(b)];
            out[size_t(b)].resize(in.size());
            float* target = out[size_t(b)].data();
            algokit::parallelFor(int((in.size() + kChunk - 1) / kChunk), [&](int begin, int end) {
                const size_t first = size_t(begin) * kChunk, last = std::min(in.size(), size_t(end) * kChunk);
                applyCorrection(corrections[size_t(b)], in.data() + first, last - first, radiometry::kOutputNoData,
                                target + first);
            });
        }
        for (int b = 0; b < bands; ++b)
            algokit::writeRows(output.band(b), row0, rows, out[size_t(b)]);
        progress(100.0 * (row0 + rows) / height);
    });
    output.commit();
}

} // namespace atmosphere
