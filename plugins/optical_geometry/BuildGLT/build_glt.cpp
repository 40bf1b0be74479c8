// Plug-in "BuildGLT": a geometric lookup table on the UTM grid of a swath's centre from its per-pixel
// latitude and longitude.
#include "glt.h"

#include "generic_params.h"
#include "plugin_base.h"

#include <ogr_spatialref.h>

#include <cmath>
#include <memory>

namespace
{

using algokit::AlgoError;
using algokit::DatasetPtr;

std::vector<double> readWhole(GDALRasterBand* band)
{
    const int w = band->GetXSize(), h = band->GetYSize();
    std::vector<double> v(size_t(w) * h);
    if (band->RasterIO(GF_Read, 0, 0, w, h, v.data(), w, h, GDT_Float64, 0, 0, nullptr) != CE_None)
        throw AlgoError(QStringLiteral("Cannot read %1: %2")
                            .arg(QString::fromUtf8(band->GetDataset()->GetDescription()), QString::fromUtf8(CPLGetLastErrorMsg())));
    int has = 0;
    const double noData = band->GetNoDataValue(&has);
    for (double& x : v)
        if ((has && x == noData) || !std::isfinite(x))
            x = std::nan("");
    return v;
}

class BuildGLT : public algokit::PluginBase
{
public:
    BuildGLT() : PluginBase(QStringLiteral("BuildGLT")) {}

protected:
    bool run() override
    {
        const algokit::GenericParams args(params<GenericAlgoRecord>(), GetName());
        const QString inputPath = args.text("InputFile").required().existingFile();
        DatasetPtr input = args.text("InputFile").openRaster();
        const int w = input->GetRasterXSize(), h = input->GetRasterYSize();
        const bool ownFiles = !args.text("LatFile").isEmpty() || !args.text("LonFile").isEmpty();
        DatasetPtr latSet, lonSet;
        GDALRasterBand *latBand = nullptr, *lonBand = nullptr;
        if (ownFiles)
        {
            latSet = args.text("LatFile").required().existingFile().openRaster();
            lonSet = args.text("LonFile").required().existingFile().openRaster();
            latBand = latSet->GetRasterBand(1);
            lonBand = lonSet->GetRasterBand(1);
            if (latSet->GetRasterXSize() != w || latSet->GetRasterYSize() != h)
                args.refuse("LatFile", args.text("LatFile").value(), "is not the size of the InputFile");
            if (lonSet->GetRasterXSize() != w || lonSet->GetRasterYSize() != h)
                args.refuse("LonFile", args.text("LonFile").value(), "is not the size of the InputFile");
        }
        else
        {
            // The swath's own geolocation arrays, one value per pixel.
            char** geo = input->GetMetadata("GEOLOCATION");
            const char* xs = CSLFetchNameValue(geo, "X_DATASET");
            const char* ys = CSLFetchNameValue(geo, "Y_DATASET");
            if (!xs || !ys)
                args.refuse("InputFile", inputPath, "has no geolocation arrays, and LatFile and LonFile are empty");
            for (const char* key : {"PIXEL_STEP", "LINE_STEP"})
                if (const char* step = CSLFetchNameValue(geo, key))
                    if (CPLAtof(step) != 1.0)
                        args.refuse("InputFile", inputPath, "has subsampled geolocation arrays; give LatFile and LonFile");
            lonSet = algokit::openRaster(QString::fromUtf8(xs));
            latSet = algokit::openRaster(QString::fromUtf8(ys));
            lonBand = lonSet->GetRasterBand(std::max(1, atoi(CSLFetchNameValueDef(geo, "X_BAND", "1"))));
            latBand = latSet->GetRasterBand(std::max(1, atoi(CSLFetchNameValueDef(geo, "Y_BAND", "1"))));
            if (!lonBand || !latBand || lonBand->GetXSize() != w || lonBand->GetYSize() != h)
                args.refuse("InputFile", inputPath, "has geolocation arrays of another size than the image");
        }
        const QString outputPath = args.text("OutputFile").required().writableOutput();
        algokit::checkWholeImageSize(latSet.get(), args.text("LatFile").value(), 40);

        std::vector<double> lat = readWhole(latBand), lon = readWhole(lonBand);
        size_t valid = 0;
        double sumLon = 0, sumLat = 0;
        for (size_t k = 0; k < lat.size(); ++k)
        {
            if (!std::isfinite(lat[k]) || !std::isfinite(lon[k]) || std::fabs(lat[k]) > 90 || std::fabs(lon[k]) > 180)
            {
                lat[k] = lon[k] = std::nan("");
                continue;
            }
            sumLon += lon[k];
            sumLat += lat[k];
            ++valid;
        }
        if (valid < 4)
            args.refuse(ownFiles ? "LatFile" : "InputFile", ownFiles ? args.text("LatFile").value() : inputPath,
                        "holds fewer than 4 valid latitudes and longitudes");
        progress(10);

        const double centreLon = sumLon / valid, centreLat = sumLat / valid;
        const int zone = std::max(1, std::min(60, int(std::floor((centreLon + 180.0) / 6.0)) + 1));
        OGRSpatialReference wgs84, utm;
        wgs84.SetWellKnownGeogCS("WGS84");
        wgs84.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
        utm.importFromEPSG((centreLat >= 0 ? 32600 : 32700) + zone);
        utm.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
        std::unique_ptr<OGRCoordinateTransformation> toUtm(OGRCreateCoordinateTransformation(&wgs84, &utm));
        if (!toUtm)
            throw AlgoError(QStringLiteral("BuildGLT: no transformation to UTM zone %1").arg(zone));
        std::vector<int> ok(lon.size());
        toUtm->Transform(int(lon.size()), lon.data(), lat.data(), nullptr, ok.data());
        for (size_t k = 0; k < lon.size(); ++k)
            if (!ok[k])
                lon[k] = lat[k] = std::nan("");
        progress(30);

        const double pixel = optgeo::medianSpacing(lon, lat, w, h);
        if (!(pixel > 0))
            args.refuse(ownFiles ? "LatFile" : "InputFile", ownFiles ? args.text("LatFile").value() : inputPath,
                        "gives no spacing between neighbouring pixels");
        double minX = HUGE_VAL, maxX = -HUGE_VAL, minY = HUGE_VAL, maxY = -HUGE_VAL;
        for (size_t k = 0; k < lon.size(); ++k)
            if (std::isfinite(lon[k]))
            {
                minX = std::min(minX, lon[k]);
                maxX = std::max(maxX, lon[k]);
                minY = std::min(minY, lat[k]);
                maxY = std::max(maxY, lat[k]);
            }
        if ((maxX - minX) / pixel * ((maxY - minY) / pixel) > 4e8)
            args.refuse(ownFiles ? "LatFile" : "InputFile", ownFiles ? args.text("LatFile").value() : inputPath,
                        "spreads the swath over a grid too large for its pixel spacing");
        const optgeo::GltGrid glt = optgeo::buildGlt(lon, lat, w, h, pixel);
        progress(80);

        claimOutput(outputPath);
        algokit::OutputRaster out(outputPath, algokit::driverForPath(outputPath), glt.width, glt.height, 2, GDT_Int32);
        double transform[6] = {glt.originX, glt.pixel, 0, glt.originY, 0, -glt.pixel};
        out.get()->SetGeoTransform(transform);
        out.get()->SetSpatialRef(&utm);
        const char* names[] = {"GLT Sample Lookup", "GLT Line Lookup"};
        const std::vector<int32_t>* data[] = {&glt.sample, &glt.line};
        for (int b = 0; b < 2; ++b)
        {
            out.band(b)->SetDescription(names[b]);
            out.band(b)->SetNoDataValue(0);
            if (out.band(b)->RasterIO(GF_Write, 0, 0, glt.width, glt.height, const_cast<int32_t*>(data[b]->data()), glt.width,
                                      glt.height, GDT_Int32, 0, 0, nullptr) != CE_None)
                throw AlgoError(QStringLiteral("Cannot write %1").arg(outputPath));
        }
        out.get()->SetMetadataItem("GLT_SOURCE", inputPath.toUtf8().constData());
        out.commit();
        setResult(algokit::GenericOutputs().add("GLTPixelSize", QString::number(pixel, 'g', 10)).result());
        progress(100);
        return true;
    }
};

} // namespace

ALGO_PLUGIN_FACTORY(BuildGLT)
