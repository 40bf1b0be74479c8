// Classifiers of segment feature vectors over OpenCV.
#include "segment_classifier.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <random>
#include <stdexcept>

namespace obia
{

namespace
{

constexpr const char* kFormat = "segment classifier 1";

cv::Ptr<cv::ml::StatModel> makeModel(const QString& kind, const QMap<QString, double>& o, int features, int classes)
{
    if (kind == "RF")
    {
        auto m = cv::ml::RTrees::create();
        m->setMaxDepth(int(o.value("depth")));
        m->setMinSampleCount(2);
        m->setActiveVarCount(0);
        m->setTermCriteria(cv::TermCriteria(cv::TermCriteria::MAX_ITER, int(o.value("trees")), 0));
        return m;
    }
    if (kind == "SVM")
    {
        auto m = cv::ml::SVM::create();
        m->setType(cv::ml::SVM::C_SVC);
        m->setKernel(cv::ml::SVM::RBF);
        m->setC(o.value("c"));
        m->setGamma(o.value("gamma") > 0 ? o.value("gamma") : 1.0 / std::max(1, features));
        return m;
    }
    if (kind == "KNN")
    {
        auto m = cv::ml::KNearest::create();
        m->setDefaultK(int(o.value("k")));
        m->setIsClassifier(true);
        return m;
    }
    if (kind == "GBT")
    {
        auto m = cv::ml::Boost::create();
        m->setBoostType(cv::ml::Boost::GENTLE);
        m->setWeakCount(int(o.value("trees")));
        m->setMaxDepth(int(o.value("depth")));
        return m;
    }
    if (kind == "BAYES")
        return cv::ml::NormalBayesClassifier::create();
    auto m = cv::ml::ANN_MLP::create();
    cv::Mat layers = (cv::Mat_<int>(1, 3) << features, int(o.value("hidden")) > 0 ? int(o.value("hidden")) : std::max(8, 2 * features), classes);
    m->setLayerSizes(layers);
    m->setActivationFunction(cv::ml::ANN_MLP::SIGMOID_SYM, 1, 1);
    m->setTrainMethod(cv::ml::ANN_MLP::RPROP);
    m->setTermCriteria(cv::TermCriteria(cv::TermCriteria::MAX_ITER + cv::TermCriteria::EPS, int(o.value("iterations")), 1e-6));
    return m;
}

template <typename T> cv::Ptr<cv::ml::StatModel> readAs(const cv::FileNode& node)
{
    cv::Ptr<T> model = T::create();
    model->read(node);
    return model;
}

cv::Ptr<cv::ml::StatModel> readModel(const QString& kind, const cv::FileNode& node)
{
    if (kind == "RF")
        return readAs<cv::ml::RTrees>(node);
    if (kind == "SVM")
        return readAs<cv::ml::SVM>(node);
    if (kind == "KNN")
        return readAs<cv::ml::KNearest>(node);
    if (kind == "GBT")
        return readAs<cv::ml::Boost>(node);
    if (kind == "BAYES")
        return readAs<cv::ml::NormalBayesClassifier>(node);
    return readAs<cv::ml::ANN_MLP>(node);
}

} // namespace

int ClassScheme::indexOf(int code) const
{
    const auto it = std::find(codes.begin(), codes.end(), code);
    return it == codes.end() ? -1 : int(it - codes.begin());
}

const QStringList& SegmentClassifier::kinds()
{
    static const QStringList list = {"RF", "SVM", "KNN", "GBT", "BAYES", "MLP"};
    return list;
}

QMap<QString, double> SegmentClassifier::defaultOptions(const QString& kind)
{
    if (kind == "RF")
        return {{"trees", 100}, {"depth", 12}};
    if (kind == "SVM")
        return {{"c", 1.0}, {"gamma", 0.0}};
    if (kind == "KNN")
        return {{"k", 5}};
    if (kind == "GBT")
        return {{"trees", 100}, {"depth", 2}};
    if (kind == "MLP")
        return {{"hidden", 0}, {"iterations", 1000}};
    return {};
}

cv::Mat SegmentClassifier::standardise(const std::vector<float>& values) const
{
    const int columns = m_columns.size();
    const int rows = columns ? int(values.size() / size_t(columns)) : 0;
    cv::Mat out(rows, columns, CV_32F);
    for (int r = 0; r < rows; ++r)
        for (int c = 0; c < columns; ++c)
            out.at<float>(r, c) = float((values[size_t(r) * columns + c] - m_mean[size_t(c)]) / m_scale[size_t(c)]);
    return out;
}

SegmentClassifier SegmentClassifier::train(const QString& kind, const QMap<QString, double>& options, const SampleTable& samples)
{
    SegmentClassifier classifier;
    classifier.m_kind = kind;
    classifier.m_columns = samples.columns;
    classifier.m_classes = int(samples.scheme.codes.size());
    const int columns = samples.columns.size(), rows = samples.rows();
    if (rows < 2 || classifier.m_classes < 2)
        throw std::runtime_error("training needs samples of at least two classes");
    classifier.m_mean.assign(size_t(columns), 0.0);
    classifier.m_scale.assign(size_t(columns), 0.0);
    for (int c = 0; c < columns; ++c)
    {
        double sum = 0, squares = 0;
        for (int r = 0; r < rows; ++r)
        {
            const double v = samples.values[size_t(r) * columns + c];
            sum += v;
            squares += v * v;
        }
        const double mean = sum / rows;
        classifier.m_mean[size_t(c)] = mean;
        const double spread = std::sqrt(std::max(squares / rows - mean * mean, 0.0));
        classifier.m_scale[size_t(c)] = spread > 1e-12 ? spread : 1.0;
    }
    const cv::Mat x = classifier.standardise(samples.values);
    const cv::Mat labels(rows, 1, CV_32S, const_cast<int*>(samples.classIndex.data()));
    try
    {
        const int groups = kind == "GBT" ? classifier.m_classes : 1;
        for (int g = 0; g < groups; ++g)
        {
            cv::Ptr<cv::ml::StatModel> model = makeModel(kind, options, columns, classifier.m_classes);
            cv::Mat responses;
            if (kind == "GBT")
                responses = (labels == g) / 255; // one class against the rest
            else if (kind == "MLP")
            {
                responses = cv::Mat::zeros(rows, classifier.m_classes, CV_32F);
                for (int r = 0; r < rows; ++r)
                    responses.at<float>(r, samples.classIndex[size_t(r)]) = 1.0f;
            }
            else
                responses = labels;
            if (kind == "GBT")
                responses.convertTo(responses, CV_32S);
            cv::Ptr<cv::ml::TrainData> data = cv::ml::TrainData::create(x, cv::ml::ROW_SAMPLE, responses);
            if (kind != "MLP")
            {
                cv::Mat types(columns + 1, 1, CV_8U, cv::Scalar(cv::ml::VAR_ORDERED));
                types.at<uchar>(columns) = cv::ml::VAR_CATEGORICAL;
                data = cv::ml::TrainData::create(x, cv::ml::ROW_SAMPLE, responses, cv::noArray(), cv::noArray(), cv::noArray(), types);
            }
            if (!model->train(data))
                throw std::runtime_error("the classifier did not train");
            classifier.m_models.push_back(model);
        }
    }
    catch (const cv::Exception& error)
    {
        throw std::runtime_error(error.msg);
    }
    return classifier;
}

std::vector<int> SegmentClassifier::predict(const std::vector<float>& values) const
{
    const cv::Mat x = standardise(values);
    std::vector<int> out(size_t(x.rows), 0);
    if (x.rows == 0)
        return out;
    try
    {
        if (m_kind == "GBT")
        {
            cv::Mat best(x.rows, 1, CV_32F, cv::Scalar(-1e30f));
            for (size_t g = 0; g < m_models.size(); ++g)
            {
                cv::Mat score;
                m_models[g]->predict(x, score, cv::ml::StatModel::RAW_OUTPUT);
                for (int r = 0; r < x.rows; ++r)
                    if (score.at<float>(r) > best.at<float>(r))
                        best.at<float>(r) = score.at<float>(r), out[size_t(r)] = int(g);
            }
            return out;
        }
        cv::Mat result;
        m_models.front()->predict(x, result);
        // Normal Bayes answers in integers, the others in floats.
        result.convertTo(result, CV_32F);
        for (int r = 0; r < x.rows; ++r)
        {
            if (m_kind == "MLP")
            {
                cv::Point best;
                cv::minMaxLoc(result.row(r), nullptr, nullptr, nullptr, &best);
                out[size_t(r)] = best.x;
            }
            else
                out[size_t(r)] = int(std::lround(result.at<float>(r)));
        }
    }
    catch (const cv::Exception& error)
    {
        throw std::runtime_error(error.msg);
    }
    return out;
}

void SegmentClassifier::save(const QString& path, const ClassScheme& scheme) const
{
    cv::FileStorage fs(path.toStdString(), cv::FileStorage::WRITE);
    if (!fs.isOpened())
        throw std::runtime_error("the model file cannot be written");
    fs << "format" << kFormat << "classifier" << m_kind.toStdString();
    fs << "features" << "[";
    for (const QString& column : m_columns)
        fs << column.toStdString();
    fs << "]" << "mean" << m_mean << "scale" << m_scale;
    fs << "classes" << "[";
    for (size_t i = 0; i < scheme.codes.size(); ++i)
    {
        fs << "{" << "code" << scheme.codes[i] << "name" << scheme.names.value(int(i)).toStdString();
        fs << "colour" << std::vector<int>(scheme.colours[i].begin(), scheme.colours[i].end()) << "}";
    }
    fs << "]" << "model_count" << int(m_models.size());
    // Named nodes, not sequence items: some OpenCV readers ask their node for its name.
    for (size_t i = 0; i < m_models.size(); ++i)
    {
        fs << "model_" + std::to_string(i) << "{";
        m_models[i]->write(fs);
        fs << "}";
    }
}

SegmentClassifier SegmentClassifier::load(const QString& path, ClassScheme* scheme)
{
    SegmentClassifier classifier;
    try
    {
        cv::FileStorage fs(path.toStdString(), cv::FileStorage::READ);
        if (!fs.isOpened() || std::string(fs["format"]) != kFormat)
            throw std::runtime_error("is not a segment classifier model file");
        classifier.m_kind = QString::fromStdString(std::string(fs["classifier"]));
        if (!kinds().contains(classifier.m_kind))
            throw std::runtime_error("names an unknown classifier");
        for (const auto& node : fs["features"])
            classifier.m_columns << QString::fromStdString(std::string(node));
        fs["mean"] >> classifier.m_mean;
        fs["scale"] >> classifier.m_scale;
        for (const auto& node : fs["classes"])
        {
            scheme->codes.push_back(int(node["code"]));
            scheme->names << QString::fromStdString(std::string(node["name"]));
            std::vector<int> colour;
            node["colour"] >> colour;
            colour.resize(3, 0);
            scheme->colours.push_back({colour[0], colour[1], colour[2]});
        }
        classifier.m_classes = int(scheme->codes.size());
        const int count = int(fs["model_count"]);
        for (int i = 0; i < count && i < 1000; ++i)
            classifier.m_models.push_back(readModel(classifier.m_kind, fs["model_" + std::to_string(i)]));
        const size_t columns = size_t(classifier.m_columns.size());
        const size_t models = classifier.m_kind == "GBT" ? size_t(classifier.m_classes) : 1;
        if (columns == 0 || classifier.m_mean.size() != columns || classifier.m_scale.size() != columns ||
            classifier.m_classes < 2 || classifier.m_models.size() != models)
            throw std::runtime_error("is incomplete");
        for (const auto& model : classifier.m_models)
            if (!model || !model->isTrained())
                throw std::runtime_error("holds an untrained model");
    }
    catch (const cv::Exception& error)
    {
        throw std::runtime_error(error.msg);
    }
    return classifier;
}

void accuracyOf(const std::vector<std::vector<double>>& confusion, double* overallAccuracy, double* kappa)
{
    const size_t k = confusion.size();
    double total = 0, agree = 0, chance = 0;
    std::vector<double> rows(k, 0), columns(k, 0);
    for (size_t i = 0; i < k; ++i)
        for (size_t j = 0; j < k; ++j)
        {
            total += confusion[i][j];
            rows[i] += confusion[i][j];
            columns[j] += confusion[i][j];
        }
    for (size_t i = 0; i < k; ++i)
    {
        agree += confusion[i][i];
        chance += rows[i] * columns[i];
    }
    *overallAccuracy = total > 0 ? agree / total : 0.0;
    const double expected = total > 0 ? chance / (total * total) : 0.0;
    *kappa = expected < 1.0 ? (*overallAccuracy - expected) / (1.0 - expected) : 1.0;
}

void crossValidate(const QString& kind, const QMap<QString, double>& options, const SampleTable& samples, int folds,
                   double* overallAccuracy, double* kappa)
{
    const int k = int(samples.scheme.codes.size());
    // Each class dealt round the folds after a shuffle, so that every fold holds every class.
    std::vector<int> fold(size_t(samples.rows()), 0);
    std::mt19937 random(20000);
    for (int c = 0; c < k; ++c)
    {
        std::vector<int> members;
        for (int r = 0; r < samples.rows(); ++r)
            if (samples.classIndex[size_t(r)] == c)
                members.push_back(r);
        std::shuffle(members.begin(), members.end(), random);
        for (size_t i = 0; i < members.size(); ++i)
            fold[size_t(members[i])] = int(i % size_t(folds));
    }
    std::vector<std::vector<double>> confusion(size_t(k), std::vector<double>(size_t(k), 0.0));
    const int columns = samples.columns.size();
    for (int f = 0; f < folds; ++f)
    {
        SampleTable training, testing;
        training.columns = testing.columns = samples.columns;
        training.scheme = testing.scheme = samples.scheme;
        for (int r = 0; r < samples.rows(); ++r)
        {
            SampleTable& into = fold[size_t(r)] == f ? testing : training;
            into.values.insert(into.values.end(), samples.values.begin() + long(r) * columns, samples.values.begin() + long(r + 1) * columns);
            into.classIndex.push_back(samples.classIndex[size_t(r)]);
        }
        if (testing.rows() == 0)
            continue;
        const std::vector<int> predicted = SegmentClassifier::train(kind, options, training).predict(testing.values);
        for (int r = 0; r < testing.rows(); ++r)
            if (predicted[size_t(r)] >= 0 && predicted[size_t(r)] < k)
                confusion[size_t(testing.classIndex[size_t(r)])][size_t(predicted[size_t(r)])] += 1;
    }
    accuracyOf(confusion, overallAccuracy, kappa);
}

} // namespace obia
