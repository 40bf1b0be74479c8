// Chart drawing with QCustomPlot for the hyperspectral entries; every chart is a parentless widget
// that is never shown and is saved as PNG at its own size.
#include "hyperspectral_charts.h"

#include "graph_color.h"

#include <qcustomplot.h>

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QTextStream>
#include <cstdio>
#include <memory>

namespace algofactory
{
namespace
{

QString tr(const char* context, const char* text)
{
    return QCoreApplication::translate(context, text);
}

QString horizontalLabel(const char* context, const QString& unit)
{
    if (unit != "None")
        return tr(context, "Wavelength") + "(" + unit + ")";
    return tr(context, "Band ");
}

// Horizontal values: wavelength by position in the list of all bands when the unit is known,
// otherwise 1..count (also where the list is shorter than the selection).
QVector<double> horizontalValues(const Wavelengths& wavelengths, int count)
{
    QVector<double> values(count);
    const bool useWavelength = wavelengths.unit != "None" && !wavelengths.values.empty();
    for (int i = 0; i < count; ++i)
        values[i] = (useWavelength && size_t(i) < wavelengths.values.size()) ? wavelengths.values[size_t(i)] : i + 1;
    return values;
}

QVector<double> positions(int count)
{
    QVector<double> values(count);
    for (int i = 0; i < count; ++i)
        values[i] = i + 1;
    return values;
}

// The set-up shared by the quality charts: interactions, axes, and two cleared refreshes.
std::unique_ptr<QCustomPlot> newQualityPlot()
{
    auto plot = std::make_unique<QCustomPlot>(nullptr);
    plot->setInteractions(QCP::iRangeDrag | QCP::iRangeZoom);
    plot->axisRect()->setupFullAxesBox(false);
    plot->rescaleAxes();
    for (int i = 0; i < 2; ++i)
    {
        plot->replot(QCustomPlot::rpRefreshHint);
        plot->clearGraphs();
    }
    return plot;
}

QCPGraph* addGraph(QCustomPlot* plot, CGrapgColor& colors, const QString& name, const QVector<double>& x,
                   const std::vector<double>& y)
{
    QCPGraph* graph = plot->addGraph();
    graph->setName(name);
    const int count = std::min(x.size(), int(y.size()));
    graph->setData(x.mid(0, count), QVector<double>(y.begin(), y.begin() + count));
    graph->setPen(QPen(colors.CreateColor(), 2));
    return graph;
}

bool savePicture(QCustomPlot* plot, const QString& picturePath)
{
    if (picturePath.isEmpty())
        return false;
    return plot->savePng(picturePath, plot->width(), plot->height(), 1.0, -1);
}

// Divides by (max - min) where max and min start at 0, without shifting by the minimum; an all-zero
// array stays zero instead of becoming NaN.
std::vector<double> normalized(const std::vector<double>& values)
{
    double maximum = 0.0;
    double minimum = 0.0;
    for (double value : values)
    {
        maximum = std::max(maximum, value);
        minimum = std::min(minimum, value);
    }
    const double range = maximum - minimum;
    std::vector<double> result(values.size(), 0.0);
    if (range > 0.0)
        for (size_t i = 0; i < values.size(); ++i)
            result[i] = values[i] / range;
    return result;
}

} // namespace

bool ExportStatisticalChart(const Wavelengths& wavelengths, const StatisticalAnalysisParam& record)
{
    const char* context = "StatisticalAnalysis";
    const int count = int(record.bandList.bands.size());
    const QVector<double> x = horizontalValues(wavelengths, count);

    auto plot = std::make_unique<QCustomPlot>(nullptr);
    plot->clearGraphs();
    plot->yAxis->setLabel(tr(context, "Reflectance"));
    plot->xAxis->setLabel(horizontalLabel(context, wavelengths.unit));
    plot->legend->setVisible(true);
    CGrapgColor colors;
    const std::pair<const char*, const std::vector<double>*> series[] = {
        {"Mean", &record.mean}, {"Min", &record.minimum}, {"Max", &record.maximum}, {"StdDev", &record.stdDev}};
    for (const auto& [name, values] : series)
    {
        addGraph(plot.get(), colors, tr(context, name), x, *values);
        plot->rescaleAxes();
        plot->replot();
    }
    return savePicture(plot.get(), record.pictureFile);
}

bool ExportEntropyResult(const Wavelengths& wavelengths, int bandCount, const InformationEntropyParam& record,
                         const QString& textPath, const QString& picturePath)
{
    const char* context = "InformationEntropy";
    const QVector<double> x = horizontalValues(wavelengths, bandCount);
    auto plot = newQualityPlot();
    plot->xAxis->setLabel(horizontalLabel(context, wavelengths.unit));
    plot->yAxis->setLabel(tr(context, "Information Entropy") + "(" + tr(context, "Bit") + ")");
    CGrapgColor colors;
    QCPGraph* graph = addGraph(plot.get(), colors, tr(context, "Information Entropy"), x, record.entropy);
    graph->setLineStyle(QCPGraph::lsLine);
    graph->setScatterStyle(QCPScatterStyle(QCPScatterStyle::ssNone, 2));
    plot->rescaleAxes();
    plot->replot();
    if (!savePicture(plot.get(), picturePath))
    {
        std::printf("Information Entropy: Export image failed!\n");
        return false;
    }
    std::printf("Information Entropy: Export image successfully!\n");

    if (record.entropy.empty())
    {
        std::printf("Information Entropy: Output data is null!\n");
        return false;
    }
    QFile file(textPath);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate | QIODevice::Text))
        return false;
    QTextStream stream(&file);
    const bool byBand = wavelengths.unit == "None";
    stream << (byBand ? "Band" : "Wavelength") << "          " << "Information Entropy" << "\n";
    for (size_t i = 0; i < record.entropy.size(); ++i)
    {
        if (byBand || i >= wavelengths.values.size())
            stream << int(i + 1);
        else
            stream << wavelengths.values[i];
        stream << "          " << record.entropy[i] << "\n";
    }
    stream.flush();
    return stream.status() == QTextStream::Ok;
}

bool ExportSharpnessChart(const Wavelengths& wavelengths, int bandCount, const HysSharpnessParam& record,
                          const QString& textPath, const QString& picturePath, int chartType)
{
    const char* context = "HyperSpectral";
    auto plot = newQualityPlot();
    plot->xAxis->setLabel(horizontalLabel(context, wavelengths.unit));
    CGrapgColor colors;
    const QVector<double> x = horizontalValues(wavelengths, bandCount);
    switch (chartType)
    {
    case 0:
        plot->yAxis->setLabel(tr(context, "Normalized Value"));
        plot->legend->setVisible(true);
        if (!record.averageGradient.empty())
        {
            const QVector<double> bands = positions(bandCount);
            addGraph(plot.get(), colors, tr(context, "Varance"), bands, normalized(record.variance));
            addGraph(plot.get(), colors, tr(context, "Brenner Gradient"), bands, normalized(record.brennerGradient));
            addGraph(plot.get(), colors, tr(context, "Energy Gradient"), bands, normalized(record.energyGradient));
            addGraph(plot.get(), colors, tr(context, "Average Gradient"), bands, normalized(record.averageGradient));
        }
        break;
    case 1:
        plot->yAxis->setLabel(tr(context, "Average Gradient"));
        if (!record.averageGradient.empty())
            addGraph(plot.get(), colors, tr(context, "Average Gradient"), x, record.averageGradient);
        break;
    case 2:
        plot->yAxis->setLabel(tr(context, "Brenner Gradient"));
        if (!record.brennerGradient.empty())
            addGraph(plot.get(), colors, tr(context, "Brenner Gradient"), x, record.brennerGradient);
        break;
    case 3:
        plot->yAxis->setLabel(tr(context, "Energy Gradient"));
        if (!record.energyGradient.empty())
            addGraph(plot.get(), colors, tr(context, "Energy Gradient"), x, record.energyGradient);
        break;
    case 4:
        plot->yAxis->setLabel(tr(context, "Variance"));
        if (!record.variance.empty())
            addGraph(plot.get(), colors, tr(context, "Variance"), x, record.variance);
        break;
    default:
        break;
    }
    plot->rescaleAxes();
    plot->replot();
    if (!savePicture(plot.get(), picturePath))
    {
        std::printf("HysSharpness: Export image failed!\n");
        return false;
    }
    std::printf("HysSharpness: Export image successfully!\n");
    return true;
}

bool ExportNoiseChart(const QString& textPath, const QString& picturePath)
{
    const char* context = "HyperSpectral";
    auto plot = newQualityPlot();
    if (!textPath.isEmpty())
    {
        QFile file(textPath);
        if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
        {
            std::printf("Noise View: Read file failed!\n");
            return false;
        }
        QVector<double> x;
        std::vector<double> y;
        QTextStream stream(&file);
        while (!stream.atEnd())
        {
            const QString line = stream.readLine();
            if (line.isEmpty())
                continue;
            const QStringList fields = line.split(' ');
            if (fields.size() != 2)
                continue;
            x.push_back(fields[0].toDouble());
            y.push_back(fields[1].toDouble());
        }
        if (x.isEmpty() || y.empty() || size_t(x.size()) != y.size())
        {
            std::printf("Noise View: Read data failed!\n");
            return false;
        }
        plot->xAxis->setLabel(tr(context, "Band "));
        plot->yAxis->setLabel(tr(context, "Noise Value"));
        CGrapgColor colors;
        addGraph(plot.get(), colors, QFileInfo(textPath).fileName(), x, y);
        plot->rescaleAxes();
        plot->replot();
    }
    if (!savePicture(plot.get(), picturePath))
    {
        std::printf("NoiseEstimation: Export image failed!\n");
        return false;
    }
    std::printf("NoiseEstimation: Export image successfully!\n");
    return true;
}

} // namespace algofactory
