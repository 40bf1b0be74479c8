// Plug-in "PolSAR_BasisChange": a polarimetric folder (S2, C3, T3, C4, T4) in another polarisation basis, linear,
// circular or elliptical, written to OutputDir/<kind> in the same layout; a unitary change, so the span and the
// eigenvalues of every matrix stay.
#include "generic_params.h"
#include "polsar_folder.h"

#include <QDir>
#include <QFileInfo>

namespace
{

class PolSARBasisChange : public algokit::PluginBase
{
public:
    PolSARBasisChange() : PluginBase(QStringLiteral("PolSAR_BasisChange")) {}

protected:
    bool run() override
    {
        const algokit::GenericParams args(params<GenericAlgoRecord>(), GetName());
        const QString inputDir = args.text("InputDir").existingFolder();
        const QString outputRoot = args.text("OutputDir").required();
        const QString basisText = args.text("Basis").orDefault("circular");
        double psi = 0.0, chi = 0.0;
        if (!sar::parsePolarisationBasis(basisText.toStdString(), &psi, &chi))
            args.refuse("Basis", basisText, QStringLiteral("must be linear, circular or orientation,ellipticity in degrees"));
        sar::PolFolderReader reader(inputDir);
        const sar::PolMatrix kind = reader.kind();
        if (kind == sar::PolMatrix::C2)
            args.refuse("InputDir", inputDir, QStringLiteral("holds C2 matrices: a change of basis needs both channels of both polarisations"));
        const QString outputDir = QDir(outputRoot).filePath(sar::polMatrixName(kind));
        if (QFileInfo(outputDir).absoluteFilePath() == QFileInfo(inputDir).absoluteFilePath())
            args.refuse("OutputDir", outputRoot, QStringLiteral("would overwrite the input folder"));

        const Eigen::Matrix2cd basis = sar::polarisationBasis(psi, chi);
        sar::PolFolderWriter writer(outputDir, kind, reader.config(), [this](const QString& path) { claimOutput(path); });
        const int width = reader.width(), height = reader.height(), perPixel = sar::floatsPerPixel(kind);
        const int blockRows = std::max(1, int((16u << 20) / (size_t(width) * 8 * perPixel)));
        std::vector<float> pixels;
        algokit::forEachRowBlock(height, blockRows, [&](int row0, int rows) {
            reader.readRows(row0, rows, pixels);
            algokit::parallelFor(rows, [&](int begin, int end) {
                sar::PolCov matrix;
                for (size_t p = size_t(begin) * width; p < size_t(end) * width; ++p)
                {
                    float* f = pixels.data() + p * perPixel;
                    if (kind == sar::PolMatrix::S2)
                        sar::changeScatteringBasis(basis, f);
                    else
                    {
                        sar::matrixFromFloats(kind, f, matrix);
                        sar::floatsFromMatrix(kind, sar::changeMatrixBasis(kind, matrix, basis), f);
                    }
                }
            });
            writer.writeRows(rows, pixels);
            progress(100.0 * (row0 + rows) / height);
        });
        writer.finish();
        setResult(algokit::GenericOutputs().add("PolSAR_BasisChange_images", writer.files().join('|')).result());
        return true;
    }
};

} // namespace

ALGO_PLUGIN_FACTORY(PolSARBasisChange)
