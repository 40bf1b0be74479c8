// Surface chart of a polarimetric signature: the normalised power over orientation and ellipticity drawn as a
// shaded wireframe surface in an oblique view, with labelled axes.
#pragma once

#include <QImage>
#include <QString>
#include <vector>

// grid: 91 ellipticities x 181 orientations (rows -45..45, columns -90..90 degrees, 1 degree apart), values 0..1.
// Axis and tick labels are drawn when a Qt GUI application is running (fonts need one); the surface always is.
QImage signatureSurfaceChart(const std::vector<double>& grid, int orientations, int ellipticities, const QString& title);
