// Plug-in "ImgClassPostMMA": majority or minority analysis. Each pixel of a class takes the class that is most
// (majority) or least but present (minority) frequent in the kernel window around it, the centre pixel counting
// centreWeight times; ties keep the centre's class when it is among them, else go to the lowest class index.
// Only class values (0 .. classes - 1) vote; other values are left as they are. Streamed with a halo.
#include "classification_io.h"
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
        int classLimit = 0;
        for (int c : info.classes)
            classLimit = std::max(classLimit, c + 1);
        std::vector<char> voting(size_t(classLimit), 0);
        for (int c : info.classes)
            if (c >= 0)
                voting[size_t(c)] = 1;
        algokit::OutputRaster output = algokit::createClassRaster(info.outputFile, source.get(), table.colours, table.names,
                                                                  QString(), algokit::classDataType(table.colours.size()));
        const int width = source->GetRasterXSize();
        const int height = source->GetRasterYSize();
        std::vector<int> values, result;
        std::vector<int> counts(size_t(classLimit) + 1, 0);
        std::vector<int> touched;
        auto isClass = [&](int v) { return v >= 0 && v < classLimit && voting[size_t(v)]; };
        algokit::forEachRowBlock(height, std::max(64, algokit::rowsPerBlock(source.get(), 4)), [&](int row0, int rows) {
            const int first = algokit::readRowsWithHalo(source->GetRasterBand(1), row0, rows, rowRadius, values);
            const int last = first + int(values.size() / size_t(width));
            result.assign(size_t(rows) * width, 0);
            for (int y = row0; y < row0 + rows; ++y)
                for (int x = 0; x < width; ++x)
                {
                    const int centre = values[size_t(y - first) * width + x];
                    int& out = result[size_t(y - row0) * width + x];
                    out = centre;
                    if (!isClass(centre))
                        continue;
                    touched.clear();
                    for (int yy = std::max(first, y - rowRadius); yy <= std::min(last - 1, y + rowRadius); ++yy)
                        for (int xx = std::max(0, x - columnRadius); xx <= std::min(width - 1, x + columnRadius); ++xx)
                        {
                            const int v = values[size_t(yy - first) * width + xx];
                            if (!isClass(v))
                                continue;
                            if (counts[size_t(v)] == 0)
                                touched.push_back(v);
                            counts[size_t(v)] += (yy == y && xx == x) ? centreWeight : 1;
                        }
                    int best = centre;
                    for (int v : touched)
                    {
                        const bool better = minority ? counts[size_t(v)] < counts[size_t(best)]
                                                     : counts[size_t(v)] > counts[size_t(best)];
                        const bool tie = counts[size_t(v)] == counts[size_t(best)] && best != centre && v < best;
                        if (better || tie)
                            best = v;
                    }
                    out = best;
                    for (int v : touched)
                        counts[size_t(v)] = 0;
                }
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
