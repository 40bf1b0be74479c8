// The IHS colour model shared by "TransformRGB2IHS" and "TransformIHS2RGB": I = (R + G + B) / 3 in the input's
// units, H the hue in degrees [0, 360), S = 1 - min(R, G, B) / I in [0, 1]; grey pixels have H = 0. The plug-ins
// stream row blocks of the three bands named by the band order (three 1-based digits, e.g. 123 or 321) and
// write three Float32 bands.
#pragma once

#include "plugin_base.h"
#include "raster_io.h"
#include "records/transform_records.h"

#include <QFileInfo>
#include <array>
#include <cmath>

namespace ihs
{

inline std::array<double, 3> toIhs(double r, double g, double b)
{
    const double i = (r + g + b) / 3.0;
    const double low = std::min(r, std::min(g, b));
    const double s = i > 0.0 ? 1.0 - low / i : 0.0;
    const double num = 0.5 * ((r - g) + (r - b));
    const double den = std::sqrt((r - g) * (r - g) + (r - b) * (g - b));
    double h = 0.0;
    if (den > 1e-12 * std::max(1.0, std::fabs(i)))
    {
        h = std::acos(std::max(-1.0, std::min(1.0, num / den))) * 180.0 / M_PI;
        if (b > g)
            h = 360.0 - h;
    }
    return {i, h, s};
}

inline std::array<double, 3> toRgb(double i, double h, double s)
{
    h = std::fmod(h, 360.0);
    if (h < 0)
        h += 360.0;
    const int sector = int(h / 120.0) % 3;
    const double a = (h - 120.0 * sector) * M_PI / 180.0;
    const double low = i * (1.0 - s);
    const double high = i * (1.0 + s * std::cos(a) / std::cos(M_PI / 3.0 - a));
    const double third = 3.0 * i - (low + high);
    if (sector == 0)
        return {high, third, low};
    if (sector == 1)
        return {low, high, third};
    return {third, low, high};
}

// Runs the conversion `convert` over the input's three bands named by the order code.
template <typename Convert>
void convertImage(algokit::PluginBase& plugin, const stColorTransformInfo& info, Convert convert,
                  const std::function<void(double)>& progress)
{
    if (info.inputFile.isEmpty() || info.outputFile.isEmpty())
        throw algokit::AlgoError(QStringLiteral("Input and output paths are required"));
    if (QFileInfo(info.inputFile).absoluteFilePath() == QFileInfo(info.outputFile).absoluteFilePath())
        throw algokit::AlgoError(QStringLiteral("The output file must differ from the input file"));
    algokit::DatasetPtr input = algokit::openRaster(info.inputFile);
    const int count = input->GetRasterCount();
    const int order[3] = {info.bandOrder / 100, info.bandOrder / 10 % 10, info.bandOrder % 10};
    if (info.bandOrder < 100 || info.bandOrder > 999)
        throw algokit::AlgoError(QStringLiteral("Band order %1 is not three band digits such as 123").arg(info.bandOrder));
    for (int band : order)
        if (band < 1 || band > count)
            throw algokit::AlgoError(QStringLiteral("Band order %1 names band %2; the input has %3 bands")
                                         .arg(info.bandOrder).arg(band).arg(count));
    const int width = input->GetRasterXSize(), height = input->GetRasterYSize();
    const QString driver = info.format.isEmpty() ? algokit::driverForPath(info.outputFile) : info.format;
    algokit::OutputRaster output(info.outputFile, driver, width, height, 3, GDT_Float32);
    output.copyGeoreferencing(input.get());
    std::vector<double> in[3], out[3];
    algokit::forEachRowBlock(height, algokit::rowsPerBlock(input.get(), 48, 8u << 20), [&](int row0, int rows) {
        for (int k = 0; k < 3; ++k)
            algokit::readRows<double>(input->GetRasterBand(order[k]), row0, rows, in[k]);
        for (int k = 0; k < 3; ++k)
            out[k].resize(in[0].size());
        algokit::parallelFor(int(in[0].size()), [&](int begin, int end) {
            for (int p = begin; p < end; ++p)
            {
                const std::array<double, 3> v = convert(in[0][size_t(p)], in[1][size_t(p)], in[2][size_t(p)]);
                for (int k = 0; k < 3; ++k)
                    out[k][size_t(p)] = v[size_t(k)];
            }
        });
        for (int k = 0; k < 3; ++k)
            algokit::writeRows<double>(output.band(k), row0, rows, out[k]);
        progress(100.0 * (row0 + rows) / height);
    });
    output.commit();
}

} // namespace ihs
