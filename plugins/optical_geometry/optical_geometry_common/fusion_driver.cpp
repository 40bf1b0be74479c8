// The pan-sharpening run: checks, alignment through georeferencing, model fitting, reduced-scale
// quality report and block-wise fusion on the pan grid.
#include "fusion_driver.h"

#include "fusion_quality.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>
#include <cmath>
#include <limits>

namespace optgeo
{

namespace
{

using algokit::AlgoError;
using algokit::DatasetPtr;

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
// Side, in multispectral pixels, of the central window that the model is fitted on and the quality
// figures are measured on; and the largest pan block read for it.
constexpr int kWindowSide = 512;
constexpr int kPanWindowSide = 1024;
constexpr int kBlockRows = 256;

const char* methodName(FusionMethod method)
{
    switch (method)
    {
    case FusionMethod::Brovey: return "Brovey";
    case FusionMethod::GIHS: return "GIHS";
    case FusionMethod::GramSchmidt: return "Gram-Schmidt";
    case FusionMethod::HPF: return "HPF";
    case FusionMethod::MTFGLP: return "MTF-GLP";
    case FusionMethod::PCA: return "PCA";
    case FusionMethod::CNS: return "CNS";
    case FusionMethod::SFIM: return "SFIM";
    }
    return "";
}

bool needsSeveralBands(FusionMethod method)
{
    return method == FusionMethod::Brovey || method == FusionMethod::GIHS || method == FusionMethod::GramSchmidt ||
           method == FusionMethod::PCA;
}

double noDataOf(GDALRasterBand* band)
{
    int has = 0;
    const double value = band->GetNoDataValue(&has);
    return has ? value : std::numeric_limits<double>::quiet_NaN();
}

// A window of a band as floats, its no-data value turned into NaN.
std::vector<float> readWindow(GDALRasterBand* band, int x0, int y0, int cols, int rows)
{
    std::vector<float> data(size_t(cols) * rows);
    if (cols <= 0 || rows <= 0)
        return data;
    if (band->RasterIO(GF_Read, x0, y0, cols, rows, data.data(), cols, rows, GDT_Float32, 0, 0, nullptr) != CE_None)
        throw AlgoError(QStringLiteral("Cannot read %1: %2")
                            .arg(QString::fromUtf8(band->GetDataset()->GetDescription()),
                                 QString::fromUtf8(CPLGetLastErrorMsg())));
    const double noData = noDataOf(band);
    if (std::isfinite(noData))
        for (float& v : data)
            if (v == float(noData))
                v = kNaN;
    return data;
}

Bands constBands(const std::vector<std::vector<float>>& bands)
{
    Bands out;
    for (const auto& b : bands)
        out.push_back(b.data());
    return out;
}

// The two inputs, aligned: pan pixel (x, y) has its centre at multispectral coordinates
// (xmap.centre(x), ymap.centre(y)).
struct AlignedInputs
{
    DatasetPtr pan;
    DatasetPtr ms;
    std::vector<int> bands;
    AxisMap xmap, ymap;
    double ratio = 1.0;
    bool georeferenced = false;
    double panTransform[6] = {0, 1, 0, 0, 0, 1};
};

AlignedInputs openInputs(const algokit::GenericParams& args, const FusionRequest& request)
{
    AlignedInputs in;
    const QString panPath = args.text("PanFile").required().existingFile();
    const QString msPath = args.text("MultiFile").required().existingFile();
    in.pan = args.text("PanFile").openRaster();
    in.ms = args.text("MultiFile").openRaster();
    if (in.pan->GetRasterCount() < 1)
        args.refuse("PanFile", panPath, "has no band");
    const int msBands = in.ms->GetRasterCount();
    if (msBands < 1)
        args.refuse("MultiFile", msPath, "has no band");
    for (GDALDataset* ds : {in.pan.get(), in.ms.get()})
        for (int b = 1; b <= ds->GetRasterCount(); ++b)
            if (GDALDataTypeIsComplex(ds->GetRasterBand(b)->GetRasterDataType()))
                args.refuse(ds == in.pan.get() ? "PanFile" : "MultiFile", ds == in.pan.get() ? panPath : msPath,
                            "holds complex pixels");

    in.bands = request.bands;
    if (in.bands.empty())
        for (int b = 1; b <= msBands; ++b)
            in.bands.push_back(b);
    for (int b : in.bands)
        if (b < 1 || b > msBands)
            args.refuse("Bands", args.text("Bands").value(),
                        QStringLiteral("names a band that the MultiFile (%1 bands) does not have").arg(msBands));
    for (int b : request.cnsGroup)
        if (b < 1 || b > msBands)
            args.refuse("Bands", args.text("Bands").value(),
                        QStringLiteral("names a band that the MultiFile (%1 bands) does not have").arg(msBands));
    if (needsSeveralBands(request.method) && in.bands.size() < 2)
        args.refuse("MultiFile", msPath,
                    QStringLiteral("has %1 band to fuse, and the method needs at least 2").arg(in.bands.size()));

    double msTransform[6] = {0, 1, 0, 0, 0, 1};
    const bool panGeo = in.pan->GetGeoTransform(in.panTransform) == CE_None;
    const bool msGeo = in.ms->GetGeoTransform(msTransform) == CE_None;
    if (panGeo != msGeo)
        args.refuse(panGeo ? "MultiFile" : "PanFile", panGeo ? msPath : panPath,
                    "has no georeferencing while the other image has");
    in.georeferenced = panGeo;
    const int panW = in.pan->GetRasterXSize(), panH = in.pan->GetRasterYSize();
    const int msW = in.ms->GetRasterXSize(), msH = in.ms->GetRasterYSize();
    if (!panGeo)
    {
        // Without georeferencing both images are taken to cover the same extent.
        const double pan[6] = {0, 1, 0, 0, 0, 1};
        const double ms[6] = {0, double(panW) / msW, 0, 0, 0, double(panH) / msH};
        std::copy(pan, pan + 6, in.panTransform);
        std::copy(ms, ms + 6, msTransform);
    }
    if (in.panTransform[2] != 0.0 || in.panTransform[4] != 0.0)
        args.refuse("PanFile", panPath, "has a rotated grid");
    if (msTransform[2] != 0.0 || msTransform[4] != 0.0)
        args.refuse("MultiFile", msPath, "has a rotated grid");
    const OGRSpatialReference* panSrs = in.pan->GetSpatialRef();
    const OGRSpatialReference* msSrs = in.ms->GetSpatialRef();
    if (panSrs && msSrs && !panSrs->IsSame(msSrs))
        args.refuse("MultiFile", msPath, "is not in the reference system of the PanFile");

    in.xmap = {(in.panTransform[0] - msTransform[0]) / msTransform[1], in.panTransform[1] / msTransform[1]};
    in.ymap = {(in.panTransform[3] - msTransform[3]) / msTransform[5], in.panTransform[5] / msTransform[5]};
    if (!(in.xmap.scale > 0.0) || !(in.ymap.scale > 0.0))
        args.refuse("MultiFile", msPath, "is not oriented like the PanFile");
    in.ratio = 1.0 / std::sqrt(in.xmap.scale * in.ymap.scale);
    if (in.ratio < 1.0 - 1e-9)
        args.refuse("MultiFile", msPath, "has smaller pixels than the PanFile");
    const double x0 = std::max(0.0, in.xmap.offset), x1 = std::min(double(msW), in.xmap.offset + in.xmap.scale * panW);
    const double y0 = std::max(0.0, in.ymap.offset), y1 = std::min(double(msH), in.ymap.offset + in.ymap.scale * panH);
    if (!(x1 > x0) || !(y1 > y0))
        args.refuse("MultiFile", msPath, "does not overlap the PanFile");
    return in;
}

// Group of CNS bands (flags over in.bands): the Bands text, else band wavelengths inside the pan's
// wavelength +- fwhm / 2, else every band.
std::vector<char> cnsGroupOf(const AlignedInputs& in, const FusionRequest& request)
{
    std::vector<char> group(in.bands.size(), 0);
    if (!request.cnsGroup.empty())
    {
        for (size_t i = 0; i < in.bands.size(); ++i)
            group[i] = std::find(request.cnsGroup.begin(), request.cnsGroup.end(), in.bands[i]) != request.cnsGroup.end();
        return group;
    }
    GDALRasterBand* pan = in.pan->GetRasterBand(1);
    const char* wl = pan->GetMetadataItem("wavelength");
    const char* fwhm = pan->GetMetadataItem("fwhm");
    bool any = false;
    if (wl && fwhm)
    {
        const double lo = CPLAtof(wl) - CPLAtof(fwhm) / 2, hi = CPLAtof(wl) + CPLAtof(fwhm) / 2;
        for (size_t i = 0; i < in.bands.size(); ++i)
            if (const char* w = in.ms->GetRasterBand(in.bands[i])->GetMetadataItem("wavelength"))
                any |= group[i] = CPLAtof(w) >= lo && CPLAtof(w) <= hi;
    }
    if (!any)
        std::fill(group.begin(), group.end(), 1);
    return group;
}

// The central window of the multispectral grid lying wholly inside the pan, the bands on it and the
// pan averaged over each of its pixels.
struct CoarseSample
{
    int x0 = 0, y0 = 0, cols = 0, rows = 0;
    std::vector<std::vector<float>> ms;
    std::vector<float> panLow;
};

CoarseSample coarseSample(const algokit::GenericParams& args, const AlignedInputs& in)
{
    const int panW = in.pan->GetRasterXSize(), panH = in.pan->GetRasterYSize();
    const int msW = in.ms->GetRasterXSize(), msH = in.ms->GetRasterYSize();
    const int ax = std::max(0, int(std::ceil(in.xmap.offset - 1e-9)));
    const int bx = std::min(msW, int(std::floor(in.xmap.offset + in.xmap.scale * panW + 1e-9)));
    const int ay = std::max(0, int(std::ceil(in.ymap.offset - 1e-9)));
    const int by = std::min(msH, int(std::floor(in.ymap.offset + in.ymap.scale * panH + 1e-9)));
    if (bx - ax < 1 || by - ay < 1)
        args.refuse("MultiFile", args.text("MultiFile").value(), "does not overlap the PanFile by a whole pixel");
    const int side = std::max(8, std::min(kWindowSide, int(kPanWindowSide / in.ratio)));
    CoarseSample s;
    s.cols = std::min(side, bx - ax);
    s.rows = std::min(side, by - ay);
    s.x0 = ax + (bx - ax - s.cols) / 2;
    s.y0 = ay + (by - ay - s.rows) / 2;
    for (int b : in.bands)
        s.ms.push_back(readWindow(in.ms->GetRasterBand(b), s.x0, s.y0, s.cols, s.rows));

    // Pan pixels under the window, then their area average over each multispectral pixel.
    const double px0 = (s.x0 - in.xmap.offset) / in.xmap.scale, px1 = (s.x0 + s.cols - in.xmap.offset) / in.xmap.scale;
    const double py0 = (s.y0 - in.ymap.offset) / in.ymap.scale, py1 = (s.y0 + s.rows - in.ymap.offset) / in.ymap.scale;
    const int rx0 = std::max(0, int(std::floor(px0))), rx1 = std::min(panW, int(std::ceil(px1)));
    const int ry0 = std::max(0, int(std::floor(py0))), ry1 = std::min(panH, int(std::ceil(py1)));
    const std::vector<float> pan = readWindow(in.pan->GetRasterBand(1), rx0, ry0, rx1 - rx0, ry1 - ry0);
    s.panLow.resize(size_t(s.cols) * s.rows);
    const SourceRows src{pan.data(), rx1 - rx0, 0, ry1 - ry0, ry1 - ry0};
    areaAverage(src, {px0 - rx0, 1.0 / in.xmap.scale}, {py0 - ry0, 1.0 / in.ymap.scale}, s.cols, s.rows, kNaN,
                s.panLow.data());
    return s;
}

// Wald's protocol on the coarse sample: pan and multispectral degraded by the ratio, fused, and
// compared with the original multispectral window.
QJsonObject reducedScaleQuality(const CoarseSample& s, const AlignedInputs& in, const FusionRequest& request,
                                const std::vector<char>& group)
{
    QJsonObject q;
    const double r = in.ratio;
    const int lowCols = int(s.cols / r), lowRows = int(s.rows / r);
    if (lowCols < 8 || lowRows < 8)
    {
        q["note"] = "the overlap is too small for a reduced-scale assessment";
        return q;
    }
    const AxisMap down{0.0, r}, up{0.0, 1.0 / r};
    const size_t lowCount = size_t(lowCols) * lowRows, count = size_t(s.cols) * s.rows;
    std::vector<std::vector<float>> msLow, msUp;
    for (const auto& band : s.ms)
    {
        msLow.emplace_back(lowCount);
        areaAverage({band.data(), s.cols, 0, s.rows, s.rows}, down, down, lowCols, lowRows, kNaN, msLow.back().data());
        msUp.emplace_back(count);
        interpolate({msLow.back().data(), lowCols, 0, lowRows, lowRows}, up, up, 0, s.cols, 0, s.rows,
                    request.interpolation, kNaN, msUp.back().data());
    }
    std::vector<float> panLowLow(lowCount);
    areaAverage({s.panLow.data(), s.cols, 0, s.rows, s.rows}, down, down, lowCols, lowRows, kNaN, panLowLow.data());
    const FusionModel model = fitFusionModel(request.method, r, panLowLow.data(), constBands(msLow), lowCount, group);
    std::vector<float> lowPass;
    if (model.needsLowPass())
    {
        lowPass.resize(count);
        lowPassPan(model, s.panLow.data(), s.cols, s.rows, lowPass.data());
    }
    std::vector<std::vector<float>> fused(s.ms.size(), std::vector<float>(count));
    std::vector<float*> out;
    for (auto& f : fused)
        out.push_back(f.data());
    fusePixels(model, s.panLow.data(), lowPass.empty() ? nullptr : lowPass.data(), constBands(msUp), count, out);

    const Bands reference = constBands(s.ms);
    q["ERGAS"] = ergas(reference, constBands(fused), count, r);
    q["SAM_degrees"] = spectralAngleDegrees(reference, constBands(fused), count);
    q["Q2n"] = q2n(reference, constBands(fused), s.cols, s.rows);
    q["interpolated_ERGAS"] = ergas(reference, constBands(msUp), count, r);
    q["interpolated_SAM_degrees"] = spectralAngleDegrees(reference, constBands(msUp), count);
    q["interpolated_Q2n"] = q2n(reference, constBands(msUp), s.cols, s.rows);
    return q;
}

QJsonArray toJson(const std::vector<double>& values)
{
    QJsonArray a;
    for (double v : values)
        a.append(v);
    return a;
}

void writeReport(const QString& path, const QJsonObject& report)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) ||
        file.write(QJsonDocument(report).toJson()) < 0)
        throw AlgoError(QStringLiteral("Cannot write %1").arg(path));
}

// Output bands: type, names, wavelengths and no-data of the multispectral bands; the pan's grid.
void describeOutput(algokit::OutputRaster& out, const AlignedInputs& in, double noData)
{
    GDALDataset* ds = out.get();
    if (in.georeferenced)
    {
        ds->SetGeoTransform(const_cast<double*>(in.panTransform));
        if (const OGRSpatialReference* srs = in.pan->GetSpatialRef())
            ds->SetSpatialRef(srs);
        else if (const OGRSpatialReference* msSrs = in.ms->GetSpatialRef())
            ds->SetSpatialRef(msSrs);
    }
    for (size_t i = 0; i < in.bands.size(); ++i)
    {
        GDALRasterBand* src = in.ms->GetRasterBand(in.bands[i]);
        GDALRasterBand* dst = out.band(int(i));
        dst->SetDescription(src->GetDescription());
        if (char** md = src->GetMetadata())
            dst->SetMetadata(md);
        dst->SetNoDataValue(noData);
        if (src->GetColorInterpretation() != GCI_Undefined)
            dst->SetColorInterpretation(src->GetColorInterpretation());
    }
}

} // namespace

QString qualityReportPath(const QString& outputPath)
{
    const QFileInfo info(outputPath);
    return info.dir().filePath(info.completeBaseName() + QStringLiteral("_quality.json"));
}

FusionOutcome runFusion(const algokit::GenericParams& args, const FusionRequest& request, const FusionHooks& hooks)
{
    FusionOutcome outcome;
    AlignedInputs in = openInputs(args, request);
    outcome.outputPath = args.text("OutputFile").required().writableOutput();
    outcome.qualityPath = qualityReportPath(outcome.outputPath);
    const std::vector<char> group = request.method == FusionMethod::CNS ? cnsGroupOf(in, request) : std::vector<char>();

    const CoarseSample sample = coarseSample(args, in);
    const FusionModel model = fitFusionModel(request.method, in.ratio, sample.panLow.data(), constBands(sample.ms),
                                             size_t(sample.cols) * sample.rows, group);
    QJsonObject report;
    report["method"] = methodName(request.method);
    report["protocol"] = "Wald reduced scale: pan and multispectral degraded by the resolution ratio (area average), "
                         "fused, compared with the multispectral image";
    report["ratio"] = in.ratio;
    report["window"] = QJsonObject{{"x", sample.x0}, {"y", sample.y0}, {"width", sample.cols}, {"height", sample.rows}};
    report["bands"] = toJson(std::vector<double>(in.bands.begin(), in.bands.end()));
    report["reduced_scale"] = reducedScaleQuality(sample, in, request, group);
    if (!model.weights.empty())
        report["intensity_weights"] = toJson(model.weights);
    if (request.method != FusionMethod::Brovey && request.method != FusionMethod::SFIM &&
        request.method != FusionMethod::CNS)
        report["injection_gains"] = toJson(model.gains);
    if (request.method == FusionMethod::CNS)
        report["cns_group"] = toJson(std::vector<double>(group.begin(), group.end()));
    hooks.progress(10);

    // Full scale, block by block on the pan grid.
    const int panW = in.pan->GetRasterXSize(), panH = in.pan->GetRasterYSize();
    const int msW = in.ms->GetRasterXSize(), msH = in.ms->GetRasterYSize();
    const int n = int(in.bands.size());
    GDALRasterBand* firstBand = in.ms->GetRasterBand(in.bands[0]);
    const GDALDataType type = firstBand->GetRasterDataType();
    const double msNoData = noDataOf(firstBand);
    const double noData = std::isfinite(msNoData) ? msNoData : 0.0;

    hooks.claim(outcome.outputPath);
    hooks.claim(outcome.qualityPath);
    algokit::OutputRaster out(outcome.outputPath, algokit::driverForPath(outcome.outputPath), panW, panH, n, type);
    describeOutput(out, in, noData);

    const int radius = model.needsLowPass() ? model.lowPassRadius() : 0;
    const size_t blockPixels = size_t(kBlockRows) * panW;
    std::vector<float> msUp(size_t(n) * blockPixels), fused(size_t(n) * blockPixels), lowPass, lowPassHalo;
    for (int row0 = 0; row0 < panH; row0 += kBlockRows)
    {
        const int rows = std::min(kBlockRows, panH - row0);
        const int haloTop = std::max(0, row0 - radius), haloEnd = std::min(panH, row0 + rows + radius);
        const std::vector<float> panHalo = readWindow(in.pan->GetRasterBand(1), 0, haloTop, panW, haloEnd - haloTop);
        const float* pan = panHalo.data() + size_t(row0 - haloTop) * panW;
        if (radius > 0)
        {
            lowPassHalo.resize(panHalo.size());
            lowPassPan(model, panHalo.data(), panW, haloEnd - haloTop, lowPassHalo.data());
        }
        int first = 0, last = -1;
        sourceRowsNeeded(in.ymap, row0, rows, msH, request.interpolation, &first, &last);
        std::vector<std::vector<float>> msRows;
        for (int b : in.bands)
            msRows.push_back(readWindow(in.ms->GetRasterBand(b), 0, first, msW, std::max(0, last - first + 1)));

        algokit::parallelFor(rows, [&](int begin, int end) {
            const size_t offset = size_t(begin) * panW, count = size_t(end - begin) * panW;
            Bands up;
            std::vector<float*> dst;
            for (int b = 0; b < n; ++b)
            {
                float* target = msUp.data() + size_t(b) * blockPixels + offset;
                interpolate({msRows[b].data(), msW, first, std::max(0, last - first + 1), msH}, in.xmap, in.ymap, 0,
                            panW, row0 + begin, end - begin, request.interpolation, kNaN, target);
                up.push_back(target);
                dst.push_back(fused.data() + size_t(b) * blockPixels + offset);
            }
            const float* low = radius > 0 ? lowPassHalo.data() + size_t(row0 - haloTop) * panW + offset : nullptr;
            fusePixels(model, pan + offset, low, up, count, dst);
            for (float* d : dst)
                for (size_t p = 0; p < count; ++p)
                    if (!std::isfinite(d[p]))
                        d[p] = float(noData);
        });
        // Bands are blockPixels apart in the buffer; GDAL converts, rounds and clamps to the output type.
        if (out.get()->RasterIO(GF_Write, 0, row0, panW, rows, fused.data(), panW, rows, GDT_Float32, n, nullptr, 0, 0,
                                GSpacing(blockPixels) * sizeof(float), nullptr) != CE_None)
            throw AlgoError(QStringLiteral("Cannot write %1: %2")
                                .arg(outcome.outputPath, QString::fromUtf8(CPLGetLastErrorMsg())));
        // Written tiles and read blocks leave GDAL's cache at once: the memory stays that of one block row.
        out.get()->FlushCache();
        in.pan->FlushCache();
        in.ms->FlushCache();
        hooks.progress(10.0 + 89.0 * (row0 + rows) / panH);
    }
    writeReport(outcome.qualityPath, report);
    out.commit();
    return outcome;
}

} // namespace optgeo
