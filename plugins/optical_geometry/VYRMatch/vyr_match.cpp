// Plug-in "VYRMatch": image-to-image registration. Tie points on the reference grid, RANSAC on a
// polynomial model, the input warped onto the reference grid through GDAL's GCP transformer.
#include "polynomial_fit.h"
#include "tie_point_search.h"

#include "generic_params.h"
#include "plugin_base.h"

#include <gdal_alg.h>
#include <gdal_utils.h>
#include <gdalwarper.h>
#include <ogrsf_frmts.h>

#include <QFileInfo>

#include <cmath>
#include <memory>

namespace
{

using algokit::AlgoError;
using algokit::DatasetPtr;

struct TransformerDeleter
{
    void operator()(void* t) const
    {
        if (t)
            GDALDestroyTransformer(t);
    }
};
using TransformerPtr = std::unique_ptr<void, TransformerDeleter>;

bool hasRpc(GDALDataset* ds)
{
    return ds->GetMetadata("RPC") != nullptr;
}

// Options of the transformer from the input to the reference: RPC with the DEM, or georeferencing.
CPLStringList inputTransformOptions(const QString& demPath, bool useRpc)
{
    CPLStringList options;
    if (useRpc)
    {
        options.SetNameValue("METHOD", "RPC");
        if (!demPath.isEmpty())
            options.SetNameValue("RPC_DEM", demPath.toUtf8().constData());
    }
    return options;
}

// Band 1 of the input resampled (bilinear) onto the reference grid, NaN where it has nothing.
cv::Mat inputOnReferenceGrid(GDALDataset* input, GDALDataset* reference, const CPLStringList& transformOptions)
{
    const int w = reference->GetRasterXSize(), h = reference->GetRasterYSize();
    GDALDriver* mem = GetGDALDriverManager()->GetDriverByName("MEM");
    DatasetPtr grid(mem->Create("", w, h, 1, GDT_Float32, nullptr));
    double t[6];
    reference->GetGeoTransform(t);
    grid->SetGeoTransform(t);
    grid->SetSpatialRef(reference->GetSpatialRef());
    grid->GetRasterBand(1)->SetNoDataValue(std::nan(""));
    grid->GetRasterBand(1)->Fill(std::nan(""));
    TransformerPtr transformer(GDALCreateGenImgProjTransformer2(input, grid.get(), const_cast<char**>(transformOptions.List())));
    if (!transformer)
        throw AlgoError(QStringLiteral("VYRMatch: the input cannot be put on the reference grid: %1")
                            .arg(QString::fromUtf8(CPLGetLastErrorMsg())));
    GDALWarpOptions* warp = GDALCreateWarpOptions();
    warp->hSrcDS = GDALDataset::ToHandle(input);
    warp->hDstDS = GDALDataset::ToHandle(grid.get());
    warp->eResampleAlg = GRA_Bilinear;
    warp->pfnTransformer = GDALGenImgProjTransform;
    warp->pTransformerArg = transformer.get();
    warp->eWorkingDataType = GDT_Float32;
    GDALWarpInitDefaultBandMapping(warp, 1);
    int hasNoData = 0;
    const double noData = input->GetRasterBand(1)->GetNoDataValue(&hasNoData);
    if (hasNoData)
        GDALWarpInitSrcNoDataReal(warp, noData);
    GDALWarpInitDstNoDataReal(warp, std::nan(""));
    warp->papszWarpOptions = CSLSetNameValue(warp->papszWarpOptions, "NUM_THREADS", "ALL_CPUS");
    GDALWarpOperation op;
    CPLErr err = op.Initialize(warp);
    if (err == CE_None)
        err = op.ChunkAndWarpImage(0, 0, w, h);
    warp->hSrcDS = warp->hDstDS = nullptr;
    warp->pTransformerArg = nullptr;
    GDALDestroyWarpOptions(warp);
    if (err != CE_None)
        throw AlgoError(QStringLiteral("VYRMatch: the input cannot be put on the reference grid: %1")
                            .arg(QString::fromUtf8(CPLGetLastErrorMsg())));
    cv::Mat out(h, w, CV_32F);
    if (grid->GetRasterBand(1)->RasterIO(GF_Read, 0, 0, w, h, out.data, w, h, GDT_Float32, 0, 0, nullptr) != CE_None)
        throw AlgoError(QStringLiteral("VYRMatch: cannot read the resampled input"));
    return out;
}

cv::Mat readBand(GDALDataset* ds)
{
    const int w = ds->GetRasterXSize(), h = ds->GetRasterYSize();
    cv::Mat out(h, w, CV_32F);
    if (ds->GetRasterBand(1)->RasterIO(GF_Read, 0, 0, w, h, out.data, w, h, GDT_Float32, 0, 0, nullptr) != CE_None)
        throw AlgoError(QStringLiteral("Cannot read %1").arg(QString::fromUtf8(ds->GetDescription())));
    int has = 0;
    const double noData = ds->GetRasterBand(1)->GetNoDataValue(&has);
    if (has)
        out.setTo(std::nan(""), out == float(noData));
    return out;
}

QString vectorDriver(const QString& path)
{
    const QString suffix = QFileInfo(path).suffix().toLower();
    if (suffix == "shp")
        return "ESRI Shapefile";
    if (suffix == "gpkg")
        return "GPKG";
    if (suffix == "geojson" || suffix == "json")
        return "GeoJSON";
    if (suffix == "kml")
        return "KML";
    return "CSV";
}

class VYRMatch : public algokit::PluginBase
{
public:
    VYRMatch() : PluginBase(QStringLiteral("VYRMatch")) {}

protected:
    bool run() override
    {
        const algokit::GenericParams args(params<GenericAlgoRecord>(), GetName());
        const QString refPath = args.text("ReferenceFile").required().existingFile();
        DatasetPtr reference = args.text("ReferenceFile").openRaster();
        const QString inPath = args.text("InputFile").required().existingFile();
        DatasetPtr input = args.text("InputFile").openRaster();
        const int method = args.text("MatchMethod").orDefault("NCC").oneOf({"SIFT", "ORB", "NCC", "PHASE"}).index();
        const QString demPath = args.text("DEMFile").value().trimmed();
        if (!demPath.isEmpty())
            args.text("DEMFile").existingFile().openRaster();
        const QString gcpPath = args.text("GCPFile").value().trimmed();
        if (!gcpPath.isEmpty())
            args.text("GCPFile").writableOutput();
        double radius = args.real("SearchRadius").orDefault(0).atLeast(0);
        if (radius == 0)
            radius = 10;
        const double defaults[] = {0.8, 0.8, 0.6, 0.1};
        double threshold = args.real("Threshold").orDefault(0).range(0, 1);
        if (threshold == 0)
            threshold = defaults[method];
        int pointCount = args.integer("PointCount").orDefault(0).range(0, 100000);
        if (pointCount == 0)
            pointCount = 400;
        const QString outPath = args.text("OutputFile").required().writableOutput();

        double refTransform[6];
        if (reference->GetGeoTransform(refTransform) != CE_None || !reference->GetSpatialRef())
            args.refuse("ReferenceFile", refPath, "has no georeferencing");
        double inTransform[6];
        const bool inGeo = input->GetGeoTransform(inTransform) == CE_None;
        const bool useRpc = !inGeo && hasRpc(input.get());
        if (!inGeo && !useRpc)
            args.refuse("InputFile", inPath, "has neither georeferencing nor an RPC model");
        algokit::checkWholeImageSize(reference.get(), refPath, 8);
        const CPLStringList transformOptions = inputTransformOptions(demPath, useRpc);

        const cv::Mat ref = readBand(reference.get());
        const cv::Mat img = inputOnReferenceGrid(input.get(), reference.get(), transformOptions);
        if (cv::countNonZero(img == img) < 64 * 64)
            args.refuse("InputFile", inPath, "does not overlap the ReferenceFile");
        progress(20);

        std::vector<optgeo::GridMatch> matches;
        if (method <= 1)
            matches = optgeo::matchByFeatures(ref, img, method == 0, pointCount, radius, threshold);
        else if (method == 2)
            matches = optgeo::matchByCorrelation(ref, img, pointCount, radius, threshold);
        else
            matches = optgeo::matchByPhase(ref, img, pointCount, radius, threshold);
        progress(60);

        // Grid positions back to the input's own pixels.
        TransformerPtr toInput(GDALCreateGenImgProjTransformer2(input.get(), reference.get(), const_cast<char**>(transformOptions.List())));
        if (!toInput)
            throw AlgoError(QStringLiteral("VYRMatch: no transformation between the images"));
        std::vector<optgeo::TiePoint> points;
        std::vector<double> scores;
        for (const optgeo::GridMatch& m : matches)
        {
            double u = m.x + m.dx, v = m.y + m.dy, z = 0;
            int ok = 0;
            GDALGenImgProjTransform(toInput.get(), TRUE, 1, &u, &v, &z, &ok);
            if (!ok)
                continue;
            points.push_back({m.x, m.y, u, v});
            scores.push_back(m.score);
        }

        // The model by the number and spread of points: affine, then second and third order.
        double minX = HUGE_VAL, maxX = -HUGE_VAL, minY = HUGE_VAL, maxY = -HUGE_VAL;
        for (const auto& p : points)
        {
            minX = std::min(minX, p.x);
            maxX = std::max(maxX, p.x);
            minY = std::min(minY, p.y);
            maxY = std::max(maxY, p.y);
        }
        const bool spread = points.size() > 1 && (maxX - minX) > 0.5 * ref.cols && (maxY - minY) > 0.5 * ref.rows;
        const int order = points.size() >= 100 && spread ? 3 : points.size() >= 30 && spread ? 2 : 1;
        optgeo::Polynomial model;
        std::vector<char> inliers;
        if (!optgeo::ransacPolynomial(points, order, 1.0, 1000, &model, &inliers))
            args.refuse("InputFile", inPath,
                        QStringLiteral("gives %1 consistent tie points with the ReferenceFile, fewer than the %2 that a "
                                       "polynomial of order %3 needs")
                            .arg(points.size()).arg(optgeo::termCount(order)).arg(order));
        double sum = 0;
        int kept = 0;
        std::vector<double> residualU(points.size()), residualV(points.size());
        for (size_t i = 0; i < points.size(); ++i)
        {
            double u = 0, v = 0;
            model.map(points[i].x, points[i].y, &u, &v);
            residualU[i] = points[i].u - u;
            residualV[i] = points[i].v - v;
            if (inliers[i])
            {
                sum += residualU[i] * residualU[i] + residualV[i] * residualV[i];
                ++kept;
            }
        }
        const double rmse = std::sqrt(sum / std::max(1, kept));
        // Many well-spread points that even a cubic leaves half a pixel off: a distortion no polynomial
        // follows, so the warp interpolates them with a thin-plate spline instead.
        const bool thinPlate = order == 3 && kept >= 200 && rmse > 0.5;
        progress(65);

        // The input warped onto the reference grid by GDAL's polynomial GCP transformer on the inliers.
        GDALDriver* vrtDriver = GetGDALDriverManager()->GetDriverByName("VRT");
        DatasetPtr source(vrtDriver->CreateCopy("", input.get(), FALSE, nullptr, nullptr, nullptr));
        if (!source)
            throw AlgoError(QStringLiteral("Cannot read %1").arg(inPath));
        std::vector<GDAL_GCP> gcps;
        std::vector<QByteArray> ids;
        for (size_t i = 0; i < points.size(); ++i)
            if (inliers[i])
                ids.push_back(QByteArray::number(qulonglong(i + 1)));
        size_t next = 0;
        for (size_t i = 0; i < points.size(); ++i)
        {
            if (!inliers[i])
                continue;
            GDAL_GCP g{};
            g.pszId = const_cast<char*>(ids[next++].constData());
            g.pszInfo = const_cast<char*>("");
            g.dfGCPPixel = points[i].u;
            g.dfGCPLine = points[i].v;
            g.dfGCPX = refTransform[0] + refTransform[1] * points[i].x + refTransform[2] * points[i].y;
            g.dfGCPY = refTransform[3] + refTransform[4] * points[i].x + refTransform[5] * points[i].y;
            gcps.push_back(g);
        }
        source->SetGeoTransform(std::array<double, 6>{0, 1, 0, 0, 0, 1}.data());
        source->SetGCPs(int(gcps.size()), gcps.data(), reference->GetSpatialRef());
        source->SetMetadata(nullptr, "RPC");

        const int w = reference->GetRasterXSize(), h = reference->GetRasterYSize(), bands = input->GetRasterCount();
        int hasNoData = 0;
        const double inputNoData = input->GetRasterBand(1)->GetNoDataValue(&hasNoData);
        const double noData = hasNoData ? inputNoData : 0.0;
        claimOutput(outPath);
        algokit::OutputRaster out(outPath, algokit::driverForPath(outPath), w, h, bands,
                                  input->GetRasterBand(1)->GetRasterDataType());
        out.get()->SetGeoTransform(refTransform);
        out.get()->SetSpatialRef(reference->GetSpatialRef());
        for (int b = 0; b < bands; ++b)
        {
            out.band(b)->SetDescription(input->GetRasterBand(b + 1)->GetDescription());
            if (char** md = input->GetRasterBand(b + 1)->GetMetadata())
                out.band(b)->SetMetadata(md);
            out.band(b)->SetNoDataValue(noData);
        }
        CPLStringList gcpOptions;
        if (thinPlate)
            gcpOptions.SetNameValue("METHOD", "GCP_TPS");
        else
        {
            gcpOptions.SetNameValue("METHOD", "GCP_POLYNOMIAL");
            gcpOptions.SetNameValue("MAX_GCP_ORDER", QByteArray::number(order).constData());
        }
        TransformerPtr transformer(GDALCreateGenImgProjTransformer2(source.get(), out.get(), gcpOptions.List()));
        if (!transformer)
            throw AlgoError(QStringLiteral("VYRMatch: the fitted model cannot be used: %1")
                                .arg(QString::fromUtf8(CPLGetLastErrorMsg())));
        GDALWarpOptions* warp = GDALCreateWarpOptions();
        warp->hSrcDS = GDALDataset::ToHandle(source.get());
        warp->hDstDS = GDALDataset::ToHandle(out.get());
        warp->eResampleAlg = GRA_Bilinear;
        warp->pfnTransformer = GDALGenImgProjTransform;
        warp->pTransformerArg = transformer.get();
        GDALWarpInitDefaultBandMapping(warp, bands);
        if (hasNoData)
            GDALWarpInitSrcNoDataReal(warp, inputNoData);
        GDALWarpInitDstNoDataReal(warp, noData);
        warp->papszWarpOptions = CSLSetNameValue(warp->papszWarpOptions, "INIT_DEST", "NO_DATA");
        warp->papszWarpOptions = CSLSetNameValue(warp->papszWarpOptions, "NUM_THREADS", "ALL_CPUS");
        GDALWarpOperation op;
        CPLErr err = op.Initialize(warp);
        if (err == CE_None)
            err = op.ChunkAndWarpMulti(0, 0, w, h);
        warp->hSrcDS = warp->hDstDS = nullptr;
        warp->pTransformerArg = nullptr;
        GDALDestroyWarpOptions(warp);
        if (err != CE_None)
            throw AlgoError(QStringLiteral("VYRMatch: the warp failed: %1").arg(QString::fromUtf8(CPLGetLastErrorMsg())));
        progress(95);

        algokit::GenericOutputs outputs;
        if (!gcpPath.isEmpty())
        {
            writeTiePoints(gcpPath, points, scores, inliers, residualU, residualV, refTransform, reference->GetSpatialRef());
            outputs.add("GCPFile", gcpPath);
        }
        out.commit();
        outputs.add("TiePoints", QString::number(kept));
        outputs.add("RMSE", QString::number(rmse, 'f', 4));
        outputs.add("Model", thinPlate ? QStringLiteral("thin-plate spline") : QStringLiteral("polynomial order %1").arg(order));
        setResult(outputs.result());
        progress(100);
        return true;
    }

private:
    void writeTiePoints(const QString& path, const std::vector<optgeo::TiePoint>& points, const std::vector<double>& scores,
                        const std::vector<char>& inliers, const std::vector<double>& ru, const std::vector<double>& rv,
                        const double* t, const OGRSpatialReference* srs)
    {
        algokit::deleteRasterFiles(path);
        GDALDriver* driver = GetGDALDriverManager()->GetDriverByName(vectorDriver(path).toUtf8().constData());
        if (!driver)
            throw AlgoError(QStringLiteral("VYRMatch: no vector driver for %1").arg(path));
        claimOutput(path);
        DatasetPtr ds(driver->Create(path.toUtf8().constData(), 0, 0, 0, GDT_Unknown, nullptr));
        if (!ds)
            throw AlgoError(QStringLiteral("Cannot create %1").arg(path));
        OGRLayer* layer = ds->CreateLayer("tie_points", const_cast<OGRSpatialReference*>(srs), wkbPoint, nullptr);
        if (!layer)
            throw AlgoError(QStringLiteral("Cannot create %1").arg(path));
        const char* names[] = {"ref_x", "ref_y", "ref_pixel", "ref_line", "in_pixel", "in_line", "res_pixel", "res_line", "score"};
        OGRFieldDefn id("id", OFTInteger);
        layer->CreateField(&id);
        for (const char* name : names)
        {
            OGRFieldDefn field(name, OFTReal);
            layer->CreateField(&field);
        }
        OGRFieldDefn inlier("inlier", OFTInteger);
        layer->CreateField(&inlier);
        for (size_t i = 0; i < points.size(); ++i)
        {
            OGRFeature feature(layer->GetLayerDefn());
            const double x = t[0] + t[1] * points[i].x + t[2] * points[i].y, y = t[3] + t[4] * points[i].x + t[5] * points[i].y;
            const double values[] = {x, y, points[i].x, points[i].y, points[i].u, points[i].v, ru[i], rv[i], scores[i]};
            feature.SetField("id", int(i + 1));
            for (int k = 0; k < 9; ++k)
                feature.SetField(names[k], values[k]);
            feature.SetField("inlier", inliers[i] ? 1 : 0);
            OGRPoint point(x, y);
            feature.SetGeometry(&point);
            if (layer->CreateFeature(&feature) != OGRERR_NONE)
                throw AlgoError(QStringLiteral("Cannot write %1").arg(path));
        }
    }
};

} // namespace

ALGO_PLUGIN_FACTORY(VYRMatch)
