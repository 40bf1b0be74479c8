// Sentinel-1: the annotation reader and deburst arithmetic on the real IW SLC annotation, the parameter record
// against the annotation's own numbers and geolocation grid, and the import entry on a small SAFE built here.
#include "AlgoFactory.h"
#include "s1_annotation.h"
#include "s1_product.h"
#include "sar_parameter_file.h"
#include "simulated_scene.h"
#include "test_support.h"
#include "tops_deburst.h"

#include <cpl_vsi.h>
#include <gdal_priv.h>

#include <QDateTime>
#include <QDir>
#include <QDomDocument>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTextStream>

#include <cmath>
#include <complex>

using testsupport::StdoutCapture;

namespace
{

const char* kEfa4 = "sentinel1/S1B_IW_SLC__1SDV_20210401T052622_20210401T052650_026269_032297_EFA4.SAFE";
constexpr double kLight = 299792458.0;

QDomDocument domOf(const QString& path)
{
    QFile file(path);
    QDomDocument doc;
    if (file.open(QIODevice::ReadOnly))
        doc.setContent(&file);
    return doc;
}

double seconds(const QString& utc)
{
    QDateTime t = QDateTime::fromString(utc.left(19), "yyyy-MM-ddTHH:mm:ss");
    t.setTimeSpec(Qt::UTC);
    return double(t.toSecsSinceEpoch()) + utc.mid(19).toDouble();
}

} // namespace

TEST(S1Import, RealAnnotationDeburstCountsAndParameterRecord)
{
    SKIP_WITHOUT_SHARED_DATA(kEfa4);
    const QString safe = testsupport::sharedDataPath(kEfa4);
    const sargeo::S1Product product(safe);
    EXPECT_EQ(product.swaths(), QStringList({"IW1", "IW2"}));
    const QString annotationPath =
        safe + "/annotation/s1b-iw1-slc-vv-20210401t052624-20210401t052649-026269-032297-004.xml";
    const sargeo::S1Annotation a = sargeo::readS1Annotation(sargeo::readVirtualFile(annotationPath));
    const sargeo::DeburstPlan plan = sargeo::planDeburst(a);

    // The same counts straight from the XML (Qt's DOM): the span from the first burst's first valid line to the
    // last burst's last valid line, bursts placed by their azimuth times.
    const QDomDocument doc = domOf(annotationPath);
    const double dt = doc.elementsByTagName("azimuthTimeInterval").at(0).toElement().text().toDouble();
    const QDomNodeList bursts = doc.elementsByTagName("burst");
    ASSERT_EQ(bursts.size(), 9);
    auto validLines = [&](int k, int* first, int* last) {
        const QStringList values =
            bursts.at(k).firstChildElement("firstValidSample").text().split(' ', Qt::SkipEmptyParts);
        *first = -1;
        for (int i = 0; i < values.size(); ++i)
            if (values[i].toInt() >= 0)
            {
                if (*first < 0)
                    *first = i;
                *last = i;
            }
    };
    int firstOfFirst, lastOfFirst, firstOfLast, lastOfLast;
    validLines(0, &firstOfFirst, &lastOfFirst);
    validLines(8, &firstOfLast, &lastOfLast);
    const double t0 = seconds(bursts.at(0).firstChildElement("azimuthTime").text());
    const double t8 = seconds(bursts.at(8).firstChildElement("azimuthTime").text());
    const int expectedLines = int(std::lround((t8 - t0) / dt)) + lastOfLast - firstOfFirst + 1;
    EXPECT_EQ(plan.lines, expectedLines);
    EXPECT_EQ(plan.samples, doc.elementsByTagName("samplesPerBurst").at(0).toElement().text().toInt());
    int covered = 0;
    for (const sargeo::BurstPiece& piece : plan.pieces)
        covered += piece.lineCount;
    EXPECT_EQ(covered, plan.lines); // the bursts of this swath overlap: no gap

    const SarParameterRecord r = sargeo::s1ParameterRecord(a, product.name(), 2, plan.firstLineTime, plan.lines,
                                                           plan.samples);
    const double slantRangeTime = doc.elementsByTagName("slantRangeTime").at(0).toElement().text().toDouble();
    EXPECT_DOUBLE_EQ(r.nearSlantRange, slantRangeTime * kLight / 2.0);
    EXPECT_EQ(r.numberOfRows, expectedLines);
    EXPECT_EQ(r.orbitDirection, "DESCENDING");
    EXPECT_EQ(r.polarizationMode, "DUAL");
    EXPECT_EQ(r.rawDataStartTime.substr(0, 19), "2021-04-01 05:26:24");
    const QDomNodeList orbits = doc.elementsByTagName("orbit");
    ASSERT_EQ(r.numStateVectors, orbits.size());
    for (int i = 0; i < orbits.size(); ++i)
    {
        const QDomElement o = orbits.at(i).toElement();
        EXPECT_DOUBLE_EQ(r.stateVectors[size_t(i)].xPosition,
                         o.firstChildElement("position").firstChildElement("x").text().toDouble());
        EXPECT_DOUBLE_EQ(r.stateVectors[size_t(i)].zVelocity,
                         o.firstChildElement("velocity").firstChildElement("z").text().toDouble());
    }
    EXPECT_NEAR(r.firstStateTime + (orbits.size() - 1) * r.stateVectorTimeSpacing - r.firstStateTime,
                seconds(orbits.at(orbits.size() - 1).firstChildElement("time").text()) -
                    seconds(orbits.at(0).firstChildElement("time").text()),
                1e-6);

    // Our orbit and range-Doppler model against the product's own geolocation grid: azimuth and range time of
    // every grid point from its latitude, longitude and height.
    const sargeo::RangeDoppler model = sargeo::rangeDopplerFromRecord(r);
    double worstLines = 0, worstSamples = 0;
    for (const sargeo::S1GridPoint& p : a.geolocationGrid)
    {
        double line, pixel;
        ASSERT_TRUE(model.groundToImage(sargeo::geodeticToEcef(p.latitude, p.longitude, p.height), &line, &pixel));
        worstLines = std::max(worstLines, std::abs(line - (p.azimuthTime - plan.firstLineTime) / dt));
        worstSamples = std::max(worstSamples, std::abs(pixel - p.pixel));
    }
    EXPECT_LT(worstLines, 0.5);
    EXPECT_LT(worstSamples, 0.5);
    RecordProperty("grid_worst_lines", std::to_string(worstLines));
    RecordProperty("grid_worst_samples", std::to_string(worstSamples));
}

namespace
{

// A SAFE folder with one IW1 VV SLC of three bursts (6 lines x 12 samples, 4 lines apart) on the simulated orbit.
struct SmallSafe
{
    QString root;
    std::vector<std::complex<short>> pixels; // burst-stacked measurement, 18 x 12
    std::vector<std::vector<int>> firstValid, lastValid;
};

QString utc(double secondsOfDay)
{
    const QDateTime day(QDate(2021, 4, 1), QTime(0, 0), Qt::UTC);
    return day.addMSecs(qint64(std::floor(secondsOfDay * 1000.0))).toString("yyyy-MM-ddTHH:mm:ss.zzz") +
           QString("%1").arg(qint64(std::lround(std::fmod(secondsOfDay * 1e6, 1000.0))), 3, 10, QChar('0'));
}

SmallSafe makeSmallSafe(const QString& folder)
{
    SmallSafe safe;
    safe.root = folder + "/S1A_IW_SLC__1SSV_TEST.SAFE";
    QDir().mkpath(safe.root + "/annotation/calibration");
    QDir().mkpath(safe.root + "/measurement");
    QFile manifest(safe.root + "/manifest.safe");
    manifest.open(QIODevice::WriteOnly);
    manifest.write("<xfdu/>\n");
    manifest.close();

    const simscene::Scene scene = simscene::makeScene(12, 14);
    const SarParameterRecord& sim = scene.record;
    const double dt = sim.azimuthLineTime;
    const QString stem = "s1a-iw1-slc-vv-20210401t110640-20210401t110641-000001-000001-001";
    QString xml;
    QTextStream x(&xml);
    x.setRealNumberPrecision(17);
    x << "<product><adsHeader><missionId>S1A</missionId><productType>SLC</productType><polarisation>VV</polarisation>"
      << "<mode>IW</mode><swath>IW1</swath><startTime>" << utc(sim.startTime) << "</startTime></adsHeader>"
      << "<generalAnnotation><productInformation><pass>Ascending</pass><platformHeading>-12.0</platformHeading>"
      << "<rangeSamplingRate>" << kLight / (2 * sim.slantRangeSpacing) << "</rangeSamplingRate>"
      << "<radarFrequency>5.405e9</radarFrequency></productInformation>"
      << "<downlinkInformationList><downlinkInformation><prf>1717.0</prf></downlinkInformation></downlinkInformationList>"
      << "<orbitList>";
    for (int i = 0; i < sim.numStateVectors; ++i)
    {
        const StateVector& v = sim.stateVectors[size_t(i)];
        x << "<orbit><time>" << utc(sim.firstStateTime + i * sim.stateVectorTimeSpacing) << "</time><position><x>"
          << v.xPosition << "</x><y>" << v.yPosition << "</y><z>" << v.zPosition << "</z></position><velocity><x>"
          << v.xVelocity << "</x><y>" << v.yVelocity << "</y><z>" << v.zVelocity << "</z></velocity></orbit>";
    }
    x << "</orbitList></generalAnnotation><imageAnnotation><imageInformation>"
      << "<productFirstLineUtcTime>" << utc(sim.startTime) << "</productFirstLineUtcTime>"
      << "<productLastLineUtcTime>" << utc(sim.startTime + 13 * dt) << "</productLastLineUtcTime>"
      << "<slantRangeTime>" << 2 * sim.nearSlantRange / kLight << "</slantRangeTime>"
      << "<rangePixelSpacing>10</rangePixelSpacing><azimuthPixelSpacing>14</azimuthPixelSpacing>"
      << "<azimuthTimeInterval>" << dt << "</azimuthTimeInterval><numberOfSamples>12</numberOfSamples>"
      << "<numberOfLines>18</numberOfLines><incidenceAngleMidSwath>35</incidenceAngleMidSwath></imageInformation>"
      << "</imageAnnotation><swathTiming><linesPerBurst>6</linesPerBurst><samplesPerBurst>12</samplesPerBurst><burstList>";
    for (int k = 0; k < 3; ++k)
    {
        // Line 0 of every burst invalid, line 5 invalid too; valid samples narrow with the burst number.
        std::vector<int> first(6, 1 + k), last(6, 10 - k);
        first[0] = last[0] = first[5] = last[5] = -1;
        safe.firstValid.push_back(first);
        safe.lastValid.push_back(last);
        auto join = [](const std::vector<int>& v) {
            QStringList items;
            for (int i : v)
                items << QString::number(i);
            return items.join(' ');
        };
        x << "<burst><azimuthTime>" << utc(sim.startTime - dt + k * 4 * dt) << "</azimuthTime><firstValidSample>"
          << join(first) << "</firstValidSample><lastValidSample>" << join(last) << "</lastValidSample></burst>";
    }
    x << "</burstList></swathTiming></product>\n";
    x.flush();
    QFile annotation(safe.root + "/annotation/" + stem + ".xml");
    annotation.open(QIODevice::WriteOnly);
    annotation.write(xml.toUtf8());
    annotation.close();

    GDALAllRegister();
    GDALDataset* ds = GetGDALDriverManager()->GetDriverByName("GTiff")->Create(
        (safe.root + "/measurement/" + stem + ".tiff").toUtf8().constData(), 12, 18, 1, GDT_CInt16, nullptr);
    for (int y = 0; y < 18; ++y)
        for (int c = 0; c < 12; ++c)
            safe.pixels.emplace_back(short(100 * y + c), short(-(y + 1)));
    if (ds->GetRasterBand(1)->RasterIO(GF_Write, 0, 0, 12, 18, safe.pixels.data(), 12, 18, GDT_CInt16, 0, 0) != CE_None)
        safe.pixels.clear();
    GDALClose(ds);
    return safe;
}

} // namespace

TEST(S1Import, SmallSafeDeburstsPixelForPixel)
{
    QTemporaryDir dir;
    const SmallSafe safe = makeSmallSafe(dir.path());
    const QString out = dir.filePath("out");
    StdoutCapture capture;
    const bool ok = ExcuteAlgo_S1_TOPS_SLCDataImport(safe.root.toUtf8().constData(), out.toUtf8().constData(), "iw1",
                                                     "", nullptr);
    const std::string text = capture.text();
    ASSERT_TRUE(ok) << text;
    const QString stem = out + "/s1a-iw1-slc-vv-20210401t110640-20210401t110641-000001-000001-001";
    EXPECT_NE(text.find("[OUTPUT] S1_TOPS_SLCDataImport_images=\"" + (stem + ".tif|" + stem + ".xml").toStdString() +
                        "\""),
              std::string::npos)
        << text;

    // By hand: bursts start at common lines 0, 4, 8 with valid lines 1..4 each: 1..4, 5..8, 9..12, overlaps
    // none (4 apart, 4 valid lines). Output = 12 lines: burst k's local lines 1..4 in turn.
    GDALDataset* ds = GDALDataset::Open((stem + ".tif").toUtf8().constData(), GDAL_OF_RASTER);
    ASSERT_TRUE(ds);
    ASSERT_EQ(ds->GetRasterYSize(), 12);
    ASSERT_EQ(ds->GetRasterXSize(), 12);
    EXPECT_EQ(ds->GetRasterBand(1)->GetRasterDataType(), GDT_CInt16);
    EXPECT_STREQ(ds->GetRasterBand(1)->GetDescription(), "VV");
    std::vector<std::complex<short>> got(12 * 12);
    ASSERT_EQ(ds->GetRasterBand(1)->RasterIO(GF_Read, 0, 0, 12, 12, got.data(), 12, 12, GDT_CInt16, 0, 0), CE_None);
    GDALClose(ds);
    for (int y = 0; y < 12; ++y)
    {
        const int burst = y / 4, local = 1 + y % 4;
        for (int c = 0; c < 12; ++c)
        {
            const bool valid = c >= safe.firstValid[size_t(burst)][size_t(local)] &&
                               c <= safe.lastValid[size_t(burst)][size_t(local)];
            const std::complex<short> expected =
                valid ? safe.pixels[size_t(burst * 6 + local) * 12 + size_t(c)] : std::complex<short>(0, 0);
            EXPECT_EQ(got[size_t(y) * 12 + size_t(c)], expected) << y << "," << c;
        }
    }
    SarParameterRecord r;
    ASSERT_TRUE(ReadSarParameterFile((stem + ".xml").toUtf8().constData(), r));
    EXPECT_EQ(r.numberOfRows, 12);
    EXPECT_EQ(r.numberOfColumns, 12);
    EXPECT_EQ(r.orbitDirection, "ASCENDING");
    EXPECT_EQ(r.polarizationType, "VV");
    const simscene::Scene scene = simscene::makeScene(12, 14);
    // Line 0 of the output is burst 0's line 1: the simulated first line time exactly.
    EXPECT_NEAR(r.startTime, scene.record.startTime, 2e-6);
    EXPECT_NEAR(r.nearSlantRange, scene.record.nearSlantRange, 1e-3);
}

// The same product zipped (written through GDAL's /vsizip/): read without unpacking, same output.
TEST(S1Import, ZippedSafeGivesTheSameImage)
{
    QTemporaryDir dir;
    const SmallSafe safe = makeSmallSafe(dir.path());
    const QString zip = dir.filePath("product.zip");
    const QString safeName = QFileInfo(safe.root).fileName();
    for (const QString& relative : {QString("manifest.safe"),
                                    QString("annotation/") + QDir(safe.root + "/annotation").entryList(QDir::Files).front(),
                                    QString("measurement/") + QDir(safe.root + "/measurement").entryList(QDir::Files).front()})
    {
        QFile in(safe.root + "/" + relative);
        ASSERT_TRUE(in.open(QIODevice::ReadOnly));
        const QByteArray bytes = in.readAll();
        VSILFILE* out = VSIFOpenL(("/vsizip/" + zip + "/" + safeName + "/" + relative).toUtf8().constData(), "wb");
        ASSERT_TRUE(out);
        ASSERT_EQ(VSIFWriteL(bytes.constData(), 1, size_t(bytes.size()), out), size_t(bytes.size()));
        VSIFCloseL(out);
    }
    StdoutCapture capture;
    ASSERT_TRUE(ExcuteAlgo_S1_TOPS_SLCDataImport(zip.toUtf8().constData(), dir.filePath("z").toUtf8().constData(), "",
                                                 "", nullptr))
        << capture.text();
    ASSERT_TRUE(ExcuteAlgo_S1_TOPS_SLCDataImport(safe.root.toUtf8().constData(), dir.filePath("f").toUtf8().constData(),
                                                 "", "", nullptr));
    const QString stem = "/s1a-iw1-slc-vv-20210401t110640-20210401t110641-000001-000001-001.tif";
    EXPECT_EQ(testsupport::readBand(dir.filePath("z") + stem, 1), testsupport::readBand(dir.filePath("f") + stem, 1));
    EXPECT_FALSE(testsupport::readBand(dir.filePath("z") + stem, 1).empty());
}

TEST(S1Import, RefusesWhatTheProductDoesNotHold)
{
    QTemporaryDir dir;
    const SmallSafe safe = makeSmallSafe(dir.path());
    const QString out = dir.filePath("out");
    struct Row
    {
        QString input;
        const char* swath;
        const char* polarisation;
        std::string message;
    };
    const Row rows[] = {
        {safe.root, "IW2", "", "the parameter Swath (IW2) is not in the product (IW1)!"},
        {safe.root, "", "VH", "the parameter Polarization (VH) is not in the product (VV)!"},
        {dir.path(), "", "", "is not a Sentinel-1 SAFE folder, manifest.safe or zip of one!"},
    };
    for (const Row& row : rows)
    {
        testsupport::RecordingResult result;
        StdoutCapture capture;
        EXPECT_FALSE(ExcuteAlgo_S1_TOPS_SLCDataImport(row.input.toUtf8().constData(), out.toUtf8().constData(),
                                                      row.swath, row.polarisation, &result.record));
        EXPECT_NE(std::string(result.record.message).find(row.message), std::string::npos) << result.record.message;
        EXPECT_FALSE(QDir(out).exists() && !QDir(out).entryList(QDir::Files).isEmpty());
    }
}
