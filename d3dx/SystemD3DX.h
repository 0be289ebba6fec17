#pragma once
#include <windows.h>

// Entry points of the system D3DX that this DLL replaces under the same name, so they cannot
// be reached through the import library.
template <class Function>
Function systemD3DXFunction(const char* name)
{
    static HMODULE const module = LoadLibraryW(L"d3dx9_43.dll");
    if (!module)
        return nullptr;
    return reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(module, name)));
}
