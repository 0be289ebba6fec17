#pragma once
#include <zeb/Exception.h>
#include <zeb/Memory.h>
#include <zeb/Serializable.h>
#include <zeb/Value.h>
#include <new>
#include <type_traits>
#include <utility>

namespace zeb {

namespace detail {
// Capacity that the growth rule gives for n elements: 8 doubled until it holds n, or exactly n
// when doubling wraps around.
inline unsigned grownCapacity(unsigned n) {
    unsigned capacity = 8;
    while (capacity < n) {
        unsigned doubled = capacity * 2;
        if (doubled == 0) return n;
        capacity = doubled;
    }
    return capacity;
}
ZEB_API NullPointer arraySizeFailure(unsigned n);
}  // namespace detail

// Growable vector kept in one heap block: a header with count and capacity, then the slots.
template <class T> class Array : public Serializable {
    struct Header {
        unsigned count;
        unsigned capacity;
    };
    static_assert(alignof(T) <= alignof(Header) * 2, "element alignment beyond the block header");

public:
    Array() : m_block(allocate(8, 0)) {}
    Array(const Array& other) : m_block(allocate(detail::grownCapacity(other.capacity()), other.capacity())) {
        copyElementsFrom(other);
    }
    Array& operator=(const Array& other) {
        if (this != &other) {
            Array copy(other);
            std::swap(m_block, copy.m_block);
        }
        return *this;
    }
    ~Array() override {
        destroyElements();
        freeBlock(m_block);
    }

    unsigned size() const { return m_block->count; }
    unsigned capacity() const { return m_block->capacity; }
    bool empty() const { return size() == 0; }
    T* getData() { return slots(); }
    const T* getData() const { return slots(); }
    T* begin() { return slots(); }
    T* end() { return slots() + size(); }
    const T* begin() const { return slots(); }
    const T* end() const { return slots() + size(); }

    T& operator[](unsigned index) {
        checkIndex(index);
        return slots()[index];
    }
    const T& operator[](unsigned index) const {
        checkIndex(index);
        return slots()[index];
    }
    T& last() { return (*this)[size() - 1]; }
    const T& last() const { return (*this)[size() - 1]; }

    void append(const T& value) {
        if (size() == capacity()) {
            // The value may live in this array: copy it before the block moves.
            T copy(value);
            reserve(size() + 1);
            new (slots() + size()) T(std::move(copy));
        } else {
            new (slots() + size()) T(value);
        }
        ++m_block->count;
    }

    // Makes room for n elements by the growth rule; the elements keep their order.
    void reserve(unsigned n) {
        if (n <= capacity()) return;
        unsigned newCapacity = detail::grownCapacity(n);
        Header* block = allocate(newCapacity, n);
        T* target = reinterpret_cast<T*>(block + 1);
        unsigned done = 0;
        try {
            // Elements that move without throwing are moved: same result as a copy, minus the
            // allocations of deep copies.
            for (; done < size(); ++done) new (target + done) T(std::move_if_noexcept(slots()[done]));
        } catch (...) {
            for (unsigned i = 0; i < done; ++i) target[i].~T();
            freeBlock(block);
            throw;
        }
        block->count = size();
        destroyElements();
        freeBlock(m_block);
        m_block = block;
    }

    // Sets the size, default-constructing new elements or destroying surplus ones.
    void resize(unsigned n) {
        reserve(n);
        while (size() < n) {
            new (slots() + size()) T();
            ++m_block->count;
        }
        while (size() > n) {
            --m_block->count;
            slots()[size()].~T();
        }
    }

    void removeAt(unsigned index) {
        checkIndex(index);
        for (unsigned i = index; i + 1 < size(); ++i) slots()[i] = slots()[i + 1];
        --m_block->count;
        slots()[size()].~T();
    }

    void clear() {
        destroyElements();
        m_block->count = 0;
    }

    void swap(Array& other) { std::swap(m_block, other.m_block); }

    static const char* className() {
        if constexpr (SerialTraits<T>::builtin) {
            return SerialTraits<T>::arrayName();
        } else if constexpr (std::is_base_of<Serializable, T>::value) {
            static const char name[] = "ArrayOfSerializable";
            return name;
        } else {
            static const char name[] = "ArrayOfOthers";
            return name;
        }
    }
    const char* vClassName() const override { return className(); }

    void serializeImp(XmlWriter& out, const String& name) const override {
        if constexpr (isSerializableValue<T>()) {
            out.begin(className(), name);
            for (const T& element : *this) serializeValue(out, String(), element);
            out.end(className());
        } else {
            (void)out;
            (void)name;
            throw SerializationFailed(unsupportedSerializationText(className()));
        }
    }

    void deserializeImp(const XmlElement& element) override {
        clear();
        for (unsigned i = 0; i < element.childCount(); ++i) insertValueToContainer(element.child(i));
    }

    // Reads one serialized element and appends it.
    virtual void insertValueToContainer(const XmlElement& element) {
        if constexpr (isSerializableValue<T>()) {
            T value{};
            deserializeValue(element, value);
            append(value);
        } else {
            (void)element;
            throw SerializationFailed(unsupportedSerializationText(className()));
        }
    }

private:
    static unsigned long long blockBytes(unsigned capacity) {
        return sizeof(Header) + static_cast<unsigned long long>(capacity) * sizeof(T);
    }
    static Header* allocate(unsigned capacity, unsigned requested) {
        unsigned long long bytes = blockBytes(capacity);
        if (bytes > 0xFFFFFFFFull) throw detail::arraySizeFailure(requested);
        Header* block = static_cast<Header*>(zebAllocate(static_cast<size_t>(bytes)));
        if (!block) throw detail::arraySizeFailure(requested);
        block->count = 0;
        block->capacity = capacity;
        return block;
    }
    static void freeBlock(Header* block) { zebRelease(block, static_cast<size_t>(blockBytes(block->capacity))); }
    T* slots() const { return reinterpret_cast<T*>(m_block + 1); }
    void checkIndex(unsigned index) const {
        if (index >= size())
            throw IndexOutOfBounds(0, static_cast<int>(size()) - 1, static_cast<int>(index));
    }
    void destroyElements() {
        for (unsigned i = size(); i > 0; --i) slots()[i - 1].~T();
    }
    void copyElementsFrom(const Array& other) {
        try {
            for (const T& element : other) {
                new (slots() + size()) T(element);
                ++m_block->count;
            }
        } catch (...) {
            destroyElements();
            freeBlock(m_block);
            throw;
        }
    }

    Header* m_block;
};

}  // namespace zeb
