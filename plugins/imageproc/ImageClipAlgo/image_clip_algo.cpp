// Plug-in "ImageClipAlgo": cuts a raster to a pixel rectangle (GDALTranslate) or to the polygons of a region
// file (GDALWarp with the region as cutline, on the input's own pixel grid), output format from the suffix.
// Pixels whose centre lies outside the region become the no-data value (the input's, else 0).
#include "gdal_apps.h"
#include "plugin_base.h"
#include "raster_io.h"
#include "records/clip_mosaic_records.h"

#include <gdal_utils.h>
#include <gdalwarper.h>
#include <ogr_spatialref.h>
#include <ogrsf_frmts.h>

#include <QDir>
#include <QFileInfo>
#include <algorithm>
#include <cmath>
#include <functional>
#include <memory>

namespace
{

int CPL_STDCALL reportProgress(double complete, const char*, void* data)
{
    auto* report = static_cast<std::function<bool(double)>*>(data);
    return (*report)(complete * 100.0) ? TRUE : FALSE;
}

struct HandleCloser
{
    void operator()(void* handle) const
    {
        if (handle)
            GDALClose(handle);
    }
};
using HandlePtr = std::unique_ptr<void, HandleCloser>;

// Pixel window [x0, x1) x [y0, y1) of the input.
struct Window
{
    int x0 = 0, y0 = 0, x1 = 0, y1 = 0;
    bool empty() const { return x1 <= x0 || y1 <= y0; }
};

class ImageClipAlgo : public algokit::PluginBase
{
public:
    ImageClipAlgo() : PluginBase(QStringLiteral("ImageClipAlgo")) {}

protected:
    bool run() override
    {
        const ImageClipParam& info = params<ImageClipParam>();
        if (info.inputFile.isEmpty() || info.outputFile.isEmpty())
            return fail(QStringLiteral("Input and output paths are required."));
        if (QFileInfo(info.inputFile).absoluteFilePath() == QFileInfo(info.outputFile).absoluteFilePath())
            return fail(QStringLiteral("The output file must differ from the input file."));
        if (!(info.scaleX > 0.0) || !(info.scaleY > 0.0))
            return fail(QStringLiteral("The pixel scale factors must be positive."));
        algokit::DatasetPtr source = algokit::openRaster(info.inputFile);
        HandlePtr selected = selectBands(source.get(), info.bands);
        GDALDatasetH input = selected ? selected.get() : GDALDataset::ToHandle(source.get());

        HandlePtr warped;
        CPLStringList translateArgs;
        if (info.useRegion == 0)
        {
            const Window window = rectangleWindow(source.get(), info);
            translateArgs.AddString("-srcwin");
            for (int v : {window.x0, window.y0, window.x1 - window.x0, window.y1 - window.y0})
                translateArgs.AddString(QByteArray::number(v).constData());
            if (info.scaleX != 1.0 || info.scaleY != 1.0)
            {
                translateArgs.AddString("-outsize");
                const long width = std::max(1L, std::lround((window.x1 - window.x0) / info.scaleX));
                const long height = std::max(1L, std::lround((window.y1 - window.y0) / info.scaleY));
                translateArgs.AddString(QByteArray::number(qlonglong(width)).constData());
                translateArgs.AddString(QByteArray::number(qlonglong(height)).constData());
            }
        }
        else
        {
            const QString driver = algokit::driverForPath(info.outputFile);
            GDALDriverH gdalDriver = GDALGetDriverByName(driver.toUtf8().constData());
            if (gdalDriver && GDALGetMetadataItem(gdalDriver, GDAL_DCAP_CREATE, nullptr))
            {
                warpToRegion(source.get(), input, info, driver);
                return finish();
            }
            // Formats written only by copy (PNG, JPEG) take the warped VRT through GDALTranslate.
            warped = warpToRegion(source.get(), input, info, QStringLiteral("VRT"));
            input = warped.get();
        }
        return translateTo(input, info.outputFile, translateArgs);
    }

private:
    // A band subset as a VRT; null when all bands are kept in their order.
    HandlePtr selectBands(GDALDataset* source, const std::vector<int>& bands)
    {
        bool all = bands.empty() || int(bands.size()) == source->GetRasterCount();
        for (size_t i = 0; all && i < bands.size(); ++i)
            all = bands[i] == int(i);
        if (all)
            return nullptr;
        CPLStringList argv;
        argv.AddString("-of");
        argv.AddString("VRT");
        for (int band : bands)
        {
            if (band < 0 || band >= source->GetRasterCount())
                throw algokit::AlgoError(QStringLiteral("Band %1 is not in the input image.").arg(band + 1));
            argv.AddString("-b");
            argv.AddString(QByteArray::number(band + 1).constData());
        }
        GDALTranslateOptions* options = GDALTranslateOptionsNew(argv.List(), nullptr);
        HandlePtr vrt(GDALTranslate("", GDALDataset::ToHandle(source), options, nullptr));
        GDALTranslateOptionsFree(options);
        if (!vrt)
            throw algokit::AlgoError(QStringLiteral("Band selection failed: %1").arg(CPLGetLastErrorMsg()));
        return vrt;
    }

    Window rectangleWindow(GDALDataset* source, const ImageClipParam& info)
    {
        if (info.x1 < info.x0 || info.y1 < info.y0)
            throw algokit::AlgoError(QStringLiteral("The clip rectangle %1|%2|%3|%4 is empty.")
                                         .arg(info.x0).arg(info.x1).arg(info.y0).arg(info.y1));
        Window window;
        window.x0 = std::max(0, info.x0);
        window.y0 = std::max(0, info.y0);
        window.x1 = std::min(source->GetRasterXSize(), info.x1 + 1);
        window.y1 = std::min(source->GetRasterYSize(), info.y1 + 1);
        if (window.empty())
            throw algokit::AlgoError(QStringLiteral("The clip rectangle lies outside the image (%1 x %2 pixels).")
                                         .arg(source->GetRasterXSize()).arg(source->GetRasterYSize()));
        return window;
    }

    // The union of the region's polygons in the image's reference.
    std::unique_ptr<OGRGeometry> regionInImageReference(GDALDataset* source, const QString& regionFile)
    {
        algokit::DatasetPtr region(GDALDataset::Open(regionFile.toUtf8().constData(), GDAL_OF_VECTOR | GDAL_OF_READONLY));
        if (!region || region->GetLayerCount() < 1)
            throw algokit::AlgoError(QStringLiteral("Cannot open the clip region: %1").arg(regionFile));
        OGRLayer* layer = region->GetLayer(0);
        std::unique_ptr<OGRGeometry> area;
        for (auto& feature : *layer)
        {
            const OGRGeometry* geometry = feature->GetGeometryRef();
            if (!geometry || geometry->IsEmpty())
                continue;
            area = area ? std::unique_ptr<OGRGeometry>(area->Union(geometry)) : std::unique_ptr<OGRGeometry>(geometry->clone());
            if (!area)
                throw algokit::AlgoError(QStringLiteral("The clip region's polygons cannot be joined."));
        }
        if (!area || area->IsEmpty())
            throw algokit::AlgoError(QStringLiteral("The clip region holds no polygon."));
        const OGRSpatialReference* from = layer->GetSpatialRef();
        const OGRSpatialReference* to = source->GetSpatialRef();
        if (from && to && !from->IsSame(to))
        {
            OGRSpatialReference a(*from), b(*to);
            a.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
            b.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
            std::unique_ptr<OGRCoordinateTransformation> transform(OGRCreateCoordinateTransformation(&a, &b));
            if (!transform || area->transform(transform.get()) != OGRERR_NONE)
                throw algokit::AlgoError(QStringLiteral("The clip region cannot be brought into the image's reference."));
        }
        return area;
    }

    // Warps onto the input's own grid over the region's pixel window, the region as cutline, so kept pixels are
    // copied unchanged and pixels whose centre lies outside become no-data.
    // Written straight into the output when the format can be created directly (chunks of the warp memory, both
    // cores), else as an in-memory VRT.
    HandlePtr warpToRegion(GDALDataset* source, GDALDatasetH input, const ImageClipParam& info, const QString& format)
    {
        double t[6];
        if (source->GetGeoTransform(t) != CE_None)
            throw algokit::AlgoError(QStringLiteral("The image has no georeferencing; clip it by a pixel rectangle."));
        std::unique_ptr<OGRGeometry> area = regionInImageReference(source, info.regionFile);
        OGREnvelope envelope;
        area->getEnvelope(&envelope);
        double inverse[6];
        if (!GDALInvGeoTransform(t, inverse))
            throw algokit::AlgoError(QStringLiteral("The image's geotransform cannot be inverted."));
        double minX = 1e300, minY = 1e300, maxX = -1e300, maxY = -1e300;
        for (double x : {envelope.MinX, envelope.MaxX})
            for (double y : {envelope.MinY, envelope.MaxY})
            {
                const double px = inverse[0] + x * inverse[1] + y * inverse[2];
                const double py = inverse[3] + x * inverse[4] + y * inverse[5];
                minX = std::min(minX, px), maxX = std::max(maxX, px);
                minY = std::min(minY, py), maxY = std::max(maxY, py);
            }
        Window window;
        window.x0 = int(std::max(0.0, std::floor(minX + 1e-9)));
        window.y0 = int(std::max(0.0, std::floor(minY + 1e-9)));
        window.x1 = int(std::min(double(source->GetRasterXSize()), std::ceil(maxX - 1e-9)));
        window.y1 = int(std::min(double(source->GetRasterYSize()), std::ceil(maxY - 1e-9)));
        if (window.empty())
            throw algokit::AlgoError(QStringLiteral("The clip region does not overlap the image."));

        CPLStringList argv;
        const bool toFile = format != QLatin1String("VRT");
        argv.AddString("-of");
        argv.AddString(format.toUtf8().constData());
        algokit::addGeoTiffOptions(format, &argv);
        for (const char* arg : {"-r", "near", "-cutline"})
            argv.AddString(arg);
        argv.AddString(info.regionFile.toUtf8().constData());
        argv.AddString("-te");
        const double left = t[0] + window.x0 * t[1], right = t[0] + window.x1 * t[1];
        const double top = t[3] + window.y0 * t[5], bottom = t[3] + window.y1 * t[5];
        for (double v : {std::min(left, right), std::min(top, bottom), std::max(left, right), std::max(top, bottom)})
            argv.AddString(CPLSPrintf("%.17g", v));
        argv.AddString("-tr");
        argv.AddString(CPLSPrintf("%.17g", std::fabs(t[1]) * info.scaleX));
        argv.AddString(CPLSPrintf("%.17g", std::fabs(t[5]) * info.scaleY));
        if (info.writeAlpha)
        {
            argv.AddString("-dstalpha");
        }
        else
        {
            int hasNoData = 0;
            const double noData = GDALGetRasterNoDataValue(GDALGetRasterBand(input, 1), &hasNoData);
            argv.AddString("-dstnodata");
            argv.AddString(hasNoData ? CPLSPrintf("%.17g", noData) : "0");
        }
        argv.AddString("-wm");
        argv.AddString(QByteArray::number(info.warpMemoryMb > 0 ? info.warpMemoryMb : 256).constData());
        for (const char* arg : {"-multi", "-wo", "NUM_THREADS=ALL_CPUS"})
            argv.AddString(arg);
        GDALWarpAppOptions* options = GDALWarpAppOptionsNew(argv.List(), nullptr);
        bool cancelled = false;
        std::function<bool(double)> report = [&](double percent) { return keepGoing(percent, &cancelled); };
        if (toFile)
        {
            GDALWarpAppOptionsSetProgress(options, reportProgress, &report);
            QDir().mkpath(QFileInfo(info.outputFile).absolutePath());
            claimOutput(info.outputFile);
        }
        int usageError = 0;
        const QByteArray name = toFile ? info.outputFile.toUtf8() : QByteArray();
        HandlePtr warped(GDALWarp(name.constData(), nullptr, 1, &input, options, &usageError));
        GDALWarpAppOptionsFree(options);
        if (cancelled)
            throw algokit::Cancelled();
        if (!warped || usageError)
            throw algokit::AlgoError(QStringLiteral("Clipping by the region failed: %1").arg(CPLGetLastErrorMsg()));
        if (toFile)
        {
            CPLErrorReset();
            warped.reset(); // flushes; a failed flush shows as a pending error
            if (CPLGetLastErrorType() >= CE_Failure)
                throw algokit::AlgoError(QStringLiteral("Writing the clipped image failed: %1").arg(CPLGetLastErrorMsg()));
        }
        return warped;
    }

    // Progress for GDAL's callbacks: false asks GDAL to stop when the host cancelled.
    bool keepGoing(double percent, bool* cancelled)
    {
        try
        {
            progress(percent);
            return true;
        }
        catch (const algokit::Cancelled&)
        {
            *cancelled = true;
            return false;
        }
    }

    bool finish()
    {
        progress(100.0);
        return true;
    }

    bool translateTo(GDALDatasetH input, const QString& outputFile, CPLStringList argv)
    {
        const QString driver = algokit::driverForPath(outputFile);
        argv.AddString("-of");
        argv.AddString(driver.toUtf8().constData());
        algokit::addGeoTiffOptions(driver, &argv);
        QDir().mkpath(QFileInfo(outputFile).absolutePath());
        GDALTranslateOptions* options = GDALTranslateOptionsNew(argv.List(), nullptr);
        bool cancelled = false;
        std::function<bool(double)> report = [&](double percent) { return keepGoing(percent, &cancelled); };
        GDALTranslateOptionsSetProgress(options, reportProgress, &report);
        claimOutput(outputFile);
        int usageError = 0;
        GDALDatasetH written = GDALTranslate(outputFile.toUtf8().constData(), input, options, &usageError);
        GDALTranslateOptionsFree(options);
        CPLErrorReset();
        if (written)
            GDALClose(written); // flushes; a failed flush shows as a pending error
        const bool closed = written && CPLGetLastErrorType() < CE_Failure;
        if (cancelled)
            throw algokit::Cancelled();
        if (!written || usageError || !closed)
            return fail(QStringLiteral("Writing the clipped image failed: %1").arg(CPLGetLastErrorMsg()));
        return finish();
    }
};

} // namespace

ALGO_PLUGIN_FACTORY(ImageClipAlgo)
