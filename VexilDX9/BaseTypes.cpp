// The base-type instantiations the library's interface carries, instantiated whole here so that
// every member of each compiles and the DLL exports their virtual tables and type information.
// Their inline members are instantiated by each module that uses them.
#include <VexilDX9/Export.h>
#include <zeb/Array.h>
#include <zeb/HashTable.h>

#include <windows.h>

// Clang instantiates Array<String> inside String's own definition, where a member returns one;
// an export can no longer apply after that, so clang leaves this instantiation to each module.
#if defined(__clang__)
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wignored-attributes"
#endif
template class VEXILDX9_API zeb::Array<zeb::String>;
#if defined(__clang__)
#pragma clang diagnostic pop
#endif
template class VEXILDX9_API zeb::Array<zeb::Array<zeb::String>>;
template class VEXILDX9_API zeb::Array<unsigned int>;
template class VEXILDX9_API zeb::Array<int>;
template class VEXILDX9_API zeb::Array<bool>;
template class VEXILDX9_API zeb::Array<unsigned long>;
template class VEXILDX9_API zeb::Array<HWND>;
template class VEXILDX9_API zeb::HashTable<zeb::String, unsigned int>;
template class VEXILDX9_API zeb::HashTable<unsigned int, bool>;
template class VEXILDX9_API zeb::OrderedHashTable<zeb::String, unsigned int>;
