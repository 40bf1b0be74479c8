// Fixture texts and sample products of the optical tests.
#include "optical_fixtures.h"

#include "test_support.h"

#include <QDir>
#include <QFile>

#include <sstream>

namespace opticalfixtures
{

namespace
{

struct FixtureBand
{
    const char* id;       // physicalBand
    const char* fileBand; // suffix in the image name
    int resolution;
    double central;
    double irradiance;
};

const FixtureBand kBands[] = {
    {"B1", "B01", 60, 442.7, 1884.69}, {"B2", "B02", 10, 492.4, 1959.66}, {"B3", "B03", 10, 559.8, 1823.24},
    {"B4", "B04", 10, 664.6, 1512.06}, {"B5", "B05", 20, 704.1, 1424.64}, {"B6", "B06", 20, 740.5, 1287.61},
    {"B7", "B07", 20, 782.8, 1162.08}, {"B8", "B08", 10, 832.8, 1041.63}, {"B8A", "B8A", 20, 864.7, 955.32},
    {"B9", "B09", 60, 945.1, 812.92},  {"B10", "B10", 60, 1373.5, 367.15}, {"B11", "B11", 20, 1613.7, 245.59},
    {"B12", "B12", 20, 2202.4, 85.25},
};

} // namespace

std::string sentinel2ProductXml(const std::string& level, const std::string& baseline, bool withOffsets,
                                const std::string& granule)
{
    const bool l2a = level == "L2A";
    const std::string root = l2a ? "Level-2A_User_Product" : "Level-1C_User_Product";
    std::ostringstream x;
    x << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
      << "<n1:" << root << " xmlns:n1=\"https://psd-14.sentinel2.eo.esa.int/PSD/User_Product_Level-"
      << (l2a ? "2A" : "1C") << ".xsd\">\n"
      << "<n1:General_Info>\n<Product_Info>\n"
      << "<PRODUCT_START_TIME>2016-01-12T15:58:52.026Z</PRODUCT_START_TIME>\n"
      << "<PROCESSING_LEVEL>Level-" << (l2a ? "2A" : "1C") << "</PROCESSING_LEVEL>\n"
      << "<PRODUCT_TYPE>S2MSI" << (l2a ? "2A" : "1C") << "</PRODUCT_TYPE>\n"
      << "<PROCESSING_BASELINE>" << baseline << "</PROCESSING_BASELINE>\n"
      << "<Datatake datatakeIdentifier=\"x\"><SPACECRAFT_NAME>Sentinel-2A</SPACECRAFT_NAME></Datatake>\n"
      << "<Product_Organisation><Granule_List><Granule granuleIdentifier=\"g\" imageFormat=\"JPEG2000\">\n";
    for (const FixtureBand& b : kBands)
    {
        if (l2a)
        {
            for (int res : {10, 20, 60})
                if (res >= b.resolution && std::string(b.fileBand) != "B10")
                    x << "<IMAGE_FILE>GRANULE/" << granule << "/IMG_DATA/R" << res << "m/T18SVG_20160112T155852_"
                      << b.fileBand << "_" << res << "m</IMAGE_FILE>\n";
        }
        else
            x << "<IMAGE_FILE>GRANULE/" << granule << "/IMG_DATA/T18SVG_20160112T155852_" << b.fileBand
              << "</IMAGE_FILE>\n";
    }
    if (l2a)
        x << "<IMAGE_FILE>GRANULE/" << granule << "/IMG_DATA/R20m/T18SVG_20160112T155852_SCL_20m</IMAGE_FILE>\n";
    x << "</Granule></Granule_List></Product_Organisation>\n</Product_Info>\n"
      << "<Product_Image_Characteristics>\n"
      << "<Special_Values><SPECIAL_VALUE_TEXT>NODATA</SPECIAL_VALUE_TEXT><SPECIAL_VALUE_INDEX>0</SPECIAL_VALUE_INDEX></Special_Values>\n";
    if (l2a)
        x << "<QUANTIFICATION_VALUES_LIST><BOA_QUANTIFICATION_VALUE unit=\"none\">10000</BOA_QUANTIFICATION_VALUE>"
          << "<AOT_QUANTIFICATION_VALUE unit=\"none\">1000.0</AOT_QUANTIFICATION_VALUE></QUANTIFICATION_VALUES_LIST>\n";
    else
        x << "<QUANTIFICATION_VALUE unit=\"none\">10000</QUANTIFICATION_VALUE>\n";
    if (withOffsets)
    {
        x << (l2a ? "<BOA_ADD_OFFSET_VALUES_LIST>\n" : "<Radiometric_Offset_List>\n");
        for (int i = 0; i < 13; ++i)
            x << (l2a ? "<BOA_ADD_OFFSET band_id=\"" : "<RADIO_ADD_OFFSET band_id=\"") << i << "\">-1000"
              << (l2a ? "</BOA_ADD_OFFSET>\n" : "</RADIO_ADD_OFFSET>\n");
        x << (l2a ? "</BOA_ADD_OFFSET_VALUES_LIST>\n" : "</Radiometric_Offset_List>\n");
    }
    x << "<Reflectance_Conversion><U>1.03411047670495</U><Solar_Irradiance_List>\n";
    for (int i = 0; i < 13; ++i)
        x << "<SOLAR_IRRADIANCE bandId=\"" << i << "\" unit=\"W/m&#178;/&#181;m\">" << kBands[i].irradiance
          << "</SOLAR_IRRADIANCE>\n";
    x << "</Solar_Irradiance_List></Reflectance_Conversion>\n<Spectral_Information_List>\n";
    for (int i = 0; i < 13; ++i)
        x << "<Spectral_Information bandId=\"" << i << "\" physicalBand=\"" << kBands[i].id << "\"><RESOLUTION>"
          << kBands[i].resolution << "</RESOLUTION><Wavelength><MIN unit=\"nm\">1</MIN><MAX unit=\"nm\">2</MAX>"
          << "<CENTRAL unit=\"nm\">" << kBands[i].central << "</CENTRAL></Wavelength></Spectral_Information>\n";
    x << "</Spectral_Information_List>\n</Product_Image_Characteristics>\n</n1:General_Info>\n</n1:" << root << ">\n";
    return x.str();
}

std::string sentinel2TileXml(double zenith, double azimuth)
{
    std::ostringstream x;
    x << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<n1:Level-1C_Tile_ID xmlns:n1=\"x\">\n"
      << "<n1:General_Info><SENSING_TIME>2016-01-12T15:58:52.026Z</SENSING_TIME></n1:General_Info>\n"
      << "<n1:Geometric_Info><Tile_Angles><Sun_Angles_Grid><Zenith><VALUES>1 2</VALUES></Zenith></Sun_Angles_Grid>\n"
      << "<Mean_Sun_Angle><ZENITH_ANGLE unit=\"deg\">" << zenith << "</ZENITH_ANGLE><AZIMUTH_ANGLE unit=\"deg\">"
      << azimuth << "</AZIMUTH_ANGLE></Mean_Sun_Angle>\n"
      << "<Mean_Viewing_Incidence_Angle_List><Mean_Viewing_Incidence_Angle bandId=\"0\"><ZENITH_ANGLE unit=\"deg\">"
      << "7.5</ZENITH_ANGLE></Mean_Viewing_Incidence_Angle></Mean_Viewing_Incidence_Angle_List>\n"
      << "</Tile_Angles></n1:Geometric_Info>\n</n1:Level-1C_Tile_ID>\n";
    return x.str();
}

bool writeText(const QString& path, const std::string& text)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(text.data(), qint64(text.size())) == qint64(text.size());
}

QString makeSentinel2Safe(const QString& folder, const std::string& level, const std::string& baseline,
                          bool withOffsets)
{
    const QString sample = testsupport::sharedDataPath(QStringLiteral("sentinel2/s2_B05.jp2"));
    if (sample.isEmpty())
        return QString();
    const QString sampleDir = QFileInfo(sample).absolutePath();
    const QString safe = folder + QStringLiteral("/S2A_MSI_TEST.SAFE");
    const QString granule = QStringLiteral("L1C_T18SVG_A002939_20160112T155852");
    const bool l2a = level == "L2A";
    const QString name = QLatin1String(l2a ? "MTD_MSIL2A.xml" : "MTD_MSIL1C.xml");
    QDir().mkpath(safe + QStringLiteral("/GRANULE/") + granule);
    if (!writeText(safe + QLatin1Char('/') + name, sentinel2ProductXml(level, baseline, withOffsets, granule.toStdString())) ||
        !writeText(safe + QStringLiteral("/GRANULE/") + granule + QStringLiteral("/MTD_TL.xml"),
                   sentinel2TileXml(60.0, 160.0)))
        return QString();
    for (const char* band : {"B01", "B05", "B06", "B07", "B8A", "B09", "B10", "B11", "B12"})
    {
        const int res = (QString(band) == "B01" || QString(band) == "B09" || QString(band) == "B10") ? 60 : 20;
        QString imageFolder = safe + QStringLiteral("/GRANULE/") + granule + QStringLiteral("/IMG_DATA");
        QString file = QStringLiteral("T18SVG_20160112T155852_%1").arg(band);
        if (l2a)
        {
            imageFolder += QStringLiteral("/R%1m").arg(res);
            file += QStringLiteral("_%1m").arg(res);
        }
        QDir().mkpath(imageFolder);
        if (!QFile::link(sampleDir + QStringLiteral("/s2_%1.jp2").arg(band), imageFolder + QLatin1Char('/') + file + ".jp2"))
            return QString();
    }
    return safe;
}

bool linkLandsatSample(const QString& folder, const QStringList& names)
{
    const QString sample = testsupport::sharedDataPath(QStringLiteral("landsat8/l8_MTL.txt"));
    if (sample.isEmpty())
        return false;
    const QDir sampleDir = QFileInfo(sample).absoluteDir();
    const QStringList files = names.isEmpty() ? sampleDir.entryList(QDir::Files) : names;
    for (const QString& name : files)
        if (!QFile::link(sampleDir.filePath(name), folder + QLatin1Char('/') + name))
            return false;
    return true;
}

} // namespace opticalfixtures
