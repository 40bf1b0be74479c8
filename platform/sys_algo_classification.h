// Records of the host's classification algorithms: "ROIStatistics" and "ImgClassPostPA".
#pragma once

#include "sys_data_source.h"
#include "sys_geometry.h"

#include <QColor>
#include <QString>
#include <QStringList>
#include <cstdint>
#include <vector>

#pragma GCC visibility push(default)

// One class of a ROI file: its name, colour and polygons in image coordinates (column, row).
struct RoiArea
{
    QString name;
    QColor color;
    std::vector<SysGeometry::Polygon> geometries;
};

// Statistics of one ROI class over the selected bands.
struct RoiClassStatistics
{
    std::int64_t pixelCount = 0;
    std::vector<double> mean;        // bandCount values
    std::vector<double> covariance;  // bandCount x bandCount, row after row
};

// "ROIStatistics": pixels inside each class's polygons give its mean vector and covariance matrix.
struct stROIStatisticsInfo
{
    QString inputFile;
    SysUtility::_ptr_t<SysDataSource::RasterDataset> dataset;
    std::vector<int> bands;          // 1-based band numbers
    int bandCount = 0;
    std::vector<RoiArea> areas;
    std::vector<RoiClassStatistics> statistics; // filled by the run, one per area
};

// "ImgClassPostPA": confusion matrix of a classification against a reference raster or vector layer.
struct stImgClassPostPA
{
    QString classFile;
    QString referenceFile;           // reference classification raster (when referenceVector is empty or "NULL")
    QStringList classNames;
    QStringList referenceNames;      // vector reference: "Unclassified" first, then the field's distinct values
    std::vector<int> classIndices;   // paired with referenceIndices, 0-based
    std::vector<int> referenceIndices;
    QString referenceVector;
    QString classField;
};

// The result of "ImgClassPostPA": the matrix as texts, row after row.
using ConfusionMatrixText = std::vector<QStringList>;

#pragma GCC visibility pop
