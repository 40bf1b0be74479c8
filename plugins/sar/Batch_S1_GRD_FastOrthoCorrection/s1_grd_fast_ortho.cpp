// Plug-in "Batch_S1_GRD_FastOrthoCorrection": Sentinel-1 GRD products to calibrated, noise-corrected sigma0 on a
// UTM grid, placed through thin-plate splines through the annotation's geolocation grid (heights from a DEM when
// one is given, else the grid's own terrain heights, shifting each cell in range by its height).
#include "dem_grid.h"
#include "generic_params.h"
#include "map_grid.h"
#include "plugin_base.h"
#include "raster_io.h"
#include "s1_annotation.h"
#include "s1_product.h"
#include "s1_radiometry.h"

#include <QDir>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

namespace
{

using namespace sargeo;

// The splines sampled every kLatticeStep map cells, interpolated bilinearly in between (the splines are smooth
// over a few hundred metres; evaluating them at every cell would cost a sum over all grid points).
constexpr int kLatticeStep = 32;
constexpr int kTileColumns = 256;

struct Lattice
{
    int columns = 0, rows = 0;
    std::vector<std::array<double, 4>> nodes; // line, ellipsoid pixel, terrain height, incidence

    // At fractional cell (column, row) of the map.
    std::array<double, 4> at(double column, double row) const
    {
        const double u = std::min(std::max(column / kLatticeStep, 0.0), columns - 1.0);
        const double v = std::min(std::max(row / kLatticeStep, 0.0), rows - 1.0);
        const int i = std::min(int(u), std::max(0, columns - 2)), j = std::min(int(v), std::max(0, rows - 2));
        const int i1 = std::min(i + 1, columns - 1), j1 = std::min(j + 1, rows - 1);
        const double fu = u - i, fv = v - j;
        std::array<double, 4> r;
        for (size_t k = 0; k < 4; ++k)
            r[k] = (1 - fv) * ((1 - fu) * nodes[size_t(j) * size_t(columns) + size_t(i)][k] +
                               fu * nodes[size_t(j) * size_t(columns) + size_t(i1)][k]) +
                   fv * ((1 - fu) * nodes[size_t(j1) * size_t(columns) + size_t(i)][k] +
                         fu * nodes[size_t(j1) * size_t(columns) + size_t(i1)][k]);
        return r;
    }
};

struct Image
{
    QString product;
    S1ImageFiles files;
    S1Annotation annotation;
    S1Calibration calibration;
    S1Noise noise;
    bool hasNoise = false;
    int epsg = 0;
    double x0 = 0, y0 = 0;
    int width = 0, height = 0;
    // The pixel surface is that of the ellipsoid (grid heights taken out); a height h brings a point nearer in
    // range by h / tan(incidence).
    std::unique_ptr<ThinPlateSpline> line, pixel, gridHeight, incidence;
    Lattice lattice;
    double fitRms = 0.0; // pixels, at the geolocation grid points through the lattice
    QString output;
};

class GrdFastOrtho : public algokit::PluginBase
{
public:
    GrdFastOrtho() : PluginBase(QStringLiteral("Batch_S1_GRD_FastOrthoCorrection")) {}

protected:
    bool run() override
    {
        const auto& record = params<GenericAlgoRecord>();
        algokit::GenericParams args(record, GetName());
        const auto inputs = args.text("InputFiles").required();
        const auto demParam = args.text("DEMFile");
        const QString demPath = demParam.isEmpty() ? QString() : QString(args.text("DEMFile").existingFile());
        const QString outputDir = args.text("OutputDir").required();
        const double resolution = args.real("Resolution").orDefault(20.0).above(0.0).atMost(10000.0);

        std::vector<std::unique_ptr<Image>> images;
        for (const QString& input : inputs.list())
            prepare(args, input, outputDir, resolution, images);
        std::vector<std::unique_ptr<DemGrid>> dems;
        for (const auto& image : images)
            dems.push_back(demPath.isEmpty() ? nullptr : demFor(args, demPath, *image, resolution));
        if (!QDir().mkpath(outputDir))
            args.refuse("OutputDir", outputDir, QStringLiteral("cannot be created"));

        QStringList written;
        for (size_t i = 0; i < images.size(); ++i)
        {
            orthorectify(*images[i], dems[i].get(), resolution, double(i) / images.size(), 1.0 / images.size());
            written << images[i]->output;
        }
        algokit::GenericOutputs outputs;
        outputs.add("Batch_S1_GRD_FastOrthoCorrection_images", written.join('|'));
        double worst = 0.0;
        for (const auto& image : images)
            worst = std::max(worst, image->fitRms);
        outputs.add("Batch_S1_GRD_FastOrthoCorrection_GridFitRMS", QString::number(worst, 'g', 4));
        setResult(outputs.result());
        return true;
    }

private:
    void prepare(const algokit::GenericParams& args, const QString& input, const QString& outputDir, double resolution,
                 std::vector<std::unique_ptr<Image>>& images)
    {
        std::unique_ptr<S1Product> product;
        try
        {
            product = std::make_unique<S1Product>(input);
        }
        catch (const std::exception& e)
        {
            args.refuse("InputFiles", input, QString::fromUtf8(e.what()));
        }
        int found = 0;
        for (const S1ImageFiles& files : product->images())
        {
            if (files.productType != "GRD")
                args.refuse("InputFiles", input, QStringLiteral("is a %1 product, not a GRD").arg(files.productType));
            if (files.measurement.isEmpty() || files.calibration.isEmpty())
                continue; // this polarisation was not delivered whole
            auto image = std::make_unique<Image>();
            image->product = input;
            image->files = files;
            try
            {
                image->annotation = readS1Annotation(readVirtualFile(files.annotation));
                image->calibration =
                    readS1Calibration(readVirtualFile(files.calibration), image->annotation.referenceDay);
                if (!files.noise.isEmpty())
                {
                    image->noise = readS1Noise(readVirtualFile(files.noise), image->annotation.referenceDay);
                    image->hasNoise = true;
                }
            }
            catch (const std::exception& e)
            {
                args.refuse("InputFiles", input, QStringLiteral("has an unreadable annotation (%1)").arg(e.what()));
            }
            fitGrid(args, input, *image);
            if (!placeOnMap(*image, resolution))
                args.refuse("Resolution", QString::number(resolution), QStringLiteral("makes a map grid too large"));
            image->output = QDir(outputDir).absoluteFilePath(files.stem + "_sigma0_geo.tif");
            algokit::DatasetPtr m = algokit::openRaster(files.measurement);
            if (m->GetRasterXSize() != image->annotation.numberOfSamples ||
                m->GetRasterYSize() != image->annotation.numberOfLines)
                args.refuse("InputFiles", input,
                            QStringLiteral("has a measurement of %1 x %2 samples, its annotation says %3 x %4")
                                .arg(m->GetRasterXSize())
                                .arg(m->GetRasterYSize())
                                .arg(image->annotation.numberOfSamples)
                                .arg(image->annotation.numberOfLines));
            images.push_back(std::move(image));
            ++found;
        }
        if (found == 0)
            args.refuse("InputFiles", input, QStringLiteral("holds no GRD image with its measurement and calibration"));
    }

    // Cubic surfaces over the map coordinates of the geolocation grid: line, pixel, terrain height, incidence.
    static void fitGrid(const algokit::GenericParams& args, const QString& input, Image& image)
    {
        const auto& grid = image.annotation.geolocationGrid;
        if (grid.size() < 10)
            args.refuse("InputFiles", input, QStringLiteral("has fewer than ten geolocation grid points"));
        double lat = 0, lon = 0;
        for (const S1GridPoint& p : grid)
            lat += p.latitude / grid.size(), lon += p.longitude / grid.size();
        image.epsg = utmEpsgFor(lat, lon);
        auto toMap = lonLatTransform(image.epsg);
        std::vector<double> x, y, line, pixel, height, incidence;
        for (const S1GridPoint& p : grid)
        {
            double px = p.longitude, py = p.latitude;
            toMap->Transform(1, &px, &py);
            x.push_back(px), y.push_back(py), line.push_back(p.line), height.push_back(p.height),
                incidence.push_back(p.incidenceAngle);
            pixel.push_back(p.pixel + heightShift(image.annotation, p.height, p.incidenceAngle));
        }
        image.line = std::make_unique<ThinPlateSpline>(x, y, line);
        image.pixel = std::make_unique<ThinPlateSpline>(x, y, pixel);
        image.gridHeight = std::make_unique<ThinPlateSpline>(x, y, height);
        image.incidence = std::make_unique<ThinPlateSpline>(x, y, incidence);
    }

    // Pixels by which a point at height h appears nearer than the ellipsoid point below it.
    static double heightShift(const S1Annotation& a, double h, double incidenceDegrees)
    {
        return h / std::tan(incidenceDegrees * kDegree) / a.rangePixelSpacing;
    }

    // False when the grid would exceed 200000 cells a side or 4e9 cells.
    static bool placeOnMap(Image& image, double resolution)
    {
        auto toMap = lonLatTransform(image.epsg);
        double xmin = 1e300, xmax = -1e300, ymin = 1e300, ymax = -1e300;
        for (const S1GridPoint& p : image.annotation.geolocationGrid)
        {
            double x = p.longitude, y = p.latitude;
            toMap->Transform(1, &x, &y);
            xmin = std::min(xmin, x), xmax = std::max(xmax, x), ymin = std::min(ymin, y), ymax = std::max(ymax, y);
        }
        image.x0 = std::floor(xmin / resolution) * resolution;
        image.y0 = std::ceil(ymax / resolution) * resolution;
        const double columns = std::ceil((xmax - image.x0) / resolution), rows = std::ceil((image.y0 - ymin) / resolution);
        if (columns > 200000 || rows > 200000 || columns * rows > 4e9)
            return false;
        image.width = int(columns);
        image.height = int(rows);

        Lattice& lattice = image.lattice;
        lattice.columns = image.width / kLatticeStep + 2;
        lattice.rows = image.height / kLatticeStep + 2;
        lattice.nodes.resize(size_t(lattice.columns) * size_t(lattice.rows));
        algokit::parallelFor(lattice.rows, [&](int begin, int end) {
            for (int j = begin; j < end; ++j)
                for (int i = 0; i < lattice.columns; ++i)
                {
                    const double x = image.x0 + (i * kLatticeStep + 0.5) * resolution;
                    const double y = image.y0 - (j * kLatticeStep + 0.5) * resolution;
                    lattice.nodes[size_t(j) * size_t(lattice.columns) + size_t(i)] = {
                        image.line->at(x, y), image.pixel->at(x, y), image.gridHeight->at(x, y), image.incidence->at(x, y)};
                }
        });
        double sum = 0.0;
        for (const S1GridPoint& p : image.annotation.geolocationGrid)
        {
            double x = p.longitude, y = p.latitude;
            toMap->Transform(1, &x, &y);
            const auto v = lattice.at((x - image.x0) / resolution - 0.5, (image.y0 - y) / resolution - 0.5);
            const double dl = v[0] - p.line, dp = v[1] - heightShift(image.annotation, p.height, v[3]) - p.pixel;
            sum += dl * dl + dp * dp;
        }
        image.fitRms = std::sqrt(sum / double(image.annotation.geolocationGrid.size()));
        return true;
    }

    std::unique_ptr<DemGrid> demFor(const algokit::GenericParams& args, const QString& demPath, const Image& image,
                                    double resolution)
    {
        double west = 1e300, east = -1e300, south = 1e300, north = -1e300;
        for (const S1GridPoint& p : image.annotation.geolocationGrid)
            west = std::min(west, p.longitude), east = std::max(east, p.longitude),
            south = std::min(south, p.latitude), north = std::max(north, p.latitude);
        (void)resolution;
        try
        {
            return std::make_unique<DemGrid>(demPath, west, south, east, north);
        }
        catch (const algokit::AlgoError& e)
        {
            args.refuse("DEMFile", demPath, QStringLiteral("%1 (scene of %2)").arg(e.message(), image.product));
        }
    }

    void orthorectify(const Image& image, const DemGrid* dem, double resolution, double progressStart,
                      double progressSpan)
    {
        const S1Annotation& a = image.annotation;
        const VectorLut sigma = calibrationLut(image.calibration, CalibrationTarget::Sigma0);
        std::unique_ptr<NoiseLut> noise = image.hasNoise ? std::make_unique<NoiseLut>(image.noise) : nullptr;
        algokit::DatasetPtr source = algokit::openRaster(image.files.measurement);
        GDALRasterBand* in = source->GetRasterBand(1);

        claimOutput(image.output);
        algokit::OutputRaster out(image.output, "GTiff", image.width, image.height, 1, GDT_Float32,
                                  {"TILED=YES", "COMPRESS=DEFLATE", "BIGTIFF=IF_SAFER"});
        OGRSpatialReference utm;
        utm.importFromEPSG(image.epsg);
        out.get()->SetSpatialRef(&utm);
        double transform[6] = {image.x0, resolution, 0, image.y0, 0, -resolution};
        out.get()->SetGeoTransform(transform);
        out.band(0)->SetDescription(("Sigma0_" + a.polarisation).c_str());
        out.band(0)->SetNoDataValue(std::numeric_limits<double>::quiet_NaN());
        out.get()->SetMetadataItem("CALIBRATION", "sigma0 = (DN^2 - noise) / A^2, linear");

        const int blockRows = 64;
        const int lines = a.numberOfLines, samples = a.numberOfSamples;
        std::vector<double> cellLine, cellPixel;
        std::vector<float> values;
        std::vector<float> window;
        for (int row0 = 0; row0 < image.height; row0 += blockRows)
        {
            const int rows = std::min(blockRows, image.height - row0);
            const size_t count = size_t(rows) * size_t(image.width);
            cellLine.assign(count, -1.0);
            cellPixel.assign(count, -1.0);
            algokit::parallelFor(rows, [&](int begin, int end) {
                auto inverse = dem ? lonLatTransform(image.epsg, true) : nullptr;
                for (int r = begin; r < end; ++r)
                    for (int c = 0; c < image.width; ++c)
                    {
                        const double x = image.x0 + (c + 0.5) * resolution, y = image.y0 - (row0 + r + 0.5) * resolution;
                        const auto node = image.lattice.at(c, row0 + r);
                        double h = node[2];
                        if (dem)
                        {
                            double lon = x, lat = y;
                            if (!inverse->Transform(1, &lon, &lat) || !dem->height(lon, lat, &h))
                                continue;
                        }
                        const double line = node[0];
                        const double pixel = node[1] - heightShift(a, h, node[3]);
                        if (line < -0.5 || pixel < -0.5 || line > lines - 0.5 || pixel > samples - 0.5)
                            continue;
                        cellLine[size_t(r) * size_t(image.width) + size_t(c)] = line;
                        cellPixel[size_t(r) * size_t(image.width) + size_t(c)] = pixel;
                    }
            });
            values.assign(count, std::numeric_limits<float>::quiet_NaN());
            // Tiles of the block read their own image window, which keeps the memory bounded whatever the track's
            // angle to the map's rows.
            for (int tile0 = 0; tile0 < image.width; tile0 += kTileColumns)
            {
                const int tile1 = std::min(image.width, tile0 + kTileColumns);
                double l0 = 1e300, l1 = -1e300, p0 = 1e300, p1 = -1e300;
                for (int r = 0; r < rows; ++r)
                    for (int c = tile0; c < tile1; ++c)
                    {
                        const size_t i = size_t(r) * size_t(image.width) + size_t(c);
                        if (cellLine[i] >= -0.5)
                            l0 = std::min(l0, cellLine[i]), l1 = std::max(l1, cellLine[i]),
                            p0 = std::min(p0, cellPixel[i]), p1 = std::max(p1, cellPixel[i]);
                    }
                if (!(l1 >= l0))
                    continue;
                const int wl0 = std::max(0, int(std::floor(l0))), wl1 = std::min(lines - 1, int(std::floor(l1)) + 1);
                const int wp0 = std::max(0, int(std::floor(p0))), wp1 = std::min(samples - 1, int(std::floor(p1)) + 1);
                const int ww = wp1 - wp0 + 1, wh = wl1 - wl0 + 1;
                if (double(ww) * wh * 4.0 > double(algokit::kMaxImageBytes) / 4)
                    throw algokit::AlgoError(QStringLiteral("The map rows %1.. need too large a window").arg(row0));
                window.resize(size_t(ww) * size_t(wh));
                if (in->RasterIO(GF_Read, wp0, wl0, ww, wh, window.data(), ww, wh, GDT_Float32, 0, 0) != CE_None)
                    throw algokit::AlgoError(QStringLiteral("Read failed in %1").arg(image.files.measurement));
                const int tileWidth = tile1 - tile0;
                algokit::parallelFor(rows * tileWidth, [&](int begin, int end) {
                    for (int k = begin; k < end; ++k)
                    {
                        const size_t i = size_t(k / tileWidth) * size_t(image.width) + size_t(tile0 + k % tileWidth);
                        if (cellLine[i] < -0.5)
                            continue;
                        // Calibrate the four neighbours, then interpolate: sigma0 is what is resampled.
                        const double l = std::min(std::max(cellLine[i], 0.0), lines - 1.0);
                        const double p = std::min(std::max(cellPixel[i], 0.0), samples - 1.0);
                        const int li = std::min(int(l), std::max(wl0, wl1 - 1));
                        const int pi = std::min(int(p), std::max(wp0, wp1 - 1));
                        const double fl = l - li, fp = p - pi;
                        double v = 0.0;
                        for (int dy = 0; dy < 2; ++dy)
                            for (int dx = 0; dx < 2; ++dx)
                            {
                                const int yy = std::min(li + dy, wl1), xx = std::min(pi + dx, wp1);
                                const double dn = window[size_t(yy - wl0) * size_t(ww) + size_t(xx - wp0)];
                                const double n = noise ? noise->at(yy, xx) : 0.0;
                                const double s = calibrated(dn * dn, n, sigma.at(yy, xx));
                                v += (dy ? fl : 1 - fl) * (dx ? fp : 1 - fp) * s;
                            }
                        values[i] = float(v);
                    }
                });
            }
            if (out.band(0)->RasterIO(GF_Write, 0, row0, image.width, rows, values.data(), image.width, rows,
                                      GDT_Float32, 0, 0) != CE_None)
                throw algokit::AlgoError(QStringLiteral("Write failed: %1").arg(image.output));
            progress(100.0 * (progressStart + progressSpan * double(row0 + rows) / image.height));
        }
        out.commit();
    }
};

} // namespace

ALGO_PLUGIN_FACTORY(GrdFastOrtho)
