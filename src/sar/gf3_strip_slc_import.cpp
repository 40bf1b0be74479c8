// ExcuteAlgo_GF3_Strip_SLCDataImport: check one GF-3 strip product (meta.xml beside its channel tiffs) and import it.
#include "entry_guard.h"
#include "gf3_product_names.h"
#include "output_protocol.h"
#include "records/sar_records.h"
#include "run_algo_plugin.h"
#include "sys_data_source.h"

#include <QDomDocument>
#include <QFile>
#include <QFileInfo>
#include <QStringList>
#include <iostream>

using namespace algofactory;

namespace
{

const QStringList kSupportedModes = {"SL", "UFS", "SS", "FSI", "FSII", "EXT", "QPSI", "QPSII", "WAV"};

// The image files a product polarisation text leads to: channel slot (HH, HV, VH, VV) and the text that
// replaces the product polarisation in the meta.xml name. "DH"/"DV" products name their one image that way.
struct ChannelFile
{
    int slot;
    QString nameText;
};

bool channelFilesOf(const QString& productPolarization, QList<ChannelFile>* files)
{
    if (productPolarization == "HH")
        *files = {{0, "HH"}};
    else if (productPolarization == "DH")
        *files = {{0, "DH"}};
    else if (productPolarization == "VV")
        *files = {{3, "VV"}};
    else if (productPolarization == "DV")
        *files = {{3, "DV"}};
    else if (productPolarization == "HHHV")
        *files = {{0, "HH"}, {1, "HV"}};
    else if (productPolarization == "VHVV")
        *files = {{2, "VH"}, {3, "VV"}};
    else if (productPolarization == "AHV")
        *files = {{0, "HH"}, {1, "HV"}, {2, "VH"}, {3, "VV"}};
    else
        return false;
    return true;
}

} // namespace

ALGO_API bool ExcuteAlgo_GF3_Strip_SLCDataImport(const char* metaXmlFile, const char* polarization, const char* prefixType,
                                                 const char* customName, const char* outputLocation,
                                                 const char* outputOption, AlgoResult* result)
{
    return guardEntry("ExcuteAlgo_GF3_Strip_SLCDataImport", [&] {
        const QString metaPath = localText(metaXmlFile);
        std::cout << "start open meta.xml file strSrcFileName: " << metaPath.toLocal8Bit().constData() << std::endl;
        QFile file(metaPath);
        if (!file.open(QIODevice::ReadOnly))
        {
            printError(QStringLiteral("Open gf3 xml parameter file error: ") + metaPath);
            return false;
        }
        QDomDocument document;
        if (!document.setContent(&file))
        {
            file.close();
            printError(QStringLiteral("analyze gf3 xml parameter file error: ") + metaPath);
            return false;
        }
        file.close();

        const QDomNode satellite = document.documentElement().firstChild().nextSibling().nextSibling();
        if (satellite.toElement().text().compare(QStringLiteral("GF3"), Qt::CaseInsensitive) != 0)
        {
            printError(QStringLiteral("Not GF3 meta.xml File!"));
            return false;
        }
        const QString imagingMode = document.elementsByTagName("imagingMode").item(0).toElement().text();
        if (imagingMode.isEmpty())
        {
            printError(QStringLiteral("Failure to acquire imaging mode parameter!"));
            return false;
        }
        const Gf3ImagingTime imaging =
            gf3ImagingTime(document.elementsByTagName("CenterTime").item(0).toElement().text());
        if (imaging.date.isEmpty())
        {
            printError(QStringLiteral("Failed to get imaging date !"));
            return false;
        }
        const QString dateAndTime = imaging.date + "_" + imaging.time;
        if (!kSupportedModes.contains(imagingMode))
        {
            printError(QStringLiteral("Unsupported imaging mode!"));
            return false;
        }

        const QString productPolarization =
            document.elementsByTagName("productinfo").item(0).lastChildElement().text();
        QList<ChannelFile> channelFiles;
        if (!channelFilesOf(productPolarization, &channelFiles))
        {
            printError(QStringLiteral("Unsupported polarization mode ,only support HH,VV, HHHV ,VHVV and AHV !"));
            return false;
        }
        const QFileInfo metaInfo(metaPath);
        const QStringList nameParts = metaInfo.fileName().split(productPolarization);
        const QString before = nameParts.value(0);
        const QString productSuffix = nameParts.value(1).section('.', 0, 0);
        QString images[4];
        for (const ChannelFile& channel : channelFiles)
        {
            const QString image = metaInfo.absolutePath() + "/" + before + channel.nameText + productSuffix + ".tiff";
            if (!SysDataSource::DatasetFactory::Instance()->OpenRaster(image))
            {
                printError(QStringLiteral("can not open the input image: ! ") + image);
                return false;
            }
            images[channel.slot] = image;
        }

        // The selection's channels in the order HH, HV, VH, VV; the first one the product lacks is reported.
        const QString selection = localText(polarization);
        const char* const kChannelNames[4] = {"HH", "HV", "VH", "VV"};
        bool selected[4] = {selection == "HH" || selection == "HHHV" || selection == "AHV",
                            selection == "HV" || selection == "HHHV" || selection == "AHV",
                            selection == "VH" || selection == "VHVV" || selection == "AHV",
                            selection == "VV" || selection == "VHVV" || selection == "AHV"};
        for (int slot = 0; slot < 4; ++slot)
        {
            if (selected[slot] && images[slot].isEmpty())
            {
                printError(QStringLiteral("No %1 pol !").arg(kChannelNames[slot]));
                return false;
            }
        }

        const QString rule = localText(prefixType);
        Gf3ImportParams record;
        if (rule == "GF3_ImageDateAndTime")
        {
            record.namingRule = 0;
            record.nameStem = dateAndTime + "_";
        }
        else if (rule == "GF3_ImageDate")
        {
            record.namingRule = 1;
            record.nameStem = imaging.date + "_";
        }
        else if (rule == "GF3_OriginalName")
        {
            record.namingRule = 2;
        }
        else if (rule == "GF3_CustomName")
        {
            record.namingRule = 3;
            record.nameStem = localText(customName);
        }
        else
        {
            printError(QStringLiteral("please input PrefixType correctly!"));
            return false;
        }

        std::cout << "Judge the rationality of input paramenters sucessfully" << std::endl;
        record.metaXmlFile = metaPath;
        record.hhImage = images[0];
        record.hvImage = images[1];
        record.vhImage = images[2];
        record.vvImage = images[3];
        record.importHH = selected[0];
        record.importHV = selected[1];
        record.importVH = selected[2];
        record.importVV = selected[3];
        record.outputLocation = localText(outputLocation);
        record.outputOption = localText(outputOption);
        AlgoParamHolder holder = record;
        AlgoRunContext context;
        if (!RunAlgoPlugin(&context, QStringLiteral("GF3_Strip_SLCDataImport"), &holder, result, QString()))
            return false;
        if (const SarImportResult* produced = boost::any_cast<SarImportResult>(&holder))
        {
            for (int i = 0; i < produced->images.size(); ++i)
            {
                printOutput("GF3_dataImport_images", produced->images[i]);
                printOutput("GF3_dataImport_XML", produced->parameterFiles.value(i));
            }
        }
        return true;
    });
}
