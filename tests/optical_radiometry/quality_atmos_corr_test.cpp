// Quality of an atmospheric correction: bias, RMSE and R^2 against a reference image and against field spectra,
// plausibility shares, the HTML report with its charts, and refusals; figures recomputed here by brute force.
#include "test_support.h"

#include <QFile>
#include <QFileInfo>
#include <QTextStream>

#include <cmath>
#include <random>

using namespace testsupport;

namespace
{

struct QualityRun
{
    bool ok = false;
    std::vector<std::string> lines;
    std::string message;
};

QualityRun check(const QString& input, const QString& reference, const QString& report, int option)
{
    RecordingResult result;
    QualityRun run;
    StdoutCapture capture;
    run.ok = ExcuteAlgo_QualityAtmosCorr(input.toUtf8(), reference.toUtf8(), report.toUtf8(), option, &result.record);
    run.lines = lines(capture.text());
    run.message = result.record.message;
    return run;
}

QStringList reportLines(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
        return {};
    return QString::fromUtf8(file.readAll()).split(QLatin1Char('\n'));
}

// The report line of a table that starts with `first`.
QString rowOf(const QStringList& lines, const QString& first, int occurrence = 0)
{
    for (const QString& line : lines)
        if (line.startsWith(first + QLatin1Char('\t')) && occurrence-- == 0)
            return line;
    return QString();
}

// Reference: smooth pattern; input: band 1 = reference + 0.01, band 2 = 0.9 * reference + noise.
double referenceValue(int b, int x, int y) { return 0.05 + 0.002 * x + 0.001 * y + 0.03 * b; }
double noise(int x, int y) { return 0.004 * std::sin(x * 12.9898 + y * 78.233); }
double inputValue(int b, int x, int y)
{
    return b == 0 ? referenceValue(0, x, y) + 0.01 : 0.9 * referenceValue(1, x, y) + noise(x, y);
}

} // namespace

TEST(QualityAtmosCorr, AgreementWithAReferenceImage)
{
    QTemporaryDir dir;
    const QString input = dir.filePath("sr.tif"), reference = dir.filePath("ref.tif"), report = dir.filePath("q.txt");
    ASSERT_TRUE(makeRaster(input, 60, 40, 2, GDT_Float32, inputValue));
    ASSERT_TRUE(makeRaster(reference, 60, 40, 2, GDT_Float32, referenceValue));
    const QualityRun run = check(input, reference, report, 0);
    ASSERT_TRUE(run.ok) << run.message;
    EXPECT_EQ(run.lines.back(), "[OUTPUT] ReportFile=\"" + report.toStdString() + "\"");
    const QStringList text = reportLines(report);
    for (int b = 0; b < 2; ++b)
    {
        double n = 0, sx = 0, sy = 0, sd = 0, sdd = 0;
        std::vector<double> xs, ys;
        for (int y = 0; y < 40; ++y)
            for (int x = 0; x < 60; ++x)
            {
                const double xi = double(float(inputValue(b, x, y))), yi = double(float(referenceValue(b, x, y)));
                xs.push_back(xi);
                ys.push_back(yi);
                n += 1;
                sx += xi;
                sy += yi;
                sd += xi - yi;
                sdd += (xi - yi) * (xi - yi);
            }
        const double mx = sx / n, my = sy / n;
        double cov = 0, vx = 0, vy = 0;
        for (size_t i = 0; i < xs.size(); ++i)
        {
            cov += (xs[i] - mx) * (ys[i] - my);
            vx += (xs[i] - mx) * (xs[i] - mx);
            vy += (ys[i] - my) * (ys[i] - my);
        }
        const QString expected = QStringLiteral("Band %1\t2400\t%2\t%3\t%4")
                                     .arg(b + 1)
                                     .arg(sd / n, 0, 'f', 4)
                                     .arg(std::sqrt(sdd / n), 0, 'f', 4)
                                     .arg(cov * cov / (vx * vy), 0, 'f', 4);
        EXPECT_EQ(rowOf(text, QStringLiteral("Band %1").arg(b + 1)).toStdString(), expected.toStdString());
    }
}

TEST(QualityAtmosCorr, PlausibilityAndFieldSpectra)
{
    QTemporaryDir dir;
    // Green, red, NIR with wavelengths: water in the left quarter, vegetation in the right half, a few negative
    // and above-one values in the middle.
    const QString input = dir.filePath("sr.tif");
    const auto value = [](int b, int x, int y) {
        if (x < 10)
            return b == 0 ? 0.04 : b == 1 ? (y == 0 ? -0.01 : 0.03) : 0.02; // water, one negative red
        if (x >= 20)
            return b == 0 ? 0.08 : b == 1 ? 0.04 : 0.40; // vegetation
        return b == 2 && y < 3 ? 1.2 : 0.2;              // bright, three NIR above one
    };
    ASSERT_TRUE(makeRaster(input, 40, 10, 3, GDT_Float32, value));
    {
        GDALDataset* ds = GDALDataset::Open(input.toUtf8().constData(), GA_Update);
        const char* wavelengths[] = {"0.56", "0.655", "0.865"};
        for (int b = 0; b < 3; ++b)
            ds->GetRasterBand(b + 1)->SetMetadataItem("wavelength", wavelengths[b]);
        GDALClose(ds);
    }
    const QString report = dir.filePath("plausible.txt");
    QualityRun run = check(input, QString(), report, 0);
    ASSERT_TRUE(run.ok) << run.message;
    QStringList text = reportLines(report);
    // Red: 10 of 400 pixels negative (row 0 of the water); NIR: 30 above one.
    EXPECT_TRUE(rowOf(text, "Band 2").endsWith("\t2.5000\t0.0000")) << rowOf(text, "Band 2").toStdString();
    EXPECT_TRUE(rowOf(text, "Band 3").endsWith("\t0.0000\t7.5000")) << rowOf(text, "Band 3").toStdString();
    EXPECT_TRUE(text.contains("dark water pixels (NIR < 0.05, below red): 90, negative in green/red/NIR: 0.00 %, "
                              "green above 0.15: 0.00 %"))
        << text.join("\n").toStdString();
    // Vegetation: the 200 right-hand pixels (NIR/red 10) and the 30 bright ones with NIR 1.2 (NDVI 0.71, ratio 6);
    // the water pixels with negative red are not vegetation. Mean ratio (200 * 10 + 30 * 6) / 230.
    EXPECT_TRUE(text.contains("vegetation pixels (NDVI > 0.5): 230, NIR above twice red: 100.00 %, mean NIR/red: 9.48"))
        << text.join("\n").toStdString();

    // Field spectra at three map points (the test rasters start at (500000, 4000000) with 30 m pixels): in pixels
    // (5, 2) and (25, 4), and one outside.
    const QString csv = dir.filePath("field.csv");
    QFile file(csv);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write("x,y,green,red,nir\n500165,3999925,0.05,0.03,0.02\n500765,3999865,0.07,0.05,0.38\n400000,3999925,0.1,0.1,0.1\n");
    file.close();
    run = check(input, csv, report, 0);
    ASSERT_TRUE(run.ok) << run.message;
    text = reportLines(report);
    // Green: image 0.04, 0.08 against 0.05, 0.07: bias 0, RMSE 0.01.
    EXPECT_EQ(rowOf(text, "Band 1").toStdString(), "Band 1\t2\t0.0000\t0.0100\t1.0000");
    EXPECT_EQ(rowOf(text, "Band 3").toStdString(), "Band 3\t2\t0.0100\t0.0141\t1.0000");
}

TEST(QualityAtmosCorr, HtmlReportWithChartsAndRefusals)
{
    QTemporaryDir dir;
    const QString input = dir.filePath("sr.tif"), reference = dir.filePath("ref.tif"), report = dir.filePath("q.html");
    ASSERT_TRUE(makeRaster(input, 30, 20, 2, GDT_Float32, inputValue));
    ASSERT_TRUE(makeRaster(reference, 30, 20, 2, GDT_Float32, referenceValue));
    const QualityRun run = check(input, reference, report, 1);
    ASSERT_TRUE(run.ok) << run.message;
    const QString charts = dir.filePath("q_band1.png") + "|" + dir.filePath("q_band2.png") + "|" + dir.filePath("q_spectrum.png");
    EXPECT_EQ(run.lines.back(), "[OUTPUT] ChartFiles=\"" + charts.toStdString() + "\"");
    for (const QString& chart : charts.split('|'))
        EXPECT_GT(QFileInfo(chart).size(), 1000) << chart.toStdString();
    const QString html = reportLines(report).join("\n");
    EXPECT_TRUE(html.contains("<img src=\"q_band2.png\">"));
    EXPECT_TRUE(html.contains("<tr><td>Band 1</td><td>600</td><td>0.0100</td><td>0.0100</td><td>1.0000</td></tr>"));

    const QString small = dir.filePath("small.tif"), badCsv = dir.filePath("bad.csv");
    ASSERT_TRUE(makeRaster(small, 10, 10, 2, GDT_Float32, referenceValue));
    QFile file(badCsv);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write("1,2,3\n");
    file.close();
    const struct
    {
        QString reference;
        int option;
        std::string message;
    } rows[] = {
        {small, 0, "QualityAtmosCorr: the parameter ReferenceFile (" + small.toStdString() +
                       ") is not on the input's grid (30 x 20, 2 band(s) at least)!"},
        {badCsv, 0, "QualityAtmosCorr: the parameter ReferenceFile (" + badCsv.toStdString() +
                        ") has a line 1 that is not \"x,y\" and 2 reflectance(s)!"},
        {reference, 2, "QualityAtmosCorr: the parameter Option (2) must be one of 0, 1!"},
    };
    for (const auto& row : rows)
    {
        const QString out = dir.filePath("refused.txt");
        const QualityRun refused = check(input, row.reference, out, row.option);
        EXPECT_FALSE(refused.ok);
        EXPECT_EQ(refused.message, row.message);
        EXPECT_FALSE(QFile::exists(out));
    }
}
