// The band-combination tools.
#include "band_combination.h"

#include "band_groups.h"
#include "band_stack.h"
#include "raster_inputs.h"

#include <QFileInfo>
#include <climits>
#include <cmath>

namespace datautil
{

namespace
{

QString suffixOf(const QString& path)
{
    return QFileInfo(path).suffix().toLower();
}

void write(BandStack& stack, const QString& output, const ProgressFn& progress)
{
    if (suffixOf(output) == QLatin1String("vrt"))
    {
        QString error;
        if (!stack.save(&error))
            throw algokit::AlgoError(QStringLiteral("Writing %1 failed: %2").arg(output, error));
        progress(100.0);
        return;
    }
    algokit::GdalProgress bridge(progress);
    writeStack(stack.dataset(), output, &bridge);
    progress(100.0);
}

} // namespace

void combineBands(const algokit::GenericParams& args, bool withDataType, const ProgressFn& progress,
                  const std::function<void(const QString&)>& claim)
{
    const QStringList paths = args.text(QStringLiteral("InputFiles")).list();
    std::vector<algokit::DatasetPtr> inputs = openRasterList(args, QStringLiteral("InputFiles"));
    const QString output = args.text(QStringLiteral("OutputFile")).writableOutput();
    refuseOverwritingInput(args, QStringLiteral("OutputFile"), output, paths);

    const algokit::TextParam bandsParam = args.text(QStringLiteral("Bands"));
    const BandGroups groups = parseBandGroups(bandsParam.value().toStdString());
    if (!groups.error.empty())
        args.refuse(QStringLiteral("Bands"), bandsParam.value(), QString::fromStdString(groups.error));
    if (groups.groups.size() > inputs.size())
        args.refuse(QStringLiteral("Bands"), bandsParam.value(),
                    QStringLiteral("has %1 groups for %2 input files").arg(groups.groups.size()).arg(inputs.size()));
    int dataType = 0;
    if (withDataType)
        dataType = args.integer(QStringLiteral("DataType")).orDefault(0).range(0, 11);

    const RasterGrid grid = gridOf(inputs[0].get());
    const bool virtualOutput = suffixOf(output) == QLatin1String("vrt");
    std::vector<BandPick> picks;
    for (size_t i = 0; i < inputs.size(); ++i)
    {
        GDALDataset* input = inputs[i].get();
        const RasterGrid own = gridOf(input);
        if (i > 0 && (!grid.georeferenced || !own.georeferenced) &&
            (own.width != grid.width || own.height != grid.height))
            args.refuse(
                QStringLiteral("InputFiles"), paths[int(i)],
                QStringLiteral("has no georeferencing to place it on the first raster's grid, and another size"));
        if (i > 0 && grid.georeferenced && own.georeferenced)
        {
            double extent[4];
            const double* gt = grid.geoTransform;
            const double gx0 = gt[0], gx1 = gt[0] + grid.width * gt[1];
            const double gy0 = std::min(gt[3], gt[3] + grid.height * gt[5]),
                         gy1 = std::max(gt[3], gt[3] + grid.height * gt[5]);
            if (!extentIn(input, grid.wkt, extent) || extent[2] <= gx0 || extent[0] >= gx1 || extent[3] <= gy0 ||
                extent[1] >= gy1)
                args.refuse(QStringLiteral("InputFiles"), paths[int(i)],
                            QStringLiteral("does not overlap the first raster"));
            if (virtualOutput && !sameReferenceSystem(own.wkt, grid.wkt))
                args.refuse(
                    QStringLiteral("InputFiles"), paths[int(i)],
                    QStringLiteral(
                        "is in another reference system than the first raster, which a .vrt output cannot resample"));
        }
        int badBand = 0;
        const std::vector<int> bands = bandsOfInput(groups, i, input->GetRasterCount(), &badBand);
        if (bands.empty())
            args.refuse(QStringLiteral("Bands"), bandsParam.value(),
                        QStringLiteral("asks for band %1 of %2, which has %3 bands")
                            .arg(badBand)
                            .arg(paths[int(i)])
                            .arg(input->GetRasterCount()));
        for (int band : bands)
            picks.push_back({input, band, isClassImage(input)});
    }
    const GDALDataType type = dataType == 0 ? widestType(picks) : GDALDataType(dataType);

    claim(output);
    BandStack stack(grid, type, virtualOutput ? output : QString());
    for (const BandPick& pick : picks)
        if (!stack.add(pick))
            throw algokit::AlgoError(QStringLiteral("%1: cannot place a band on the grid").arg(args.algoName()));
    write(stack, output, progress);
}

void stackLayers(const algokit::GenericParams& args, const ProgressFn& progress,
                 const std::function<void(const QString&)>& claim)
{
    const QStringList paths = args.text(QStringLiteral("InputFiles")).list();
    std::vector<algokit::DatasetPtr> inputs = openRasterList(args, QStringLiteral("InputFiles"));
    const QString output = args.text(QStringLiteral("OutputFile")).writableOutput();
    refuseOverwritingInput(args, QStringLiteral("OutputFile"), output, paths);

    const RasterGrid first = gridOf(inputs[0].get());
    RasterGrid grid = first;
    std::vector<BandPick> picks;
    if (!first.georeferenced)
    {
        // Pixel grids only: every input must have the first one's size.
        for (size_t i = 1; i < inputs.size(); ++i)
        {
            const RasterGrid own = gridOf(inputs[i].get());
            if (own.georeferenced || own.width != first.width || own.height != first.height)
                args.refuse(QStringLiteral("InputFiles"), paths[int(i)],
                            QStringLiteral("cannot share a grid with the first raster, which has no georeferencing"));
        }
    }
    else
    {
        double common[4] = {-HUGE_VAL, -HUGE_VAL, HUGE_VAL, HUGE_VAL};
        double resX = HUGE_VAL, resY = HUGE_VAL;
        for (size_t i = 0; i < inputs.size(); ++i)
        {
            double extent[4];
            if (!extentIn(inputs[i].get(), first.wkt, extent))
                args.refuse(QStringLiteral("InputFiles"), paths[int(i)],
                            QStringLiteral("has no georeferencing that places it beside the first raster"));
            const RasterGrid own = gridOf(inputs[i].get());
            // Pixel size in the first raster's units: the extent over the pixel count (exact when the systems agree).
            resX = std::min(resX, (extent[2] - extent[0]) / own.width);
            resY = std::min(resY, (extent[3] - extent[1]) / own.height);
            common[0] = std::max(common[0], extent[0]);
            common[1] = std::max(common[1], extent[1]);
            common[2] = std::min(common[2], extent[2]);
            common[3] = std::min(common[3], extent[3]);
        }
        const double width = std::floor((common[2] - common[0]) / resX + 1e-6);
        const double height = std::floor((common[3] - common[1]) / resY + 1e-6);
        if (!(width >= 1 && height >= 1))
            args.refuse(QStringLiteral("InputFiles"), args.text(QStringLiteral("InputFiles")).value(),
                        QStringLiteral("names rasters that do not overlap"));
        if (width > INT_MAX || height > INT_MAX)
            args.refuse(QStringLiteral("InputFiles"), args.text(QStringLiteral("InputFiles")).value(),
                        QStringLiteral("gives a common grid too large to write"));
        grid.width = int(width);
        grid.height = int(height);
        const double gt[6] = {common[0], resX, 0.0, common[3], 0.0, -resY};
        std::copy(gt, gt + 6, grid.geoTransform);
    }
    for (auto& input : inputs)
        for (int band = 1; band <= input->GetRasterCount(); ++band)
            picks.push_back({input.get(), band, isClassImage(input.get())});

    claim(output);
    BandStack stack(grid, widestType(picks), QString());
    for (const BandPick& pick : picks)
        stack.add(pick);
    write(stack, output, progress);
}

} // namespace datautil
