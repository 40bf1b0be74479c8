// Plug-in "ProjectTransAlgo": assign a reference system to a raster or shapefile, or reproject a raster (GDALWarp).
#include "gdal_apps.h"
#include "plugin_base.h"
#include "raster_io.h"
#include "records/utility_records.h"

#include <ogr_spatialref.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>

namespace
{

OGRSpatialReference readSrs(const QString& text)
{
    OGRSpatialReference srs;
    CPLPushErrorHandler(CPLQuietErrorHandler);
    const OGRErr error = text.trimmed().isEmpty() ? OGRERR_FAILURE : srs.SetFromUserInput(text.toUtf8().constData());
    CPLPopErrorHandler();
    if (error != OGRERR_NONE)
        throw algokit::AlgoError(QStringLiteral("Unknown reference system: %1").arg(text));
    srs.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
    return srs;
}

QByteArray toWkt(const OGRSpatialReference& srs)
{
    char* wkt = nullptr;
    const char* options[] = {"FORMAT=WKT2_2018", nullptr};
    srs.exportToWkt(&wkt, options);
    QByteArray text(wkt ? wkt : "");
    CPLFree(wkt);
    return text;
}

bool isGlobalDatum(const QString& key)
{
    return key == QLatin1String("WGS84") || key == QLatin1String("CGCS2000");
}

class ProjectTransAlgo : public algokit::PluginBase
{
public:
    ProjectTransAlgo() : PluginBase(QStringLiteral("ProjectTransAlgo")) {}

protected:
    bool run() override
    {
        if (holdsParams(typeid(stProjectDefInfo)))
            return define(params<stProjectDefInfo>());
        return transform(params<stProjectTransInfo>());
    }

private:
    bool define(const stProjectDefInfo& info)
    {
        const OGRSpatialReference srs = readSrs(info.projection);
        if (info.fileType == 1)
        {
            if (!QFileInfo::exists(info.inputFile))
                return fail(QStringLiteral("Cannot open vector file: %1").arg(info.inputFile));
            // A shapefile's reference system is its .prj: ESRI's flavour of WKT 1.
            OGRSpatialReference esri(srs);
            esri.morphToESRI();
            char* wkt = nullptr;
            esri.exportToWkt(&wkt);
            const QByteArray text(wkt ? wkt : "");
            CPLFree(wkt);
            QString prj = info.inputFile;
            prj.chop(4);
            QFile file(prj + QStringLiteral(".prj"));
            if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(text) != text.size())
                return fail(QStringLiteral("Cannot write %1").arg(file.fileName()));
            progress(100.0);
            return true;
        }
        algokit::DatasetPtr dataset = algokit::openRaster(info.inputFile, true);
        if (dataset->SetSpatialRef(&srs) != CE_None)
            return fail(QStringLiteral("%1 does not take a reference system: %2")
                            .arg(info.inputFile, QString::fromUtf8(CPLGetLastErrorMsg())));
        progress(100.0);
        return true;
    }

    bool transform(const stProjectTransInfo& info)
    {
        if (info.outputFile.isEmpty())
            return fail(QStringLiteral("An output path is required."));
        if (QFileInfo(info.inputFile).absoluteFilePath() == QFileInfo(info.outputFile).absoluteFilePath())
            return fail(QStringLiteral("The output file must differ from the input file."));
        algokit::DatasetPtr source = algokit::openRaster(info.inputFile);
        OGRSpatialReference from = readSrs(info.sourceSrs);
        OGRSpatialReference to = readSrs(info.targetSrs);

        // Parameters in the model file are forced as a Bursa-Wolf shift through WGS 84; all zero leaves the
        // choice of operation to PROJ, which picks the best one it knows for the image's area.
        const double shift[7] = {info.xShift, info.yShift, info.zShift, info.xRotation, info.yRotation, info.zRotation, 0};
        bool forced = false;
        for (double value : shift)
            forced = forced || value != 0.0;
        if (forced && isGlobalDatum(info.modelTarget) && !isGlobalDatum(info.modelSource))
            from.SetTOWGS84(shift[0], shift[1], shift[2], shift[3], shift[4], shift[5], 0.0);
        else if (forced && isGlobalDatum(info.modelSource) && !isGlobalDatum(info.modelTarget))
            to.SetTOWGS84(-shift[0], -shift[1], -shift[2], -shift[3], -shift[4], -shift[5], 0.0);

        CPLStringList argv;
        argv.AddString("-of");
        argv.AddString(info.format.toUtf8().constData());
        argv.AddString("-s_srs");
        argv.AddString(toWkt(from).constData());
        argv.AddString("-t_srs");
        argv.AddString(toWkt(to).constData());
        argv.AddString("-r");
        argv.AddString(algokit::resamplingName(info.resampleMethod));
        argv.AddString("-multi");
        argv.AddString("-wo");
        argv.AddString("NUM_THREADS=ALL_CPUS");
        argv.AddString("-overwrite");
        algokit::addGeoTiffOptions(info.format, &argv);

        QDir().mkpath(QFileInfo(info.outputFile).absolutePath());
        claimOutput(info.outputFile);
        algokit::GdalProgress bridge([this](double percent) { progress(percent); });
        GDALDatasetH out = algokit::warpRaster(source.get(), info.outputFile, argv, &bridge);
        CPLErrorReset();
        GDALClose(out);
        if (CPLGetLastErrorType() >= CE_Failure)
            return fail(QStringLiteral("Writing %1 failed: %2")
                            .arg(info.outputFile, QString::fromUtf8(CPLGetLastErrorMsg())));
        progress(100.0);
        return true;
    }
};

} // namespace

ALGO_PLUGIN_FACTORY(ProjectTransAlgo)
