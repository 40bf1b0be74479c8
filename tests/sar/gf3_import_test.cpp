// ExcuteAlgo_GF3_Strip_SLCDataImport: every check message in order, naming rules, and end-to-end imports whose
// pixels and parameter files are compared with the fixture product.
#include "AlgoFactory.h"
#include "sar_fixtures.h"
#include "sar_parameter_file.h"
#include "test_support.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <cmath>

using namespace sarfixtures;
using testsupport::StdoutCapture;

namespace
{

struct Outcome
{
    bool ok = false;
    std::string out;
};

Outcome importProduct(const QString& meta, const char* selection, const char* rule, const char* custom,
                  const QString& location, const char* option, AlgoResult* result = nullptr)
{
    StdoutCapture capture;
    Outcome run;
    run.ok = ExcuteAlgo_GF3_Strip_SLCDataImport(meta.toLocal8Bit().constData(), selection, rule, custom,
                                                location.toLocal8Bit().constData(), option, result);
    run.out = capture.text();
    return run;
}

std::string opening(const QString& meta)
{
    return "start open meta.xml file strSrcFileName: " + meta.toStdString() + "\n";
}

const std::string kJudged = "Judge the rationality of input paramenters sucessfully\n"
                            "start call algorithm plugin: GF3_Strip_SLCDataImport\n";

const QStringList kAll = {"HH", "HV", "VH", "VV"};

} // namespace

TEST(Gf3StripImport, EveryCheckPrintsItsMessageAndStops)
{
    QTemporaryDir dir;
    auto product = [&](const Gf3Meta& meta, const QStringList& channels) {
        const QString folder = dir.filePath(QString::number(QDir(dir.path()).count()));
        QDir().mkpath(folder);
        return writeGf3Product(folder, kQpsiProduct, meta, channels);
    };
    Gf3Meta lowerCase;
    lowerCase.satellite = "gf3"; // accepted: the product check ignores case
    lowerCase.polarization = "HH";
    Gf3Meta otherSatellite;
    otherSatellite.satellite = "GF1";
    Gf3Meta noMode;
    noMode.imagingMode = "";
    Gf3Meta noDate;
    noDate.centerTime = "";
    Gf3Meta lowerMode;
    lowerMode.imagingMode = "sl";
    Gf3Meta otherPolarization;
    otherPolarization.polarization = "HVHH";
    Gf3Meta dual;
    dual.polarization = "HHHV";
    Gf3Meta single;
    single.polarization = "HH";

    const QString missing = dir.filePath("absent.meta.xml");
    QFile truncatedFile(dir.filePath("truncated.meta.xml"));
    ASSERT_TRUE(truncatedFile.open(QIODevice::WriteOnly));
    truncatedFile.write(gf3MetaXml(Gf3Meta()).left(200).toUtf8());
    truncatedFile.close();
    const QString truncated = truncatedFile.fileName();
    const QString noHv = product(Gf3Meta(), {"HH", "VH", "VV"});
    const QString noHvImage = gf3ChannelImage(QFileInfo(noHv).absolutePath(), kQpsiProduct, "HV");

    struct Row
    {
        const char* what;
        QString meta;
        const char* selection;
        const char* rule;
        std::string message;
    };
    const Row rows[] = {
        {"missing file", missing, "HH", "GF3_ImageDate", "[ERROR] Open gf3 xml parameter file error: " +
                                                              missing.toStdString()},
        {"directory", dir.path(), "HH", "GF3_ImageDate",
         "[ERROR] Open gf3 xml parameter file error: " + dir.path().toStdString()},
        {"truncated XML", truncated, "HH", "GF3_ImageDate",
         "[ERROR] analyze gf3 xml parameter file error: " + truncated.toStdString()},
        {"third child not GF3", product(otherSatellite, kAll), "HH", "GF3_ImageDate", "[ERROR] Not GF3 meta.xml File!"},
        {"empty imaging mode", product(noMode, kAll), "HH", "GF3_ImageDate",
         "[ERROR] Failure to acquire imaging mode parameter!"},
        {"empty centre time", product(noDate, kAll), "HH", "GF3_ImageDate", "[ERROR] Failed to get imaging date !"},
        {"mode case is kept", product(lowerMode, kAll), "HH", "GF3_ImageDate", "[ERROR] Unsupported imaging mode!"},
        {"product polarisation", product(otherPolarization, kAll), "HH", "GF3_ImageDate",
         "[ERROR] Unsupported polarization mode ,only support HH,VV, HHHV ,VHVV and AHV !"},
        {"channel image missing", noHv, "HH", "GF3_ImageDate",
         "[ERROR] can not open the input image: ! " + noHvImage.toStdString()},
        {"HV of an HH product", product(single, {"HH"}), "HV", "GF3_ImageDate", "[ERROR] No HV pol !"},
        {"gf3 accepted, VV of HH", product(lowerCase, {"HH"}), "VHVV", "GF3_ImageDate", "[ERROR] No VH pol !"},
        {"AHV of a dual product", product(dual, {"HH", "HV"}), "AHV", "GF3_ImageDate", "[ERROR] No VH pol !"},
        {"naming rule", product(Gf3Meta(), kAll), "AHV", "GF3_imageDate",
         "[ERROR] please input PrefixType correctly!"},
    };
    for (const Row& row : rows)
    {
        SCOPED_TRACE(row.what);
        const QStringList before = filesIn(QFileInfo(row.meta).absolutePath());
        const Outcome run = importProduct(row.meta, row.selection, row.rule, "", "", "GTiff");
        EXPECT_FALSE(run.ok);
        EXPECT_EQ(run.out, opening(row.meta) + row.message + "\n");
        EXPECT_EQ(filesIn(QFileInfo(row.meta).absolutePath()), before) << "nothing written";
    }
}

TEST(Gf3StripImport, AllChannelsEndToEnd)
{
    QTemporaryDir dir;
    const QString meta = writeGf3Product(dir.path(), kQpsiProduct, Gf3Meta(), kAll);
    const QString out = dir.filePath("out/nested");
    testsupport::RecordingResult result;
    const Outcome run = importProduct(meta, "AHV", "GF3_ImageDateAndTime", "", out, "GTiff", &result.record);
    ASSERT_TRUE(run.ok) << run.out << result.record.message;

    std::string expected = opening(meta) + kJudged;
    for (const QString& channel : kAll)
        expected += "[OUTPUT] GF3_dataImport_images=\"" + (out + "/20181025_101112_" + channel + ".tif").toStdString() +
                    "\"\n[OUTPUT] GF3_dataImport_XML=\"" +
                    (out + "/20181025_101112_" + channel + ".xml").toStdString() + "\"\n";
    EXPECT_EQ(run.out, expected);
    ASSERT_FALSE(result.progress.empty());
    EXPECT_EQ(result.progress.back(), 100.0);
    EXPECT_TRUE(std::is_sorted(result.progress.begin(), result.progress.end()));

    for (const QString& channel : kAll)
    {
        SCOPED_TRACE(channel.toStdString());
        const QString image = out + "/20181025_101112_" + channel + ".tif";
        GDALDataset* dataset = GDALDataset::FromHandle(GDALOpen(image.toUtf8().constData(), GA_ReadOnly));
        ASSERT_NE(dataset, nullptr);
        EXPECT_EQ(dataset->GetRasterBand(1)->GetRasterDataType(), GDT_CInt16);
        EXPECT_EQ(dataset->GetRasterCount(), 1);
        GDALClose(GDALDataset::ToHandle(dataset));
        const std::vector<double> samples = readComplex(image);
        ASSERT_EQ(samples.size(), size_t(7 * 5 * 2));
        for (int y = 0; y < 5; ++y)
            for (int x = 0; x < 7; ++x)
            {
                EXPECT_EQ(samples[size_t(2 * (y * 7 + x))], gf3SampleI(channel, x, y));
                EXPECT_EQ(samples[size_t(2 * (y * 7 + x) + 1)], gf3SampleQ(channel, x, y));
            }

        SarParameterRecord record;
        ASSERT_TRUE(ReadSarParameterFile((out + "/20181025_101112_" + channel + ".xml").toLocal8Bit().constData(),
                                         record));
        EXPECT_EQ(record.title, QString(kQpsiProduct).arg("AHV").toStdString());
        EXPECT_EQ(record.sensor, "GF3");
        EXPECT_EQ(record.orbitDirection, "ASCENDING");
        EXPECT_EQ(record.polarizationMode, "QUAD");
        EXPECT_EQ(record.polarizationType, channel.toStdString());
        EXPECT_EQ(record.rawDataStartTime, "2018-10-25 10:11:10.000000");
        EXPECT_DOUBLE_EQ(record.startTime, 36670.0);
        EXPECT_DOUBLE_EQ(record.centerTime, 36672.345678);
        EXPECT_DOUBLE_EQ(record.endTime, 36674.5);
        EXPECT_DOUBLE_EQ(record.azimuthLineTime, 1.0 / 2000.0);
        const double spacing = 299792458.0 / (2.0 * 66.6e6);
        EXPECT_DOUBLE_EQ(record.slantRangeSpacing, spacing);
        EXPECT_DOUBLE_EQ(record.nearSlantRange, 950000.5);
        EXPECT_DOUBLE_EQ(record.farSlantRange, 950000.5 + 6 * spacing);
        EXPECT_DOUBLE_EQ(record.centerSlantRange, 950000.5 + 3 * spacing);
        EXPECT_EQ(record.numberOfColumns, 7);
        EXPECT_EQ(record.numberOfRows, 5);
        EXPECT_EQ(record.sceneBottomRightLatitude, 31.4);
        EXPECT_EQ(record.sceneCenterLongitude, 121.2);
        EXPECT_DOUBLE_EQ(record.incidenceAngle, 21.0);
        EXPECT_NEAR(record.headingAngle, 0.0, 1e-9); // first line south of the last: due north
        EXPECT_DOUBLE_EQ(record.radarWavelength, 0.055517);
        EXPECT_DOUBLE_EQ(record.radarCenterFrequency, 5.4e9);
        EXPECT_DOUBLE_EQ(record.adcSamplingRate, 66.6e6);
        EXPECT_DOUBLE_EQ(record.chirpBandWidth, 60e6);
        EXPECT_DOUBLE_EQ(record.pulseRepetitionFrequency, 2000.0);
        EXPECT_DOUBLE_EQ(record.azimuthSpacing, 7545.5 / 2000.0);
        EXPECT_EQ(record.dopplerCentroidCoefficients, (std::array<double, 4>{12.5, -0.25, 0.001, 0.5}));
        const double gains[] = {33.5, 34.5, 0.0, 35.5}; // VH holds "NULL"
        EXPECT_EQ(record.calibrationGain, gains[kAll.indexOf(channel)]);
        EXPECT_EQ(record.numStateVectors, 3);
        EXPECT_DOUBLE_EQ(record.firstStateTime, 36660.0);
        EXPECT_DOUBLE_EQ(record.stateVectorTimeSpacing, 10.0);
        EXPECT_EQ(record.stateVectors[2].xPosition, gf3VectorX(2));
        EXPECT_EQ(record.stateVectors[1].zVelocity, -6700.0);
        EXPECT_DOUBLE_EQ(record.sarToEarthCenter, std::sqrt(std::pow(gf3VectorX(1), 2) + 4740000.0 * 4740000.0 +
                                                             3260000.0 * 3260000.0));
    }
}

TEST(Gf3StripImport, NamingRulesFormatsAndSingleChannelProducts)
{
    struct Row
    {
        const char* what;
        const char* polarization; // of the product
        const char* rule;
        const char* custom;
        const char* option;
        QString expectedName;     // of the HH output, in the output folder
        GDALDataType type;
    };
    const QString original = QString(kQpsiProduct).arg("HH");
    const Row rows[] = {
        {"date and time", "AHV", "GF3_ImageDateAndTime", "", "", "20181025_101112_HH.tif", GDT_CInt16},
        {"date", "AHV", "GF3_ImageDate", "", "GTiff", "20181025_HH.tif", GDT_CInt16},
        {"original", "AHV", "GF3_OriginalName", "", "ENVI", original + ".img", GDT_CFloat32},
        {"custom", "AHV", "GF3_CustomName", "shanghai", "HFA", "shanghai_HH.img", GDT_CFloat32},
        {"DH product", "DH", "GF3_CustomName", "dh", "GTiff", "dh_HH.tif", GDT_CInt16},
    };
    for (const Row& row : rows)
    {
        SCOPED_TRACE(row.what);
        QTemporaryDir dir;
        Gf3Meta meta;
        meta.polarization = row.polarization;
        const QString metaPath = writeGf3Product(
            dir.path(), kQpsiProduct, meta, QString(row.polarization) == "DH" ? QStringList{"DH"} : kAll);
        const QString out = dir.filePath("out");
        const Outcome run = importProduct(metaPath, "HH", row.rule, row.custom, out, row.option);
        ASSERT_TRUE(run.ok) << run.out;
        const QString image = out + "/" + row.expectedName;
        const QString xml = sarParameterFilePath(image);
        EXPECT_EQ(run.out, opening(metaPath) + kJudged + "[OUTPUT] GF3_dataImport_images=\"" + image.toStdString() +
                               "\"\n[OUTPUT] GF3_dataImport_XML=\"" + xml.toStdString() + "\"\n");
        const std::vector<double> samples = readComplex(image);
        ASSERT_EQ(samples.size(), size_t(70));
        const QString source = QString(row.polarization) == "DH" ? "DH" : "HH";
        EXPECT_EQ(samples[2 * 9], gf3SampleI(source, 2, 1));
        EXPECT_EQ(samples[2 * 9 + 1], gf3SampleQ(source, 2, 1));
        GDALDataset* dataset = GDALDataset::FromHandle(GDALOpen(image.toUtf8().constData(), GA_ReadOnly));
        ASSERT_NE(dataset, nullptr);
        EXPECT_EQ(dataset->GetRasterBand(1)->GetRasterDataType(), row.type);
        GDALClose(GDALDataset::ToHandle(dataset));
        SarParameterRecord record;
        ASSERT_TRUE(ReadSarParameterFile(xml.toLocal8Bit().constData(), record));
        EXPECT_EQ(record.polarizationMode, QString(row.polarization) == "DH" ? "SINGLE" : "QUAD");
    }
}

TEST(Gf3StripImport, PluginFailuresLeaveNoOutput)
{
    QTemporaryDir dir;
    QFile blocker(dir.filePath("blocker"));
    ASSERT_TRUE(blocker.open(QIODevice::WriteOnly));
    blocker.close();
    struct Row
    {
        const char* what;
        QStringList replacements;
        int hvWidth;
        const char* selection;
        QString location;
        const char* option;
        QString messagePart;
    };
    const Row rows[] = {
        {"near range not a number", {"<nearRange>950000.5</nearRange>", "<nearRange>abc</nearRange>"}, 7, "AHV",
         "", "GTiff", "imageinfo/nearRange"},
        {"empty PRF", {"<eqvPRF>2000</eqvPRF>", "<eqvPRF></eqvPRF>"}, 7, "AHV", "", "GTiff", "imageinfo/eqvPRF"},
        {"state vector not a number", {"<yVelocity>3000</yVelocity>", "<yVelocity>x</yVelocity>"}, 7, "HH", "",
         "GTiff", "GPS/GPSParam/yVelocity"},
        {"channel sizes differ", {}, 6, "HHHV", "", "GTiff", "differ in size"},
        {"selection outside the table", {}, 7, "XY", "", "GTiff", "No polarisation channel"},
        {"unknown format", {}, 7, "HH", "", "JPEG", "Unsupported output format"},
        {"output folder not writable", {}, 7, "AHV", blocker.fileName() + "/sub", "GTiff", "cannot be written"},
    };
    for (const Row& row : rows)
    {
        SCOPED_TRACE(row.what);
        QTemporaryDir productDir;
        Gf3Meta meta;
        meta.replacements = row.replacements;
        const QString metaPath = writeGf3Product(productDir.path(), kQpsiProduct, meta, {"HH", "VH", "VV"});
        testsupport::makeRaster(gf3ChannelImage(productDir.path(), kQpsiProduct, "HV"), row.hvWidth, 5, 2, GDT_Int16,
                                [](int, int x, int) { return x; }, "GTiff", false);
        const QStringList before = filesIn(productDir.path());
        testsupport::RecordingResult result;
        const Outcome run = importProduct(metaPath, row.selection, "GF3_ImageDate", "", row.location, row.option,
                                      &result.record);
        EXPECT_FALSE(run.ok);
        EXPECT_EQ(run.out, opening(metaPath) + kJudged);
        EXPECT_EQ(result.record.code, -1);
        EXPECT_TRUE(QString(result.record.message).contains(row.messagePart)) << result.record.message;
        EXPECT_EQ(filesIn(productDir.path()), before);
    }
}
