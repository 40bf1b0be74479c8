// Plug-in "MaskApplication": keep the pixels where a mask is non-zero, write the record's value elsewhere.
#include "gdal_apps.h"
#include "plugin_base.h"
#include "raster_io.h"
#include "records/utility_records.h"

#include <QDir>
#include <QFileInfo>

#include <vector>

namespace
{

// out[i] = mask[i] != 0 ? out[i] : fill, over one block of rows.
void applyMask(std::vector<double>& values, const std::vector<float>& mask, double fill)
{
    const size_t n = values.size();
    double* v = values.data();
    const float* m = mask.data();
    for (size_t i = 0; i < n; ++i)
        v[i] = m[i] != 0.0f ? v[i] : fill;
}

class MaskApplication : public algokit::PluginBase
{
public:
    MaskApplication() : PluginBase(QStringLiteral("MaskApplication")) {}

protected:
    bool run() override
    {
        const stMaskApplicationInfo& info = params<stMaskApplicationInfo>();
        if (info.outputFile.isEmpty())
            return fail(QStringLiteral("An output path is required."));
        const QString outPath = QFileInfo(info.outputFile).absoluteFilePath();
        if (outPath == QFileInfo(info.inputFile).absoluteFilePath() || outPath == QFileInfo(info.maskFile).absoluteFilePath())
            return fail(QStringLiteral("The output file must differ from the input and mask files."));
        algokit::DatasetPtr input = algokit::openRaster(info.inputFile);
        algokit::DatasetPtr maskFile = algokit::openRaster(info.maskFile);
        const int width = input->GetRasterXSize(), height = input->GetRasterYSize(), bands = input->GetRasterCount();
        if (bands < 1 || maskFile->GetRasterCount() < 1)
            return fail(QStringLiteral("The image and the mask need at least one band."));

        // A mask on another grid is warped (nearest) onto the image's grid, read lazily through a virtual dataset.
        algokit::DatasetPtr aligned;
        GDALDataset* mask = maskFile.get();
        if (maskFile->GetRasterXSize() != width || maskFile->GetRasterYSize() != height)
            mask = alignedMask(input.get(), maskFile.get(), &aligned);

        QDir().mkpath(QFileInfo(info.outputFile).absolutePath());
        const GDALDataType type = input->GetRasterBand(1)->GetRasterDataType();
        algokit::OutputRaster output(info.outputFile, info.format, width, height, bands, type);
        output.copyGeoreferencing(input.get());
        for (int b = 0; b < bands; ++b)
            output.band(b)->SetNoDataValue(double(info.option));

        const int step = algokit::rowsPerBlock(input.get(), 8 * size_t(bands));
        std::vector<float> maskRows;
        std::vector<double> rows;
        algokit::forEachRowBlock(height, step, [&](int row0, int count) {
            algokit::readRows(mask->GetRasterBand(1), row0, count, maskRows);
            for (int b = 0; b < bands; ++b)
            {
                algokit::readRows(input->GetRasterBand(b + 1), row0, count, rows);
                applyMask(rows, maskRows, double(info.option));
                algokit::writeRows(output.band(b), row0, count, rows);
            }
            progress(100.0 * (row0 + count) / height);
        });
        output.commit();
        return true;
    }

private:
    GDALDataset* alignedMask(GDALDataset* input, GDALDataset* mask, algokit::DatasetPtr* holder)
    {
        double gt[6];
        if (input->GetGeoTransform(gt) != CE_None || mask->GetGeoTransform(gt) != CE_None)
            throw algokit::AlgoError(QStringLiteral("The mask's size differs from the image's and one of them has "
                                                    "no georeferencing to align them."));
        input->GetGeoTransform(gt);
        const double minX = gt[0], maxY = gt[3];
        const double maxX = gt[0] + gt[1] * input->GetRasterXSize(), minY = gt[3] + gt[5] * input->GetRasterYSize();
        CPLStringList argv;
        argv.AddString("-of");
        argv.AddString("VRT");
        argv.AddString("-r");
        argv.AddString("near");
        argv.AddString("-ts");
        argv.AddString(QByteArray::number(input->GetRasterXSize()).constData());
        argv.AddString(QByteArray::number(input->GetRasterYSize()).constData());
        argv.AddString("-te");
        for (double value : {minX, std::min(minY, maxY), maxX, std::max(minY, maxY)})
            argv.AddString(QByteArray::number(value, 'g', 17).constData());
        if (const OGRSpatialReference* srs = input->GetSpatialRef())
        {
            char* wkt = nullptr;
            srs->exportToWkt(&wkt);
            argv.AddString("-t_srs");
            argv.AddString(wkt ? wkt : "");
            CPLFree(wkt);
        }
        // Outside the mask's extent nothing is kept.
        argv.AddString("-dstnodata");
        argv.AddString("0");
        holder->reset(GDALDataset::FromHandle(algokit::warpRaster(mask, QString(), argv, nullptr)));
        return holder->get();
    }
};

} // namespace

ALGO_PLUGIN_FACTORY(MaskApplication)
