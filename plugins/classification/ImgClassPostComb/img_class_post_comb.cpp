// Plug-in "ImgClassPostComb": class combination. Each source class (1-based) is recoded into its target class
// (chains followed to their end); the classes that remain are renumbered in their original order and keep
// their colours and names. Values outside the colour table are written unchanged.
#include "classification_io.h"
#include "plugin_base.h"
#include "records/classification_records.h"

namespace
{

class ImgClassPostComb : public algokit::PluginBase
{
public:
    ImgClassPostComb() : PluginBase(QStringLiteral("ImgClassPostComb")) {}

protected:
    bool run() override
    {
        const stClassPostCombInfo& info = params<stClassPostCombInfo>();
        const int n = info.classCount;
        if (n < 1)
            return fail(QStringLiteral("The classification has no class to combine."));
        if (info.sourceClasses.size() != info.targetClasses.size())
            return fail(QStringLiteral("The recoding lists differ in length."));
        std::vector<int> target(static_cast<size_t>(n), 0);
        for (int c = 0; c < n; ++c)
            target[size_t(c)] = c;
        for (size_t i = 0; i < info.sourceClasses.size(); ++i)
        {
            const int from = info.sourceClasses[i], to = info.targetClasses[i];
            if (from < 1 || from > n || to < 1 || to > n)
                return fail(QStringLiteral("The recoding %1|%2 names a class outside 1 to %3.").arg(from).arg(to).arg(n));
            target[size_t(from - 1)] = to - 1;
        }
        // Follow chains (a -> b -> c) to a class that is not recoded; a cycle keeps the class it returns to.
        std::vector<int> final(static_cast<size_t>(n), 0);
        for (int c = 0; c < n; ++c)
        {
            int t = c;
            for (int steps = 0; steps < n && target[size_t(t)] != t; ++steps)
                t = target[size_t(t)];
            final[size_t(c)] = t;
        }
        std::vector<int> newIndex(static_cast<size_t>(n), -1);
        std::vector<algokit::Rgb> colours;
        QStringList names;
        for (int c = 0; c < n; ++c)
            if (final[size_t(c)] == c)
            {
                newIndex[size_t(c)] = int(colours.size());
                colours.push_back({info.red.size() > size_t(c) ? info.red[size_t(c)] : 0,
                                   info.green.size() > size_t(c) ? info.green[size_t(c)] : 0,
                                   info.blue.size() > size_t(c) ? info.blue[size_t(c)] : 0});
                names << info.classNames.value(c, QStringLiteral("Class_%1").arg(c + 1));
            }
        std::vector<int> lookup(static_cast<size_t>(n), 0);
        for (int c = 0; c < n; ++c)
            lookup[size_t(c)] = newIndex[size_t(final[size_t(c)])];

        algokit::DatasetPtr source = algokit::openRaster(info.inputFile);
        algokit::OutputRaster output = algokit::createClassRaster(info.outputFile, source.get(), colours, names, QString(),
                                                                  algokit::classDataType(size_t(n)));
        const int height = source->GetRasterYSize();
        std::vector<int> values;
        algokit::forEachRowBlock(height, algokit::rowsPerBlock(source.get(), 4), [&](int row0, int rows) {
            algokit::readRows(source->GetRasterBand(1), row0, rows, values);
            for (int& v : values)
                if (v >= 0 && v < n)
                    v = lookup[size_t(v)];
            algokit::writeRows(output.band(0), row0, rows, values);
            progress(100.0 * (row0 + rows) / height);
        });
        output.commit();
        progress(100.0);
        return true;
    }
};

} // namespace

ALGO_PLUGIN_FACTORY(ImgClassPostComb)
