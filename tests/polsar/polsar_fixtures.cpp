// Small polarimetric fixtures made with GDAL and plain files.
#include "polsar_fixtures.h"

#include "test_support.h"

#include <QDir>
#include <QFile>
#include <vector>

namespace polsartest
{

QString writeChannels(const QString& dir, int width, int height,
                      const std::function<std::array<Cf, 4>(int x, int y)>& scattering)
{
    GDALAllRegister();
    QStringList paths;
    const char* names[4] = {"HH", "HV", "VH", "VV"};
    for (int c = 0; c < 4; ++c)
    {
        const QString path = dir + "/scene_" + names[c] + ".tif";
        GDALDataset* dataset = GetGDALDriverManager()->GetDriverByName("GTiff")->Create(
            path.toUtf8().constData(), width, height, 1, GDT_CFloat32, nullptr);
        std::vector<std::complex<float>> values(size_t(width) * height);
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x)
                values[size_t(y) * width + x] = std::complex<float>(scattering(x, y)[c]);
        EXPECT_EQ(dataset->GetRasterBand(1)->RasterIO(GF_Write, 0, 0, width, height, values.data(), width, height,
                                                      GDT_CFloat32, 0, 0),
                  CE_None);
        GDALClose(GDALDataset::ToHandle(dataset));
        paths << path;
    }
    return paths.join('|');
}

void writeT3(const QString& dir, int width, int height, const std::function<polsarkernel::Coherency(int x, int y)>& t)
{
    QDir().mkpath(dir);
    QFile config(dir + "/config.txt");
    config.open(QIODevice::WriteOnly);
    config.write(QStringLiteral("Nrow\n%1\n---------\nNcol\n%2\n---------\nPolarCase\nmonostatic\n---------\n"
                                "PolarType\nfull\n")
                     .arg(height)
                     .arg(width)
                     .toUtf8());
    const std::pair<const char*, double polsarkernel::Coherency::*> elements[9] = {
        {"T11.bin", &polsarkernel::Coherency::t11},        {"T12_real.bin", &polsarkernel::Coherency::t12re},
        {"T12_imag.bin", &polsarkernel::Coherency::t12im}, {"T13_real.bin", &polsarkernel::Coherency::t13re},
        {"T13_imag.bin", &polsarkernel::Coherency::t13im}, {"T22.bin", &polsarkernel::Coherency::t22},
        {"T23_real.bin", &polsarkernel::Coherency::t23re}, {"T23_imag.bin", &polsarkernel::Coherency::t23im},
        {"T33.bin", &polsarkernel::Coherency::t33}};
    for (const auto& element : elements)
    {
        std::vector<float> values;
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x)
                values.push_back(float(t(x, y).*element.second));
        QFile file(dir + "/" + element.first);
        file.open(QIODevice::WriteOnly);
        file.write(reinterpret_cast<const char*>(values.data()), qint64(values.size() * sizeof(float)));
    }
}

FourImages writeFourImages(const QString& dir, const QString& stem, int width, int height,
                           const std::function<std::array<double, 4>(int x, int y)>& values)
{
    FourImages images{dir + "/" + stem + "_entropy.tif", dir + "/" + stem + "_anisotropy.tif",
                      dir + "/" + stem + "_alpha.tif", dir + "/" + stem + "_lambda.tif"};
    const QString paths[4] = {images.entropy, images.anisotropy, images.alpha, images.lambda};
    for (int i = 0; i < 4; ++i)
        EXPECT_TRUE(testsupport::makeRaster(paths[i], width, height, 1, GDT_Float32,
                                            [&](int, int x, int y) { return values(x, y)[i]; }));
    return images;
}

EntryRun runClassification(const FourImages& images, const char* method, const QString& outputDir)
{
    const QByteArray e = images.entropy.toUtf8(), a = images.anisotropy.toUtf8(), al = images.alpha.toUtf8(),
                     l = images.lambda.toUtf8(), out = outputDir.toUtf8();
    EntryRun run;
    testsupport::StdoutCapture capture;
    run.ok = ExcuteAlgo_PolSAR_HAAlphaClassification(e.constData(), a.constData(), al.constData(), l.constData(),
                                                      method, out.constData(), nullptr);
    run.printed = capture.text();
    return run;
}

EntryRun runDecomposition(const QString& input, const QString& outputDir, const char* method, int windowSize)
{
    const QByteArray in = input.toUtf8(), out = outputDir.toUtf8();
    EntryRun run;
    testsupport::StdoutCapture capture;
    run.ok = ExcuteAlgo_PolSAR_Decomposition(in.constData(), out.constData(), method, windowSize, nullptr);
    run.printed = capture.text();
    return run;
}

} // namespace polsartest
