// The rules of image filtering: an extent from text (WKT, GeoJSON or minx|miny|maxx|maxy in WGS 84),
// satellite names compared loosely, acquisition date ranges.
#pragma once

#include "footprint.h"

#include <QString>
#include <QStringList>

namespace catalogue
{

// Null with an empty `error` for an empty text (no spatial condition); null with `error` set when the
// text parses as none of the three forms.
GeometryPtr parseExtent(const QString& text, QString* error);

// A name matches when it is contained in the satellite after both are put in satelliteKey form;
// an empty list matches everything.
bool satelliteMatches(const QString& satellite, const QStringList& wanted);

struct DateRange
{
    QString from; // "yyyy-MM-dd[THH:mm:ss]", empty: open
    QString to;
    bool isOpen() const { return from.isEmpty() && to.isEmpty(); }
    // Both ends included; a bare date as `to` includes its whole day. An unknown date never matches a
    // range with an end.
    bool contains(const QString& acquisition) const;
};

// "from|to" with either end empty; false when an end is given but is no date, or from > to.
bool parseDateRange(const QString& text, DateRange* range);

} // namespace catalogue
