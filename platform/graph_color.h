// CGrapgColor: the host's chart colour generator, distinct readable colours in a fixed sequence.
#pragma once

#include <QColor>

class CGrapgColor
{
public:
    CGrapgColor() = default;
    // The next colour of the sequence; a new generator starts again at the first colour.
    QColor CreateColor();

private:
    int m_index = 0;
};
