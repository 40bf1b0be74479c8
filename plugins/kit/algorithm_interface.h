// The contract between the library and its algorithm plug-ins: IAlgorithm, AlgoParamHolder, GetAlgoObj.
#pragma once

#include <QString>
#include <boost/any.hpp>
#include <boost/optional.hpp>
#include <boost/signals2/signal.hpp>

// Type-erased owning holder for parameter records going in and result records coming out.
using AlgoParamHolder = boost::any;

// The progress signal's combiner yields the value that the last connected slot returned.
using AlgoProgressSignal = boost::signals2::signal<int(double progress, const QString& message, void* data)>;

// The algorithm object a plug-in's GetAlgoObj creates. The runner calls, in vtable order,
// the destructor, GetResult, SetParams, GetError and Execute; the other slots serve hosts
// that inspect plug-ins.
class __attribute__((visibility("default"))) IAlgorithm
{
public:
    virtual ~IAlgorithm() = default;
    virtual QString GetName() const = 0;
    virtual QString GetVersion() const = 0;
    virtual QString GetDescription() const = 0;
    virtual bool IsCancelled() const = 0;
    virtual AlgoParamHolder* GetResult() = 0;
    virtual void SetParams(AlgoParamHolder* params) = 0;
    virtual void GetError(int* code, QString* message) = 0;
    virtual void Cancel() = 0;
    virtual bool Execute() = 0;

    AlgoProgressSignal progressSignal;
};

// Signature of the factory symbol "GetAlgoObj" that every plug-in exports.
using GetAlgoObjFunction = IAlgorithm* (*)(QString algoName);

// Record types cross shared-library boundaries inside AlgoParamHolder; they keep default
// visibility so that any_cast in a plug-in recognises a record made in the library.
#define ALGO_RECORD __attribute__((visibility("default")))
