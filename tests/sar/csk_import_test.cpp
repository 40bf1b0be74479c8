// ExcuteAlgo_InSAR_CSK_SLCImport: the structure and output checks in order, and imports of HDF5 products made here
// with the documented group layout, one and two swaths.
#include "AlgoFactory.h"
#include "sar_fixtures.h"
#include "sar_parameter_file.h"
#include "test_support.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTextCodec>

using namespace sarfixtures;
using testsupport::StdoutCapture;

namespace
{

struct Outcome
{
    bool ok = false;
    std::string out;
};

Outcome importCsk(const QString& input, const QString& output, AlgoResult* result = nullptr)
{
    StdoutCapture capture;
    Outcome run;
    run.ok = ExcuteAlgo_InSAR_CSK_SLCImport(input.toUtf8().constData(), output.toUtf8().constData(), result);
    run.out = capture.text();
    return run;
}

const std::string kJudged = "Judge the rationality of input paramenters sucessfully\n"
                            "start call algorithm plugin: InSAR_CSK_SLCImport\n";

} // namespace

TEST(CskImport, EveryCheckPrintsItsMessageAndStops)
{
    QTemporaryDir dir;
    const QString good = dir.filePath("good.h5");
    ASSERT_TRUE(writeCskProduct(good, {CskSwath()}));
    CskSwath noBeam;
    noBeam.withBeamGroup = false;
    const QString withoutBeam = dir.filePath("nobeam.h5");
    ASSERT_TRUE(writeCskProduct(withoutBeam, {noBeam}));
    CskSwath noImage;
    noImage.withImage = false;
    const QString withoutImage = dir.filePath("noimage.h5");
    ASSERT_TRUE(writeCskProduct(withoutImage, {noImage}));
    const QString text = dir.filePath("text.h5");
    QFile textFile(text);
    ASSERT_TRUE(textFile.open(QIODevice::WriteOnly));
    textFile.write("not an HDF5 file\n");
    textFile.close();
    const QString sameAsOutput = dir.filePath("product.img");
    ASSERT_TRUE(writeCskProduct(sameAsOutput, {CskSwath()}));

    struct Row
    {
        const char* what;
        QString input;
        QString output;
        std::string message;
    };
    const Row rows[] = {
        {"no input", "", dir.filePath("o.tif"), "h5 file is empty! "},
        {"not HDF5", text, dir.filePath("o.tif"), "Open h5 file error! "},
        {"missing file", dir.filePath("absent.h5"), dir.filePath("o.tif"), "Open h5 file error! "},
        {"directory", dir.path(), dir.filePath("o.tif"), "Open h5 file error! "},
        {"no B001, output never looked at", withoutBeam, "", "Not CSK SSC h5 file format! "},
        {"no SBI", withoutImage, dir.filePath("o.tif"), "Not CSK SSC h5 file format! "},
        {"no output", good, "", "output file is empty!  "},
        {"suffix case is kept", good, dir.filePath("o.TIF"), "suffix of output file should be 'img' or 'tif' !  "},
        {"tiff", good, dir.filePath("o.tiff"), "suffix of output file should be 'img' or 'tif' !  "},
        {"input is output", sameAsOutput, sameAsOutput, "Input file is matching to output file! "},
    };
    for (const Row& row : rows)
    {
        SCOPED_TRACE(row.what);
        testsupport::RecordingResult result;
        result.record.code = 77;
        const Outcome run = importCsk(row.input, row.output, &result.record);
        EXPECT_FALSE(run.ok);
        EXPECT_EQ(run.out, "[ERROR] " + row.message + "\n");
        EXPECT_EQ(result.record.code, 77) << "AlgoResult untouched";
    }
    EXPECT_FALSE(QFile::exists(dir.filePath("o.tif")));
}

TEST(CskImport, TwoSwathsEndToEndIntoANewFolder)
{
    QTemporaryDir dir;
    const QString input = dir.filePath("CSKS2_SCS_B_HI_09_HH_RA_SF_20100101100000_20100101100005.h5");
    CskSwath second;
    second.lines = 3;
    second.samples = 5;
    ASSERT_TRUE(writeCskProduct(input, {CskSwath(), second}));
    const QString out = dir.filePath("made"); // one missing level: the entry makes it
    const QByteArray codecBefore = QTextCodec::codecForLocale()->name();
    testsupport::RecordingResult result;
    const Outcome run = importCsk(input, out + "/csk.tif", &result.record);
    ASSERT_TRUE(run.ok) << run.out << result.record.message;
    EXPECT_EQ(QTextCodec::codecForLocale()->name(), codecBefore);
    EXPECT_EQ(run.out, kJudged + "[OUTPUT] InSAR_CSK_SLCImport_images=\"" + (out + "/csk.tif").toStdString() +
                           "\"\n[OUTPUT] InSAR_CSK_SLCImport_XML=\"" + (out + "/csk.xml").toStdString() +
                           "\"\n[OUTPUT] InSAR_CSK_SLCImport_images=\"" + (out + "/csk_S02.tif").toStdString() +
                           "\"\n[OUTPUT] InSAR_CSK_SLCImport_XML=\"" + (out + "/csk_S02.xml").toStdString() + "\"\n");
    EXPECT_EQ(result.progress.back(), 100.0);

    const int lines[2] = {6, 3}, samples[2] = {4, 5};
    const char* const names[2] = {"csk", "csk_S02"};
    for (int s = 0; s < 2; ++s)
    {
        SCOPED_TRACE(names[s]);
        const std::vector<double> values = readComplex(out + "/" + names[s] + ".tif");
        ASSERT_EQ(values.size(), size_t(lines[s] * samples[s] * 2));
        for (int l = 0; l < lines[s]; ++l)
            for (int x = 0; x < samples[s]; ++x)
            {
                EXPECT_EQ(values[size_t(2 * (l * samples[s] + x))], cskSample(s, l, x, 0));
                EXPECT_EQ(values[size_t(2 * (l * samples[s] + x) + 1)], cskSample(s, l, x, 1));
            }
        SarParameterRecord record;
        ASSERT_TRUE(ReadSarParameterFile((out + "/" + names[s] + ".xml").toLocal8Bit().constData(), record));
        EXPECT_EQ(record.sensor, "CSKS2");
        EXPECT_EQ(record.orbitDirection, "ASCENDING");
        EXPECT_EQ(record.polarizationType, s == 0 ? "HH" : "VV");
        EXPECT_EQ(record.numberOfRows, lines[s]);
        EXPECT_EQ(record.numberOfColumns, samples[s]);
        EXPECT_DOUBLE_EQ(record.startTime, kCskAzimuthFirstTime);
        EXPECT_DOUBLE_EQ(record.endTime, kCskAzimuthFirstTime + (lines[s] - 1) * kCskLineTime);
        EXPECT_EQ(record.rawDataStartTime, "2010-01-01 10:00:00.250000");
        EXPECT_DOUBLE_EQ(record.nearSlantRange, 299792458.0 * kCskRangeFirstTime / 2.0);
        EXPECT_DOUBLE_EQ(record.farSlantRange, record.nearSlantRange + (samples[s] - 1) * 1.33);
        EXPECT_DOUBLE_EQ(record.slantRangeSpacing, 1.33);
        EXPECT_DOUBLE_EQ(record.radarWavelength, kCskWavelength);
        EXPECT_DOUBLE_EQ(record.radarCenterFrequency, 299792458.0 / kCskWavelength);
        EXPECT_DOUBLE_EQ(record.chirpBandWidth, 1e8);
        EXPECT_DOUBLE_EQ(record.pulseRepetitionFrequency, 3000.0);
        EXPECT_DOUBLE_EQ(record.incidenceAngle, 31.0);
        EXPECT_EQ(record.sceneCenterLatitude, 41.9);
        EXPECT_EQ(record.sceneTopRightLongitude, 12.6);
        EXPECT_NEAR(record.headingAngle, 180.0, 1e-9); // first line north of the last
        EXPECT_EQ(record.dopplerCentroidCoefficients, (std::array<double, 4>{15.5, -2, 0.5, 0}));
        EXPECT_EQ(record.numStateVectors, 4);
        EXPECT_DOUBLE_EQ(record.firstStateTime, 35990.0);
        EXPECT_DOUBLE_EQ(record.stateVectorTimeSpacing, 10.0);
        EXPECT_EQ(record.stateVectors[3].yPosition, 1.4e6);
        EXPECT_EQ(record.stateVectors[2].zVelocity, 9.0);
    }
}

TEST(CskImport, EnviOutputAndPluginFailure)
{
    QTemporaryDir dir;
    const QString input = dir.filePath("product.h5");
    ASSERT_TRUE(writeCskProduct(input, {CskSwath()}));
    const Outcome envi = importCsk(input, dir.filePath("slc.img"));
    ASSERT_TRUE(envi.ok) << envi.out;
    GDALDataset* dataset = GDALDataset::FromHandle(GDALOpen(dir.filePath("slc.img").toUtf8().constData(), GA_ReadOnly));
    ASSERT_NE(dataset, nullptr);
    EXPECT_STREQ(dataset->GetDriver()->GetDescription(), "ENVI");
    EXPECT_EQ(dataset->GetRasterBand(1)->GetRasterDataType(), GDT_CFloat32);
    GDALClose(GDALDataset::ToHandle(dataset));
    const std::vector<double> values = readComplex(dir.filePath("slc.img"));
    ASSERT_EQ(values.size(), size_t(48));
    EXPECT_EQ(values[2 * 7], cskSample(0, 1, 3, 0));
    EXPECT_EQ(values[2 * 7 + 1], cskSample(0, 1, 3, 1));

    // A folder the entry cannot make (its parent is a file): the plug-in fails and nothing is reported.
    QFile blocker(dir.filePath("blocker"));
    ASSERT_TRUE(blocker.open(QIODevice::WriteOnly));
    blocker.close();
    testsupport::RecordingResult result;
    const Outcome failed = importCsk(input, dir.filePath("blocker/sub/slc.tif"), &result.record);
    EXPECT_FALSE(failed.ok);
    EXPECT_EQ(failed.out, kJudged);
    EXPECT_EQ(result.record.code, -1);
    EXPECT_TRUE(QString(result.record.message).contains("cannot be created")) << result.record.message;
}
