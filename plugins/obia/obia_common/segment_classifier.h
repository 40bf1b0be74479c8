// Classifiers of segment feature vectors over OpenCV's machine-learning module: training with standardised
// features, prediction, k-fold cross-validation, and the model file that keeps the classifier with its feature
// list, scaling and class scheme.
#pragma once

#include <opencv2/ml.hpp>

#include <QMap>
#include <QString>
#include <QStringList>
#include <array>
#include <vector>

namespace obia
{

// The classes: codes as given by the samples, names and colours.
struct ClassScheme
{
    std::vector<int> codes;
    QStringList names;
    std::vector<std::array<int, 3>> colours;
    int indexOf(int code) const;
};

// Samples: one row of `columns.size()` values per segment, with the index of its class in the scheme.
struct SampleTable
{
    QStringList columns;
    std::vector<float> values;
    std::vector<int> classIndex;
    std::vector<unsigned> segments;
    ClassScheme scheme;
    int rows() const { return int(classIndex.size()); }
};

class SegmentClassifier
{
public:
    static const QStringList& kinds(); // "RF", "SVM", "KNN", "GBT", "BAYES", "MLP"
    // Option keys each kind accepts in "key=value;key=value" texts, with defaults.
    static QMap<QString, double> defaultOptions(const QString& kind);

    // Trains on the rows; throws std::runtime_error (OpenCV's message) when the classifier cannot be trained.
    static SegmentClassifier train(const QString& kind, const QMap<QString, double>& options, const SampleTable& samples);
    // Class index for each row of values (columns as trained).
    std::vector<int> predict(const std::vector<float>& values) const;

    void save(const QString& path, const ClassScheme& scheme) const;
    // Reads a model file; throws std::runtime_error saying what is wrong.
    static SegmentClassifier load(const QString& path, ClassScheme* scheme);

    const QString& kind() const { return m_kind; }
    const QStringList& columns() const { return m_columns; }

private:
    cv::Mat standardise(const std::vector<float>& values) const;
    QString m_kind;
    QStringList m_columns;
    int m_classes = 0;
    std::vector<double> m_mean, m_scale;
    std::vector<cv::Ptr<cv::ml::StatModel>> m_models; // one, or one per class for GBT
};

// Stratified k-fold cross-validation (fixed seed): overall accuracy and Cohen's kappa of the pooled predictions.
void crossValidate(const QString& kind, const QMap<QString, double>& options, const SampleTable& samples, int folds,
                   double* overallAccuracy, double* kappa);

// Overall accuracy and kappa of a confusion matrix (rows truth, columns prediction).
void accuracyOf(const std::vector<std::vector<double>>& confusion, double* overallAccuracy, double* kappa);

} // namespace obia
