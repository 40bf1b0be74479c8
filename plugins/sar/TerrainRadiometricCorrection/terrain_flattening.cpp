// Plug-in "TerrainRadiometricCorrection": radiometric terrain flattening (Small 2011). The DEM, sampled finer than
// the image, is cut into facets; each facet's area projected onto the plane perpendicular to the line of sight is
// added to the image pixel it falls in, and gamma0 = beta0 x (beta reference area / that illuminated area).
#include "dem_grid.h"
#include "generic_params.h"
#include "plugin_base.h"
#include "range_doppler.h"
#include "raster_io.h"
#include "s1_product.h"
#include "sar_parameter_file.h"

#include <Eigen/Geometry>

#include <QFile>
#include <QFileInfo>

#include <cmath>
#include <limits>

namespace
{

using namespace sargeo;

constexpr unsigned char kValid = 0, kLayover = 1, kShadow = 2;

class TerrainFlattening : public algokit::PluginBase
{
public:
    TerrainFlattening() : PluginBase(QStringLiteral("TerrainRadiometricCorrection")) {}

protected:
    bool run() override
    {
        const auto& record = params<GenericAlgoRecord>();
        algokit::GenericParams args(record, GetName());
        const auto inputParam = args.text("InputFile").required().existingFile();
        const QString input = inputParam;
        const QString demPath = args.text("DEMFile").required().existingFile();
        const QString output = args.text("OutputFile").required().writableOutput();
        algokit::DatasetPtr source = inputParam.openRaster();
        if (QFileInfo(output).absoluteFilePath() == QFileInfo(input).absoluteFilePath())
            args.refuse("OutputFile", output, QStringLiteral("is the input file"));

        SarParameterRecord parameters;
        bool read = false;
        const QString parameterPath = sarParameterFilePath(input);
        try
        {
            read = ReadSarParameterFile(QFile::encodeName(parameterPath).constData(), parameters);
        }
        catch (const std::exception&)
        {
        }
        if (!read)
            args.refuse("InputFile", input, QStringLiteral("has no readable SAR parameter file %1").arg(parameterPath));
        if (parameters.imageGeometry != "SLANT_RANGE")
            args.refuse("InputFile", input, QStringLiteral("is not in slant-range radar geometry"));
        std::unique_ptr<RangeDoppler> model;
        try
        {
            model = std::make_unique<RangeDoppler>(rangeDopplerFromRecord(parameters));
        }
        catch (const std::exception& e)
        {
            args.refuse("InputFile", input, QString::fromUtf8(e.what()));
        }
        const int width = source->GetRasterXSize(), height = source->GetRasterYSize();
        if (width != parameters.numberOfColumns || height != parameters.numberOfRows || width < 2 || height < 2)
            args.refuse("InputFile", input, QStringLiteral("does not have the size its parameter file gives"));
        GDALRasterBand* band = source->GetRasterBand(1);
        if (GDALDataTypeIsComplex(band->GetRasterDataType()))
            args.refuse("InputFile", input, QStringLiteral("is complex; give a beta0 or sigma0 intensity image"));
        const QString description = QString::fromUtf8(band->GetDescription());
        const bool sigmaInput = description.contains("sigma", Qt::CaseInsensitive);
        if (!sigmaInput && !description.contains("beta", Qt::CaseInsensitive))
            args.refuse("InputFile", input,
                        QStringLiteral("has a band described \"%1\", neither beta0 nor sigma0").arg(description));
        algokit::checkWholeImageSize(source.get(), input, 9);

        // The scene's extent on the ground (image border at sea level, with a margin for relief).
        double west = 1e300, east = -1e300, south = 1e300, north = -1e300;
        for (int i = 0; i <= 8; ++i)
            for (const auto& at : {std::make_pair(0.0, i * (width - 1) / 8.0), std::make_pair(height - 1.0, i * (width - 1) / 8.0),
                                   std::make_pair(i * (height - 1) / 8.0, 0.0), std::make_pair(i * (height - 1) / 8.0, width - 1.0)})
            {
                Vec3 p;
                if (!model->imageToGround(at.first, at.second, 0.0, &p))
                    args.refuse("InputFile", input, QStringLiteral("has an orbit that does not see its own image"));
                double lat, lon, h;
                ecefToGeodetic(p, &lat, &lon, &h, model->ellipsoid());
                west = std::min(west, lon), east = std::max(east, lon), south = std::min(south, lat), north = std::max(north, lat);
            }
        const double margin = 0.01;
        std::unique_ptr<DemGrid> dem;
        try
        {
            dem = std::make_unique<DemGrid>(demPath, west - margin, south - margin, east + margin, north + margin);
        }
        catch (const algokit::AlgoError& e)
        {
            args.refuse("DEMFile", demPath, e.message());
        }

        // Reference (beta) area of one pixel: slant spacing times the ground distance between lines.
        Vec3 a0, a1;
        model->imageToGround(0.5 * height - 0.5, 0.5 * width, 0.0, &a0);
        model->imageToGround(0.5 * height + 0.5, 0.5 * width, 0.0, &a1);
        const double lineSpacing = (a1 - a0).norm();
        const double betaArea = model->grid().rangeSpacing * lineSpacing;
        // Facets about a third of a pixel across on the ground.
        const double groundRange = model->grid().rangeSpacing / std::sin(parameters.incidenceAngle > 5 ? parameters.incidenceAngle * kDegree : 0.6);
        const double facet = std::min(groundRange, lineSpacing) / 3.0;
        const double latStep = facet / 111320.0;
        const double lonStep = facet / (111320.0 * std::cos(0.5 * (south + north) * kDegree));
        const int columns = int(std::ceil((east - west + 2 * margin) / lonStep));
        const int rows = int(std::ceil((north - south + 2 * margin) / latStep));

        std::vector<double> area(size_t(width) * size_t(height), 0.0);
        std::vector<unsigned char> flags(size_t(width) * size_t(height), kValid);
        std::vector<double> h0(size_t(columns) + 1), h1(size_t(columns) + 1);
        std::vector<char> ok0(size_t(columns) + 1), ok1(size_t(columns) + 1);
        auto heightsOf = [&](int row, std::vector<double>& h, std::vector<char>& ok) {
            for (int c = 0; c <= columns; ++c)
                ok[size_t(c)] = dem->height(west - margin + c * lonStep, north + margin - row * latStep, &h[size_t(c)]);
        };
        heightsOf(0, h0, ok0);
        double guess = model->lineTimeOf(0.5 * height);
        for (int r = 0; r < rows; ++r)
        {
            heightsOf(r + 1, h1, ok1);
            const double latTop = north + margin - r * latStep, latBottom = latTop - latStep;
            for (int c = 0; c < columns; ++c)
            {
                if (!ok0[size_t(c)] || !ok0[size_t(c) + 1] || !ok1[size_t(c)] || !ok1[size_t(c) + 1])
                    continue;
                const double lonLeft = west - margin + c * lonStep, lonRight = lonLeft + lonStep;
                const Vec3 p00 = geodeticToEcef(latTop, lonLeft, h0[size_t(c)], model->ellipsoid());
                const Vec3 p01 = geodeticToEcef(latTop, lonRight, h0[size_t(c) + 1], model->ellipsoid());
                const Vec3 p10 = geodeticToEcef(latBottom, lonLeft, h1[size_t(c)], model->ellipsoid());
                const Vec3 p11 = geodeticToEcef(latBottom, lonRight, h1[size_t(c) + 1], model->ellipsoid());
                const Vec3 centre = 0.25 * (p00 + p01 + p10 + p11);
                double line, pixel;
                if (!model->groundToImage(centre, &line, &pixel, &guess))
                {
                    guess = model->lineTimeOf(0.5 * height);
                    continue;
                }
                if (line < -1 || pixel < -1 || line > height || pixel > width)
                    continue;
                Vec3 s;
                model->orbit().at(guess, &s, nullptr);
                const Vec3 look = (s - centre).normalized();
                // Area vector of the cell (two triangles), upwards; its component along the look direction is the
                // area the radar sees, zero for facets turned away.
                const Vec3 normal = 0.5 * ((p10 - p00).cross(p11 - p00) + (p11 - p00).cross(p01 - p00));
                const Vec3 up = centre.normalized();
                const Vec3 n = normal.dot(up) >= 0 ? normal : Vec3(-normal);
                const double seen = std::max(0.0, n.dot(look));
                // Layover when the facet faces the sensor more steeply than the beam; shadow when it turns away
                // beyond grazing.
                const Vec3 unit = n.normalized();
                const double localCos = unit.dot(look);
                const double ellipsoidCos = up.dot(look);
                unsigned char flag = kValid;
                if (localCos <= 0.0)
                    flag = kShadow;
                else if (std::acos(std::min(1.0, unit.dot(up))) > std::acos(std::min(1.0, ellipsoidCos)) &&
                         (look - ellipsoidCos * up).dot(unit - unit.dot(up) * up) > 0)
                    flag = kLayover;
                splat(area, flags, width, height, line, pixel, seen, flag);
            }
            std::swap(h0, h1);
            std::swap(ok0, ok1);
            progress(70.0 * (r + 1) / rows);
        }

        // Ellipsoid incidence per column on the first, centre and last lines (for sigma0 -> beta0).
        std::vector<double> incidence[3];
        const double refLines[3] = {0.0, 0.5 * (height - 1), height - 1.0};
        for (int k = 0; k < 3; ++k)
            for (int c = 0; c < width; ++c)
            {
                Vec3 p;
                model->imageToGround(refLines[k], c, 0.0, &p);
                incidence[k].push_back(model->ellipsoidIncidence(p, model->lineTimeOf(refLines[k])) * kDegree);
            }

        claimOutput(output);
        algokit::OutputRaster out(output, algokit::driverForPath(output), width, height, 1, GDT_Float32);
        out.band(0)->SetDescription("Gamma0_T");
        out.band(0)->SetNoDataValue(std::numeric_limits<double>::quiet_NaN());
        const QFileInfo info(output);
        const QString maskPath = info.absolutePath() + "/" + info.completeBaseName() + "_lsmask.tif";
        claimOutput(maskPath);
        algokit::OutputRaster mask(maskPath, "GTiff", width, height, 1, GDT_Byte);
        mask.band(0)->SetDescription("Layover/shadow");
        {
            GDALColorTable colours;
            const GDALColorEntry valid{200, 200, 200, 255}, layover{230, 60, 40, 255}, shadow{30, 30, 120, 255};
            colours.SetColorEntry(kValid, &valid);
            colours.SetColorEntry(kLayover, &layover);
            colours.SetColorEntry(kShadow, &shadow);
            mask.band(0)->SetColorTable(&colours);
            char* names[] = {const_cast<char*>("Valid"), const_cast<char*>("Layover"), const_cast<char*>("Shadow"), nullptr};
            mask.band(0)->SetCategoryNames(names);
        }
        const int step = algokit::rowsPerBlock(source.get(), 4);
        std::vector<float> values;
        algokit::forEachRowBlock(height, step, [&](int row0, int n) {
            algokit::readRows(band, row0, n, values);
            for (int r = 0; r < n; ++r)
            {
                const double y = row0 + r;
                const int k = y <= refLines[1] ? 0 : 1;
                const double f = (y - refLines[k]) / std::max(1.0, refLines[k + 1] - refLines[k]);
                for (int c = 0; c < width; ++c)
                {
                    const size_t i = size_t(row0 + r) * size_t(width) + size_t(c);
                    float& v = values[size_t(r) * size_t(width) + size_t(c)];
                    double beta = v;
                    if (sigmaInput)
                        beta = v / std::sin((1 - f) * incidence[k][size_t(c)] + f * incidence[k + 1][size_t(c)]);
                    v = area[i] > 1e-6 * betaArea ? float(beta * betaArea / area[i]) : std::numeric_limits<float>::quiet_NaN();
                    if (area[i] <= 1e-6 * betaArea && flags[i] == kValid)
                        flags[i] = kShadow;
                }
            }
            algokit::writeRows(out.band(0), row0, n, values);
            std::vector<unsigned char> part(flags.begin() + std::ptrdiff_t(size_t(row0) * size_t(width)),
                                            flags.begin() + std::ptrdiff_t(size_t(row0 + n) * size_t(width)));
            algokit::writeRows(mask.band(0), row0, n, part);
            progress(70.0 + 30.0 * (row0 + n) / height);
        });
        out.commit();
        mask.commit();
        setResult(algokit::GenericOutputs().add("TerrainRadiometricCorrection_images", output + "|" + maskPath).result());
        return true;
    }

private:
    // Adds a facet's seen area to the four pixels around its image position, bilinearly, and marks them.
    static void splat(std::vector<double>& area, std::vector<unsigned char>& flags, int width, int height, double line,
                      double pixel, double seen, unsigned char flag)
    {
        const int l0 = int(std::floor(line)), p0 = int(std::floor(pixel));
        const double fl = line - l0, fp = pixel - p0;
        for (int dy = 0; dy < 2; ++dy)
            for (int dx = 0; dx < 2; ++dx)
            {
                const int y = l0 + dy, x = p0 + dx;
                if (y < 0 || x < 0 || y >= height || x >= width)
                    continue;
                const double w = (dy ? fl : 1 - fl) * (dx ? fp : 1 - fp);
                const size_t i = size_t(y) * size_t(width) + size_t(x);
                area[i] += w * seen;
                if (flag != kValid && w > 0.25)
                    flags[i] = std::max(flags[i], flag);
            }
    }
};

} // namespace

ALGO_PLUGIN_FACTORY(TerrainFlattening)
