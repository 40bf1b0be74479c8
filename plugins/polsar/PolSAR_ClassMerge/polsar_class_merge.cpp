// Plug-in "PolSAR_ClassMerge": merges classes of a polarimetric classification image, by a pair list ("3|1,5|2":
// class 3 becomes 1, class 5 becomes 2; chains followed) or, when MergePairs is a number, down to that many
// classes by repeatedly merging the two classes whose Wishart centres (kept in the image by the Wishart
// classifications) are closest, the merged centre weighted by pixel counts. Class numbers, colours and names
// of the classes that stay are kept.
#include "classification_io.h"
#include "generic_params.h"
#include "wishart.h"

#include <QFileInfo>
#include <map>

namespace
{

class PolSARClassMerge : public algokit::PluginBase
{
public:
    PolSARClassMerge() : PluginBase(QStringLiteral("PolSAR_ClassMerge")) {}

protected:
    bool run() override
    {
        const algokit::GenericParams args(params<GenericAlgoRecord>(), GetName());
        algokit::TextParam inputParam = args.text("InputFile").existingFile();
        algokit::DatasetPtr input = inputParam.openRaster();
        const QString outputPath = args.text("OutputFile").writableOutput();
        if (QFileInfo(outputPath).absoluteFilePath() == QFileInfo(inputParam.value()).absoluteFilePath())
            args.refuse("OutputFile", outputPath, QStringLiteral("is the input file"));
        GDALRasterBand* band = input->GetRasterBand(1);
        if (band->GetRasterDataType() != GDT_Byte)
            args.refuse("InputFile", inputParam.value(), QStringLiteral("is not a Byte classification image"));
        const int height = input->GetRasterYSize();

        // Pixel counts per class.
        std::vector<long long> counts(256, 0);
        std::vector<unsigned char> labels;
        const int blockRows = algokit::rowsPerBlock(input.get(), 1);
        algokit::forEachRowBlock(height, blockRows, [&](int row0, int rows) {
            algokit::readRows(band, row0, rows, labels);
            for (unsigned char label : labels)
                ++counts[label];
            progress(40.0 * (row0 + rows) / height);
        });

        algokit::TextParam pairs = args.text("MergePairs").required();
        bool isNumber = false;
        const int target = pairs.value().trimmed().toInt(&isNumber);
        std::vector<unsigned char> map(256);
        for (int c = 0; c < 256; ++c)
            map[size_t(c)] = static_cast<unsigned char>(c);
        if (isNumber)
            mergeClosest(args, input.get(), counts, target, map);
        else
            mergePairs(args, pairs, map);

        const algokit::ClassTable table = algokit::readClassTable(input.get());
        algokit::OutputRaster output = algokit::createClassRaster(outputPath, input.get(), table.colours, table.names);
        int hasNoData = 0;
        const double noData = band->GetNoDataValue(&hasNoData);
        if (hasNoData)
            output.band(0)->SetNoDataValue(noData);
        for (const char* domain : {"POLSAR"})
            if (char** metadata = input->GetMetadata(domain))
                output.get()->SetMetadata(metadata, domain);
        std::vector<long long> after(256, 0);
        algokit::forEachRowBlock(height, blockRows, [&](int row0, int rows) {
            algokit::readRows(band, row0, rows, labels);
            for (unsigned char& label : labels)
            {
                label = map[label];
                ++after[label];
            }
            algokit::writeRows(output.band(0), row0, rows, labels);
            progress(40.0 + 60.0 * (row0 + rows) / height);
        });
        output.commit();
        int remaining = 0;
        for (int c = 1; c < 256; ++c)
            remaining += after[size_t(c)] > 0;
        setResult(algokit::GenericOutputs()
                      .add("PolSAR_ClassMerge_images", outputPath)
                      .add("PolSAR_ClassMerge_classes", QString::number(remaining))
                      .result());
        return true;
    }

private:
    // "from|to" pairs separated by ","; chains are followed, a cycle is refused.
    static void mergePairs(const algokit::GenericParams& args, const algokit::TextParam& pairs, std::vector<unsigned char>& map)
    {
        std::map<int, int> next;
        for (const QString& pair : pairs.list(QLatin1Char(',')))
        {
            const QStringList members = pair.split('|');
            bool okFrom = false, okTo = false;
            const int from = members.value(0).trimmed().toInt(&okFrom), to = members.value(1).trimmed().toInt(&okTo);
            if (members.size() != 2 || !okFrom || !okTo || from < 1 || from > 255 || to < 1 || to > 255)
                args.refuse("MergePairs", pairs.value(), QStringLiteral("holds %1, which is not a pair of classes 1..255 such as 3|1").arg(pair));
            if (next.count(from) && next[from] != to)
                args.refuse("MergePairs", pairs.value(), QStringLiteral("sends class %1 to two classes").arg(from));
            next[from] = to;
        }
        for (const auto& entry : next)
        {
            int c = entry.first;
            for (int steps = 0; next.count(c) && next[c] != c; ++steps)
            {
                if (steps > 256)
                    args.refuse("MergePairs", pairs.value(), QStringLiteral("holds a cycle through class %1").arg(entry.first));
                c = next[c];
            }
            map[size_t(entry.first)] = static_cast<unsigned char>(c);
        }
    }

    // Down to `target` classes by the closest Wishart centres (metadata WISHART_CENTRE_<n>, domain POLSAR).
    static void mergeClosest(const algokit::GenericParams& args, GDALDataset* input, const std::vector<long long>& counts,
                             int target, std::vector<unsigned char>& map)
    {
        std::map<int, Eigen::Matrix3cd> centres;
        std::map<int, double> weights;
        for (int c = 1; c < 256; ++c)
        {
            if (counts[size_t(c)] == 0)
                continue;
            const char* text = input->GetMetadataItem(QStringLiteral("WISHART_CENTRE_%1").arg(c).toUtf8().constData(), "POLSAR");
            const QStringList values = QString::fromUtf8(text ? text : "").split(' ', Qt::SkipEmptyParts);
            if (values.size() != 9)
                args.refuse("MergePairs", QString::number(target),
                            QStringLiteral("asks for merging by Wishart centres, and class %1 of the image has none").arg(c));
            double v[9];
            for (int k = 0; k < 9; ++k)
                v[k] = values[k].toDouble();
            Eigen::Matrix3cd t;
            t << v[0], std::complex<double>(v[1], v[2]), std::complex<double>(v[3], v[4]),
                std::complex<double>(v[1], -v[2]), v[5], std::complex<double>(v[6], v[7]),
                std::complex<double>(v[3], -v[4]), std::complex<double>(v[6], -v[7]), v[8];
            centres[c] = t;
            weights[c] = double(counts[size_t(c)]);
        }
        if (target < 1 || target > int(centres.size()))
            args.refuse("MergePairs", QString::number(target),
                        QStringLiteral("must be a class count from 1 to the %1 classes present").arg(centres.size()));
        while (int(centres.size()) > target)
        {
            int keep = 0, drop = 0;
            double best = std::numeric_limits<double>::infinity();
            for (auto a = centres.begin(); a != centres.end(); ++a)
                for (auto b = std::next(a); b != centres.end(); ++b)
                {
                    const double d = sar::symmetricWishartDistance(a->second, b->second);
                    if (d < best)
                    {
                        best = d;
                        keep = weights[a->first] >= weights[b->first] ? a->first : b->first;
                        drop = keep == a->first ? b->first : a->first;
                    }
                }
            const double total = weights[keep] + weights[drop];
            centres[keep] = (centres[keep] * weights[keep] + centres[drop] * weights[drop]) / total;
            weights[keep] = total;
            centres.erase(drop);
            weights.erase(drop);
            for (unsigned char& mapped : map)
                if (mapped == drop)
                    mapped = static_cast<unsigned char>(keep);
        }
    }
};

} // namespace

ALGO_PLUGIN_FACTORY(PolSARClassMerge)
