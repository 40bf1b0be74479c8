// ExcuteAlgo: the generic entry. Logs the call, parses the JSON and dispatches by algorithm name.
#include "dispatch_table.h"
#include "entry_guard.h"
#include "plugin_metadata.h"
#include "sys_utility.h"

#include <QJsonDocument>
#include <cstring>
#include <iostream>

using namespace algofactory;

namespace
{

bool excuteAlgo(const char* algoName, const char* jsonText, AlgoResult* result)
{
    if (!jsonText)
        jsonText = "";
    RunLog log;
    if (algoName)
        for (const DirectNameRow& row : directNameTable())
            if (std::strcmp(algoName, row.name) == 0)
                return row.call(jsonText);

    std::cout << "start analyze the input paramenters: " << jsonText << std::endl;
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(QString::fromLocal8Bit(jsonText).toUtf8(), &parseError);
    if (parseError.error != QJsonParseError::NoError)
    {
        std::cout << "failed to open json file!" << std::endl;
        SysUtility::LogInfo::Instance()->Info(QStringLiteral("failed to open json file!\n"));
        return false;
    }
    if (!document.isObject())
    {
        std::cout << "failed to read json file!" << std::endl;
        SysUtility::LogInfo::Instance()->Info(QStringLiteral("failed to read json file!\n"));
        return false;
    }
    const QJsonObject object = document.object();

    const QString applicationDir = SysUtility::ApplicationDirPath();
    const QString metadataPath = applicationDir + QStringLiteral("/../Model/abd");
    log.write(QStringLiteral("Current Path:"), applicationDir);
    const Plugin::Metadata* metadata = Plugin::Metadata::Instance(metadataPath);
    log.write(QStringLiteral("metadata Path:"), metadataPath);

    if (algoName)
        for (const DispatchRow& row : dispatchTable())
            if (std::strcmp(algoName, row.name) == 0)
            {
                ParamReader reader(object, metadata, QString::fromLocal8Bit(algoName), &log, row.trace);
                return row.call(reader, result);
            }
    std::cout << "Can not find the Algo! Please check your algoname!" << std::endl;
    return false;
}

} // namespace

ALGO_API bool ExcuteAlgo(const char* algoName, const char* jsonText, AlgoResult* result)
{
    return guardEntry("ExcuteAlgo", [&] { return excuteAlgo(algoName, jsonText, result); });
}
