// Plug-in "PolSAR_MatrixConvert": a folder of S2, C2, C3, T3, C4 or T4 to another of those kinds, written to
// OutputDir/<TargetMatrix> in the same layout, pixel by pixel in row blocks (C4/T4 to C3/T3 symmetrises HV).
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
        algokit::TextParam targetText = args.text("TargetMatrix").required();
        targetText.oneOf({"S2", "C2", "C3", "T3", "C4", "T4"});
        sar::PolMatrix target;
        sar::polMatrixFromName(targetText.value().toStdString(), &target);
        sar::PolFolderReader reader(inputDir);
        if (!sar::convertible(reader.kind(), target))
            args.refuse("TargetMatrix", targetText.value(),
                        QStringLiteral("cannot be made from %1").arg(sar::polMatrixName(reader.kind())));
        const QString outputDir = QDir(outputRoot).filePath(targetText.value());
        if (QFileInfo(outputDir).absoluteFilePath() == QFileInfo(inputDir).absoluteFilePath())
            args.refuse("OutputDir", outputRoot, QStringLiteral("would overwrite the input folder"));

        sar::PolFolderWriter writer(outputDir, target, reader.config(), [this](const QString& path) { claimOutput(path); });
        const int width = reader.width(), height = reader.height();
        const int inFloats = sar::floatsPerPixel(reader.kind()), outFloats = sar::floatsPerPixel(target);
        const int blockRows = std::max(1, int((16u << 20) / (size_t(width) * 4 * (inFloats + outFloats))));
        const sar::MatrixConverter converter(reader.kind(), target);
        std::vector<float> in, out;
        algokit::forEachRowBlock(height, blockRows, [&](int row0, int rows) {
            reader.readRows(row0, rows, in);
            out.resize(size_t(rows) * width * outFloats);
            algokit::parallelFor(rows, [&](int begin, int end) {
                for (size_t p = size_t(begin) * width; p < size_t(end) * width; ++p)
                    converter.convert(in.data() + p * inFloats, out.data() + p * outFloats);
            });
            writer.writeRows(rows, out);
            progress(100.0 * (row0 + rows) / height);
        });
        writer.finish();
        setResult(algokit::GenericOutputs().add("PolSAR_MatrixConvert_images", writer.files().join('|')).result());
        return true;
    }
};

} // namespace

ALGO_PLUGIN_FACTORY(PolSARMatrixConvert)
