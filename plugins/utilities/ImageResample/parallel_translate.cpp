// gdal_translate with its pixels computed on every core.
#include "parallel_translate.h"

#include "gdal_apps.h"
#include "generic_params.h"

#include <algorithm>
#include <memory>
#include <thread>
#include <vector>

namespace resample
{

namespace
{

// The arguments without the output format and creation options: those of the virtual raster.
CPLStringList virtualArguments(const CPLStringList& argv, QString* format, CPLStringList* creationOptions)
{
    CPLStringList kept;
    for (int i = 0; i < argv.size(); ++i)
    {
        const QByteArray word(argv[i]);
        if ((word == "-of" || word == "-co") && i + 1 < argv.size())
        {
            if (word == "-of")
                *format = QString::fromUtf8(argv[i + 1]);
            else
                creationOptions->AddString(argv[i + 1]);
            ++i;
            continue;
        }
        kept.AddString(argv[i]);
    }
    kept.AddString("-of");
    kept.AddString("VRT");
    return kept;
}

// What CreateCopy would carry over from the virtual raster to a file made with Create.
void copyMetadata(GDALDataset* from, GDALDataset* to)
{
    double transform[6];
    if (from->GetGeoTransform(transform) == CE_None)
        to->SetGeoTransform(transform);
    if (const OGRSpatialReference* srs = from->GetSpatialRef())
        to->SetSpatialRef(srs);
    if (from->GetGCPCount() > 0)
        to->SetGCPs(from->GetGCPCount(), from->GetGCPs(), from->GetGCPSpatialRef());
    if (char** metadata = from->GetMetadata())
        to->SetMetadata(metadata);
    for (const char* domain : {"RPC", "IMAGERY"})
        if (char** metadata = from->GetMetadata(domain))
            to->SetMetadata(metadata, domain);
    for (int b = 1; b <= from->GetRasterCount(); ++b)
    {
        GDALRasterBand* source = from->GetRasterBand(b);
        GDALRasterBand* target = to->GetRasterBand(b);
        if (source->GetDescription() && *source->GetDescription())
            target->SetDescription(source->GetDescription());
        if (char** metadata = source->GetMetadata())
            target->SetMetadata(metadata);
        int hasNoData = FALSE;
        const double noData = source->GetNoDataValue(&hasNoData);
        if (hasNoData)
            target->SetNoDataValue(noData);
        if (const GDALColorTable* colours = source->GetColorTable())
            target->SetColorTable(const_cast<GDALColorTable*>(colours));
        target->SetColorInterpretation(source->GetColorInterpretation());
        int hasValue = FALSE;
        const double offset = source->GetOffset(&hasValue);
        if (hasValue)
            target->SetOffset(offset);
        const double scale = source->GetScale(&hasValue);
        if (hasValue)
            target->SetScale(scale);
        if (source->GetUnitType() && *source->GetUnitType())
            target->SetUnitType(source->GetUnitType());
        if (char** names = source->GetCategoryNames())
            target->SetCategoryNames(names);
    }
}

bool needsSerialPath(GDALDriver* driver, GDALDataset* translated)
{
    if (!driver || !driver->GetMetadataItem(GDAL_DCAP_CREATE))
        return true;
    for (int b = 1; b <= translated->GetRasterCount(); ++b)
    {
        const int flags = translated->GetRasterBand(b)->GetMaskFlags();
        if (!(flags & GMF_ALL_VALID) && !(flags & GMF_NODATA))
            return true;
    }
    return false;
}

// GDAL's translation of `source` as a virtual raster held in memory. (Written out as XML and opened again, a
// virtual raster with an averaging kernel and no-data does not compute the same pixels.)
algokit::DatasetPtr translateVirtually(GDALDataset* source, CPLStringList& virtualArgs)
{
    GDALTranslateOptions* options = GDALTranslateOptionsNew(const_cast<char**>(virtualArgs.List()), nullptr);
    if (!options)
        throw algokit::AlgoError(
            QStringLiteral("Invalid conversion options: %1").arg(QString::fromUtf8(CPLGetLastErrorMsg())));
    int usageError = 0;
    GDALDatasetH made = GDALTranslate("", GDALDataset::ToHandle(source), options, &usageError);
    GDALTranslateOptionsFree(options);
    if (!made || usageError)
    {
        if (made)
            GDALClose(made);
        throw algokit::AlgoError(QStringLiteral("Resampling failed: %1").arg(QString::fromUtf8(CPLGetLastErrorMsg())));
    }
    return algokit::DatasetPtr(GDALDataset::FromHandle(made));
}

} // namespace

void translateOnAllCores(GDALDataset* source, const QString& path, const CPLStringList& argv,
                         algokit::GdalProgress* progress)
{
    QString format;
    CPLStringList creationOptions;
    CPLStringList virtualArgs = virtualArguments(argv, &format, &creationOptions);
    GDALDriver* driver = GetGDALDriverManager()->GetDriverByName(format.toUtf8().constData());
    if (!driver)
        throw algokit::AlgoError(QStringLiteral("GDAL has no driver named %1").arg(format));
    const QString sourcePath = QString::fromUtf8(source->GetDescription());
    algokit::DatasetPtr translated = translateVirtually(source, virtualArgs);
    if (translated->GetRasterCount() < 1 || needsSerialPath(driver, translated.get()) ||
        !algokit::pathExists(sourcePath))
    {
        translated.reset();
        algokit::translateRaster(source, path, argv, progress);
        return;
    }

    const int width = translated->GetRasterXSize(), height = translated->GetRasterYSize();
    const int bands = translated->GetRasterCount();
    const GDALDataType type = translated->GetRasterBand(1)->GetRasterDataType();
    algokit::OutputRaster output(path, format, width, height, bands, type, [&] {
        QStringList options;
        for (int i = 0; i < creationOptions.size(); ++i)
            options << QString::fromUtf8(creationOptions[i]);
        return options;
    }());
    copyMetadata(translated.get(), output.get());

    // One reader (its own source handle and virtual raster) per core; each reads a stripe of whole rows.
    const int workers = int(std::max(1u, std::thread::hardware_concurrency()));
    std::vector<algokit::DatasetPtr> sources, readers;
    for (int w = 0; w < workers; ++w)
    {
        sources.push_back(algokit::openRaster(sourcePath));
        readers.push_back(translateVirtually(sources.back().get(), virtualArgs));
    }
    int blockWidth = 0, blockHeight = 0;
    output.band(0)->GetBlockSize(&blockWidth, &blockHeight);
    const size_t pixelBytes = size_t(GDALGetDataTypeSizeBytes(type)) * size_t(bands);
    // Stripes of whole output blocks, about 8 MB each.
    const int rowsFor8Mb = int(std::min<size_t>(1024, (size_t(8) << 20) / std::max<size_t>(1, pixelBytes * size_t(width))));
    const int blockRows = std::max(1, blockHeight);
    const int stripe = std::max(blockRows, rowsFor8Mb / blockRows * blockRows);
    std::vector<std::vector<unsigned char>> buffers(static_cast<size_t>(workers));
    for (int row0 = 0; row0 < height; row0 += stripe * workers)
    {
        std::vector<std::thread> threads;
        std::vector<CPLErr> errors(size_t(workers), CE_None);
        for (int w = 0; w < workers; ++w)
        {
            const int first = row0 + w * stripe;
            if (first >= height)
                break;
            const int rows = std::min(stripe, height - first);
            threads.emplace_back([&, w, first, rows] {
                buffers[size_t(w)].resize(size_t(rows) * size_t(width) * pixelBytes);
                errors[size_t(w)] = readers[size_t(w)]->RasterIO(GF_Read, 0, first, width, rows, buffers[size_t(w)].data(),
                                                                 width, rows, type, bands, nullptr, 0, 0, 0, nullptr);
            });
        }
        for (std::thread& thread : threads)
            thread.join();
        for (int w = 0; w < int(threads.size()); ++w)
        {
            const int first = row0 + w * stripe;
            const int rows = std::min(stripe, height - first);
            if (errors[size_t(w)] != CE_None ||
                output.get()->RasterIO(GF_Write, 0, first, width, rows, buffers[size_t(w)].data(), width, rows, type,
                                       bands, nullptr, 0, 0, 0, nullptr) != CE_None)
                throw algokit::AlgoError(QStringLiteral("Writing %1 failed at row %2: %3")
                                             .arg(path)
                                             .arg(first)
                                             .arg(QString::fromUtf8(CPLGetLastErrorMsg())));
        }
        if (progress && !algokit::GdalProgress::callback(double(std::min(height, row0 + stripe * workers)) / height,
                                                         nullptr, progress))
            progress->rethrowIfCancelled();
    }
    readers.clear();
    sources.clear();
    output.commit();
}

} // namespace resample
