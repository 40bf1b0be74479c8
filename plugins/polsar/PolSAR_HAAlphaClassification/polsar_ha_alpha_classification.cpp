// Plug-in "PolSAR_HAAlphaClassification": Cloude-Pottier zones of the entropy/alpha plane, optionally split by
// anisotropy or by the scene's median lambda, written as a Byte classification image with colours and class names.
#include "ha_alpha_zones.h"
#include "plugin_base.h"
#include "raster_io.h"
#include "records/polsar_records.h"

#include <QDir>
#include <QFileInfo>
#include <array>
#include <limits>

namespace
{

enum Input
{
    kEntropy,
    kAnisotropy,
    kAlpha,
    kLambda
};

class HAAlphaClassification : public algokit::PluginBase
{
public:
    HAAlphaClassification() : PluginBase(QStringLiteral("PolSAR_HAAlphaClassification")) {}

protected:
    bool run() override
    {
        const stHAAlphaClassInfo& info = params<stHAAlphaClassInfo>();
        if (info.method < 0 || info.method > 2)
            return fail(QStringLiteral("Unknown classification method %1.").arg(info.method));
        if (info.outputFile.isEmpty())
            return fail(QStringLiteral("No output file was given."));
        for (const QString& path : {info.entropyFile, info.anisotropyFile, info.alphaFile, info.lambdaFile})
            m_inputs.push_back(algokit::openRaster(path));
        const int width = m_inputs[0]->GetRasterXSize(), height = m_inputs[0]->GetRasterYSize();
        for (const algokit::DatasetPtr& input : m_inputs)
            if (input->GetRasterCount() != 1 || input->GetRasterXSize() != width || input->GetRasterYSize() != height)
                return fail(QStringLiteral("The four inputs must be single-band images of one size."));
        m_blockRows = algokit::rowsPerBlock(m_inputs[0].get(), 4 * sizeof(float));

        // The lambda split needs the whole scene's median first; that pass gets the first 40% of the progress.
        const double prepared = info.method == 2 ? 40.0 : 0.0;
        const float lambdaSplit = info.method == 2 ? medianLambda(height, prepared) : 0.0f;

        QDir().mkpath(QFileInfo(info.outputFile).absolutePath());
        algokit::OutputRaster output(info.outputFile,
                                     info.outputFormat.isEmpty() ? QStringLiteral("ENVI") : info.outputFormat, width,
                                     height, 1, GDT_Byte);
        output.copyGeoreferencing(m_inputs[kAlpha].get());
        describeClasses(output.band(0), info.method, lambdaSplit);

        std::array<std::vector<float>, 4> rows;
        std::vector<unsigned char> classes;
        algokit::forEachRowBlock(height, m_blockRows, [&](int row0, int count) {
            for (int i = 0; i < 4; ++i)
                algokit::readRows(m_inputs[i]->GetRasterBand(1), row0, count, rows[i]);
            classes.resize(size_t(count) * width);
            algokit::parallelFor(int(classes.size() / 4096 + 1), [&](int begin, int end) {
                const size_t stop = std::min(classes.size(), size_t(end) * 4096);
                for (size_t i = size_t(begin) * 4096; i < stop; ++i)
                    classes[i] = polsarzones::classOf(info.method, rows[kEntropy][i], rows[kAnisotropy][i],
                                                      rows[kAlpha][i], rows[kLambda][i], lambdaSplit);
            });
            algokit::writeRows(output.band(0), row0, count, classes);
            // Keep GDAL's block cache from growing to the whole scene.
            output.get()->FlushCache();
            for (const algokit::DatasetPtr& input : m_inputs)
                input->FlushCache();
            progress(prepared + (100.0 - prepared) * (row0 + count) / height);
        });
        output.commit();

        stHAAlphaClassInfo produced = info;
        produced.resultImages = info.outputFile;
        setResult(produced);
        return true;
    }

private:
    // Exact lower median of lambda over the valid pixels, by radix selection over two streamed passes: the high
    // 16 bits of the ordered key, then the low 16 bits inside the bin holding the median.
    float medianLambda(int height, double progressShare)
    {
        std::vector<uint64_t> histogram(65536);
        uint64_t rank = 0;
        uint32_t high = 0;
        for (int pass = 0; pass < 2; ++pass)
        {
            std::fill(histogram.begin(), histogram.end(), 0);
            std::array<std::vector<float>, 4> rows;
            algokit::forEachRowBlock(height, m_blockRows, [&](int row0, int count) {
                for (int i = 0; i < 4; ++i)
                    algokit::readRows(m_inputs[i]->GetRasterBand(1), row0, count, rows[i]);
                for (size_t i = 0; i < rows[kLambda].size(); ++i)
                {
                    if (polsarzones::classOf(0, rows[kEntropy][i], rows[kAnisotropy][i], rows[kAlpha][i],
                                             rows[kLambda][i], 0.0f) == 0)
                        continue;
                    const uint32_t key = polsarzones::orderedKey(rows[kLambda][i]);
                    if (pass == 0)
                        ++histogram[key >> 16];
                    else if ((key >> 16) == high)
                        ++histogram[key & 0xffffu];
                }
                progress(progressShare * (pass + double(row0 + count) / height) / 2.0);
            });
            if (pass == 0)
            {
                uint64_t total = 0;
                for (uint64_t n : histogram)
                    total += n;
                if (total == 0)
                    return std::numeric_limits<float>::quiet_NaN();
                rank = (total - 1) / 2;
            }
            uint32_t bin = 0;
            while (rank >= histogram[bin])
                rank -= histogram[bin++];
            if (pass == 0)
                high = bin;
            else
                return polsarzones::fromOrderedKey((high << 16) | bin);
        }
        return std::numeric_limits<float>::quiet_NaN();
    }

    // Colour table and category names, one entry per class (0 = invalid); split classes get a darker shade for
    // their lower half.
    static void describeClasses(GDALRasterBand* band, int method, float lambdaSplit)
    {
        GDALColorTable colors;
        CPLStringList names;
        const GDALColorEntry black{0, 0, 0, 255};
        colors.SetColorEntry(0, &black);
        names.AddString("Invalid");
        // No commas: ENVI headers separate class names by commas.
        const char* lower = method == 1 ? " (anisotropy < 0.5)" : " (lambda < median)";
        const char* upper = method == 1 ? " (anisotropy >= 0.5)" : " (lambda >= median)";
        for (const polsarzones::ZoneInfo& zone : polsarzones::kZones)
        {
            const GDALColorEntry full{zone.red, zone.green, zone.blue, 255};
            if (method == 0)
            {
                colors.SetColorEntry(colors.GetColorEntryCount(), &full);
                names.AddString(zone.name);
                continue;
            }
            const GDALColorEntry dark{short(zone.red / 2), short(zone.green / 2), short(zone.blue / 2), 255};
            colors.SetColorEntry(colors.GetColorEntryCount(), &dark);
            names.AddString((QByteArray(zone.name) + lower).constData());
            colors.SetColorEntry(colors.GetColorEntryCount(), &full);
            names.AddString((QByteArray(zone.name) + upper).constData());
        }
        band->SetColorTable(&colors);
        band->SetCategoryNames(names.List());
        band->SetNoDataValue(0);
        band->SetDescription("H/A/Alpha class");
        if (method == 2)
            band->SetMetadataItem("LAMBDA_MEDIAN", QByteArray::number(double(lambdaSplit), 'g', 9).constData());
    }

    std::vector<algokit::DatasetPtr> m_inputs;
    int m_blockRows = 256;
};

} // namespace

ALGO_PLUGIN_FACTORY(HAAlphaClassification)
