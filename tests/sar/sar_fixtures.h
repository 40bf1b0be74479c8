// Fixtures of the radar import tests: GF-3 products (meta.xml from the published outline, two-band Int16 channel
// tiffs) and COSMO-SkyMed SLC HDF5 files with the documented group layout.
#pragma once

#include <QString>
#include <QStringList>
#include <functional>
#include <string>
#include <vector>

namespace sarfixtures
{

// Real product names (from public documents); the meta.xml carries the product polarisation, tiffs the channel.
extern const char* const kQpsiProduct;  // GF3_SAY_QPSI_011102_E121.2_N31.2_20181025_L1A_%1_L10003543018
extern const char* const kFsiProduct;   // GF3_KAS_FSI_014480_E103.4_N31.0_20190511_L1A_%1_L10003992720
extern const char* const kFsiiProduct;  // GF3_MDJ_FSII_006377_E139.7_N35.4_20171026_L1A_%1_L10002710612
extern const char* const kSlProduct;    // GF3_KAS_SL_005811_W95.1_N16.4_20170917_L1A_%1_L10002605023

// The values a fixture meta.xml holds; each text is written as given (empty texts give empty elements).
struct Gf3Meta
{
    QString satellite = "GF3";
    QString imagingMode = "QPSI";
    QString centerTime = "2018-10-25 10:11:12.345678";
    QString polarization = "AHV";
    QString nearRange = "950000.5";
    QStringList replacements; // pairs: text to find, text to put instead
};
QString gf3MetaXml(const Gf3Meta& meta);

// Writes <folder>/<name with polarization>.meta.xml and the channel tiffs of `channels` (width x height, two Int16
// bands I and Q). Returns the meta.xml path.
QString writeGf3Product(const QString& folder, const char* productName, const Gf3Meta& meta,
                        const QStringList& channels, int width = 7, int height = 5);
// The tiff of a channel, as written by writeGf3Product.
QString gf3ChannelImage(const QString& folder, const char* productName, const QString& channel);
// The I and Q sample values of a fixture channel at (x, y).
int gf3SampleI(const QString& channel, int x, int y);
int gf3SampleQ(const QString& channel, int x, int y);

// Fixture GF-3 orbit: three vectors 10 s apart starting at 10:11:00 UTC.
double gf3VectorX(int index);

struct CskSwath
{
    int lines = 6;
    int samples = 4;
    bool withBeamGroup = true;
    bool withImage = true;
};
// Writes an HDF5 file with groups S01.. (and B001 inside each), dataset SBI (lines x samples x 2 Int16, samples
// from cskSample) and the product attributes used by the importer.
bool writeCskProduct(const QString& path, const std::vector<CskSwath>& swaths);
int cskSample(int swath, int line, int sample, int part);

// Fixture CSK attribute values, for checks of the written parameter file.
constexpr double kCskWavelength = 0.031228381041666666;
constexpr double kCskLineTime = 3.3e-4;
constexpr double kCskRangeFirstTime = 0.0052;
constexpr double kCskAzimuthFirstTime = 36000.25;

} // namespace sarfixtures

namespace sarfixtures
{

// Complex samples of band 1 of a raster as (real, imaginary) pairs of doubles, row by row.
std::vector<double> readComplex(const QString& path);

// Names of the files in a folder, sorted.
QStringList filesIn(const QString& folder);

} // namespace sarfixtures
