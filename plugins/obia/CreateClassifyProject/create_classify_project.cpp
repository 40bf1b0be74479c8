// A classification project file (JSON): the image, the area of interest in map coordinates and the class
// scheme (codes 1..n, names, colours), which the segment classification plug-ins read for class names and colours.
#include "class_map.h"
#include "classification_io.h"
#include "records/generic_record.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

using namespace algokit;

namespace
{

class CreateClassifyProject : public PluginBase
{
public:
    CreateClassifyProject() : PluginBase(QStringLiteral("CreateClassifyProject")) {}

protected:
    bool run() override
    {
        const auto& record = params<GenericAlgoRecord>();
        GenericParams args(record, GetName());
        const QString imagePath = args.text("InputFile").existingFile();
        DatasetPtr image = args.text("InputFile").openRaster();
        const QString projectPath = args.text("ProjectFile").writableOutput();
        obia::refuseSameFile(args, QStringLiteral("ProjectFile"), projectPath, QStringLiteral("InputFile"), imagePath);
        const QStringList names = args.text("ClassNames").required().list();
        if (names.size() > 65535)
            args.refuse(QStringLiteral("ClassNames"), args.text("ClassNames").value(), QStringLiteral("names more than 65535 classes"));
        const QString name = args.text("ProjectName").orDefault(QFileInfo(projectPath).completeBaseName());
        double box[4] = {args.real("MinX").orDefault(0.0), args.real("MinY").orDefault(0.0), args.real("MaxX").orDefault(0.0),
                         args.real("MaxY").orDefault(0.0)};
        // The image's extent in map coordinates (pixel coordinates without georeferencing).
        double t[6] = {0, 1, 0, 0, 0, 1};
        image->GetGeoTransform(t);
        const int w = image->GetRasterXSize(), h = image->GetRasterYSize();
        const double xs[4] = {t[0], t[0] + w * t[1], t[0] + h * t[2], t[0] + w * t[1] + h * t[2]};
        const double ys[4] = {t[3], t[3] + w * t[4], t[3] + h * t[5], t[3] + w * t[4] + h * t[5]};
        const double extent[4] = {*std::min_element(xs, xs + 4), *std::min_element(ys, ys + 4), *std::max_element(xs, xs + 4),
                                  *std::max_element(ys, ys + 4)};
        if (box[0] == 0.0 && box[1] == 0.0 && box[2] == 0.0 && box[3] == 0.0)
            std::copy(extent, extent + 4, box);
        else if (!(box[0] < box[2]))
            args.refuse(QStringLiteral("MaxX"), QString::number(box[2], 'g', 12), QStringLiteral("must be greater than MinX"));
        else if (!(box[1] < box[3]))
            args.refuse(QStringLiteral("MaxY"), QString::number(box[3], 'g', 12), QStringLiteral("must be greater than MinY"));
        else if (box[2] <= extent[0] || box[0] >= extent[2] || box[3] <= extent[1] || box[1] >= extent[3])
            args.refuse(QStringLiteral("MinX"), QString::number(box[0], 'g', 12), QStringLiteral("and the other corners give an area outside InputFile"));
        QJsonObject project;
        project["name"] = name;
        project["image"] = QFileInfo(imagePath).absoluteFilePath();
        if (const OGRSpatialReference* srs = image->GetSpatialRef())
        {
            char* wkt = nullptr;
            srs->exportToWkt(&wkt);
            project["crs"] = QString::fromUtf8(wkt);
            CPLFree(wkt);
        }
        project["area"] = QJsonObject{{"minX", box[0]}, {"minY", box[1]}, {"maxX", box[2]}, {"maxY", box[3]}};
        QJsonArray classes;
        const std::vector<Rgb> colours = distinctColours(names.size());
        for (int i = 0; i < names.size(); ++i)
            classes.append(QJsonObject{{"code", i + 1}, {"name", names[i]}, {"colour", QJsonArray{colours[size_t(i)][0], colours[size_t(i)][1], colours[size_t(i)][2]}}});
        project["classes"] = classes;
        claimOutput(projectPath);
        QFile file(projectPath);
        if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(QJsonDocument(project).toJson()) < 0)
            throw AlgoError(QStringLiteral("CreateClassifyProject: %1 cannot be written.").arg(projectPath));
        file.close();
        setResult(GenericOutputs().add(QStringLiteral("ClassCount"), QString::number(names.size())).result());
        return true;
    }
};

} // namespace

ALGO_PLUGIN_FACTORY(CreateClassifyProject)
