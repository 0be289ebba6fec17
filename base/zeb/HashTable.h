#pragma once
#include <zeb/Array.h>
#include <zeb/Memory.h>

namespace zeb {

template <class K> struct HashFunc;
template <> struct ZEB_API HashFunc<String> {
    static unsigned hash(const String& key);
};
template <> struct HashFunc<unsigned int> {
    static unsigned hash(unsigned int key) {
        // Spreads sequential keys over the buckets.
        key ^= key >> 16;
        key *= 0x7feb352dU;
        key ^= key >> 15;
        return key;
    }
};

template <class K> struct EqualFunc {
    static bool equal(const K& a, const K& b) { return a == b; }
};

// One chain node of a hash table.
class ZEB_API _BucketBase {
public:
    ZEB_POOLED_OBJECT("a hash-table node")
    virtual ~_BucketBase();
    virtual bool keyEquals(const void* key) const = 0;

    _BucketBase* m_next = nullptr;
    unsigned m_hash = 0;
};

template <class K, class V, class Eq = EqualFunc<K>> class _Bucket : public _BucketBase {
public:
    _Bucket(const K& key, const V& value) : m_key(key), m_value(value) {}
    bool keyEquals(const void* key) const override { return Eq::equal(m_key, *static_cast<const K*>(key)); }

    K m_key;
    V m_value;
};

// Hashing core: buckets of node chains. Owns its nodes.
class ZEB_API _HashTableRep {
public:
    _HashTableRep();
    ~_HashTableRep();
    _HashTableRep(const _HashTableRep&) = delete;
    _HashTableRep& operator=(const _HashTableRep&) = delete;

    // False, and the node left to the caller, when a node with an equal key is present.
    // Otherwise the table owns the node, even when making room for it throws.
    bool insert(unsigned hash, _BucketBase* node, const void* key);
    void insertWithoutCheck(unsigned hash, _BucketBase* node, const void* key);
    // Makes room for count nodes, so that inserting up to that many cannot fail.
    void reserve(unsigned count);
    _BucketBase* lookup(unsigned hash, const void* key);
    const _BucketBase* lookup(unsigned hash, const void* key) const;
    // Unlinks and returns the node with an equal key, or null.
    _BucketBase* detach(unsigned hash, const void* key);
    void clear();
    void swap(_HashTableRep& other);

    unsigned size() const { return m_count; }
    _BucketBase** firstChain() const { return m_buckets; }
    _BucketBase** endChain() const { return m_buckets + m_bucketCount; }

private:
    void rehash(unsigned bucketCount);

    unsigned m_bucketCount;
    _BucketBase** m_buckets;
    unsigned m_count;
};

// Visits the nodes chain by chain in bucket order.
class ZEB_API _HashTableIteratorBase {
public:
    _HashTableIteratorBase(_BucketBase** first, _BucketBase** end);
    _HashTableIteratorBase& operator++();
    _BucketBase* node() const { return m_node; }
    bool atEnd() const { return m_node == nullptr; }

private:
    void skipEmptyChains();

    _BucketBase** m_chain;
    _BucketBase** m_end;
    _BucketBase* m_node;
};

// Unordered table from keys to values.
template <class K, class V, class Eq = EqualFunc<K>, class Hash = HashFunc<K>>
class HashTable : public Serializable {
    typedef _Bucket<K, V, Eq> Node;

public:
    HashTable() = default;
    HashTable(const HashTable& other) : Serializable() { copyFrom(other); }
    HashTable& operator=(const HashTable& other) {
        if (this != &other) {
            HashTable copy(other);
            m_rep.swap(copy.m_rep);
        }
        return *this;
    }

    unsigned size() const { return m_rep.size(); }
    void clear() { m_rep.clear(); }

    // False when the key is present already; the stored value then stays.
    bool insert(const K& key, const V& value) {
        Node* node = new Node(key, value);
        if (!m_rep.insert(Hash::hash(node->m_key), node, &node->m_key)) {
            delete node;
            return false;
        }
        return true;
    }
    bool contains(const K& key) const { return find(key) != nullptr; }
    const V* find(const K& key) const {
        const _BucketBase* node = m_rep.lookup(Hash::hash(key), &key);
        return node ? &static_cast<const Node*>(node)->m_value : nullptr;
    }
    V* find(const K& key) {
        _BucketBase* node = m_rep.lookup(Hash::hash(key), &key);
        return node ? &static_cast<Node*>(node)->m_value : nullptr;
    }
    V& lookup(const K& key) {
        V* value = find(key);
        if (!value) throw HashKeyMissing(key);
        return *value;
    }
    const V& lookup(const K& key) const {
        const V* value = find(key);
        if (!value) throw HashKeyMissing(key);
        return *value;
    }
    V& operator[](const K& key) { return lookup(key); }
    const V& operator[](const K& key) const { return lookup(key); }
    bool remove(const K& key) {
        _BucketBase* node = m_rep.detach(Hash::hash(key), &key);
        delete node;
        return node != nullptr;
    }

    Array<K> keys() const {
        Array<K> result;
        for (_HashTableIteratorBase it(m_rep.firstChain(), m_rep.endChain()); !it.atEnd(); ++it)
            result.append(static_cast<const Node*>(it.node())->m_key);
        return result;
    }
    Array<V> values() const {
        Array<V> result;
        for (_HashTableIteratorBase it(m_rep.firstChain(), m_rep.endChain()); !it.atEnd(); ++it)
            result.append(static_cast<const Node*>(it.node())->m_value);
        return result;
    }

    static const char* className() { return "HashTable"; }
    const char* vClassName() const override { return className(); }

    void serializeImp(XmlWriter& out, const String& name) const override {
        Array<K> keyArray = keys();
        Array<V> valueArray = values();
        out.begin(className(), name);
        serializeValue(out, "m_arrKey", keyArray);
        serializeValue(out, "m_arrValue", valueArray);
        out.end(className());
    }
    void deserializeImp(const XmlElement& element) override {
        Array<K> keyArray;
        Array<V> valueArray;
        deserializeValue(element.childByName("m_arrKey"), keyArray);
        deserializeValue(element.childByName("m_arrValue"), valueArray);
        if (keyArray.size() != valueArray.size()) throw SerializationFailed("HashTable: keys and values differ in number");
        m_rep.clear();
        for (unsigned i = 0; i < keyArray.size(); ++i) {
            Node* node = new Node(keyArray[i], valueArray[i]);
            m_rep.insertWithoutCheck(Hash::hash(node->m_key), node, &node->m_key);
        }
    }

private:
    void copyFrom(const HashTable& other) {
        for (_HashTableIteratorBase it(other.m_rep.firstChain(), other.m_rep.endChain()); !it.atEnd(); ++it) {
            const Node* source = static_cast<const Node*>(it.node());
            Node* node = new Node(source->m_key, source->m_value);
            m_rep.insertWithoutCheck(source->m_hash, node, &node->m_key);
        }
    }

    _HashTableRep m_rep;
};

// Table that remembers insertion order: positions 0..size-1 follow the order of insertion.
template <class K, class V, class Eq = EqualFunc<K>, class Hash = HashFunc<K>>
class OrderedHashTable : public Serializable {
    typedef _Bucket<K, unsigned int, Eq> Node;

public:
    static const unsigned int npos = 0xFFFFFFFFu;

    OrderedHashTable() = default;
    OrderedHashTable(const OrderedHashTable& other)
        : Serializable(), m_arrayKeys(other.m_arrayKeys), m_arrayValues(other.m_arrayValues) {
        rebuildIndex();
    }
    OrderedHashTable& operator=(const OrderedHashTable& other) {
        if (this != &other) {
            OrderedHashTable copy(other);
            swap(copy);
        }
        return *this;
    }

    unsigned size() const { return m_arrayKeys.size(); }
    bool empty() const { return size() == 0; }
    void clear() {
        m_index.clear();
        m_arrayKeys.clear();
        m_arrayValues.clear();
    }

    // Room for count entries: inserting up to that many allocates nothing more.
    void reserve(unsigned count) {
        m_arrayKeys.reserve(count);
        m_arrayValues.reserve(count);
        m_index.reserve(count);
    }

    // Appends key and value; a key that is present already keeps its value, and false is
    // returned with npos as the position. When a copy or an allocation throws, the table is
    // left as it was: the index node is linked last, once nothing can fail.
    bool insert(const K& key, const V& value, unsigned int* position = nullptr) {
        unsigned hash = Hash::hash(key);
        if (m_index.lookup(hash, &key)) {
            if (position) *position = npos;
            return false;
        }
        unsigned p = m_arrayKeys.size();
        reserve(p + 1);
        Node* node = new Node(key, p);
        try {
            m_arrayKeys.append(key);
            try {
                m_arrayValues.append(value);
            } catch (...) {
                m_arrayKeys.resize(p);
                throw;
            }
        } catch (...) {
            delete node;
            throw;
        }
        m_index.insertWithoutCheck(hash, node, &node->m_key);  // absent, and room was made above
        if (position) *position = p;
        return true;
    }

    bool contains(const K& key) const { return m_index.lookup(Hash::hash(key), &key) != nullptr; }
    // Position of the key, or npos.
    unsigned int positionOf(const K& key) const {
        const _BucketBase* node = m_index.lookup(Hash::hash(key), &key);
        return node ? static_cast<const Node*>(node)->m_value : npos;
    }
    V* find(const K& key) {
        unsigned int p = positionOf(key);
        return p == npos ? nullptr : &m_arrayValues[p];
    }
    const V* find(const K& key) const {
        unsigned int p = positionOf(key);
        return p == npos ? nullptr : &m_arrayValues[p];
    }
    V& lookup(const K& key) { return m_arrayValues[checkedPosition(key)]; }
    const V& lookup(const K& key) const { return m_arrayValues[checkedPosition(key)]; }
    V& operator[](const K& key) { return lookup(key); }
    const V& operator[](const K& key) const { return lookup(key); }

    V& valueAt(unsigned position) { return m_arrayValues[position]; }
    const V& valueAt(unsigned position) const { return m_arrayValues[position]; }
    const K& keyAt(unsigned position) const { return m_arrayKeys[position]; }
    const Array<K>& keys() const { return m_arrayKeys; }
    const Array<V>& values() const { return m_arrayValues; }
    Array<V>& values() { return m_arrayValues; }

    static const char* className() { return "OrderedHashTable"; }
    const char* vClassName() const override { return className(); }

    void serializeImp(XmlWriter& out, const String& name) const override {
        out.begin(className(), name);
        serializeValue(out, "m_arrayKeys", m_arrayKeys);
        serializeValue(out, "m_arrayValues", m_arrayValues);
        out.end(className());
    }
    void deserializeImp(const XmlElement& element) override {
        m_arrayKeys.clear();
        m_arrayValues = Array<V>();
        m_index.clear();
        deserializeValue(element.childByName("m_arrayKeys"), m_arrayKeys);
        deserializeValue(element.childByName("m_arrayValues"), m_arrayValues);
        if (m_arrayKeys.size() != m_arrayValues.size()) {
            clear();
            throw SerializationFailed("OrderedHashTable: keys and values differ in number");
        }
        rebuildIndex();
    }

private:
    unsigned int checkedPosition(const K& key) const {
        const _BucketBase* node = m_index.lookup(Hash::hash(key), &key);
        if (!node) throw HashKeyMissing(key);
        return static_cast<const Node*>(node)->m_value;
    }
    void rebuildIndex() {
        m_index.clear();
        for (unsigned i = 0; i < m_arrayKeys.size(); ++i) {
            Node* node = new Node(m_arrayKeys[i], i);
            m_index.insertWithoutCheck(Hash::hash(node->m_key), node, &node->m_key);
        }
    }
    void swap(OrderedHashTable& other) {
        m_index.swap(other.m_index);
        m_arrayKeys.swap(other.m_arrayKeys);
        m_arrayValues.swap(other.m_arrayValues);
    }

    _HashTableRep m_index;
    Array<K> m_arrayKeys;
    Array<V> m_arrayValues;
};

}  // namespace zeb
