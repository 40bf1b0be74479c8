// Plug-in "UtilityFormTran": format conversion through GDALTranslate, with progress and cancel.
#include "plugin_base.h"
#include "raster_io.h"
#include "records/utility_records.h"

#include <gdal_utils.h>

#include <QDir>
#include <QFileInfo>

namespace
{

int CPL_STDCALL translateProgress(double complete, const char*, void* data)
{
    auto* report = static_cast<std::function<bool(double)>*>(data);
    return (*report)(complete * 100.0) ? TRUE : FALSE;
}

class UtilityFormTran : public algokit::PluginBase
{
public:
    UtilityFormTran() : PluginBase(QStringLiteral("UtilityFormTran")) {}

protected:
    bool run() override
    {
        const stFormatTransInfo& info = params<stFormatTransInfo>();
        if (info.inputFile.isEmpty() || info.outputFile.isEmpty())
            return fail(QStringLiteral("Input and output paths are required."));
        if (QFileInfo(info.inputFile).absoluteFilePath() == QFileInfo(info.outputFile).absoluteFilePath())
            return fail(QStringLiteral("The output file must differ from the input file."));
        algokit::DatasetPtr source = algokit::openRaster(info.inputFile);
        QDir().mkpath(QFileInfo(info.outputFile).absolutePath());

        CPLStringList argv;
        argv.AddString("-of");
        argv.AddString(info.format.toUtf8().constData());
        for (int band : info.bands)
        {
            argv.AddString("-b");
            argv.AddString(QByteArray::number(band).constData());
        }
        if (info.format == "GTiff")
        {
            argv.AddString("-co");
            argv.AddString("TILED=YES");
        }
        GDALTranslateOptions* options = GDALTranslateOptionsNew(argv.List(), nullptr);
        bool cancelled = false;
        std::function<bool(double)> report = [&](double percent) {
            try
            {
                progress(percent);
                return true;
            }
            catch (const algokit::Cancelled&)
            {
                cancelled = true;
                return false;
            }
        };
        GDALTranslateOptionsSetProgress(options, translateProgress, &report);
        m_output = info.outputFile;
        int usageError = 0;
        GDALDatasetH converted =
            GDALTranslate(info.outputFile.toUtf8().constData(), GDALDataset::ToHandle(source.get()), options, &usageError);
        GDALTranslateOptionsFree(options);
        if (converted)
            GDALClose(converted);
        if (cancelled)
            throw algokit::Cancelled();
        if (!converted || usageError)
            return fail(QStringLiteral("Format conversion failed: %1").arg(QString::fromUtf8(CPLGetLastErrorMsg())));
        m_output.clear();
        return true;
    }

    void discardOutputs() override
    {
        algokit::deleteRasterFiles(m_output);
        m_output.clear();
    }

private:
    QString m_output;
};

} // namespace

ALGO_PLUGIN_FACTORY(UtilityFormTran)
