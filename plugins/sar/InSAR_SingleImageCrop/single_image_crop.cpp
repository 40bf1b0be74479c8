// Plug-in "InSAR_SingleImageCrop": a window of a radar image, given in pixels or as a longitude/latitude box
// mapped through the range-Doppler model, with its parameter file moved to the window.
#include "generic_params.h"
#include "plugin_base.h"
#include "range_doppler.h"
#include "raster_io.h"
#include "record_geometry.h"
#include "s1_product.h"
#include "sar_parameter_file.h"

#include <QFile>
#include <QFileInfo>

#include <cmath>

namespace
{

using namespace sargeo;

class SingleImageCrop : public algokit::PluginBase
{
public:
    SingleImageCrop() : PluginBase(QStringLiteral("InSAR_SingleImageCrop")) {}

protected:
    bool run() override
    {
        const auto& record = params<GenericAlgoRecord>();
        algokit::GenericParams args(record, GetName());
        const auto inputParam = args.text("InputFile").required().existingFile();
        const QString input = inputParam;
        const QString output = args.text("OutputFile").required().writableOutput();
        const auto regionParam = args.text("Region");
        algokit::DatasetPtr source = inputParam.openRaster();
        const int width = source->GetRasterXSize(), height = source->GetRasterYSize();
        if (QFileInfo(output).absoluteFilePath() == QFileInfo(input).absoluteFilePath())
            args.refuse("OutputFile", output, QStringLiteral("is the input file"));

        // The parameter file, when the image has one (a longitude/latitude box needs it).
        const QString parameterPath = sarParameterFilePath(input);
        SarParameterRecord parameters;
        std::unique_ptr<RangeDoppler> model;
        bool hasParameters = false;
        if (QFileInfo(parameterPath).isFile())
        {
            try
            {
                hasParameters = ReadSarParameterFile(QFile::encodeName(parameterPath).constData(), parameters);
                if (hasParameters)
                    model = std::make_unique<RangeDoppler>(rangeDopplerFromRecord(parameters));
            }
            catch (const std::exception& e)
            {
                args.refuse("InputFile", input,
                            QStringLiteral("has a parameter file that cannot be used (%1)").arg(e.what()));
            }
            if (!hasParameters)
                args.refuse("InputFile", input, QStringLiteral("has an unreadable parameter file %1").arg(parameterPath));
            if (parameters.numberOfColumns != width || parameters.numberOfRows != height)
                args.refuse("InputFile", input, QStringLiteral("does not have the size its parameter file gives"));
        }

        int x0 = 0, x1 = width - 1, y0 = 0, y1 = height - 1;
        const QStringList items = regionParam.list();
        if (!regionParam.isEmpty())
        {
            const std::vector<double> v = regionParam.doubleList();
            if (v.size() != 4)
                args.refuse("Region", regionParam.value(), QStringLiteral("is not x0|x1|y0|y1 or west|east|south|north"));
            const bool pixels = std::all_of(items.begin(), items.end(), [](const QString& s) {
                bool isInt = false;
                s.trimmed().toInt(&isInt);
                return isInt;
            });
            double c0, c1, r0, r1;
            if (pixels)
                c0 = std::min(v[0], v[1]), c1 = std::max(v[0], v[1]), r0 = std::min(v[2], v[3]), r1 = std::max(v[2], v[3]);
            else if (!model)
                args.refuse("Region", regionParam.value(),
                            QStringLiteral("is a longitude/latitude box but the image has no parameter file"));
            else if (!boxToImage(*model, cornerHeightOf(parameters, *model), v, &c0, &c1, &r0, &r1))
                args.refuse("Region", regionParam.value(), QStringLiteral("cannot be placed in the image"));
            if (c1 < 0 || r1 < 0 || c0 > width - 1 || r0 > height - 1)
                args.refuse("Region", regionParam.value(),
                            QStringLiteral("lies outside the image (%1 x %2)").arg(width).arg(height));
            x0 = std::max(0, int(std::floor(c0))), x1 = std::min(width - 1, int(std::ceil(c1)));
            y0 = std::max(0, int(std::floor(r0))), y1 = std::min(height - 1, int(std::ceil(r1)));
        }
        const int w = x1 - x0 + 1, h = y1 - y0 + 1;

        QStringList written;
        claimOutput(output);
        const int bands = source->GetRasterCount();
        const GDALDataType type = source->GetRasterBand(1)->GetRasterDataType();
        algokit::OutputRaster out(output, algokit::driverForPath(output), w, h, bands, type);
        for (int b = 0; b < bands; ++b)
        {
            GDALRasterBand* in = source->GetRasterBand(b + 1);
            out.band(b)->SetDescription(in->GetDescription());
            int hasNoData = 0;
            const double noData = in->GetNoDataValue(&hasNoData);
            if (hasNoData)
                out.band(b)->SetNoDataValue(noData);
        }
        const int step = algokit::rowsPerBlock(source.get(), size_t(GDALGetDataTypeSizeBytes(type)));
        std::vector<unsigned char> buffer;
        const size_t rowBytes = size_t(w) * size_t(GDALGetDataTypeSizeBytes(type));
        algokit::forEachRowBlock(h, step, [&](int row0, int rows) {
            buffer.resize(rowBytes * size_t(rows));
            for (int b = 0; b < bands; ++b)
            {
                if (source->GetRasterBand(b + 1)->RasterIO(GF_Read, x0, y0 + row0, w, rows, buffer.data(), w, rows,
                                                           type, 0, 0) != CE_None ||
                    out.band(b)->RasterIO(GF_Write, 0, row0, w, rows, buffer.data(), w, rows, type, 0, 0) != CE_None)
                    throw algokit::AlgoError(QStringLiteral("Copy failed at line %1: %2")
                                                 .arg(y0 + row0)
                                                 .arg(CPLGetLastErrorMsg()));
            }
            progress(100.0 * (row0 + rows) / h);
        });
        out.commit();
        written << output;
        if (model)
        {
            const double cornerHeight = cornerHeightOf(parameters, *model);
            if (!cropRecord(parameters, *model, x0, y0, w, h, cornerHeight))
                return fail(QStringLiteral("The orbit does not see the corners of the window"));
            const QString outputParameters = sarParameterFilePath(output);
            claimOutput(outputParameters);
            QString error;
            if (!WriteSarParameterFile(outputParameters, parameters, &error))
                return fail(error);
            written << outputParameters;
        }
        setResult(algokit::GenericOutputs()
                      .add("InSAR_SingleImageCrop_images", written.join('|'))
                      .add("InSAR_SingleImageCrop_Region",
                           QStringLiteral("%1|%2|%3|%4").arg(x0).arg(x1).arg(y0).arg(y1))
                      .result());
        return true;
    }

private:
    // Image bounds of a west|east|south|north box: its border and interior sampled on an 11 x 11 grid.
    static bool boxToImage(const RangeDoppler& model, double h, const std::vector<double>& v, double* c0, double* c1,
                           double* r0, double* r1)
    {
        const double west = std::min(v[0], v[1]), east = std::max(v[0], v[1]);
        const double south = std::min(v[2], v[3]), north = std::max(v[2], v[3]);
        if (south < -90 || north > 90)
            return false;
        *c0 = *r0 = 1e300, *c1 = *r1 = -1e300;
        double guess = model.lineTimeOf(0.5 * model.grid().height);
        for (int i = 0; i <= 10; ++i)
            for (int j = 0; j <= 10; ++j)
            {
                double line, pixel;
                const Vec3 p = geodeticToEcef(south + (north - south) * i / 10.0, west + (east - west) * j / 10.0, h,
                                              model.ellipsoid());
                if (!model.groundToImage(p, &line, &pixel, &guess))
                    return false;
                *c0 = std::min(*c0, pixel), *c1 = std::max(*c1, pixel), *r0 = std::min(*r0, line), *r1 = std::max(*r1, line);
            }
        return true;
    }
};

} // namespace

ALGO_PLUGIN_FACTORY(SingleImageCrop)
