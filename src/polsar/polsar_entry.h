// Checks and plug-in run shared by the polarimetric entries; each entry passes its own literal messages.
#pragma once

#include "AlgoFactory.h"
#include "algorithm_interface.h"
#include "run_algo_plugin.h"
#include "sys_data_source.h"

#include <QString>
#include <QStringList>
#include <initializer_list>
#include <vector>

namespace algofactory::polsar
{

using RasterPtr = SysUtility::_ptr_t<SysDataSource::RasterDataset>;

// A text argument as UTF-8; null gives an empty text.
QString utf8Arg(const char* text);

// Prints "[ERROR] " + message and returns false, so a check reads `return refuse("...")`.
bool refuse(const QString& message);

// A text that must not be empty and the message printed when it is.
struct RequiredText
{
    QString value;
    const char* emptyMessage;
};
// Refuses with the message of the first empty text.
bool checkNotEmpty(std::initializer_list<RequiredText> texts);

// A raster to open and the message printed when it does not open as one.
struct RasterInput
{
    QString path;
    const char* openMessage;
};
// Opens the rasters in the order given (read-only); refuses with the message of the first that fails.
bool openRasters(std::initializer_list<RasterInput> inputs, std::vector<RasterPtr>& datasets);

// True when every dataset has exactly one band and its band 0 satisfies `typeOk` (a GDAL type code).
bool allSingleBand(const std::vector<RasterPtr>& datasets, bool (*typeOk)(int dataType));
// True when every dataset has the first one's width and height.
bool allSameSize(const std::vector<RasterPtr>& datasets);

// Position of `word` in `words` (case-sensitive), -1 when absent.
int wordIndex(const QString& word, const QStringList& words);

// The line every polarimetric entry prints once its checks have passed.
void printChecksPassed();

// Runs plug-in `pluginName` on `record`; afterwards `record` holds the plug-in's result record
// when it handed one back. Returns the runner's result.
template <typename Record> bool runPolsarPlugin(const char* pluginName, Record& record, AlgoResult* result)
{
    AlgoParamHolder holder = record;
    AlgoRunContext context;
    const bool ok = RunAlgoPlugin(&context, QString::fromLatin1(pluginName), &holder, result, QString());
    if (const Record* produced = boost::any_cast<Record>(&holder))
        record = *produced;
    return ok;
}

} // namespace algofactory::polsar
