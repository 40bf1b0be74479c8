// The standard-output protocol.
#include "output_protocol.h"

#include <iostream>

namespace algofactory
{

void printOutput(const char* key, const QString& value)
{
    std::cout << "[OUTPUT] " << key << "=\"" << value.toLocal8Bit().constData() << "\"" << std::endl;
}

void printError(const QString& message)
{
    std::cout << "[ERROR] " << message.toLocal8Bit().constData() << std::endl;
}

void printInfo(const QString& note)
{
    std::cout << "[INFO]" << note.toLocal8Bit().constData() << std::endl;
}

} // namespace algofactory
