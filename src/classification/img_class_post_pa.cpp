// ExcuteAlgo_ImgClassPostPA: class names and pairing of a classification and its reference, the confusion
// matrix from the host algorithm "ImgClassPostPA", written as tab-separated text.
#include "classification_text.h"
#include "entry_guard.h"
#include "sys_algo.h"
#include "sys_algo_classification.h"
#include "sys_data_source.h"

#include <gdal_priv.h>
#include <ogrsf_frmts.h>

#include <QFile>

#include <memory>

using namespace algofactory;

namespace
{

QStringList rasterClassNames(SysDataSource::RasterDataset& dataset)
{
    if (dataset.GetBandCount() < 1)
        return QStringList();
    SysUtility::_ptr_t<SysDataSource::RasterBand> band = dataset.GetBand(0);
    SysUtility::_ptr_t<SysDataSource::ColorTable> colours = band->GetColorTable();
    return classNamesOrDefault(band->GetCategoryNames(), colours ? colours->GetCount() : 0);
}

// "Unclassified", then each distinct value of the field in order of first appearance; false when the
// file does not open as a vector.
bool vectorClassNames(const QString& path, const QString& field, QStringList* names)
{
    std::unique_ptr<GDALDataset> vector(
        GDALDataset::Open(path.toUtf8().constData(), GDAL_OF_VECTOR | GDAL_OF_READONLY));
    if (!vector)
        return false;
    names->clear();
    if (vector->GetLayerCount() > 0)
    {
        OGRLayer* layer = vector->GetLayer(0);
        const int index = layer->GetLayerDefn()->GetFieldIndex(field.toUtf8().constData());
        layer->ResetReading();
        while (index >= 0)
        {
            std::unique_ptr<OGRFeature> feature(layer->GetNextFeature());
            if (!feature)
                break;
            if (!feature->IsFieldSetAndNotNull(index))
                continue;
            const QString value = QString::fromUtf8(feature->GetFieldAsString(index));
            if (!names->contains(value))
                names->append(value);
        }
    }
    names->prepend(QStringLiteral("Unclassified"));
    return true;
}

} // namespace

ALGO_API bool ExcuteAlgo_ImgClassPostPA(const char* classFile, const char* referenceFile, const char* referenceVector,
                                        const char* classField, const char* classPairs, const char* reportFile,
                                        AlgoResult* result)
{
    return guardEntry("ExcuteAlgo_ImgClassPostPA", [&] {
        SysDataSource::DatasetFactory* datasets = SysDataSource::DatasetFactory::Instance();
        stImgClassPostPA record;
        record.classFile = QString::fromUtf8(classFile ? classFile : "");
        SysUtility::_ptr_t<SysDataSource::RasterDataset> classification = datasets->OpenRaster(record.classFile);
        if (!classification)
            return printPlain("Please correctly select input file!"), false;
        record.classNames = rasterClassNames(*classification);

        record.referenceFile = QString::fromUtf8(referenceFile ? referenceFile : "");
        record.referenceVector = QString::fromUtf8(referenceVector ? referenceVector : "");
        record.classField = QString::fromUtf8(classField ? classField : "");
        // An empty vector argument is taken as "NULL": the JSON route passes missing keys as empty texts.
        if (record.referenceVector.isEmpty() || record.referenceVector == QLatin1String("NULL"))
        {
            SysUtility::_ptr_t<SysDataSource::RasterDataset> reference = datasets->OpenRaster(record.referenceFile);
            if (!reference)
                return printPlain("Unsupported Raster format!"), false;
            record.referenceNames = rasterClassNames(*reference);
        }
        else if (!vectorClassNames(record.referenceVector, record.classField, &record.referenceNames))
            return printPlain("Unsupported Raster format!"), false;

        for (const auto& pair : splitPairText(classPairs, -1))
        {
            record.classIndices.push_back(pair.first);
            record.referenceIndices.push_back(pair.second);
        }

        SysAlgo::AlgoFactory* factory = SysAlgo::AlgoFactory::Instance();
        SysUtility::_ptr_t<SysAlgo::Algorithm> algorithm = factory->CreateAlgorithm(QStringLiteral("ImgClassPostPA"));
        if (!algorithm)
            return false;
        algorithm->SetParameter(record);
        algorithm->SetCommandText(QStringLiteral("ImgClassPostPACommand"));
        algorithm->SetCaption(QStringLiteral("Confusion Matrix"));
        if (!factory->ExecuteAlgorithm(algorithm.get()))
        {
            int code = 0;
            QString message;
            algorithm->GetError(&code, &message);
            reportHostError(result, code, message);
            return false;
        }
        const ConfusionMatrixText* matrix = boost::any_cast<ConfusionMatrixText>(&algorithm->GetResult());
        if (!matrix)
            return false;
        QByteArray text;
        for (const QStringList& row : *matrix)
        {
            for (const QString& cell : row)
                text += cell.toUtf8() + '\t';
            text += '\n';
        }
        QString path = QString::fromUtf8(reportFile ? reportFile : "");
        if (!path.endsWith(QLatin1String(".txt")))
            path += QLatin1String(".txt");
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(text) != text.size())
        {
            reportHostError(result, -1, QStringLiteral("Cannot write %1").arg(path));
            return false;
        }
        file.close();
        printPlain("Save Finish!\n");
        return true;
    });
}
