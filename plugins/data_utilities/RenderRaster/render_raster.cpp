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

// About this many pixels are sampled for a band's stretch.
constexpr double kSamplePixels = 1 << 20;

// Pixels of a band for its stretch: every pixel of a small band; of a large one, whole natural blocks spread evenly
// over it (so that only those blocks are read, unlike a decimated read that touches every block).
std::vector<double> samplePixels(GDALRasterBand* band)
{
    const int width = band->GetXSize(), height = band->GetYSize();
    int blockWidth = 0, blockHeight = 0;
    band->GetBlockSize(&blockWidth, &blockHeight);
    blockWidth = std::max(1, std::min(blockWidth, width));
    blockHeight = std::max(1, std::min(blockHeight, height));
    const long long blocksAcross = (width + blockWidth - 1) / blockWidth,
                    blocksDown = (height + blockHeight - 1) / blockHeight;
    const long long blocks = blocksAcross * blocksDown;
    const double wanted = std::ceil(kSamplePixels / (double(blockWidth) * blockHeight));
    const long long stride = std::max<long long>(1, (long long)(double(blocks) / std::max(1.0, wanted)));
    std::vector<double> sample, block;
    // A stride that is not a multiple of the blocks across visits every column of blocks in turn.
    const long long step = stride > 1 && stride % blocksAcross == 0 ? stride + 1 : stride;
    for (long long index = 0; index < blocks; index += step)
    {
        const int bx = int(index % blocksAcross), by = int(index / blocksAcross);
        const int x0 = bx * blockWidth, y0 = by * blockHeight;
        const int w = std::min(blockWidth, width - x0), h = std::min(blockHeight, height - y0);
        block.resize(size_t(w) * size_t(h));
        if (band->RasterIO(GF_Read, x0, y0, w, h, block.data(), w, h, GDT_Float64, 0, 0) != CE_None)
            throw algokit::AlgoError(QStringLiteral("Reading band %1 failed: %2")
                                         .arg(band->GetBand())
                                         .arg(QString::fromUtf8(CPLGetLastErrorMsg())));
        sample.insert(sample.end(), block.begin(), block.end());
    }
    return sample;
}

// The clip range of one band from the histogram of a sample of its pixels (nodata left out). Read here rather than
// asked of GDAL, which would keep the histogram in a side-car file beside the input.
datautil::StretchRange bandRange(GDALRasterBand* band)
{
    std::vector<double> sample = samplePixels(band);
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
        // Band selection makes GDAL's translator copy through a slower path: leave it out when all bands go, in order.
        bool allBands = int(bands.size()) == input->GetRasterCount();
        for (size_t i = 0; i < bands.size(); ++i)
            allBands = allBands && bands[i] == int(i + 1);
        if (!allBands || transparent)
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
            // Colour meanings: GeoTIFF takes them as creation options (cheaper than relabelling the bands), PNG and
            // JPEG from the band count; a transparency band is labelled so that GeoTIFF marks it.
            if (transparent)
            {
                argv.AddString("-colorinterp");
                argv.AddString(bands.size() == 3 ? "red,green,blue,alpha" : "gray,alpha");
            }
            if (format == QLatin1String("GTiff"))
            {
                argv.AddString("-co");
                argv.AddString(bands.size() == 3 ? "PHOTOMETRIC=RGB" : "PHOTOMETRIC=MINISBLACK");
            }
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
        // A classification image's nodata class becomes transparent through its colour entry's alpha, on a
        // virtual copy so that the input is left as it is.
        algokit::DatasetPtr source;
        if (palette && transparent)
            source = transparentNoDataClass(input.get(), bands[0]);
        algokit::translateRaster(source ? source.get() : input.get(), output, argv, &bridge);

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
    static algokit::DatasetPtr transparentNoDataClass(GDALDataset* input, int bandNumber)
    {
        GDALRasterBand* band = input->GetRasterBand(bandNumber);
        int hasNoData = 0;
        const double noData = band->GetNoDataValue(&hasNoData);
        const GDALColorTable* table = band->GetColorTable();
        if (!hasNoData || noData < 0 || noData >= table->GetColorEntryCount() || noData != std::floor(noData))
            return nullptr;
        GDALDriver* vrt = GetGDALDriverManager()->GetDriverByName("VRT");
        algokit::DatasetPtr copy(vrt->CreateCopy("", input, FALSE, nullptr, nullptr, nullptr));
        if (!copy)
            return nullptr;
        std::unique_ptr<GDALColorTable> colours(table->Clone());
        GDALColorEntry entry = *colours->GetColorEntry(int(noData));
        entry.c4 = 0;
        colours->SetColorEntry(int(noData), &entry);
        copy->GetRasterBand(bandNumber)->SetColorTable(colours.get());
        return copy;
    }

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
