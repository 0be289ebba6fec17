// The base-type instantiations the library's interface carries, instantiated whole here so that
// every member of each compiles and the DLL exports their virtual tables and type information.
// Their inline members are instantiated by each module that uses them.
#include <VexilDX9/Export.h>
#include <zeb/Array.h>
#include <zeb/HashTable.h>

#include <windows.h>

template class VEXILDX9_API zeb::Array<zeb::String>;
template class VEXILDX9_API zeb::Array<zeb::Array<zeb::String>>;
template class VEXILDX9_API zeb::Array<unsigned int>;
template class VEXILDX9_API zeb::Array<int>;
template class VEXILDX9_API zeb::Array<bool>;
template class VEXILDX9_API zeb::Array<unsigned long>;
template class VEXILDX9_API zeb::Array<HWND>;
template class VEXILDX9_API zeb::HashTable<zeb::String, unsigned int>;
template class VEXILDX9_API zeb::HashTable<unsigned int, bool>;
template class VEXILDX9_API zeb::OrderedHashTable<zeb::String, unsigned int>;
