// ExcuteAlgo_InSAR_CSK_SLCImport: check that an HDF5 file has the structure of a COSMO-SkyMed SLC product and that the
// output path is usable, then import it with the plug-in.
#include "entry_guard.h"
#include "output_protocol.h"
#include "records/sar_records.h"
#include "run_algo_plugin.h"

#include <hdf5.h>

#include <QDir>
#include <QFileInfo>
#include <iostream>
#include <string>

using namespace algofactory;

namespace
{

// Silences the HDF5 library's own error printing while it lives: a failed open is reported by our one line.
class Hdf5QuietErrors
{
public:
    Hdf5QuietErrors()
    {
        H5Eget_auto2(H5E_DEFAULT, &m_function, &m_data);
        H5Eset_auto2(H5E_DEFAULT, nullptr, nullptr);
    }
    ~Hdf5QuietErrors() { H5Eset_auto2(H5E_DEFAULT, m_function, m_data); }

private:
    H5E_auto2_t m_function = nullptr;
    void* m_data = nullptr;
};

enum class Hdf5Check
{
    Ok,
    CannotOpen,
    NotSlcProduct
};

// Opens "/", "S01", "S01/B001" and the dataset "S01/SBI"; closes what opened in reverse order.
Hdf5Check checkCskStructure(const QString& path)
{
    Hdf5QuietErrors quiet;
    // The file name goes to HDF5 in UTF-8, the encoding of file names on this system.
    const hid_t file = H5Fopen(path.toUtf8().constData(), H5F_ACC_RDONLY, H5P_DEFAULT);
    if (file < 0)
        return Hdf5Check::CannotOpen;
    const hid_t root = H5Gopen2(file, "/", H5P_DEFAULT);
    const hid_t swath = root >= 0 ? H5Gopen2(root, "S01", H5P_DEFAULT) : -1;
    const hid_t beam = swath >= 0 ? H5Gopen2(swath, "B001", H5P_DEFAULT) : -1;
    const hid_t image = beam >= 0 ? H5Dopen2(swath, "SBI", H5P_DEFAULT) : -1;
    const bool complete = image >= 0;
    if (image >= 0)
        H5Dclose(image);
    if (beam >= 0)
        H5Gclose(beam);
    if (swath >= 0)
        H5Gclose(swath);
    if (root >= 0)
        H5Gclose(root);
    H5Fclose(file);
    return complete ? Hdf5Check::Ok : Hdf5Check::NotSlcProduct;
}

} // namespace

ALGO_API bool ExcuteAlgo_InSAR_CSK_SLCImport(const char* h5File, const char* outputFile, AlgoResult* result)
{
    return guardEntry("ExcuteAlgo_InSAR_CSK_SLCImport", [&] {
        const QString input = QString::fromStdString(std::string(h5File ? h5File : ""));
        const QString output = QString::fromStdString(std::string(outputFile ? outputFile : ""));
        if (input.isEmpty())
        {
            printError(QStringLiteral("h5 file is empty! "));
            return false;
        }
        // The process-wide 8-bit codec is left alone: HDF5 receives the UTF-8 name above.
        switch (checkCskStructure(input))
        {
        case Hdf5Check::CannotOpen:
            printError(QStringLiteral("Open h5 file error! "));
            return false;
        case Hdf5Check::NotSlcProduct:
            printError(QStringLiteral("Not CSK SSC h5 file format! "));
            return false;
        case Hdf5Check::Ok:
            break;
        }
        if (output.isEmpty())
        {
            printError(QStringLiteral("output file is empty!  "));
            return false;
        }
        const QFileInfo outputInfo(output);
        QString format;
        if (outputInfo.suffix() == "img")
            format = QStringLiteral("ENVI");
        else if (outputInfo.suffix() == "tif")
            format = QStringLiteral("GTiff");
        else
        {
            printError(QStringLiteral("suffix of output file should be 'img' or 'tif' !  "));
            return false;
        }
        const QString outputFolder = outputInfo.absolutePath();
        if (!QDir(outputFolder).exists())
            QDir().mkdir(outputFolder);
        if (input == output)
        {
            printError(QStringLiteral("Input file is matching to output file! "));
            return false;
        }

        CskImportParams record;
        record.inputFile = input;
        record.outputFile = output;
        record.outputFormat = format;
        std::cout << "Judge the rationality of input paramenters sucessfully" << std::endl;
        AlgoParamHolder holder = record;
        AlgoRunContext context;
        const bool ok = RunAlgoPlugin(&context, QStringLiteral("InSAR_CSK_SLCImport"), &holder, result, QString());
        if (const CskImportParams* produced = boost::any_cast<CskImportParams>(&holder))
            record = *produced;
        if (ok)
        {
            for (int i = 0; i < record.outputImages.size(); ++i)
            {
                printOutput("InSAR_CSK_SLCImport_images", record.outputImages[i]);
                printOutput("InSAR_CSK_SLCImport_XML", record.outputParameterFiles.value(i));
            }
        }
        return ok;
    });
}
