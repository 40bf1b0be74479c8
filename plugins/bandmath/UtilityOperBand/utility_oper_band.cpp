// Plug-in "UtilityOperBand": evaluates a band-math formula over paired input bands, block by block on all
// cores, and writes the result raster in the requested pixel type with the first input's georeferencing.
#include "algo_math_exp.h"
#include "math_exp_evaluator.h"
#include "pixel_convert.h"
#include "plugin_base.h"
#include "raster_io.h"
#include "thread_config_option.h"
#include "records/bandmath_records.h"

#include <QDir>
#include <QFileInfo>

#include <atomic>
#include <cstring>
#include <map>
#include <mutex>

namespace
{

// One operand of the formula: which input, which band, how it is read, its no-data value.
struct OperandSource
{
    int input = 0;          // index into the distinct input paths
    int band = 1;
    GDALDataType readType = GDT_Float64;
    bool hasNoData = false;
    double noData = 0.0;
};

// What one worker thread owns: its own dataset handles (GDAL handles are not shared between threads),
// read buffers and evaluator.
struct Worker
{
    std::vector<algokit::DatasetPtr> inputs;
    std::vector<std::vector<unsigned char>> raw;
    std::vector<unsigned char> output;
    std::vector<std::uint8_t> invalid;
    std::vector<unsigned char> block;
};

// The blocks of rows [row0, row0 + rows) of a band (row0 a multiple of the block height) in tile order:
// tile (tx, ty) of the row block holds pixels [(ty * columns + tx) * tilePixels, ...), edges padded.
struct TileGrid
{
    int blockX = 1, blockY = 1;
    int columns = 0, rows = 0;
    size_t tilePixels() const { return size_t(blockX) * size_t(blockY); }
    size_t valueCount() const { return size_t(columns) * size_t(rows) * tilePixels(); }
};

TileGrid tileGrid(int blockX, int blockY, int width, int rows)
{
    return TileGrid{blockX, blockY, (width + blockX - 1) / blockX, (rows + blockY - 1) / blockY};
}

CPLErr readTiles(GDALRasterBand* band, int row0, const TileGrid& grid, size_t typeSize, unsigned char* buffer)
{
    for (int ty = 0; ty < grid.rows; ++ty)
        for (int tx = 0; tx < grid.columns; ++tx)
            if (band->ReadBlock(tx, row0 / grid.blockY + ty,
                                buffer + (size_t(ty) * grid.columns + tx) * grid.tilePixels() * typeSize) != CE_None)
                return CE_Failure;
    return CE_None;
}

CPLErr writeTiles(GDALRasterBand* band, int row0, const TileGrid& grid, size_t typeSize, unsigned char* buffer)
{
    for (int ty = 0; ty < grid.rows; ++ty)
        for (int tx = 0; tx < grid.columns; ++tx)
            if (band->WriteBlock(tx, row0 / grid.blockY + ty,
                                 buffer + (size_t(ty) * grid.columns + tx) * grid.tilePixels() * typeSize) != CE_None)
                return CE_Failure;
    return CE_None;
}

// Writes rows [row0, row0 + rows) of a band, given row-major in `pixels`, block by block with WriteBlock;
// row0 is a multiple of the block height. Blocks reaching past the raster are padded with zeros.
CPLErr writeBlocks(GDALRasterBand* band, int row0, int rows, int width, int pixelSize,
                   const std::vector<unsigned char>& pixels, std::vector<unsigned char>& block)
{
    int blockX = 0, blockY = 0;
    band->GetBlockSize(&blockX, &blockY);
    block.assign(size_t(blockX) * size_t(blockY) * size_t(pixelSize), 0);
    const size_t rowBytes = size_t(width) * size_t(pixelSize), blockRowBytes = size_t(blockX) * size_t(pixelSize);
    for (int y0 = 0; y0 < rows; y0 += blockY)
    {
        const int blockRows = std::min(blockY, rows - y0);
        for (int x0 = 0; x0 < width; x0 += blockX)
        {
            const size_t copyBytes = size_t(std::min(blockX, width - x0)) * size_t(pixelSize);
            for (int y = 0; y < blockRows; ++y)
                std::memcpy(block.data() + size_t(y) * blockRowBytes,
                            pixels.data() + size_t(y0 + y) * rowBytes + size_t(x0) * size_t(pixelSize), copyBytes);
            if (band->WriteBlock(x0 / blockX, (row0 + y0) / blockY, block.data()) != CE_None)
                return CE_Failure;
        }
    }
    return CE_None;
}

QString sameFileKey(const QString& path)
{
    const QFileInfo info(path);
    return info.exists() ? info.canonicalFilePath() : info.absoluteFilePath();
}

class UtilityOperBand : public algokit::PluginBase
{
public:
    UtilityOperBand() : PluginBase(QStringLiteral("UtilityOperBand")) {}

protected:
    bool run() override
    {
        const stBandComputeInfo& info = params<stBandComputeInfo>();
        bandmath::AlgoMathExp formula(info.expression.toLocal8Bit());
        if (!formula.parse())
            return fail(formula.errorText());
        const size_t operandCount = formula.bandNumbers().size();
        if (size_t(info.imageList.size()) < operandCount || info.bandList.size() < operandCount)
            return fail(QStringLiteral("Each band operand of the formula needs an image and a band number."));
        if (info.dataType < GDT_Byte || info.dataType > GDT_Float64)
            return fail(QStringLiteral("Unsupported output data type %1: use 1 (Byte) to 7 (Float64).").arg(info.dataType));
        const GDALDataType outputType = GDALDataType(info.dataType);
        if (info.outputFile.isEmpty())
            return fail(QStringLiteral("No output file was given."));

        // Distinct input files, each opened once here for the checks and the georeferencing.
        QStringList paths;
        std::vector<OperandSource> sources(operandCount);
        for (size_t k = 0; k < operandCount; ++k)
        {
            const QString& path = info.imageList[int(k)];
            if (!paths.contains(path))
                paths << path;
            sources[k].input = paths.indexOf(path);
            sources[k].band = info.bandList[k];
        }
        for (const QString& path : paths)
            if (sameFileKey(path) == sameFileKey(info.outputFile))
                return fail(QStringLiteral("The output file \"%1\" is one of the input files.").arg(info.outputFile));

        std::vector<algokit::DatasetPtr> inputs;
        for (const QString& path : paths)
            inputs.push_back(algokit::openRaster(path));
        const int width = inputs[0]->GetRasterXSize(), height = inputs[0]->GetRasterYSize();
        bool anyNoData = false;
        for (size_t k = 0; k < operandCount; ++k)
        {
            GDALDataset* dataset = inputs[size_t(sources[k].input)].get();
            if (dataset->GetRasterXSize() != width || dataset->GetRasterYSize() != height)
                return fail(QStringLiteral("\"%1\" differs in size from \"%2\".").arg(paths[sources[k].input], paths[0]));
            if (sources[k].band < 1 || sources[k].band > dataset->GetRasterCount())
                return fail(QStringLiteral("\"%1\" has no band %2.").arg(paths[sources[k].input]).arg(sources[k].band));
            GDALRasterBand* band = dataset->GetRasterBand(sources[k].band);
            if (GDALDataTypeIsComplex(band->GetRasterDataType()))
                return fail(QStringLiteral("\"%1\": complex bands are not supported.").arg(paths[sources[k].input]));
            sources[k].readType = operband::readTypeFor(band->GetRasterDataType());
            int hasNoData = 0;
            sources[k].noData = band->GetNoDataValue(&hasNoData);
            sources[k].hasNoData = hasNoData != 0;
            anyNoData = anyNoData || sources[k].hasNoData;
        }

        if (!QFileInfo(QFileInfo(info.outputFile).absolutePath()).isDir())
            return fail(QStringLiteral("Cannot create the output file \"%1\": its folder does not exist.")
                            .arg(info.outputFile));
        const QString driver = info.format.isEmpty() ? algokit::driverForPath(info.outputFile) : info.format;
        algokit::OutputRaster output;
        try
        {
            output = algokit::OutputRaster(info.outputFile, driver, width, height, 1, outputType);
        }
        catch (const algokit::AlgoError&)
        {
            return fail(QStringLiteral("Cannot create the output file \"%1\" with the %2 driver: %3")
                            .arg(info.outputFile, driver, QString::fromUtf8(CPLGetLastErrorMsg())));
        }
        output.copyGeoreferencing(inputs[0].get());
        GDALRasterBand* outBand = output.band(0);
        outBand->SetDescription(info.expression.toUtf8().constData());
        if (anyNoData)
            outBand->SetNoDataValue(operband::outputNoData(outputType));
        int outBlockX = 0, outBlockY = 1, inBlockX = 0, inBlockY = 1;
        outBand->GetBlockSize(&outBlockX, &outBlockY);
        inputs[size_t(sources[0].input)]->GetRasterBand(sources[0].band)->GetBlockSize(&inBlockX, &inBlockY);
        // GeoTIFF blocks are written straight to the file, not through GDAL's block cache: no block is
        // allocated and copied per write. When every operand is tiled like the output and read in its own
        // type, whole tiles move between the files and the buffers with no copy at all (tile order).
        const bool writeWholeBlocks = driver == QLatin1String("GTiff");
        bool wholeTiles = writeWholeBlocks;
        for (const OperandSource& source : sources)
        {
            GDALRasterBand* band = inputs[size_t(source.input)]->GetRasterBand(source.band);
            int blockX = 0, blockY = 0;
            band->GetBlockSize(&blockX, &blockY);
            wholeTiles = wholeTiles && blockX == outBlockX && blockY == outBlockY &&
                         source.readType == band->GetRasterDataType();
        }
        inputs.clear(); // the workers open their own handles
        // About two million pixels per row block, whole output blocks so that no block is written twice.
        const int unit = std::max(1, outBlockY);
        const int wanted = std::max({1, inBlockY, int((size_t(2) << 20) / size_t(std::max(1, width)))});
        const int step = std::min(std::max(1, height), (wanted + unit - 1) / unit * unit);

        std::mutex writeLock, progressLock;
        std::atomic<bool> stop(false);
        long long rowsDone = 0;
        auto work = [&](int begin, int end) {
            // Uncompressed GeoTIFF inputs are read straight from the file as well, in this worker only.
            const algokit::ThreadConfigOption directRead("GTIFF_DIRECT_IO", "YES");
            Worker worker;
            for (const QString& path : paths)
                worker.inputs.push_back(algokit::openRaster(path));
            worker.raw.resize(operandCount);
            bandmath::BlockEvaluator evaluator(formula);
            const int chunk = evaluator.blockLength();
            const int outSize = GDALGetDataTypeSizeBytes(outputType);
            // Row blocks whose first row lies in [begin, end) belong to this worker.
            for (int row0 = (begin + step - 1) / step * step; row0 < end && row0 < height; row0 += step)
            {
                if (stop)
                    return;
                const int rows = std::min(step, height - row0);
                const TileGrid grid = tileGrid(outBlockX, outBlockY, width, rows);
                // Values per operand buffer: the row block's pixels, or its whole tiles.
                const size_t pixels = wholeTiles ? grid.valueCount() : size_t(width) * size_t(rows);
                for (size_t k = 0; k < operandCount; ++k)
                {
                    const OperandSource& source = sources[k];
                    const size_t typeSize = size_t(GDALGetDataTypeSizeBytes(source.readType));
                    worker.raw[k].resize(pixels * typeSize);
                    GDALRasterBand* band = worker.inputs[size_t(source.input)]->GetRasterBand(source.band);
                    const CPLErr read = wholeTiles ? readTiles(band, row0, grid, typeSize, worker.raw[k].data())
                                                   : band->RasterIO(GF_Read, 0, row0, width, rows, worker.raw[k].data(),
                                                                    width, rows, source.readType, 0, 0);
                    if (read != CE_None)
                        throw algokit::AlgoError(QStringLiteral("Cannot read \"%1\" at row %2: %3")
                                                     .arg(paths[source.input]).arg(row0)
                                                     .arg(QString::fromUtf8(CPLGetLastErrorMsg())));
                }
                worker.output.resize(pixels * size_t(outSize));
                worker.invalid.resize(size_t(chunk));
                for (size_t p = 0; p < pixels; p += size_t(chunk))
                {
                    const int n = int(std::min(pixels - p, size_t(chunk)));
                    std::uint8_t* invalid = nullptr;
                    if (anyNoData)
                    {
                        invalid = worker.invalid.data();
                        std::fill(invalid, invalid + n, std::uint8_t(0));
                    }
                    for (size_t k = 0; k < operandCount; ++k)
                    {
                        const OperandSource& source = sources[k];
                        double* values = evaluator.bandValues(int(k));
                        const size_t typeSize = size_t(GDALGetDataTypeSizeBytes(source.readType));
                        operband::toDoubles(source.readType, worker.raw[k].data() + p * typeSize, values, n);
                        if (source.hasNoData)
                            operband::markNoData(values, source.noData, invalid, n);
                    }
                    const double* results = evaluator.run(n);
                    operband::fromDoubles(outputType, results, invalid, anyNoData,
                                          worker.output.data() + p * size_t(outSize), n);
                }
                {
                    std::lock_guard<std::mutex> guard(writeLock);
                    CPLErrorReset();
                    CPLErr written = CE_None;
                    if (wholeTiles)
                        written = writeTiles(outBand, row0, grid, size_t(outSize), worker.output.data());
                    else if (writeWholeBlocks)
                        written = writeBlocks(outBand, row0, rows, width, outSize, worker.output, worker.block);
                    else
                    {
                        written = outBand->RasterIO(GF_Write, 0, row0, width, rows, worker.output.data(), width,
                                                    rows, outputType, 0, 0);
                        // Written blocks leave the cache at once, so memory stays flat whatever the raster size.
                        output.get()->FlushCache(false);
                    }
                    if (written != CE_None || CPLGetLastErrorType() == CE_Failure || CPLGetLastErrorType() == CE_Fatal)
                        throw algokit::AlgoError(QStringLiteral("Cannot write \"%1\" at row %2: %3")
                                                     .arg(info.outputFile).arg(row0)
                                                     .arg(QString::fromUtf8(CPLGetLastErrorMsg())));
                }
                for (algokit::DatasetPtr& input : worker.inputs)
                    input->FlushCache(false);
                std::lock_guard<std::mutex> guard(progressLock);
                rowsDone += rows;
                progress(100.0 * double(rowsDone) / double(height));
            }
        };
        algokit::parallelFor(height, [&](int begin, int end) {
            try
            {
                work(begin, end);
            }
            catch (...)
            {
                stop = true;
                throw;
            }
        });
        output.commit();
        return true;
    }
};

} // namespace

ALGO_PLUGIN_FACTORY(UtilityOperBand)
