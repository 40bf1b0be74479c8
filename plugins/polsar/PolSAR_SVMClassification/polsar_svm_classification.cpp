// Plug-in "PolSAR_SVMClassification": an RBF support vector machine (OpenCV's, C and gamma chosen by 5-fold
// cross-validation over its default grids) trained on the ROI pixels of a quad-pol folder, on per-pixel features
// of the coherency matrix T3: T11, T22, T33, |T12|, |T13|, |T23| and the span in dB, entropy, anisotropy and mean
// alpha (degrees / 90); features standardised with the training means and deviations, which are saved with the
// model.
#include "classification_io.h"
#include "generic_params.h"
#include "polsar/PolSAR_Decomposition/ha_alpha_kernel.h"
#include "polsar_folder.h"
#include "roi_raster.h"

#include <opencv2/core.hpp>
#include <opencv2/ml.hpp>

#include <QDir>
#include <QFileInfo>
#include <random>

namespace
{

constexpr int kFeatures = 10;
constexpr int kSamplesPerClass = 400; // training pixels drawn per class: the grid search stays a few seconds

// Features of one T3 (file order floats); false when the matrix has no power.
bool features(const float* t, float* out)
{
    const auto db = [](double v) { return float(10.0 * std::log10(std::max(v, 1e-10))); };
    const double span = double(t[0]) + t[5] + t[8];
    if (!(span > 0.0) || !std::isfinite(span))
        return false;
    polsarkernel::Coherency c;
    c.t11 = t[0], c.t12re = t[1], c.t12im = t[2], c.t13re = t[3], c.t13im = t[4];
    c.t22 = t[5], c.t23re = t[6], c.t23im = t[7], c.t33 = t[8];
    const polsarkernel::HAAlphaLambda haa = polsarkernel::haAlphaLambda(c);
    out[0] = db(t[0]);
    out[1] = db(t[5]);
    out[2] = db(t[8]);
    out[3] = db(std::hypot(double(t[1]), double(t[2])));
    out[4] = db(std::hypot(double(t[3]), double(t[4])));
    out[5] = db(std::hypot(double(t[6]), double(t[7])));
    out[6] = db(span);
    out[7] = std::isfinite(haa.entropy) ? haa.entropy : 0.0f;
    out[8] = std::isfinite(haa.anisotropy) ? haa.anisotropy : 0.0f;
    out[9] = std::isfinite(haa.alphaDegrees) ? haa.alphaDegrees / 90.0f : 0.0f;
    return true;
}

class PolSARSvm : public algokit::PluginBase
{
public:
    PolSARSvm() : PluginBase(QStringLiteral("PolSAR_SVMClassification")) {}

protected:
    bool run() override
    {
        const algokit::GenericParams args(params<GenericAlgoRecord>(), GetName());
        const QString inputDir = args.text("InputDir").existingFolder();
        const QString roiFile = args.text("RoiFile").required();
        const QString outputDir = args.text("OutputDir").required();
        const QStringList names = args.raw("RoiClassNames").toStringList();
        const QStringList colours = args.raw("RoiClassColours").toStringList();
        const QStringList geometries = args.raw("RoiClassGeometries").toStringList();
        if (names.size() < 2 || names.size() != colours.size() || names.size() != geometries.size() || names.size() > 255)
            args.refuse("RoiFile", roiFile, QStringLiteral("came without at least two classes (names, colours and areas)"));
        sar::PolFolderReader reader(inputDir);
        const int width = reader.width(), height = reader.height(), classes = names.size();
        std::vector<std::string> wkt;
        for (const QString& geometry : geometries)
            wkt.push_back(geometry.toStdString());
        sar::RoiLabels training;
        std::string error;
        if (!sar::rasterizeRoi(wkt, width, height, training, &error))
            args.refuse("RoiFile", roiFile, QString::fromStdString(error));
        const sar::MatrixConverter toT3(reader.kind(), sar::PolMatrix::T3);
        const int perPixel = sar::floatsPerPixel(reader.kind());
        const int blockRows = std::max(1, int((16u << 20) / (size_t(width) * 4 * perPixel)));

        // Every training pixel's features, then up to kSamplesPerClass of each class at random (fixed seed).
        std::vector<std::vector<std::array<float, kFeatures>>> byClass(size_t(classes) + 1);
        std::vector<float> pixels;
        if (training.height > 0)
            algokit::forEachRowBlock(training.height, blockRows, [&](int offset, int rows) {
                reader.readRows(training.y0 + offset, rows, pixels);
                float t3[9];
                std::array<float, kFeatures> f;
                for (int r = 0; r < rows; ++r)
                    for (int c = 0; c < training.width; ++c)
                    {
                        const int label = training.labels[size_t(offset + r) * training.width + c];
                        const float* in = pixels.data() + (size_t(r) * width + training.x0 + c) * perPixel;
                        if (!label || !std::all_of(in, in + perPixel, [](float v) { return std::isfinite(v); }))
                            continue;
                        toT3.convert(in, t3);
                        if (features(t3, f.data()))
                            byClass[size_t(label)].push_back(f);
                    }
                progress(10.0 * (offset + rows) / training.height);
            });
        std::mt19937 random(12345u);
        cv::Mat samples(0, kFeatures, CV_32F), responses(0, 1, CV_32S);
        for (int c = 1; c <= classes; ++c)
        {
            auto& pool = byClass[size_t(c)];
            if (pool.size() < 9)
                args.refuse("RoiFile", roiFile, QStringLiteral("has the class \"%1\" with %2 valid pixels, fewer than 9")
                                                    .arg(names[c - 1]).arg(pool.size()));
            std::shuffle(pool.begin(), pool.end(), random);
            for (size_t i = 0; i < std::min<size_t>(pool.size(), kSamplesPerClass); ++i)
            {
                samples.push_back(cv::Mat(1, kFeatures, CV_32F, pool[i].data()).clone());
                responses.push_back(c);
            }
        }
        cv::Mat mean, deviation;
        cv::reduce(samples, mean, 0, cv::REDUCE_AVG);
        cv::Mat centred = samples - cv::repeat(mean, samples.rows, 1);
        cv::reduce(centred.mul(centred), deviation, 0, cv::REDUCE_AVG);
        cv::sqrt(deviation, deviation);
        deviation.setTo(1.0f, deviation < 1e-6f);
        const cv::Mat scaled = centred / cv::repeat(deviation, samples.rows, 1);

        cv::Ptr<cv::ml::SVM> svm = cv::ml::SVM::create();
        svm->setType(cv::ml::SVM::C_SVC);
        svm->setKernel(cv::ml::SVM::RBF);
        progress(15.0, QStringLiteral("grid search of C and gamma"));
        if (!svm->trainAuto(cv::ml::TrainData::create(scaled, cv::ml::ROW_SAMPLE, responses), 5))
            throw algokit::AlgoError(QStringLiteral("The SVM could not be trained on the ROI pixels"));
        progress(40.0);

        QDir().mkpath(outputDir);
        const QString base = QDir(outputDir).filePath(QDir(QFileInfo(inputDir).absoluteFilePath()).dirName() + "_SVM");
        const QString modelPath = base + "_model.yml";
        claimOutput(modelPath);
        {
            cv::FileStorage storage(modelPath.toStdString(), cv::FileStorage::WRITE);
            if (!storage.isOpened())
                throw algokit::AlgoError(QStringLiteral("Cannot write %1").arg(modelPath));
            svm->write(storage);
            storage << "feature_names" << "[" << "T11_dB" << "T22_dB" << "T33_dB" << "T12_abs_dB" << "T13_abs_dB"
                    << "T23_abs_dB" << "span_dB" << "entropy" << "anisotropy" << "alpha_over_90" << "]";
            storage << "feature_mean" << mean << "feature_deviation" << deviation;
        }

        std::vector<algokit::Rgb> palette{{0, 0, 0}};
        QStringList classNames{"Unclassified"};
        for (int c = 0; c < classes; ++c)
        {
            const QStringList rgb = colours[c].split(',');
            palette.push_back({rgb.value(0).toInt(), rgb.value(1).toInt(), rgb.value(2).toInt()});
            classNames << names[c];
        }
        GDALDriver* memory = GetGDALDriverManager()->GetDriverByName("MEM");
        algokit::DatasetPtr shape(memory->Create("", width, height, 0, GDT_Byte, nullptr));
        claimOutput(base + ".tif");
        algokit::OutputRaster output = algokit::createClassRaster(base + ".tif", shape.get(), palette, classNames);
        output.band(0)->SetNoDataValue(0);
        std::vector<unsigned char> labels;
        algokit::forEachRowBlock(height, blockRows, [&](int row0, int rows) {
            reader.readRows(row0, rows, pixels);
            labels.assign(size_t(rows) * width, 0);
            algokit::parallelFor(rows, [&](int begin, int end) {
                cv::Mat row(1, kFeatures, CV_32F);
                float t3[9];
                for (size_t p = size_t(begin) * width; p < size_t(end) * width; ++p)
                {
                    const float* in = pixels.data() + p * perPixel;
                    if (!std::all_of(in, in + perPixel, [](float v) { return std::isfinite(v); }))
                        continue;
                    toT3.convert(in, t3);
                    float* f = row.ptr<float>();
                    if (!features(t3, f))
                        continue;
                    for (int k = 0; k < kFeatures; ++k)
                        f[k] = (f[k] - mean.at<float>(k)) / deviation.at<float>(k);
                    labels[p] = static_cast<unsigned char>(std::clamp(int(svm->predict(row)), 1, classes));
                }
            });
            algokit::writeRows(output.band(0), row0, rows, labels);
            progress(40.0 + 60.0 * (row0 + rows) / height);
        });
        output.commit();
        setResult(algokit::GenericOutputs()
                      .add("PolSAR_SVMClassification_images", base + ".tif|" + modelPath)
                      .add("PolSAR_SVMClassification_C", QString::number(svm->getC(), 'g', 6))
                      .add("PolSAR_SVMClassification_gamma", QString::number(svm->getGamma(), 'g', 6))
                      .result());
        return true;
    }
};

} // namespace

ALGO_PLUGIN_FACTORY(PolSARSvm)
