// The clip entries: ExcuteAlgo_ImageClip_Enhance, ExcuteAlgo_ImageClip and ExcuteAlgo_ImageClip2.
#include "clip_region.h"
#include "entry_guard.h"
#include "records/clip_mosaic_records.h"
#include "run_algo_plugin.h"

#include <QDir>
#include <QString>
#include <cstdio>

using namespace algofactory;

namespace
{

QString fromArg(const char* text)
{
    return QString::fromUtf8(text ? text : "");
}

void printLine(const char* text)
{
    std::printf("%s\n", text);
    std::fflush(stdout);
}

// The entries' own refusal when the input does not open at all (the buffer needs its geotransform).
bool refuseUnopenedInput()
{
    printLine("Can not open the input image!");
    return false;
}

ImageClipParam clipRecord(const QString& input, const ClipInputInfo& info, const QString& output)
{
    ImageClipParam record;
    record.inputFile = input;
    record.outputFile = output;
    record.inputFormat = info.driver;
    record.bands = info.bands;
    return record;
}

bool runClip(ImageClipParam record, AlgoResult* result)
{
    AlgoParamHolder holder = std::move(record);
    AlgoRunContext context;
    return RunAlgoPlugin(&context, QStringLiteral("ImageClipAlgo"), &holder, result, QString());
}

// "a|b|c|d" as four decimal integers; false unless there are exactly four that all parse.
bool parseRectangle(const QString& clipRange, ImageClipParam* record)
{
    const QStringList parts = clipRange.split('|');
    if (parts.size() != 4)
        return false;
    int values[4];
    for (int i = 0; i < 4; ++i)
    {
        bool ok = false;
        values[i] = parts[i].toInt(&ok, 10);
        if (!ok)
            return false;
    }
    record->x0 = values[0];
    record->x1 = values[1];
    record->y0 = values[2];
    record->y1 = values[3];
    return true;
}

} // namespace

ALGO_API bool ExcuteAlgo_ImageClip_Enhance(const char* inputFile, const char* clipRange, const char* shpFile,
                                           const char* fieldName, const char* fieldValue, int bufferPixels,
                                           int clipType, const char* outputFile, int enabled, AlgoResult* result)
{
    return guardEntry("ExcuteAlgo_ImageClip_Enhance", [&] {
        if (enabled == 0)
            return true;
        const QString input = fromArg(inputFile);
        const QString range = fromArg(clipRange);
        const QString shapefile = fromArg(shpFile);
        const QString field = fromArg(fieldName);
        const QString value = fromArg(fieldValue);
        ClipInputInfo info;
        const double buffer = computeClipBuffer(input, bufferPixels, &info);
        if (!info.opened)
            return refuseUnopenedInput();
        printBufferLine(buffer);

        ImageClipParam record = clipRecord(input, info, fromArg(outputFile));
        record.useRegion = clipType == 1 ? 0 : 1;
        QString tempFolder;
        RangeRequest request{shapefile, field, value, range, RangeMode::Wkt, buffer};
        switch (clipType)
        {
        case 1:
            if (!parseRectangle(range, &record))
            {
                printLine("Please input the correct range!");
                return false;
            }
            break;
        case 2:
            if (shapefile.isEmpty())
            {
                printLine("Please input the shpfile!");
                return false;
            }
            record.regionFile = shapefile;
            break;
        case 3:
            if (shapefile.isEmpty())
            {
                printLine("Please input the shpfile!");
                return false;
            }
            if (field.isEmpty() || value.isEmpty())
            {
                printLine("Please input the correct Field name and Field value!");
                return false;
            }
            request.mode = RangeMode::Feature;
            if (!buildRangeShapefile(request, &tempFolder, &record.regionFile))
            {
                printLine("Please check your shpfile,fieldname hand fieldvalue!");
                return false;
            }
            break;
        case 4:
            // The second test compares 12 characters with an 8-character text, so it only accepts a range that
            // is exactly that text; a GeoJSON object opening with its type member is refused on purpose.
            if (range.left(15) != QLatin1String("{\"coordinates\":") && range.left(12) != QLatin1String("{\"type\":"))
            {
                printLine("Please check your cliptype! If you use this type of cliprange,please select \"GeoJson range "
                          "clip\"!");
                return false;
            }
            request.mode = RangeMode::GeoJson;
            if (!buildRangeShapefile(request, &tempFolder, &record.regionFile))
            {
                printLine("Please check your format of cliprange! This is not a stand GeoJson format!");
                return false;
            }
            break;
        case 5:
            if (range.left(7) != QLatin1String("POLYGON") && range.left(12) != QLatin1String("MULTIPOLYGON"))
            {
                printLine("Please check your cliptype! If you use this type of cliprange,please select \"wkt range "
                          "clip\"!");
                return false;
            }
            request.mode = RangeMode::Wkt;
            if (!buildRangeShapefile(request, &tempFolder, &record.regionFile))
            {
                printLine("Please check your format of cliprange! This is not a stand wkt format!");
                return false;
            }
            break;
        default:
            printLine("Please input cliptype!");
            return false;
        }

        const bool ok = runClip(std::move(record), result);
        cleanUpClipFolder(tempFolder);
        return ok;
    });
}

ALGO_API bool ExcuteAlgo_ImageClip(const char* inputFile, long x0, long x1, long y0, long y1, const char* clipRange,
                                   const char* fieldName, const char* fieldValue, const char* shpFile,
                                   const char* outputFile, AlgoResult* result)
{
    return guardEntry("ExcuteAlgo_ImageClip", [&] {
        const QString input = fromArg(inputFile);
        const QString range = fromArg(clipRange);
        const QString field = fromArg(fieldName);
        const QString value = fromArg(fieldValue);
        ClipInputInfo info;
        info.opened = true;
        ImageClipParam record = clipRecord(input, info, fromArg(outputFile));
        QString tempFolder;
        if ((field.isEmpty() || value.isEmpty()) && range.isEmpty())
        {
            // Neither a range text nor a feature: the four integers are the pixel rectangle x0|x1|y0|y1.
            record.x0 = int(x0);
            record.x1 = int(x1);
            record.y0 = int(y0);
            record.y1 = int(y1);
        }
        else
        {
            RangeRequest request{fromArg(shpFile), field, value, range, RangeMode::Feature, 0.0};
            if (field.isEmpty() || value.isEmpty())
                request.mode = range.startsWith(QLatin1String("POLYGON")) || range.startsWith(QLatin1String("MULTIPOLYGON"))
                                   ? RangeMode::Wkt
                                   : RangeMode::GeoJson;
            if (!buildRangeShapefile(request, &tempFolder, &record.regionFile))
            {
                printLine("Please check your shpfile,fieldname hand fieldvalue!");
                return false;
            }
            record.useRegion = 1;
        }
        const bool ok = runClip(std::move(record), result);
        if (!tempFolder.isEmpty())
            QDir(tempFolder).removeRecursively();
        return ok;
    });
}

ALGO_API bool ExcuteAlgo_ImageClip2(const char* inputFile, const char* shpFile, const char* fieldName, int bufferPixels,
                                    const char* outputDir, AlgoResult* result)
{
    return guardEntry("ExcuteAlgo_ImageClip2", [&] {
        const QString input = fromArg(inputFile);
        const QString shapefile = fromArg(shpFile);
        const QString folder = fromArg(outputDir);
        if (QDir(folder).exists())
            runShellOnPath("chmod 777 -R %1", folder);
        ClipInputInfo info;
        const double buffer = computeClipBuffer(input, bufferPixels, &info);
        if (!info.opened)
            return refuseUnopenedInput();
        printBufferLine(buffer);
        if (shapefile.isEmpty())
        {
            printLine("Please input the shpfile!");
            return false;
        }
        if (folder.isEmpty())
        {
            // Without a folder the ranges and clips would land under the file system's root.
            printLine("Please input the output folder!");
            return false;
        }
        const QString rangeFolder = folder + "/cliptemp";
        QStringList names, rangeFiles;
        if (!splitFeatureRanges(shapefile, fromArg(fieldName), buffer, rangeFolder, &names, &rangeFiles))
        {
            QDir(rangeFolder).removeRecursively();
            printLine("Please check your shpfile,fieldname hand fieldvalue!");
            return false;
        }
        if (names.size() != rangeFiles.size())
        {
            QDir(rangeFolder).removeRecursively();
            printLine("name can not match shp");
            return false;
        }
        bool ok = true;
        for (int i = 0; i < names.size(); ++i)
        {
            ImageClipParam record = clipRecord(input, info, folder + "/" + names[i] + ".tif");
            record.regionFile = rangeFiles[i];
            record.useRegion = 1;
            ok = runClip(std::move(record), result) && ok;
        }
        QDir(rangeFolder).removeRecursively();
        return ok;
    });
}
