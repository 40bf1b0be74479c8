// ALOS PALSAR / PALSAR-2 CEOS import: the real ALOS-2 leader read field by field, its cut image files refused, and a
// level 1.1 product built here from the CEOS layout (on the simulated orbit) imported pixel for pixel.
#include "AlgoFactory.h"
#include "ceos_reader.h"
#include "s1_product.h"
#include "sar_parameter_file.h"
#include "simulated_scene.h"
#include "test_support.h"

#include <gdal_priv.h>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <cmath>
#include <complex>
#include <cstring>

using testsupport::StdoutCapture;

namespace
{

const char* kAlos2 = "alos2/0000022708_001001_ALOS2015976960-140909.zip";
const char* kLeader = "/vsizip/{zip}/LED-ALOS2015976960-140909-FBDR1.5GUA";

// A CEOS record of `length` bytes: 12-byte header (sequence, subtypes, big-endian length), blanks after it.
std::string record(int sequence, unsigned char subtype, size_t length)
{
    std::string r(length, ' ');
    const unsigned char header[12] = {0, 0, 0, (unsigned char)sequence, 18, subtype, 18, 20,
                                      (unsigned char)(length >> 24), (unsigned char)(length >> 16),
                                      (unsigned char)(length >> 8), (unsigned char)length};
    std::memcpy(&r[0], header, 12);
    return r;
}

// Text right-aligned in bytes from..to (1-based, inclusive).
void put(std::string& r, size_t from, size_t to, const std::string& text)
{
    const size_t width = to - from + 1;
    const std::string padded = text.size() >= width ? text.substr(0, width) : std::string(width - text.size(), ' ') + text;
    r.replace(from - 1, width, padded);
}

void putBig(unsigned char* p, uint32_t v)
{
    p[0] = (unsigned char)(v >> 24), p[1] = (unsigned char)(v >> 16), p[2] = (unsigned char)(v >> 8), p[3] = (unsigned char)v;
}

std::string number(double v)
{
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, "%22.15E", v);
    return buffer;
}

struct SmallProduct
{
    QString folder;
    simscene::Scene scene;
    std::vector<std::complex<float>> pixels;
    std::vector<uint16_t> amplitudes; // level 1.5
};

// A PALSAR-2 level 1.1 product of 24 x 16 samples, one polarisation (HH), on the simulated orbit; with
// `levelOneFive`, a detected level 1.5 product of the same size (16-bit samples after 192-byte prefixes).
SmallProduct makeProduct(const QString& parent, bool levelOneFive = false)
{
    SmallProduct p;
    p.folder = parent + "/product";
    QDir().mkpath(p.folder);
    p.scene = simscene::makeScene(24, 16);
    const SarParameterRecord& s = p.scene.record;
    const double samplingRate = 299792458.0 / (2 * s.slantRangeSpacing);

    std::string leader = record(1, 192, 720);
    std::string summary = record(2, 10, 4096);
    put(summary, 69, 100, "20140909111640000");
    put(summary, 117, 132, "41.6");
    put(summary, 133, 148, "12.8");
    put(summary, 181, 196, "6378.1370000");
    put(summary, 197, 212, "6356.7523141");
    put(summary, 501, 516, "0.2424525");
    put(summary, 711, 726, QString::number(samplingRate * 1e-6, 'f', 7).toStdString());
    put(summary, 935, 950, "500000.0");
    std::string platform = record(3, 30, 4680);
    put(platform, 141, 144, "28");
    put(platform, 145, 148, "2014");
    put(platform, 149, 152, "9");
    put(platform, 153, 156, "9");
    put(platform, 161, 182, number(s.firstStateTime));
    put(platform, 183, 204, number(s.stateVectorTimeSpacing));
    for (int k = 0; k < 28; ++k)
    {
        const StateVector& v = s.stateVectors[size_t(k)];
        const double values[6] = {v.xPosition, v.yPosition, v.zPosition, v.xVelocity, v.yVelocity, v.zVelocity};
        for (int i = 0; i < 6; ++i)
            put(platform, 387 + size_t(k) * 132 + size_t(i) * 22, 387 + size_t(k) * 132 + size_t(i) * 22 + 21, number(values[i]));
    }
    const QString level = levelOneFive ? "1.5GUA" : "1.1";
    QFile led(p.folder + "/LED-ALOS2TEST-FBSR" + level);
    led.open(QIODevice::WriteOnly);
    led.write((leader + summary + platform).data(), qint64(leader.size() + summary.size() + platform.size()));
    led.close();

    const int width = 24, lines = 16, prefix = levelOneFive ? 192 : 544, sampleBytes = levelOneFive ? 2 : 8;
    const int recordLength = prefix + width * sampleBytes;
    std::string descriptor = record(1, 192, 720);
    put(descriptor, 181, 186, "16");
    put(descriptor, 187, 192, std::to_string(recordLength));
    put(descriptor, 217, 220, levelOneFive ? "16" : "32");
    put(descriptor, 237, 244, "16");
    put(descriptor, 249, 256, "24");
    put(descriptor, 277, 280, std::to_string(prefix));
    put(descriptor, 281, 288, std::to_string(width * sampleBytes));
    descriptor.replace(400, 28, levelOneFive ? "IU2                         " : "C*8                         ");
    std::string image = descriptor;
    for (int y = 0; y < lines; ++y)
    {
        std::string rec = record(y + 2, 10, size_t(recordLength));
        unsigned char* q = reinterpret_cast<unsigned char*>(&rec[0]);
        const double t = s.startTime + y * s.azimuthLineTime;
        putBig(q + 12, uint32_t(y + 1));
        putBig(q + 36, 2014);
        putBig(q + 40, 252); // 9 September 2014
        putBig(q + 44, uint32_t(std::lround(t * 1000.0)));
        if (levelOneFive)
        {
            for (int x = 0; x < width; ++x)
            {
                const uint16_t value = uint16_t(1000 + 37 * y + x);
                p.amplitudes.push_back(value);
                q[prefix + 2 * x] = uint8_t(value >> 8);
                q[prefix + 2 * x + 1] = uint8_t(value & 0xff);
            }
            image += rec;
            continue;
        }
        putBig(q + 56, uint32_t(std::lround(1e3 / s.azimuthLineTime)));
        putBig(q + 116, uint32_t(std::lround(s.nearSlantRange)));
        for (int x = 0; x < width; ++x)
        {
            const std::complex<float> z(float(100 * y + x) + 0.25f, -float(x) - 0.5f);
            p.pixels.push_back(z);
            for (int part = 0; part < 2; ++part)
            {
                const float value = part ? z.imag() : z.real();
                uint32_t bits;
                std::memcpy(&bits, &value, 4);
                putBig(q + prefix + x * 8 + part * 4, bits);
            }
        }
        image += rec;
    }
    QFile img(p.folder + "/IMG-HH-ALOS2TEST-FBSR" + level);
    img.open(QIODevice::WriteOnly);
    img.write(image.data(), qint64(image.size()));
    return p;
}

} // namespace

TEST(PalsarImport, RealAlos2LeaderAndCutImageFiles)
{
    SKIP_WITHOUT_SHARED_DATA(kAlos2);
    const QString zip = testsupport::sharedDataPath(kAlos2);
    const sargeo::CeosLeader leader =
        sargeo::readCeosLeader(sargeo::readVirtualFile(QString(kLeader).replace("{zip}", zip)));
    EXPECT_DOUBLE_EQ(leader.wavelength, 0.2424525);
    EXPECT_EQ(leader.sceneCentreTime.substr(0, 17), "20140909043347052"); // summary.txt: 04:33:47.052
    EXPECT_NEAR(leader.centreLatitude, -11.05, 0.01);                       // summary.txt: -11.050
    EXPECT_NEAR(leader.rangeSamplingRate, 34.9305319e6, 1.0);
    ASSERT_EQ(leader.vectors.size(), 28u);
    EXPECT_DOUBLE_EQ(leader.firstTime, 15600.0);
    EXPECT_DOUBLE_EQ(leader.interval, 60.0);
    for (const sargeo::CeosStateVector& v : leader.vectors)
    {
        const double r = std::sqrt(v.position[0] * v.position[0] + v.position[1] * v.position[1] + v.position[2] * v.position[2]);
        const double speed = std::sqrt(v.velocity[0] * v.velocity[0] + v.velocity[1] * v.velocity[1] + v.velocity[2] * v.velocity[2]);
        EXPECT_NEAR(r, 7.0e6, 0.05e6);   // about 628 km above the Earth
        EXPECT_NEAR(speed, 7.5e3, 0.2e3);
    }

    QTemporaryDir dir;
    testsupport::RecordingResult result;
    StdoutCapture capture;
    EXPECT_FALSE(ExcuteAlgo_PALSAR2_SLCDataImport(zip.toUtf8().constData(), dir.filePath("out").toUtf8().constData(),
                                                  &result.record));
    EXPECT_NE(std::string(result.record.message)
                  .find("holds a cut image file IMG-HH-ALOS2015976960-140909-FBDR1.5GUA: 0 of its 13161 image records "
                        "are present!"),
              std::string::npos)
        << result.record.message;
    EXPECT_NE(capture.text().find("[ERROR] PALSAR2_SLCDataImport: the parameter InputDir"), std::string::npos);
    EXPECT_FALSE(QDir(dir.filePath("out")).exists());
}

TEST(PalsarImport, LevelOneOneProductRoundTripsPixelForPixel)
{
    QTemporaryDir dir;
    const SmallProduct product = makeProduct(dir.path());
    const QString out = dir.filePath("out");
    StdoutCapture capture;
    const bool ok = ExcuteAlgo_PALSAR2_SLCDataImport(product.folder.toUtf8().constData(), out.toUtf8().constData(), nullptr);
    const std::string text = capture.text();
    ASSERT_TRUE(ok) << text;
    const QString image = out + "/IMG-HH-ALOS2TEST-FBSR1.1.tif";
    EXPECT_NE(text.find("[OUTPUT] PALSAR2_SLCDataImport_images=\"" + image.toStdString() + "|" +
                        (out + "/IMG-HH-ALOS2TEST-FBSR1.1.xml").toStdString() + "\""),
              std::string::npos)
        << text;
    GDALDataset* ds = GDALDataset::Open(image.toUtf8().constData(), GDAL_OF_RASTER);
    ASSERT_TRUE(ds);
    std::vector<std::complex<float>> got(24 * 16);
    ASSERT_EQ(ds->GetRasterBand(1)->RasterIO(GF_Read, 0, 0, 24, 16, got.data(), 24, 16, GDT_CFloat32, 0, 0), CE_None);
    EXPECT_EQ(ds->GetRasterBand(1)->GetRasterDataType(), GDT_CFloat32);
    GDALClose(ds);
    EXPECT_EQ(got, product.pixels);

    SarParameterRecord r;
    ASSERT_TRUE(ReadSarParameterFile((out + "/IMG-HH-ALOS2TEST-FBSR1.1.xml").toUtf8().constData(), r));
    const SarParameterRecord& s = product.scene.record;
    EXPECT_NEAR(r.startTime, s.startTime, 5e-4);                 // milliseconds in the records
    EXPECT_NEAR(r.nearSlantRange, s.nearSlantRange, 0.5);        // whole metres in the records
    EXPECT_NEAR(r.slantRangeSpacing, s.slantRangeSpacing, 1e-6);
    EXPECT_NEAR(r.azimuthLineTime, s.azimuthLineTime, 1e-4);
    EXPECT_DOUBLE_EQ(r.radarWavelength, 0.2424525);
    EXPECT_EQ(r.sensor, "ALOS2");
    EXPECT_EQ(r.imageGeometry, "SLANT_RANGE");
    ASSERT_EQ(r.numStateVectors, 28);
    EXPECT_NEAR(r.stateVectors[5].xPosition, s.stateVectors[5].xPosition, 1e-6 * std::abs(s.stateVectors[5].xPosition));
    // The centre falls where the simulated scene was centred (within the rounding of range and time).
    EXPECT_NEAR(r.sceneCenterLatitude, product.scene.centreLatitude, 1e-4);
    EXPECT_NEAR(r.sceneCenterLongitude, product.scene.centreLongitude, 1e-4);

    // One record short: refused as cut, nothing written.
    QFile img(product.folder + "/IMG-HH-ALOS2TEST-FBSR1.1");
    ASSERT_TRUE(img.resize(img.size() - 100));
    testsupport::RecordingResult result;
    StdoutCapture again;
    EXPECT_FALSE(ExcuteAlgo_PALSAR2_SLCDataImport(product.folder.toUtf8().constData(),
                                                  dir.filePath("out2").toUtf8().constData(), &result.record));
    EXPECT_NE(std::string(result.record.message).find("15 of its 16 image records are present!"), std::string::npos)
        << result.record.message;
    EXPECT_FALSE(QDir(dir.filePath("out2")).exists());
}

TEST(PalsarImport, LevelOneFiveTimesFromTheProcessedDataRecordsOrTheLeader)
{
    QTemporaryDir dir;
    const SmallProduct product = makeProduct(dir.path(), true);
    const SarParameterRecord& s = product.scene.record;
    const QString out = dir.filePath("out");
    StdoutCapture capture;
    ASSERT_TRUE(ExcuteAlgo_PALSAR2_SLCDataImport(product.folder.toUtf8().constData(), out.toUtf8().constData(), nullptr))
        << capture.text();
    const QString image = out + "/IMG-HH-ALOS2TEST-FBSR1.5GUA.tif";
    GDALDataset* ds = GDALDataset::Open(image.toUtf8().constData(), GDAL_OF_RASTER);
    ASSERT_TRUE(ds);
    std::vector<uint16_t> got(24 * 16);
    ASSERT_EQ(ds->GetRasterBand(1)->RasterIO(GF_Read, 0, 0, 24, 16, got.data(), 24, 16, GDT_UInt16, 0, 0), CE_None);
    GDALClose(ds);
    EXPECT_EQ(got, product.amplitudes);
    SarParameterRecord r;
    ASSERT_TRUE(ReadSarParameterFile((out + "/IMG-HH-ALOS2TEST-FBSR1.5GUA.xml").toUtf8().constData(), r));
    // The first and last records' milliseconds of the day, as written above.
    EXPECT_NEAR(r.startTime, std::lround(s.startTime * 1000.0) * 1e-3, 1e-9);
    EXPECT_NEAR(r.endTime, std::lround((s.startTime + 15 * s.azimuthLineTime) * 1000.0) * 1e-3, 1e-9);
    EXPECT_NEAR(r.azimuthLineTime, s.azimuthLineTime, 1e-4);
    EXPECT_EQ(r.rawDataStartTime, "2014-09-09");
    EXPECT_EQ(r.imageDataType, "DETECTED");

    // Records without a date (zeros where the year would be): the leader's scene centre time, 11:16:40.000.
    QFile img(product.folder + "/IMG-HH-ALOS2TEST-FBSR1.5GUA");
    ASSERT_TRUE(img.open(QIODevice::ReadWrite));
    QByteArray bytes = img.readAll();
    const int recordLength = 192 + 24 * 2;
    for (int y = 0; y < 16; ++y)
        std::memset(bytes.data() + 720 + y * recordLength + 36, 0, 12);
    img.seek(0);
    img.write(bytes);
    img.close();
    const QString out2 = dir.filePath("out2");
    StdoutCapture again;
    ASSERT_TRUE(ExcuteAlgo_PALSAR2_SLCDataImport(product.folder.toUtf8().constData(), out2.toUtf8().constData(), nullptr))
        << again.text();
    ASSERT_TRUE(ReadSarParameterFile((out2 + "/IMG-HH-ALOS2TEST-FBSR1.5GUA.xml").toUtf8().constData(), r));
    EXPECT_DOUBLE_EQ(r.startTime, 11 * 3600 + 16 * 60 + 40.0);
    EXPECT_DOUBLE_EQ(r.centerTime, r.startTime);
}
