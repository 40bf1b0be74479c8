// Classification images for plug-ins.
#include "classification_io.h"

#include <QDir>
#include <QUuid>

#include <algorithm>
#include <future>
#include <mutex>
#include <cmath>

namespace algokit
{

void checkBandIndices(GDALDataset* dataset, const std::vector<int>& bands0)
{
    if (bands0.empty())
        throw AlgoError(QStringLiteral("No band is selected."));
    for (int band : bands0)
        if (band < 0 || band >= dataset->GetRasterCount())
            throw AlgoError(QStringLiteral("Band %1 does not exist: the image has %2 bands (numbered from 0).")
                                .arg(band)
                                .arg(dataset->GetRasterCount()));
}

void readPixels(GDALDataset* dataset, const std::vector<int>& bands0, int row0, int rows, std::vector<float>& pixels)
{
    const int width = dataset->GetRasterXSize();
    const int bandCount = int(bands0.size());
    std::vector<int> bands1(bands0.size());
    std::transform(bands0.begin(), bands0.end(), bands1.begin(), [](int b) { return b + 1; });
    pixels.resize(size_t(width) * rows * bandCount);
    if (dataset->RasterIO(GF_Read, 0, row0, width, rows, pixels.data(), width, rows, GDT_Float32, bandCount,
                          bands1.data(), GSpacing(sizeof(float)) * bandCount, GSpacing(sizeof(float)) * bandCount * width,
                          GSpacing(sizeof(float)), nullptr) != CE_None)
        throw AlgoError(QStringLiteral("Reading rows %1 to %2 failed: %3")
                            .arg(row0)
                            .arg(row0 + rows - 1)
                            .arg(QString::fromUtf8(CPLGetLastErrorMsg())));
}

std::vector<float> samplePixels(GDALDataset* dataset, const std::vector<int>& bands0, size_t maxPixels)
{
    const int width = dataset->GetRasterXSize();
    const int height = dataset->GetRasterYSize();
    const size_t total = size_t(width) * height;
    const size_t bandCount = bands0.size();
    std::vector<float> sample;
    std::vector<float> row;
    if (total <= maxPixels)
    {
        readPixels(dataset, bands0, 0, height, sample);
        return sample;
    }
    // Rows evenly spaced; within a row every step-th pixel, with the start shifted from row to row.
    const double fraction = double(maxPixels) / double(total);
    const int rowStep = std::max(1, int(std::floor(1.0 / std::sqrt(fraction))));
    const int sampledRows = (height + rowStep - 1) / rowStep;
    const int columnStep = std::max<int>(1, int(double(width) * sampledRows / double(maxPixels)));
    for (int y = 0, line = 0; y < height; y += rowStep, ++line)
    {
        readPixels(dataset, bands0, y, 1, row);
        for (int x = line % columnStep; x < width; x += columnStep)
            sample.insert(sample.end(), row.begin() + x * bandCount, row.begin() + (x + 1) * bandCount);
    }
    return sample;
}

std::vector<Rgb> distinctColours(int count)
{
    std::vector<Rgb> colours;
    for (int i = 0; i < count; ++i)
    {
        // Golden-angle hue steps keep neighbours apart for any count; value and saturation alternate.
        const double hue = std::fmod(i * 137.508, 360.0) / 60.0;
        const double saturation = i % 2 ? 1.0 : 0.8;
        const double value = i % 3 == 2 ? 0.67 : 0.95;
        const double chroma = value * saturation;
        const double second = chroma * (1.0 - std::fabs(std::fmod(hue, 2.0) - 1.0));
        double r = 0, g = 0, b = 0;
        switch (int(hue))
        {
        case 0: r = chroma, g = second; break;
        case 1: r = second, g = chroma; break;
        case 2: g = chroma, b = second; break;
        case 3: g = second, b = chroma; break;
        case 4: r = second, b = chroma; break;
        default: r = chroma, b = second; break;
        }
        const double m = value - chroma;
        colours.push_back({int(std::lround((r + m) * 255)), int(std::lround((g + m) * 255)), int(std::lround((b + m) * 255))});
    }
    return colours;
}

QStringList defaultClassNames(int count)
{
    QStringList names;
    for (int i = 1; i <= count; ++i)
        names << QStringLiteral("Class_%1").arg(i);
    return names;
}

OutputRaster createClassRaster(const QString& path, GDALDataset* source, const std::vector<Rgb>& colours,
                               const QStringList& names, const QString& driver, GDALDataType type)
{
    const QString driverName = driver.isEmpty() ? driverForPath(path) : driver;
    QStringList options;
    if (driverName == QLatin1String("GTiff"))
        options << QStringLiteral("TILED=YES") << QStringLiteral("COMPRESS=LZW");
    OutputRaster output(path, driverName, source->GetRasterXSize(), source->GetRasterYSize(), 1, type, options);
    output.copyGeoreferencing(source);
    GDALColorTable table;
    for (size_t i = 0; i < colours.size(); ++i)
    {
        const GDALColorEntry entry{short(colours[i][0]), short(colours[i][1]), short(colours[i][2]), 255};
        table.SetColorEntry(int(i), &entry);
    }
    GDALRasterBand* band = output.band(0);
    band->SetColorTable(&table);
    CPLStringList categories;
    for (const QString& name : names)
        categories.AddString(name.toUtf8().constData());
    band->SetCategoryNames(categories.List());
    return output;
}

GDALDataType classDataType(size_t classCount)
{
    return classCount <= 256 ? GDT_Byte : GDT_UInt16;
}

int readRowsWithHalo(GDALRasterBand* band, int row0, int rows, int halo, std::vector<int>& buffer)
{
    const int first = std::max(0, row0 - halo);
    const int last = std::min(band->GetYSize(), row0 + rows + halo);
    readRows(band, first, last - first, buffer);
    return first;
}

ClassTable readClassTable(GDALDataset* dataset)
{
    ClassTable table;
    GDALRasterBand* band = dataset->GetRasterBand(1);
    if (const GDALColorTable* colours = band->GetColorTable())
        for (int i = 0; i < colours->GetColorEntryCount(); ++i)
        {
            const GDALColorEntry* entry = colours->GetColorEntry(i);
            table.colours.push_back({entry->c1, entry->c2, entry->c3});
        }
    for (char** name = band->GetCategoryNames(); name && *name; ++name)
        table.names << QString::fromUtf8(*name);
    if (table.names.isEmpty())
        table.names = defaultClassNames(int(table.colours.size()));
    else if (table.colours.size() > size_t(table.names.size()))
        table.colours.resize(size_t(table.names.size())); // a GeoTIFF palette holds 2^bits entries

    return table;
}

LabelStore::LabelStore(int width, int height) : m_width(width), m_height(height)
{
    const bool inMemory = size_t(width) * size_t(height) <= kMemoryLimit;
    GDALDriver* driver = GetGDALDriverManager()->GetDriverByName(inMemory ? "MEM" : "GTiff");
    if (!inMemory)
        m_temporaryPath = QDir::temp().filePath(QStringLiteral("algo_labels_%1.tif").arg(QUuid::createUuid().toString(QUuid::Id128)));
    const char* options[] = {"BIGTIFF=YES", "TILED=NO", nullptr};
    m_labels.reset(driver->Create(m_temporaryPath.toUtf8().constData(), width, height, 1, GDT_Byte,
                                  inMemory ? nullptr : const_cast<char**>(options)));
    if (!m_labels)
        throw AlgoError(QStringLiteral("Cannot create the label buffer (%1 x %2 pixels).").arg(width).arg(height));
}

LabelStore::~LabelStore()
{
    m_labels.reset();
    if (!m_temporaryPath.isEmpty())
        VSIUnlink(m_temporaryPath.toUtf8().constData());
}

void LabelStore::read(int row0, int rows, std::vector<unsigned char>& labels) const
{
    readRows(m_labels->GetRasterBand(1), row0, rows, labels);
}

void LabelStore::write(int row0, int rows, const std::vector<unsigned char>& labels)
{
    writeRows(m_labels->GetRasterBand(1), row0, rows, labels);
}

void LabelStore::copyTo(GDALRasterBand* band, const std::function<void(double done)>& report,
                        const std::vector<unsigned char>& map) const
{
    std::vector<unsigned char> labels;
    const int step = std::max(1, int((size_t(16) << 20) / size_t(std::max(m_width, 1))));
    forEachRowBlock(m_height, step, [&](int row0, int rows) {
        read(row0, rows, labels);
        if (!map.empty())
            for (unsigned char& label : labels)
                label = map[label];
        writeRows(band, row0, rows, labels);
        report(double(row0 + rows) / m_height);
    });
}

ClusterSums assignPass(GDALDataset* dataset, const std::vector<int>& bands0, const std::vector<double>& centres,
                       LabelStore& labels, bool withSquares, const std::function<void(double done)>& report)
{
    const int bands = int(bands0.size());
    const int classes = int(centres.size() / size_t(bands));
    const int width = dataset->GetRasterXSize();
    const int height = dataset->GetRasterYSize();
    ClusterSums total(classes, bands, withSquares);
    std::vector<float> pixels, next;
    std::vector<unsigned char> previous, current;
    std::mutex merging;
    const int step = rowsPerBlock(dataset, sizeof(float) * size_t(bands));
    // The next block is read while this one is assigned: reading is serial, assignment uses every core.
    auto readAhead = [&](int row0) {
        return std::async(std::launch::async, [&, row0] {
            if (row0 < height)
                readPixels(dataset, bands0, row0, std::min(step, height - row0), next);
        });
    };
    std::future<void> pending = readAhead(0);
    for (int row0 = 0; row0 < height; row0 += step)
    {
        const int rows = std::min(step, height - row0);
        pending.get();
        pixels.swap(next);
        pending = readAhead(row0 + step);
        labels.read(row0, rows, previous);
        current.resize(previous.size());
        const int chunks = std::max(1, rows * width / 1024); // parallelFor wants many small units
        parallelFor(chunks, [&](int begin, int end) {
            ClusterSums local(classes, bands, withSquares);
            const size_t first = size_t(rows) * width * begin / chunks;
            const size_t last = size_t(rows) * width * end / chunks;
            assignNearest(&pixels[first * bands], last - first, bands, centres, &current[first], &previous[first], local);
            std::lock_guard<std::mutex> lock(merging);
            total.merge(local);
        });
        labels.write(row0, rows, current);
        report(double(row0 + rows) / height);
    }
    pending.get();
    return total;
}

} // namespace algokit
