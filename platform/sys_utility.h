// SysUtility: the host log, the application directory and reference-counted host objects.
#pragma once

#include <QString>
#include <atomic>
#include <utility>

namespace SysUtility
{

// Directory of the running executable: QCoreApplication's when an application object exists,
// otherwise the directory of /proc/self/exe, so hosts without a Qt application work too.
QString ApplicationDirPath();

// The host's log: one time-stamped line per message, appended to "AlgoPlatform_log.txt" in the
// application directory. Thread-safe.
class LogInfo
{
public:
    static LogInfo* Instance();
    void Info(const QString& message);
    void Error(const QString& message);
    QString FilePath() const;

private:
    LogInfo() = default;
    void write(const char* level, const QString& message);
};

// Base of reference-counted host objects (datasets, bands, colour tables).
class RefObject
{
public:
    virtual ~RefObject() = default;
    void AddRef() const { m_refs.fetch_add(1, std::memory_order_relaxed); }
    void Release() const
    {
        if (m_refs.fetch_sub(1, std::memory_order_acq_rel) == 1)
            delete this;
    }

private:
    mutable std::atomic<int> m_refs{0};
};

// Intrusive smart pointer to a RefObject.
template <typename T> class _ptr_t
{
public:
    _ptr_t() = default;
    _ptr_t(T* object) : m_object(object) { if (m_object) m_object->AddRef(); }
    _ptr_t(const _ptr_t& other) : _ptr_t(other.m_object) {}
    _ptr_t(_ptr_t&& other) noexcept : m_object(std::exchange(other.m_object, nullptr)) {}
    ~_ptr_t() { if (m_object) m_object->Release(); }
    _ptr_t& operator=(_ptr_t other) noexcept
    {
        std::swap(m_object, other.m_object);
        return *this;
    }
    T* get() const { return m_object; }
    T* operator->() const { return m_object; }
    T& operator*() const { return *m_object; }
    explicit operator bool() const { return m_object != nullptr; }
    bool operator==(std::nullptr_t) const { return m_object == nullptr; }
    bool operator!=(std::nullptr_t) const { return m_object != nullptr; }

private:
    T* m_object = nullptr;
};

} // namespace SysUtility
