#pragma once
#include <zeb/Export.h>
#include <zeb/Memory.h>
#include <utility>

namespace zeb {

// The object of an owning holder; an empty holder has none to give, which is the caller's
// broken precondition.
template <class T> T& heldObject(T* object) {
    if (!object) throw AssertionFailure("zeb/Resource", __LINE__, "holder is not empty");
    return *object;
}

// Storage of a plain heap object. Two policies exist:
//   PointerStorage<T,0,3>: owned, deleted by the last owner (inside SharedResource/TransferResource);
//   PointerStorage<T,3,2>: borrowed, never deleted (inside CopiedResource).
template <class T, int Ownership, int Copying> class PointerStorage;

template <class T> class PointerStorage<T, 0, 3> {
public:
    typedef T element_type;
    typedef T* pointer_type;
    static void destroy(T* object) { delete object; }
};

template <class T> class PointerStorage<T, 3, 2> {
public:
    typedef T element_type;
    typedef T* pointer_type;
    static void acquire(T*) {}
    static void release(T*) {}
};

// Value holder whose copies follow the storage's rule: each copy of a COM interface owns one
// reference; a borrowed pointer is copied as it is.
template <class Storage> class CopiedResource {
public:
    typedef typename Storage::element_type element_type;

    CopiedResource() : m_pointer(nullptr) {}
    // Adopts the pointer as it is: a freshly created interface is taken without an extra reference.
    explicit CopiedResource(element_type* pointer) : m_pointer(pointer) {}
    CopiedResource(const CopiedResource& other) : m_pointer(other.m_pointer) {
        if (m_pointer) Storage::acquire(m_pointer);
    }
    CopiedResource(CopiedResource&& other) noexcept : m_pointer(other.m_pointer) { other.m_pointer = nullptr; }
    // A Release that throws reaches the caller, from here as from reset() and assignment.
    ~CopiedResource() noexcept(false) { reset(); }

    CopiedResource& operator=(const CopiedResource& other) {
        if (this == &other) return *this;
        element_type* old = m_pointer;
        element_type* taken = other.m_pointer;
        if (taken) Storage::acquire(taken);
        m_pointer = taken;
        if (old) Storage::release(old);
        return *this;
    }
    CopiedResource& operator=(CopiedResource&& other) {
        if (this != &other) {
            element_type* old = m_pointer;
            m_pointer = other.m_pointer;
            other.m_pointer = nullptr;
            if (old) Storage::release(old);
        }
        return *this;
    }

    // Drops the held reference (if any) and adopts pointer.
    void reset(element_type* pointer = nullptr) {
        element_type* old = m_pointer;
        m_pointer = pointer;
        if (old) Storage::release(old);
    }
    // Hands the pointer (and its reference) to the caller.
    element_type* release() {
        element_type* pointer = m_pointer;
        m_pointer = nullptr;
        return pointer;
    }
    // Address to receive a new interface from a creating call; drops what was held first.
    element_type** receive() {
        reset();
        return &m_pointer;
    }

    element_type* get() const { return m_pointer; }
    element_type* operator->() const { return m_pointer; }
    element_type& operator*() const { return *m_pointer; }
    bool isNull() const { return m_pointer == nullptr; }
    explicit operator bool() const { return m_pointer != nullptr; }
    bool operator==(const CopiedResource& other) const { return m_pointer == other.m_pointer; }
    bool operator!=(const CopiedResource& other) const { return m_pointer != other.m_pointer; }

private:
    element_type* m_pointer;
};

// Polymorphic deleter of a shared object.
class ZEB_API SharedResourceDestroyerBase {
public:
    ZEB_POOLED_OBJECT("a shared holder's destroyer")
    virtual ~SharedResourceDestroyerBase();
    // Forgets the object without deleting it (ownership went elsewhere).
    virtual void reset() = 0;
};

template <class Storage> class SharedResourceDestroyer : public SharedResourceDestroyerBase {
public:
    typedef typename Storage::element_type element_type;
    explicit SharedResourceDestroyer(element_type* object) : m_object(object) {}
    ~SharedResourceDestroyer() override {
        if (m_object) Storage::destroy(m_object);
    }
    void reset() override { m_object = nullptr; }

private:
    element_type* m_object;
};

// Reference-counted owner; the last owner deletes the object. Counts are not atomic.
template <class Storage, int Flags = 0> class SharedResource {
public:
    typedef typename Storage::element_type element_type;

    SharedResource() : m_object(nullptr), m_count(nullptr), m_destroyer(nullptr) {}
    explicit SharedResource(element_type* object) : m_object(nullptr), m_count(nullptr), m_destroyer(nullptr) {
        adopt(object);
    }
    SharedResource(const SharedResource& other)
        : m_object(other.m_object), m_count(other.m_count), m_destroyer(other.m_destroyer) {
        if (m_count) ++*m_count;
    }
    ~SharedResource() { drop(); }

    SharedResource& operator=(const SharedResource& other) {
        if (this != &other && m_count != other.m_count) {
            SharedResource copy(other);
            swap(copy);
        }
        return *this;
    }
    // Resetting to the object already held keeps it: it is not adopted a second time.
    void reset(element_type* object = nullptr) {
        if (object && object == m_object) return;
        SharedResource replacement(object);
        swap(replacement);
    }
    void swap(SharedResource& other) {
        std::swap(m_object, other.m_object);
        std::swap(m_count, other.m_count);
        std::swap(m_destroyer, other.m_destroyer);
    }

    element_type* get() const { return m_object; }
    element_type* operator->() const { return m_object; }
    element_type& operator*() const { return heldObject(m_object); }
    bool isNull() const { return m_object == nullptr; }
    explicit operator bool() const { return m_object != nullptr; }
    unsigned useCount() const { return m_count ? *m_count : 0; }

private:
    void adopt(element_type* object) {
        if (!object) return;
        unsigned* count = nullptr;
        try {
            count = static_cast<unsigned*>(allocateOrThrow(sizeof(unsigned), "a shared holder's count"));
            m_destroyer = new SharedResourceDestroyer<Storage>(object);
        } catch (...) {
            zebRelease(count, sizeof(unsigned));
            Storage::destroy(object);
            throw;
        }
        *count = 1;
        m_object = object;
        m_count = count;
    }
// GCC 12 cannot see that a count shared by two owners outlives the first one's drop and
// reports a use after free when several owners are inlined into one function.
#if defined(__GNUC__) && __GNUC__ >= 12
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wuse-after-free"
#endif
    void drop() {
        if (m_count && --*m_count == 0) {
            delete m_destroyer;
            zebRelease(m_count, sizeof(unsigned));
        }
        m_object = nullptr;
        m_count = nullptr;
        m_destroyer = nullptr;
    }
#if defined(__GNUC__) && __GNUC__ >= 12
#pragma GCC diagnostic pop
#endif

    element_type* m_object;
    unsigned* m_count;
    SharedResourceDestroyerBase* m_destroyer;
};

// Single owner handed out by factories: copying moves ownership and leaves the source empty.
template <class Storage> class TransferResource {
public:
    typedef typename Storage::element_type element_type;

    TransferResource() : m_object(nullptr) {}
    explicit TransferResource(element_type* object) : m_object(object) {}
    TransferResource(const TransferResource& other) : m_object(other.m_object) { other.m_object = nullptr; }
    ~TransferResource() {
        if (m_object) Storage::destroy(m_object);
    }
    TransferResource& operator=(const TransferResource& other) {
        if (this != &other) {
            element_type* taken = other.m_object;
            other.m_object = nullptr;
            reset(taken);
        }
        return *this;
    }

    void reset(element_type* object = nullptr) {
        element_type* old = m_object;
        m_object = object;
        if (old && old != object) Storage::destroy(old);
    }
    element_type* release() {
        element_type* object = m_object;
        m_object = nullptr;
        return object;
    }
    element_type* get() const { return m_object; }
    element_type* operator->() const { return m_object; }
    element_type& operator*() const { return heldObject(m_object); }
    bool isNull() const { return m_object == nullptr; }
    explicit operator bool() const { return m_object != nullptr; }

private:
    mutable element_type* m_object;
};

}  // namespace zeb
