// Host algorithm "ImgClassPostPA": confusion matrix of a classification against a reference classification
// raster or the class field of a reference vector layer, with totals, producer's and user's accuracy,
// overall accuracy and kappa, as a matrix of texts.
#include "sys_algo.h"
#include "sys_algo_builtin.h"
#include "sys_algo_classification.h"

#include "raster_limits.h"

#include <gdal_alg.h>
#include <gdal_priv.h>
#include <ogrsf_frmts.h>

#include <algorithm>
#include <map>
#include <memory>

namespace SysAlgo
{
namespace
{

constexpr int kRowsPerBlock = 256;
// Per pixel of a block: the class, the reference and the burnt reference vector, as 32-bit integers.
constexpr size_t kBytesPerPixel = 3 * sizeof(int);

struct GdalCloser
{
    void operator()(GDALDataset* dataset) const { GDALClose(GDALDataset::ToHandle(dataset)); }
};
using GdalPtr = std::unique_ptr<GDALDataset, GdalCloser>;

GdalPtr openRaster(const QString& path)
{
    return GdalPtr(GDALDataset::Open(path.toUtf8().constData(), GDAL_OF_RASTER | GDAL_OF_READONLY));
}

QString percentText(double numerator, double denominator)
{
    return denominator > 0 ? QString::number(100.0 * numerator / denominator, 'f', 2) : QStringLiteral("-");
}

// The reference layer's features burnt with the index of their class name, in the classification's grid.
class VectorReference
{
public:
    bool load(const stImgClassPostPA& info, GDALDataset* classification, QString* error)
    {
        m_vector.reset(GDALDataset::Open(info.referenceVector.toUtf8().constData(), GDAL_OF_VECTOR | GDAL_OF_READONLY));
        if (!m_vector || m_vector->GetLayerCount() < 1)
            return *error = QStringLiteral("cannot open the reference vector %1").arg(info.referenceVector), false;
        OGRLayer* layer = m_vector->GetLayer(0);
        const int field = layer->GetLayerDefn()->GetFieldIndex(info.classField.toUtf8().constData());
        if (field < 0)
            return *error = QStringLiteral("the reference vector has no field \"%1\"").arg(info.classField), false;
        std::unique_ptr<OGRCoordinateTransformation> transform;
        const OGRSpatialReference* rasterSrs = classification->GetSpatialRef();
        const OGRSpatialReference* layerSrs = layer->GetSpatialRef();
        if (rasterSrs && layerSrs && !rasterSrs->IsSame(layerSrs))
            transform.reset(OGRCreateCoordinateTransformation(layerSrs, rasterSrs));
        layer->ResetReading();
        while (OGRFeature* feature = layer->GetNextFeature())
        {
            std::unique_ptr<OGRFeature> owned(feature);
            OGRGeometry* geometry = feature->GetGeometryRef();
            if (!geometry || !feature->IsFieldSetAndNotNull(field))
                continue; // a feature without geometry or class value stays "Unclassified"
            const int index = info.referenceNames.indexOf(QString::fromUtf8(feature->GetFieldAsString(field)));
            if (index < 0)
                continue;
            std::unique_ptr<OGRGeometry> copy(geometry->clone());
            if (transform && copy->transform(transform.get()) != OGRERR_NONE)
                continue;
            m_handles.push_back(OGRGeometry::ToHandle(copy.get()));
            m_geometries.push_back(std::move(copy));
            m_burn.push_back(double(index));
        }
        classification->GetGeoTransform(m_transform);
        return true;
    }

    // Reference class indices of rows [row0, row0 + rows) of the classification grid.
    void burn(int width, int row0, int rows, std::vector<int>& values) const
    {
        values.assign(size_t(width) * rows, 0);
        if (m_handles.empty())
            return;
        GDALDriver* memDriver = GetGDALDriverManager()->GetDriverByName("MEM");
        std::unique_ptr<GDALDataset> block(memDriver->Create("", width, rows, 1, GDT_Int32, nullptr));
        double transform[6] = {m_transform[0] + row0 * m_transform[2], m_transform[1], m_transform[2],
                               m_transform[3] + row0 * m_transform[5], m_transform[4], m_transform[5]};
        block->SetGeoTransform(transform);
        int bandList[1] = {1};
        if (GDALRasterizeGeometries(GDALDataset::ToHandle(block.get()), 1, bandList, int(m_handles.size()),
                                    const_cast<OGRGeometryH*>(m_handles.data()), nullptr, nullptr, m_burn.data(), nullptr,
                                    nullptr, nullptr) != CE_None ||
            block->GetRasterBand(1)->RasterIO(GF_Read, 0, 0, width, rows, values.data(), width, rows, GDT_Int32, 0, 0) !=
                CE_None)
            throw std::runtime_error("rasterising the reference vector failed");
    }

private:
    GdalPtr m_vector;
    std::vector<std::unique_ptr<OGRGeometry>> m_geometries;
    std::vector<OGRGeometryH> m_handles;
    std::vector<double> m_burn;
    double m_transform[6] = {0, 1, 0, 0, 0, 1};
};

class ImgClassPostPA : public Algorithm
{
public:
    ImgClassPostPA() : Algorithm(QStringLiteral("ImgClassPostPA")) {}

protected:
    bool Execute() override
    {
        const stImgClassPostPA* info = parameter<stImgClassPostPA>();
        if (!info)
            return fail(QStringLiteral("ImgClassPostPA: unexpected parameter record"));
        const bool vectorReference = !info->referenceVector.isEmpty() && info->referenceVector != QLatin1String("NULL");

        GdalPtr classification = openRaster(info->classFile);
        if (!classification || classification->GetRasterCount() < 1)
            return fail(QStringLiteral("ImgClassPostPA: cannot open the classification %1").arg(info->classFile));
        const int width = classification->GetRasterXSize();
        const int height = classification->GetRasterYSize();
        if (!algokit::fitsInBytes(1, std::max(0, width), kBytesPerPixel, algokit::kMaxRowBytes))
            return fail(QStringLiteral("ImgClassPostPA: ") +
                        algokit::tooLargeMessage(width, height, classification->GetRasterCount(), info->classFile));
        const int rowsPerBlock = algokit::rowsWithin(size_t(width) * kBytesPerPixel, kRowsPerBlock);
        GdalPtr referenceRaster;
        VectorReference referenceVector;
        if (vectorReference)
        {
            QString error;
            if (!referenceVector.load(*info, classification.get(), &error))
                return fail(QStringLiteral("ImgClassPostPA: ") + error);
        }
        else
        {
            referenceRaster = openRaster(info->referenceFile);
            if (!referenceRaster || referenceRaster->GetRasterCount() < 1)
                return fail(QStringLiteral("ImgClassPostPA: cannot open the reference %1").arg(info->referenceFile));
            if (referenceRaster->GetRasterXSize() != width || referenceRaster->GetRasterYSize() != height)
                return fail(QStringLiteral("ImgClassPostPA: the reference is %1 x %2 pixels, the classification %3 x %4")
                                .arg(referenceRaster->GetRasterXSize())
                                .arg(referenceRaster->GetRasterYSize())
                                .arg(width)
                                .arg(height));
        }

        std::vector<int> classIndices = info->classIndices;
        std::vector<int> referenceIndices = info->referenceIndices;
        if (classIndices.size() != referenceIndices.size())
            return fail(QStringLiteral("ImgClassPostPA: class pairs are incomplete"));
        if (classIndices.empty())
            defaultPairs(*info, vectorReference, classIndices, referenceIndices);
        if (classIndices.empty())
            return fail(QStringLiteral("ImgClassPostPA: no class pair to assess"));
        for (size_t k = 0; k < classIndices.size(); ++k)
            if (classIndices[k] < 0 || classIndices[k] >= info->classNames.size() || referenceIndices[k] < 0 ||
                referenceIndices[k] >= info->referenceNames.size())
                return fail(QStringLiteral("ImgClassPostPA: the class pair %1|%2 names a class that does not exist")
                                .arg(classIndices[k] + 1)
                                .arg(referenceIndices[k] + 1));

        // Rows: distinct classification classes in pairing order; columns: distinct reference classes.
        std::vector<int> rowOf(std::max<int>(256, info->classNames.size()), -1), columnOf;
        std::vector<int> rowClasses, columnClasses;
        std::map<int, int> columnIndex;
        for (size_t k = 0; k < classIndices.size(); ++k)
        {
            if (rowOf[classIndices[k]] < 0)
            {
                rowOf[classIndices[k]] = int(rowClasses.size());
                rowClasses.push_back(classIndices[k]);
            }
            if (!columnIndex.count(referenceIndices[k]))
            {
                columnIndex[referenceIndices[k]] = int(columnClasses.size());
                columnClasses.push_back(referenceIndices[k]);
            }
        }
        const int referenceCount = std::max<int>(info->referenceNames.size(), 1 + *std::max_element(columnClasses.begin(), columnClasses.end()));
        columnOf.assign(referenceCount, -1);
        for (const auto& entry : columnIndex)
            columnOf[entry.first] = entry.second;

        const size_t rowCount = rowClasses.size();
        const size_t columnCount = columnClasses.size();
        std::vector<std::int64_t> counts(rowCount * columnCount, 0);
        std::vector<int> classValues, referenceValues;
        for (int row0 = 0; row0 < height; row0 += rowsPerBlock)
        {
            const int rows = std::min(rowsPerBlock, height - row0);
            classValues.resize(size_t(width) * rows);
            if (classification->GetRasterBand(1)->RasterIO(GF_Read, 0, row0, width, rows, classValues.data(), width, rows,
                                                           GDT_Int32, 0, 0) != CE_None)
                return fail(QStringLiteral("ImgClassPostPA: reading the classification failed"));
            if (vectorReference)
                referenceVector.burn(width, row0, rows, referenceValues);
            else
            {
                referenceValues.resize(classValues.size());
                if (referenceRaster->GetRasterBand(1)->RasterIO(GF_Read, 0, row0, width, rows, referenceValues.data(), width,
                                                                rows, GDT_Int32, 0, 0) != CE_None)
                    return fail(QStringLiteral("ImgClassPostPA: reading the reference failed"));
            }
            for (size_t p = 0; p < classValues.size(); ++p)
            {
                const int c = classValues[p];
                const int r = referenceValues[p];
                if (c < 0 || c >= int(rowOf.size()) || r < 0 || r >= referenceCount)
                    continue;
                const int row = rowOf[c];
                const int column = columnOf[r];
                if (row >= 0 && column >= 0)
                    ++counts[size_t(row) * columnCount + column];
            }
        }
        m_result = buildMatrix(*info, rowClasses, columnClasses, counts, classIndices, referenceIndices, rowOf, columnOf);
        return true;
    }

private:
    // Without pairs: classes of equal names, else class i with reference class i (i + 1 for a vector
    // reference, whose first class is "Unclassified").
    static void defaultPairs(const stImgClassPostPA& info, bool vectorReference, std::vector<int>& classIndices,
                             std::vector<int>& referenceIndices)
    {
        for (int i = 0; i < info.classNames.size(); ++i)
        {
            const int match = info.referenceNames.indexOf(info.classNames[i]);
            if (match >= 0)
                classIndices.push_back(i), referenceIndices.push_back(match);
        }
        if (!classIndices.empty())
            return;
        const int offset = vectorReference ? 1 : 0;
        for (int i = 0; i < info.classNames.size() && i + offset < info.referenceNames.size(); ++i)
            classIndices.push_back(i), referenceIndices.push_back(i + offset);
    }

    static ConfusionMatrixText buildMatrix(const stImgClassPostPA& info, const std::vector<int>& rowClasses,
                                           const std::vector<int>& columnClasses, const std::vector<std::int64_t>& counts,
                                           const std::vector<int>& classIndices, const std::vector<int>& referenceIndices,
                                           const std::vector<int>& rowOf, const std::vector<int>& columnOf)
    {
        const size_t rowCount = rowClasses.size();
        const size_t columnCount = columnClasses.size();
        std::vector<std::int64_t> rowTotals(rowCount, 0), columnTotals(columnCount, 0);
        std::int64_t total = 0;
        for (size_t i = 0; i < rowCount; ++i)
            for (size_t j = 0; j < columnCount; ++j)
            {
                rowTotals[i] += counts[i * columnCount + j];
                columnTotals[j] += counts[i * columnCount + j];
                total += counts[i * columnCount + j];
            }
        // Agreement: the cells of the pairs; chance agreement from the same cells' margins.
        std::vector<std::int64_t> rowAgree(rowCount, 0), columnAgree(columnCount, 0);
        std::int64_t agree = 0;
        double chance = 0.0;
        std::vector<bool> seen(rowCount * columnCount, false);
        for (size_t k = 0; k < classIndices.size(); ++k)
        {
            const size_t i = size_t(rowOf[classIndices[k]]);
            const size_t j = size_t(columnOf[referenceIndices[k]]);
            if (seen[i * columnCount + j])
                continue;
            seen[i * columnCount + j] = true;
            rowAgree[i] += counts[i * columnCount + j];
            columnAgree[j] += counts[i * columnCount + j];
            agree += counts[i * columnCount + j];
            chance += double(rowTotals[i]) * double(columnTotals[j]);
        }

        ConfusionMatrixText matrix;
        QStringList header{QStringLiteral("Class")};
        for (int reference : columnClasses)
            header << info.referenceNames.value(reference);
        header << QStringLiteral("Total") << QStringLiteral("User's Accuracy(%)");
        matrix.push_back(header);
        for (size_t i = 0; i < rowCount; ++i)
        {
            QStringList row{info.classNames.value(rowClasses[i])};
            for (size_t j = 0; j < columnCount; ++j)
                row << QString::number(counts[i * columnCount + j]);
            row << QString::number(rowTotals[i]) << percentText(double(rowAgree[i]), double(rowTotals[i]));
            matrix.push_back(row);
        }
        QStringList totals{QStringLiteral("Total")};
        for (std::int64_t value : columnTotals)
            totals << QString::number(value);
        totals << QString::number(total);
        matrix.push_back(totals);
        QStringList producer{QStringLiteral("Producer's Accuracy(%)")};
        for (size_t j = 0; j < columnCount; ++j)
            producer << percentText(double(columnAgree[j]), double(columnTotals[j]));
        matrix.push_back(producer);
        matrix.push_back({QStringLiteral("Overall Accuracy(%)"), percentText(double(agree), double(total))});
        const double n = double(total);
        const double expected = n > 0 ? chance / (n * n) : 1.0;
        const double observed = n > 0 ? double(agree) / n : 0.0;
        matrix.push_back({QStringLiteral("Kappa"),
                          expected < 1.0 ? QString::number((observed - expected) / (1.0 - expected), 'f', 4) : QStringLiteral("-")});
        return matrix;
    }
};

} // namespace

Algorithm* createImgClassPostPA()
{
    return new ImgClassPostPA;
}

} // namespace SysAlgo
