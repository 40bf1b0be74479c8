// Downloads and uploads over HTTP(S) with libcurl.
#include "http_transfer.h"

#include <curl/curl.h>

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QUrl>

#include <chrono>
#include <memory>
#include <mutex>
#include <thread>

namespace catalogue
{

namespace
{

constexpr qint64 kMaxChecksumFileBytes = 64 * 1024;

void initialiseCurl()
{
    static std::once_flag once;
    std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
}

struct CurlDeleter
{
    void operator()(CURL* c) const { curl_easy_cleanup(c); }
};
using CurlPtr = std::unique_ptr<CURL, CurlDeleter>;

struct HeaderListDeleter
{
    void operator()(curl_slist* l) const { curl_slist_free_all(l); }
};
using HeaderList = std::unique_ptr<curl_slist, HeaderListDeleter>;

void commonOptions(CURL* curl, const QByteArray& url, const TransferPolicy& policy, QByteArray* headers)
{
    curl_easy_setopt(curl, CURLOPT_URL, url.constData());
    curl_easy_setopt(curl, CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(curl, CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
    // Test and fuzz runs stay on the loopback address: no redirect may lead elsewhere.
    curl_easy_setopt(curl, CURLOPT_FOLLOWLOCATION, loopbackOnly() ? 0L : 1L);
    curl_easy_setopt(curl, CURLOPT_MAXREDIRS, 10L);
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl, CURLOPT_CONNECTTIMEOUT, policy.connectTimeoutSeconds);
    curl_easy_setopt(curl, CURLOPT_LOW_SPEED_LIMIT, 1L);
    curl_easy_setopt(curl, CURLOPT_LOW_SPEED_TIME, policy.stallSeconds);
    curl_easy_setopt(curl, CURLOPT_USERAGENT, "AlgoFactory/1.0");
    curl_easy_setopt(
        curl, CURLOPT_HEADERFUNCTION, +[](char* data, size_t size, size_t count, void* user) -> size_t {
            auto* text = static_cast<QByteArray*>(user);
            // A new status line starts the headers of the next response (after a redirect).
            if (size * count > 5 && qstrncmp(data, "HTTP/", 5) == 0)
                text->clear();
            text->append(data, int(size * count));
            return size * count;
        });
    curl_easy_setopt(curl, CURLOPT_HEADERDATA, headers);
}

// Whether a failed try is worth another one.
bool transient(CURLcode code, long status)
{
    if (code == CURLE_OK)
        return status >= 500 || status == 408 || status == 429;
    switch (code)
    {
    case CURLE_UNSUPPORTED_PROTOCOL:
    case CURLE_URL_MALFORMAT:
    case CURLE_ABORTED_BY_CALLBACK:
    case CURLE_WRITE_ERROR:
    case CURLE_READ_ERROR:
    case CURLE_FILESIZE_EXCEEDED:
    case CURLE_LOGIN_DENIED:
    case CURLE_REMOTE_ACCESS_DENIED:
        return false;
    default:
        return true;
    }
}

void pause(const TransferPolicy& policy, int attempt)
{
    const double seconds = policy.firstDelaySeconds * double(1 << std::min(attempt, 6));
    std::this_thread::sleep_for(std::chrono::milliseconds(qint64(seconds * 1000.0)));
}

QString failureText(CURLcode code, long status, const char* detail)
{
    if (code == CURLE_OK)
        return QStringLiteral("the server answered HTTP %1").arg(status);
    const QString text = detail && *detail ? QString::fromUtf8(detail) : QString::fromUtf8(curl_easy_strerror(code));
    return text;
}

struct DownloadState
{
    QFile* file = nullptr;
    CURL* curl = nullptr;
    qint64 offset = 0;      // bytes in the file when the try started
    qint64 written = 0;     // bytes written in this try
    bool restarted = false; // the server ignored the Range request: the file starts over
    bool discard = false;   // an error status: its body is not the product
    const ByteProgress* progress = nullptr;
    bool stopped = false;
};

size_t writeBody(char* data, size_t size, size_t count, void* user)
{
    auto* state = static_cast<DownloadState*>(user);
    const size_t bytes = size * count;
    if (state->written == 0 && !state->restarted && !state->discard)
    {
        long status = 0;
        curl_easy_getinfo(state->curl, CURLINFO_RESPONSE_CODE, &status);
        if (status >= 300)
            state->discard = true;
        else if (state->offset > 0 && status == 200)
        {
            if (!state->file->resize(0) || !state->file->seek(0))
                return 0;
            state->restarted = true;
            state->offset = 0;
        }
    }
    if (state->discard)
        return bytes;
    if (state->file->write(data, qint64(bytes)) != qint64(bytes))
        return 0;
    state->written += qint64(bytes);
    return bytes;
}

int reportTransfer(void* user, curl_off_t downloadTotal, curl_off_t downloaded, curl_off_t uploadTotal,
                   curl_off_t uploaded)
{
    auto* state = static_cast<DownloadState*>(user);
    if (!state->progress || !*state->progress)
        return 0;
    const bool isUpload = uploadTotal > 0;
    const qint64 done = isUpload ? qint64(uploaded) : state->offset + qint64(downloaded);
    const qint64 total =
        isUpload ? qint64(uploadTotal) : (downloadTotal > 0 ? state->offset + qint64(downloadTotal) : 0);
    if (!(*state->progress)(done, total))
    {
        state->stopped = true;
        return 1;
    }
    return 0;
}

// GETs a small text (a checksum file beside the product); empty when absent.
QByteArray fetchSmallText(const QByteArray& url, const TransferPolicy& policy)
{
    CurlPtr curl(curl_easy_init());
    if (!curl)
        return QByteArray();
    QByteArray headers, body;
    commonOptions(curl.get(), url, policy, &headers);
    curl_easy_setopt(curl.get(), CURLOPT_FAILONERROR, 1L);
    curl_easy_setopt(curl.get(), CURLOPT_MAXFILESIZE_LARGE, curl_off_t(kMaxChecksumFileBytes));
    curl_easy_setopt(
        curl.get(), CURLOPT_WRITEFUNCTION, +[](char* data, size_t size, size_t count, void* user) -> size_t {
            auto* text = static_cast<QByteArray*>(user);
            if (text->size() + qint64(size * count) > kMaxChecksumFileBytes)
                return 0;
            text->append(data, int(size * count));
            return size * count;
        });
    curl_easy_setopt(curl.get(), CURLOPT_WRITEDATA, &body);
    return curl_easy_perform(curl.get()) == CURLE_OK ? body : QByteArray();
}

// The first token of a checksum file ("<hex>  <name>") when it is a digest of the expected length.
QString hexFromChecksumFile(const QByteArray& text, int hexLength)
{
    const QString token = QString::fromLatin1(text).trimmed().section(QRegularExpression(QStringLiteral("\\s+")), 0, 0);
    static const QRegularExpression hex(QStringLiteral("^[0-9a-fA-F]+$"));
    return token.size() == hexLength && hex.match(token).hasMatch() ? token.toLower() : QString();
}

} // namespace

bool loopbackOnly()
{
    return qEnvironmentVariableIsSet("ALGO_NETWORK_LOOPBACK_ONLY");
}

bool isHttpUrl(const QString& url)
{
    const QUrl parsed(url, QUrl::StrictMode);
    const QString scheme = parsed.scheme().toLower();
    const QString host = parsed.host().toLower();
    if (!parsed.isValid() || (scheme != QLatin1String("http") && scheme != QLatin1String("https")) || host.isEmpty())
        return false;
    return !loopbackOnly() || host == QLatin1String("127.0.0.1") || host == QLatin1String("localhost") ||
           host == QLatin1String("::1");
}

QString urlProblem(const QString& url)
{
    if (isHttpUrl(url))
        return QString();
    const QUrl parsed(url, QUrl::StrictMode);
    const QString scheme = parsed.scheme().toLower();
    if (loopbackOnly() && parsed.isValid() && !parsed.host().isEmpty() &&
        (scheme == QLatin1String("http") || scheme == QLatin1String("https")))
        return QStringLiteral("is not on the loopback address, the only one allowed while ALGO_NETWORK_LOOPBACK_ONLY "
                              "is set");
    return QStringLiteral("is not an http:// or https:// address");
}

QString downloadFileName(const QString& url)
{
    QString name = QUrl(url).fileName(QUrl::FullyDecoded);
    name.remove(QLatin1Char('/')).remove(QLatin1Char('\\')).remove(QChar(0));
    if (name.isEmpty() || name == QLatin1String(".") || name == QLatin1String(".."))
        return QStringLiteral("download");
    return name.left(200);
}

QString fileDigest(const QString& path, const QString& kind)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return QString();
    QCryptographicHash hash(kind == QLatin1String("MD5") ? QCryptographicHash::Md5 : QCryptographicHash::Sha256);
    if (!hash.addData(&file))
        return QString();
    return QString::fromLatin1(hash.result().toHex());
}

bool checksumFromHeaders(const QByteArray& headers, QString* kind, QString* hex)
{
    for (const QByteArray& rawLine : headers.split('\n'))
    {
        const QByteArray line = rawLine.trimmed();
        const int colon = line.indexOf(':');
        if (colon < 0)
            continue;
        const QByteArray name = line.left(colon).trimmed().toLower();
        const QByteArray value = line.mid(colon + 1).trimmed();
        if (name == "x-checksum-sha256" && value.size() == 64)
        {
            *kind = QStringLiteral("SHA-256");
            *hex = QString::fromLatin1(value).toLower();
            return true;
        }
        if (name == "digest" || name == "content-md5")
        {
            // Digest: SHA-256=<base64>[, MD5=<base64>] (RFC 3230); Content-MD5: <base64> (RFC 1864).
            for (const QByteArray& item : (name == "digest" ? value.split(',') : QList<QByteArray>{"md5=" + value}))
            {
                const int eq = item.indexOf('=');
                const QByteArray algorithm = item.left(eq).trimmed().toLower();
                const QByteArray digest = QByteArray::fromBase64(item.mid(eq + 1).trimmed());
                if (algorithm == "sha-256" && digest.size() == 32)
                    *kind = QStringLiteral("SHA-256");
                else if (algorithm == "md5" && digest.size() == 16)
                    *kind = QStringLiteral("MD5");
                else
                    continue;
                *hex = QString::fromLatin1(digest.toHex());
                return true;
            }
        }
    }
    return false;
}

DownloadResult download(const QString& url, const QString& folder, const TransferPolicy& policy,
                        const ByteProgress& progress)
{
    initialiseCurl();
    DownloadResult result;
    const QString finalPath = QDir(folder).filePath(downloadFileName(url));
    const QString partPath = finalPath + QStringLiteral(".part");
    // The address without its fragment: a fragment never goes to the server.
    const QByteArray address = QUrl(url).adjusted(QUrl::RemoveFragment).toEncoded();
    QByteArray headers;
    CURLcode code = CURLE_OK;
    long status = 0;
    char detail[CURL_ERROR_SIZE] = {0};
    bool complete = false;
    for (int attempt = 0; attempt < policy.attempts && !complete; ++attempt)
    {
        if (attempt > 0)
            pause(policy, attempt - 1);
        result.attempts = attempt + 1;
        QFile file(partPath);
        if (!file.open(QIODevice::ReadWrite | QIODevice::Append))
        {
            result.error = QStringLiteral("%1 cannot be written").arg(partPath);
            return result;
        }
        DownloadState state;
        state.file = &file;
        state.offset = file.size();
        state.progress = &progress;
        CurlPtr curl(curl_easy_init());
        if (!curl)
        {
            result.error = QStringLiteral("the HTTP client cannot start");
            return result;
        }
        state.curl = curl.get();
        headers.clear();
        detail[0] = 0;
        commonOptions(curl.get(), address, policy, &headers);
        curl_easy_setopt(curl.get(), CURLOPT_ERRORBUFFER, detail);
        curl_easy_setopt(curl.get(), CURLOPT_WRITEFUNCTION, writeBody);
        curl_easy_setopt(curl.get(), CURLOPT_WRITEDATA, &state);
        curl_easy_setopt(curl.get(), CURLOPT_NOPROGRESS, 0L);
        curl_easy_setopt(curl.get(), CURLOPT_XFERINFOFUNCTION, reportTransfer);
        curl_easy_setopt(curl.get(), CURLOPT_XFERINFODATA, &state);
        // A Range header rather than libcurl's resume option: a server that ignores it answers 200 with the
        // whole file, which writeBody then takes from the start instead of failing the try.
        const QByteArray range = QByteArray::number(state.offset) + "-";
        if (state.offset > 0)
            curl_easy_setopt(curl.get(), CURLOPT_RANGE, range.constData());
        code = curl_easy_perform(curl.get());
        status = 0;
        curl_easy_getinfo(curl.get(), CURLINFO_RESPONSE_CODE, &status);
        file.close();
        if (state.stopped)
        {
            result.cancelled = true;
            result.error = QStringLiteral("stopped");
            QFile::remove(partPath);
            return result;
        }
        // 416: nothing is left beyond what the file holds, i.e. an earlier try got all of it.
        if (code == CURLE_OK && status == 416 && state.offset > 0)
        {
            complete = true;
            result.resumedFrom = state.offset;
            break;
        }
        if (code == CURLE_OK && status >= 200 && status < 300)
        {
            complete = true;
            result.resumedFrom = state.offset;
            break;
        }
        if (!transient(code, status))
            break;
    }
    if (!complete)
    {
        result.error = failureText(code, status, detail);
        QFile::remove(partPath);
        return result;
    }

    // The checksum the server states, else one published beside the file.
    QString kind, expected;
    if (!checksumFromHeaders(headers, &kind, &expected))
    {
        expected = hexFromChecksumFile(fetchSmallText(address + ".sha256", policy), 64);
        kind = QStringLiteral("SHA-256");
        if (expected.isEmpty())
        {
            expected = hexFromChecksumFile(fetchSmallText(address + ".md5", policy), 32);
            kind = expected.isEmpty() ? QString() : QStringLiteral("MD5");
        }
    }
    if (!kind.isEmpty())
    {
        const QString actual = fileDigest(partPath, kind);
        if (actual != expected)
        {
            QFile::remove(partPath);
            result.error = QStringLiteral("the %1 checksum of the file (%2) differs from the server's (%3)")
                               .arg(kind, actual, expected);
            return result;
        }
        result.checksumKind = kind;
        result.checksum = actual;
    }
    QFile::remove(finalPath);
    if (!QFile::rename(partPath, finalPath))
    {
        QFile::remove(partPath);
        result.error = QStringLiteral("%1 cannot be written").arg(finalPath);
        return result;
    }
    result.ok = true;
    result.path = finalPath;
    result.bytes = QFileInfo(finalPath).size();
    return result;
}

UploadResult upload(const QString& path, const QString& url, const QString& method, const QString& fieldName,
                    const TransferPolicy& policy, const ByteProgress& progress)
{
    initialiseCurl();
    UploadResult result;
    result.sha256 = fileDigest(path, QStringLiteral("SHA-256"));
    if (result.sha256.isEmpty())
    {
        result.error = QStringLiteral("%1 cannot be read").arg(path);
        return result;
    }
    result.bytes = QFileInfo(path).size();
    const QByteArray address = QUrl(url).adjusted(QUrl::RemoveFragment).toEncoded();
    const QByteArray digest = QByteArray::fromHex(result.sha256.toLatin1()).toBase64();
    CURLcode code = CURLE_OK;
    long status = 0;
    char detail[CURL_ERROR_SIZE] = {0};
    for (int attempt = 0; attempt < policy.attempts; ++attempt)
    {
        if (attempt > 0)
            pause(policy, attempt - 1);
        result.attempts = attempt + 1;
        CurlPtr curl(curl_easy_init());
        if (!curl)
        {
            result.error = QStringLiteral("the HTTP client cannot start");
            return result;
        }
        QByteArray headers;
        detail[0] = 0;
        commonOptions(curl.get(), address, policy, &headers);
        curl_easy_setopt(curl.get(), CURLOPT_ERRORBUFFER, detail);
        HeaderList list(curl_slist_append(nullptr, ("X-Checksum-Sha256: " + result.sha256.toLatin1()).constData()));
        curl_slist_append(list.get(), ("Digest: SHA-256=" + digest).constData());
        // No "Expect: 100-continue" round trip: servers that do not answer it would cost a second per try.
        curl_slist_append(list.get(), "Expect:");
        QFile file(path);
        if (!file.open(QIODevice::ReadOnly))
        {
            result.error = QStringLiteral("%1 cannot be read").arg(path);
            return result;
        }
        std::unique_ptr<curl_mime, decltype(&curl_mime_free)> mime(nullptr, curl_mime_free);
        if (method == QLatin1String("POST"))
        {
            mime.reset(curl_mime_init(curl.get()));
            curl_mimepart* part = curl_mime_addpart(mime.get());
            curl_mime_name(part, fieldName.toUtf8().constData());
            curl_mime_filename(part, QFileInfo(path).fileName().toUtf8().constData());
            curl_mime_type(part, "application/octet-stream");
            curl_mime_data_cb(
                part, curl_off_t(result.bytes),
                +[](char* buffer, size_t size, size_t count, void* user) -> size_t {
                    const qint64 n = static_cast<QFile*>(user)->read(buffer, qint64(size * count));
                    return n < 0 ? CURL_READFUNC_ABORT : size_t(n);
                },
                +[](void* user, curl_off_t offset, int origin) -> int {
                    auto* f = static_cast<QFile*>(user);
                    const qint64 target = origin == SEEK_SET ? qint64(offset) : f->pos() + qint64(offset);
                    return f->seek(target) ? CURL_SEEKFUNC_OK : CURL_SEEKFUNC_FAIL;
                },
                nullptr, &file);
            curl_easy_setopt(curl.get(), CURLOPT_MIMEPOST, mime.get());
        }
        else
        {
            curl_slist_append(list.get(), "Content-Type: application/octet-stream");
            curl_easy_setopt(curl.get(), CURLOPT_UPLOAD, 1L);
            curl_easy_setopt(curl.get(), CURLOPT_INFILESIZE_LARGE, curl_off_t(result.bytes));
            curl_easy_setopt(
                curl.get(), CURLOPT_READFUNCTION, +[](char* buffer, size_t size, size_t count, void* user) -> size_t {
                    const qint64 n = static_cast<QFile*>(user)->read(buffer, qint64(size * count));
                    return n < 0 ? CURL_READFUNC_ABORT : size_t(n);
                });
            curl_easy_setopt(curl.get(), CURLOPT_READDATA, &file);
        }
        curl_easy_setopt(curl.get(), CURLOPT_HTTPHEADER, list.get());
        QByteArray response;
        curl_easy_setopt(
            curl.get(), CURLOPT_WRITEFUNCTION, +[](char* data, size_t size, size_t count, void* user) -> size_t {
                auto* text = static_cast<QByteArray*>(user);
                if (text->size() < 65536)
                    text->append(data, int(std::min<size_t>(size * count, 65536)));
                return size * count;
            });
        curl_easy_setopt(curl.get(), CURLOPT_WRITEDATA, &response);
        DownloadState state;
        state.progress = &progress;
        curl_easy_setopt(curl.get(), CURLOPT_NOPROGRESS, 0L);
        curl_easy_setopt(curl.get(), CURLOPT_XFERINFOFUNCTION, reportTransfer);
        curl_easy_setopt(curl.get(), CURLOPT_XFERINFODATA, &state);
        code = curl_easy_perform(curl.get());
        status = 0;
        curl_easy_getinfo(curl.get(), CURLINFO_RESPONSE_CODE, &status);
        result.status = status;
        if (state.stopped)
        {
            result.cancelled = true;
            result.error = QStringLiteral("stopped");
            return result;
        }
        if (code == CURLE_OK && status >= 200 && status < 300)
        {
            result.ok = true;
            return result;
        }
        if (!transient(code, status))
            break;
    }
    result.error = failureText(code, status, detail);
    return result;
}

} // namespace catalogue
