// The spectral axis of a cube and Float32 cube outputs.
#include "spectral_cube.h"

#include <cmath>
#include <limits>

namespace hysa
{

namespace
{

// The numbers of an ENVI header list "{ a , b , c }".
std::vector<double> enviList(const char* text)
{
    std::vector<double> values;
    if (!text)
        return values;
    QString list = QString::fromUtf8(text).trimmed();
    if (list.startsWith('{'))
        list.remove(0, 1);
    if (list.endsWith('}'))
        list.chop(1);
    for (const QString& item : list.split(',', Qt::SkipEmptyParts))
    {
        bool ok = false;
        const double value = item.trimmed().toDouble(&ok);
        if (!ok)
            return {};
        values.push_back(value);
    }
    return values;
}

QString enviText(const std::vector<double>& values)
{
    QStringList items;
    for (double value : values)
        items << QString::number(value, 'g', 10);
    return QLatin1Char('{') + items.join(QLatin1String(", ")) + QLatin1Char('}');
}

} // namespace

SpectralAxis readSpectralAxis(GDALDataset* dataset)
{
    SpectralAxis axis;
    const int count = dataset->GetRasterCount();
    std::vector<double> fromBands;
    for (int band = 1; band <= count; ++band)
    {
        GDALRasterBand* raster = dataset->GetRasterBand(band);
        axis.names << QString::fromUtf8(raster->GetDescription());
        bool ok = false;
        const char* item = raster->GetMetadataItem("wavelength");
        const double value = item ? QString::fromUtf8(item).trimmed().toDouble(&ok) : 0.0;
        if (ok && std::isfinite(value))
            fromBands.push_back(value);
        if (axis.units.isEmpty())
            if (const char* units = raster->GetMetadataItem("wavelength_units"))
                axis.units = QString::fromUtf8(units);
    }
    const std::vector<double> fromHeader = enviList(dataset->GetMetadataItem("wavelength", "ENVI"));
    if (int(fromBands.size()) == count && count > 0)
        axis.wavelengths = fromBands;
    else if (int(fromHeader.size()) == count && count > 0)
        axis.wavelengths = fromHeader;
    axis.fromMetadata = !axis.wavelengths.empty();
    if (!axis.fromMetadata)
        for (int band = 1; band <= count; ++band)
            axis.wavelengths.push_back(band);
    if (axis.units.isEmpty())
        if (const char* units = dataset->GetMetadataItem("wavelength_units"))
            axis.units = QString::fromUtf8(units);
    axis.fwhm = enviList(dataset->GetMetadataItem("fwhm", "ENVI"));
    if (int(axis.fwhm.size()) != count)
        axis.fwhm.clear();
    const std::vector<double> bbl = enviList(dataset->GetMetadataItem("bbl", "ENVI"));
    axis.good.assign(size_t(count), 1);
    if (int(bbl.size()) == count)
        for (int band = 0; band < count; ++band)
            axis.good[size_t(band)] = bbl[size_t(band)] != 0.0;
    return axis;
}

SpectralAxis selectBands(const SpectralAxis& axis, const std::vector<int>& bands)
{
    SpectralAxis selected;
    selected.fromMetadata = axis.fromMetadata;
    selected.units = axis.units;
    for (int band : bands)
    {
        selected.wavelengths.push_back(axis.wavelengths[size_t(band)]);
        selected.good.push_back(axis.good[size_t(band)]);
        selected.names << axis.names.value(band);
        if (!axis.fwhm.empty())
            selected.fwhm.push_back(axis.fwhm[size_t(band)]);
    }
    return selected;
}

GenericAlgoRecord withoutZeros(const GenericAlgoRecord& record, const QStringList& keys)
{
    GenericAlgoRecord copy = record;
    for (const QString& key : keys)
    {
        const QVariant value = copy.args.value(key);
        if (value.isValid() && value.type() != QVariant::String && value.toDouble() == 0.0)
            copy.args.remove(key);
    }
    return copy;
}

algokit::DatasetPtr openCube(const algokit::GenericParams& args, const QString& key, int minBands)
{
    const algokit::TextParam path = args.text(key).required().existingFile();
    algokit::DatasetPtr dataset = path.openRaster();
    const int bands = dataset->GetRasterCount();
    if (bands < minBands)
        args.refuse(key, path.value(),
                    QStringLiteral("must have at least %1 bands, it has %2").arg(minBands).arg(bands));
    if (GDALDataTypeIsComplex(dataset->GetRasterBand(1)->GetRasterDataType()))
        args.refuse(key, path.value(), QStringLiteral("must hold real samples, not complex ones"));
    return dataset;
}

algokit::OutputRaster createCube(const QString& path, GDALDataset* source, int x0, int y0, int width, int height,
                                 const SpectralAxis& axis)
{
    const QString driver = algokit::driverForPath(path);
    QStringList options;
    if (driver == "GTiff")
        options << "INTERLEAVE=BAND"
                << "BIGTIFF=IF_SAFER";
    algokit::OutputRaster output(path, driver, width, height, axis.size(), GDT_Float32, options);
    if (x0 == 0 && y0 == 0)
        output.copyGeoreferencing(source);
    else
    {
        double transform[6];
        if (source->GetGeoTransform(transform) == CE_None)
        {
            transform[0] += x0 * transform[1] + y0 * transform[2];
            transform[3] += x0 * transform[4] + y0 * transform[5];
            output.get()->SetGeoTransform(transform);
        }
        if (const OGRSpatialReference* srs = source->GetSpatialRef())
            output.get()->SetSpatialRef(srs);
    }
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const bool envi = driver == "ENVI";
    for (int k = 0; k < axis.size(); ++k)
    {
        GDALRasterBand* band = output.band(k);
        band->SetNoDataValue(nan);
        QString name = axis.names.value(k);
        if (name.isEmpty())
            name = axis.fromMetadata
                       ? QStringLiteral("%1 %2").arg(axis.wavelengths[size_t(k)], 0, 'g', 10).arg(axis.units).trimmed()
                       : QStringLiteral("Band %1").arg(k + 1);
        band->SetDescription(name.toUtf8().constData());
        // ENVI keeps these in its header (below); elsewhere they travel as band metadata.
        if (axis.fromMetadata && !envi)
        {
            band->SetMetadataItem("wavelength", QByteArray::number(axis.wavelengths[size_t(k)], 'g', 10).constData());
            if (!axis.units.isEmpty())
                band->SetMetadataItem("wavelength_units", axis.units.toUtf8().constData());
            if (!axis.fwhm.empty())
                band->SetMetadataItem("fwhm", QByteArray::number(axis.fwhm[size_t(k)], 'g', 10).constData());
        }
    }
    if (envi)
    {
        GDALDataset* dataset = output.get();
        if (axis.fromMetadata)
        {
            dataset->SetMetadataItem("wavelength", enviText(axis.wavelengths).toUtf8().constData(), "ENVI");
            if (!axis.units.isEmpty())
                dataset->SetMetadataItem("wavelength_units", axis.units.toUtf8().constData(), "ENVI");
            if (!axis.fwhm.empty())
                dataset->SetMetadataItem("fwhm", enviText(axis.fwhm).toUtf8().constData(), "ENVI");
        }
        std::vector<double> bbl(axis.good.begin(), axis.good.end());
        dataset->SetMetadataItem("bbl", enviText(bbl).toUtf8().constData(), "ENVI");
    }
    return output;
}

void writeCubeRows(GDALDataset* output, int row0, int rows, const float* data)
{
    const int width = output->GetRasterXSize(), bands = output->GetRasterCount();
    const CPLErr error = output->RasterIO(GF_Write, 0, row0, width, rows, const_cast<float*>(data), width, rows,
                                          GDT_Float32, bands, nullptr, sizeof(float), GSpacing(sizeof(float)) * width,
                                          GSpacing(sizeof(float)) * width * rows, nullptr);
    if (error != CE_None)
        throw algokit::AlgoError(QStringLiteral("Writing rows %1..%2 failed: %3")
                                     .arg(row0)
                                     .arg(row0 + rows - 1)
                                     .arg(QString::fromUtf8(CPLGetLastErrorMsg())));
    // Written blocks leave GDAL's cache at once, so that a cube of any size is written in bounded memory.
    output->FlushCache();
}

PassedBlocks::PassedBlocks(GDALDataset* dataset, const std::vector<int>& bands) : m_dataset(dataset), m_bands(bands)
{
    if (!bands.empty())
        dataset->GetRasterBand(bands.front())->GetBlockSize(&m_blockWidth, &m_blockHeight);
    m_blockWidth = std::max(1, m_blockWidth);
    m_blockHeight = std::max(1, m_blockHeight);
}

void PassedBlocks::doneAbove(int row)
{
    const int columns = (m_dataset->GetRasterXSize() + m_blockWidth - 1) / m_blockWidth;
    const int done =
        row >= m_dataset->GetRasterYSize() ? (row + m_blockHeight - 1) / m_blockHeight : row / m_blockHeight;
    for (; m_next < done; ++m_next)
        for (int band : m_bands)
            for (int column = 0; column < columns; ++column)
                m_dataset->GetRasterBand(band)->FlushBlock(column, m_next, FALSE);
}

int blockRowsFor(int width, int bands, size_t bytes)
{
    const size_t rowBytes = std::max<size_t>(1, size_t(width) * size_t(std::max(1, bands)) * sizeof(double));
    return int(std::max<size_t>(1, std::min<size_t>(bytes / rowBytes, size_t(1) << 20)));
}

} // namespace hysa
