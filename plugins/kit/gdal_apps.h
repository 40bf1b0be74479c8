// GDAL's translate and warp run from a plug-in: arguments as gdal_translate/gdalwarp take them, progress bridged.
#pragma once

#include "gdal_progress.h"
#include "raster_io.h"

#include <gdal_utils.h>

#include <QString>

namespace algokit
{

// Resampling names of the integer methods the utility records carry: 0 nearest, 1 bilinear, 2 cubic,
// 3 average, 4 cubic spline, 5 lanczos, 6 mode; anything else nearest.
inline const char* resamplingName(int method)
{
    static const char* const names[] = {"near", "bilinear", "cubic", "average", "cubicspline", "lanczos", "mode"};
    return method >= 0 && method < 7 ? names[method] : "near";
}

// Creation options a GIS user expects of a GeoTIFF written by a utility.
inline void addGeoTiffOptions(const QString& format, CPLStringList* argv)
{
    if (format != QLatin1String("GTiff"))
        return;
    argv->AddString("-co");
    argv->AddString("TILED=YES");
    argv->AddString("-co");
    argv->AddString("BIGTIFF=IF_SAFER");
}

// gdal_translate source -> path. Throws AlgoError with GDAL's message on failure and Cancelled on a stop;
// the caller removes the output then (see PluginBase::discardOutputs).
inline void translateRaster(GDALDataset* source, const QString& path, CPLStringList argv, GdalProgress* bridge)
{
    GDALTranslateOptions* options = GDALTranslateOptionsNew(argv.List(), nullptr);
    if (!options)
        throw AlgoError(QStringLiteral("Invalid conversion options: %1").arg(QString::fromUtf8(CPLGetLastErrorMsg())));
    GDALTranslateOptionsSetProgress(options, GdalProgress::callback, bridge);
    int usageError = 0;
    CPLErrorReset();
    GDALDatasetH out = GDALTranslate(path.toUtf8().constData(), GDALDataset::ToHandle(source), options, &usageError);
    GDALTranslateOptionsFree(options);
    if (out)
        GDALClose(out);
    bridge->rethrowIfCancelled();
    if (!out || usageError || CPLGetLastErrorType() >= CE_Failure)
        throw AlgoError(QStringLiteral("Writing %1 failed: %2").arg(path, QString::fromUtf8(CPLGetLastErrorMsg())));
}

// gdalwarp source -> path (or, with the VRT format and an empty path, a virtual dataset returned open).
inline GDALDatasetH warpRaster(GDALDataset* source, const QString& path, CPLStringList argv, GdalProgress* bridge)
{
    GDALWarpAppOptions* options = GDALWarpAppOptionsNew(argv.List(), nullptr);
    if (!options)
        throw AlgoError(QStringLiteral("Invalid warp options: %1").arg(QString::fromUtf8(CPLGetLastErrorMsg())));
    if (bridge)
        GDALWarpAppOptionsSetProgress(options, GdalProgress::callback, bridge);
    int usageError = 0;
    CPLErrorReset();
    GDALDatasetH sources[1] = {GDALDataset::ToHandle(source)};
    GDALDatasetH out = GDALWarp(path.toUtf8().constData(), nullptr, 1, sources, options, &usageError);
    GDALWarpAppOptionsFree(options);
    if (bridge)
        bridge->rethrowIfCancelled();
    if (!out || usageError)
    {
        if (out)
            GDALClose(out);
        throw AlgoError(QStringLiteral("Warping %1 failed: %2").arg(path, QString::fromUtf8(CPLGetLastErrorMsg())));
    }
    return out;
}

} // namespace algokit
