// Fixtures of the hyperspectral tests: cubes with band wavelengths, text files, PNG checks.
#pragma once

#include "test_support.h"

#include <QFile>
#include <QImage>
#include <QTextStream>
#include <regex>

namespace hysfixture
{

// A GTiff cube; wavelengths (when given) go into each band's "wavelength" metadata item.
inline bool makeCube(const QString& path, int width, int height, int bands, GDALDataType type,
                     const std::function<double(int, int, int)>& value, const std::vector<double>& wavelengths = {})
{
    if (!testsupport::makeRaster(path, width, height, bands, type, value))
        return false;
    if (wavelengths.empty())
        return true;
    GDALDataset* dataset = GDALDataset::FromHandle(GDALOpen(path.toUtf8().constData(), GA_Update));
    for (int b = 0; b < bands; ++b)
        dataset->GetRasterBand(b + 1)->SetMetadataItem("wavelength", QByteArray::number(wavelengths[size_t(b)]).constData());
    GDALClose(GDALDataset::ToHandle(dataset));
    return true;
}

inline QString readText(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly | QIODevice::Text) ? QString::fromUtf8(file.readAll()) : QString();
}

inline void writeText(const QString& path, const QString& text)
{
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate | QIODevice::Text));
    file.write(text.toUtf8());
}

// A saved chart: a PNG that loads and is not one flat colour.
inline void expectReadableChart(const QString& path)
{
    QImage image(path);
    ASSERT_FALSE(image.isNull()) << path.toStdString();
    bool varied = false;
    const QRgb first = image.pixel(0, 0);
    for (int y = 0; y < image.height() && !varied; y += 3)
        for (int x = 0; x < image.width() && !varied; x += 3)
            varied = image.pixel(x, y) != first;
    EXPECT_TRUE(varied) << path.toStdString();
}

} // namespace hysfixture
