#include <zeb/ComPtr.h>
#include <zeb/Resource.h>

#include "LogCapture.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace {

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

struct Counted {
    static int destroyed;
    ~Counted() { ++destroyed; }
};
int Counted::destroyed = 0;

}  // namespace

TEST(ComHolder, CopiesOwnOneReferenceEachAndThrowingReleasesReachTheCaller) {
    FakeUnknown object;
    {
        COMPtr<IUnknown>::pointer first(&object);  // adopts the creation reference
        COMPtr<IUnknown>::pointer second(first);
        second = first;  // same interface on both sides: count unchanged
        second = second;
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
    typedef zeb::PointerStorage<Counted, 0, 3> Owned;
    Counted::destroyed = 0;
    {
        zeb::SharedResource<Owned, 0> first(new Counted);
        {
            zeb::SharedResource<Owned, 0> second(first), third;
            third = second;
            EXPECT_EQ(3u, first.useCount());
        }
        first = first;
        EXPECT_EQ(1u, first.useCount());
        EXPECT_EQ(0, Counted::destroyed);
    }
    EXPECT_EQ(1, Counted::destroyed) << "the last shared owner deletes once";
    {
        zeb::TransferResource<Owned> made(new Counted), taken(made), assigned;
        assigned = taken;
        EXPECT_TRUE(made.isNull() && taken.isNull());
        EXPECT_FALSE(assigned.isNull());
    }
    EXPECT_EQ(2, Counted::destroyed);
    Counted local;
    {
        zeb::CopiedResource<zeb::PointerStorage<Counted, 3, 2>> borrowed(&local), copy(borrowed);
        EXPECT_EQ(&local, copy.get());
    }
    EXPECT_EQ(2, Counted::destroyed) << "a borrowed pointer is never deleted";
}
