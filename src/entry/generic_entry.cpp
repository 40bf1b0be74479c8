// The generic form of an entry.
#include "generic_entry.h"

#include "entry_guard.h"
#include "output_protocol.h"
#include "records/generic_record.h"
#include "run_algo_plugin.h"

#include <QJsonDocument>
#include <iostream>
#include <QJsonObject>

namespace algofactory
{

namespace
{

QString local(const char* value)
{
    return value ? QString::fromLocal8Bit(value) : QString();
}

bool runRecord(GenericAlgoRecord record, const QStringList& outputKeys, AlgoResult* result)
{
    AlgoParamHolder holder = record;
    AlgoRunContext context;
    const bool ok = RunAlgoPlugin(&context, record.algoName, &holder, result, QString());
    if (!ok)
        return false;
    for (const QString& key : outputKeys)
        printOutput(key.toLocal8Bit().constData(), record.args.value(key).toString());
    if (const GenericAlgoResult* produced = boost::any_cast<GenericAlgoResult>(&holder))
        for (int i = 0; i < produced->outputKeys.size() && i < produced->outputValues.size(); ++i)
            printOutput(produced->outputKeys[i].toLocal8Bit().constData(), produced->outputValues[i]);
    return true;
}

} // namespace

GenericArg text(const char* key, const char* value) { return {key, local(value), GenericArg::Role::Plain}; }
GenericArg requiredText(const char* key, const char* value) { return {key, local(value), GenericArg::Role::Required}; }
GenericArg outputPath(const char* key, const char* value) { return {key, local(value), GenericArg::Role::OutputPath}; }
GenericArg number(const char* key, int value) { return {key, value, GenericArg::Role::Plain}; }
GenericArg number(const char* key, long value) { return {key, qlonglong(value), GenericArg::Role::Plain}; }
GenericArg number(const char* key, float value) { return {key, value, GenericArg::Role::Plain}; }
GenericArg number(const char* key, double value) { return {key, value, GenericArg::Role::Plain}; }

namespace
{

enum class EntryForm
{
    Generic,
    Radar
};

bool runEntry(const char* algoName, std::initializer_list<GenericArg> args, AlgoResult* result, EntryForm form)
{
    return guardEntry(algoName, [&] {
        GenericAlgoRecord record;
        record.algoName = QString::fromLatin1(algoName);
        QStringList outputKeys;
        for (const GenericArg& arg : args)
        {
            const QString key = QString::fromLatin1(arg.key);
            if (arg.role != GenericArg::Role::Plain && arg.value.toString().isEmpty())
            {
                printError(QStringLiteral("%1: the parameter %2 is empty!").arg(record.algoName, key));
                return false;
            }
            if (arg.role == GenericArg::Role::OutputPath && form == EntryForm::Generic)
                outputKeys << key;
            record.keys << key;
            record.args.insert(key, arg.value);
        }
        if (form == EntryForm::Radar)
            std::cout << "Judge the rationality of input paramenters sucessfully" << std::endl;
        return runRecord(record, outputKeys, result);
    });
}

} // namespace

bool runGenericEntry(const char* algoName, std::initializer_list<GenericArg> args, AlgoResult* result)
{
    return runEntry(algoName, args, result, EntryForm::Generic);
}

bool runRadarGenericEntry(const char* algoName, std::initializer_list<GenericArg> args, AlgoResult* result)
{
    return runEntry(algoName, args, result, EntryForm::Radar);
}

bool runGenericJsonEntry(const char* algoName, const char* jsonText, const QStringList& requiredKeys,
                         const QStringList& outputKeys, AlgoResult* result)
{
    return guardEntry(algoName, [&] {
        const QString name = QString::fromLatin1(algoName);
        QJsonParseError error;
        const QJsonDocument document = QJsonDocument::fromJson(local(jsonText).toUtf8(), &error);
        if (error.error != QJsonParseError::NoError || !document.isObject())
        {
            printError(QStringLiteral("%1: the parameters are not a JSON object!").arg(name));
            return false;
        }
        GenericAlgoRecord record;
        record.algoName = name;
        const QJsonObject object = document.object();
        for (auto it = object.begin(); it != object.end(); ++it)
        {
            record.keys << it.key();
            record.args.insert(it.key(), it.value().toVariant());
        }
        for (const QString& key : requiredKeys)
            if (record.args.value(key).toString().isEmpty())
            {
                printError(QStringLiteral("%1: the parameter %2 is empty!").arg(name, key));
                return false;
            }
        return runRecord(record, outputKeys, result);
    });
}

} // namespace algofactory
