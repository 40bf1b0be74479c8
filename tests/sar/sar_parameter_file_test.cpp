// The SAR parameter file: defaults, optional and required keys, lists, the state-vector scan, the writer's
// round trip and the location rule.
#include "sar_parameter_file.h"
#include "test_support.h"

#include <QFile>
#include <QTemporaryDir>
#include <boost/property_tree/ptree.hpp>
#include <cmath>
#include <limits>

namespace
{

// A complete file with every required key; `productExtra`, `orbitExtra` and the replacements shape each case.
QString documentText(const QString& missionInfo, const QString& sceneExtra, const QString& imageExtra,
                     const QString& radarExtra, int numStateVectors, const QString& vectors)
{
    return QStringLiteral(
               "<?xml version=\"1.0\"?>\n<vyrSARParameter><productInfo><missionInfo>%1</missionInfo>"
               "<sceneInfo><azimuthLineTime>0.0005</azimuthLineTime><nearSlantRange>850000</nearSlantRange>"
               "<centerSlantRange>860000</centerSlantRange><farSlantRange>870000</farSlantRange>"
               "<incidenceAngle>30.5</incidenceAngle><headingAngle>190.25</headingAngle>%2</sceneInfo>"
               "<sceneCoord><sceneCenter><Latitude>31</Latitude><Longitude>121</Longitude></sceneCenter>"
               "<sceneTopLeft><Latitude>31.5</Latitude><Longitude>120.5</Longitude></sceneTopLeft>"
               "<sceneTopRight><Latitude>31.6</Latitude><Longitude>121.5</Longitude></sceneTopRight>"
               "<sceneBottomLeft><Latitude>30.5</Latitude><Longitude>120.4</Longitude></sceneBottomLeft>"
               "<sceneBottomRight><Latitude>30.6</Latitude><Longitude>121.4</Longitude></sceneBottomRight>"
               "</sceneCoord><imageDataInfo><numberOfColumns>100</numberOfColumns><numberOfRows>50</numberOfRows>"
               "<azimuthLooks>1</azimuthLooks><rangeLooks>2</rangeLooks><slantRangeSpacing>2.5</slantRangeSpacing>"
               "<azimuthSpacing>4.5</azimuthSpacing>%3</imageDataInfo></productInfo>"
               "<radarParameters><radarWavelength>0.0555</radarWavelength>"
               "<radarCenterFrequency>5400000000</radarCenterFrequency><adcSamplingRate>66600000</adcSamplingRate>"
               "<chirpBandWidth>60000000</chirpBandWidth><pulseRepetitionFrequency>2000</pulseRepetitionFrequency>"
               "<azimuthProcBandwidth>1500</azimuthProcBandwidth>%4</radarParameters>"
               "<orbitInfo><sarToEarthCenter>7000000</sarToEarthCenter>"
               "<earthRadiusBelowSensor>6371000</earthRadiusBelowSensor><earthSemiMajorAxis>6378137</earthSemiMajorAxis>"
               "<earthSemiMinorAxis>6356752.3</earthSemiMinorAxis><numStateVectors>%5</numStateVectors>"
               "<firstStateTime>100</firstStateTime><stateVectorTimeSpacing>10</stateVectorTimeSpacing>%6"
               "</orbitInfo></vyrSARParameter>\n")
        .arg(missionInfo, sceneExtra, imageExtra, radarExtra)
        .arg(numStateVectors)
        .arg(vectors);
}

QString vectorsNumbered(std::initializer_list<int> numbers)
{
    QString text;
    for (int k : numbers)
    {
        const QString n = QString::number(k);
        text += "<stateVector num=\"" + n + "\"><xPosition>" + n + "000</xPosition><yPosition>2</yPosition>"
                "<zPosition>3</zPosition><xVelocity>4</xVelocity><yVelocity>5</yVelocity><zVelocity>-" + n +
                "</zVelocity></stateVector>";
    }
    return text;
}

class SarParameterFileTest : public ::testing::Test
{
protected:
    QString write(const QString& text)
    {
        const QString path = m_dir.filePath(QStringLiteral("p%1.xml").arg(m_count++));
        QFile file(path);
        EXPECT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(text.toUtf8());
        return path;
    }
    QTemporaryDir m_dir;
    int m_count = 0;
};

} // namespace

TEST_F(SarParameterFileTest, AbsentAndUnconvertibleOptionalsTakeTheirDefaults)
{
    SarParameterRecord record;
    record.azimuthAngle = 12.5;   // optional without default: kept
    record.startTime = -1.0;
    record.receiverGain = 99.0;   // absent: default 0.0
    const QString path = write(documentText("", "", "<rangeScaleFactor>abc</rangeScaleFactor>", "", 0, ""));
    ASSERT_TRUE(ReadSarParameterFile(path.toLocal8Bit().constData(), record));
    EXPECT_EQ(record.title, "Unknown");
    EXPECT_EQ(record.sensor, "Unknown");
    EXPECT_EQ(record.rawDataStartTime, "UNKNOWN");
    EXPECT_EQ(record.orbitDirection, "DESCENDING");
    EXPECT_EQ(record.lookDirection, "RIGHT");
    EXPECT_EQ(record.imageGeometry, "SLANT_RANGE");
    EXPECT_EQ(record.polarizationMode, "SINGLE");
    EXPECT_EQ(record.polarizationType, "HH");
    EXPECT_EQ(record.azimuthAngle, 12.5);
    EXPECT_EQ(record.startTime, -1.0);
    EXPECT_EQ(record.rangeScaleFactor, 1.0);
    EXPECT_EQ(record.receiverGain, 0.0);
    EXPECT_EQ(record.azimuthDeskew, "ON");
    EXPECT_EQ(record.lineHeaderSize, 0);
    EXPECT_EQ(record.headingAngle, 190.25);
    EXPECT_EQ(record.sceneBottomRightLongitude, 121.4);
    EXPECT_EQ(record.rangeLooks, 2);
}

TEST_F(SarParameterFileTest, ListsTakeTheirCountAndIgnoreTheRest)
{
    SarParameterRecord record;
    record.centerSlantRangePolynomial = {9, 9, 9, 9, 9, 9};
    const QString path = write(documentText(
        "", "<firstSlantRangePolynomial>1 2 3 4 5 6 7</firstSlantRangePolynomial>"
            "<centerSlantRangePolynomial> 1.5\n-2e3 </centerSlantRangePolynomial>",
        "", "<dopplerCentroidCoefficients>10 -0.5 0.25 0.125 99</dopplerCentroidCoefficients>", 0, ""));
    ASSERT_TRUE(ReadSarParameterFile(path.toLocal8Bit().constData(), record));
    EXPECT_EQ(record.firstSlantRangePolynomial, (std::array<double, 6>{1, 2, 3, 4, 5, 6}));
    EXPECT_EQ(record.centerSlantRangePolynomial, (std::array<double, 6>{1.5, -2000, 9, 9, 9, 9}));
    EXPECT_EQ(record.dopplerCentroidCoefficients, (std::array<double, 4>{10, -0.5, 0.25, 0.125}));
}

TEST_F(SarParameterFileTest, StateVectorScanAndCountRule)
{
    struct Row
    {
        const char* what;
        std::initializer_list<int> numbers;
        int declared;
        bool expected;
    };
    const Row rows[] = {
        {"1, 2, 3 of 3", {1, 2, 3}, 3, true},     {"1, 2, 3 of 4", {1, 2, 3}, 4, false},
        {"3, 1, 2 of 3", {3, 1, 2}, 3, false},    {"none of 0", {}, 0, true},
        {"none of 1", {}, 1, false},              {"num 0", {0}, 0, false},
        {"num 256", {1, 256}, 256, false},        {"num -1", {-1}, -1, false},
        {"255 is the last slot", {1, 255}, 255, true},
    };
    for (const Row& row : rows)
    {
        SCOPED_TRACE(row.what);
        SarParameterRecord record;
        const QString path = write(documentText("", "", "", "", row.declared, vectorsNumbered(row.numbers)));
        EXPECT_EQ(ReadSarParameterFile(path.toLocal8Bit().constData(), record), row.expected);
    }
    SarParameterRecord record;
    ASSERT_TRUE(ReadSarParameterFile(write(documentText("", "", "", "", 2, vectorsNumbered({2, 1}) +
                                                                          vectorsNumbered({2})))
                                         .toLocal8Bit()
                                         .constData(),
                                     record));
    EXPECT_EQ(record.stateVectors[0].xPosition, 1000.0);
    EXPECT_EQ(record.stateVectors[1].zVelocity, -2.0);
    EXPECT_EQ(record.stateVectors[2].xPosition, 0.0);
}

TEST_F(SarParameterFileTest, TenThousandVectorsAreRefusedWithoutWritingPastTheArray)
{
    QString vectors;
    for (int k = 1; k <= 10000; ++k)
        vectors += vectorsNumbered({k});
    SarParameterRecord record;
    EXPECT_FALSE(ReadSarParameterFile(write(documentText("", "", "", "", 10000, vectors)).toLocal8Bit().constData(),
                                      record));
    EXPECT_EQ(record.stateVectors[254].xPosition, 255000.0);
}

TEST_F(SarParameterFileTest, MissingStructureAndBadDocuments)
{
    SarParameterRecord record;
    const QString noRoot = write("<other><productInfo><missionInfo><title>T</title></missionInfo></productInfo></other>");
    record.title = "before";
    EXPECT_FALSE(ReadSarParameterFile(noRoot.toLocal8Bit().constData(), record));
    EXPECT_EQ(record.title, "Unknown");

    QString noCoord = documentText("<sensor>GF3</sensor>", "", "", "", 0, "");
    noCoord.replace(QRegExp("<sceneCoord>.*</sceneCoord>"), QString());
    record = SarParameterRecord();
    EXPECT_FALSE(ReadSarParameterFile(write(noCoord).toLocal8Bit().constData(), record));
    EXPECT_EQ(record.sensor, "GF3");
    EXPECT_EQ(record.farSlantRange, 870000.0); // read before the check

    using boost::property_tree::ptree_error;
    QString noLineTime = documentText("", "", "", "", 0, "");
    noLineTime.replace("<azimuthLineTime>0.0005</azimuthLineTime>", "");
    QString badNumber = documentText("", "", "", "", 0, "");
    badNumber.replace("<numberOfRows>50</numberOfRows>", "<numberOfRows>fifty</numberOfRows>");
    const QString truncated = documentText("", "", "", "", 0, "").left(300);
    for (const QString& text : {noLineTime, badNumber, truncated})
        EXPECT_THROW(ReadSarParameterFile(write(text).toLocal8Bit().constData(), record), ptree_error);
    EXPECT_THROW(ReadSarParameterFile(m_dir.path().toLocal8Bit().constData(), record), ptree_error);
}

TEST_F(SarParameterFileTest, WrittenFilesReadBackEqual)
{
    SarParameterRecord written;
    written.title = "GF3 scene & <test>";
    written.polarizationType = "HV";
    written.azimuthAngle = 0.1 + 0.2; // not a short decimal
    written.startTime = 36670.123456789012;
    written.nearSlantRange = 950123.4567890123;
    written.chirpBandWidth = 6.0e7;
    written.radarWavelength = 1.0 / 3.0;
    written.calibrationGain = 1e-20;
    written.firstSlantRangePolynomial = {1e-9, -2.5, 3, 0, 0, 7e12};
    written.dopplerCentroidCoefficientsDDot = {-1.0 / 7.0, 0, 0, 1};
    written.numberOfColumns = 12345;
    written.numStateVectors = kMaxStateVectors;
    for (int i = 0; i < kMaxStateVectors; ++i)
        written.stateVectors[size_t(i)] = {-2e6 + i / 3.0, 5e6, 3e6, 7000.0 / (i + 1), -1, 1.0 / (i + 3)};
    const QString path = m_dir.filePath("round.xml");
    QString error;
    ASSERT_TRUE(WriteSarParameterFile(path, written, &error)) << error.toStdString();

    SarParameterRecord read;
    ASSERT_TRUE(ReadSarParameterFile(path.toLocal8Bit().constData(), read));
    EXPECT_EQ(read.title, written.title);
    EXPECT_EQ(read.polarizationType, "HV");
    EXPECT_EQ(read.azimuthAngle, written.azimuthAngle);
    EXPECT_EQ(read.startTime, written.startTime);
    EXPECT_EQ(read.nearSlantRange, written.nearSlantRange);
    EXPECT_EQ(read.radarWavelength, written.radarWavelength);
    EXPECT_EQ(read.calibrationGain, written.calibrationGain);
    EXPECT_EQ(read.firstSlantRangePolynomial, written.firstSlantRangePolynomial);
    EXPECT_EQ(read.dopplerCentroidCoefficientsDDot, written.dopplerCentroidCoefficientsDDot);
    EXPECT_EQ(read.numberOfColumns, 12345);
    for (int i = 0; i < kMaxStateVectors; ++i)
    {
        EXPECT_EQ(read.stateVectors[size_t(i)].xPosition, written.stateVectors[size_t(i)].xPosition);
        EXPECT_EQ(read.stateVectors[size_t(i)].zVelocity, written.stateVectors[size_t(i)].zVelocity);
    }

    // Plain decimals and single-space lists, as written in the file itself.
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    const QString text = QString::fromUtf8(file.readAll());
    EXPECT_TRUE(text.contains("<chirpBandWidth>60000000</chirpBandWidth>")) << text.toStdString();
    EXPECT_TRUE(text.contains("<firstSlantRangePolynomial>0.000000001 -2.5 3 0 0 7000000000000"
                              "</firstSlantRangePolynomial>"));
    EXPECT_FALSE(text.contains("e-")) << "no exponent notation";
    EXPECT_TRUE(text.contains("<stateVector num=\"255\">"));
    EXPECT_LT(text.indexOf("<stateVectorTimeSpacing>"), text.indexOf("<stateVector num=\"1\">"));
}

TEST_F(SarParameterFileTest, WriterRefusesWhatItCannotWriteFaithfully)
{
    SarParameterRecord record;
    record.numStateVectors = 256;
    QString error;
    EXPECT_FALSE(WriteSarParameterFile(m_dir.filePath("a.xml"), record, &error));
    EXPECT_TRUE(error.contains("255")) << error.toStdString();
    record.numStateVectors = 0;
    record.nearSlantRange = std::numeric_limits<double>::quiet_NaN();
    EXPECT_FALSE(WriteSarParameterFile(m_dir.filePath("b.xml"), record, &error));
    EXPECT_TRUE(error.contains("nearSlantRange")) << error.toStdString();
    record.nearSlantRange = 1.0;
    EXPECT_FALSE(WriteSarParameterFile(m_dir.filePath("missing/c.xml"), record, &error));
    EXPECT_FALSE(QFile::exists(m_dir.filePath("a.xml")) || QFile::exists(m_dir.filePath("b.xml")));
}

TEST(SarParameterFilePath, CutsAtTheLastDot)
{
    EXPECT_EQ(sarParameterFilePath("/sar/scene01.tif"), "/sar/scene01.xml");
    EXPECT_EQ(sarParameterFilePath("/sar/GF3_E121.2_N31.2_HH.tiff"), "/sar/GF3_E121.2_N31.2_HH.xml");
    EXPECT_EQ(sarParameterFilePath("/sar/scene01"), "/sar/scene01.xml");
    EXPECT_EQ(sarParameterFilePath("/sar/v1.2/scene"), "/sar/v1.xml") << "the last dot of the whole path";
}
