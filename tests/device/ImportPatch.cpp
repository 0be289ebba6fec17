#include "ImportPatch.h"

#include <cstring>

namespace vexiltest {

namespace {

template <class T> T* at(HMODULE base, DWORD rva) { return reinterpret_cast<T*>(reinterpret_cast<BYTE*>(base) + rva); }

// The import address table entry of function imported by module from importedDll, or null.
void** findImportSlot(HMODULE module, const char* importedDll, const char* function) {
    const IMAGE_DOS_HEADER* dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(module);
    const IMAGE_NT_HEADERS* nt = at<IMAGE_NT_HEADERS>(module, dos->e_lfanew);
    const IMAGE_DATA_DIRECTORY& imports = nt->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
    if (!imports.VirtualAddress) return nullptr;
    for (IMAGE_IMPORT_DESCRIPTOR* d = at<IMAGE_IMPORT_DESCRIPTOR>(module, imports.VirtualAddress); d->Name; ++d) {
        if (_stricmp(at<char>(module, d->Name), importedDll) != 0) continue;
        IMAGE_THUNK_DATA* names = at<IMAGE_THUNK_DATA>(module, d->OriginalFirstThunk ? d->OriginalFirstThunk : d->FirstThunk);
        IMAGE_THUNK_DATA* slots = at<IMAGE_THUNK_DATA>(module, d->FirstThunk);
        for (; names->u1.AddressOfData; ++names, ++slots) {
            if (IMAGE_SNAP_BY_ORDINAL(names->u1.Ordinal)) continue;
            const IMAGE_IMPORT_BY_NAME* byName = at<IMAGE_IMPORT_BY_NAME>(module, static_cast<DWORD>(names->u1.AddressOfData));
            if (std::strcmp(reinterpret_cast<const char*>(byName->Name), function) == 0)
                return reinterpret_cast<void**>(&slots->u1.Function);
        }
    }
    return nullptr;
}

void writeSlot(void** slot, void* value) {
    DWORD old = 0;
    VirtualProtect(slot, sizeof(void*), PAGE_READWRITE, &old);
    *slot = value;
    VirtualProtect(slot, sizeof(void*), old, &old);
}

}  // namespace

ImportPatch::ImportPatch(const char* module, const char* importedDll, const char* function, void* replacement) {
    HMODULE handle = GetModuleHandleA(module);
    m_slot = handle ? findImportSlot(handle, importedDll, function) : nullptr;
    if (!m_slot) return;
    m_original = *m_slot;
    writeSlot(m_slot, replacement);
}

ImportPatch::~ImportPatch() {
    if (m_slot) writeSlot(m_slot, m_original);
}

}  // namespace vexiltest
