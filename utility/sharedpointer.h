// sharedpointer.h - the reference-counted pointer of the object trees.
//
// Threads  Copies of one pointer may be used from several threads; the counter
//          is atomic.  The object itself is not guarded.
// Errors   Dereferencing an empty pointer throws CLhvException.

#ifndef LISTHAVEN_UTILITY_SHAREDPOINTER_H
#define LISTHAVEN_UTILITY_SHAREDPOINTER_H

#include <memory>
#include <type_traits>
#include <utility>

namespace Detail {
[[noreturn]] void ThrowNullArrow();
[[noreturn]] void ThrowNullConstArrow();
[[noreturn]] void ThrowNullDereference();
}  // namespace Detail

template <class T>
class CSharedPointer {
public:
    CSharedPointer() noexcept = default;
    explicit CSharedPointer(T* object) : m_object(object) {}  // takes it over

    template <class U, class = std::enable_if_t<std::is_convertible_v<U*, T*>>>
    CSharedPointer(const CSharedPointer<U>& other) noexcept : m_object(other.m_object) {}

    T* operator->() {
        if (!m_object) Detail::ThrowNullArrow();
        return m_object.get();
    }
    T* operator->() const {
        if (!m_object) Detail::ThrowNullConstArrow();
        return m_object.get();
    }
    T& operator*() const {
        if (!m_object) Detail::ThrowNullDereference();
        return *m_object;
    }

    T* get() const noexcept { return m_object.get(); }
    explicit operator bool() const noexcept { return static_cast<bool>(m_object); }
    bool operator==(const CSharedPointer& other) const noexcept { return m_object == other.m_object; }
    void reset() noexcept { m_object.reset(); }

    // Empty when the object is not a U.
    template <class U>
    CSharedPointer<U> As() const {
        CSharedPointer<U> result;
        result.m_object = std::dynamic_pointer_cast<U>(m_object);
        return result;
    }

private:
    template <class U>
    friend class CSharedPointer;

    std::shared_ptr<T> m_object;
};

template <class T, class... A>
CSharedPointer<T> MakeShared(A&&... arguments) {
    return CSharedPointer<T>(new T(std::forward<A>(arguments)...));
}

#endif  // LISTHAVEN_UTILITY_SHAREDPOINTER_H
