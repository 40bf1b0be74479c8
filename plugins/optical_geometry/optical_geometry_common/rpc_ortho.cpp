// RPC orthorectification on GDAL's transformer and multithreaded warper.
#include "rpc_ortho.h"

#include "bias_correction.h"
#include "rpc_model.h"

#include <gdal_alg.h>
#include <gdalwarper.h>
#include <ogr_spatialref.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTextStream>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <iostream>
#include <memory>
#include <mutex>

namespace optgeo
{

namespace
{

using algokit::AlgoError;
using algokit::DatasetPtr;

constexpr qint64 kMaxTextBytes = 4 << 20;

QString text(double v)
{
    return QString::number(v, 'g', 17);
}

std::string readSmallText(const algokit::GenericParams& args, const QString& key, const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        args.refuse(key, path, "cannot be read");
    if (file.size() > kMaxTextBytes)
        args.refuse(key, path, "is too large for a text file of this kind");
    return file.readAll().toStdString();
}

RpcModel modelFromGdal(const GDALRPCInfoV2& info)
{
    RpcModel m;
    m.lineOff = info.dfLINE_OFF;
    m.sampOff = info.dfSAMP_OFF;
    m.latOff = info.dfLAT_OFF;
    m.longOff = info.dfLONG_OFF;
    m.heightOff = info.dfHEIGHT_OFF;
    m.lineScale = info.dfLINE_SCALE;
    m.sampScale = info.dfSAMP_SCALE;
    m.latScale = info.dfLAT_SCALE;
    m.longScale = info.dfLONG_SCALE;
    m.heightScale = info.dfHEIGHT_SCALE;
    m.errBias = info.dfERR_BIAS;
    m.errRand = info.dfERR_RAND;
    std::copy(info.adfLINE_NUM_COEFF, info.adfLINE_NUM_COEFF + 20, m.lineNum.begin());
    std::copy(info.adfLINE_DEN_COEFF, info.adfLINE_DEN_COEFF + 20, m.lineDen.begin());
    std::copy(info.adfSAMP_NUM_COEFF, info.adfSAMP_NUM_COEFF + 20, m.sampNum.begin());
    std::copy(info.adfSAMP_DEN_COEFF, info.adfSAMP_DEN_COEFF + 20, m.sampDen.begin());
    return m;
}

QString joined(const std::array<double, 20>& values)
{
    QStringList items;
    for (double v : values)
        items << text(v);
    return items.join(' ');
}

// The model as GDAL's RPC metadata domain.
CPLStringList rpcMetadata(const RpcModel& m)
{
    CPLStringList md;
    const std::pair<const char*, double> scalars[] = {
        {"LINE_OFF", m.lineOff},       {"SAMP_OFF", m.sampOff},     {"LAT_OFF", m.latOff},
        {"LONG_OFF", m.longOff},       {"HEIGHT_OFF", m.heightOff}, {"LINE_SCALE", m.lineScale},
        {"SAMP_SCALE", m.sampScale},   {"LAT_SCALE", m.latScale},   {"LONG_SCALE", m.longScale},
        {"HEIGHT_SCALE", m.heightScale}, {"ERR_BIAS", m.errBias},   {"ERR_RAND", m.errRand},
    };
    for (const auto& s : scalars)
        md.SetNameValue(s.first, text(s.second).toUtf8().constData());
    md.SetNameValue("LINE_NUM_COEFF", joined(m.lineNum).toUtf8().constData());
    md.SetNameValue("LINE_DEN_COEFF", joined(m.lineDen).toUtf8().constData());
    md.SetNameValue("SAMP_NUM_COEFF", joined(m.sampNum).toUtf8().constData());
    md.SetNameValue("SAMP_DEN_COEFF", joined(m.sampDen).toUtf8().constData());
    return md;
}

struct TransformerDeleter
{
    void operator()(void* t) const
    {
        if (t)
            GDALDestroyTransformer(t);
    }
};
using TransformerPtr = std::unique_ptr<void, TransformerDeleter>;

// Heights of ground points as the warper will take them: the DEM (plus the offset) where it has data,
// the default height elsewhere.
class HeightSource
{
public:
    HeightSource(GDALDataset* dem, double offset, double fallback) : m_dem(dem), m_offset(offset), m_fallback(fallback)
    {
        if (!dem)
            return;
        OGRSpatialReference wgs84;
        wgs84.SetWellKnownGeogCS("WGS84");
        wgs84.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
        m_toDem.reset(OGRCreateCoordinateTransformation(&wgs84, dem->GetSpatialRef()));
        dem->GetGeoTransform(m_transform);
        if (!GDALInvGeoTransform(m_transform, m_inverse))
            m_toDem.reset();
    }

    double at(double lon, double lat) const
    {
        if (!m_dem || !m_toDem)
            return m_fallback;
        double x = lon, y = lat;
        if (!m_toDem->Transform(1, &x, &y))
            return m_fallback;
        const double px = m_inverse[0] + m_inverse[1] * x + m_inverse[2] * y;
        const double py = m_inverse[3] + m_inverse[4] * x + m_inverse[5] * y;
        const int i = int(std::floor(px)), j = int(std::floor(py));
        if (i < 0 || j < 0 || i >= m_dem->GetRasterXSize() || j >= m_dem->GetRasterYSize())
            return m_fallback;
        double v = 0;
        if (m_dem->GetRasterBand(1)->RasterIO(GF_Read, i, j, 1, 1, &v, 1, 1, GDT_Float64, 0, 0, nullptr) != CE_None)
            return m_fallback;
        int has = 0;
        const double noData = m_dem->GetRasterBand(1)->GetNoDataValue(&has);
        if (has && v == noData)
            return m_fallback;
        return v + m_offset;
    }

    // Whether the DEM covers the box (degrees).
    bool covers(double lonMin, double lonMax, double latMin, double latMax) const
    {
        if (!m_dem || !m_toDem)
            return false;
        for (int j = 0; j <= 4; ++j)
            for (int i = 0; i <= 4; ++i)
            {
                double x = lonMin + (lonMax - lonMin) * i / 4, y = latMin + (latMax - latMin) * j / 4;
                if (!m_toDem->Transform(1, &x, &y))
                    return false;
                const double px = m_inverse[0] + m_inverse[1] * x + m_inverse[2] * y;
                const double py = m_inverse[3] + m_inverse[4] * x + m_inverse[5] * y;
                if (px < 0 || py < 0 || px > m_dem->GetRasterXSize() || py > m_dem->GetRasterYSize())
                    return false;
            }
        return true;
    }

private:
    GDALDataset* m_dem;
    double m_offset, m_fallback;
    std::unique_ptr<OGRCoordinateTransformation> m_toDem;
    double m_transform[6] = {0, 1, 0, 0, 0, 1}, m_inverse[6] = {0, 1, 0, 0, 0, 1};
};

// Longitude/latitude box of the image at the given heights, from the model's image-to-ground inverse.
void footprint(const RpcModel& model, int width, int height, double h0, double h1, double box[4])
{
    GDALRPCInfoV2 info{};
    const CPLStringList md = rpcMetadata(model);
    GDALExtractRPCInfoV2(md.List(), &info);
    box[0] = box[2] = HUGE_VAL;
    box[1] = box[3] = -HUGE_VAL;
    for (double h : {h0, h1})
    {
        CPLStringList options;
        options.SetNameValue("RPC_HEIGHT", text(h).toUtf8().constData());
        TransformerPtr t(GDALCreateRPCTransformerV2(&info, FALSE, 0.1, options.List()));
        if (!t)
            continue;
        for (int j = 0; j <= 8; ++j)
            for (int i = 0; i <= 8; ++i)
            {
                double x = width * i / 8.0, y = height * j / 8.0, z = 0;
                int ok = 0;
                GDALRPCTransform(t.get(), FALSE, 1, &x, &y, &z, &ok);
                if (!ok || !std::isfinite(x) || !std::isfinite(y))
                    continue;
                box[0] = std::min(box[0], x);
                box[1] = std::max(box[1], x);
                box[2] = std::min(box[2], y);
                box[3] = std::max(box[3], y);
            }
    }
}

GDALResampleAlg resampling(int index)
{
    const GDALResampleAlg algs[] = {GRA_NearestNeighbour, GRA_Bilinear, GRA_Cubic};
    return algs[index];
}

struct ProgressState
{
    const OrthoHooks* hooks = nullptr;
    double from = 0, to = 100;
    std::mutex lock;
    bool cancelled = false;
};

int CPL_STDCALL warpProgress(double done, const char*, void* data)
{
    auto* state = static_cast<ProgressState*>(data);
    std::lock_guard<std::mutex> guard(state->lock);
    if (state->cancelled)
        return FALSE;
    try
    {
        state->hooks->progress(state->from + (state->to - state->from) * done);
    }
    catch (...)
    {
        state->cancelled = true;
        return FALSE;
    }
    return TRUE;
}

} // namespace

QString residualFilePath(const QString& outputPath)
{
    const QFileInfo info(outputPath);
    return info.dir().filePath(info.completeBaseName() + QStringLiteral("_gcp_residuals.csv"));
}

algokit::GenericOutputs runOrtho(const algokit::GenericParams& args, const OrthoOptions& options, const OrthoHooks& hooks)
{
    const QString inputPath = args.text("InputFile").required().existingFile();
    DatasetPtr input = args.text("InputFile").openRaster();
    const QString rpcPath = args.text("RPCFile").value().trimmed();
    const QString demPath = args.text("DEMFile").value().trimmed();
    const QString gcpPath = args.text("GCPFile").value().trimmed();
    const float resolution = float(args.real("Resolution").orDefault(0).atLeast(0));
    const int method = args.text("ResampleMethod").orDefault("bilinear").oneOf({"nearest", "bilinear", "cubic"}).index();
    const int blockSize = int(args.integer("BlockSize").orDefault(0).range(0, 4096));
    const double defaultHeight = args.real("DefaultHeight").orDefault(0);
    const double heightOffset = options.heightOffsetKey.isEmpty() ? 0.0 : double(args.real(options.heightOffsetKey).orDefault(0));

    // The model: the RPC file, else the image's own (tags, side-car files GDAL reads).
    RpcModel model;
    if (!rpcPath.isEmpty())
    {
        args.text("RPCFile").existingFile();
        std::string reason;
        if (!parseRpcText(readSmallText(args, "RPCFile", rpcPath), &model, &reason))
            args.refuse("RPCFile", rpcPath, QStringLiteral("is not an RPC file (%1)").arg(QString::fromStdString(reason)));
    }
    else
    {
        GDALRPCInfoV2 info{};
        char** md = input->GetMetadata("RPC");
        if (!md || !GDALExtractRPCInfoV2(md, &info))
            args.refuse("InputFile", inputPath, "has no RPC model, and no RPCFile is given");
        model = modelFromGdal(info);
    }

    DatasetPtr dem;
    if (!demPath.isEmpty())
    {
        dem = args.text("DEMFile").existingFile().openRaster();
        if (!dem->GetSpatialRef())
            args.refuse("DEMFile", demPath, "has no reference system");
    }
    std::vector<ControlPoint> points;
    if (!gcpPath.isEmpty())
    {
        args.text("GCPFile").existingFile();
        std::string reason;
        if (!parseControlPoints(readSmallText(args, "GCPFile", gcpPath), &points, &reason))
            args.refuse("GCPFile", gcpPath, QStringLiteral("cannot be read: %1").arg(QString::fromStdString(reason)));
        if (points.empty())
            args.refuse("GCPFile", gcpPath, "holds no control point");
    }
    const QString outputPath = args.text("OutputFile").required().writableOutput();
    const int width = input->GetRasterXSize(), height = input->GetRasterYSize(), bands = input->GetRasterCount();
    const GDALDataType type = options.outputType == GDT_Unknown ? input->GetRasterBand(1)->GetRasterDataType() : options.outputType;

    const HeightSource heights(dem.get(), heightOffset, defaultHeight);
    double box[4];
    footprint(model, width, height, defaultHeight, defaultHeight, box);
    if (!(box[1] > box[0]) || !(box[3] > box[2]))
        args.refuse("RPCFile", rpcPath.isEmpty() ? inputPath : rpcPath, "does not map the image onto the ground");
    if (dem && !heights.covers(box[0], box[1], box[2], box[3]))
        std::cout << "[INFO] " << args.algoName().toLocal8Bit().constData() << ": the DEMFile does not cover the whole scene; "
                  << "DefaultHeight (" << defaultHeight << ") is used where it has no height" << std::endl;

    // Bias correction from control points: residuals before and after, the model refitted.
    algokit::GenericOutputs extra;
    if (!points.empty())
    {
        std::vector<ImagePoint> predicted, measured;
        for (const ControlPoint& p : points)
        {
            double s = 0, l = 0;
            rpcGroundToImage(model, p.lon, p.lat, p.hasHeight ? p.height : heights.at(p.lon, p.lat), &s, &l);
            predicted.push_back({s + 0.5, l + 0.5});
            measured.push_back({p.pixel, p.line});
        }
        const ImageBias bias = fitImageBias(predicted, measured);
        const double margin = 0.1;
        const double dLon = (box[1] - box[0]) * margin, dLat = (box[3] - box[2]) * margin;
        double worstFit = 0;
        const RpcModel corrected = foldBiasIntoModel(model, bias, box[0] - dLon, box[1] + dLon, box[2] - dLat, box[3] + dLat,
                                                     model.heightOff - model.heightScale,
                                                     model.heightOff + model.heightScale, &worstFit);
        const QString residualPath = residualFilePath(outputPath);
        hooks.claim(residualPath);
        QFile file(residualPath);
        if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
            throw AlgoError(QStringLiteral("Cannot write %1").arg(residualPath));
        QTextStream out(&file);
        out << "id,pixel,line,longitude,latitude,height,residual_pixel_before,residual_line_before,"
               "residual_pixel,residual_line\n";
        double sum = 0;
        for (size_t i = 0; i < points.size(); ++i)
        {
            const ControlPoint& p = points[i];
            double cp = 0, cl = 0;
            bias.apply(predicted[i].pixel, predicted[i].line, &cp, &cl);
            const double rp = p.pixel - cp, rl = p.line - cl;
            sum += rp * rp + rl * rl;
            out << i + 1 << ',' << text(p.pixel) << ',' << text(p.line) << ',' << text(p.lon) << ',' << text(p.lat) << ','
                << text(p.hasHeight ? p.height : heights.at(p.lon, p.lat)) << ',' << text(p.pixel - predicted[i].pixel)
                << ',' << text(p.line - predicted[i].line) << ',' << text(rp) << ',' << text(rl) << '\n';
        }
        out.flush();
        file.close();
        const double rmse = std::sqrt(sum / points.size());
        extra.add("GCPResidualFile", residualPath);
        extra.add("GCPRMSE", QString::number(rmse, 'f', 4));
        extra.add("GCPModel", bias.affine ? QStringLiteral("affine") : QStringLiteral("shift"));
        if (worstFit > 0.01)
            std::cout << "[INFO] " << args.algoName().toLocal8Bit().constData()
                      << ": the corrected RPC reproduces the correction to " << worstFit << " pixel" << std::endl;
        model = corrected;
    }
    hooks.progress(5);

    // The image seen through a virtual copy that carries the model, so GDAL's RPC transformer reads it.
    GDALDriver* vrtDriver = GetGDALDriverManager()->GetDriverByName("VRT");
    DatasetPtr source(vrtDriver->CreateCopy("", input.get(), FALSE, nullptr, nullptr, nullptr));
    if (!source)
        throw AlgoError(QStringLiteral("Cannot read %1: %2").arg(inputPath, QString::fromUtf8(CPLGetLastErrorMsg())));
    source->SetMetadata(rpcMetadata(model).List(), "RPC");

    CPLStringList transformOptions;
    transformOptions.SetNameValue("METHOD", "RPC");
    if (dem)
    {
        transformOptions.SetNameValue("RPC_DEM", demPath.toUtf8().constData());
        transformOptions.SetNameValue("RPC_HEIGHT", text(heightOffset).toUtf8().constData());
        transformOptions.SetNameValue("RPC_DEM_MISSING_VALUE", text(defaultHeight - heightOffset).toUtf8().constData());
        transformOptions.SetNameValue("RPC_DEMINTERPOLATION", "bilinear");
    }
    else
        transformOptions.SetNameValue("RPC_HEIGHT", text(defaultHeight).toUtf8().constData());

    // UTM zone (WGS 84) of the scene centre.
    const double centreLon = (box[0] + box[1]) / 2, centreLat = (box[2] + box[3]) / 2;
    const int zone = std::max(1, std::min(60, int(std::floor((centreLon + 180.0) / 6.0)) + 1));
    OGRSpatialReference utm;
    utm.importFromEPSG((centreLat >= 0 ? 32600 : 32700) + zone);
    char* wkt = nullptr;
    utm.exportToWkt(&wkt);
    transformOptions.SetNameValue("DST_SRS", wkt);
    CPLFree(wkt);

    TransformerPtr transformer(GDALCreateGenImgProjTransformer2(source.get(), nullptr, transformOptions.List()));
    if (!transformer)
        throw AlgoError(QStringLiteral("%1: the RPC transformer cannot be built: %2")
                            .arg(args.algoName(), QString::fromUtf8(CPLGetLastErrorMsg())));
    double transform[6];
    int outW = 0, outH = 0;
    double extent[4];
    if (GDALSuggestedWarpOutput2(source.get(), GDALGenImgProjTransform, transformer.get(), transform, &outW, &outH, extent,
                                 0) != CE_None)
        throw AlgoError(QStringLiteral("%1: the output grid cannot be worked out: %2")
                            .arg(args.algoName(), QString::fromUtf8(CPLGetLastErrorMsg())));
    if (resolution > 0)
    {
        const double w = (extent[2] - extent[0]) / resolution, h = (extent[3] - extent[1]) / resolution;
        if (w * h > 4e9 || w > 1e6 || h > 1e6)
            args.refuse("Resolution", text(resolution), "makes an output grid too large");
        outW = std::max(1, int(std::ceil(w - 1e-6)));
        outH = std::max(1, int(std::ceil(h - 1e-6)));
        const double t[6] = {extent[0], resolution, 0, extent[3], 0, -resolution};
        std::copy(t, t + 6, transform);
    }
    GDALSetGenImgProjTransformerDstGeoTransform(transformer.get(), transform);

    // Output: the input's bands, names, wavelengths and no-data; nodata outside the footprint.
    int hasNoData = 0;
    const double inputNoData = input->GetRasterBand(1)->GetNoDataValue(&hasNoData);
    const double noData = hasNoData ? inputNoData : 0.0;
    const QString driver = algokit::driverForPath(outputPath);
    QStringList creation;
    if (driver == "GTiff")
    {
        const int tile = blockSize > 0 ? std::max(16, (blockSize + 15) / 16 * 16) : 256;
        creation << "TILED=YES" << QStringLiteral("BLOCKXSIZE=%1").arg(tile) << QStringLiteral("BLOCKYSIZE=%1").arg(tile)
                 << "BIGTIFF=IF_SAFER";
        if (bands > 1)
            creation << "INTERLEAVE=BAND";
    }
    hooks.claim(outputPath);
    algokit::OutputRaster out(outputPath, driver, outW, outH, bands, type, creation);
    out.get()->SetGeoTransform(transform);
    out.get()->SetSpatialRef(&utm);
    for (const char* domain : {"", "ENVI"})
        if (char** md = input->GetMetadata(domain))
            out.get()->SetMetadata(md, domain);
    for (int b = 0; b < bands; ++b)
    {
        GDALRasterBand* src = input->GetRasterBand(b + 1);
        GDALRasterBand* dst = out.band(b);
        dst->SetDescription(src->GetDescription());
        if (char** md = src->GetMetadata())
            dst->SetMetadata(md);
        dst->SetNoDataValue(noData);
        if (src->GetColorInterpretation() != GCI_Undefined)
            dst->SetColorInterpretation(src->GetColorInterpretation());
    }

    // The warp: the mapping approximated to an eighth of a pixel along each row, all bands at once.
    void* approx = GDALCreateApproxTransformer(GDALGenImgProjTransform, transformer.get(), 0.125);
    TransformerPtr approxHolder(approx);
    GDALWarpOptions* warp = GDALCreateWarpOptions();
    warp->hSrcDS = GDALDataset::ToHandle(source.get());
    warp->hDstDS = GDALDataset::ToHandle(out.get());
    warp->eResampleAlg = resampling(method);
    warp->pfnTransformer = GDALApproxTransform;
    warp->pTransformerArg = approx;
    warp->dfWarpMemoryLimit = 128.0 * 1024 * 1024;
    warp->eWorkingDataType = GDT_Unknown;
    GDALWarpInitDefaultBandMapping(warp, bands);
    if (hasNoData)
        GDALWarpInitSrcNoDataReal(warp, inputNoData);
    GDALWarpInitDstNoDataReal(warp, noData);
    warp->papszWarpOptions = CSLSetNameValue(warp->papszWarpOptions, "INIT_DEST", "NO_DATA");
    warp->papszWarpOptions = CSLSetNameValue(warp->papszWarpOptions, "NUM_THREADS", "ALL_CPUS");
    ProgressState state;
    state.hooks = &hooks;
    state.from = 5;
    state.to = 99;
    warp->pfnProgress = warpProgress;
    warp->pProgressArg = &state;

    GDALWarpOperation operation;
    CPLErr err = operation.Initialize(warp);
    if (err == CE_None)
        err = operation.ChunkAndWarpMulti(0, 0, outW, outH);
    warp->hSrcDS = nullptr;
    warp->hDstDS = nullptr;
    warp->pTransformerArg = nullptr;
    GDALDestroyWarpOptions(warp);
    if (state.cancelled)
        throw algokit::Cancelled();
    if (err != CE_None)
        throw AlgoError(QStringLiteral("%1: the warp failed: %2").arg(args.algoName(), QString::fromUtf8(CPLGetLastErrorMsg())));
    out.commit();
    return extra;
}

} // namespace optgeo
