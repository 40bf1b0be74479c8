// Thumbnails and footprint maps drawn with Qt.
#include "picture.h"

#include <QBuffer>
#include <QPainter>
#include <QPainterPath>

#include <algorithm>
#include <cmath>

namespace catalogue
{

namespace
{

// Adds a polygon's rings to a painter path in picture coordinates.
template <typename Map> void addPolygon(QPainterPath& path, const OGRPolygon& polygon, Map toPicture)
{
    for (const OGRLinearRing* ring : polygon)
    {
        QPolygonF points;
        for (int i = 0; i < ring->getNumPoints(); ++i)
            points << toPicture(ring->getX(i), ring->getY(i));
        path.addPolygon(points);
        path.closeSubpath();
    }
}

template <typename Map> QPainterPath pathOf(const OGRGeometry& geometry, Map toPicture)
{
    QPainterPath path;
    path.setFillRule(Qt::OddEvenFill);
    const OGRwkbGeometryType type = wkbFlatten(geometry.getGeometryType());
    if (type == wkbPolygon)
        addPolygon(path, *geometry.toPolygon(), toPicture);
    else if (type == wkbMultiPolygon)
        for (const OGRPolygon* polygon : *geometry.toMultiPolygon())
            addPolygon(path, *polygon, toPicture);
    return path;
}

} // namespace

std::pair<double, double> stretchLimits(std::vector<double> values, double low, double high)
{
    if (values.empty())
        return {0.0, 0.0};
    const size_t last = values.size() - 1;
    const size_t lo = size_t(std::floor(low * double(last)));
    const size_t hi = size_t(std::ceil(high * double(last)));
    std::nth_element(values.begin(), values.begin() + lo, values.end());
    const double a = values[lo];
    std::nth_element(values.begin(), values.begin() + hi, values.end());
    return {a, values[hi]};
}

QImage renderThumbnail(GDALDataset* dataset, int maxSize)
{
    const int width = dataset->GetRasterXSize(), height = dataset->GetRasterYSize();
    const int bands = dataset->GetRasterCount();
    if (width < 1 || height < 1 || bands < 1)
        return QImage();
    const double scale = std::max(1.0, double(std::max(width, height)) / std::max(1, maxSize));
    const int w = std::max(1, int(std::lround(width / scale))), h = std::max(1, int(std::lround(height / scale)));
    const int used = bands >= 3 ? 3 : 1;
    std::vector<std::vector<double>> values(used, std::vector<double>(size_t(w) * h));
    std::vector<unsigned char> valid(size_t(w) * h, 1), mask(size_t(w) * h);
    for (int b = 0; b < used; ++b)
    {
        GDALRasterBand* band = dataset->GetRasterBand(b + 1);
        // Complex samples are shown by their modulus.
        const GDALDataType type = GDALDataTypeIsComplex(band->GetRasterDataType()) ? GDT_CFloat64 : GDT_Float64;
        std::vector<double> buffer(size_t(w) * h * (type == GDT_CFloat64 ? 2 : 1));
        if (band->RasterIO(GF_Read, 0, 0, width, height, buffer.data(), w, h, type, 0, 0) != CE_None)
            return QImage();
        for (size_t i = 0; i < values[b].size(); ++i)
            values[b][i] = type == GDT_CFloat64 ? std::hypot(buffer[2 * i], buffer[2 * i + 1]) : buffer[i];
        if (band->GetMaskFlags() != GMF_ALL_VALID &&
            band->GetMaskBand()->RasterIO(GF_Read, 0, 0, width, height, mask.data(), w, h, GDT_Byte, 0, 0) == CE_None)
            for (size_t i = 0; i < mask.size(); ++i)
                valid[i] &= mask[i] != 0;
        for (size_t i = 0; i < values[b].size(); ++i)
            valid[i] &= std::isfinite(values[b][i]) ? 1 : 0;
    }
    QImage image(w, h, QImage::Format_ARGB32);
    image.fill(Qt::transparent);
    std::vector<std::pair<double, double>> limits;
    for (int b = 0; b < used; ++b)
    {
        std::vector<double> good;
        good.reserve(values[b].size());
        for (size_t i = 0; i < values[b].size(); ++i)
            if (valid[i])
                good.push_back(values[b][i]);
        limits.push_back(stretchLimits(std::move(good), 0.02, 0.98));
    }
    for (int y = 0; y < h; ++y)
    {
        QRgb* line = reinterpret_cast<QRgb*>(image.scanLine(y));
        for (int x = 0; x < w; ++x)
        {
            const size_t i = size_t(y) * w + x;
            if (!valid[i])
                continue;
            int channel[3];
            for (int b = 0; b < used; ++b)
            {
                const double span = limits[b].second - limits[b].first;
                const double t = span > 0.0 ? (values[b][i] - limits[b].first) / span : 0.5;
                channel[b] = int(std::lround(255.0 * std::clamp(t, 0.0, 1.0)));
            }
            line[x] = used == 3 ? qRgb(channel[0], channel[1], channel[2]) : qRgb(channel[0], channel[0], channel[0]);
        }
    }
    return image;
}

QImage drawFootprintMap(const std::vector<const OGRGeometry*>& footprints, int highlight, int width, int height)
{
    QImage image(width, height, QImage::Format_ARGB32);
    image.fill(QColor(245, 247, 250));
    OGREnvelope all;
    for (const OGRGeometry* g : footprints)
        if (g)
        {
            OGREnvelope e;
            g->getEnvelope(&e);
            all.Merge(e);
        }
    if (!all.IsInit())
        return image;
    // A margin of a tenth, and at least a tenth of a degree, around the footprints.
    const double marginX = std::max(0.1, 0.1 * (all.MaxX - all.MinX));
    const double marginY = std::max(0.1, 0.1 * (all.MaxY - all.MinY));
    const double x0 = all.MinX - marginX, x1 = all.MaxX + marginX, y0 = all.MinY - marginY, y1 = all.MaxY + marginY;
    const double s = std::min(width / (x1 - x0), height / (y1 - y0));
    const double ox = (width - s * (x1 - x0)) / 2.0, oy = (height - s * (y1 - y0)) / 2.0;
    auto toPicture = [&](double lon, double lat) { return QPointF(ox + (lon - x0) * s, height - oy - (lat - y0) * s); };

    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    // Graticule at a round step.
    const double span = std::max(x1 - x0, y1 - y0);
    const double step = std::pow(10.0, std::floor(std::log10(span / 2.0)));
    painter.setPen(QPen(QColor(200, 205, 215), 1));
    painter.setFont(QFont(QStringLiteral("Sans"), 7));
    for (double lon = std::ceil(x0 / step) * step; lon <= x1; lon += step)
    {
        painter.drawLine(toPicture(lon, y0), toPicture(lon, y1));
        painter.drawText(toPicture(lon, y0) + QPointF(2, -2), QString::number(lon, 'g', 6));
    }
    for (double lat = std::ceil(y0 / step) * step; lat <= y1; lat += step)
    {
        painter.drawLine(toPicture(x0, lat), toPicture(x1, lat));
        painter.drawText(toPicture(x0, lat) + QPointF(2, -2), QString::number(lat, 'g', 6));
    }
    // A footprint a few pixels across at this scale is drawn as a dot, so that it can still be seen.
    auto draw = [&](const OGRGeometry& footprint) {
        const QPainterPath path = pathOf(footprint, toPicture);
        const QRectF box = path.boundingRect();
        if (box.width() < 5.0 && box.height() < 5.0)
            painter.drawEllipse(box.center(), 3.0, 3.0);
        else
            painter.drawPath(path);
    };
    for (size_t i = 0; i < footprints.size(); ++i)
    {
        if (!footprints[i] || int(i) == highlight)
            continue;
        painter.setPen(QPen(QColor(90, 110, 140), 1));
        painter.setBrush(QColor(90, 110, 140, 40));
        draw(*footprints[i]);
    }
    if (highlight >= 0 && highlight < int(footprints.size()) && footprints[highlight])
    {
        painter.setPen(QPen(QColor(200, 40, 30), 2));
        painter.setBrush(QColor(220, 60, 40, 90));
        draw(*footprints[highlight]);
    }
    return image;
}

QByteArray pngBytes(const QImage& image)
{
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, "PNG");
    return bytes;
}

} // namespace catalogue
