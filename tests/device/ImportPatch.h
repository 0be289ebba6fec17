#pragma once
// Load-time seam: redirects one imported function of a loaded module (its import address table
// entry) for the lifetime of the patch. Tests use it to stand between VexilDX9.dll and d3d9.dll
// or kernel32.dll without any test hook in the shipped library.
#include <d3d9.h>
#include <windows.h>

#include <functional>
#include <vector>

namespace vexiltest {

class ImportPatch {
public:
    ImportPatch(const char* module, const char* importedDll, const char* function, void* replacement);
    ~ImportPatch();
    ImportPatch(const ImportPatch&) = delete;
    ImportPatch& operator=(const ImportPatch&) = delete;

    bool ok() const { return m_slot != nullptr; }
    // What the entry pointed at before the patch: the real function.
    void* original() const { return m_original; }

private:
    void** m_slot = nullptr;
    void* m_original = nullptr;
};

// Direct3DCreate9 as VexilDX9.dll sees it. Without a handler every call goes to d3d9.dll; the
// SDK version of every call is recorded either way.
class Direct3DCreateHook {
public:
    typedef std::function<IDirect3D9*(UINT sdkVersion)> Handler;
    explicit Direct3DCreateHook(Handler handler = Handler())
        : m_patch("VexilDX9.dll", "d3d9.dll", "Direct3DCreate9", reinterpret_cast<void*>(&hooked)), m_handler(std::move(handler)) {
        active = this;
    }
    ~Direct3DCreateHook() { active = nullptr; }

    bool ok() const { return m_patch.ok(); }
    IDirect3D9* createReal(UINT sdkVersion) const {
        return reinterpret_cast<IDirect3D9*(WINAPI*)(UINT)>(m_patch.original())(sdkVersion);
    }
    const std::vector<UINT>& calls() const { return m_calls; }

private:
    static IDirect3D9* WINAPI hooked(UINT sdkVersion) {
        active->m_calls.push_back(sdkVersion);
        return active->m_handler ? active->m_handler(sdkVersion) : active->createReal(sdkVersion);
    }

    static inline Direct3DCreateHook* active = nullptr;
    ImportPatch m_patch;
    Handler m_handler;
    std::vector<UINT> m_calls;
};

// Sleep as VexilDX9.dll sees it: recorded, not waited.
class SleepHook {
public:
    SleepHook() : m_patch("VexilDX9.dll", "kernel32.dll", "Sleep", reinterpret_cast<void*>(&hooked)) { active = this; }
    ~SleepHook() { active = nullptr; }
    bool ok() const { return m_patch.ok(); }
    const std::vector<DWORD>& calls() const { return m_calls; }

private:
    static void WINAPI hooked(DWORD milliseconds) { active->m_calls.push_back(milliseconds); }

    static inline SleepHook* active = nullptr;
    ImportPatch m_patch;
    std::vector<DWORD> m_calls;
};

}  // namespace vexiltest
