// Plug-in "RD_GenerateRPC": a rational polynomial model fitted to the range-Doppler model of a slant-range image,
// written in the GF-3 .rpc layout and as an _RPC.TXT that GDAL reads, with fit and check-point residuals.
#include "generic_params.h"
#include "plugin_base.h"
#include "range_doppler.h"
#include "raster_io.h"
#include "rpc_model.h"
#include "s1_product.h"
#include "sar_parameter_file.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

namespace
{

using namespace sargeo;

// Heights of the fitting layers, metres above the ellipsoid: from below sea level to high mountains.
constexpr double kLowest = -500.0, kHighest = 5000.0;
constexpr int kGrid = 21, kLayers = 7;

class GenerateRpc : public algokit::PluginBase
{
public:
    GenerateRpc() : PluginBase(QStringLiteral("RD_GenerateRPC")) {}

protected:
    bool run() override
    {
        const auto& record = params<GenericAlgoRecord>();
        algokit::GenericParams args(record, GetName());
        const QString input = args.text("InputFile").required().existingFile();
        const QString parameterPath = args.text("ParameterFile").required().existingFile();
        const QString output = args.text("OutputFile").required().writableOutput();

        SarParameterRecord parameters;
        bool read = false;
        try
        {
            read = ReadSarParameterFile(QFile::encodeName(parameterPath).constData(), parameters);
        }
        catch (const std::exception&)
        {
        }
        if (!read)
            args.refuse("ParameterFile", parameterPath, QStringLiteral("is not a readable SAR parameter file"));
        if (parameters.imageGeometry != "SLANT_RANGE")
            args.refuse("ParameterFile", parameterPath, QStringLiteral("does not describe a slant-range image"));
        std::unique_ptr<RangeDoppler> model;
        try
        {
            model = std::make_unique<RangeDoppler>(rangeDopplerFromRecord(parameters));
        }
        catch (const std::exception& e)
        {
            args.refuse("ParameterFile", parameterPath, QString::fromUtf8(e.what()));
        }
        {
            algokit::DatasetPtr image = algokit::openRaster(input);
            if (image->GetRasterXSize() != parameters.numberOfColumns ||
                image->GetRasterYSize() != parameters.numberOfRows)
                args.refuse("InputFile", input,
                            QStringLiteral("is %1 x %2 but the parameter file describes %3 x %4")
                                .arg(image->GetRasterXSize())
                                .arg(image->GetRasterYSize())
                                .arg(parameters.numberOfColumns)
                                .arg(parameters.numberOfRows));
        }
        const QFileInfo outInfo(output);
        const QString textPath = outInfo.absolutePath() + "/" + outInfo.completeBaseName() + "_RPC.TXT";
        if (outInfo.absoluteFilePath() == QFileInfo(input).absoluteFilePath() ||
            outInfo.absoluteFilePath() == QFileInfo(parameterPath).absoluteFilePath())
            args.refuse("OutputFile", output, QStringLiteral("would overwrite an input"));

        const int width = parameters.numberOfColumns, height = parameters.numberOfRows;
        // Fit points on the image grid and height layers; check points halfway between them.
        const std::vector<RpcPoint> fit = points(*model, width, height, 0.0, kGrid, kLayers, args, parameterPath);
        progress(40);
        const std::vector<RpcPoint> check = points(*model, width, height, 0.5, kGrid - 1, kLayers - 1, args, parameterPath);
        progress(70);
        RpcModel rpc;
        try
        {
            rpc = fitRpc(fit);
        }
        catch (const std::exception& e)
        {
            return fail(QStringLiteral("The RPC fit failed: %1").arg(e.what()));
        }
        const RpcResiduals fitResiduals = rpcResiduals(rpc, fit);
        const RpcResiduals checkResiduals = rpcResiduals(rpc, check);
        rpc.errBias = checkResiduals.rms;
        rpc.errRand = 0.0;
        progress(90);

        writeText(output, formatRpcGroupText(rpc, parameters.sensor));
        writeText(textPath, formatRpcTxt(rpc));
        setResult(algokit::GenericOutputs()
                      .add("RD_GenerateRPC_images", output + "|" + textPath)
                      .add("RD_GenerateRPC_FitRMS", QString::number(fitResiduals.rms, 'g', 6))
                      .add("RD_GenerateRPC_FitMax", QString::number(fitResiduals.max, 'g', 6))
                      .add("RD_GenerateRPC_CheckRMS", QString::number(checkResiduals.rms, 'g', 6))
                      .add("RD_GenerateRPC_CheckMax", QString::number(checkResiduals.max, 'g', 6))
                      .result());
        return true;
    }

private:
    std::vector<RpcPoint> points(const RangeDoppler& model, int width, int height, double shift, int count, int layers,
                                 const algokit::GenericParams& args, const QString& parameterPath)
    {
        std::vector<RpcPoint> list;
        const double layerStep = (kHighest - kLowest) / (kLayers - 1);
        for (int k = 0; k < layers; ++k)
        {
            const double h = kLowest + (k + shift) * layerStep;
            for (int i = 0; i < count; ++i)
                for (int j = 0; j < count; ++j)
                {
                    const double line = (i + shift) * (height - 1) / double(kGrid - 1);
                    const double sample = (j + shift) * (width - 1) / double(kGrid - 1);
                    Vec3 p;
                    if (!model.imageToGround(line, sample, h, &p))
                        args.refuse("ParameterFile", parameterPath,
                                    QStringLiteral("gives an orbit that does not see line %1, sample %2").arg(line).arg(sample));
                    RpcPoint point;
                    ecefToGeodetic(p, &point.latitude, &point.longitude, &point.height, model.ellipsoid());
                    point.height = h;
                    point.line = line;
                    point.sample = sample;
                    list.push_back(point);
                }
        }
        return list;
    }

    void writeText(const QString& path, const std::string& text)
    {
        claimOutput(path);
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) ||
            file.write(text.data(), qint64(text.size())) != qint64(text.size()) || !file.flush())
            throw algokit::AlgoError(QStringLiteral("Cannot write %1").arg(path));
    }
};

} // namespace

ALGO_PLUGIN_FACTORY(GenerateRpc)
