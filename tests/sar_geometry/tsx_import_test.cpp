// TerraSAR-X SSC import: a product built here (level-1 XML and a COSAR file written from the published layout, on
// the simulated orbit) round-trips pixel for pixel; a COSAR header that disagrees with the XML is refused.
#include "AlgoFactory.h"
#include "sar_parameter_file.h"
#include "simulated_scene.h"
#include "test_support.h"

#include <gdal_priv.h>

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTextStream>

#include <complex>

using testsupport::StdoutCapture;

namespace
{

constexpr int kColumns = 12, kRows = 10;
constexpr double kLight = 299792458.0;

QString utc(double secondsOfDay)
{
    const QDateTime day(QDate(2014, 9, 9), QTime(0, 0), Qt::UTC);
    const qint64 micro = qint64(std::llround(secondsOfDay * 1e6));
    return day.addMSecs(micro / 1000).toString("yyyy-MM-ddTHH:mm:ss.zzz") + QString("%1").arg(micro % 1000, 3, 10, QChar('0'));
}

void putBig(QByteArray& b, int at, uint32_t v)
{
    b[at] = char(v >> 24), b[at + 1] = char(v >> 16), b[at + 2] = char(v >> 8), b[at + 3] = char(v);
}

struct Product
{
    QString xml;
    simscene::Scene scene;
    std::vector<std::complex<short>> pixels;
};

// columnsInXml lets a test make the XML disagree with the COSAR header; mark replaces "CSAR".
Product makeProduct(const QString& folder, int columnsInXml = kColumns, const char* mark = "CSAR")
{
    Product p;
    p.scene = simscene::makeScene(kColumns, kRows);
    const SarParameterRecord& s = p.scene.record;
    QDir().mkpath(folder + "/IMAGEDATA");
    const int lineBytes = 8 + 4 * kColumns;
    QByteArray cosar((kRows + 4) * lineBytes, '\0');
    putBig(cosar, 0, uint32_t(cosar.size()));
    putBig(cosar, 4, 1);
    putBig(cosar, 8, kColumns);
    putBig(cosar, 12, kRows);
    putBig(cosar, 16, 1);
    putBig(cosar, 20, uint32_t(lineBytes));
    putBig(cosar, 24, uint32_t(kRows + 4));
    cosar.replace(28, 4, mark);
    for (int y = 0; y < kRows; ++y)
        for (int x = 0; x < kColumns; ++x)
        {
            const std::complex<short> z(short(300 * y - 7 * x), short(-1000 + 13 * x + y));
            p.pixels.push_back(z);
            const int at = (4 + y) * lineBytes + 8 + 4 * x;
            cosar[at] = char(uint16_t(z.real()) >> 8), cosar[at + 1] = char(uint16_t(z.real()) & 0xff);
            cosar[at + 2] = char(uint16_t(z.imag()) >> 8), cosar[at + 3] = char(uint16_t(z.imag()) & 0xff);
        }
    QFile file(folder + "/IMAGEDATA/IMAGE_HH_SRA_strip_007.cos");
    file.open(QIODevice::WriteOnly);
    file.write(cosar);
    file.close();

    QString text;
    QTextStream x(&text);
    x.setRealNumberPrecision(17);
    x << "<level1Product><productInfo><missionInfo><mission>TSX-1</mission><orbitDirection>ASCENDING</orbitDirection>"
      << "</missionInfo><acquisitionInfo><lookDirection>RIGHT</lookDirection><polarisationMode>SINGLE</polarisationMode>"
      << "</acquisitionInfo><imageDataInfo><imageRaster><numberOfRows>" << kRows << "</numberOfRows><numberOfColumns>"
      << columnsInXml << "</numberOfColumns><rowSpacing>2.0e-3</rowSpacing><columnSpacing>6.67e-8</columnSpacing>"
      << "</imageRaster></imageDataInfo><sceneInfo><start><timeUTC>" << utc(s.startTime) << "</timeUTC></start>"
      << "<stop><timeUTC>" << utc(s.endTime) << "</timeUTC></stop><rangeTime><firstPixel>" << 2 * s.nearSlantRange / kLight
      << "</firstPixel><lastPixel>" << 2 * s.farSlantRange / kLight << "</lastPixel></rangeTime>"
      << "<sceneCenterCoord><lat>41.6</lat><lon>12.8</lon><incidenceAngle>35</incidenceAngle></sceneCenterCoord>"
      << "</sceneInfo></productInfo><productComponents><imageData><polLayer>HH</polLayer><file><location><path>IMAGEDATA"
      << "</path><filename>IMAGE_HH_SRA_strip_007.cos</filename></location></file></imageData></productComponents>"
      << "<instrument><radarParameters><centerFrequency>9.65e9</centerFrequency></radarParameters></instrument>"
      << "<productSpecific><complexImageInfo><commonPRF>" << 1.0 / s.azimuthLineTime << "</commonPRF><commonRSF>"
      << kLight / (2 * s.slantRangeSpacing) << "</commonRSF></complexImageInfo></productSpecific>"
      << "<calibration><calibrationConstant><polLayer>HH</polLayer><calFactor>1.2e-5</calFactor></calibrationConstant>"
      << "</calibration><platform><orbit>";
    for (int i = 0; i < s.numStateVectors; ++i)
    {
        const StateVector& v = s.stateVectors[size_t(i)];
        x << "<stateVec><timeUTC>" << utc(s.firstStateTime + i * s.stateVectorTimeSpacing) << "</timeUTC><posX>"
          << v.xPosition << "</posX><posY>" << v.yPosition << "</posY><posZ>" << v.zPosition << "</posZ><velX>"
          << v.xVelocity << "</velX><velY>" << v.yVelocity << "</velY><velZ>" << v.zVelocity << "</velZ></stateVec>";
    }
    x << "</orbit></platform></level1Product>\n";
    x.flush();
    p.xml = folder + "/TSX1_SAR__SSC.xml";
    QFile xmlFile(p.xml);
    xmlFile.open(QIODevice::WriteOnly);
    xmlFile.write(text.toUtf8());
    return p;
}

} // namespace

TEST(TsxImport, SscProductRoundTripsPixelForPixel)
{
    QTemporaryDir dir;
    const Product product = makeProduct(dir.filePath("product"));
    const QString output = dir.filePath("out/tsx.tif");
    StdoutCapture capture;
    const bool ok = ExcuteAlgo_InSAR_TSX_SLCImport(product.xml.toUtf8().constData(), output.toUtf8().constData(), nullptr);
    const std::string text = capture.text();
    ASSERT_TRUE(ok) << text;
    EXPECT_NE(text.find("[OUTPUT] InSAR_TSX_SLCImport_images=\"" + output.toStdString() + "|" +
                        dir.filePath("out/tsx.xml").toStdString() + "\""),
              std::string::npos)
        << text;
    GDALDataset* ds = GDALDataset::Open(output.toUtf8().constData(), GDAL_OF_RASTER);
    ASSERT_TRUE(ds);
    EXPECT_EQ(ds->GetRasterBand(1)->GetRasterDataType(), GDT_CInt16);
    std::vector<std::complex<short>> got(kColumns * kRows);
    ASSERT_EQ(ds->GetRasterBand(1)->RasterIO(GF_Read, 0, 0, kColumns, kRows, got.data(), kColumns, kRows, GDT_CInt16, 0, 0),
              CE_None);
    GDALClose(ds);
    EXPECT_EQ(got, product.pixels);

    SarParameterRecord r;
    ASSERT_TRUE(ReadSarParameterFile(dir.filePath("out/tsx.xml").toUtf8().constData(), r));
    const SarParameterRecord& s = product.scene.record;
    EXPECT_NEAR(r.startTime, s.startTime, 2e-6);
    EXPECT_NEAR(r.azimuthLineTime, s.azimuthLineTime, 1e-9);
    EXPECT_NEAR(r.nearSlantRange, s.nearSlantRange, 1e-3);
    EXPECT_NEAR(r.slantRangeSpacing, s.slantRangeSpacing, 1e-9);
    EXPECT_DOUBLE_EQ(r.calibrationGain, 1.2e-5);
    EXPECT_EQ(r.polarizationType, "HH");
    EXPECT_NEAR(r.sceneCenterLatitude, product.scene.centreLatitude, 1e-5);
    EXPECT_NEAR(r.sceneCenterLongitude, product.scene.centreLongitude, 1e-5);
}

TEST(TsxImport, CosarHeaderThatDisagreesWithTheXmlIsRefused)
{
    QTemporaryDir dir;
    struct Row
    {
        int columns;
        const char* mark;
        std::string message;
    };
    const Row rows[] = {
        {kColumns + 1, "CSAR", "describes 13 x 10 samples but the header of COSAR file"},
        {kColumns, "XXXX", "cannot be used: no CSAR mark in the burst header at byte 0!"},
    };
    int n = 0;
    for (const Row& row : rows)
    {
        const Product product = makeProduct(dir.filePath(QString("p%1").arg(n++)), row.columns, row.mark);
        testsupport::RecordingResult result;
        StdoutCapture capture;
        const QString output = dir.filePath("out/tsx.tif");
        EXPECT_FALSE(ExcuteAlgo_InSAR_TSX_SLCImport(product.xml.toUtf8().constData(), output.toUtf8().constData(),
                                                    &result.record));
        EXPECT_NE(std::string(result.record.message).find(row.message), std::string::npos) << result.record.message;
        EXPECT_FALSE(QFile::exists(output));
    }
}
