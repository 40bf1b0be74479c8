// Helpers shared by the fuzz targets: a private working folder, a file holding the input, a Qt application.
#pragma once

#include <QByteArray>
#include <QString>
#include <cstddef>
#include <cstdint>

namespace fuzzsupport
{

// Makes a private temporary folder the working directory (run logs and stray outputs land there),
// puts Qt on the offscreen platform and creates one application for the process.
void setUpProcess(int* argc, char*** argv);

// The private folder made by setUpProcess.
const QString& workFolder();

// Writes the input to <workFolder>/<name> and returns that path.
QString writeInput(const char* name, const uint8_t* data, size_t size);

} // namespace fuzzsupport
