// Plug-in "DeRelationStretch": decorrelation stretch. The bands are rotated onto their principal axes, each
// component is scaled to unit variance, rotated back and scaled to each band's own standard deviation around its
// mean: out = mean + diag(sd) E diag(1 / sqrt(eigenvalue)) E^T (x - mean). The output keeps the input's pixel type
// (rounded and clamped for integer types).
#include "../VYRTransformFunc/linear_algebra.h"

#include "records/transform_records.h"

#include <QFileInfo>
#include <cmath>

namespace
{

using namespace transform;

class DeRelationStretch : public algokit::PluginBase
{
public:
    DeRelationStretch() : PluginBase(QStringLiteral("DeRelationStretch")) {}

protected:
    bool run() override
    {
        const auto& info = params<stDeRelationStretch>();
        if (info.inputFile.isEmpty() || info.outputFile.isEmpty())
            return fail(QStringLiteral("Input and output paths are required"));
        if (QFileInfo(info.inputFile).absoluteFilePath() == QFileInfo(info.outputFile).absoluteFilePath())
            return fail(QStringLiteral("The output file must differ from the input file"));
        algokit::DatasetPtr input = algokit::openRaster(info.inputFile);
        const int n = input->GetRasterCount();
        if (n < 2)
            return fail(QStringLiteral("The decorrelation stretch needs at least two bands"));
        const GDALDataType type = input->GetRasterBand(1)->GetRasterDataType();
        if (GDALDataTypeIsComplex(type))
            return fail(QStringLiteral("Complex pixels are not supported"));
        std::vector<double> mean, values;
        Matrix covariance, vectors;
        bandStatistics(input.get(), mean, covariance, nullptr, [this](double p) { progress(p * 0.4); });
        symmetricEigen(covariance, values, vectors);
        const double floor = std::max(1e-12 * std::fabs(values.front()), 1e-300);
        Matrix scaled = vectors;
        for (int i = 0; i < n; ++i)
            for (int c = 0; c < n; ++c)
                scaled[size_t(i)][size_t(c)] *= std::sqrt(std::max(covariance[size_t(i)][size_t(i)], 0.0))
                                               / std::sqrt(std::max(values[size_t(c)], floor));
        const Matrix stretch = multiply(scaled, transpose(vectors));
        const QString driver = info.format.isEmpty() ? algokit::driverForPath(info.outputFile) : info.format;
        algokit::OutputRaster output(info.outputFile, driver, input->GetRasterXSize(), input->GetRasterYSize(), n, type);
        output.copyGeoreferencing(input.get());
        applyLinear(input.get(), output, stretch, mean, mean, [this](double p) { progress(40.0 + p * 0.6); });
        output.commit();
        return true;
    }
};

} // namespace

ALGO_PLUGIN_FACTORY(DeRelationStretch)
