#include <zeb/HashTable.h>

#include <cstring>

namespace zeb {

unsigned HashFunc<String>::hash(const String& key) {
    // FNV-1a over the code units.
    unsigned hash = 2166136261u;
    const unsigned short* units = key.getUCS2Buffer();
    for (unsigned i = 0; i < key.size(); ++i) {
        hash ^= units[i];
        hash *= 16777619u;
    }
    return hash;
}

_BucketBase::~_BucketBase() = default;

namespace {
const unsigned kInitialBuckets = 16;

_BucketBase** newChains(unsigned count) {
    size_t bytes = static_cast<size_t>(count) * sizeof(_BucketBase*);
    _BucketBase** chains = static_cast<_BucketBase**>(allocateOrThrow(bytes, "hash-table buckets"));
    std::memset(chains, 0, bytes);
    return chains;
}

void freeChains(_BucketBase** chains, unsigned count) { zebRelease(chains, static_cast<size_t>(count) * sizeof(_BucketBase*)); }
}  // namespace

_HashTableRep::_HashTableRep() : m_bucketCount(kInitialBuckets), m_buckets(newChains(kInitialBuckets)), m_count(0) {}

_HashTableRep::~_HashTableRep() {
    clear();
    freeChains(m_buckets, m_bucketCount);
}

bool _HashTableRep::insert(unsigned hash, _BucketBase* node, const void* key) {
    if (lookup(hash, key)) return false;
    insertWithoutCheck(hash, node, key);
    return true;
}

void _HashTableRep::insertWithoutCheck(unsigned hash, _BucketBase* node, const void*) {
    try {
        reserve(m_count + 1);
    } catch (...) {
        delete node;
        throw;
    }
    node->m_hash = hash;
    _BucketBase*& head = m_buckets[hash & (m_bucketCount - 1)];
    node->m_next = head;
    head = node;
    ++m_count;
}

const _BucketBase* _HashTableRep::lookup(unsigned hash, const void* key) const {
    for (const _BucketBase* node = m_buckets[hash & (m_bucketCount - 1)]; node; node = node->m_next)
        if (node->m_hash == hash && node->keyEquals(key)) return node;
    return nullptr;
}

_BucketBase* _HashTableRep::lookup(unsigned hash, const void* key) {
    return const_cast<_BucketBase*>(static_cast<const _HashTableRep*>(this)->lookup(hash, key));
}

_BucketBase* _HashTableRep::detach(unsigned hash, const void* key) {
    for (_BucketBase** link = &m_buckets[hash & (m_bucketCount - 1)]; *link; link = &(*link)->m_next) {
        _BucketBase* node = *link;
        if (node->m_hash == hash && node->keyEquals(key)) {
            *link = node->m_next;
            node->m_next = nullptr;
            --m_count;
            return node;
        }
    }
    return nullptr;
}

void _HashTableRep::clear() {
    for (unsigned i = 0; i < m_bucketCount; ++i) {
        _BucketBase* node = m_buckets[i];
        while (node) {
            _BucketBase* next = node->m_next;
            delete node;
            node = next;
        }
        m_buckets[i] = nullptr;
    }
    m_count = 0;
}

void _HashTableRep::swap(_HashTableRep& other) {
    std::swap(m_bucketCount, other.m_bucketCount);
    std::swap(m_buckets, other.m_buckets);
    std::swap(m_count, other.m_count);
}

void _HashTableRep::reserve(unsigned count) {
    // Keep chains short: at most one node per bucket on average.
    if (count <= m_bucketCount) return;
    unsigned buckets = m_bucketCount;
    while (buckets < count && buckets < 0x80000000u) buckets *= 2;
    rehash(buckets);
}

void _HashTableRep::rehash(unsigned count) {
    _BucketBase** chains = newChains(count);
    for (unsigned i = 0; i < m_bucketCount; ++i) {
        _BucketBase* node = m_buckets[i];
        while (node) {
            _BucketBase* next = node->m_next;
            _BucketBase*& head = chains[node->m_hash & (count - 1)];
            node->m_next = head;
            head = node;
            node = next;
        }
    }
    freeChains(m_buckets, m_bucketCount);
    m_buckets = chains;
    m_bucketCount = count;
}

_HashTableIteratorBase::_HashTableIteratorBase(_BucketBase** first, _BucketBase** end)
    : m_chain(first), m_end(end), m_node(nullptr) {
    skipEmptyChains();
}

_HashTableIteratorBase& _HashTableIteratorBase::operator++() {
    if (m_node && m_node->m_next) {
        m_node = m_node->m_next;
    } else {
        ++m_chain;
        skipEmptyChains();
    }
    return *this;
}

void _HashTableIteratorBase::skipEmptyChains() {
    while (m_chain < m_end && !*m_chain) ++m_chain;
    m_node = m_chain < m_end ? *m_chain : nullptr;
}

}  // namespace zeb
