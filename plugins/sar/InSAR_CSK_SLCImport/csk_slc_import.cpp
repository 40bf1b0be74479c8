// Plug-in "InSAR_CSK_SLCImport": each swath image of a COSMO-SkyMed SLC product into a complex raster with its SAR
// parameter file; the first swath goes to the requested path, further swaths beside it with "_S02", ... added.
#include "complex_image.h"
#include "csk_product.h"
#include "plugin_base.h"
#include "raster_io.h"
#include "records/sar_records.h"
#include "sar_parameter_file.h"

#include <QDir>
#include <QFileInfo>
#include <vector>

namespace
{

hid_t memoryTypeOf(GDALDataType element)
{
    switch (element)
    {
    case GDT_Int16: return H5T_NATIVE_SHORT;
    case GDT_Int32: return H5T_NATIVE_INT;
    case GDT_Float64: return H5T_NATIVE_DOUBLE;
    default: return H5T_NATIVE_FLOAT;
    }
}

class CskSlcImport : public algokit::PluginBase
{
public:
    CskSlcImport() : PluginBase(QStringLiteral("InSAR_CSK_SLCImport")) {}

protected:
    bool run() override
    {
        CskImportParams record = params<CskImportParams>();
        const QString driver = sarimport::driverForFormat(record.outputFormat);
        if (QFileInfo(record.inputFile).absoluteFilePath() == QFileInfo(record.outputFile).absoluteFilePath())
            return fail(QStringLiteral("The output file must differ from the input file"));
        const sarimport::CskProduct product(record.inputFile);

        // Every record and size is read before the first file is written.
        struct Job
        {
            QString swath;
            QString image;
            QString parameterFile;
            sarimport::CskProduct::ImageShape shape;
            SarParameterRecord parameters;
        };
        std::vector<Job> jobs;
        const QFileInfo output(record.outputFile);
        for (int i = 0; i < product.swaths().size(); ++i)
        {
            Job job;
            job.swath = product.swaths()[i];
            job.image = i == 0 ? output.absoluteFilePath()
                               : output.absolutePath() + "/" + output.completeBaseName() + "_" + job.swath + "." +
                                     output.suffix();
            job.parameterFile = sarParameterFilePath(job.image);
            job.shape = product.imageShape(job.swath);
            job.parameters = product.parameterRecord(job.swath);
            jobs.push_back(job);
        }
        if (!QDir().mkpath(output.absolutePath()))
            return fail(QStringLiteral("The output folder %1 cannot be created").arg(output.absolutePath()));

        double done = 0.0, total = 0.0;
        for (const Job& job : jobs)
            total += double(job.shape.lines);
        for (const Job& job : jobs)
        {
            const GDALDataType outputType =
                sarimport::complexTypeFor(record.outputFormat, job.shape.integerSamples ? GDT_Int16 : GDT_Float32);
            const GDALDataType element = sarimport::elementTypeOf(outputType);
            const int elementBytes = GDALGetDataTypeSizeBytes(element);
            m_written << job.image;
            algokit::OutputRaster raster(job.image, driver, job.shape.samples, job.shape.lines, 1, outputType);
            raster.band(0)->SetDescription(job.parameters.polarizationType.c_str());
            const size_t rowBytes = size_t(job.shape.samples) * 2 * size_t(elementBytes);
            const int step = int(std::max<size_t>(1, std::min<size_t>(size_t(job.shape.lines), (8u << 20) / rowBytes)));
            std::vector<unsigned char> buffer;
            algokit::forEachRowBlock(job.shape.lines, step, [&](int line0, int lines) {
                buffer.resize(rowBytes * size_t(lines));
                product.readLines(job.swath, line0, lines, memoryTypeOf(element), buffer.data());
                if (raster.band(0)->RasterIO(GF_Write, 0, line0, job.shape.samples, lines, buffer.data(),
                                             job.shape.samples, lines, outputType, 0, 0) != CE_None)
                    throw algokit::AlgoError(QStringLiteral("Write failed at line %1 of %2: %3")
                                                 .arg(line0)
                                                 .arg(job.image, QString::fromUtf8(CPLGetLastErrorMsg())));
                done += lines;
                progress(100.0 * done / total);
            });
            raster.commit();
            m_written << job.parameterFile;
            QString error;
            if (!WriteSarParameterFile(job.parameterFile, job.parameters, &error))
                return fail(error);
            record.outputImages << job.image;
            record.outputParameterFiles << job.parameterFile;
        }
        m_written.clear();
        setResult(record);
        return true;
    }

    void discardOutputs() override
    {
        for (const QString& path : m_written)
            algokit::deleteRasterFiles(path);
        m_written.clear();
    }

private:
    QStringList m_written;
};

} // namespace

ALGO_PLUGIN_FACTORY(CskSlcImport)
