// Sizes read from a raster's header are not believed beyond what memory can hold: a virtual raster claiming
// 10^9 x 10^9 pixels (a few hundred bytes on disk) is refused by name and size before anything is allocated
// for it, and a file opened for update is left as it was.
#include "test_support.h"

#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include <gdal_priv.h>

using namespace testsupport;

namespace
{

constexpr int kHuge = 1000000000;

// A VRT of width x height pixels without sources; with a palette when `classes` is set.
QString makeVirtualRaster(const QTemporaryDir& dir, const QString& name, int width, int height, bool classes = false)
{
    GDALAllRegister();
    const QString path = dir.filePath(name);
    GDALDriver* driver = GetGDALDriverManager()->GetDriverByName("VRT");
    GDALDataset* dataset = driver->Create(path.toUtf8().constData(), width, height, 1, GDT_Byte, nullptr);
    if (!dataset)
        return QString();
    const double transform[6] = {100.0, 1.0, 0.0, 200.0, 0.0, -1.0};
    dataset->SetGeoTransform(const_cast<double*>(transform));
    if (classes)
    {
        GDALColorTable palette;
        const GDALColorEntry black{0, 0, 0, 255}, red{255, 0, 0, 255};
        palette.SetColorEntry(0, &black);
        palette.SetColorEntry(1, &red);
        dataset->GetRasterBand(1)->SetColorTable(&palette);
    }
    GDALClose(GDALDataset::ToHandle(dataset));
    return path;
}

QByteArray contents(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QString tooLarge(const QString& path, int width, int height)
{
    return QString("%1: The image is too large to read: %2 x %3 pixels in 1 bands.").arg(path).arg(width).arg(height);
}

} // namespace

TEST(SizeLimits, PlugInsRefuseRowsWiderThanMemoryByNameAndSize)
{
    QTemporaryDir dir;
    const QString huge = makeVirtualRaster(dir, "huge.vrt", kHuge, kHuge);
    ASSERT_FALSE(huge.isEmpty());
    const QByteArray in = huge.toUtf8();
    const QByteArray out = dir.filePath("out.tif").toUtf8(), stats = dir.filePath("stats.txt").toUtf8();
    const std::vector<std::pair<const char*, std::function<bool(AlgoResult*)>>> calls = {
        {"principal components", [&](AlgoResult* r) { return ExcuteAlgo_PCATransformFunc(in, out, stats, 6, r); }},
        {"minimum noise fraction", [&](AlgoResult* r) { return ExcuteAlgo_MNFTransformFunc(in, out, stats, 6, r); }},
        {"mean filter", [&](AlgoResult* r) { return ExcuteAlgo_ImgProFiltSpaMean(in, out, 3, "1", 0, r); }},
    };
    for (const auto& call : calls)
    {
        RecordingResult result;
        StdoutCapture capture;
        EXPECT_FALSE(call.second(&result.record)) << call.first;
        capture.text();
        EXPECT_EQ(QString::fromUtf8(result.record.message), tooLarge(huge, kHuge, kHuge)) << call.first;
        EXPECT_FALSE(QFileInfo::exists(out)) << call.first;
        EXPECT_FALSE(QFileInfo::exists(stats)) << call.first;
    }
}

TEST(SizeLimits, DefiningTheReferenceSystemOfAnImpossibleRasterLeavesItUntouched)
{
    QTemporaryDir dir;
    const QString huge = makeVirtualRaster(dir, "huge.vrt", kHuge, kHuge);
    ASSERT_FALSE(huge.isEmpty());
    const QByteArray before = contents(huge);
    RecordingResult result;
    StdoutCapture capture;
    EXPECT_FALSE(ExcuteAlgo_ProjectDef(huge.toUtf8(), "EPSG:4326", &result.record));
    capture.text();
    EXPECT_EQ(QString::fromUtf8(result.record.message), tooLarge(huge, kHuge, kHuge));
    EXPECT_EQ(contents(huge), before);
}

TEST(SizeLimits, WholeImageTransformsRefuseImagesWhoseRowsFitButWholeBandsDoNot)
{
    // 70 000 x 70 000: a row is 560 kB of doubles, a whole band as complex numbers 78 GB.
    QTemporaryDir dir;
    const QString large = makeVirtualRaster(dir, "large.vrt", 70000, 70000);
    ASSERT_FALSE(large.isEmpty());
    const QByteArray in = large.toUtf8(), out = dir.filePath("out.tif").toUtf8();
    RecordingResult fourier, lowPass;
    StdoutCapture capture;
    EXPECT_FALSE(ExcuteAlgo_FFTransformFunc(in, out, &fourier.record));
    EXPECT_FALSE(ExcuteAlgo_ImgProFiltFrequency(in, out, "1", 0, 0, 0, 30, 0, &lowPass.record));
    capture.text();
    EXPECT_EQ(QString::fromUtf8(fourier.record.message), tooLarge(large, 70000, 70000));
    EXPECT_EQ(QString::fromUtf8(lowPass.record.message), tooLarge(large, 70000, 70000));
    EXPECT_FALSE(QFileInfo::exists(out));
}

TEST(SizeLimits, ClassStatisticsRefuseARowWiderThanMemory)
{
    QTemporaryDir dir;
    const QString huge = makeVirtualRaster(dir, "classes.vrt", kHuge, 4, true);
    ASSERT_FALSE(huge.isEmpty());
    const QString report = dir.filePath("report.txt");
    StdoutCapture capture;
    EXPECT_FALSE(ExcuteAlgo_ImgClassPostSta(huge.toUtf8(), report.toUtf8(), nullptr));
    EXPECT_EQ(capture.text(), "[ERROR] ExcuteAlgo_ImgClassPostSta: The image is too large to read: 1000000000 x 4 "
                              "pixels in 1 bands.\n");
    EXPECT_FALSE(QFileInfo::exists(report));
}
