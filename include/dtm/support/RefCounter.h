#pragma once

/// @file
/// Reference counting shared by projects, entities, change contexts, mementos and triangles.

#include <dtm/support/Export.h>

#include <atomic>
#include <cstdint>
#include <utility>

namespace kor {

/// Base of every shared object. A new object holds one reference, owned by its creator; the
/// object destroys itself when the last reference is released. Never delete one directly.
class DTM_API IRefCounter {
public:
    /// Takes one more reference. The only atomic operation of the library.
    void AddReference() const noexcept { m_count.fetch_add(1, std::memory_order_relaxed); }

    /// Releases one reference and destroys the object when it was the last one. Whoever holds
    /// the only reference is the only one who could take another, so a count of one read here
    /// cannot change before the object goes: it is destroyed without the atomic decrement, which
    /// costs tens of cycles even on memory in the cache (a network's teardown releases millions
    /// of triangles).
    void SubReference() const noexcept {
        if (m_count.load(std::memory_order_acquire) == 1 ||
            m_count.fetch_sub(1, std::memory_order_acq_rel) == 1)
            delete this;
    }

    /// The number of references held now; for diagnostics and tests.
    std::int32_t GetReferenceCount() const noexcept {
        return m_count.load(std::memory_order_relaxed);
    }

protected:
    IRefCounter() noexcept : m_count(1) {}
    /// A copy is a new object: it starts with its own single reference.
    IRefCounter(const IRefCounter&) noexcept : m_count(1) {}
    /// Assignment copies the state of the derived object, never the reference count.
    IRefCounter& operator=(const IRefCounter&) noexcept { return *this; }
    virtual ~IRefCounter();

private:
    mutable std::atomic<std::int32_t> m_count;
};

/// Smart handle on a reference-counted object: adds a reference on copy, releases one on
/// destruction, so that a release can never be forgotten on any path, exceptions included.
template <class T>
class CRefPtr {
public:
    CRefPtr() noexcept = default;

    /// Takes over the reference the caller holds (for example the one of a new object).
    static CRefPtr Adopt(T* object) noexcept { return CRefPtr(object); }

    /// Takes a reference of its own on @p object.
    static CRefPtr Share(T* object) noexcept {
        if (object) object->AddReference();
        return CRefPtr(object);
    }

    CRefPtr(const CRefPtr& other) noexcept : m_object(other.m_object) {
        if (m_object) m_object->AddReference();
    }
    CRefPtr(CRefPtr&& other) noexcept : m_object(other.m_object) { other.m_object = nullptr; }
    CRefPtr& operator=(CRefPtr other) noexcept {
        std::swap(m_object, other.m_object);
        return *this;
    }
    ~CRefPtr() { Reset(); }

    /// Releases the held reference, if any.
    void Reset() noexcept {
        if (m_object) m_object->SubReference();
        m_object = nullptr;
    }

    /// Gives the held reference to the caller, who must release it later.
    T* Detach() noexcept {
        T* object = m_object;
        m_object = nullptr;
        return object;
    }

    T* Get() const noexcept { return m_object; }
    T* operator->() const noexcept { return m_object; }
    T& operator*() const noexcept { return *m_object; }
    explicit operator bool() const noexcept { return m_object != nullptr; }

private:
    explicit CRefPtr(T* object) noexcept : m_object(object) {}
    T* m_object = nullptr;
};

}  // namespace kor
