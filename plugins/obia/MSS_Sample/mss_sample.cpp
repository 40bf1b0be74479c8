// Training samples of segments: each segment that a training polygon covers (or a training point falls in) with
// its features and class, written as a table for training (CSV) or as the segments' polygons with those fields
// (GeoPackage, shapefile, GeoJSON).
#include "class_map.h"
#include "records/generic_record.h"
#include "segment_workflow.h"

#include <QFileInfo>

using namespace algokit;

namespace
{

class MssSample : public PluginBase
{
public:
    MssSample() : PluginBase(QStringLiteral("MSS_Sample")) {}

protected:
    bool run() override
    {
        const auto& record = params<GenericAlgoRecord>();
        GenericParams args(record, GetName());
        obia::SegmentInputs inputs = obia::openSegmentInputs(args);
        args.text("SampleFile").existingFile();
        obia::SampleRules rules;
        rules.minArea = args.real("MinArea").orDefault(0.0).atLeast(0.0);
        rules.maxArea = args.real("MaxArea").orDefault(0.0).atLeast(0.0);
        if (rules.maxArea > 0.0 && rules.maxArea < rules.minArea)
            args.refuse(QStringLiteral("MaxArea"), args.text("MaxArea").value(), QStringLiteral("is below MinArea"));
        rules.perClass = args.integer("SampleCount").orDefault(0).atLeast(0);
        const QStringList columns = obia::featureColumnsOf(args, inputs.image->GetRasterCount());
        const QString output = args.text("OutputFile").writableOutput();
        const QString suffix = QFileInfo(output).suffix().toLower();
        const bool asTable = suffix == QLatin1String("csv");
        if (!asTable && !QStringList{"gpkg", "shp", "geojson", "json"}.contains(suffix))
            args.refuse(QStringLiteral("OutputFile"), output, QStringLiteral("must end in .csv, .gpkg, .shp or .geojson"));
        obia::refuseSameFile(args, QStringLiteral("OutputFile"), output, QStringLiteral("SampleFile"), args.text("SampleFile").value());
        const double share = asTable ? 95.0 : 70.0;
        const obia::SampleTable table = obia::samplesOf(args, inputs, columns, nullptr, rules, [&](double done) { progress(share * done); });
        claimOutput(output);
        if (suffix == QLatin1String("shp"))
            for (const char* part : {"shx", "dbf", "prj", "cpg"})
                claimOutput(QFileInfo(output).path() + QLatin1Char('/') + QFileInfo(output).completeBaseName() + QLatin1Char('.') +
                            QLatin1String(part));
        if (!asTable)
            obia::writeSampleLayer(inputs, table, output, [&](double done) { progress(70.0 + 29.0 * done); });
        else
            try
            {
                obia::writeSampleCsv(output, table);
            }
            catch (const std::runtime_error& error)
            {
                throw AlgoError(QStringLiteral("MSS_Sample: writing %1 failed: %2").arg(output, QString::fromUtf8(error.what())));
            }
        setResult(GenericOutputs()
                      .add(QStringLiteral("SampleCount"), QString::number(table.rows()))
                      .add(QStringLiteral("ClassCount"), QString::number(table.scheme.codes.size()))
                      .result());
        return true;
    }
};

} // namespace

ALGO_PLUGIN_FACTORY(MssSample)
