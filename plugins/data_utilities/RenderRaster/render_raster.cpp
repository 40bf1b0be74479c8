// Plug-in "RenderRaster": an 8-bit picture of a raster at full resolution (PNG, JPEG or GeoTIFF by suffix).
#include "band_stack.h"
#include "clip_stretch.h"
#include "gdal_apps.h"
#include "generic_params.h"
#include "plugin_base.h"
#include "raster_inputs.h"

#include <QFile>
#include <QFileInfo>
#include <algorithm>
#include <cmath>

namespace
{

constexpr double kClip = 0.02;

// The clip range of one band from the histogram of a sample of its pixels (a decimated read of at most 1024 x 1024,
// nodata left out). Read here rather than asked of GDAL, which would keep the histogram in a side-car file beside
// the input.
datautil::StretchRange bandRange(GDALRasterBand* band)
{
    const int width = band->GetXSize(), height = band->GetYSize();
    const int sampleWidth = std::min(width, 1024), sampleHeight = std::min(height, 1024);
    std::vector<double> sample(size_t(sampleWidth) * size_t(sampleHeight));
    if (band->RasterIO(GF_Read, 0, 0, width, height, sample.data(), sampleWidth, sampleHeight, GDT_Float64, 0, 0) !=
        CE_None)
        throw algokit::AlgoError(QStringLiteral("Reading band %1 failed: %2")
                                     .arg(band->GetBand())
                                     .arg(QString::fromUtf8(CPLGetLastErrorMsg())));
    int hasNoData = 0;
    const double noData = band->GetNoDataValue(&hasNoData);
    double low = HUGE_VAL, high = -HUGE_VAL;
    size_t kept = 0;
    for (double v : sample)
        if (std::isfinite(v) && !(hasNoData && v == noData))
        {
            sample[kept++] = v;
            low = std::min(low, v);
            high = std::max(high, v);
        }
    sample.resize(kept);
    if (kept == 0)
        return {0.0, 1.0}; // nothing but nodata: any range renders it transparent
    const GDALDataType type = band->GetRasterDataType();
    const bool integral = !GDALDataTypeIsFloating(type) && !GDALDataTypeIsComplex(type);
    int buckets = 1024;
    if (integral && high - low + 1 <= 4096)
    {
        // One bucket per value: the percentiles fall on the values themselves.
        buckets = int(high - low + 1);
        low -= 0.5;
        high += 0.5;
    }
    else if (!(high > low))
        high = low + 1.0;
    std::vector<std::uint64_t> counts(size_t(buckets), 0);
    const double scale = buckets / (high - low);
    for (double v : sample)
        ++counts[size_t(std::clamp(int((v - low) * scale), 0, buckets - 1))];
    return datautil::clipRange(counts, low, high, kClip);
}

class RenderRaster : public algokit::PluginBase
{
public:
    RenderRaster() : PluginBase(QStringLiteral("RenderRaster")) {}

protected:
    bool run() override
    {
        algokit::GenericParams args(params<GenericAlgoRecord>(), GetName());
        const QString inputPath = args.text(QStringLiteral("InputFile")).required();
        algokit::DatasetPtr input = datautil::openRasterItem(args, QStringLiteral("InputFile"), inputPath);
        const QString output = args.text(QStringLiteral("OutputFile")).writableOutput();
        datautil::refuseOverwritingInput(args, QStringLiteral("OutputFile"), output, {inputPath});
        const QString suffix = QFileInfo(output).suffix().toLower();
        const QStringList suffixes{"png", "jpg", "jpeg", "tif", "tiff"};
        if (!suffixes.contains(suffix))
            args.refuse(QStringLiteral("OutputFile"), output,
                        QStringLiteral("must end in .png, .jpg, .jpeg, .tif or .tiff"));
        const QString format = suffix == QLatin1String("png")           ? QStringLiteral("PNG")
                               : suffix.startsWith(QLatin1String("jp")) ? QStringLiteral("JPEG")
                                                                        : QStringLiteral("GTiff");

        const std::vector<int> bands = chosenBands(args, input.get());
        GDALRasterBand* first = input->GetRasterBand(bands[0]);
        const bool palette = bands.size() == 1 && first->GetColorTable() != nullptr;
        const bool transparent = format != QLatin1String("JPEG") && (first->GetMaskFlags() & GMF_ALL_VALID) == 0;

        CPLStringList argv;
        argv.AddString("-of");
        argv.AddString(format.toUtf8().constData());
        argv.AddString("-ot");
        argv.AddString("Byte");
        for (int band : bands)
        {
            argv.AddString("-b");
            argv.AddString(QByteArray::number(band).constData());
        }
        if (palette)
        {
            argv.AddString("-expand");
            argv.AddString(transparent ? "rgba" : "rgb");
        }
        else
        {
            for (size_t i = 0; i < bands.size(); ++i)
            {
                const datautil::StretchRange range = bandRange(input->GetRasterBand(bands[i]));
                progress(10.0 * double(i + 1) / double(bands.size()));
                argv.AddString(CPLSPrintf("-scale_%d", int(i + 1)));
                argv.AddString(CPLSPrintf("%.17g", range.low));
                argv.AddString(CPLSPrintf("%.17g", range.high));
                // 0 stays free for what lies under the transparent nodata.
                argv.AddString(transparent ? "1" : "0");
                argv.AddString("255");
            }
            if (transparent)
            {
                argv.AddString("-b");
                argv.AddString("mask");
            }
            argv.AddString("-colorinterp");
            argv.AddString(bands.size() == 3 ? (transparent ? "red,green,blue,alpha" : "red,green,blue")
                                             : (transparent ? "gray,alpha" : "gray"));
        }
        argv.AddString("-a_nodata");
        argv.AddString("none");
        if (format == QLatin1String("GTiff"))
        {
            algokit::addGeoTiffOptions(format, &argv);
            // GeoTIFF marks a transparency band only when asked to at creation.
            if (transparent && !palette)
            {
                argv.AddString("-co");
                argv.AddString("ALPHA=YES");
            }
        }
        double geoTransform[6];
        const bool georeferenced = input->GetGeoTransform(geoTransform) == CE_None;
        if (format != QLatin1String("GTiff") && georeferenced)
        {
            argv.AddString("-co");
            argv.AddString("WORLDFILE=YES");
        }
        if (format == QLatin1String("JPEG"))
        {
            argv.AddString("-co");
            argv.AddString("QUALITY=90");
        }

        const QString worldFile = worldFilePath(output);
        const QString auxFile = output + QStringLiteral(".aux.xml");
        claimOutput(output);
        if (format != QLatin1String("GTiff"))
        {
            claimOutput(worldFile);
            claimOutput(auxFile);
        }
        algokit::GdalProgress bridge([this](double percent) { progress(percent); }, 10.0, 100.0);
        algokit::translateRaster(input.get(), output, argv, &bridge);

        algokit::GenericOutputs outputs;
        if (format != QLatin1String("GTiff") && QFile::exists(worldFile))
            outputs.add(QStringLiteral("WorldFile"), worldFile);
        if (format != QLatin1String("GTiff") && QFile::exists(auxFile))
            outputs.add(QStringLiteral("AuxFile"), auxFile);
        setResult(outputs.result());
        progress(100.0);
        return true;
    }

private:
    // Bands as given ("1|2|3" or "1,2,3"), else: a classification image's band, the red, green and blue bands
    // (or the first three), or the one band.
    std::vector<int> chosenBands(const algokit::GenericParams& args, GDALDataset* input) const
    {
        const algokit::TextParam param = args.text(QStringLiteral("Bands"));
        const int count = input->GetRasterCount();
        QString text = param.value();
        text.replace(QLatin1Char(','), QLatin1Char('|'));
        std::vector<int> bands;
        for (const QString& item : text.split(QLatin1Char('|'), Qt::SkipEmptyParts))
        {
            bool ok = false;
            const int band = item.trimmed().toInt(&ok);
            if (!ok || band < 1 || band > count)
                args.refuse(QStringLiteral("Bands"), param.value(),
                            QStringLiteral("must name bands between 1 and %1").arg(count));
            bands.push_back(band);
        }
        if (!bands.empty() && bands.size() != 1 && bands.size() != 3)
            args.refuse(QStringLiteral("Bands"), param.value(), QStringLiteral("must name one band or three"));
        if (!bands.empty())
            return bands;
        if (count < 3)
            return {1};
        int red = 0, green = 0, blue = 0;
        for (int b = count; b >= 1; --b)
        {
            const GDALColorInterp interp = input->GetRasterBand(b)->GetColorInterpretation();
            red = interp == GCI_RedBand ? b : red;
            green = interp == GCI_GreenBand ? b : green;
            blue = interp == GCI_BlueBand ? b : blue;
        }
        if (red && green && blue)
            return {red, green, blue};
        return {1, 2, 3};
    }

    // The world file GDAL writes beside a PNG or JPEG: the output's name with ".wld".
    static QString worldFilePath(const QString& output)
    {
        const QFileInfo info(output);
        return info.path() + QLatin1Char('/') + info.completeBaseName() + QStringLiteral(".wld");
    }
};

} // namespace

ALGO_PLUGIN_FACTORY(RenderRaster)
