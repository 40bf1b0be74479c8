// Fixtures of the radar import tests.
#include "sar_fixtures.h"

#include "test_support.h"

#include <QFile>
#include <hdf5.h>

namespace sarfixtures
{

const char* const kQpsiProduct = "GF3_SAY_QPSI_011102_E121.2_N31.2_20181025_L1A_%1_L10003543018";
const char* const kFsiProduct = "GF3_KAS_FSI_014480_E103.4_N31.0_20190511_L1A_%1_L10003992720";
const char* const kFsiiProduct = "GF3_MDJ_FSII_006377_E139.7_N35.4_20171026_L1A_%1_L10002710612";
const char* const kSlProduct = "GF3_KAS_SL_005811_W95.1_N16.4_20170917_L1A_%1_L10002605023";

double gf3VectorX(int index)
{
    return -2790000.0 + 1000.5 * index;
}

QString gf3MetaXml(const Gf3Meta& meta)
{
    QString gps;
    for (int i = 0; i < 3; ++i)
        gps += QStringLiteral("<GPSParam><TimeStamp>2018-10-25 10:11:%1.000000</TimeStamp><xPosition>%2</xPosition>"
                              "<yPosition>4740000</yPosition><zPosition>3260000</zPosition><xVelocity>-1500</xVelocity>"
                              "<yVelocity>3000</yVelocity><zVelocity>-6700</zVelocity></GPSParam>\n")
                   .arg(i * 10, 2, 10, QChar('0'))
                   .arg(gf3VectorX(i), 0, 'f', 1);
    QString text = QStringLiteral(
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<product>\n<segmentID>1</segmentID>\n<sceneID>2</sceneID>\n"
        "<satellite>%1</satellite>\n<orbitID>11102</orbitID>\n<Direction>ASC</Direction>\n"
        "<productID>3543018</productID>\n<sensor><sensorID>SAR</sensorID><imagingMode>%2</imagingMode>"
        "<lamda>0.055517</lamda><RadarCenterFrequency>5.4</RadarCenterFrequency><lookDirection>R</lookDirection>"
        "<polarParams><polar><polarMode>%4</polarMode></polar></polarParams></sensor>\n"
        "<platform><CenterTime>%3</CenterTime><satVelocity>7545.5</satVelocity></platform>\n"
        "<GPS>\n%6</GPS>\n"
        "<productinfo><NominalResolution>8</NominalResolution><productLevel>1</productLevel>"
        "<productType>SLC</productType><productPolarization>%4</productPolarization></productinfo>\n"
        "<imageinfo><imagingTime><start>2018-10-25 10:11:10.000000</start><end>2018-10-25 10:11:14.500000</end>"
        "</imagingTime><nearRange>%5</nearRange><refRange>951000</refRange><eqvFs>66.6</eqvFs><eqvPRF>2000</eqvPRF>"
        "<center><latitude>31.2</latitude><longitude>121.2</longitude></center><corner>"
        "<topLeft><latitude>31.0</latitude><longitude>121.0</longitude></topLeft>"
        "<topRight><latitude>31.0</latitude><longitude>121.4</longitude></topRight>"
        "<bottomLeft><latitude>31.4</latitude><longitude>121.0</longitude></bottomLeft>"
        "<bottomRight><latitude>31.4</latitude><longitude>121.4</longitude></bottomRight></corner>"
        "<width>7</width><height>5</height></imageinfo>\n"
        "<processinfo><CalibrationConst><HH>33.5</HH><HV>34.5</HV><VH>NULL</VH><VV>35.5</VV></CalibrationConst>"
        "<DopplerCentroidCoefficients><d0>12.5</d0><d1>-0.25</d1><d2>0.001</d2><d3>0.5</d3><d4>9</d4>"
        "</DopplerCentroidCoefficients><incidenceAngleNearRange>20</incidenceAngleNearRange>"
        "<incidenceAngleFarRange>22</incidenceAngleFarRange><MultilookRange>1</MultilookRange>"
        "<MultilookAzimuth>1</MultilookAzimuth><TotalProcessedAzimuthBandWidth>1500</TotalProcessedAzimuthBandWidth>"
        "<RangeLookBandWidth>60</RangeLookBandWidth></processinfo>\n</product>\n");
    text = text.arg(meta.satellite, meta.imagingMode, meta.centerTime, meta.polarization, meta.nearRange, gps);
    for (int i = 0; i + 1 < meta.replacements.size(); i += 2)
        text.replace(meta.replacements[i], meta.replacements[i + 1]);
    return text;
}

int gf3SampleI(const QString& channel, int x, int y)
{
    return 1000 * (1 + QStringList({"HH", "HV", "VH", "VV", "DH", "DV"}).indexOf(channel)) + 10 * y + x;
}

int gf3SampleQ(const QString& channel, int x, int y)
{
    return -gf3SampleI(channel, x, y) / 2 - 7;
}

QString gf3ChannelImage(const QString& folder, const char* productName, const QString& channel)
{
    return folder + "/" + QString::fromLatin1(productName).arg(channel) + ".tiff";
}

QString writeGf3Product(const QString& folder, const char* productName, const Gf3Meta& meta,
                        const QStringList& channels, int width, int height)
{
    const QString metaPath = folder + "/" + QString::fromLatin1(productName).arg(meta.polarization) + ".meta.xml";
    QFile file(metaPath);
    if (file.open(QIODevice::WriteOnly))
        file.write(gf3MetaXml(meta).toUtf8());
    for (const QString& channel : channels)
        testsupport::makeRaster(
            gf3ChannelImage(folder, productName, channel), width, height, 2, GDT_Int16,
            [&](int band, int x, int y) { return band == 0 ? gf3SampleI(channel, x, y) : gf3SampleQ(channel, x, y); },
            "GTiff", false);
    return metaPath;
}

int cskSample(int swath, int line, int sample, int part)
{
    const int value = 100 * swath + 10 * line + sample;
    return part == 0 ? value : -value - 3000;
}

namespace
{

void doubleAttribute(hid_t location, const char* name, const std::vector<double>& values, int columns = 1)
{
    hsize_t dims[2] = {hsize_t(values.size() / size_t(columns)), hsize_t(columns)};
    const hid_t space = H5Screate_simple(columns > 1 ? 2 : 1, dims, nullptr);
    const hid_t attribute = H5Acreate2(location, name, H5T_IEEE_F64LE, space, H5P_DEFAULT, H5P_DEFAULT);
    H5Awrite(attribute, H5T_NATIVE_DOUBLE, values.data());
    H5Aclose(attribute);
    H5Sclose(space);
}

void textAttribute(hid_t location, const char* name, const char* value)
{
    const hid_t type = H5Tcopy(H5T_C_S1);
    H5Tset_size(type, strlen(value) + 1);
    const hid_t space = H5Screate(H5S_SCALAR);
    const hid_t attribute = H5Acreate2(location, name, type, space, H5P_DEFAULT, H5P_DEFAULT);
    H5Awrite(attribute, type, value);
    H5Aclose(attribute);
    H5Sclose(space);
    H5Tclose(type);
}

} // namespace

bool writeCskProduct(const QString& path, const std::vector<CskSwath>& swaths)
{
    const hid_t file = H5Fcreate(path.toUtf8().constData(), H5F_ACC_TRUNC, H5P_DEFAULT, H5P_DEFAULT);
    if (file < 0)
        return false;
    textAttribute(file, "Satellite ID", "CSKS2");
    textAttribute(file, "Look Side", "RIGHT");
    textAttribute(file, "Orbit Direction", "ASCENDING");
    textAttribute(file, "Reference UTC", "2010-01-01 00:00:00.000000000");
    doubleAttribute(file, "Radar Wavelength", {kCskWavelength});
    doubleAttribute(file, "State Vectors Times", {35990, 36000, 36010, 36020});
    doubleAttribute(file, "ECEF Satellite Position",
                    {4.1e6, 1.1e6, 5.5e6, 4.2e6, 1.2e6, 5.4e6, 4.3e6, 1.3e6, 5.3e6, 4.4e6, 1.4e6, 5.2e6}, 3);
    doubleAttribute(file, "ECEF Satellite Velocity", {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}, 3);
    doubleAttribute(file, "Centroid vs Range Time Polynomial", {15.5, -2, 0.5, 0, 0, 0});
    doubleAttribute(file, "Scene Centre Geodetic Coordinates", {41.9, 12.5, 0});
    for (size_t s = 0; s < swaths.size(); ++s)
    {
        const CskSwath& swath = swaths[s];
        const QByteArray name = QStringLiteral("S%1").arg(int(s) + 1, 2, 10, QChar('0')).toLatin1();
        const hid_t group = H5Gcreate2(file, name.constData(), H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT);
        textAttribute(group, "Polarisation", s == 0 ? "HH" : "VV");
        doubleAttribute(group, "PRF", {3000.0});
        doubleAttribute(group, "Sampling Rate", {1.125e8});
        doubleAttribute(group, "Range Chirp Length", {4e-5});
        doubleAttribute(group, "Range Chirp Rate", {-2.5e12});
        if (swath.withBeamGroup)
            H5Gclose(H5Gcreate2(group, "B001", H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT));
        if (swath.withImage)
        {
            hsize_t dims[3] = {hsize_t(swath.lines), hsize_t(swath.samples), 2};
            std::vector<short> samples;
            for (int l = 0; l < swath.lines; ++l)
                for (int x = 0; x < swath.samples; ++x)
                    for (int part = 0; part < 2; ++part)
                        samples.push_back(short(cskSample(int(s), l, x, part)));
            const hid_t space = H5Screate_simple(3, dims, nullptr);
            const hid_t image =
                H5Dcreate2(group, "SBI", H5T_STD_I16LE, space, H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT);
            H5Dwrite(image, H5T_NATIVE_SHORT, H5S_ALL, H5S_ALL, H5P_DEFAULT, samples.data());
            doubleAttribute(image, "Line Time Interval", {kCskLineTime});
            doubleAttribute(image, "Column Spacing", {1.33});
            doubleAttribute(image, "Near Incidence Angle", {30});
            doubleAttribute(image, "Far Incidence Angle", {32});
            doubleAttribute(image, "Zero Doppler Range First Time", {kCskRangeFirstTime});
            doubleAttribute(image, "Zero Doppler Azimuth First Time", {kCskAzimuthFirstTime});
            doubleAttribute(image, "Top Left Geodetic Coordinates", {42.0, 12.4, 0});
            doubleAttribute(image, "Top Right Geodetic Coordinates", {42.0, 12.6, 0});
            doubleAttribute(image, "Bottom Left Geodetic Coordinates", {41.8, 12.4, 0});
            doubleAttribute(image, "Bottom Right Geodetic Coordinates", {41.8, 12.6, 0});
            H5Dclose(image);
            H5Sclose(space);
        }
        H5Gclose(group);
    }
    H5Fclose(file);
    return true;
}

} // namespace sarfixtures

#include <QDir>

namespace sarfixtures
{

std::vector<double> readComplex(const QString& path)
{
    GDALDataset* dataset = GDALDataset::FromHandle(GDALOpen(path.toUtf8().constData(), GA_ReadOnly));
    if (!dataset)
        return {};
    const int width = dataset->GetRasterXSize(), height = dataset->GetRasterYSize();
    std::vector<double> values(size_t(width) * size_t(height) * 2);
    if (dataset->GetRasterBand(1)->RasterIO(GF_Read, 0, 0, width, height, values.data(), width, height, GDT_CFloat64,
                                            0, 0) != CE_None)
        values.clear();
    GDALClose(GDALDataset::ToHandle(dataset));
    return values;
}

QStringList filesIn(const QString& folder)
{
    return QDir(folder).entryList(QDir::Files, QDir::Name);
}

} // namespace sarfixtures
