#include <zeb/ComPtr.h>
#include <zeb/Resource.h>

#include "LogCapture.h"

#include <d3d9.h>
#include <gtest/gtest.h>

#include <stdexcept>

namespace {

ULONG referenceCount(IUnknown* object) {
    object->AddRef();
    return object->Release();
}

// A COM object whose Release fails, the way a broken driver object could.
class ThrowingUnknown : public IUnknown {
public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void** out) override {
        *out = nullptr;
        return E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++count; }
    ULONG STDMETHODCALLTYPE Release() override { throw std::runtime_error("release failed"); }
    ULONG count = 1;
};

struct Counted {
    static int destroyed;
    ~Counted() { ++destroyed; }
};
int Counted::destroyed = 0;

typedef zeb::SharedResource<zeb::PointerStorage<Counted, 0, 3>, 0> SharedCounted;
typedef zeb::TransferResource<zeb::PointerStorage<Counted, 0, 3>> TransferCounted;
typedef zeb::CopiedResource<zeb::PointerStorage<Counted, 3, 2>> BorrowedCounted;

}  // namespace

TEST(ComHolder, CopiesOwnOneReferenceEach) {
    IDirect3D9* raw = Direct3DCreate9(D3D_SDK_VERSION);
    ASSERT_NE(nullptr, raw);
    raw->AddRef();  // the test's own reference, to watch the count after the holders are gone
    {
        COMPtr<IDirect3D9>::pointer first(raw);  // adopts the creation reference
        EXPECT_EQ(2u, referenceCount(raw));
        COMPtr<IDirect3D9>::pointer second(first);
        EXPECT_EQ(3u, referenceCount(raw));
        second = first;  // same interface on both sides: count unchanged
        EXPECT_EQ(3u, referenceCount(raw));
        second = second;
        EXPECT_EQ(3u, referenceCount(raw));
        COMPtr<IDirect3D9>::pointer empty;
        second = empty;
        EXPECT_EQ(2u, referenceCount(raw));
        EXPECT_TRUE(second.isNull());
    }
    EXPECT_EQ(0u, raw->Release()) << "every holder released its reference";
}

TEST(ComHolder, ReleaseThatThrowsIsLoggedOnceAndPassedOn) {
    vexiltest::LogCapture capture;
    ThrowingUnknown object;
    bool caught = false;
    try {
        COMPtr<IUnknown>::pointer holder(&object);
        holder.reset();
    } catch (const std::runtime_error&) {
        caught = true;
    }
    EXPECT_TRUE(caught);
    ASSERT_EQ(1u, capture.entries().size()) << capture.dump();
    EXPECT_TRUE(capture.contains("comptr", 4, "12 COMPtr destructor caught an exception"));
}

TEST(SharedOwner, LastOwnerDeletesOnce) {
    Counted::destroyed = 0;
    {
        SharedCounted first(new Counted);
        {
            SharedCounted second(first);
            SharedCounted third;
            third = second;
            EXPECT_EQ(3u, first.useCount());
        }
        EXPECT_EQ(0, Counted::destroyed);
        first = first;
        EXPECT_EQ(1u, first.useCount());
    }
    EXPECT_EQ(1, Counted::destroyed);
}

TEST(TransferAndBorrowed, OwnershipMovesOrIsNeverTaken) {
    Counted::destroyed = 0;
    {
        TransferCounted made(new Counted);
        TransferCounted taken(made);
        EXPECT_TRUE(made.isNull());
        EXPECT_FALSE(taken.isNull());
        TransferCounted assigned;
        assigned = taken;
        EXPECT_TRUE(taken.isNull());
    }
    EXPECT_EQ(1, Counted::destroyed);

    Counted local;
    {
        BorrowedCounted borrowed(&local);
        BorrowedCounted copy(borrowed);
        EXPECT_EQ(&local, copy.get());
    }
    EXPECT_EQ(1, Counted::destroyed) << "a borrowed pointer is never deleted";
}
