#pragma once
#include <zeb/Resource.h>
#include <unknwn.h>

// Release of a COM interface with the logging that the holders promise: an exception escaping
// Release is logged on "comptr" and passed on.
ZEB_API void comPtrReleaseFailed();

// Storage of one COM interface pointer; copies AddRef, destruction Releases.
template <class I> class ComPtrStorage {
public:
    typedef I element_type;
    typedef I* pointer_type;
    static I* const emptyValue;

    static void acquire(I* pointer) { pointer->AddRef(); }
    static void release(I* pointer) {
        try {
            pointer->Release();
        } catch (...) {
            comPtrReleaseFailed();
            throw;
        }
    }
};
template <class I> I* const ComPtrStorage<I>::emptyValue = nullptr;

// COMPtr<I>::pointer names the COM holder of interface I.
template <class I> struct COMPtr {
    typedef zeb::CopiedResource<ComPtrStorage<I>> pointer;
};
