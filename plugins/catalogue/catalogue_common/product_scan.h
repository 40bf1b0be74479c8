// From paths and folders to catalogue items: a recognised product (a Landsat delivery, a SAFE folder, a
// GF-3 product, a set of band files) is one item, any other raster one item of its own.
#pragma once

#include "product_recognition.h"

#include <QString>
#include <QStringList>
#include <vector>

class GDALDataset;

namespace catalogue
{

struct CatalogueItem
{
    QString path;        // what the user knows the product by: the raster, the MTL file, the SAFE folder
    QString imagePath;   // the raster the footprint is computed from (empty: use the declared footprint)
    int memberCount = 1; // band or measurement files of the product
    ProductInfo info;
    LonLatRing declaredFootprint; // from the product's metadata, when it states one
    bool explicitlyNamed = false; // named in the input list, not found in a folder

    // Optical deliveries encode fill as 0 without declaring it.
    bool zeroIsFill() const;
};

// Expands files and folders (searched recursively) into items, in input order then name order.
// `unusable` receives inputs that are neither an existing path nor hold anything recognisable.
std::vector<CatalogueItem> scanInputs(const QStringList& paths, QStringList* unusable);

// The item for one path (file or product folder), without searching sub-folders.
CatalogueItem itemForPath(const QString& path);

// Opens a raster for reading (caller closes `*opened`, null when it does not open); a container without
// bands of its own (HDF5, netCDF) stands for its first subdataset, whose GDAL name is returned.
QString rasterPathFor(const QString& path, GDALDataset** opened);

// Whether the file name has the suffix of a raster format the scan considers.
bool looksLikeRaster(const QString& fileName);

} // namespace catalogue
