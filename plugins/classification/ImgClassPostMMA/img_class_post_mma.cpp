// Plug-in "ImgClassPostMMA": majority or minority analysis. Each pixel of a class takes the class that is most
// (majority) or least but present (minority) frequent in the kernel window around it, the centre pixel counting
// centreWeight times; ties keep the centre's class when it is among them, else go to the lowest class index.
// Only class values (0 .. classes - 1) vote; other values are left as they are. Streamed with a halo, the rows
// of a block spread over the cores, each row voted over a sliding window histogram.
#include "classification_io.h"
#include "majority_kernel.h"
#include "plugin_base.h"
#include "records/classification_records.h"

#include <algorithm>

namespace
{

class ImgClassPostMMA : public algokit::PluginBase
{
public:
    ImgClassPostMMA() : PluginBase(QStringLiteral("ImgClassPostMMA")) {}

protected:
    bool run() override
    {
        const stClassPostMMA& info = params<stClassPostMMA>();
        if (info.kernelRows < 1 || info.kernelColumns < 1)
            return fail(QStringLiteral("The kernel size must be at least 1."));
        const int rowRadius = info.kernelRows / 2;
        const int columnRadius = info.kernelColumns / 2;
        const int centreWeight = std::max(1, info.centreWeight);
        const bool minority = info.minority == 1;
        algokit::DatasetPtr source = algokit::openRaster(info.inputFile);
        const algokit::ClassTable table = algokit::readClassTable(source.get());
        mma::VoteRule rule;
        rule.rowRadius = rowRadius;
        rule.columnRadius = columnRadius;
        rule.centreWeight = centreWeight;
        rule.minority = minority;
        for (int c : info.classes)
            if (c >= 0)
                rule.votingClasses.push_back(c);
        std::sort(rule.votingClasses.begin(), rule.votingClasses.end());
        rule.votingClasses.erase(std::unique(rule.votingClasses.begin(), rule.votingClasses.end()),
                                 rule.votingClasses.end());
        rule.votes.assign(rule.votingClasses.empty() ? 0 : size_t(rule.votingClasses.back()) + 1, 0);
        for (int c : rule.votingClasses)
            rule.votes[size_t(c)] = 1;
        algokit::OutputRaster output = algokit::createClassRaster(info.outputFile, source.get(), table.colours, table.names,
                                                                  QString(), algokit::classDataType(table.colours.size()));
        const int width = source->GetRasterXSize();
        const int height = source->GetRasterYSize();
        std::vector<int> values, result;
        algokit::forEachRowBlock(height, std::max(64, algokit::rowsPerBlock(source.get(), 4)), [&](int row0, int rows) {
            const int first = algokit::readRowsWithHalo(source->GetRasterBand(1), row0, rows, rowRadius, values);
            const int rowCount = int(values.size() / size_t(width));
            result.assign(size_t(rows) * width, 0);
            algokit::parallelFor(rows, [&](int begin, int end) {
                std::vector<int> histogram(rule.votes.size(), 0);
                for (int r = begin; r < end; ++r)
                    mma::voteRow(rule, values.data(), first, rowCount, width, row0 + r,
                                 result.data() + size_t(r) * width, histogram);
            });
            if (output.band(0)->RasterIO(GF_Write, 0, row0, width, rows, result.data(), width, rows, GDT_Int32, 0, 0) != CE_None)
                throw algokit::AlgoError(QStringLiteral("Writing rows from %1 failed.").arg(row0));
            progress(100.0 * (row0 + rows) / height);
        });
        output.commit();
        progress(100.0);
        return true;
    }
};

} // namespace

ALGO_PLUGIN_FACTORY(ImgClassPostMMA)
