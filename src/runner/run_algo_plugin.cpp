// RunAlgoPlugin: load, create, connect progress, execute, report, hand back the result.
#include "run_algo_plugin.h"

#include "sys_data_source.h"
#include "sys_utility.h"

#include <QFileInfo>
#include <QLibrary>
#include <cstring>
#include <dlfcn.h>
#include <iostream>

namespace
{

QString libraryDirectory()
{
    Dl_info info;
    if (dladdr(reinterpret_cast<void*>(&PluginFilePath), &info) && info.dli_fname)
        return QFileInfo(QString::fromLocal8Bit(info.dli_fname)).absolutePath();
    return QString();
}

int forwardProgress(AlgoRunContext* context, double progress, const QString& message)
{
    if (!context->result || !context->result->callback)
        return 0;
    const QByteArray text = message.toLocal8Bit();
    return context->result->callback(progress, text.constData(), context->result->userData);
}

} // namespace

QString PluginFilePath(const QString& libraryName)
{
    const QString fileName = QStringLiteral("lib%1.so").arg(libraryName);
    for (const QString& dir : {libraryDirectory(), SysUtility::ApplicationDirPath()})
    {
        if (dir.isEmpty() || libraryName.contains('/'))
            continue;
        const QString candidate = dir + '/' + fileName;
        if (QFileInfo(candidate).isFile())
            return candidate;
    }
    return libraryName;
}

void WriteResultMessage(AlgoResult* result, const QByteArray& text)
{
    size_t length = std::min<size_t>(size_t(text.size()), ALGO_RESULT_MESSAGE_SIZE - 1);
    if (length < size_t(text.size()))
        while (length > 0 && (static_cast<unsigned char>(text[int(length)]) & 0xC0) == 0x80)
            --length; // do not split a multi-byte character
    std::memcpy(result->message, text.constData(), length);
    result->message[length] = '\0';
}

bool RunAlgoPlugin(AlgoRunContext* context, const QString& libraryName, AlgoParamHolder* params, AlgoResult* result,
                   QString algoName)
{
    // Plug-ins then find GDAL's drivers registered and leave the registration alone (see algokit::openRaster).
    SysDataSource::RegisterGdalDrivers();
    // Deleting a QLibrary does not unload it: plug-ins stay loaded for the life of the process.
    QLibrary* library = new QLibrary(PluginFilePath(libraryName));
    if (!library->load())
    {
        SysUtility::LogInfo::Instance()->Error(library->errorString());
        std::cout << "Load " << libraryName.toLocal8Bit().constData() << " algorithm plugin failed!" << std::endl;
        delete library;
        return false;
    }
    auto factory = reinterpret_cast<GetAlgoObjFunction>(library->resolve("GetAlgoObj"));
    delete library;
    if (!factory)
    {
        std::cout << "Resolve " << libraryName.toLocal8Bit().constData() << " GetAlgoObj failed!" << std::endl;
        return false;
    }
    IAlgorithm* algorithm = factory(algoName);
    if (!algorithm)
    {
        std::cout << "Create algo " << libraryName.toLocal8Bit().constData() << " failed!" << std::endl;
        return false;
    }

    context->result = result;
    algorithm->SetParams(params);
    algorithm->progressSignal.connect(
        [context](double progress, const QString& message, void*) { return forwardProgress(context, progress, message); });
    std::cout << "start call algorithm plugin: " << libraryName.toLocal8Bit().constData() << std::endl;

    bool ok = false;
    int code = 0;
    QString message;
    try
    {
        ok = algorithm->Execute();
        algorithm->GetError(&code, &message);
    }
    catch (...)
    {
        ok = false;
        code = 0;
    }
    if (!ok && code == 0)
    {
        code = -1;
        message = QStringLiteral("Failure");
    }
    if (context->result)
    {
        context->result->code = code;
        WriteResultMessage(context->result, message.toLocal8Bit());
    }

    AlgoParamHolder* produced = algorithm->GetResult();
    AlgoParamHolder clone = (produced && !produced->empty()) ? *produced : AlgoParamHolder();
    params->swap(clone); // the entry's record goes out with `clone`
    delete algorithm;
    return ok;
}
