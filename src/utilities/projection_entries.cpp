// ExcuteAlgo_ProjectDef and ExcuteAlgo_ProjectTrans: define or transform the reference system of a file.
#include "entry_guard.h"
#include "format_from_path.h"
#include "records/utility_records.h"
#include "sys_data_source.h"
#include "transform_model.h"
#include "utility_entry_support.h"

using namespace algofactory;

ALGO_API bool ExcuteAlgo_ProjectDef(const char* inputFile, const char* projectionText, AlgoResult* result)
{
    return guardEntry("ExcuteAlgo_ProjectDef", [&] {
        stProjectDefInfo record;
        record.inputFile = utf8Arg(inputFile);
        record.projection = utf8Arg(projectionText);
        record.fileType = record.inputFile.endsWith(QLatin1String(".shp")) ? 1 : 0;
        return runUtilityPlugin(record, "ProjectTransAlgo", "", result);
    });
}

ALGO_API bool ExcuteAlgo_ProjectTrans(const char* inputFile, const char* outputFile, const char* targetSRS,
                                      int resampleMethod, AlgoResult* result)
{
    return guardEntry("ExcuteAlgo_ProjectTrans", [&] {
        stProjectTransInfo record;
        record.mode = 1;
        record.inputFile = utf8Arg(inputFile);
        record.resampleMethod = resampleMethod;
        record.targetSrs = utf8Arg(targetSRS);
        record.outputFile = utf8Arg(outputFile);
        record.format = FormatFromPath(record.outputFile);
        record.algoName = QStringLiteral("ProjectTransAlgo");

        auto dataset = SysDataSource::DatasetFactory::Instance()->OpenRaster(record.inputFile);
        const QString source = dataset ? dataset->GetProjection() : QString();
        TransformModel model;
        QString why;
        if (!findTransformModel(transformModelFile(), source, record.targetSrs, &model, &why))
        {
            // No message on standard output by design; the host log keeps the reason.
            SysUtility::LogInfo::Instance()->Info(QStringLiteral("ProjectTrans: %1").arg(why));
            return false;
        }
        record.sourceSrs = source;
        record.modelName = model.name;
        record.modelSource = model.source;
        record.modelTarget = model.target;
        record.xShift = model.xShift;
        record.xRotation = model.xRotation;
        record.yShift = model.yShift;
        record.yRotation = model.yRotation;
        record.zShift = model.zShift;
        record.zRotation = model.zRotation;
        return runUtilityPlugin(record, "ProjectTransAlgo", "", result);
    });
}
