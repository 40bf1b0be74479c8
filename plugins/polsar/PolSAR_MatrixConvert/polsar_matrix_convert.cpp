// Plug-in "PolSAR_MatrixConvert": a folder of S2, C2, C3, T3, C4 or T4 to another of those kinds, optionally
// averaged over azimuth x range cells ("T3:4x1"), written to OutputDir/<kind> in the same layout, in row blocks
// (C4/T4 to C3/T3 symmetrises HV).
#include "generic_params.h"
#include "polsar_folder.h"

#include <QDir>
#include <QFileInfo>

namespace
{

class PolSARMatrixConvert : public algokit::PluginBase
{
public:
    PolSARMatrixConvert() : PluginBase(QStringLiteral("PolSAR_MatrixConvert")) {}

protected:
    bool run() override
    {
        const algokit::GenericParams args(params<GenericAlgoRecord>(), GetName());
        const QString inputDir = args.text("InputDir").existingFolder();
        const QString outputRoot = args.text("OutputDir").required();
        const QString targetText = args.text("TargetMatrix").required();
        sar::PolMatrix target;
        int azimuthLooks = 1, rangeLooks = 1;
        if (!sar::parseTargetMatrix(targetText.toStdString(), &target, &azimuthLooks, &rangeLooks))
            args.refuse("TargetMatrix", targetText,
                        QStringLiteral("must be one of S2, C2, C3, T3, C4, T4, optionally with looks such as T3:4x1"));
        sar::PolFolderReader reader(inputDir);
        if (!sar::convertible(reader.kind(), target))
            args.refuse("TargetMatrix", targetText,
                        QStringLiteral("cannot be made from %1").arg(sar::polMatrixName(reader.kind())));
        const int width = reader.width(), height = reader.height();
        const int outWidth = width / rangeLooks, outHeight = height / azimuthLooks;
        if (outWidth < 1 || outHeight < 1)
            args.refuse("TargetMatrix", targetText, QStringLiteral("asks for more looks than the image has lines or columns"));
        const QString outputDir = QDir(outputRoot).filePath(sar::polMatrixName(target));
        if (QFileInfo(outputDir).absoluteFilePath() == QFileInfo(inputDir).absoluteFilePath())
            args.refuse("OutputDir", outputRoot, QStringLiteral("would overwrite the input folder"));

        sar::PolConfig config = reader.config();
        config.rows = outHeight;
        config.cols = outWidth;
        sar::PolFolderWriter writer(outputDir, target, config, [this](const QString& path) { claimOutput(path); });
        const sar::MatrixConverter converter(reader.kind(), target);
        const int inFloats = sar::floatsPerPixel(reader.kind()), outFloats = sar::floatsPerPixel(target);
        // Whole cells per block.
        const int cellRows = std::max(1, int((16u << 20) / (size_t(width) * 4 * (inFloats + outFloats))) / azimuthLooks);
        std::vector<float> in, converted, out;
        algokit::forEachRowBlock(outHeight, cellRows, [&](int outRow0, int outRows) {
            const int rows = outRows * azimuthLooks;
            reader.readRows(outRow0 * azimuthLooks, rows, in);
            converted.resize(size_t(rows) * width * outFloats);
            algokit::parallelFor(rows, [&](int begin, int end) {
                for (size_t p = size_t(begin) * width; p < size_t(end) * width; ++p)
                    converter.convert(in.data() + p * inFloats, converted.data() + p * outFloats);
            });
            if (azimuthLooks == 1 && rangeLooks == 1)
            {
                writer.writeRows(rows, converted);
            }
            else
            {
                // Mean of each cell's matrices with every element finite.
                out.assign(size_t(outRows) * outWidth * outFloats, std::numeric_limits<float>::quiet_NaN());
                algokit::parallelFor(outRows, [&](int begin, int end) {
                    std::vector<double> sum(static_cast<size_t>(outFloats));
                    for (int r = begin; r < end; ++r)
                        for (int c = 0; c < outWidth; ++c)
                        {
                            std::fill(sum.begin(), sum.end(), 0.0);
                            int count = 0;
                            for (int dy = 0; dy < azimuthLooks; ++dy)
                                for (int dx = 0; dx < rangeLooks; ++dx)
                                {
                                    const float* f = converted.data() +
                                                     (size_t(r * azimuthLooks + dy) * width + size_t(c) * rangeLooks + dx) * outFloats;
                                    if (!std::all_of(f, f + outFloats, [](float v) { return std::isfinite(v); }))
                                        continue;
                                    for (int k = 0; k < outFloats; ++k)
                                        sum[size_t(k)] += f[k];
                                    ++count;
                                }
                            if (count)
                                for (int k = 0; k < outFloats; ++k)
                                    out[(size_t(r) * outWidth + c) * outFloats + k] = float(sum[size_t(k)] / count);
                        }
                });
                writer.writeRows(outRows, out);
            }
            progress(100.0 * (outRow0 + outRows) / outHeight);
        });
        writer.finish();
        setResult(algokit::GenericOutputs().add("PolSAR_MatrixConvert_images", writer.files().join('|')).result());
        return true;
    }
};

} // namespace

ALGO_PLUGIN_FACTORY(PolSARMatrixConvert)
