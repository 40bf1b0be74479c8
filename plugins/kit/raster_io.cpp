// Block-wise raster I/O for plug-ins.
#include "raster_io.h"

#include <QFile>
#include <QFileInfo>
#include <algorithm>
#include <cpl_string.h>
#include <mutex>
#include <thread>

namespace algokit
{

namespace
{

// GDALAllRegister is not safe on several threads at once. In the library's process the runner has registered the
// drivers before any plug-in runs; a plug-in loaded on its own (tests) registers them once here.
void registerDrivers()
{
    static std::once_flag once;
    std::call_once(once, [] {
        if (GDALGetDriverCount() == 0)
            GDALAllRegister();
    });
}

} // namespace

DatasetPtr openRaster(const QString& path, bool update)
{
    registerDrivers();
    const QByteArray name = path.toUtf8();
    GDALDataset* dataset = GDALDataset::FromHandle(
        GDALOpenEx(name.constData(), GDAL_OF_RASTER | (update ? GDAL_OF_UPDATE : GDAL_OF_READONLY) | GDAL_OF_VERBOSE_ERROR,
                   nullptr, nullptr, nullptr));
    if (!dataset)
        throw AlgoError(QStringLiteral("Cannot open raster: %1").arg(path));
    DatasetPtr opened(dataset);
    checkRasterSize(opened.get(), path);
    return opened;
}

void checkRasterSize(GDALDataset* dataset, const QString& path)
{
    const int width = dataset->GetRasterXSize(), bands = dataset->GetRasterCount();
    if (!fitsInBytes(std::max(1, bands), std::max(0, width), sizeof(double), kMaxRowBytes))
        throw AlgoError(tooLargeMessage(width, dataset->GetRasterYSize(), bands, path));
}

void checkWholeImageSize(GDALDataset* dataset, const QString& path, size_t bytesPerPixel)
{
    const int width = dataset->GetRasterXSize(), height = dataset->GetRasterYSize();
    if (!fitsInBytes(std::max(0, width), std::max(0, height), bytesPerPixel, kMaxImageBytes))
        throw AlgoError(tooLargeMessage(width, height, dataset->GetRasterCount(), path));
}

QString driverForPath(const QString& path)
{
    const QString suffix = QFileInfo(path).suffix().toLower();
    if (suffix == "tif" || suffix == "tiff")
        return QStringLiteral("GTiff");
    if (suffix == "img")
        return QStringLiteral("HFA");
    if (suffix == "png")
        return QStringLiteral("PNG");
    if (suffix == "jpg" || suffix == "jpeg")
        return QStringLiteral("JPEG");
    if (suffix == "vrt")
        return QStringLiteral("VRT");
    return QStringLiteral("ENVI");
}

int rowsPerBlock(GDALDataset* dataset, size_t bytesPerPixel, size_t blockBytes)
{
    int blockX = 0, blockY = 1;
    if (dataset->GetRasterCount() > 0)
        dataset->GetRasterBand(1)->GetBlockSize(&blockX, &blockY);
    blockY = std::max(1, blockY);
    const size_t rowBytes = std::max<size_t>(1, size_t(dataset->GetRasterXSize()) * bytesPerPixel);
    size_t rows = std::max<size_t>(1, blockBytes / rowBytes);
    if (fitsInBytes(size_t(blockY), rowBytes, 1, kMaxRowBytes))
        rows = std::max<size_t>(size_t(blockY), rows / size_t(blockY) * size_t(blockY));
    return int(std::min<size_t>(rows, size_t(std::max(1, dataset->GetRasterYSize()))));
}

void forEachRowBlock(int height, int step, const std::function<void(int, int)>& fn)
{
    step = std::max(1, step);
    for (int row0 = 0; row0 < height; row0 += step)
        fn(row0, std::min(step, height - row0));
}

void parallelFor(int count, const std::function<void(int, int)>& fn)
{
    const int workers = std::max(1, std::min<int>(count / 64 + 1, int(std::thread::hardware_concurrency())));
    if (workers <= 1 || count < 2)
    {
        fn(0, count);
        return;
    }
    std::vector<std::thread> threads;
    std::exception_ptr failure;
    std::mutex failureLock;
    const int chunk = (count + workers - 1) / workers;
    for (int w = 0; w < workers; ++w)
    {
        const int begin = w * chunk, end = std::min(count, begin + chunk);
        if (begin >= end)
            break;
        threads.emplace_back([&, begin, end] {
            try
            {
                fn(begin, end);
            }
            catch (...)
            {
                std::lock_guard<std::mutex> guard(failureLock);
                if (!failure)
                    failure = std::current_exception();
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    if (failure)
        std::rethrow_exception(failure);
}

template <typename T> void readRows(GDALRasterBand* band, int row0, int rows, std::vector<T>& buffer)
{
    const int width = band->GetXSize();
    buffer.resize(size_t(width) * size_t(rows));
    if (band->RasterIO(GF_Read, 0, row0, width, rows, buffer.data(), width, rows, gdalTypeOf<T>(), 0, 0) != CE_None)
        throw AlgoError(QStringLiteral("Read failed at row %1: %2").arg(row0).arg(QString::fromUtf8(CPLGetLastErrorMsg())));
}

template <typename T> void writeRows(GDALRasterBand* band, int row0, int rows, const std::vector<T>& buffer)
{
    const int width = band->GetXSize();
    if (buffer.size() < size_t(width) * size_t(rows))
        throw AlgoError(QStringLiteral("Write buffer too small at row %1").arg(row0));
    if (band->RasterIO(GF_Write, 0, row0, width, rows, const_cast<T*>(buffer.data()), width, rows, gdalTypeOf<T>(), 0, 0) != CE_None)
        throw AlgoError(QStringLiteral("Write failed at row %1: %2").arg(row0).arg(QString::fromUtf8(CPLGetLastErrorMsg())));
}

#define ALGO_INSTANTIATE_IO(T)                                                                     \
    template void readRows<T>(GDALRasterBand*, int, int, std::vector<T>&);                         \
    template void writeRows<T>(GDALRasterBand*, int, int, const std::vector<T>&);
ALGO_INSTANTIATE_IO(unsigned char)
ALGO_INSTANTIATE_IO(unsigned short)
ALGO_INSTANTIATE_IO(short)
ALGO_INSTANTIATE_IO(unsigned int)
ALGO_INSTANTIATE_IO(int)
ALGO_INSTANTIATE_IO(float)
ALGO_INSTANTIATE_IO(double)
#undef ALGO_INSTANTIATE_IO

OutputRaster::OutputRaster(const QString& path, const QString& driver, int width, int height, int bands,
                           GDALDataType type, const QStringList& options)
    : m_path(path), m_driver(driver)
{
    registerDrivers();
    GDALDriver* gdalDriver = GetGDALDriverManager()->GetDriverByName(driver.toUtf8().constData());
    if (!gdalDriver)
        throw AlgoError(QStringLiteral("No raster driver named %1").arg(driver));
    CPLStringList createOptions;
    for (const QString& option : options)
        createOptions.AddString(option.toUtf8().constData());
    if (driver == "GTiff" && options.isEmpty())
    {
        createOptions.AddString("TILED=YES");
        if (double(width) * height * bands * GDALGetDataTypeSizeBytes(type) > 3.9e9)
            createOptions.AddString("BIGTIFF=YES");
    }
    GDALDataset* dataset = gdalDriver->Create(path.toUtf8().constData(), width, height, bands, type, createOptions.List());
    if (!dataset)
        throw AlgoError(QStringLiteral("Cannot create %1: %2").arg(path, QString::fromUtf8(CPLGetLastErrorMsg())));
    m_dataset.reset(dataset);
}

OutputRaster::OutputRaster(OutputRaster&& other) noexcept
    : m_dataset(std::move(other.m_dataset)), m_path(std::move(other.m_path)), m_driver(std::move(other.m_driver))
{
}

OutputRaster& OutputRaster::operator=(OutputRaster&& other) noexcept
{
    if (this != &other)
    {
        discard();
        m_dataset = std::move(other.m_dataset);
        m_path = std::move(other.m_path);
        m_driver = std::move(other.m_driver);
    }
    return *this;
}

OutputRaster::~OutputRaster()
{
    discard();
}

void OutputRaster::copyGeoreferencing(GDALDataset* source)
{
    double transform[6];
    if (source->GetGeoTransform(transform) == CE_None)
        m_dataset->SetGeoTransform(transform);
    if (const OGRSpatialReference* srs = source->GetSpatialRef())
        m_dataset->SetSpatialRef(srs);
    else if (source->GetGCPCount() > 0)
        m_dataset->SetGCPs(source->GetGCPCount(), source->GetGCPs(), source->GetGCPSpatialRef());
}

void OutputRaster::commit()
{
    if (!m_dataset)
        return;
    m_dataset->FlushCache();
    const CPLErr flushError = CPLGetLastErrorType();
    m_dataset.reset();
    m_path.clear();
    (void)flushError;
}

void OutputRaster::discard()
{
    if (!m_dataset)
        return;
    m_dataset.reset();
    deleteRasterFiles(m_path);
    m_path.clear();
}

void deleteRasterFiles(const QString& path)
{
    if (path.isEmpty())
        return;
    const QByteArray name = path.toUtf8();
    CPLPushErrorHandler(CPLQuietErrorHandler);
    GDALDriverH driver = GDALIdentifyDriver(name.constData(), nullptr);
    const bool deleted = driver && GDALDeleteDataset(driver, name.constData()) == CE_None;
    CPLPopErrorHandler();
    if (!deleted)
        QFile::remove(path);
    QFile::remove(path + ".aux.xml");
}

} // namespace algokit
