#include <zeb/Array.h>
#include <zeb/ComPtr.h>
#include <zeb/HashTable.h>
#include <zeb/Resource.h>

#include "../device/ImportPatch.h"
#include "LogCapture.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <utility>

using zeb::Array;
using zeb::String;

namespace {

struct Matrix { float m[16]; };

// Counts live instances, to show that failed or repeated operations leak nothing; a copy made
// while `failCopies` is set throws.
struct Tracked {
    static int live;
    static bool failCopies;
    int value;
    Tracked(int v = 0) : value(v) { ++live; }
    Tracked(const Tracked& other) : value(other.value) {
        if (failCopies) throw std::runtime_error("copy failed");
        ++live;
    }
    Tracked& operator=(const Tracked&) = default;
    ~Tracked() { --live; }
};
int Tracked::live = 0;
bool Tracked::failCopies = false;
typedef zeb::PointerStorage<Tracked, 0, 3> OwnedTracked;

// A COM object that counts its references; its Release can be made to throw, the way a broken
// driver object could.
struct FakeUnknown : IUnknown {
    ULONG references = 1;
    bool failRelease = false;
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++references; }
    ULONG STDMETHODCALLTYPE Release() override {
        if (failRelease) throw std::runtime_error("release failed");
        return --references;
    }
};

// The message of the E that action throws.
template <class E, class F> std::string thrown(F action) {
    try {
        action();
    } catch (const E& e) {
        return e.what();
    }
    ADD_FAILURE() << "no exception";
    return std::string();
}

}  // namespace

TEST(Array, BoundsGrowthSelfAppendAndOversizedRequests) {
    EXPECT_EQ("Index out of bounds: 0 not in [0, -1]", thrown<zeb::IndexOutOfBounds>([] { Array<int>()[0]; }));
    Array<String> names;
    for (int i = 0; i < 8; ++i) names.append(String((std::to_string(i) + std::string(i * 8, 'x')).c_str()));
    names.append(names[7]);  // the ninth append moves the block its own argument lives in
    EXPECT_EQ(16u, names.capacity());
    EXPECT_TRUE(names[0] == "0" && names[8].size() == 57 && names[8] == names[7]) << "short and long texts moved";
    Array<Matrix> matrices;
    matrices.reserve(100);
    EXPECT_EQ(128u, Array<Matrix>(matrices).capacity()) << "8 doubled, and a copy follows its source";
    EXPECT_EQ("Asked for array of size: 268435456",
              thrown<zeb::NullPointer>([&] { matrices.reserve(0x10000000u); }));  // 16 GiB
    EXPECT_EQ(128u, matrices.capacity());
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
        Tracked::failCopies = true;
        EXPECT_THROW(Array<Tracked> c(b), std::runtime_error);
        Tracked::failCopies = false;
    }
    EXPECT_EQ(0, Tracked::live);
}

TEST(OrderedHashTable, DuplicatesAreRefusedLookupIsExactAndAThrowingInsertChangesNothing) {
    zeb::OrderedHashTable<String, Tracked> table;
    unsigned position = 99;
    EXPECT_TRUE(table.insert(String("wall.dds"), Tracked(1), &position));
    EXPECT_TRUE(table.insert(String("floor.dds"), Tracked(2), &position));
    EXPECT_EQ(1u, position);
    EXPECT_FALSE(table.insert(String("wall.dds"), Tracked(3), &position));
    EXPECT_EQ(0xFFFFFFFFu, position);
    EXPECT_EQ(1, table[String("wall.dds")].value) << "the first value stays";
    EXPECT_EQ(nullptr, table.find(String("WALL.dds")));
    EXPECT_EQ("Hash key missing: wall.DDS", thrown<zeb::HashKeyMissing>([&] { table.lookup(String("wall.DDS")); }));
    Tracked::failCopies = true;
    EXPECT_THROW(table.insert(String("lost"), Tracked(4)), std::runtime_error);
    Tracked::failCopies = false;
    EXPECT_EQ(2u, table.size());
    EXPECT_FALSE(table.contains(String("lost")));
    EXPECT_TRUE(table.insert(String("lost"), Tracked(5), &position));
    EXPECT_EQ(2u, position);
    EXPECT_EQ(5, table[String("lost")].value);
}

TEST(Serialization, RoundTripKeepsPositionsAndBadInputIsRefused) {
    zeb::OrderedHashTable<String, unsigned> table, back;
    for (const char* key : {"z<&>\"", "a", "m"}) table.insert(String(key), table.size() + 5);
    back.insert(String("stale"), 1u);
    String xml;
    table.doSerialization(String("textures"), xml);
    back.deserialize(xml);
    ASSERT_EQ(3u, back.size());
    EXPECT_TRUE(back.keyAt(0) == "z<&>\"" && !back.contains(String("stale")));
    EXPECT_EQ(2u, back.positionOf(String("m")));
    EXPECT_EQ("Serialization is not supported for: ArrayOfOthers",
              thrown<zeb::SerializationFailed>([&] { Array<Matrix>().doSerialization(String("m"), xml); }));
    EXPECT_THROW(back.deserialize(String("<OrderedHashTable></OrderedHashTable>")), zeb::SerializationFailed);
    EXPECT_THROW(back.deserialize(String("<OrderedHashTable><ArrayOfString name=\"m_arrayKeys\">")), zeb::SerializationFailed);
    zeb::HashTable<String, unsigned> plain, plainBack;
    plain.insert(String("two"), 2u);
    plain.doSerialization(String("t"), xml);
    plainBack.deserialize(xml);
    EXPECT_EQ(2u, plainBack[String("two")]);
}

TEST(ComHolder, CopiesOwnOneReferenceEachAndThrowingReleasesReachTheCaller) {
    FakeUnknown object;
    {
        COMPtr<IUnknown>::pointer first(&object);  // adopts the creation reference
        COMPtr<IUnknown>::pointer second(first);
        second = first;  // same interface on both sides: count unchanged
        second = std::as_const(second);  // self-assignment
        EXPECT_EQ(2u, object.references);
        second = COMPtr<IUnknown>::pointer();
        EXPECT_EQ(1u, object.references);
    }
    EXPECT_EQ(0u, object.references) << "every holder released its reference";
    object.failRelease = true;
    for (bool byDestructor : {false, true}) {
        vexiltest::LogCapture capture;
        bool caught = false;
        try {
            COMPtr<IUnknown>::pointer holder(&object);
            if (!byDestructor) holder.reset();
        } catch (const std::runtime_error&) {
            caught = true;
        }
        EXPECT_TRUE(caught) << (byDestructor ? "from the destructor" : "from reset");
        ASSERT_EQ(1u, capture.entries().size()) << capture.dump();
        EXPECT_TRUE(capture.contains("comptr", 4, "12 COMPtr destructor caught an exception"));
    }
}

TEST(SharedTransferBorrowed, EachOwnsAsItsKindSays) {
    {
        zeb::SharedResource<OwnedTracked, 0> first(new Tracked);
        {
            zeb::SharedResource<OwnedTracked, 0> second(first), third;
            third = second;
            EXPECT_EQ(3u, first.useCount());
        }
        first = std::as_const(first);  // self-assignment
        first.reset(first.get());  // its own object again: kept, not adopted twice
        EXPECT_EQ(1u, first.useCount());
        EXPECT_EQ(1, Tracked::live);
        EXPECT_THROW(*(zeb::SharedResource<OwnedTracked, 0>()), zeb::AssertionFailure) << "an empty holder has no object";
    }
    EXPECT_EQ(0, Tracked::live) << "the last shared owner deletes once";
    {
        zeb::TransferResource<OwnedTracked> made(new Tracked), taken(made), assigned;
        assigned = taken;
        EXPECT_TRUE(made.isNull() && taken.isNull());
        EXPECT_FALSE(assigned.isNull());
    }
    EXPECT_EQ(0, Tracked::live);
    Tracked local;
    {
        zeb::CopiedResource<zeb::PointerStorage<Tracked, 3, 2>> borrowed(&local), copy(borrowed);
        EXPECT_EQ(&local, copy.get());
    }
    EXPECT_EQ(1, Tracked::live) << "a borrowed pointer is never deleted";
}

namespace {
// Memory running out, simulated at the base library's two doors: the block allocator that the
// header templates call (this program's import of zebAllocate) and the C heap that large blocks
// come from (Zebcore.dll's import of malloc).
void* (*g_realAllocate)(size_t);
int g_blocksLeft;
void* scarceBlock(size_t bytes) { return g_blocksLeft-- > 0 ? g_realAllocate(bytes) : nullptr; }
void* (*g_realMalloc)(size_t);
// Only the large blocks fail: the C++ runtime's own small ones (the exception itself) still work.
void* noLargeBlocks(size_t bytes) { return bytes > 1024 ? nullptr : g_realMalloc(bytes); }
}  // namespace

TEST(Allocation, FailuresThrowNullPointerAndChangeNothing) {
    String big(std::string(600, 'x').c_str());  // past the pooled sizes: from the C heap
    zeb::HashTable<unsigned, bool> crowded;
    for (unsigned i = 0; i < 128; ++i) crowded.insert(i, true);  // the next insert doubles 128 buckets
    EXPECT_EQ("Out of memory for text", thrown<zeb::NullPointer>([&] { String().append(big.getUCS2Buffer(), 0xFFFFFFF0u); }));
    {
        vexiltest::ImportPatch heap("Zebcore.dll", "msvcrt.dll", "malloc", reinterpret_cast<void*>(&noLargeBlocks));
        ASSERT_TRUE(heap.ok());
        g_realMalloc = reinterpret_cast<void* (*)(size_t)>(heap.original());
        EXPECT_EQ("Out of memory for text", thrown<zeb::NullPointer>([&] { String copy(big); }));
        EXPECT_EQ("Out of memory for hash-table buckets", thrown<zeb::NullPointer>([&] { crowded.insert(128, true); }));
        EXPECT_FALSE(crowded.contains(128));
    }
    EXPECT_FALSE(crowded.insert(5, false));
    EXPECT_TRUE(crowded[5] && crowded.remove(5) && crowded.size() == 127);
    EXPECT_THROW(crowded.lookup(5), zeb::HashKeyMissing);
    Array<int> source;
    zeb::HashTable<unsigned, bool> table;
    typedef zeb::SharedResource<OwnedTracked, 0> SharedTracked;
    vexiltest::ImportPatch blocks(nullptr, "Zebcore.dll", "zebAllocate", reinterpret_cast<void*>(&scarceBlock));
    ASSERT_TRUE(blocks.ok());
    g_realAllocate = reinterpret_cast<void* (*)(size_t)>(blocks.original());
    g_blocksLeft = 0;
    EXPECT_EQ("Asked for array of size: 8", thrown<zeb::NullPointer>([&] { Array<int> copy(source); }));
    EXPECT_EQ("Out of memory for a hash-table node", thrown<zeb::NullPointer>([&] { table.insert(1, true); }));
    EXPECT_EQ("Out of memory for a shared holder's count", thrown<zeb::NullPointer>([] { SharedTracked s(new Tracked); }));
    g_blocksLeft = 1;
    EXPECT_EQ("Out of memory for a shared holder's destroyer", thrown<zeb::NullPointer>([] { SharedTracked s(new Tracked); }));
    EXPECT_EQ(0u, table.size());
    EXPECT_EQ(0, Tracked::live) << "the object of a holder that could not be made is deleted";
}
