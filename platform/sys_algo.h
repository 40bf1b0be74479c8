// SysAlgo: the host's own algorithms, created by name through AlgoFactory and executed by it.
#pragma once

#include "sys_utility.h"

#include <QString>
#include <boost/any.hpp>

namespace SysAlgo
{

class AlgoFactory;

// A host algorithm: parameters in, Execute through the factory, error and result out.
class Algorithm : public SysUtility::RefObject
{
public:
    explicit Algorithm(QString name) : m_name(std::move(name)) {}
    const QString& GetName() const { return m_name; }
    void SetParameter(const boost::any& parameter) { m_parameter = parameter; }
    void SetCommandText(const QString& text) { m_commandText = text; }
    void SetCaption(const QString& caption) { m_caption = caption; }
    const QString& GetCommandText() const { return m_commandText; }
    const QString& GetCaption() const { return m_caption; }
    void GetError(int* code, QString* message) const;
    const boost::any& GetResult() const { return m_result; }

protected:
    friend class AlgoFactory;
    virtual bool Execute() = 0;
    // Records the error and returns false, so Execute can `return fail(...)`.
    bool fail(const QString& message, int code = -1);
    template <typename T> T* parameter() { return boost::any_cast<T>(&m_parameter); }

    boost::any m_parameter;
    boost::any m_result;

private:
    QString m_name;
    QString m_commandText;
    QString m_caption;
    int m_code = 0;
    QString m_message;
};

class AlgoFactory
{
public:
    static AlgoFactory* Instance();
    // Null for a name the host does not know ("ROIStatistics", "ImgClassPostPA" are known).
    SysUtility::_ptr_t<Algorithm> CreateAlgorithm(const QString& name) const;
    // Runs the algorithm; an exception inside becomes its error. False on failure.
    bool ExecuteAlgorithm(Algorithm* algorithm) const;
};

} // namespace SysAlgo
