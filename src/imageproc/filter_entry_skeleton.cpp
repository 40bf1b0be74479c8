// The skeleton that the eight filter entries share.
#include "filter_entry_skeleton.h"

#include "run_algo_plugin.h"
#include "sys_data_source.h"

#include <QStringList>
#include <cstdio>

namespace algofactory
{

const char* const kNoBandMessage = "Input band number cannot be NULL!";
const char* const kSelectBandsMessage = "Select Bands is Error!";
const char* const kIncorrectParameters = "Incorrect Parameters!";

void printFilterMessage(const char* text)
{
    std::printf("%s", text);
    std::fflush(stdout);
}

QString formatFromSuffix(const QString& path)
{
    const int dot = path.lastIndexOf(QLatin1Char('.'));
    if (dot < 0)
        return QString();
    const QString suffix = path.mid(dot + 1).toLower();
    if (suffix == QLatin1String("tif") || suffix == QLatin1String("tiff"))
        return QStringLiteral("GTiff");
    if (suffix == QLatin1String("img"))
        return QStringLiteral("HFA");
    return QStringLiteral("ENVI");
}

std::vector<int> selectedBandIndices(const QString& selection, int bandCount)
{
    const QStringList items = selection.split(QLatin1Char('|'));
    std::vector<int> indices;
    for (int band = 1; band <= bandCount; ++band)
        if (items.contains(QString::number(band)))
            indices.push_back(band - 1);
    return indices;
}

bool runFilterEntry(const FilterEntryTraits& traits, const char* inputFile, const char* outputFile, const char* bands,
                    const std::function<bool()>& afterBands,
                    const std::function<AlgoParamHolder(const FilterInput&)>& makeRecord, AlgoResult* result)
{
    FilterInput input;
    input.inputFile = QString::fromLocal8Bit(inputFile ? inputFile : "");
    input.outputFile = QString::fromLocal8Bit(outputFile ? outputFile : "");
    input.format = formatFromSuffix(input.inputFile);

    SysUtility::_ptr_t<SysDataSource::RasterDataset> dataset =
        SysDataSource::DatasetFactory::Instance()->OpenRaster(input.inputFile, SysDataSource::OpenMode::ReadOnly);
    if (!dataset)
    {
        printFilterMessage("Unsupported Raster format! ");
        return false;
    }
    const int bandCount = dataset->GetBandCount();
    const QString selection = QString::fromLocal8Bit(bands ? bands : "");
    const int itemCount = selection.split(QLatin1Char('|')).size();
    if (itemCount > bandCount || itemCount == 0)
    {
        printFilterMessage("Input band number is wrong!");
        return false;
    }
    if (bandCount == 0)
    {
        printFilterMessage(traits.noBandMessage);
        return false;
    }
    input.bands = selectedBandIndices(selection, bandCount);
    if (input.bands.empty())
    {
        printFilterMessage(traits.noBandMessage);
        return false;
    }
    dataset = nullptr; // the plug-in opens the input itself
    if (afterBands && !afterBands())
        return false;

    AlgoParamHolder holder = makeRecord(input);
    AlgoRunContext context;
    return RunAlgoPlugin(&context, QString::fromLatin1(traits.plugin), &holder, result,
                         QString::fromLatin1(traits.algorithm));
}

} // namespace algofactory
