// Plug-in "ImageMosaic": joins raster layers onto the union of their extents at the finest input resolution in
// the first layer's reference, later layers over earlier ones, no-data respected. Inputs on one reference go
// through a VRT mosaic and GDALTranslate, others through GDALWarp (both stream by blocks or chunks). A
// full-mosaic item limits each layer to its mosaic face, used as that layer's cutline.
#include "plugin_base.h"
#include "raster_io.h"
#include "records/clip_mosaic_records.h"

#include <gdal_alg.h>
#include <gdal_utils.h>
#include <ogr_spatialref.h>
#include <ogrsf_frmts.h>

#include <QDir>
#include <QFileInfo>
#include <algorithm>
#include <cmath>
#include <functional>
#include <memory>
#include <utility>

namespace
{

int CPL_STDCALL reportProgress(double complete, const char*, void* data)
{
    auto* report = static_cast<std::function<bool(double)>*>(data);
    return (*report)(complete) ? TRUE : FALSE;
}

struct Grid
{
    double minX = 1e300, minY = 1e300, maxX = -1e300, maxY = -1e300;
    double resX = 1e300, resY = 1e300;
};

// Removes a /vsimem face file set when the face has been used.
struct VsimemShapefile
{
    QString path;
    ~VsimemShapefile()
    {
        if (!path.isEmpty())
            if (GDALDriver* driver = GetGDALDriverManager()->GetDriverByName("ESRI Shapefile"))
                driver->Delete(path.toUtf8().constData());
    }
};

class ImageMosaic : public algokit::PluginBase
{
public:
    ImageMosaic() : PluginBase(QStringLiteral("ImageMosaic")) {}

protected:
    bool run() override
    {
        const ImageMosaicParam& job = params<ImageMosaicParam>();
        if (job.items.empty())
            return fail(QStringLiteral("The mosaic job holds no item."));
        for (size_t i = 0; i < job.items.size(); ++i)
        {
            m_base = 100.0 * double(i) / double(job.items.size());
            m_span = 100.0 / double(job.items.size());
            if (!mosaic(job.items[i]))
                return false;
        }
        progress(100.0);
        return true;
    }

    void discardOutputs() override
    {
        for (const QString& path : m_outputs)
            algokit::deleteRasterFiles(path);
        m_outputs.clear();
    }

private:
    bool mosaic(const ImageMosaicItem& item)
    {
        if (item.outputFile.isEmpty())
            return fail(QStringLiteral("The mosaic's output path is empty."));
        std::vector<algokit::DatasetPtr> sources;
        std::vector<int> layerOf;
        for (size_t i = 0; i < item.layers.size(); ++i)
        {
            if (!item.layers[i])
                continue;
            const QString path = item.layers[i]->GetSourcePath();
            if (QFileInfo(path).absoluteFilePath() == QFileInfo(item.outputFile).absoluteFilePath())
                return fail(QStringLiteral("The output file must differ from the input %1.").arg(path));
            sources.push_back(algokit::openRaster(path));
            layerOf.push_back(int(i));
        }
        if (sources.empty())
            return fail(QStringLiteral("There is no raster layer to mosaic."));
        const int bands = sources.front()->GetRasterCount();
        for (size_t i = 1; i < sources.size(); ++i)
            if (sources[i]->GetRasterCount() != bands)
                return fail(QStringLiteral("The inputs differ in band count: %1 has %2 bands, %3 has %4.")
                                .arg(sources.front()->GetDescription()).arg(bands)
                                .arg(sources[i]->GetDescription()).arg(sources[i]->GetRasterCount()));
        const OGRSpatialReference* reference = sources.front()->GetSpatialRef();
        if (!reference)
            return fail(QStringLiteral("The first input has no spatial reference."));
        char* wkt = nullptr;
        reference->exportToWkt(&wkt);
        const QByteArray targetWkt(wkt ? wkt : "");
        CPLFree(wkt);
        const Grid grid = unionGrid(sources, *reference, targetWkt);

        QDir().mkpath(QFileInfo(item.outputFile).absolutePath());
        m_outputs.append(item.outputFile);
        bool sameReference = true;
        for (const auto& source : sources)
        {
            double t[6] = {0, 1, 0, 0, 0, 1};
            source->GetGeoTransform(t);
            // A VRT mosaic takes north-up inputs only; rotated ones go through the warper.
            sameReference = sameReference && source->GetSpatialRef() && source->GetSpatialRef()->IsSame(reference) &&
                            t[2] == 0.0 && t[4] == 0.0;
        }
        if (item.quick && sameReference)
        {
            copyThroughVrt(item, sources, grid);
        }
        else if (item.quick)
        {
            std::vector<GDALDatasetH> handles;
            for (auto& source : sources)
                handles.push_back(GDALDataset::ToHandle(source.get()));
            GDALDatasetH created = warp(item, nullptr, handles, creationArgs(item, grid, targetWkt, sources.front().get(), false),
                                        QString(), 0.0, 1.0);
            closeOutput(created);
        }
        else
        {
            if (item.faces.size() != int(item.layers.size()))
                return fail(QStringLiteral("The mosaic item holds %1 faces for %2 layers.")
                                .arg(item.faces.size()).arg(item.layers.size()));
            std::vector<size_t> used;
            for (size_t i = 0; i < sources.size(); ++i)
                if (!item.faces[layerOf[i]].isEmpty())
                    used.push_back(i);
            if (used.empty())
                return fail(QStringLiteral("No input supplies any part of the mosaic."));
            GDALDatasetH output = nullptr;
            struct CloseOnThrow
            {
                GDALDatasetH* handle;
                ~CloseOnThrow()
                {
                    if (*handle)
                        GDALClose(*handle);
                }
            } guard{&output};
            for (size_t k = 0; k < used.size(); ++k)
            {
                const size_t i = used[k];
                CPLStringList args = output ? CPLStringList() : creationArgs(item, grid, targetWkt, sources.front().get(), true);
                if (item.maskFilter && !hasNoData(sources[i].get()))
                {
                    args.AddString("-srcnodata");
                    args.AddString("0");
                }
                VsimemShapefile face{writeFace(item.faces[layerOf[i]], *reference, int(k))};
                std::vector<GDALDatasetH> one{GDALDataset::ToHandle(sources[i].get())};
                GDALDatasetH result = warp(item, output, one, args, face.path, double(k) / used.size(),
                                           double(k + 1) / used.size());
                if (!output)
                    output = result;
            }
            closeOutput(std::exchange(output, nullptr));
        }
        m_outputs.removeAll(item.outputFile);
        return true;
    }

    // Inputs on one reference: a VRT mosaic (sources drawn in order, each skipping its own no-data) copied out by
    // GDALTranslate, which reads each output block once instead of warping it.
    void copyThroughVrt(const ImageMosaicItem& item, std::vector<algokit::DatasetPtr>& sources, const Grid& grid)
    {
        std::vector<GDALDatasetH> handles;
        for (auto& source : sources)
            handles.push_back(GDALDataset::ToHandle(source.get()));
        CPLStringList vrtArgs;
        vrtArgs.AddString("-te");
        for (double v : {grid.minX, grid.minY, grid.maxX, grid.maxY})
            vrtArgs.AddString(CPLSPrintf("%.17g", v));
        vrtArgs.AddString("-tr");
        vrtArgs.AddString(CPLSPrintf("%.17g", grid.resX));
        vrtArgs.AddString(CPLSPrintf("%.17g", grid.resY));
        GDALBuildVRTOptions* vrtOptions = GDALBuildVRTOptionsNew(vrtArgs.List(), nullptr);
        int usageError = 0;
        GDALDatasetH vrt = GDALBuildVRT("", int(handles.size()), handles.data(), nullptr, vrtOptions, &usageError);
        GDALBuildVRTOptionsFree(vrtOptions);
        if (!vrt || usageError)
        {
            if (vrt)
                GDALClose(vrt);
            throw algokit::AlgoError(QStringLiteral("Mosaicking failed: %1").arg(CPLGetLastErrorMsg()));
        }
        algokit::DatasetPtr mosaicVrt(GDALDataset::FromHandle(vrt));

        CPLStringList args;
        args.AddString("-of");
        args.AddString(item.format.isEmpty() ? "GTiff" : item.format.toUtf8().constData());
        if (item.format == QLatin1String("GTiff") || item.format.isEmpty())
            for (const char* arg : {"-co", "TILED=YES", "-co", "BIGTIFF=IF_SAFER"})
                args.AddString(arg);
        GDALTranslateOptions* options = GDALTranslateOptionsNew(args.List(), nullptr);
        bool cancelled = false;
        std::function<bool(double)> report = [&](double complete) {
            try
            {
                progress(m_base + m_span * complete);
                return true;
            }
            catch (const algokit::Cancelled&)
            {
                cancelled = true;
                return false;
            }
        };
        GDALTranslateOptionsSetProgress(options, reportProgress, &report);
        const QByteArray name = item.outputFile.toUtf8();
        GDALDatasetH written = GDALTranslate(name.constData(), vrt, options, &usageError);
        GDALTranslateOptionsFree(options);
        if (cancelled)
        {
            if (written)
                GDALClose(written);
            throw algokit::Cancelled();
        }
        if (!written || usageError)
        {
            const QString reason = QString::fromUtf8(CPLGetLastErrorMsg());
            if (written)
                GDALClose(written);
            throw algokit::AlgoError(QStringLiteral("Mosaicking failed: %1").arg(reason));
        }
        closeOutput(written);
    }

    static void closeOutput(GDALDatasetH output)
    {
        CPLErrorReset();
        GDALClose(output);
        if (CPLGetLastErrorType() >= CE_Failure)
            throw algokit::AlgoError(QStringLiteral("Writing the mosaic failed: %1").arg(CPLGetLastErrorMsg()));
    }

    static bool hasNoData(GDALDataset* dataset)
    {
        int has = 0;
        dataset->GetRasterBand(1)->GetNoDataValue(&has);
        return has != 0;
    }

    // Extent and finest resolution of all inputs in the target reference.
    static Grid unionGrid(const std::vector<algokit::DatasetPtr>& sources, const OGRSpatialReference& reference,
                          const QByteArray& targetWkt)
    {
        Grid grid;
        for (const auto& source : sources)
        {
            double t[6];
            int width = source->GetRasterXSize(), height = source->GetRasterYSize();
            const OGRSpatialReference* own = source->GetSpatialRef();
            if (own && !own->IsSame(&reference))
            {
                const char* options[] = {CPLSPrintf("DST_SRS=%s", targetWkt.constData()), nullptr};
                void* transformer = GDALCreateGenImgProjTransformer2(GDALDataset::ToHandle(source.get()), nullptr,
                                                                     const_cast<char**>(options));
                if (!transformer)
                    throw algokit::AlgoError(QStringLiteral("%1 cannot be brought into the first input's reference.")
                                                 .arg(source->GetDescription()));
                const CPLErr err = GDALSuggestedWarpOutput(GDALDataset::ToHandle(source.get()), GDALGenImgProjTransform,
                                                           transformer, t, &width, &height);
                GDALDestroyGenImgProjTransformer(transformer);
                if (err != CE_None)
                    throw algokit::AlgoError(QStringLiteral("%1 cannot be brought into the first input's reference.")
                                                 .arg(source->GetDescription()));
            }
            else if (source->GetGeoTransform(t) != CE_None)
            {
                throw algokit::AlgoError(QStringLiteral("%1 has no geotransform.").arg(source->GetDescription()));
            }
            for (double px : {0.0, double(width)})
                for (double py : {0.0, double(height)})
                {
                    const double x = t[0] + px * t[1] + py * t[2], y = t[3] + px * t[4] + py * t[5];
                    grid.minX = std::min(grid.minX, x), grid.maxX = std::max(grid.maxX, x);
                    grid.minY = std::min(grid.minY, y), grid.maxY = std::max(grid.maxY, y);
                }
            grid.resX = std::min(grid.resX, std::hypot(t[1], t[4]));
            grid.resY = std::min(grid.resY, std::hypot(t[2], t[5]));
        }
        return grid;
    }

    static CPLStringList creationArgs(const ImageMosaicItem& item, const Grid& grid, const QByteArray& targetWkt,
                                      GDALDataset* first, bool withFaces)
    {
        CPLStringList args;
        args.AddString("-of");
        args.AddString(item.format.isEmpty() ? "GTiff" : item.format.toUtf8().constData());
        args.AddString("-t_srs");
        args.AddString(targetWkt.constData());
        args.AddString("-te");
        for (double v : {grid.minX, grid.minY, grid.maxX, grid.maxY})
            args.AddString(CPLSPrintf("%.17g", v));
        args.AddString("-tr");
        args.AddString(CPLSPrintf("%.17g", grid.resX));
        args.AddString(CPLSPrintf("%.17g", grid.resY));
        int has = 0;
        const double noData = first->GetRasterBand(1)->GetNoDataValue(&has);
        if (has || (withFaces && item.maskFilter))
        {
            args.AddString("-dstnodata");
            args.AddString(has ? CPLSPrintf("%.17g", noData) : "0");
        }
        if (item.format == QLatin1String("GTiff") || item.format.isEmpty())
            for (const char* arg : {"-co", "TILED=YES", "-co", "BIGTIFF=IF_SAFER"})
                args.AddString(arg);
        return args;
    }

    // The face as a one-polygon shapefile in memory, in the target reference, for GDALWarp's cutline.
    static QString writeFace(const QString& faceWkt, const OGRSpatialReference& reference, int index)
    {
        OGRGeometry* geometry = nullptr;
        const QByteArray text = faceWkt.toUtf8();
        if (OGRGeometryFactory::createFromWkt(text.constData(), nullptr, &geometry) != OGRERR_NONE || !geometry)
            throw algokit::AlgoError(QStringLiteral("A mosaic face is not a valid WKT polygon."));
        std::unique_ptr<OGRGeometry> owned(geometry);
        const QString path = QStringLiteral("/vsimem/mosaic_face_%1_%2.shp").arg(quintptr(&faceWkt)).arg(index);
        GDALDriver* driver = GetGDALDriverManager()->GetDriverByName("ESRI Shapefile");
        algokit::DatasetPtr dataset(driver ? driver->Create(path.toUtf8().constData(), 0, 0, 0, GDT_Unknown, nullptr) : nullptr);
        if (!dataset)
            throw algokit::AlgoError(QStringLiteral("The mosaic face cannot be written."));
        OGRLayer* layer = dataset->CreateLayer("face", const_cast<OGRSpatialReference*>(&reference), wkbMultiPolygon, nullptr);
        OGRFeature feature(layer->GetLayerDefn());
        feature.SetGeometry(owned.get());
        if (!layer || layer->CreateFeature(&feature) != OGRERR_NONE)
            throw algokit::AlgoError(QStringLiteral("The mosaic face cannot be written."));
        return path;
    }

    // One GDALWarp run into a new output (dst null) or into the open output; progress mapped to [from, to] of
    // this item's share.
    GDALDatasetH warp(const ImageMosaicItem& item, GDALDatasetH dst, std::vector<GDALDatasetH>& sources,
                      CPLStringList args, const QString& cutline, double from, double to)
    {
        for (const char* arg : {"-r", "near", "-wm", "256", "-multi", "-wo", "NUM_THREADS=ALL_CPUS"})
            args.AddString(arg);
        if (!cutline.isEmpty())
        {
            args.AddString("-cutline");
            args.AddString(cutline.toUtf8().constData());
        }
        GDALWarpAppOptions* options = GDALWarpAppOptionsNew(args.List(), nullptr);
        bool cancelled = false;
        std::function<bool(double)> report = [&](double complete) {
            try
            {
                progress(m_base + m_span * (from + (to - from) * complete));
                return true;
            }
            catch (const algokit::Cancelled&)
            {
                cancelled = true;
                return false;
            }
        };
        GDALWarpAppOptionsSetProgress(options, reportProgress, &report);
        int usageError = 0;
        const QByteArray name = item.outputFile.toUtf8();
        GDALDatasetH result = GDALWarp(dst ? nullptr : name.constData(), dst, int(sources.size()), sources.data(),
                                       options, &usageError);
        GDALWarpAppOptionsFree(options);
        if (cancelled)
        {
            if (result && !dst)
                GDALClose(result);
            throw algokit::Cancelled();
        }
        if (!result || usageError)
        {
            const QString reason = QString::fromUtf8(CPLGetLastErrorMsg());
            if (result && !dst)
                GDALClose(result);
            throw algokit::AlgoError(QStringLiteral("Mosaicking failed: %1").arg(reason));
        }
        return result;
    }

    QStringList m_outputs;
    double m_base = 0.0;
    double m_span = 100.0;
};

} // namespace

ALGO_PLUGIN_FACTORY(ImageMosaic)
