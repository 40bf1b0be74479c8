// The plug-in base: lifecycle, error, result, progress and cancellation, so a plug-in writes only run().
#pragma once

#include "algorithm_interface.h"

#include <QString>
#include <QStringList>
#include <stdexcept>

namespace algokit
{

// Code reported when the host's progress callback asked the algorithm to stop.
constexpr int kCancelledCode = -2;
extern const char* const kCancelledMessage;

// Thrown from progress() when the host asked to stop; caught by Execute().
struct Cancelled
{
};

// A failure with the code and message the plug-in wants the caller to read.
class AlgoError : public std::runtime_error
{
public:
    explicit AlgoError(const QString& message, int code = -1)
        : std::runtime_error(message.toStdString()), m_code(code), m_message(message)
    {
    }
    int code() const { return m_code; }
    const QString& message() const { return m_message; }

private:
    int m_code;
    QString m_message;
};

class PluginBase : public IAlgorithm
{
public:
    explicit PluginBase(QString name) : m_name(std::move(name)) {}

    QString GetName() const override { return m_name; }
    QString GetVersion() const override { return QStringLiteral("1.0"); }
    QString GetDescription() const override { return m_name; }
    bool IsCancelled() const override { return m_cancelled; }
    AlgoParamHolder* GetResult() override { return &m_result; }
    void SetParams(AlgoParamHolder* params) override;
    void GetError(int* code, QString* message) override;
    void Cancel() override { m_cancelled = true; }
    bool Execute() override;

protected:
    // The computation. Return false after fail() or throw AlgoError; both reach the caller.
    virtual bool run() = 0;

    // The parameter record handed in, as type T; throws AlgoError when it holds something else.
    template <typename T> const T& params() const
    {
        const T* record = boost::any_cast<T>(&m_params);
        if (!record)
            throw AlgoError(QStringLiteral("%1: unexpected parameter record").arg(m_name));
        return *record;
    }
    bool holdsParams(const std::type_info& type) const { return m_params.type() == type; }
    const AlgoParamHolder& paramHolder() const { return m_params; }

    template <typename T> void setResult(T value) { m_result = std::move(value); }

    // Records the error that GetError reports; returns false so that run() can `return fail(...)`.
    bool fail(const QString& message, int code = -1);

    // Reports progress in percent (kept monotonic, at most 100). Throws Cancelled when the host
    // asks to stop; Execute() turns that into kCancelledCode.
    void progress(double percent, const QString& message = QString());

    // Registers a file this run writes (raster or text): it is deleted if the run fails or is stopped.
    void claimOutput(const QString& path) { m_claimedOutputs << path; }

    // Called once after a failure or cancellation, after the claimed outputs are deleted: remove
    // whatever else was half written.
    virtual void discardOutputs() {}

private:
    QString m_name;
    AlgoParamHolder m_params;
    AlgoParamHolder m_result;
    int m_code = 0;
    QString m_message;
    double m_lastProgress = 0.0;
    bool m_cancelled = false;
    QStringList m_claimedOutputs;
};

} // namespace algokit

// Exports the factory of a plug-in whose algorithm class is default-constructible.
#define ALGO_PLUGIN_FACTORY(ClassName)                                                             \
    extern "C" __attribute__((visibility("default"))) IAlgorithm* GetAlgoObj(QString)              \
    {                                                                                              \
        try                                                                                        \
        {                                                                                          \
            return new ClassName();                                                                \
        }                                                                                          \
        catch (...)                                                                                \
        {                                                                                          \
            return nullptr;                                                                        \
        }                                                                                          \
    }
