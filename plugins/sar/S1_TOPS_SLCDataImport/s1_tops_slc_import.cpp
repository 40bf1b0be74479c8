// Plug-in "S1_TOPS_SLCDataImport": each chosen swath and polarisation of a Sentinel-1 IW/EW SLC product into one
// debursted complex GeoTIFF with its SAR parameter file and its calibration and noise vectors as text beside it.
#include "generic_params.h"
#include "plugin_base.h"
#include "raster_io.h"
#include "s1_annotation.h"
#include "s1_product.h"
#include "sar_parameter_file.h"
#include "tops_deburst.h"

#include <QDir>
#include <QFile>
#include <QTextStream>

#include <cstring>
#include <stdexcept>

namespace
{

using namespace sargeo;

struct Job
{
    S1ImageFiles files;
    S1Annotation annotation;
    DeburstPlan plan;
    QString image, parameterFile, calibrationFile, noiseFile;
};

// The vectors on the output's line axis: line = (azimuth time - first output line time) / line interval.
void writeCalibrationText(const QString& path, const S1Calibration& c, const DeburstPlan& plan)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Text))
        throw algokit::AlgoError(QStringLiteral("Cannot write %1").arg(path));
    QTextStream out(&file);
    out.setRealNumberPrecision(10);
    out << "# absoluteCalibrationConstant " << c.absoluteCalibrationConstant << "\n";
    out << "line,pixel,sigmaNought,betaNought,gamma,dn\n";
    for (const S1CalibrationVector& v : c.vectors)
    {
        const double line = (v.azimuthTime - plan.firstLineTime) / plan.lineTime;
        for (size_t i = 0; i < v.pixel.size(); ++i)
            out << line << ',' << v.pixel[i] << ',' << v.sigmaNought[i] << ',' << v.betaNought[i] << ','
                << v.gamma[i] << ',' << v.dn[i] << "\n";
    }
    if (out.status() != QTextStream::Ok || !file.flush())
        throw algokit::AlgoError(QStringLiteral("Cannot write %1").arg(path));
}

void writeNoiseText(const QString& path, const S1Noise& n, const DeburstPlan& plan)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Text))
        throw algokit::AlgoError(QStringLiteral("Cannot write %1").arg(path));
    QTextStream out(&file);
    out.setRealNumberPrecision(10);
    out << "line,pixel,noiseRangeLut\n";
    for (const S1NoiseRangeVector& v : n.range)
    {
        const double line = (v.azimuthTime - plan.firstLineTime) / plan.lineTime;
        for (size_t i = 0; i < v.pixel.size(); ++i)
            out << line << ',' << v.pixel[i] << ',' << v.lut[i] << "\n";
    }
    if (out.status() != QTextStream::Ok || !file.flush())
        throw algokit::AlgoError(QStringLiteral("Cannot write %1").arg(path));
}

class S1TopsSlcImport : public algokit::PluginBase
{
public:
    S1TopsSlcImport() : PluginBase(QStringLiteral("S1_TOPS_SLCDataImport")) {}

protected:
    bool run() override
    {
        const auto& record = params<GenericAlgoRecord>();
        algokit::GenericParams args(record, GetName());
        const QString input = args.text("InputFile").required().existingPath();
        const QString outputDir = args.text("OutputDir").required();
        const auto swathParam = args.text("Swath");
        const auto polarisationParam = args.text("Polarization");

        std::unique_ptr<S1Product> product;
        try
        {
            product = std::make_unique<S1Product>(input);
        }
        catch (const std::exception& e)
        {
            args.refuse("InputFile", input, QString::fromStdString(e.what()));
        }
        const QStringList swaths = wanted(args, "Swath", swathParam, product->swaths());
        const QStringList polarisations = wanted(args, "Polarization", polarisationParam, product->polarisations());

        // Every annotation is read and every measurement checked before the first file is written.
        std::vector<Job> jobs;
        for (const S1ImageFiles& files : product->images())
        {
            if (!swaths.contains(files.swath) || !polarisations.contains(files.polarisation))
                continue;
            if (files.productType != "SLC")
                args.refuse("InputFile", input, QStringLiteral("is a %1 product, not an SLC").arg(files.productType));
            Job job;
            job.files = files;
            try
            {
                job.annotation = readS1Annotation(readVirtualFile(files.annotation));
                job.plan = planDeburst(job.annotation);
            }
            catch (const std::exception& e)
            {
                return fail(QStringLiteral("%1: %2").arg(files.annotation, QString::fromUtf8(e.what())));
            }
            if (files.measurement.isEmpty())
                return fail(QStringLiteral("The product has no measurement file for %1").arg(files.stem));
            const QString base = QDir(outputDir).absoluteFilePath(files.stem);
            job.image = base + ".tif";
            job.parameterFile = sarParameterFilePath(job.image);
            job.calibrationFile = base + "_calibration.csv";
            job.noiseFile = base + "_noise.csv";
            jobs.push_back(std::move(job));
        }
        if (jobs.empty())
            args.refuse("Swath", swathParam.value(),
                        QStringLiteral("and Polarization (%1) select no SLC image of the product").arg(polarisationParam.value()));
        for (Job& job : jobs)
        {
            algokit::DatasetPtr m = algokit::openRaster(job.files.measurement);
            const int expectedLines = int(job.annotation.bursts.size()) * job.annotation.linesPerBurst;
            if (m->GetRasterXSize() != job.annotation.samplesPerBurst || m->GetRasterYSize() < expectedLines)
                return fail(QStringLiteral("The measurement %1 holds %2 x %3 samples, its annotation describes %4 x %5")
                                .arg(job.files.measurement)
                                .arg(m->GetRasterXSize())
                                .arg(m->GetRasterYSize())
                                .arg(job.annotation.samplesPerBurst)
                                .arg(expectedLines));
            if (!GDALDataTypeIsComplex(m->GetRasterBand(1)->GetRasterDataType()))
                return fail(QStringLiteral("The measurement %1 is not complex").arg(job.files.measurement));
        }
        if (!QDir().mkpath(outputDir))
            args.refuse("OutputDir", outputDir, QStringLiteral("cannot be created"));

        QStringList written;
        double done = 0.0, total = 0.0;
        for (const Job& job : jobs)
            total += job.plan.lines;
        for (const Job& job : jobs)
        {
            importImage(job, product->name(), polarisations.size(), done, total);
            done += job.plan.lines;
            written << job.image << job.parameterFile;
            if (!job.calibrationFile.isEmpty() && QFile::exists(job.calibrationFile))
                written << job.calibrationFile;
            if (QFile::exists(job.noiseFile))
                written << job.noiseFile;
        }
        setResult(algokit::GenericOutputs().add("S1_TOPS_SLCDataImport_images", written.join('|')).result());
        return true;
    }

private:
    // The upper-case items of a '|' list, or all available ones when it is empty.
    static QStringList wanted(const algokit::GenericParams& args, const char* key, const algokit::TextParam& param,
                              const QStringList& available)
    {
        if (param.isEmpty())
            return available;
        QStringList chosen;
        for (const QString& item : param.list())
        {
            const QString word = item.trimmed().toUpper();
            if (!available.contains(word))
                args.refuse(key, param.value(), QStringLiteral("is not in the product (%1)").arg(available.join(", ")));
            chosen << word;
        }
        return chosen;
    }

    void importImage(const Job& job, const QString& productName, int polarisationCount, double done, double total)
    {
        const S1Annotation& a = job.annotation;
        const DeburstPlan& plan = job.plan;
        SarParameterRecord parameters;
        try
        {
            parameters = s1ParameterRecord(a, productName, polarisationCount, plan.firstLineTime, plan.lines,
                                           plan.samples);
        }
        catch (const std::exception& e)
        {
            throw algokit::AlgoError(QStringLiteral("%1: %2").arg(job.files.annotation, QString::fromUtf8(e.what())));
        }

        algokit::DatasetPtr source = algokit::openRaster(job.files.measurement);
        GDALRasterBand* in = source->GetRasterBand(1);
        const GDALDataType type = in->GetRasterDataType();
        const int sampleBytes = GDALGetDataTypeSizeBytes(type);
        claimOutput(job.image);
        algokit::OutputRaster out(job.image, "GTiff", plan.samples, plan.lines, 1, type,
                                  {"TILED=YES", "BIGTIFF=IF_SAFER"});
        out.band(0)->SetDescription(a.polarisation.c_str());
        out.get()->SetMetadataItem("SWATH", a.swath.c_str());
        out.get()->SetMetadataItem("FIRST_LINE_TIME", parameters.rawDataStartTime.c_str());

        const size_t rowBytes = size_t(plan.samples) * size_t(sampleBytes);
        const int step = int(std::max<size_t>(1, (8u << 20) / rowBytes));
        std::vector<unsigned char> buffer;
        int previousEnd = 0;
        auto writeZeros = [&](int from, int to) {
            for (int y = from; y < to; y += step)
            {
                const int rows = std::min(step, to - y);
                buffer.assign(rowBytes * size_t(rows), 0);
                if (out.band(0)->RasterIO(GF_Write, 0, y, plan.samples, rows, buffer.data(), plan.samples, rows, type,
                                          0, 0) != CE_None)
                    throw algokit::AlgoError(QStringLiteral("Write failed: %1").arg(CPLGetLastErrorMsg()));
            }
        };
        for (const BurstPiece& piece : plan.pieces)
        {
            writeZeros(previousEnd, piece.outputLine);
            const int sourceLine0 = piece.burst * a.linesPerBurst + piece.firstLine;
            for (int y = 0; y < piece.lineCount; y += step)
            {
                const int rows = std::min(step, piece.lineCount - y);
                buffer.resize(rowBytes * size_t(rows));
                if (in->RasterIO(GF_Read, 0, sourceLine0 + y, plan.samples, rows, buffer.data(), plan.samples, rows,
                                 type, 0, 0) != CE_None)
                    throw algokit::AlgoError(QStringLiteral("Read failed in %1: %2")
                                                 .arg(job.files.measurement, CPLGetLastErrorMsg()));
                for (int r = 0; r < rows; ++r)
                {
                    int first, last;
                    validSamples(a, piece, y + r, &first, &last);
                    unsigned char* row = buffer.data() + size_t(r) * rowBytes;
                    if (last < first)
                    {
                        std::memset(row, 0, rowBytes);
                        continue;
                    }
                    std::memset(row, 0, size_t(first) * size_t(sampleBytes));
                    std::memset(row + size_t(last + 1) * size_t(sampleBytes), 0,
                                size_t(plan.samples - 1 - last) * size_t(sampleBytes));
                }
                if (out.band(0)->RasterIO(GF_Write, 0, piece.outputLine + y, plan.samples, rows, buffer.data(),
                                          plan.samples, rows, type, 0, 0) != CE_None)
                    throw algokit::AlgoError(QStringLiteral("Write failed: %1").arg(CPLGetLastErrorMsg()));
                progress(100.0 * (done + piece.outputLine + y + rows) / total);
            }
            previousEnd = piece.outputLine + piece.lineCount;
        }
        writeZeros(previousEnd, plan.lines);
        out.commit();

        claimOutput(job.parameterFile);
        QString error;
        if (!WriteSarParameterFile(job.parameterFile, parameters, &error))
            throw algokit::AlgoError(error);
        try
        {
            if (!job.files.calibration.isEmpty())
            {
                claimOutput(job.calibrationFile);
                writeCalibrationText(job.calibrationFile,
                                     readS1Calibration(readVirtualFile(job.files.calibration), a.referenceDay), plan);
            }
            if (!job.files.noise.isEmpty())
            {
                claimOutput(job.noiseFile);
                writeNoiseText(job.noiseFile, readS1Noise(readVirtualFile(job.files.noise), a.referenceDay), plan);
            }
        }
        catch (const std::runtime_error& e)
        {
            if (dynamic_cast<const algokit::AlgoError*>(&e))
                throw;
            throw algokit::AlgoError(QString::fromUtf8(e.what()));
        }
    }
};

} // namespace

ALGO_PLUGIN_FACTORY(S1TopsSlcImport)
