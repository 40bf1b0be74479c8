// ExcuteAlgo_Batch_GF3_Strip_DataImport: find the GF-3 products of one mode and polarisation in a folder, pair each
// channel image with its meta.xml, name the outputs and import them all in one plug-in run.
#include "entry_guard.h"
#include "gf3_product_names.h"
#include "output_protocol.h"
#include "records/sar_records.h"
#include "run_algo_plugin.h"
#include "sys_data_source.h"

#include <QDir>
#include <QDomDocument>
#include <QFile>
#include <QFileInfo>
#include <QStringList>
#include <iostream>

using namespace algofactory;

namespace
{

// The product polarisation text in the meta.xml names of mode M holding channel P; empty when the combination
// is not imported by this entry.
QString metaPolarizationFor(const QString& mode, const QString& polarization)
{
    if (mode == "SL" || mode == "UFS")
        return polarization;
    if (mode == "FSI" || mode == "FSII" || mode == "SS")
    {
        if (polarization == "VH" || polarization == "VV")
            return QStringLiteral("VHVV");
        if (polarization == "HH" || polarization == "HV")
            return QStringLiteral("HHHV");
        return QString();
    }
    if (mode == "QPSI" || mode == "QPSII")
        return QStringLiteral("AHV");
    return QString();
}

QFileInfoList filesMatching(const QString& directory, const QString& pattern)
{
    return QDir(directory).entryInfoList(QStringList{pattern}, QDir::Files, QDir::Name);
}

} // namespace

ALGO_API bool ExcuteAlgo_Batch_GF3_Strip_DataImport(const char* inputDir, const char* productLevel,
                                                    const char* imagingMode, const char* polarization,
                                                    const char* namingRule, const char* outputDir,
                                                    const char* outputFormat, AlgoResult* result)
{
    return guardEntry("ExcuteAlgo_Batch_GF3_Strip_DataImport", [&] {
        const QString directory = localText(inputDir);
        if (directory.isEmpty())
        {
            printError(QStringLiteral("The input directory is empty!"));
            return false;
        }
        const QString mode = localText(imagingMode);
        const QString level = localText(productLevel);
        const QString channel = localText(polarization);
        const QString metaPolarization = metaPolarizationFor(mode, channel);
        if (metaPolarization.isEmpty())
        {
            printError(QStringLiteral("please input imaging modet ype correctly!"));
            return false;
        }
        const QFileInfoList images =
            filesMatching(directory, "GF3_*_" + mode + "_*_" + level + "_" + channel + "_*.tiff");
        const QFileInfoList metaFiles =
            filesMatching(directory, "GF3_*_" + mode + "_*_" + level + "_" + metaPolarization + "_*.meta.xml");
        if (images.isEmpty())
        {
            printError(QStringLiteral("Image data not found in specified directory!"));
            return false;
        }
        if (images.size() != metaFiles.size())
        {
            printError(QStringLiteral("The number of data and parameter files is inconsistent !"));
            return false;
        }

        BatchGf3ImportParams record;
        for (int i = 0; i < images.size(); ++i)
        {
            const QString image = images[i].absoluteFilePath();
            if (gf3ProductNumber(image) != gf3ProductNumber(metaFiles[i].absoluteFilePath()))
            {
                printError(QStringLiteral("The ID number of the data product is inconsistent with the ID number of "
                                          "the parameter file!"));
                return false;
            }
            if (record.inputImages.contains(image))
            {
                printError(QStringLiteral("The data list already contains the sar image"));
                return false;
            }
            if (!SysDataSource::DatasetFactory::Instance()->OpenRaster(image))
            {
                printError(QStringLiteral("Contains data that can not be opened !"));
                return false;
            }
            record.inputImages << image;
            record.metaXmlFiles << metaFiles[i].absoluteFilePath();
        }

        const QString outputFolder = localText(outputDir);
        if (outputFolder.isEmpty() || !QFileInfo(outputFolder).isDir())
        {
            printError(QStringLiteral("Please select correct output directory !"));
            return false;
        }
        const QString format = localText(outputFormat);
        record.format = (format == "ENVI" || format == "HFA") ? format : QStringLiteral("GTiff");
        const QString extension = record.format == "GTiff" ? QStringLiteral(".tif") : QStringLiteral(".img");

        const QString rule = localText(namingRule);
        for (int i = 0; i < record.inputImages.size(); ++i)
        {
            QFile metaFile(record.metaXmlFiles[i]);
            QDomDocument document;
            if (!metaFile.open(QIODevice::ReadOnly) || !document.setContent(&metaFile))
            {
                printError(QStringLiteral("Open the xml parameter file error: ") + record.metaXmlFiles[i]);
                return false;
            }
            const Gf3ImagingTime imaging =
                gf3ImagingTime(document.elementsByTagName("CenterTime").item(0).toElement().text());
            // The product number and channel keep the names of products of one day, and of channels, apart.
            const QString productPart = gf3ProductNumber(record.inputImages[i]) + "_" + channel;
            QString name;
            if (rule == "ImagingDateAndTime")
                name = imaging.date + imaging.time + "_" + productPart;
            else if (rule == "ImagingDate")
                name = imaging.date + "_" + productPart;
            else
                name = QFileInfo(record.inputImages[i]).completeBaseName();
            record.outputImages << QDir::cleanPath(outputFolder + "/" + name + extension);
            record.outputParameterFiles << QDir::cleanPath(outputFolder + "/" + name + ".xml");
        }
        record.polarization = channel;

        std::cout << "Judge the rationality of input paramenters sucessfully" << std::endl;
        AlgoParamHolder holder = record;
        AlgoRunContext context;
        if (!RunAlgoPlugin(&context, QStringLiteral("Batch_GF3_Strip_DataImport"), &holder, result, QString()))
            return false;
        if (const SarImportResult* produced = boost::any_cast<SarImportResult>(&holder))
        {
            for (int i = 0; i < produced->images.size(); ++i)
            {
                printOutput("Batch_GF3_dataImport_images", produced->images[i]);
                printOutput("Batch_GF3_dataImport_XML", produced->parameterFiles.value(i));
            }
        }
        return true;
    });
}
