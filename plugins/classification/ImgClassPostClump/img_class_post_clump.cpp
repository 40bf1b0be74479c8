// Plug-in "ImgClassPostClump": per-class morphological closing (dilation then erosion with a square kernel)
// fills gaps narrower than the kernel inside each class. Classes are closed in index order and a later class
// wins where closings overlap. The kernel radius is size / 2 (an even size acts as the next odd one);
// pixels beyond the image neither grow nor erode a class. Streamed by row blocks with a halo of two radii.
#include "classification_io.h"
#include "plugin_base.h"
#include "records/classification_records.h"

#include <algorithm>

namespace
{

// Sliding-window sums of a 0/1 mask along rows (dx) or columns (dy) over the window [-r, r].
void windowSums(const std::vector<unsigned char>& mask, int width, int height, int r, bool alongRows,
                std::vector<int>& sums, std::vector<int>& inside)
{
    sums.assign(mask.size(), 0);
    inside.assign(mask.size(), 0);
    const int lines = alongRows ? height : width;
    const int length = alongRows ? width : height;
    for (int line = 0; line < lines; ++line)
    {
        auto at = [&](int i) { return alongRows ? size_t(line) * width + i : size_t(i) * width + line; };
        int sum = 0;
        for (int i = 0; i < std::min(r, length); ++i)
            sum += mask[at(i)];
        for (int i = 0; i < length; ++i)
        {
            if (i + r < length)
                sum += mask[at(i + r)];
            if (i - r - 1 >= 0)
                sum -= mask[at(i - r - 1)];
            sums[at(i)] = sum;
            inside[at(i)] = std::min(length - 1, i + r) - std::max(0, i - r) + 1;
        }
    }
}

class ImgClassPostClump : public algokit::PluginBase
{
public:
    ImgClassPostClump() : PluginBase(QStringLiteral("ImgClassPostClump")) {}

protected:
    bool run() override
    {
        const stClassPostclump& info = params<stClassPostclump>();
        if (info.pair.size() != 2 || info.pair[0] < 1 || info.pair[1] < 1)
            return fail(QStringLiteral("The kernel size must be at least 1."));
        const int rowRadius = info.pair[0] / 2;
        const int columnRadius = info.pair[1] / 2;
        algokit::DatasetPtr source = algokit::openRaster(info.inputFile);
        const algokit::ClassTable table = algokit::readClassTable(source.get());
        const GDALDataType type = algokit::classDataType(table.colours.size());
        algokit::OutputRaster output =
            algokit::createClassRaster(info.outputFile, source.get(), table.colours, table.names, QString(), type);
        const int width = source->GetRasterXSize();
        const int height = source->GetRasterYSize();
        const int halo = 2 * rowRadius;
        std::vector<int> values, result;
        std::vector<unsigned char> mask, grown;
        std::vector<int> sums, inside, sums2, inside2;
        algokit::forEachRowBlock(height, std::max(64, algokit::rowsPerBlock(source.get(), 4)), [&](int row0, int rows) {
            const int first = algokit::readRowsWithHalo(source->GetRasterBand(1), row0, rows, halo, values);
            const int bufferRows = int(values.size() / size_t(width));
            result.assign(values.begin() + size_t(row0 - first) * width, values.begin() + size_t(row0 - first + rows) * width);
            for (int c : info.classes)
            {
                mask.assign(values.size(), 0);
                bool any = false;
                for (size_t p = 0; p < values.size(); ++p)
                    if (values[p] == c)
                        mask[p] = 1, any = true;
                if (!any)
                    continue;
                // Dilation: any class pixel in the window.
                windowSums(mask, width, bufferRows, columnRadius, true, sums, inside);
                grown.assign(mask.size(), 0);
                for (size_t p = 0; p < mask.size(); ++p)
                    grown[p] = sums[p] > 0;
                windowSums(grown, width, bufferRows, rowRadius, false, sums, inside);
                for (size_t p = 0; p < mask.size(); ++p)
                    grown[p] = sums[p] > 0;
                // Erosion: every in-image pixel of the window grown.
                windowSums(grown, width, bufferRows, columnRadius, true, sums, inside);
                for (size_t p = 0; p < mask.size(); ++p)
                    mask[p] = sums[p] == inside[p];
                windowSums(mask, width, bufferRows, rowRadius, false, sums2, inside2);
                for (int y = 0; y < rows; ++y)
                    for (int x = 0; x < width; ++x)
                    {
                        const size_t p = size_t(row0 - first + y) * width + x;
                        if (sums2[p] == inside2[p])
                            result[size_t(y) * width + x] = c;
                    }
            }
            writeBlock(output.band(0), row0, rows, result);
            progress(100.0 * (row0 + rows) / height);
        });
        output.commit();
        progress(100.0);
        return true;
    }

private:
    static void writeBlock(GDALRasterBand* band, int row0, int rows, const std::vector<int>& values)
    {
        if (band->RasterIO(GF_Write, 0, row0, band->GetXSize(), rows, const_cast<int*>(values.data()), band->GetXSize(), rows,
                           GDT_Int32, 0, 0) != CE_None)
            throw algokit::AlgoError(QStringLiteral("Writing rows from %1 failed.").arg(row0));
    }
};

} // namespace

ALGO_PLUGIN_FACTORY(ImgClassPostClump)
