// Supervised classification from class statistics: Gaussian class models (regularised covariance,
// inverse and log-determinant) and the streamed per-pixel decision shared by the distance and
// maximum-likelihood plug-ins.
#pragma once

#include "classification_io.h"
#include "records/classification_records.h"

#include <cmath>
#include <limits>
#include <mutex>

namespace algokit
{

struct GaussianClass
{
    std::vector<double> mean;
    std::vector<double> inverse;  // bands x bands
    double logDeterminant = 0.0;
};

// Cholesky factor of a symmetric matrix (lower triangle, row after row); false when not positive definite.
inline bool cholesky(std::vector<double> matrix, int n, std::vector<double>& lower)
{
    lower.assign(size_t(n) * n, 0.0);
    for (int i = 0; i < n; ++i)
        for (int j = 0; j <= i; ++j)
        {
            double sum = matrix[size_t(i) * n + j];
            for (int k = 0; k < j; ++k)
                sum -= lower[size_t(i) * n + k] * lower[size_t(j) * n + k];
            if (i == j)
            {
                if (!(sum > 0.0) || !std::isfinite(sum))
                    return false;
                lower[size_t(i) * n + i] = std::sqrt(sum);
            }
            else
                lower[size_t(i) * n + j] = sum / lower[size_t(j) * n + j];
        }
    return true;
}

// A class model from its mean and covariance. A singular or nearly singular covariance (a class with
// fewer pixels than bands, a constant band) gets a growing ridge on its diagonal until it factors.
inline GaussianClass gaussianClass(const double* mean, const double* covariance, int n)
{
    GaussianClass model;
    model.mean.assign(mean, mean + n);
    std::vector<double> matrix(covariance, covariance + size_t(n) * n);
    double trace = 0.0;
    for (int i = 0; i < n; ++i)
        trace += std::fabs(matrix[size_t(i) * n + i]);
    double ridge = std::max(1e-9 * trace / n, 1e-12);
    std::vector<double> lower;
    for (int attempt = 0; !cholesky(matrix, n, lower); ++attempt)
    {
        if (attempt > 60)
            throw AlgoError(QStringLiteral("A class covariance matrix cannot be regularised."));
        std::vector<double> adjusted = matrix;
        for (int i = 0; i < n; ++i)
            adjusted[size_t(i) * n + i] += ridge;
        if (cholesky(adjusted, n, lower))
            break;
        ridge *= 10.0;
    }
    model.logDeterminant = 0.0;
    for (int i = 0; i < n; ++i)
        model.logDeterminant += 2.0 * std::log(lower[size_t(i) * n + i]);
    // Inverse from the factor: solve L L^T X = I column by column.
    model.inverse.assign(size_t(n) * n, 0.0);
    std::vector<double> column(n);
    for (int c = 0; c < n; ++c)
    {
        for (int i = 0; i < n; ++i)
        {
            double sum = i == c ? 1.0 : 0.0;
            for (int k = 0; k < i; ++k)
                sum -= lower[size_t(i) * n + k] * column[k];
            column[i] = sum / lower[size_t(i) * n + i];
        }
        for (int i = n - 1; i >= 0; --i)
        {
            double sum = column[i];
            for (int k = i + 1; k < n; ++k)
                sum -= lower[size_t(k) * n + i] * column[k];
            column[i] = sum / lower[size_t(i) * n + i];
        }
        for (int i = 0; i < n; ++i)
            model.inverse[size_t(i) * n + c] = column[i];
    }
    return model;
}

// (x - mean)^T inverse (x - mean).
inline double mahalanobis(const GaussianClass& model, const float* x, int n, double* centred)
{
    for (int i = 0; i < n; ++i)
        centred[i] = x[i] - model.mean[i];
    double total = 0.0;
    for (int i = 0; i < n; ++i)
    {
        double row = 0.0;
        for (int j = 0; j < n; ++j)
            row += model.inverse[size_t(i) * n + j] * centred[j];
        total += centred[i] * row;
    }
    return total;
}

// Labels every pixel of the record's window with the class of lowest cost(classIndex, pixel, scratch) and
// writes the classification image (ROI colours and names).
template <typename Cost>
void classifySupervised(PluginBase& plugin, const stSupervisedClassificationInfo& info, const Cost& cost,
                        const std::function<void(double)>& report)
{
    DatasetPtr source = openRaster(info.inputFile);
    std::vector<int> bands0;
    for (int band : info.bands)
        bands0.push_back(band - 1);
    checkBandIndices(source.get(), bands0);
    const int bands = int(bands0.size());
    const int classes = info.classCount;
    std::vector<Rgb> colours;
    QStringList names;
    for (int c = 0; c < classes; ++c)
    {
        const RoiClassInfo roi = c < int(info.classes.size()) ? info.classes[size_t(c)] : RoiClassInfo();
        colours.push_back({roi.red, roi.green, roi.blue});
        names << (roi.name.isEmpty() ? QStringLiteral("Class_%1").arg(c + 1) : roi.name);
    }
    OutputRaster output = createClassRaster(info.outputFile, source.get(), colours, names);
    const int width = source->GetRasterXSize();
    const int height = source->GetRasterYSize();
    std::vector<float> pixels;
    std::vector<unsigned char> labels;
    forEachRowBlock(height, rowsPerBlock(source.get(), sizeof(float) * size_t(bands)), [&](int row0, int rows) {
        readPixels(source.get(), bands0, row0, rows, pixels);
        labels.assign(size_t(width) * rows, 0);
        const int units = std::max(1, rows * width / 256);
        parallelFor(units, [&](int begin, int end) {
            std::vector<double> scratch(static_cast<size_t>(bands), 0.0);
            const size_t first = size_t(rows) * width * begin / units;
            const size_t last = size_t(rows) * width * end / units;
            for (size_t p = first; p < last; ++p)
            {
                const float* x = &pixels[p * bands];
                int best = 0;
                double bestCost = std::numeric_limits<double>::max();
                for (int c = 0; c < classes; ++c)
                {
                    const double value = cost(c, x, scratch.data());
                    if (value < bestCost)
                        bestCost = value, best = c;
                }
                labels[p] = static_cast<unsigned char>(best);
            }
        });
        writeRows(output.band(0), row0, rows, labels);
        report(double(row0 + rows) / height);
    });
    output.commit();
    (void)plugin;
}

// Class models of the record, checked for consistent sizes.
inline std::vector<GaussianClass> gaussianClasses(const stSupervisedClassificationInfo& info)
{
    const int bands = int(info.bands.size());
    if (info.classCount < 1 || info.classCount > 255)
        throw AlgoError(QStringLiteral("The number of ROI classes must be from 1 to 255."));
    if (bands < 1 || info.means.size() != size_t(info.classCount) * bands ||
        info.covariances.size() != size_t(info.classCount) * bands * bands)
        throw AlgoError(QStringLiteral("The class statistics do not match the number of bands."));
    std::vector<GaussianClass> models;
    for (int c = 0; c < info.classCount; ++c)
        models.push_back(gaussianClass(&info.means[size_t(c) * bands], &info.covariances[size_t(c) * bands * bands], bands));
    return models;
}

} // namespace algokit
