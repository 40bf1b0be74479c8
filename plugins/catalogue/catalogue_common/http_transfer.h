// HTTP(S) transfers through libcurl: downloads that resume with Range requests, retry with back-off, check the
// checksum the server states and never leave a partial file under the final name; uploads by PUT or
// multipart POST with a checksum header.
#pragma once

#include <QByteArray>
#include <QString>
#include <functional>

namespace catalogue
{

struct TransferPolicy
{
    int attempts = 4;               // tries in all
    double firstDelaySeconds = 0.5; // doubled after each failed try
    long connectTimeoutSeconds = 15;
    long stallSeconds = 30; // a transfer slower than 1 byte/s for this long is dropped
};

// Bytes done and expected (0 when unknown); return false to stop.
using ByteProgress = std::function<bool(qint64 done, qint64 total)>;

// True for http:// and https:// addresses with a host; when the environment variable ALGO_NETWORK_LOOPBACK_ONLY
// is set (test and fuzz runs), only for hosts on the loopback address.
bool isHttpUrl(const QString& url);

// Whether ALGO_NETWORK_LOOPBACK_ONLY is set.
bool loopbackOnly();

// Why an address is refused (the rule broken, for a refusal message), or empty when it is usable.
QString urlProblem(const QString& url);

// The file name a download is saved under: the last segment of the address's path, percent-decoded,
// or "download" when it has none.
QString downloadFileName(const QString& url);

struct DownloadResult
{
    bool ok = false;
    bool cancelled = false;
    QString error; // why it failed, in words
    QString path;  // the final file
    qint64 bytes = 0;
    qint64 resumedFrom = 0; // bytes already there when the last successful try started
    int attempts = 0;
    QString checksumKind; // "SHA-256" or "MD5", empty when the server stated none
    QString checksum;     // hexadecimal, of the file written
};

// Downloads `url` into `folder` (which must exist) through "<name>.part", renamed once complete and checked.
DownloadResult download(const QString& url, const QString& folder, const TransferPolicy& policy,
                        const ByteProgress& progress);

struct UploadResult
{
    bool ok = false;
    bool cancelled = false;
    QString error;
    long status = 0;
    QString sha256;
    qint64 bytes = 0;
    int attempts = 0;
};

// Uploads a file by "PUT" (the body is the file) or "POST" (multipart/form-data, the file in `fieldName`),
// with the headers X-Checksum-Sha256 and Digest.
UploadResult upload(const QString& file, const QString& url, const QString& method, const QString& fieldName,
                    const TransferPolicy& policy, const ByteProgress& progress);

// Hexadecimal digest of a file ("SHA-256" or "MD5"); empty when it cannot be read.
QString fileDigest(const QString& path, const QString& kind);

// The checksum stated in response headers (Digest, X-Checksum-Sha256, Content-MD5), as kind and hex.
bool checksumFromHeaders(const QByteArray& headers, QString* kind, QString* hex);

} // namespace catalogue
