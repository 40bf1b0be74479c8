// Plug-in "InSAR_Slant2Ground": slant-range image to uniform ground range on the ellipsoid; the slant range as a
// polynomial of ground range (first, centre and last line) goes into the output's parameter file.
#include "generic_params.h"
#include "plugin_base.h"
#include "range_doppler.h"
#include "raster_io.h"
#include "s1_product.h"
#include "sar_parameter_file.h"

#include <Eigen/Dense>

#include <QFile>
#include <QFileInfo>

#include <array>
#include <cmath>
#include <complex>

namespace
{

using namespace sargeo;
using Polynomial = std::array<double, 6>;

double evaluate(const Polynomial& c, double g)
{
    double r = 0.0;
    for (int k = 5; k >= 0; --k)
        r = r * g + c[size_t(k)];
    return r;
}

// Ground range (metres along the ellipsoid from the first column) and slant range of one line's columns.
struct GroundProfile
{
    std::vector<double> ground, slant;
};

class SlantToGround : public algokit::PluginBase
{
public:
    SlantToGround() : PluginBase(QStringLiteral("InSAR_Slant2Ground")) {}

protected:
    bool run() override
    {
        const auto& record = params<GenericAlgoRecord>();
        algokit::GenericParams args(record, GetName());
        const auto inputParam = args.text("InputFile").required().existingFile();
        const QString parameterPath = args.text("ParameterFile").required().existingFile();
        const QString output = args.text("OutputFile").required().writableOutput();
        algokit::DatasetPtr source = inputParam.openRaster();
        if (QFileInfo(output).absoluteFilePath() == QFileInfo(inputParam.value()).absoluteFilePath())
            args.refuse("OutputFile", output, QStringLiteral("is the input file"));

        SarParameterRecord parameters;
        bool read = false;
        try
        {
            read = ReadSarParameterFile(QFile::encodeName(parameterPath).constData(), parameters);
        }
        catch (const std::exception&)
        {
        }
        if (!read)
            args.refuse("ParameterFile", parameterPath, QStringLiteral("is not a readable SAR parameter file"));
        if (parameters.imageGeometry != "SLANT_RANGE")
            return fail(QStringLiteral("Input data should be slant-range radar coordinate !"));
        std::unique_ptr<RangeDoppler> model;
        try
        {
            model = std::make_unique<RangeDoppler>(rangeDopplerFromRecord(parameters));
        }
        catch (const std::exception& e)
        {
            args.refuse("ParameterFile", parameterPath, QString::fromUtf8(e.what()));
        }
        const int width = source->GetRasterXSize(), height = source->GetRasterYSize();
        if (width != parameters.numberOfColumns || height != parameters.numberOfRows)
            args.refuse("InputFile", inputParam.value(), QStringLiteral("does not have the size its parameter file gives"));
        if (width < 8)
            args.refuse("InputFile", inputParam.value(), QStringLiteral("is too narrow for a ground-range grid"));

        // Ground range profiles of the first, centre and last lines; a uniform spacing equal to the ground size of a
        // slant sample at mid-swath; the slant range as a polynomial of ground range on each.
        const double lines[3] = {0.0, 0.5 * (height - 1), double(height - 1)};
        std::array<GroundProfile, 3> profiles;
        std::array<Polynomial, 3> polynomials;
        double groundWidth = 1e300;
        for (int i = 0; i < 3; ++i)
        {
            profiles[size_t(i)] = profile(*model, lines[i], width);
            groundWidth = std::min(groundWidth, profiles[size_t(i)].ground.back());
            polynomials[size_t(i)] = fit(profiles[size_t(i)]);
        }
        const GroundProfile& centre = profiles[1];
        const size_t mid = centre.ground.size() / 2;
        const double spacing = (centre.ground[mid + 1] - centre.ground[mid - 1]) /
                               ((centre.slant[mid + 1] - centre.slant[mid - 1]) / model->grid().rangeSpacing);
        const int outWidth = int(std::floor(groundWidth / spacing)) + 1;
        progress(5);

        const GDALDataType inType = source->GetRasterBand(1)->GetRasterDataType();
        const bool complex = GDALDataTypeIsComplex(inType) != 0;
        const int bands = source->GetRasterCount();
        claimOutput(output);
        algokit::OutputRaster out(output, algokit::driverForPath(output), outWidth, height, bands,
                                  complex ? GDT_CFloat32 : GDT_Float32);
        for (int b = 0; b < bands; ++b)
            out.band(b)->SetDescription(source->GetRasterBand(b + 1)->GetDescription());
        const int step = algokit::rowsPerBlock(source.get(), 8);
        std::vector<std::complex<float>> in, result;
        std::vector<double> column(size_t(outWidth) * size_t(step));
        algokit::forEachRowBlock(height, step, [&](int row0, int rows) {
            // Slant column of every output sample: the polynomials interpolated linearly in line.
            algokit::parallelFor(rows, [&](int begin, int end) {
                for (int r = begin; r < end; ++r)
                {
                    const double y = row0 + r;
                    const int k = y <= lines[1] ? 0 : 1;
                    const double f = (y - lines[k]) / std::max(1.0, lines[k + 1] - lines[k]);
                    for (int j = 0; j < outWidth; ++j)
                    {
                        const double g = j * spacing;
                        const double slant = (1 - f) * evaluate(polynomials[size_t(k)], g) +
                                             f * evaluate(polynomials[size_t(k + 1)], g);
                        column[size_t(r) * size_t(outWidth) + size_t(j)] =
                            (slant - model->grid().nearRange) / model->grid().rangeSpacing;
                    }
                }
            });
            in.resize(size_t(width) * size_t(rows));
            result.resize(size_t(outWidth) * size_t(rows));
            for (int b = 0; b < bands; ++b)
            {
                if (source->GetRasterBand(b + 1)->RasterIO(GF_Read, 0, row0, width, rows, in.data(), width, rows,
                                                           GDT_CFloat32, 0, 0) != CE_None)
                    throw algokit::AlgoError(QStringLiteral("Read failed at line %1").arg(row0));
                for (int r = 0; r < rows; ++r)
                    for (int j = 0; j < outWidth; ++j)
                    {
                        const double p = std::min(std::max(column[size_t(r) * size_t(outWidth) + size_t(j)], 0.0),
                                                  width - 1.0);
                        const int i0 = std::min(int(p), width - 2);
                        const float f = float(p - i0);
                        const std::complex<float>* row = in.data() + size_t(r) * size_t(width);
                        result[size_t(r) * size_t(outWidth) + size_t(j)] = (1.0f - f) * row[i0] + f * row[i0 + 1];
                    }
                if (out.band(b)->RasterIO(GF_Write, 0, row0, outWidth, rows, result.data(), outWidth, rows,
                                          GDT_CFloat32, 0, 0) != CE_None)
                    throw algokit::AlgoError(QStringLiteral("Write failed at line %1").arg(row0));
            }
            progress(5.0 + 90.0 * (row0 + rows) / height);
        });
        out.commit();

        parameters.imageGeometry = "GROUND_RANGE";
        parameters.numberOfColumns = outWidth;
        parameters.slantRangeSpacing = spacing; // now the column spacing on the ground
        parameters.firstSlantRangePolynomial = polynomials[0];
        parameters.centerSlantRangePolynomial = polynomials[1];
        parameters.lastSlantRangePolynomial = polynomials[2];
        parameters.centerSlantRange = evaluate(polynomials[1], (outWidth / 2) * spacing);
        parameters.farSlantRange = evaluate(polynomials[1], (outWidth - 1) * spacing);
        const QString outputParameters = sarParameterFilePath(output);
        claimOutput(outputParameters);
        QString error;
        if (!WriteSarParameterFile(outputParameters, parameters, &error))
            return fail(error);
        setResult(algokit::GenericOutputs()
                      .add("InSAR_Slant2Ground_images", output + "|" + outputParameters)
                      .add("InSAR_Slant2Ground_GroundSpacing", QString::number(spacing, 'f', 4))
                      .result());
        return true;
    }

private:
    GroundProfile profile(const RangeDoppler& model, double line, int width)
    {
        GroundProfile p;
        const int samples = std::min(width, 2000);
        Vec3 previous;
        double distance = 0.0;
        for (int i = 0; i < samples; ++i)
        {
            const double pixel = (width - 1) * double(i) / (samples - 1);
            Vec3 point;
            if (!model.imageToGround(line, pixel, 0.0, &point))
                throw algokit::AlgoError(QStringLiteral("The orbit does not see line %1, sample %2 on the ellipsoid")
                                             .arg(line)
                                             .arg(pixel));
            // Chords of a few metres to a few tens of metres: their sum is the distance along the surface.
            if (i > 0)
                distance += (point - previous).norm();
            previous = point;
            p.ground.push_back(distance);
            p.slant.push_back(model.grid().nearRange + pixel * model.grid().rangeSpacing);
        }
        return p;
    }

    static Polynomial fit(const GroundProfile& p)
    {
        const Eigen::Index n = Eigen::Index(p.ground.size());
        const double scale = p.ground.back() > 0 ? p.ground.back() : 1.0;
        Eigen::MatrixXd a(n, 6);
        Eigen::VectorXd b(n);
        for (Eigen::Index i = 0; i < n; ++i)
        {
            double power = 1.0;
            for (int k = 0; k < 6; ++k, power *= p.ground[size_t(i)] / scale)
                a(i, k) = power;
            b(i) = p.slant[size_t(i)];
        }
        const Eigen::VectorXd c = a.colPivHouseholderQr().solve(b);
        Polynomial result;
        for (int k = 0; k < 6; ++k)
            result[size_t(k)] = c(k) / std::pow(scale, k);
        return result;
    }
};

} // namespace

ALGO_PLUGIN_FACTORY(SlantToGround)
