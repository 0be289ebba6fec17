#pragma once
// ATL's CComPtr where ATL exists; mingw-w64 ships no ATL, so a compatible subset stands in for it
// there. Semantics follow ATL: construction and assignment from a raw pointer add a reference.
#if defined(_MSC_VER) && __has_include(<atlbase.h>)
#include <atlbase.h>
#else
#include <unknwn.h>

namespace ATL {

template <class T> class CComPtr {
public:
    CComPtr() noexcept : p(nullptr) {}
    CComPtr(T* lp) noexcept : p(lp) {
        if (p) p->AddRef();
    }
    CComPtr(const CComPtr& other) noexcept : CComPtr(other.p) {}
    CComPtr(CComPtr&& other) noexcept : p(other.p) { other.p = nullptr; }
    ~CComPtr() {
        if (p) p->Release();
    }

    T* operator=(T* lp) noexcept {
        if (lp != p) {
            if (lp) lp->AddRef();
            T* old = p;
            p = lp;
            if (old) old->Release();
        }
        return p;
    }
    T* operator=(const CComPtr& other) noexcept { return *this = other.p; }
    T* operator=(CComPtr&& other) noexcept {
        if (this != &other) {
            T* old = p;
            p = other.p;
            other.p = nullptr;
            if (old) old->Release();
        }
        return p;
    }

    operator T*() const noexcept { return p; }
    T* operator->() const noexcept { return p; }
    T& operator*() const { return *p; }
    // For creating calls; like ATL, meant for an empty pointer.
    T** operator&() noexcept { return &p; }
    bool operator!() const noexcept { return p == nullptr; }

    void Release() noexcept {
        T* old = p;
        p = nullptr;
        if (old) old->Release();
    }
    void Attach(T* lp) noexcept {
        if (p) p->Release();
        p = lp;
    }
    T* Detach() noexcept {
        T* lp = p;
        p = nullptr;
        return lp;
    }

    T* p;
};

}  // namespace ATL
#endif
