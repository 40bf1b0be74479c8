// Draws a signature as a surface: a height field over (orientation, ellipticity) projected orthographically,
// quads painted back to front so nearer parts hide farther ones, coloured by height with their wire edges.
#include "signature_chart.h"

#include <QCoreApplication>
#include <QGuiApplication>
#include <QPainter>
#include <QPainterPath>
#include <algorithm>
#include <array>
#include <cmath>

namespace
{

constexpr int kWidth = 960, kHeight = 720;
constexpr int kStep = 3; // degrees between wire lines
constexpr double kAzimuth = -32.0 * M_PI / 180.0, kElevation = 28.0 * M_PI / 180.0;
constexpr double kHeightScale = 0.9; // height of power 1 relative to the half width of the base

// Blue, cyan, yellow, red over 0..1.
QColor ramp(double v)
{
    static const double stops[4][3] = {{0, 0, 160}, {0, 200, 255}, {255, 230, 0}, {200, 0, 0}};
    const double t = std::clamp(v, 0.0, 1.0) * 3.0;
    const int i = std::min(2, int(t));
    const double f = t - i;
    int c[3];
    for (int k = 0; k < 3; ++k)
        c[k] = int(std::lround(stops[i][k] + f * (stops[i + 1][k] - stops[i][k])));
    return QColor(c[0], c[1], c[2]);
}

// Orientation, ellipticity and power mapped to a box [-1, 1] x [-1, 1] x [0, kHeightScale], then viewed.
struct View
{
    double scale = 1.0, x0 = 0.0, y0 = 0.0;

    static double sx(double x, double y) { return x * std::cos(kAzimuth) - y * std::sin(kAzimuth); }
    // Distance away from the viewer: larger is farther.
    static double depth(double x, double y) { return x * std::sin(kAzimuth) + y * std::cos(kAzimuth); }
    static double sy(double x, double y, double z)
    {
        return z * kHeightScale * std::cos(kElevation) + depth(x, y) * std::sin(kElevation);
    }
    QPointF at(double x, double y, double z) const { return {x0 + scale * sx(x, y), y0 - scale * sy(x, y, z)}; }
    QPointF atDegrees(double orientation, double ellipticity, double z) const
    {
        return at(orientation / 90.0, ellipticity / 45.0, z);
    }
};

View fitView(const QRectF& area)
{
    double left = 1e9, right = -1e9, bottom = 1e9, top = -1e9;
    for (int x : {-1, 1})
        for (int y : {-1, 1})
            for (int z : {0, 1})
            {
                left = std::min(left, View::sx(x, y));
                right = std::max(right, View::sx(x, y));
                bottom = std::min(bottom, View::sy(x, y, z));
                top = std::max(top, View::sy(x, y, z));
            }
    View view;
    view.scale = std::min(area.width() / (right - left), area.height() / (top - bottom));
    view.x0 = area.center().x() - view.scale * (left + right) / 2.0;
    view.y0 = area.center().y() + view.scale * (top + bottom) / 2.0;
    return view;
}

void drawBackPanes(QPainter& painter, const View& view)
{
    // The floor, the far wall along orientation (ellipticity 45) and the left wall (orientation -90), with
    // grid lines at the tick values so heights and positions can be read off.
    painter.setPen(Qt::NoPen);
    painter.setBrush(QColor(238, 238, 238));
    painter.drawPolygon(QPolygonF({view.at(-1, -1, 0), view.at(1, -1, 0), view.at(1, 1, 0), view.at(-1, 1, 0)}));
    painter.setBrush(QColor(228, 228, 228));
    painter.drawPolygon(QPolygonF({view.at(-1, 1, 0), view.at(1, 1, 0), view.at(1, 1, 1), view.at(-1, 1, 1)}));
    painter.drawPolygon(QPolygonF({view.at(-1, -1, 0), view.at(-1, 1, 0), view.at(-1, 1, 1), view.at(-1, -1, 1)}));
    painter.setPen(QPen(QColor(200, 200, 200), 1.0));
    for (int o = -90; o <= 90; o += 45)
    {
        painter.drawLine(view.atDegrees(o, -45, 0), view.atDegrees(o, 45, 0));
        painter.drawLine(view.atDegrees(o, 45, 0), view.atDegrees(o, 45, 1));
    }
    for (int e = -45; e <= 45; e += 15)
    {
        painter.drawLine(view.atDegrees(-90, e, 0), view.atDegrees(90, e, 0));
        painter.drawLine(view.atDegrees(-90, e, 0), view.atDegrees(-90, e, 1));
    }
    for (double z = 0.25; z <= 1.0; z += 0.25)
    {
        painter.drawLine(view.atDegrees(-90, -45, z), view.atDegrees(-90, 45, z));
        painter.drawLine(view.atDegrees(-90, 45, z), view.atDegrees(90, 45, z));
    }
}

void drawSurface(QPainter& painter, const View& view, const std::vector<double>& grid, int orientations)
{
    const auto value = [&](int o, int e) { return grid[size_t(e + 45) * size_t(orientations) + size_t(o + 90)]; };
    struct Quad
    {
        double depth;
        int o, e;
    };
    std::vector<Quad> quads;
    for (int e = -45; e < 45; e += kStep)
        for (int o = -90; o < 90; o += kStep)
            quads.push_back({View::depth((o + kStep / 2.0) / 90.0, (e + kStep / 2.0) / 45.0), o, e});
    std::sort(quads.begin(), quads.end(), [](const Quad& a, const Quad& b) { return a.depth > b.depth; });
    painter.setPen(QPen(QColor(40, 40, 40, 150), 0.6));
    for (const Quad& q : quads)
    {
        const int o1 = std::min(90, q.o + kStep), e1 = std::min(45, q.e + kStep);
        const double v00 = value(q.o, q.e), v10 = value(o1, q.e), v11 = value(o1, e1), v01 = value(q.o, e1);
        painter.setBrush(ramp((v00 + v10 + v11 + v01) / 4.0));
        painter.drawPolygon(QPolygonF({view.atDegrees(q.o, q.e, v00), view.atDegrees(o1, q.e, v10),
                                       view.atDegrees(o1, e1, v11), view.atDegrees(q.o, e1, v01)}));
    }
}

void drawLabels(QPainter& painter, const View& view, const QString& title)
{
    painter.setPen(QPen(Qt::black, 1.2));
    // Front edge (orientation), right edge (ellipticity), left front vertical (power).
    painter.drawLine(view.atDegrees(-90, -45, 0), view.atDegrees(90, -45, 0));
    painter.drawLine(view.atDegrees(90, -45, 0), view.atDegrees(90, 45, 0));
    painter.drawLine(view.atDegrees(-90, -45, 0), view.atDegrees(-90, -45, 1));
    QFont font = painter.font();
    font.setPixelSize(15);
    painter.setFont(font);
    const auto text = [&](QPointF at, const QString& s, Qt::Alignment align) {
        const QRectF box(at.x() - 150, at.y() - 12, 300, 24);
        QRectF placed = box;
        if (align & Qt::AlignRight)
            placed.moveRight(at.x());
        if (align & Qt::AlignLeft)
            placed.moveLeft(at.x());
        painter.drawText(placed, int(align | Qt::AlignVCenter), s);
    };
    for (int o = -90; o <= 90; o += 45)
    {
        const QPointF p = view.atDegrees(o, -45, 0);
        painter.drawLine(p, p + QPointF(0, 6));
        text(p + QPointF(0, 20), QString::number(o), Qt::AlignHCenter);
    }
    for (int e = -45; e <= 45; e += 15)
    {
        const QPointF p = view.atDegrees(90, e, 0);
        painter.drawLine(p, p + QPointF(6, 0));
        text(p + QPointF(10, 0), QString::number(e), Qt::AlignLeft);
    }
    for (int i = 0; i <= 4; ++i)
    {
        const QPointF p = view.atDegrees(-90, -45, i / 4.0);
        painter.drawLine(p, p - QPointF(6, 0));
        text(p - QPointF(10, 0), QString::number(i / 4.0, 'f', 2), Qt::AlignRight);
    }
    const QPointF front = (view.atDegrees(-90, -45, 0) + view.atDegrees(90, -45, 0)) / 2.0;
    text(front + QPointF(-70, 44), QStringLiteral("Orientation angle (degrees)"), Qt::AlignHCenter);
    const QPointF side = (view.atDegrees(90, -45, 0) + view.atDegrees(90, 45, 0)) / 2.0;
    text(side + QPointF(48, 14), QStringLiteral("Ellipticity angle (degrees)"), Qt::AlignLeft);
    const QPointF up = view.atDegrees(-90, -45, 0.5);
    painter.save();
    painter.translate(up - QPointF(62, 0));
    painter.rotate(-90);
    text(QPointF(0, 0), QStringLiteral("Normalised power"), Qt::AlignHCenter);
    painter.restore();
    font.setPixelSize(19);
    font.setBold(true);
    painter.setFont(font);
    painter.drawText(QRectF(0, 12, kWidth, 30), Qt::AlignHCenter | Qt::AlignVCenter, title);
}

} // namespace

QImage signatureSurfaceChart(const std::vector<double>& grid, int orientations, int, const QString& title)
{
    QImage image(kWidth, kHeight, QImage::Format_RGB32);
    image.fill(Qt::white);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    const View view = fitView(QRectF(110, 60, kWidth - 290, kHeight - 150));
    drawBackPanes(painter, view);
    drawSurface(painter, view, grid, orientations);
    if (qobject_cast<QGuiApplication*>(QCoreApplication::instance()))
        drawLabels(painter, view, title);
    painter.end();
    return image;
}
