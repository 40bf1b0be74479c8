// Opening the rasters named in a list argument.
#include "raster_inputs.h"

#include <QFileInfo>

namespace datautil
{

algokit::DatasetPtr openRasterItem(const algokit::GenericParams& args, const QString& key, const QString& path)
{
    if (!algokit::pathExists(path))
        args.refuse(key, path, QStringLiteral("does not exist"));
    algokit::DatasetPtr dataset;
    CPLPushErrorHandler(CPLQuietErrorHandler);
    try
    {
        dataset = algokit::openRaster(path);
    }
    catch (const algokit::AlgoError& error)
    {
        CPLPopErrorHandler();
        if (!error.message().startsWith(QLatin1String("Cannot open raster")))
            throw;
        args.refuse(key, path, QStringLiteral("cannot be opened as a raster"));
    }
    CPLPopErrorHandler();
    if (dataset->GetRasterCount() < 1)
        args.refuse(key, path, QStringLiteral("has no raster band"));
    return dataset;
}

std::vector<algokit::DatasetPtr> openRasterList(const algokit::GenericParams& args, const QString& key)
{
    const algokit::TextParam param = args.text(key);
    const QStringList paths = param.list();
    if (paths.isEmpty())
        args.refuse(key, param.value(), QStringLiteral("names no file"));
    std::vector<algokit::DatasetPtr> datasets;
    for (const QString& path : paths)
        datasets.push_back(openRasterItem(args, key, path));
    return datasets;
}

void refuseOverwritingInput(const algokit::GenericParams& args, const QString& outputKey, const QString& output,
                            const QStringList& inputs)
{
    const QString target = QFileInfo(output).absoluteFilePath();
    for (const QString& input : inputs)
        if (QFileInfo(input).absoluteFilePath() == target)
            args.refuse(outputKey, output, QStringLiteral("names an input file"));
}

} // namespace datautil
