// Archive unpacking with the suffix rules of the library's archive extraction (tar, tar.gz/tgz, tar.bz2,
// tar.xz, zip, gz, bz2, xz), run through the system's tools without a shell.
#pragma once

#include <QString>

namespace catalogue
{

// Whether the file name has one of the archive suffixes.
bool isArchive(const QString& fileName);

// The name without its archive suffix ("a.tar.gz" -> "a").
QString archiveStem(const QString& fileName);

// Unpacks into `folder` (which must exist); false and `error` when the tool fails or the suffix is not one
// of the rules.
bool unpackArchive(const QString& archive, const QString& folder, QString* error);

} // namespace catalogue
