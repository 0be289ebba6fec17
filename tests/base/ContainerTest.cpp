#include <zeb/Array.h>
#include <zeb/HashTable.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

using zeb::Array;
using zeb::String;

namespace {

struct Matrix {
    float m[16];
};

// Counts live instances, to show that failed or repeated operations leak nothing.
struct Tracked {
    static int live;
    int value;
    Tracked(int v = 0) : value(v) { ++live; }
    Tracked(const Tracked& other) : value(other.value) { ++live; }
    Tracked& operator=(const Tracked&) = default;
    ~Tracked() { --live; }
};
int Tracked::live = 0;

}  // namespace

TEST(Array, BoundsAreCheckedWithTheValidRange) {
    Array<int> empty;
    try {
        empty[0];
        FAIL() << "no exception";
    } catch (const zeb::IndexOutOfBounds& e) {
        EXPECT_EQ(0, e.lower());
        EXPECT_EQ(-1, e.upper());
        EXPECT_EQ(0, e.index());
    }
    Array<int> three;
    for (int i = 0; i < 3; ++i) three.append(i);
    EXPECT_THROW(three[3], zeb::IndexOutOfBounds);
    EXPECT_EQ(2, three[2]);
}

TEST(Array, GrowthFollowsPowersOfTwoFromEight) {
    Array<int> a;
    EXPECT_EQ(8u, a.capacity());
    for (int i = 0; i < 8; ++i) a.append(i);
    EXPECT_EQ(8u, a.capacity());
    a.append(8);
    EXPECT_EQ(16u, a.capacity());
    for (int i = 0; i < 9; ++i) EXPECT_EQ(i, a[i]) << "order survives growth";

    Array<int> reserved;
    reserved.reserve(100);
    EXPECT_EQ(128u, reserved.capacity());
    Array<int> copy(reserved);
    EXPECT_EQ(128u, copy.capacity()) << "a copy's capacity follows the source's";
}

TEST(Array, AppendingOwnElementDuringGrowthCopiesItFirst) {
    Array<String> names;
    for (int i = 0; i < 8; ++i) names.append(String("frame"));
    names.append(names[0]);
    EXPECT_TRUE(names[8] == "frame");
}

TEST(Array, OversizedRequestThrowsAndLeavesTheArrayIntact) {
    Array<Matrix> matrices;
    matrices.append(Matrix{{1.0f}});
    try {
        matrices.reserve(0x10000000u);  // 16 GiB of matrices: more than a 32-bit byte count
        FAIL() << "no exception";
    } catch (const zeb::NullPointer& e) {
        EXPECT_TRUE(e.message() == "Asked for array of size: 268435456");
    }
    EXPECT_EQ(1u, matrices.size());
    EXPECT_EQ(8u, matrices.capacity());
    EXPECT_EQ(1.0f, matrices[0].m[0]);
}

TEST(Array, ElementsAreConstructedAndDestroyedInBalance) {
    {
        Array<Tracked> a;
        for (int i = 0; i < 20; ++i) a.append(Tracked(i));
        Array<Tracked> b(a);
        b = a;
        b.removeAt(3);
        EXPECT_EQ(4, b[3].value);
        b.resize(5);
        a.clear();
        EXPECT_EQ(5, Tracked::live);
    }
    EXPECT_EQ(0, Tracked::live);
}

TEST(OrderedHashTable, DuplicatesAreRefusedAndTheFirstValueStays) {
    zeb::OrderedHashTable<String, unsigned> table;
    unsigned position = 99;
    EXPECT_TRUE(table.insert(String("wall.dds"), 1u, &position));
    EXPECT_EQ(0u, position);
    EXPECT_TRUE(table.insert(String("floor.dds"), 2u, &position));
    EXPECT_EQ(1u, position);
    EXPECT_FALSE(table.insert(String("wall.dds"), 3u, &position));
    EXPECT_EQ(0xFFFFFFFFu, position);
    EXPECT_EQ(2u, table.size());
    EXPECT_EQ(1u, table[String("wall.dds")]);
    EXPECT_EQ(0u, table.positionOf(String("wall.dds")));
}

TEST(OrderedHashTable, KeepsInsertionOrderThroughGrowthAndCopies) {
    zeb::OrderedHashTable<String, unsigned> table;
    for (unsigned i = 0; i < 500; ++i) {
        char name[16];
        std::snprintf(name, sizeof name, "k%u", (i * 7919u) % 1000u);
        ASSERT_TRUE(table.insert(String(name), i));
    }
    zeb::OrderedHashTable<String, unsigned> copy(table);
    for (unsigned i = 0; i < 500; ++i) {
        ASSERT_EQ(i, copy.valueAt(i));
        ASSERT_EQ(i, copy.positionOf(copy.keyAt(i))) << "index and key array agree";
    }
}

TEST(OrderedHashTable, LookupIsExactAndMissingKeysThrow) {
    zeb::OrderedHashTable<String, unsigned> table;
    table.insert(String("Bip01"), 7u);
    EXPECT_FALSE(table.contains(String("bip01")));
    EXPECT_EQ(nullptr, table.find(String("BIP01")));
    try {
        table.lookup(String("bip01"));
        FAIL() << "no exception";
    } catch (const zeb::HashKeyMissing& e) {
        EXPECT_TRUE(e.key() == "bip01");
    }
}

TEST(HashTable, InsertLookupRemove) {
    zeb::HashTable<unsigned, bool> seen;
    for (unsigned i = 0; i < 100; ++i) EXPECT_TRUE(seen.insert(i * 16, (i % 2) == 0));
    EXPECT_FALSE(seen.insert(0, false));
    EXPECT_TRUE(seen[0]);
    EXPECT_EQ(100u, seen.keys().size());
    EXPECT_TRUE(seen.remove(16));
    EXPECT_FALSE(seen.contains(16));
    EXPECT_THROW(seen.lookup(16), zeb::HashKeyMissing);
}

TEST(Serialization, OrderedTableRoundTripKeepsPositions) {
    zeb::OrderedHashTable<String, unsigned> table;
    table.insert(String("z<&>\""), 5u);
    table.insert(String("a"), 6u);
    table.insert(String("m"), 7u);
    String xml;
    table.doSerialization(String("textures"), xml);

    zeb::OrderedHashTable<String, unsigned> back;
    back.insert(String("stale"), 1u);
    back.deserialize(xml);
    ASSERT_EQ(3u, back.size());
    EXPECT_TRUE(back.keyAt(0) == "z<&>\"");
    EXPECT_EQ(2u, back.positionOf(String("m")));
    EXPECT_EQ(6u, back[String("a")]);
    EXPECT_FALSE(back.contains(String("stale")));
}

TEST(Serialization, HashTableRoundTrip) {
    zeb::HashTable<String, unsigned> table;
    table.insert(String("one"), 1u);
    table.insert(String("two"), 2u);
    String xml;
    table.doSerialization(String("t"), xml);
    zeb::HashTable<String, unsigned> back;
    back.deserialize(xml);
    EXPECT_EQ(2u, back.size());
    EXPECT_EQ(2u, back[String("two")]);
}

TEST(Serialization, UnsupportedTypesAndBrokenTextAreRefused) {
    Array<Matrix> matrices;
    EXPECT_STREQ("ArrayOfOthers", matrices.vClassName());
    String xml;
    try {
        matrices.doSerialization(String("m"), xml);
        FAIL() << "no exception";
    } catch (const zeb::SerializationFailed& e) {
        EXPECT_TRUE(e.message() == "Serialization is not supported for: ArrayOfOthers");
    }
    zeb::OrderedHashTable<String, unsigned> table;
    table.insert(String("kept"), 1u);
    EXPECT_THROW(table.deserialize(String("<OrderedHashTable><ArrayOfString name=\"m_arrayKeys\">")),
                 zeb::SerializationFailed);
    EXPECT_THROW(table.deserialize(String("<OrderedHashTable></OrderedHashTable>")), zeb::SerializationFailed);
}
